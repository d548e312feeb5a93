// The transaction commit: from a uid to programmed or removed entries and an answer.

#include <algorithm>
#include <array>
#include <vector>

#include "CorvaneNat/NatTrace.h"
#include "CorvaneNat/NatWorkerSm.h"

namespace Corvane {

namespace {

constexpr Xact::XactSluiceStatus::Result resultDone = Xact::XactSluiceStatus::done;
constexpr Xact::XactSluiceStatus::Result resultHardwareFull =
    Xact::XactSluiceStatus::hwFull;

}  // namespace

bool NatWorkerSm::transactionForThisModule( CorvaneNat::Uid uid ) const {
   if ( hitlessInitPhase() ) {
      return true;
   }
   CorvaneNat::ModSet const* modSet = modSetDir() ? modSetDir()->modSet( uid ) : nullptr;
   return modSet && modSet->hasModule( modId() );
}

bool NatWorkerSm::modeHoldsKey( Oro::NatHwKey const& hwKey ) const {
   if ( !hwKey.isDynamicNat() ) {
      return true;
   }
   // Each mode refuses only the keys it cannot make entries for (address-only mode: a
   // key missing an old address; the port mode: a key with an old port), so a key with
   // neither is programmed in either mode.
   bool const zeroAddress =
       hwKey.srcIpAndPortOld().ip().isZero() || hwKey.dstIpAndPortOld().ip().isZero();
   bool const port =
       hwKey.srcIpAndPortOld().port() != 0 || hwKey.dstIpAndPortOld().port() != 0;
   return !( zeroAddress && isAddrOnlyMode() ) && !( port && !isAddrOnlyMode() );
}

bool NatWorkerSm::commitProgramsKey( Oro::NatHwShadowEntry const& entry ) const {
   Oro::NatHwKey const& key = entry.key();
   Oro::NatHwShadowEntry::Dirty const dirty = entry.dirty();
   if ( !transactionForThisModule( entry.uid() ) || !modeHoldsKey( key ) ||
        ( dirty != Oro::NatHwShadowEntry::clean &&
          dirty != Oro::NatHwShadowEntry::programPending ) ) {
      return false;
   }
   NatKeySide const side = natKeySide( key.keyType() );
   return side == NatKeySide::source ||
          ( side == NatKeySide::destination && entry.data().vlanIds() > 0 );
}

void NatWorkerSm::answer( CorvaneNat::Uid uid, Xact::XactSluiceStatus::Result result,
                          U32 field ) {
   Xact::XactSluiceStatus status;
   status.key = Xact::XactSluiceKey( uid );
   status.result = result;
   status.field = field;
   xactSluiceStatusDir()->xactStatusIs( status );
}

void NatWorkerSm::doCommitHwConfig( CorvaneNat::Uid uid ) {
   FWK_ASSERT( initialized() );

   if ( !transactionForThisModule( uid ) ) {
      NAT_TRACE( 8, "doCommitHwConfig",
                 " mod " << modId() << " uid " << uid << " not in pending set" );
      return;
   }

   Oro::NatHwKey const* const uidKey = uidHwKeyTable()->entry( uid );
   FWK_ASSERT_TEXT( uidKey, "uidHwKeyTable()->entryHas( uid )" );
   Oro::NatHwKey const hwKey = *uidKey;

   Xact::XactSluiceKey const xactSluiceKey( uid );
   FWK_ASSERT( xactSluiceConfigDir()->xactConfigHas( xactSluiceKey ) );
   U32 const field = xactSluiceConfigDir()->xactConfig( xactSluiceKey )->field;

   // Dynamic keys that the hardware mode cannot hold are answered without hardware.
   if ( !modeHoldsKey( hwKey ) ) {
      answer( uid, resultDone, field );
      return;
   }

   // The paired key is the key itself, with its own shadow data: its one lookup gives
   // the dirty state and the data programmed.
   Oro::NatHwKey const& hwKey0 = hwKey;
   Oro::NatHwShadowEntry const* shadowEntry = shadow()->entry( hwKey0 );
   FWK_ASSERT_TEXT( shadowEntry, "shadow()->entryHas( hwKey0 )" );
   Oro::NatHwShadowEntry::Dirty const dirty = shadowEntry->dirty();
   if ( dirty == Oro::NatHwShadowEntry::deletePending ) {
      EntryIdTableEntry const row = entryIdTable()->entry( hwKey );
      for ( auto const& vlanEntry : row.defaultEntryIds() ) {
         doDeleteEntry( hwKey, vlanEntry.vlanId );
      }
      if ( tcamHitCountStatus() ) {
         tcamHitCountStatus()->entryDel( tcamHitCountKeyFromHwKey( hwKey ) );
      }
      entryIdTable()->entryDel( hwKey );
      answer( uid, resultDone, field );
      return;
   }
   if ( dirty != Oro::NatHwShadowEntry::clean &&
        dirty != Oro::NatHwShadowEntry::programPending ) {
      answer( uid, resultDone, field );
      return;
   }
   if ( dirty == Oro::NatHwShadowEntry::clean ) {
      FWK_ASSERT( hitlessInitPhase() && "invalid hw access with clean shadow" );
   }

   // Nothing has changed the shadow since shadowEntry was found.
   Oro::NatHwData const shadowData0 = shadowEntry->data();
   NAT_TRACE( 8, "doCommitHwConfig",
              "uid:" << uid << " dirty: " << Oro::valueToStrep( dirty )
                     << "shadowData0=" << shadowData0.stringValue() );

   Xact::XactSluiceStatus::Result result = resultDone;
   // doProgram( hwKey, hwKey0, shadowData0, vlanId ) for each VLAN, with the key's
   // lookups made once: its shadow data is shadowData0 (hwKey0 is hwKey).
   NatKeySide const side = natKeySide( hwKey.keyType() );
   if ( side == NatKeySide::source ) {
      ProgramContext context( shadowData0, entryIdTable()->rowIs( hwKey ) );
      if ( !doProgram( context, hwKey, hwKey0, shadowData0, 0 ) ) {
         result = resultHardwareFull;
      }
      storeRow( context );
   } else if ( side == NatKeySide::destination ) {
      // The VLAN set, built before anything is programmed, so that data claiming more
      // VLANs than the array holds stops here on the range error. It holds at most 64
      // ids: a scan of them beats a hash set.
      std::array<U16, 64> vlanSet;
      U32 vlanSetSize = 0;
      for ( U32 i = 0; i < shadowData0.vlanIds(); ++i ) {
         vlanSet[vlanSetSize++] = shadowData0.vlanId( i );
      }
      auto const listed = [&vlanSet, vlanSetSize]( U16 vlanId ) {
         return std::find( vlanSet.begin(), vlanSet.begin() + vlanSetSize, vlanId ) !=
                vlanSet.begin() + vlanSetSize;
      };
      EntryIdTable::const_iterator row = entryIdTable()->end();
      if ( vlanSetSize > 0 ) {
         ProgramContext context( shadowData0, entryIdTable()->rowIs( hwKey ) );
         row = context.row;
         for ( U32 i = 0; i < vlanSetSize; ++i ) {
            if ( !doProgram( context, hwKey, hwKey0, shadowData0, vlanSet[i] ) ) {
               result = resultHardwareFull;
            }
         }
         storeRow( context );
      } else {
         row = entryIdTable()->find( hwKey );
      }
      // Free the entries of VLANs that the data no longer lists.
      std::vector<U16> dropped;
      if ( row != entryIdTable()->end() ) {
         for ( auto const& vlanEntry : row->defaultEntryIds() ) {
            if ( !listed( vlanEntry.vlanId ) ) {
               dropped.push_back( vlanEntry.vlanId );
            }
         }
      }
      for ( U16 vlanId : dropped ) {
         doDeleteEntry( hwKey, vlanId );
      }
   }
   answer( uid, result, field );
}

}  // namespace Corvane
