#pragma once

// The NAT trap ACLs: which packets the chip sends to the CPU so that NAT can see the
// first packet of a flow, per ACL and VLAN.
//
// NatTrapKey names one trap ACL (ACL name and VLAN id). A NatTrapAcl is a value: its key,
// its rules by sequence number (std::map, so they are visited in ascending sequence as
// the chip must match them) and whether what no rule matches is denied. NatTrapConfig is
// an entity with one keyed collection, `trapAcl`, keyed by the ACL's own key; every
// write and every removal of a present key is announced to reactors with the key.

#include <cstddef>
#include <iosfwd>
#include <map>
#include <string>
#include <unordered_map>

#include "platform/fwk/Entity.h"
#include "platform/nat/Wirel.h"

namespace Oro {

class NatTrapKey {
public:
   NatTrapKey() = default;
   NatTrapKey( std::string aclName, U16 vlanId )
       : aclName_( std::move( aclName ) ), vlanId_( vlanId ) {}

   std::string const& aclName() const { return aclName_; }
   U16 vlanId() const { return vlanId_; }

   // "aclName: <name>, vlanId: <decimal>", as log messages print a trap ACL.
   std::string stringValue() const;
   unsigned hash( unsigned seed ) const noexcept;

   bool operator==( NatTrapKey const& o ) const {
      return vlanId_ == o.vlanId_ && aclName_ == o.aclName_;
   }
   bool operator!=( NatTrapKey const& o ) const { return !( *this == o ); }
   // By name, then VLAN id.
   bool operator<( NatTrapKey const& o ) const;

private:
   std::string aclName_;
   U16 vlanId_ = 0;
};

std::ostream& operator<<( std::ostream& os, NatTrapKey const& key );

// One rule of a trap ACL: permit (trap) or deny packets from `srcIp` to `dstIp`.
class NatTrapRule {
public:
   NatTrapRule() = default;
   NatTrapRule( bool permit, Wirel::IpAddrWithFullMask srcIp,
                Wirel::IpAddrWithFullMask dstIp, bool pool = false )
       : permit_( permit ), srcIp_( srcIp ), dstIp_( dstIp ), pool_( pool ) {}

   bool permit() const { return permit_; }
   Wirel::IpAddrWithFullMask srcIp() const { return srcIp_; }
   Wirel::IpAddrWithFullMask dstIp() const { return dstIp_; }
   // The rule stands for a NAT pool's addresses rather than an entry of the ACL.
   bool pool() const { return pool_; }

   void permitIs( bool permit ) { permit_ = permit; }
   void srcIpIs( Wirel::IpAddrWithFullMask srcIp ) { srcIp_ = srcIp; }
   void dstIpIs( Wirel::IpAddrWithFullMask dstIp ) { dstIp_ = dstIp; }
   void poolIs( bool pool ) { pool_ = pool; }

   bool operator==( NatTrapRule const& o ) const {
      return permit_ == o.permit_ && srcIp_ == o.srcIp_ && dstIp_ == o.dstIp_ &&
             pool_ == o.pool_;
   }
   bool operator!=( NatTrapRule const& o ) const { return !( *this == o ); }

private:
   bool permit_ = false;
   Wirel::IpAddrWithFullMask srcIp_;
   Wirel::IpAddrWithFullMask dstIp_;
   bool pool_ = false;
};

// "permit src 10.0.0.0/8 dst 0.0.0.0/0", with " pool" appended for a pool's rule.
std::ostream& operator<<( std::ostream& os, NatTrapRule const& rule );

class NatTrapAcl {
public:
   typedef std::map<U32, NatTrapRule> RuleBySequence;

   NatTrapAcl() = default;
   // An ACL without rules that denies nothing implicitly.
   explicit NatTrapAcl( NatTrapKey key ) : key_( std::move( key ) ) {}

   NatTrapKey const& key() const { return key_; }
   // What no rule matches is denied.
   bool implicitDeny() const { return implicitDeny_; }
   void implicitDenyIs( bool implicitDeny ) { implicitDeny_ = implicitDeny; }

   // The rules, in ascending sequence number.
   RuleBySequence const& ruleBySequence() const { return ruleBySequence_; }
   // Inserts or replaces the rule of sequence number `seq`.
   void ruleBySequenceIs( U32 seq, NatTrapRule const& rule ) {
      ruleBySequence_[seq] = rule;
   }
   // Removes the rule of `seq`; false when there was none.
   bool ruleBySequenceDel( U32 seq ) { return ruleBySequence_.erase( seq ) != 0; }

   bool operator==( NatTrapAcl const& o ) const {
      return key_ == o.key_ && implicitDeny_ == o.implicitDeny_ &&
             ruleBySequence_ == o.ruleBySequence_;
   }
   bool operator!=( NatTrapAcl const& o ) const { return !( *this == o ); }

private:
   NatTrapKey key_;
   bool implicitDeny_ = false;
   RuleBySequence ruleBySequence_;
};

class NatTrapConfig : public Fwk::Entity {
public:
   typedef Fwk::Ptr<NatTrapConfig> Ptr;
   typedef Fwk::PtrConst<NatTrapConfig> PtrConst;
   static constexpr Fwk::AttributeId attrTrapAcl = 1;

   typedef Fwk::Collection<NatTrapKey, NatTrapAcl,
                           std::unordered_map<NatTrapKey, NatTrapAcl,
                                              Fwk::SaltedHash<NatTrapKey, 0x7a43e91du>>>
       TrapAclCollection;
   typedef TrapAclCollection::const_iterator const_iterator;

   explicit NatTrapConfig( std::string name ) : Entity( std::move( name ) ) {}

   // The ACL of `key`, or null.
   NatTrapAcl const* trapAcl( NatTrapKey const& key ) const {
      return trapAcl_.find( key );
   }
   bool trapAclHas( NatTrapKey const& key ) const { return trapAcl_.has( key ); }
   std::size_t trapAcls() const { return trapAcl_.size(); }
   // Inserts the ACL under its key, or replaces the one there.
   void trapAclIs( NatTrapAcl const& acl ) { trapAcl_.set( acl.key(), acl ); }
   // Removes the ACL of `key`; false when there was none.
   bool trapAclDel( NatTrapKey const& key ) { return trapAcl_.del( key ); }

   // (key, ACL) pairs, in no particular order.
   TrapAclCollection const& trapAcl() const { return trapAcl_; }
   const_iterator begin() const { return trapAcl_.begin(); }
   const_iterator end() const { return trapAcl_.end(); }

protected:
   ~NatTrapConfig() override;

private:
   TrapAclCollection trapAcl_{ this, attrTrapAcl };
};

}  // namespace Oro
