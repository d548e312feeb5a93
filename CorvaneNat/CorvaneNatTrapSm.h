#pragma once

// The NAT trap filters of one chip module.
//
// Upstream publishes NAT trap ACLs in Oro::NatTrapConfig (collection `trapAcl`, keyed by
// ACL name and VLAN). TrapSm turns each ACL into field-processor entries of TCAM group
// 160 so that the packets NAT must see reach the CPU (the first packets of a flow
// without an exact-match NAT entry, TCP control packets of translated flows, traffic
// towards a NAT pool) while translated traffic stays in hardware:
//   - per rule, a trap entry without and one with exact-match hit; the hit entry of a
//     permitting rule is preceded by its SYN, FIN and RST entries;
//   - per NAT pool rule, one entry without hit and three with (TCP data, TCP control,
//     IP);
//   - one implicit-deny entry (priority 0), shared by every ACL that asks for it.
// Every rule entry has priority 1; where entries of equal priority overlap, the one
// allocated and installed first wins, so the order of allocation matters.
//
// The tcamEntry table remembers the entry ids of each ACL. A changed ACL is released
// whole and programmed anew; a removed one is released. Ids are recorded as soon as they
// are allocated, so an ACL that runs out of TCAM room half way is released completely,
// left without a row, and named by the log event CORVANENAT_TRAP_TCAM_RESOURCE_FULL.
//
// The module id is the SDK unit of every call. Entries belong to the TCAM entry manager
// and are referenced by id; destroying a TrapSm releases none of them. Everything runs on
// the event loop, from the constructor and from the trapConfig reactor.

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "platform/fwk/Entity.h"
#include "platform/fwk/Hash.h"
#include "platform/nat/ModId.h"
#include "platform/nat/NatTrapConfig.h"
#include "platform/tcam/CorvaneTcamGroupManager.h"

namespace CorvaneNat {

// The CPU queue of packets trapped for NAT.
constexpr U32 cpuCosqNat_ = 6;

// Which TCP control flag an entry matches: the flag bits of the TCP header. Holds any
// value; only the three flags (and none) are supported by the trap filters.
class TcpControl {
public:
   enum Flag : U32 { none = 0, FIN = 1, SYN = 2, RST = 4 };
   // FIN, SYN and RST together.
   static constexpr U8 mask_ = FIN | SYN | RST;

   constexpr TcpControl( Flag flag = none ) : value_( flag ) {}
   constexpr explicit TcpControl( U32 value ) : value_( value ) {}

   constexpr U32 value() const { return value_; }
   // No bit outside FIN, SYN and RST.
   constexpr bool supported() const { return ( value_ & ~U32( mask_ ) ) == 0; }

   // "none", "FIN", "SYN", "RST", or the decimal number of another value.
   std::string stringValue() const;
   // Parses the text form (a name or a decimal number); false when `text` is neither.
   static bool fromString( std::string const& text, TcpControl& out );

   constexpr bool operator==( TcpControl o ) const { return value_ == o.value_; }
   constexpr bool operator!=( TcpControl o ) const { return value_ != o.value_; }

private:
   U32 value_;
};

std::ostream& operator<<( std::ostream& os, TcpControl tcpControl );

class TrapEntryRecipe;

class TrapSm : public Fwk::Entity {
public:
   typedef Fwk::Ptr<TrapSm> Ptr;
   typedef Fwk::PtrConst<TrapSm> PtrConst;

   // The entry ids one ACL owns.
   class TcamEntry {
   public:
      typedef std::unordered_set<U32> EntryIdSet;

      // An empty row: the default key and no ids.
      TcamEntry() = default;
      explicit TcamEntry( Oro::NatTrapKey const& key ) : key_( key ) {}
      // Rows have a collection and cannot be built from their text; this stops the
      // process.
      TcamEntry( char const* first, char const* last );
      static TcamEntry fromStrep( std::string const& text );

      Oro::NatTrapKey const& key() const { return key_; }
      EntryIdSet const& entryId() const { return entryId_; }
      bool entryIdHas( U32 entryId ) const { return entryId_.count( entryId ) != 0; }
      void entryIdIs( U32 entryId ) { entryId_.insert( entryId ); }
      void entryIdDel( U32 entryId ) { entryId_.erase( entryId ); }
      void entryIdDelAll() { entryId_.clear(); }

      // Same key, same number of ids and the ids equal pairwise in iteration order.
      bool operator==( TcamEntry const& other ) const;
      bool operator!=( TcamEntry const& other ) const { return !( *this == other ); }

   private:
      Oro::NatTrapKey key_;
      EntryIdSet entryId_;
   };

   typedef std::unordered_map<Oro::NatTrapKey, TcamEntry,
                              Fwk::SaltedHash<Oro::NatTrapKey, 0x5c1e7a2bu>>
       TcamEntryMap;

   // Programs every ACL of `trapConfig` (may be null) and sets `initialized`; the
   // reactor on `trapConfig` starts with notifications on.
   TrapSm( CorvaneCentral::ModId modId, Oro::NatTrapConfig::PtrConst const& trapConfig,
           Corvane::CorvaneTcamGroupManager::Ptr const& groupManager );

   // Attributes.
   CorvaneCentral::ModId modId() const { return modId_; }
   // The SDK unit of every call: the module id.
   U16 unit() const { return modId_; }
   Oro::NatTrapConfig const* trapConfig() const;
   Corvane::CorvaneTcamGroupManager* tcamGroupManager() const {
      return tcamGroupManager_.ptr();
   }
   // A copy of the row of `key`, or an empty row when there is none.
   TcamEntry tcamEntry( Oro::NatTrapKey const& key ) const;
   bool tcamEntryHas( Oro::NatTrapKey const& key ) const;
   std::size_t tcamEntrys() const { return tcamEntry_.size(); }
   TcamEntryMap const& tcamEntryMap() const { return tcamEntry_; }
   U32 implicitDenyEntryId() const { return implicitDenyEntryId_; }
   bool initialized() const { return initialized_; }

