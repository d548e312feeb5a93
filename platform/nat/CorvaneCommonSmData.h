#pragma once

// State the agent shares among its plug-ins ("corvaneCommon").
//
// CorvaneCommonSmData holds which SDK unit drives each module (`modIdToUnit`), which
// chip each unit is (`chip`, whose name appears in capacity keys), which TCAM flash
// downloads have been asked for and whether each is done (`flashDownloadWait`), and
// whether the agent came up by a hitless restart (`hitlessRestart`: the hardware kept
// its state and the agent rebuilds its own from the shadow instead of reprogramming).
// Every write, and every removal of a present key, is announced to reactors with the
// attribute and, for collections, the key.

#include <cstddef>
#include <string>
#include <unordered_map>

#include "platform/fwk/Entity.h"
#include "platform/nat/ModId.h"

namespace Corvane {

// A TCAM flash download that a plug-in waits for. Holds any 32-bit value; the named
// ones are those the agent knows.
enum TcamFlashDownloadReq : U32 {
   tcamFlashDownloadReqNone = 0,
   tcamFlashDownloadReqAcl = 1,       // ACL entries
   tcamFlashDownloadReqQos = 2,       // QoS entries
   tcamFlashDownloadReqL3Status = 3,  // L3 status (NAT and routing) entries
};

// Text form of a request: its name, or the number for a value without one.
std::string valueToStrep( TcamFlashDownloadReq req );

// The identification of a chip, as capacity keys name it (for example "Chip1").
struct ChipInfo {
   std::string name;

   bool operator==( ChipInfo const& o ) const { return name == o.name; }
   bool operator!=( ChipInfo const& o ) const { return name != o.name; }
};

class CorvaneCommonSmData : public Fwk::Entity {
public:
   typedef Fwk::Ptr<CorvaneCommonSmData> Ptr;
   typedef Fwk::PtrConst<CorvaneCommonSmData> PtrConst;
   static constexpr Fwk::AttributeId attrModIdToUnit = 1;
   static constexpr Fwk::AttributeId attrFlashDownloadWait = 2;
   static constexpr Fwk::AttributeId attrHitlessRestart = 3;
   static constexpr Fwk::AttributeId attrChip = 4;

   typedef CorvaneCentral::ModId ModId;
   typedef Fwk::Collection<
       ModId, U16, std::unordered_map<ModId, U16, Fwk::SaltedHash<ModId, 0x1c9e4a37u>>>
       ModIdToUnitCollection;
   typedef Fwk::Collection<
       TcamFlashDownloadReq, bool,
       std::unordered_map<TcamFlashDownloadReq, bool,
                          Fwk::SaltedHash<TcamFlashDownloadReq, 0x63b0d2f5u>>>
       FlashDownloadWaitCollection;
   typedef Fwk::Collection<
       U16, ChipInfo,
       std::unordered_map<U16, ChipInfo, Fwk::SaltedHash<U16, 0x28f7c46du>>>
       ChipCollection;

   explicit CorvaneCommonSmData( std::string name ) : Entity( std::move( name ) ) {}

   // The SDK unit of module `modId`, or null.
   U16 const* modIdToUnit( ModId modId ) const { return modIdToUnit_.find( modId ); }
   std::size_t modIdToUnits() const { return modIdToUnit_.size(); }
   void modIdToUnitIs( ModId modId, U16 unit ) { modIdToUnit_.set( modId, unit ); }
   // Removes the unit of `modId`; false when there was none.
   bool modIdToUnitDel( ModId modId ) { return modIdToUnit_.del( modId ); }
   // (module, unit) pairs, in no particular order.
   ModIdToUnitCollection const& modIdToUnit() const { return modIdToUnit_; }

   // Whether download `req` is done, or null when nobody waits for it.
   bool const* flashDownloadWait( TcamFlashDownloadReq req ) const {
      return flashDownloadWait_.find( req );
   }
   std::size_t flashDownloadWaits() const { return flashDownloadWait_.size(); }
   void flashDownloadWaitIs( TcamFlashDownloadReq req, bool done ) {
      flashDownloadWait_.set( req, done );
   }
   // Removes the wait for `req`; false when there was none.
   bool flashDownloadWaitDel( TcamFlashDownloadReq req ) {
      return flashDownloadWait_.del( req );
   }
   // (request, done) pairs, in no particular order.
   FlashDownloadWaitCollection const& flashDownloadWait() const {
      return flashDownloadWait_;
   }

   bool hitlessRestart() const { return hitlessRestart_; }
   void hitlessRestartIs( bool hitlessRestart );

   // The chip of SDK unit `unit`, or null.
   ChipInfo const* chip( U16 unit ) const { return chip_.find( unit ); }
   std::size_t chips() const { return chip_.size(); }
   void chipIs( U16 unit, ChipInfo const& info ) { chip_.set( unit, info ); }
   // Removes the chip of `unit`; false when there was none.
   bool chipDel( U16 unit ) { return chip_.del( unit ); }
   // (unit, chip) pairs, in no particular order.
   ChipCollection const& chip() const { return chip_; }

protected:
   ~CorvaneCommonSmData() override;

private:
   ModIdToUnitCollection modIdToUnit_{ this, attrModIdToUnit };
   FlashDownloadWaitCollection flashDownloadWait_{ this, attrFlashDownloadWait };
   bool hitlessRestart_ = false;
   ChipCollection chip_{ this, attrChip };
};

}  // namespace Corvane
