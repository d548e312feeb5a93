// Field-processor entry programming: entry ids per key and VLAN, and the qualifiers and
// actions of static and twice NAT entries.

#include "CorvaneNat/NatConstants.h"
#include "CorvaneNat/NatTrace.h"
#include "CorvaneNat/NatWorkerSm.h"
#include "CorvaneNat/SdkCall.h"
#include "platform/chip/Sdk.h"

namespace Corvane {

bool needsFragEntry( Oro::NatHwKey const& key ) {
   bool const newPort =
       key.srcIpAndPortNew().port() != 0 || key.dstIpAndPortNew().port() != 0;
   bool const oldPort =
       key.srcIpAndPortOld().port() != 0 || key.dstIpAndPortOld().port() != 0;
   switch ( key.keyType() ) {
      case Oro::NatHwKey::staticSrcNat:
      case Oro::NatHwKey::staticDstNat:
         return newPort;
      case Oro::NatHwKey::twiceNatSrc:
      case Oro::NatHwKey::twiceNatDst:
         return oldPort && newPort;
      case Oro::NatHwKey::dynamicSrcNat:
      case Oro::NatHwKey::dynamicDstNat:
         return true;
      default:
         return false;
   }
}

namespace {

bool allOnes( U64 nextHop ) {
   return nextHop == ~U64( 0 );
}

}  // namespace

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
   bool const fragNeeded = needsFragEntry( hwKey ) && fragmentEnabled();
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
          unit(), generateTcamEntryDescription( hwKey, vlanId, false, data.multicast() ),
          CorvaneTcam::RequestKey() );
      if ( id == 0 ) {
         Fwk::logEventRaise( CORVANE_NAT_TCAM_RESOURCE_FULL, { hwKey.stringValue() } );
         return false;
      }
      if ( fragNeeded ) {
         U32 const fragId = entryManager->getEntry(
             unit(),
             generateTcamEntryDescription( hwKey, vlanId, true, data.multicast() ),
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
   doProgramEntry( defaultEntryId, reinstall, false, hwKey, shadowData, hwKey0, data,
                   vlanId, opaqueId );
   if ( entry.fragEntryIdHas( vlanId ) ) {
      U32 const fragEntryId = entry.fragEntryId( vlanId );
      NAT_TRACE( 8, "doProgram",
                 " frag entry " << fragEntryId << " for vlan " << vlanId );
      doProgramEntry( fragEntryId, reinstall, true, hwKey, shadowData, hwKey0, data,
                      vlanId, opaqueId );
   }
   return true;
}

void NatWorkerSm::doProgramEntry( U32 entryId, bool reinstall, bool fragEntry,
                                  Oro::NatHwKey const& hwKey,
                                  Oro::NatHwData const& shadowData,
                                  Oro::NatHwKey const& hwKey0,
                                  Oro::NatHwData const& shadowData0, U16 vlanId,
                                  U32 opaqueId ) {
   NAT_TRACE(
       8, "doProgramEntry",
       " data=" << shadowData.stringValue() << " data0=" << shadowData0.stringValue() );
   switch ( hwKey.keyType() ) {
      case Oro::NatHwKey::dynamicSrcNat:
      case Oro::NatHwKey::dynamicDstNat:
         doProgramDynamicNatEntry( entryId, reinstall, fragEntry, hwKey, shadowData,
                                   hwKey0, shadowData0, opaqueId );
         return;
      case Oro::NatHwKey::staticSrcNat:
      case Oro::NatHwKey::twiceNatSrc:
         doProgramSourceEntry( entryId, reinstall, fragEntry, hwKey, shadowData,
                               shadowData0, vlanId, opaqueId );
         return;
      case Oro::NatHwKey::staticDstNat:
      case Oro::NatHwKey::twiceNatDst:
         doProgramDestinationEntry( entryId, reinstall, fragEntry, hwKey, shadowData,
                                    shadowData0, vlanId, opaqueId );
         return;
      default:
         FWK_ASSERT( 0 && "Unsupported NAT configuration" );
   }
}

void NatWorkerSm::doProgramSourceEntry( U32 entryId, bool reinstall, bool fragEntry,
                                        Oro::NatHwKey const& hwKey,
                                        Oro::NatHwData const& shadowData,
                                        Oro::NatHwData const& shadowData0, U16 vlanId,
                                        U32 opaqueId ) {
   Shim::Sdk& sdk = *Shim::sdk_;
   bool const twice = hwKey.keyType() == Oro::NatHwKey::twiceNatSrc;
   if ( reinstall ) {
      CORVANE_SDK_CALL( "bcm_field_action_remove_all( unit(), entryId )",
                        sdk.bcm_field_action_remove_all( unit(), entryId ) );
   }
   CORVANE_SDK_CALL( "bcm_field_qualify_MyStationHit( unit(), entryId, 1, 1 )",
                     sdk.bcm_field_qualify_MyStationHit( unit(), entryId, 1, 1 ) );
   CORVANE_SDK_CALL(
       "bcm_field_qualify_SrcClassField( unit(), entryId, 0, classVfpAclDrop_ )",
       sdk.bcm_field_qualify_SrcClassField( unit(), entryId, 0, classVfpAclDrop_ ) );
   if ( shadowData0.multicast() && shadowData0.ingress() ) {
      FWK_ASSERT( vlanId && "Missing vlanId for multicast ingress SNAT/Twice" );
      CORVANE_SDK_CALL( "bcm_field_qualify_L3Ingress( unit(), entryId, vlanId, -1 )",
                        sdk.bcm_field_qualify_L3Ingress( unit(), entryId, vlanId, -1 ) );
   }
   CORVANE_SDK_CALL(
       "bcm_field_qualify_SrcIp( unit(), entryId, hwKey.srcIpAndPortOld().ip().value(), "
       "-1 )",
       sdk.bcm_field_qualify_SrcIp( unit(), entryId, hwKey.srcIpAndPortOld().ip().value(),
                                    -1 ) );
   if ( !fragEntry && hwKey.srcIpAndPortOld().port() ) {
      CORVANE_SDK_CALL(
          "bcm_field_qualify_L4SrcPort( unit(), entryId, "
          "hwKey.srcIpAndPortOld().port(), -1 )",
          sdk.bcm_field_qualify_L4SrcPort( unit(), entryId,
                                           hwKey.srcIpAndPortOld().port(), -1 ) );
   }
   U32 extractionCtrlId;
   if ( twice ) {
      CORVANE_SDK_CALL(
          "bcm_field_qualify_DstIp( unit(), entryId, "
          "hwKey.dstIpAndPortOld().ip().value(), -1 )",
          sdk.bcm_field_qualify_DstIp( unit(), entryId,
                                       hwKey.dstIpAndPortOld().ip().value(), -1 ) );
      if ( !fragEntry && hwKey.dstIpAndPortOld().port() ) {
         CORVANE_SDK_CALL(
             "bcm_field_qualify_L4DstPort( unit(), entryId, "
             "hwKey.dstIpAndPortOld().port(), -1 )",
             sdk.bcm_field_qualify_L4DstPort( unit(), entryId,
                                              hwKey.dstIpAndPortOld().port(), -1 ) );
      }
      // Forwarding: the source side cancels copy-to-CPU only when it forwards.
      U64 const nextHop = shadowData.nextHopId();
      if ( ( nextHop != 0 && !allOnes( nextHop ) ) || shadowData0.multicast() ) {
         CORVANE_SDK_CALL(
             "bcm_field_action_add( unit(), entryId, "
             "bcmFieldActionCopyToCpuCancel, 0, 0 )",
             sdk.bcm_field_action_add( unit(), entryId, sdk.bcmFieldActionCopyToCpuCancel,
                                       0, 0 ) );
      }
      doAddForwardingActions( entryId, shadowData, shadowData0 );
      // The source-side twice key looks at the new destination port.
      extractionCtrlId = !fragEntry && hwKey.dstIpAndPortNew().port()
                             ? extractionCtrlTwiceSrcNapt
                             : extractionCtrlTwiceSrcNat;
   } else {
      if ( shadowData0.staticAclSharing() && hwKey.aclId().value() ) {
         CORVANE_SDK_CALL(
             "bcm_field_qualify_OpaqueObject1( unit(), entryId, hwKey.aclId(), -1 )",
             sdk.bcm_field_qualify_OpaqueObject1( unit(), entryId, hwKey.aclId().value(),
                                                  -1 ) );
      } else if ( !shadowData.filterAddr().address().isZero() ) {
         CORVANE_SDK_CALL(
             "bcm_field_qualify_DstIp( unit(), entryId, "
             "shadowData.filterAddr().address().value(), "
             "shadowData.filterAddr().mask() )",
             sdk.bcm_field_qualify_DstIp( unit(), entryId,
                                          shadowData.filterAddr().address().value(),
                                          shadowData.filterAddr().mask() ) );
      } else if ( shadowData0.multicast() ) {
         CORVANE_SDK_CALL(
             "bcm_field_qualify_DstIp( unit(), entryId, 0xe0000000, 0xf0000000 )",
             sdk.bcm_field_qualify_DstIp( unit(), entryId, 0xe0000000, 0xf0000000 ) );
      }
      extractionCtrlId = !fragEntry && hwKey.srcIpAndPortNew().port()
                             ? extractionCtrlSnapt
                             : extractionCtrlSnat;
   }
   if ( fragEntry ) {
      CORVANE_SDK_CALL(
          "bcm_field_qualify_IpFrag( unit(), entryId, bcmFieldIpFragNotFirst )",
          sdk.bcm_field_qualify_IpFrag( unit(), entryId, sdk.bcmFieldIpFragNotFirst ) );
   }
   doQualifyIpProtocol( entryId, shadowData );
   doAddTranslationActions( entryId, shadowData0, extractionCtrlId, opaqueId );
   doInstall( entryId, reinstall );
}

void NatWorkerSm::doProgramDestinationEntry( U32 entryId, bool reinstall, bool fragEntry,
                                             Oro::NatHwKey const& hwKey,
                                             Oro::NatHwData const& shadowData,
                                             Oro::NatHwData const& shadowData0,
                                             U16 vlanId, U32 opaqueId ) {
   Shim::Sdk& sdk = *Shim::sdk_;
   bool const twice = hwKey.keyType() == Oro::NatHwKey::twiceNatDst;
   CORVANE_SDK_CALL( "bcm_field_qualify_MyStationHit( unit(), entryId, 1, 1 )",
                     sdk.bcm_field_qualify_MyStationHit( unit(), entryId, 1, 1 ) );
   CORVANE_SDK_CALL(
       "bcm_field_qualify_SrcClassField( unit(), entryId, 0, classVfpAclDrop_ )",
       sdk.bcm_field_qualify_SrcClassField( unit(), entryId, 0, classVfpAclDrop_ ) );
   if ( !( shadowData0.multicast() && !shadowData0.ingress() ) ) {
      FWK_ASSERT( vlanId );
      CORVANE_SDK_CALL( "bcm_field_qualify_L3Ingress( unit(), entryId, vlanId, -1 )",
                        sdk.bcm_field_qualify_L3Ingress( unit(), entryId, vlanId, -1 ) );
   }
   U32 extractionCtrlId;
   if ( twice ) {
      CORVANE_SDK_CALL(
          "bcm_field_qualify_SrcIp( unit(), entryId, "
          "hwKey.srcIpAndPortOld().ip().value(), -1 )",
          sdk.bcm_field_qualify_SrcIp( unit(), entryId,
                                       hwKey.srcIpAndPortOld().ip().value(), -1 ) );
      if ( !fragEntry && hwKey.srcIpAndPortOld().port() ) {
         CORVANE_SDK_CALL(
             "bcm_field_qualify_L4SrcPort( unit(), entryId, "
             "hwKey.srcIpAndPortOld().port(), -1 )",
             sdk.bcm_field_qualify_L4SrcPort( unit(), entryId,
                                              hwKey.srcIpAndPortOld().port(), -1 ) );
      }
      // The destination-side twice key looks at the new source port.
      extractionCtrlId = !fragEntry && hwKey.srcIpAndPortNew().port()
                             ? extractionCtrlTwiceDstNapt
                             : extractionCtrlTwiceDstNat;
   } else {
      U32 const firstOctet = hwKey.dstIpAndPortOld().ip().value() >> 24;
      if ( shadowData0.staticAclSharing() && hwKey.aclId().value() ) {
         CORVANE_SDK_CALL(
             "bcm_field_qualify_OpaqueObject1( unit(), entryId, hwKey.aclId(), -1 )",
             sdk.bcm_field_qualify_OpaqueObject1( unit(), entryId, hwKey.aclId().value(),
                                                  -1 ) );
      } else if ( !shadowData.filterAddr().address().isZero() ) {
         CORVANE_SDK_CALL(
             "bcm_field_qualify_SrcIp( unit(), entryId, "
             "shadowData.filterAddr().address().value(), "
             "shadowData.filterAddr().mask() )",
             sdk.bcm_field_qualify_SrcIp( unit(), entryId,
                                          shadowData.filterAddr().address().value(),
                                          shadowData.filterAddr().mask() ) );
      } else if ( shadowData0.multicast() && ( firstOctet & 0xe0 ) == 0 ) {
         CORVANE_SDK_CALL(
             "bcm_field_qualify_SrcIp( unit(), entryId, 0xe0000000, 0xf0000000 )",
             sdk.bcm_field_qualify_SrcIp( unit(), entryId, 0xe0000000, 0xf0000000 ) );
      }
      extractionCtrlId = !fragEntry && hwKey.dstIpAndPortNew().port()
                             ? extractionCtrlDnapt
                             : extractionCtrlDnat;
   }
   CORVANE_SDK_CALL(
       "bcm_field_qualify_DstIp( unit(), entryId, hwKey.dstIpAndPortOld().ip().value(), "
       "-1 )",
       sdk.bcm_field_qualify_DstIp( unit(), entryId, hwKey.dstIpAndPortOld().ip().value(),
                                    -1 ) );
   if ( fragEntry ) {
      CORVANE_SDK_CALL(
          "bcm_field_qualify_IpFrag( unit(), entryId, bcmFieldIpFragNotFirst )",
          sdk.bcm_field_qualify_IpFrag( unit(), entryId, sdk.bcmFieldIpFragNotFirst ) );
   } else if ( hwKey.dstIpAndPortOld().port() ) {
      CORVANE_SDK_CALL(
          "bcm_field_qualify_L4DstPort( unit(), entryId, "
          "hwKey.dstIpAndPortOld().port(), -1 )",
          sdk.bcm_field_qualify_L4DstPort( unit(), entryId,
                                           hwKey.dstIpAndPortOld().port(), -1 ) );
   }
   doQualifyIpProtocol( entryId, shadowData );
   if ( reinstall ) {
      CORVANE_SDK_CALL( "bcm_field_action_remove_all( unit(), entryId )",
                        sdk.bcm_field_action_remove_all( unit(), entryId ) );
   }
   doAddTranslationActions( entryId, shadowData0, extractionCtrlId, opaqueId );
   CORVANE_SDK_CALL(
       "bcm_field_action_add( unit(), entryId, bcmFieldActionCopyToCpuCancel, 0, 0 )",
       sdk.bcm_field_action_add( unit(), entryId, sdk.bcmFieldActionCopyToCpuCancel, 0,
                                 0 ) );
   doAddForwardingActions( entryId, shadowData, shadowData0 );
   doInstall( entryId, reinstall );
}

void NatWorkerSm::doQualifyIpProtocol( U32 entryId, Oro::NatHwData const& shadowData ) {
   Shim::Sdk& sdk = *Shim::sdk_;
   if ( shadowData.protocol() ) {
      CORVANE_SDK_CALL(
          "bcm_field_qualify_IpProtocol( unit(), entryId, "
          "shadowData.protocol(), TCAM_FIELD_IPPROTO_MASK )",
          sdk.bcm_field_qualify_IpProtocol( unit(), entryId, shadowData.protocol(),
                                            TCAM_FIELD_IPPROTO_MASK ) );
   }
}

// Forwarding by the next hop of `shadowData` (the index from `shadowData0`): a next hop
// is switched to; multicast without one only cancels a drop; no next hop drops unicast;
// an all-ones next hop leaves unicast alone.
void NatWorkerSm::doAddForwardingActions( U32 entryId, Oro::NatHwData const& shadowData,
                                          Oro::NatHwData const& shadowData0 ) {
   Shim::Sdk& sdk = *Shim::sdk_;
   U64 const nextHop = shadowData.nextHopId();
   if ( nextHop != 0 && !allOnes( nextHop ) ) {
      CORVANE_SDK_CALL(
          "bcm_field_action_add( unit(), entryId, bcmFieldActionDropCancel, 0, 0 )",
          sdk.bcm_field_action_add( unit(), entryId, sdk.bcmFieldActionDropCancel, 0,
                                    0 ) );
      U32 const nextHopId = nextHopIdOf( nextHop, shadowData0.nextHopId() );
      CORVANE_SDK_CALL(
          "bcm_field_action_add( unit(), entryId, bcmFieldActionL3Switch, nextHopId, 0 )",
          sdk.bcm_field_action_add( unit(), entryId, sdk.bcmFieldActionL3Switch,
                                    nextHopId, 0 ) );
   } else if ( shadowData0.multicast() ) {
      CORVANE_SDK_CALL(
          "bcm_field_action_add( unit(), entryId, bcmFieldActionDropCancel, 0, 0 )",
          sdk.bcm_field_action_add( unit(), entryId, sdk.bcmFieldActionDropCancel, 0,
                                    0 ) );
   } else if ( nextHop == 0 ) {
      CORVANE_SDK_CALL(
          "bcm_field_action_add( unit(), entryId, bcmFieldActionDrop, 0, 0 )",
          sdk.bcm_field_action_add( unit(), entryId, sdk.bcmFieldActionDrop, 0, 0 ) );
   }
}

// The multicast redirect (with extraction control id 24 for multicast), the extraction
// control id and the opaque id.
void NatWorkerSm::doAddTranslationActions( U32 entryId, Oro::NatHwData const& shadowData0,
                                           U32 extractionCtrlId, U32 opaqueId ) {
   Shim::Sdk& sdk = *Shim::sdk_;
   if ( shadowData0.multicast() ) {
      if ( shadowData0.mcastGroupId() ) {
         CORVANE_SDK_CALL(
             "bcm_field_action_add( unit(), entryId, "
             "bcmFieldActionRedirectIpmc, shadowData0.mcastGroupId(), 0 )",
             sdk.bcm_field_action_add( unit(), entryId, sdk.bcmFieldActionRedirectIpmc,
                                       shadowData0.mcastGroupId(), 0 ) );
      }
      extractionCtrlId = extractionCtrlMulticast;
   }
   CORVANE_SDK_CALL(
       "bcm_field_action_add( unit(), entryId, "
       "bcmFieldActionAssignExtractionCtrlId, extractionCtrlId, 0x1f )",
       sdk.bcm_field_action_add( unit(), entryId,
                                 sdk.bcmFieldActionAssignExtractionCtrlId,
                                 extractionCtrlId, extractionCtrlIdMask ) );
   CORVANE_SDK_CALL(
       "bcm_field_action_add( unit(), entryId, "
       "bcmFieldActionAssignOpaqueObject1, opaqueId, 0 )",
       sdk.bcm_field_action_add( unit(), entryId, sdk.bcmFieldActionAssignOpaqueObject1,
                                 opaqueId, 0 ) );
}

void NatWorkerSm::doInstall( U32 entryId, bool reinstall ) {
   CorvaneTcamEntryManager* entryManager = natEntryManager();
   entryManager->setPriorityForEntry( unit(), entryId, natEntryPriority );
   if ( reinstall ) {
      NAT_TRACE( 8, "doProgramEntry", " reinstalling entry " << entryId );
      entryManager->reinstallEntry( unit(), entryId );
   } else {
      NAT_TRACE( 8, "doProgramEntry", " installing NEW entry " << entryId );
      entryManager->installEntry( unit(), entryId );
   }
}

}  // namespace Corvane
