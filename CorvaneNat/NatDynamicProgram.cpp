// Dynamic NAT entry programming: entries that match only what the key carries, always on
// an IP protocol, and hand the translation to the chip through opaque object 1 and an
// extraction-control id.

#include "CorvaneNat/NatConstants.h"
#include "CorvaneNat/NatTrace.h"
#include "CorvaneNat/NatWorkerSm.h"
#include "CorvaneNat/SdkCall.h"
#include "platform/chip/Sdk.h"

namespace Corvane {

namespace {

constexpr U8 TCAM_FIELD_TCP_CONTROL_MASK = 7;

// Whether the entry matches TCP (else UDP); first rule that applies wins.
bool isTcpEntry( Oro::NatHwKey const& key, bool fragEntry ) {
   if ( key.dynProto() == IPPROTO_TCP_ ) {
      return true;
   }
   if ( key.keyType() != Oro::NatHwKey::dynamicSrcNat &&
        key.keyType() != Oro::NatHwKey::dynamicDstNat ) {
      return false;
   }
   if ( !key.srcIpAndPortOld().ip().isZero() && !key.dstIpAndPortOld().ip().isZero() ) {
      return false;
   }
   return !fragEntry;
}

}  // namespace

void NatWorkerSm::doProgramDynamicNatEntry( U32 entryId, bool reinstall, bool fragEntry,
                                            Oro::NatHwKey const& hwKey,
                                            Oro::NatHwData const& hwData,
                                            Oro::NatHwKey const&,
                                            Oro::NatHwData const& shadowData0, U32 uid ) {
   Shim::Sdk& sdk = *Shim::sdk_;
   bool const source = hwKey.keyType() == Oro::NatHwKey::dynamicSrcNat;
   CORVANE_SDK_CALL( "bcm_field_qualify_MyStationHit( unit(), entryId, 1, 1 )",
                     sdk.bcm_field_qualify_MyStationHit( unit(), entryId, 1, 1 ) );
   CORVANE_SDK_CALL(
       "bcm_field_qualify_SrcClassField( unit(), entryId, 0, classVfpAclDrop_ )",
       sdk.bcm_field_qualify_SrcClassField( unit(), entryId, 0, classVfpAclDrop_ ) );
   if ( !hwKey.srcIpAndPortOld().ip().isZero() ) {
      CORVANE_SDK_CALL(
          "bcm_field_qualify_SrcIp( unit(), entryId, "
          "hwKey.srcIpAndPortOld().ip().value(), -1 )",
          sdk.bcm_field_qualify_SrcIp( unit(), entryId,
                                       hwKey.srcIpAndPortOld().ip().value(), -1 ) );
   }
   if ( !hwKey.dstIpAndPortOld().ip().isZero() ) {
      CORVANE_SDK_CALL(
          "bcm_field_qualify_DstIp( unit(), entryId, "
          "hwKey.dstIpAndPortOld().ip().value(), -1 )",
          sdk.bcm_field_qualify_DstIp( unit(), entryId,
                                       hwKey.dstIpAndPortOld().ip().value(), -1 ) );
   }
   if ( hwKey.dynProto() ) {
      CORVANE_SDK_CALL(
          "bcm_field_qualify_IpProtocol( unit(), entryId, hwKey.dynProto(), "
          "TCAM_FIELD_IPPROTO_MASK )",
          sdk.bcm_field_qualify_IpProtocol( unit(), entryId, hwKey.dynProto(),
                                            TCAM_FIELD_IPPROTO_MASK ) );
   }

   U32 extractionCtrlId;
   if ( fragEntry ) {
      if ( source ) {
         extractionCtrlId = extractionCtrlSnat;
      } else {
         FWK_ASSERT( shadowData0.vlanId( 0 ) );
         extractionCtrlId = extractionCtrlDnat;
      }
      if ( !hwKey.isAddrOnlyNat() ) {
         CORVANE_SDK_CALL(
             "bcm_field_qualify_IpFrag( unit(), entryId, bcmFieldIpFragNotFirst )",
             sdk.bcm_field_qualify_IpFrag( unit(), entryId,
                                           sdk.bcmFieldIpFragNotFirst ) );
      }
   } else {
      if ( hwKey.srcIpAndPortOld().port() ) {
         CORVANE_SDK_CALL(
             "bcm_field_qualify_L4SrcPort( unit(), entryId, "
             "hwKey.srcIpAndPortOld().port(), -1 )",
             sdk.bcm_field_qualify_L4SrcPort( unit(), entryId,
                                              hwKey.srcIpAndPortOld().port(), -1 ) );
      }
      if ( hwKey.dstIpAndPortOld().port() ) {
         CORVANE_SDK_CALL(
             "bcm_field_qualify_L4DstPort( unit(), entryId, "
             "hwKey.dstIpAndPortOld().port(), -1 )",
             sdk.bcm_field_qualify_L4DstPort( unit(), entryId,
                                              hwKey.dstIpAndPortOld().port(), -1 ) );
      }
      if ( source ) {
         extractionCtrlId =
             hwKey.srcIpAndPortOld().port() ? extractionCtrlSnapt : extractionCtrlSnat;
      } else {
         FWK_ASSERT( shadowData0.vlanId( 0 ) );
         extractionCtrlId =
             hwKey.dstIpAndPortOld().port() ? extractionCtrlDnapt : extractionCtrlDnat;
      }
   }

   if ( isTcpEntry( hwKey, fragEntry ) ) {
      CORVANE_SDK_CALL(
          "bcm_field_qualify_IpProtocol( unit(), entryId, IPPROTO_TCP, 0xff )",
          sdk.bcm_field_qualify_IpProtocol( unit(), entryId, IPPROTO_TCP_, 0xff ) );
      CORVANE_SDK_CALL(
          "bcm_field_qualify_TcpControl( unit(), entryId, 0, "
          "TCAM_FIELD_TCP_CONTROL_MASK )",
          sdk.bcm_field_qualify_TcpControl( unit(), entryId, 0,
                                            TCAM_FIELD_TCP_CONTROL_MASK ) );
   } else {
      CORVANE_SDK_CALL(
          "bcm_field_qualify_IpProtocol( unit(), entryId, IPPROTO_UDP, "
          "TCAM_FIELD_IPPROTO_MASK )",
          sdk.bcm_field_qualify_IpProtocol( unit(), entryId, IPPROTO_UDP_,
                                            TCAM_FIELD_IPPROTO_MASK ) );
   }

   if ( reinstall ) {
      CORVANE_SDK_CALL( "bcm_field_action_remove_all( unit(), entryId )",
                        sdk.bcm_field_action_remove_all( unit(), entryId ) );
   }
   CORVANE_SDK_CALL(
       "bcm_field_action_add( unit(), entryId, bcmFieldActionAssignOpaqueObject1, uid, 0 "
       ")",
       sdk.bcm_field_action_add( unit(), entryId, sdk.bcmFieldActionAssignOpaqueObject1,
                                 uid, 0 ) );
   CORVANE_SDK_CALL(
       "bcm_field_action_add( unit(), entryId, bcmFieldActionCopyToCpuCancel, 0, 0 )",
       sdk.bcm_field_action_add( unit(), entryId, sdk.bcmFieldActionCopyToCpuCancel, 0,
                                 0 ) );
   CORVANE_SDK_CALL(
       "bcm_field_action_add( unit(), entryId, "
       "bcmFieldActionAssignExtractionCtrlId, extractionCtrlId, 0x1f )",
       sdk.bcm_field_action_add( unit(), entryId,
                                 sdk.bcmFieldActionAssignExtractionCtrlId,
                                 extractionCtrlId, extractionCtrlIdMask ) );
   if ( source ) {
      CORVANE_SDK_CALL(
          "bcm_field_action_add( unit(), entryId, bcmFieldActionDropCancel, 0, 0 )",
          sdk.bcm_field_action_add( unit(), entryId, sdk.bcmFieldActionDropCancel, 0,
                                    0 ) );
   } else {
      // Validity and the multipath flag come from hwData, the index from shadowData0.
      U64 const nextHop = hwData.nextHopId();
      if ( nextHop != 0 && nextHop != ~U64( 0 ) ) {
         U32 const nextHopId = nextHopIdOf( nextHop, shadowData0.nextHopId() );
         CORVANE_SDK_CALL(
             "bcm_field_action_add( unit(), entryId, bcmFieldActionDropCancel, 0, 0 )",
             sdk.bcm_field_action_add( unit(), entryId, sdk.bcmFieldActionDropCancel, 0,
                                       0 ) );
         CORVANE_SDK_CALL(
             "bcm_field_action_add( unit(), entryId, bcmFieldActionL3Switch, "
             "nextHopId, 0 )",
             sdk.bcm_field_action_add( unit(), entryId, sdk.bcmFieldActionL3Switch,
                                       nextHopId, 0 ) );
      }
   }
   doInstall( entryId, reinstall );
}

}  // namespace Corvane
