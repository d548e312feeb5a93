// Field-processor entry programming: entry ids per key and VLAN, and each entry's
// recipe (NatEntryRecipe.h) applied through the SDK and the entry manager.

#include "CorvaneNat/NatEntryRecipe.h"
#include "CorvaneNat/NatTrace.h"
#include "CorvaneNat/NatWorkerSm.h"

namespace Corvane {

U32 NatWorkerSm::opaqueIdOf( Oro::NatHwKey const& hwKey,
                             Oro::NatHwData const& data ) const {
   CorvaneNat::HwKeyUidEntry const* row = hwKeyUidTable()->entry( hwKey );
   FWK_ASSERT_TEXT( row, "hwKeyUidTable()->entryHas( hwKey )" );
   if ( data.multicast() ) {
      return CorvaneNat::Uid( row->mcastUid ).value();  // 0 is a range error
   }
   return row->uid.value();
}

bool NatWorkerSm::doProgram( Oro::NatHwKey const& hwKey, Oro::NatHwKey const& hwKey0,
                             Oro::NatHwData const& data, U16 vlanId ) {
   Oro::NatHwShadowEntry const* const shadowEntry = shadow()->entry( hwKey );
   FWK_ASSERT_TEXT( shadowEntry, "shadow()->entryHas( hwKey )" );
   Oro::NatHwData const shadowData = shadowEntry->data();
   // The key's row, created empty if it has none (it stays even when the TCAM is full).
   ProgramContext context( shadowData, entryIdTable()->rowIs( hwKey ) );
   bool const programmed = doProgram( context, hwKey, hwKey0, data, vlanId );
   // Other VLANs of the row still hold what they held.
   if ( context.entry.defaultEntryIds().size() > 1 ) {
      context.dataQualifiers |= context.heldQualifiers;
   }
   storeRow( context );
   return programmed;
}

bool NatWorkerSm::doProgram( ProgramContext& context, Oro::NatHwKey const& hwKey,
                             Oro::NatHwKey const& hwKey0, Oro::NatHwData const& data,
                             U16 vlanId ) {
   NAT_TRACE( 8, "doProgram",
              " key: " << hwKey.stringValue() << "%s data: " << data.stringValue()
                       << " for vlanId " << vlanId );
   Oro::NatHwData const& shadowData = context.shadowData;
   bool const fragNeeded = natKeyHasFragEntry( hwKey, mode() );
   EntryIdTableEntry& entry = context.entry;

   bool const reinstall = entry.defaultEntryIdHas( vlanId );
   if ( reinstall ) {
      if ( fragNeeded ) {
         FWK_ASSERT( entry.fragEntryIdHas( vlanId ) );
      }
   } else {
      // The row records this VLAN only once all of its entries were given.
      CorvaneTcamEntryManager* entryManager = natEntryManager();
      U32 const id = entryManager->getEntry(
          unit(),
          natEntryDescription( hwKey, vlanId, NatEntryKind::defaultEntry,
                               data.multicast(), mode() ),
          CorvaneTcam::RequestKey() );
      if ( id == 0 ) {
         Fwk::logEventRaise( CORVANE_NAT_TCAM_RESOURCE_FULL, { hwKey.stringValue() } );
         return false;
      }
      if ( fragNeeded ) {
         U32 const fragId = entryManager->getEntry(
             unit(),
             natEntryDescription( hwKey, vlanId, NatEntryKind::fragEntry,
                                  data.multicast(), mode() ),
             CorvaneTcam::RequestKey() );
         if ( fragId == 0 ) {
            Fwk::logEventRaise( CORVANE_NAT_TCAM_RESOURCE_FULL, { hwKey.stringValue() } );
            // The default entry of this VLAN is not recorded: give it back.
            entryManager->releaseEntry( unit(), id );
            return false;
         }
         entry.fragEntryIdIs( vlanId, fragId );
      }
      entry.defaultEntryIdIs( vlanId, id );
   }

   U32 const defaultEntryId = entry.defaultEntryId( vlanId );
   NAT_TRACE( 8, "doProgram",
              ( reinstall ? "updating" : "adding" )
                  << " entry " << defaultEntryId << " for vlan " << vlanId );
   if ( context.opaqueId == 0 ) {
      context.opaqueId = opaqueIdOf( hwKey, data );
   }
   U32 const opaqueId = context.opaqueId;
   // A reprogrammed entry takes off what its new recipe drops of what it held.
   FpQualifierSet const held = reinstall ? context.heldQualifiers : 0;
   context.dataQualifiers |=
       doProgramEntry( defaultEntryId, reinstall, false, hwKey, shadowData, hwKey0, data,
                       vlanId, opaqueId, held );
   if ( entry.fragEntryIdHas( vlanId ) ) {
      U32 const fragEntryId = entry.fragEntryId( vlanId );
      NAT_TRACE( 8, "doProgram",
                 " frag entry " << fragEntryId << " for vlan " << vlanId );
      context.dataQualifiers |=
          doProgramEntry( fragEntryId, reinstall, true, hwKey, shadowData, hwKey0, data,
                          vlanId, opaqueId, held );
   }
   return true;
}

FpQualifierSet NatWorkerSm::doProgramEntry( U32 entryId, bool reinstall, bool fragEntry,
                                            Oro::NatHwKey const& hwKey,
                                            Oro::NatHwData const& shadowData,
                                            Oro::NatHwKey const& hwKey0,
                                            Oro::NatHwData const& shadowData0, U16 vlanId,
                                            U32 opaqueId,
                                            FpQualifierSet heldQualifiers ) {
   NAT_TRACE(
       8, "doProgramEntry",
       " data=" << shadowData.stringValue() << " data0=" << shadowData0.stringValue() );
   if ( hwKey.isDynamicNat() ) {
      doProgramDynamicNatEntry( entryId, reinstall, fragEntry, hwKey, shadowData, hwKey0,
                                shadowData0, opaqueId );
      return 0;  // a dynamic key's qualifiers follow the key alone
   }
   NatEntryRecipe const recipe =
       natEntryRecipe( hwKey, shadowData, shadowData0, vlanId,
                       fragEntry ? NatEntryKind::fragEntry : NatEntryKind::defaultEntry,
                       mode(), opaqueId );
   FpQualifierSet const holds = recipe.qualifiers() & natDataQualifiers;
   doApplyRecipe( entryId, reinstall, recipe, heldQualifiers & ~holds );
   return holds;
}

void NatWorkerSm::doProgramDynamicNatEntry( U32 entryId, bool reinstall, bool fragEntry,
                                            Oro::NatHwKey const& hwKey,
                                            Oro::NatHwData const& hwData,
                                            Oro::NatHwKey const&,
                                            Oro::NatHwData const& shadowData0, U32 uid ) {
   NatEntryRecipe const recipe = natEntryRecipe(
       hwKey, hwData, shadowData0, 0,
       fragEntry ? NatEntryKind::fragEntry : NatEntryKind::defaultEntry, mode(), uid );
   doApplyRecipe( entryId, reinstall, recipe, 0 );
}

void NatWorkerSm::doApplyRecipe( U32 entryId, bool reinstall,
                                 NatEntryRecipe const& recipe, FpQualifierSet dropped ) {
   applyFpEntryRecipe( unit(), entryId, recipe, reinstall, dropped );
   CorvaneTcamEntryManager* entryManager = natEntryManager();
   entryManager->setPriorityForEntry( unit(), entryId, recipe.priority() );
   if ( reinstall ) {
      NAT_TRACE( 8, "doProgramEntry", " reinstalling entry " << entryId );
      entryManager->reinstallEntry( unit(), entryId );
   } else {
      NAT_TRACE( 8, "doProgramEntry", " installing NEW entry " << entryId );
      entryManager->installEntry( unit(), entryId );
   }
}

}  // namespace Corvane