   // Table operations.
   // Inserts the row under its key, or replaces the row there.
   void tcamEntryIs( TcamEntry const& entry );
   // Removes the row of `key` and returns it; an empty row when there was none.
   TcamEntry tcamEntryDel( Oro::NatTrapKey const& key );
   void tcamEntryDelAll() {
      trackedRow_ = nullptr;
      tcamEntry_.clear();
   }
   void implicitDenyEntryIdIs( U32 entryId ) { implicitDenyEntryId_ = entryId; }
   void initializedIs( bool initialized ) { initialized_ = initialized; }
   // Stops and drops the reactor on the trap configuration.
   void trapConfigDel();
   void hasNotificationActiveIs( bool active );

   // Reactions.
   void handleInitialized();
   // Reconciles every ACL of the configuration.
   void handleTrapRequest();
   // Reconciles one ACL with the configuration as it stands: an absent ACL loses its
   // entries, a present one is released whole and programmed anew.
   void handleTrapRequest( Oro::NatTrapKey const& key );

   // The steps of one ACL.
   void addTrapRule( Oro::NatTrapKey const& key );
   void deleteTrapRule( Oro::NatTrapKey const& key );
   // Gives back what a half-programmed ACL obtained, drops its row and raises the log
   // event with the ACL's key.
   void freeEntry( Oro::NatTrapKey const& key );
   // Records an allocated id in the row of `key`.
   void trackEntryId( Oro::NatTrapKey const& key, U32 entryId );

   // Entry programming; a false or 0 result means the TCAM had no room.
   bool programTrapEntry( Oro::NatTrapKey const& key, Oro::NatTrapRule const& rule,
                          U16 vlanId, bool emHit );
   U32 programTcpControlEntry( Oro::NatTrapKey const& key, Oro::NatTrapRule const& rule,
                               TcpControl tcpControl );
   U32 programReverseTrapEntry( Oro::NatTrapKey const& key, Oro::NatTrapRule const& rule,
                                bool emHit, bool tcpCheck, bool tcpControl );
   bool programImplicitDenyEntry();

   // The actions of trap entries; `module` is the SDK unit. None installs the entry.
   // To the CPU on the NAT queue, instead of forwarding.
   static void setTrapToCpuAction( CorvaneCentral::ModId module, U32 entryId );
   // Cancels a copy to the CPU or drop decided by another stage.
   static void setSkipCpuAction( CorvaneCentral::ModId module, U32 entryId );
   // Skips egress VLAN translation, where the NAT rewrite happens.
   static void setSkipEvxltAction( CorvaneCentral::ModId module, U32 entryId );

protected:
   ~TrapSm() override;

private:
   class TrapConfigReactor;

   Corvane::CorvaneTcamEntryManager* entryManager() const;
   // One pass of addTrapRule over the ACL's rules; false when the TCAM ran out.
   bool addTrapRulePass( Oro::NatTrapKey const& key, Oro::NatTrapAcl const& acl,
                         bool emHit );
   bool addPoolRule( Oro::NatTrapKey const& key, Oro::NatTrapRule const& rule,
                     bool emHit );
   // Whether any ACL of the configuration asks for the implicit deny.
   bool implicitDenyWanted() const;
   void releaseImplicitDenyEntry();
   // Priority and install of a complete entry.
   void installTrapEntry( U32 entryId, S32 priority );
   // A new entry of the recipe's description, 0 when the TCAM is full. The description
   // goes to the entry manager: the recipe holds none after.
   U32 getTrapEntry( TrapEntryRecipe& recipe );
   // Makes the recipe's calls on a new entry, then sets its priority and installs it.
   void doApplyRecipe( U32 entryId, TrapEntryRecipe const& recipe );

   CorvaneCentral::ModId modId_;
   std::unique_ptr<TrapConfigReactor> trapConfig_;
   Corvane::CorvaneTcamGroupManager::Ptr tcamGroupManager_;
   // The NAT group's entry manager, found on first use (see entryManager()).
   mutable Corvane::CorvaneTcamEntryManager::Ptr entryManager_;
   TcamEntryMap tcamEntry_;
   U32 implicitDenyEntryId_ = 0;
   bool initialized_ = false;
   // The row that trackEntryId() last recorded an id in (an ACL records all of its ids
   // in a row); dropped whenever a row is removed.
   TcamEntry* trackedRow_ = nullptr;
};

// "Value('CorvaneNat::TrapSm::TcamEntry', ** {'key': <key>, 'entryId': None})": the id
// set is a collection and is never rendered.
std::string valueToStrep( TrapSm::TcamEntry const& entry );
std::ostream& operator<<( std::ostream& os, TrapSm::TcamEntry const& entry );

// Creates a TrapSm and switches its notifications on.
TrapSm::Ptr trapSmFactory( CorvaneCentral::ModId modId,
                           Oro::NatTrapConfig::PtrConst const& trapConfig,
                           Corvane::CorvaneTcamGroupManager::Ptr const& groupManager );
TrapSm::Ptr TrapSmIs( CorvaneCentral::ModId modId,
                      Oro::NatTrapConfig::PtrConst const& trapConfig,
                      Corvane::CorvaneTcamGroupManager::Ptr const& groupManager );

}  // namespace CorvaneNat
