// The recipes of NAT entries: static and twice entries by side (source keys 1 and 3,
// destination keys 2 and 4), dynamic entries (5 and 6). Each builder states the calls
// in the order the entry is programmed; the order is the chip's contract.

#include "CorvaneNat/NatEntryRecipe.h"

#include "CorvaneNat/NatConstants.h"
#include "platform/fwk/Assert.h"

namespace Corvane {

namespace {

constexpr U8 TCAM_FIELD_TCP_CONTROL_MASK = 7;

bool allOnes( U64 nextHop ) {
   return nextHop == ~U64( 0 );
}

// Forwarding by the next hop of `shadowData` (the index from `shadowData0`): a next hop
// is switched to; multicast without one only cancels a drop; no next hop drops unicast;
// an all-ones next hop leaves unicast alone.
void forwardingActions( NatEntryRecipe& recipe, Oro::NatHwData const& shadowData,
                        Oro::NatHwData const& shadowData0 ) {
   U64 const nextHop = shadowData.nextHopId();
   if ( nextHop != 0 && !allOnes( nextHop ) ) {
      U32 const nextHopId = nextHopIdOf( nextHop, shadowData0.nextHopId() );
      FP_ACTION( recipe, DropCancel, 0, 0 );
      FP_ACTION( recipe, L3Switch, nextHopId, 0 );
   } else if ( shadowData0.multicast() ) {
      FP_ACTION( recipe, DropCancel, 0, 0 );
   } else if ( nextHop == 0 ) {
      FP_ACTION( recipe, Drop, 0, 0 );
   }
}

// The multicast redirect (multicast data takes extraction control id 24), the
// extraction control id and the opaque id.
void translationActions( NatEntryRecipe& recipe, Oro::NatHwData const& shadowData0,
                         U32 extractionCtrlId, U32 opaqueId ) {
   if ( shadowData0.multicast() ) {
      if ( shadowData0.mcastGroupId() ) {
         FP_ACTION( recipe, RedirectIpmc, shadowData0.mcastGroupId(), 0 );
      }
      extractionCtrlId = extractionCtrlMulticast;
   }
   FP_ACTION( recipe, AssignExtractionCtrlId, extractionCtrlId, 0x1f );
   FP_ACTION( recipe, AssignOpaqueObject1, opaqueId, 0 );
}

void protocolQualifier( NatEntryRecipe& recipe, Oro::NatHwData const& shadowData ) {
   if ( shadowData.protocol() ) {
      FP_QUALIFY( recipe, IpProtocol, shadowData.protocol(), TCAM_FIELD_IPPROTO_MASK );
   }
}

// Source-side static (1) and twice (3) entries. A reprogramming removes the actions
// before anything else.
void sourceRecipe( NatEntryRecipe& recipe, Oro::NatHwKey const& hwKey,
                   Oro::NatHwData const& shadowData, Oro::NatHwData const& shadowData0,
                   U16 vlanId, bool fragEntry, U32 opaqueId ) {
   recipe.removeAllHere();
   FP_QUALIFY( recipe, MyStationHit, 1, 1 );
   FP_QUALIFY( recipe, SrcClassField, 0, classVfpAclDrop_ );
   if ( shadowData0.multicast() && shadowData0.ingress() ) {
      FWK_ASSERT( vlanId && "Missing vlanId for multicast ingress SNAT/Twice" );
      FP_QUALIFY( recipe, L3Ingress, vlanId, -1 );
   }
   FP_QUALIFY( recipe, SrcIp, hwKey.srcIpAndPortOld().ip().value(), -1 );
   if ( !fragEntry && hwKey.srcIpAndPortOld().port() ) {
      FP_QUALIFY( recipe, L4SrcPort, hwKey.srcIpAndPortOld().port(), -1 );
   }
   U32 extractionCtrlId;
   if ( hwKey.keyType() == Oro::NatHwKey::twiceNatSrc ) {
      FP_QUALIFY( recipe, DstIp, hwKey.dstIpAndPortOld().ip().value(), -1 );
      if ( !fragEntry && hwKey.dstIpAndPortOld().port() ) {
         FP_QUALIFY( recipe, L4DstPort, hwKey.dstIpAndPortOld().port(), -1 );
      }
      // The source side cancels copy-to-CPU only when it forwards.
      U64 const nextHop = shadowData.nextHopId();
      if ( ( nextHop != 0 && !allOnes( nextHop ) ) || shadowData0.multicast() ) {
         FP_ACTION( recipe, CopyToCpuCancel, 0, 0 );
      }
      forwardingActions( recipe, shadowData, shadowData0 );
      // The source-side twice key looks at the new destination port.
      extractionCtrlId = !fragEntry && hwKey.dstIpAndPortNew().port()
                             ? extractionCtrlTwiceSrcNapt
                             : extractionCtrlTwiceSrcNat;
   } else {
      // The destination filter, first match wins.
      if ( shadowData0.staticAclSharing() && hwKey.aclId().value() ) {
         FP_QUALIFY( recipe, OpaqueObject1, hwKey.aclId(), -1 );
      } else if ( !shadowData.filterAddr().address().isZero() ) {
         FP_QUALIFY( recipe, DstIp, shadowData.filterAddr().address().value(),
                     shadowData.filterAddr().mask() );
      } else if ( shadowData0.multicast() ) {
         FP_QUALIFY( recipe, DstIp, 0xe0000000, 0xf0000000 );
      }
      extractionCtrlId = !fragEntry && hwKey.srcIpAndPortNew().port()
                             ? extractionCtrlSnapt
                             : extractionCtrlSnat;
   }
   if ( fragEntry ) {
      FP_QUALIFY_SELECTOR( recipe, IpFrag, bcmFieldIpFragNotFirst );
   }
   protocolQualifier( recipe, shadowData );
   translationActions( recipe, shadowData0, extractionCtrlId, opaqueId );
}

// Destination-side static (2) and twice (4) entries. A reprogramming removes the
// actions after the qualifiers.
void destinationRecipe( NatEntryRecipe& recipe, Oro::NatHwKey const& hwKey,
                        Oro::NatHwData const& shadowData,
                        Oro::NatHwData const& shadowData0, U16 vlanId, bool fragEntry,
                        U32 opaqueId ) {
   FP_QUALIFY( recipe, MyStationHit, 1, 1 );
   FP_QUALIFY( recipe, SrcClassField, 0, classVfpAclDrop_ );
   // Unicast destination entries are always per VLAN.
   if ( !( shadowData0.multicast() && !shadowData0.ingress() ) ) {
      FWK_ASSERT( vlanId );
      FP_QUALIFY( recipe, L3Ingress, vlanId, -1 );
   }
   U32 extractionCtrlId;
   if ( hwKey.keyType() == Oro::NatHwKey::twiceNatDst ) {
      FP_QUALIFY( recipe, SrcIp, hwKey.srcIpAndPortOld().ip().value(), -1 );
      if ( !fragEntry && hwKey.srcIpAndPortOld().port() ) {
         FP_QUALIFY( recipe, L4SrcPort, hwKey.srcIpAndPortOld().port(), -1 );
      }
      // The destination-side twice key looks at the new source port.
      extractionCtrlId = !fragEntry && hwKey.srcIpAndPortNew().port()
                             ? extractionCtrlTwiceDstNapt
                             : extractionCtrlTwiceDstNat;
   } else {
      // The source filter, first match wins; multicast data matches all multicast
      // sources only when the old destination's first octet has none of its top three
      // bits set.
      U32 const firstOctet = hwKey.dstIpAndPortOld().ip().value() >> 24;
      if ( shadowData0.staticAclSharing() && hwKey.aclId().value() ) {
         FP_QUALIFY( recipe, OpaqueObject1, hwKey.aclId(), -1 );
      } else if ( !shadowData.filterAddr().address().isZero() ) {
         FP_QUALIFY( recipe, SrcIp, shadowData.filterAddr().address().value(),
                     shadowData.filterAddr().mask() );
      } else if ( shadowData0.multicast() && ( firstOctet & 0xe0 ) == 0 ) {
         FP_QUALIFY( recipe, SrcIp, 0xe0000000, 0xf0000000 );
      }
      extractionCtrlId = !fragEntry && hwKey.dstIpAndPortNew().port()
                             ? extractionCtrlDnapt
                             : extractionCtrlDnat;
   }
   FP_QUALIFY( recipe, DstIp, hwKey.dstIpAndPortOld().ip().value(), -1 );
   if ( fragEntry ) {
      FP_QUALIFY_SELECTOR( recipe, IpFrag, bcmFieldIpFragNotFirst );
   } else if ( hwKey.dstIpAndPortOld().port() ) {
      FP_QUALIFY( recipe, L4DstPort, hwKey.dstIpAndPortOld().port(), -1 );
   }
   protocolQualifier( recipe, shadowData );
   recipe.removeAllHere();
   translationActions( recipe, shadowData0, extractionCtrlId, opaqueId );
   FP_ACTION( recipe, CopyToCpuCancel, 0, 0 );
   forwardingActions( recipe, shadowData, shadowData0 );
}

// Whether a dynamic entry matches TCP (else UDP); the first rule that applies wins.
bool isTcpEntry( Oro::NatHwKey const& key, bool fragEntry ) {
   if ( key.dynProto() == IPPROTO_TCP ) {
      return true;
   }
   if ( !key.srcIpAndPortOld().ip().isZero() && !key.dstIpAndPortOld().ip().isZero() ) {
      return false;
   }
   return !fragEntry;
}

// Dynamic entries (5 and 6): they match only what the key carries, always on an IP
// protocol (TCP ones without FIN, SYN or RST), and hand the translation to the chip
// through opaque object 1 and the extraction-control id. `hwData` is the key's shadow
// data, `uid` its opaque id.
void dynamicRecipe( NatEntryRecipe& recipe, Oro::NatHwKey const& hwKey,
                    Oro::NatHwData const& hwData, Oro::NatHwData const& shadowData0,
                    bool fragEntry, U32 uid ) {
   bool const source = hwKey.keyType() == Oro::NatHwKey::dynamicSrcNat;
   FP_QUALIFY( recipe, MyStationHit, 1, 1 );
   FP_QUALIFY( recipe, SrcClassField, 0, classVfpAclDrop_ );
   if ( !hwKey.srcIpAndPortOld().ip().isZero() ) {
      FP_QUALIFY( recipe, SrcIp, hwKey.srcIpAndPortOld().ip().value(), -1 );
   }
   if ( !hwKey.dstIpAndPortOld().ip().isZero() ) {
      FP_QUALIFY( recipe, DstIp, hwKey.dstIpAndPortOld().ip().value(), -1 );
   }
   if ( hwKey.dynProto() ) {
      FP_QUALIFY( recipe, IpProtocol, hwKey.dynProto(), TCAM_FIELD_IPPROTO_MASK );
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
         FP_QUALIFY_SELECTOR( recipe, IpFrag, bcmFieldIpFragNotFirst );
      }
   } else {
      if ( hwKey.srcIpAndPortOld().port() ) {
         FP_QUALIFY( recipe, L4SrcPort, hwKey.srcIpAndPortOld().port(), -1 );
      }
      if ( hwKey.dstIpAndPortOld().port() ) {
         FP_QUALIFY( recipe, L4DstPort, hwKey.dstIpAndPortOld().port(), -1 );
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
      FP_QUALIFY( recipe, IpProtocol, IPPROTO_TCP, 0xff );
      FP_QUALIFY( recipe, TcpControl, 0, TCAM_FIELD_TCP_CONTROL_MASK );
   } else {
      FP_QUALIFY( recipe, IpProtocol, IPPROTO_UDP, TCAM_FIELD_IPPROTO_MASK );
   }

   recipe.removeAllHere();
   FP_ACTION( recipe, AssignOpaqueObject1, uid, 0 );
   FP_ACTION( recipe, CopyToCpuCancel, 0, 0 );
   FP_ACTION( recipe, AssignExtractionCtrlId, extractionCtrlId, 0x1f );
   if ( source ) {
      FP_ACTION( recipe, DropCancel, 0, 0 );
   } else {
      // Validity and the multipath flag come from hwData, the index from shadowData0.
      U64 const nextHop = hwData.nextHopId();
      if ( nextHop != 0 && !allOnes( nextHop ) ) {
         U32 const nextHopId = nextHopIdOf( nextHop, shadowData0.nextHopId() );
         FP_ACTION( recipe, DropCancel, 0, 0 );
         FP_ACTION( recipe, L3Switch, nextHopId, 0 );
      }
   }
}

}  // namespace

NatKeySide natKeySide( Oro::NatHwKey::NatKeyType type ) {
   switch ( type ) {
      case Oro::NatHwKey::staticSrcNat:
      case Oro::NatHwKey::twiceNatSrc:
      case Oro::NatHwKey::dynamicSrcNat:
         return NatKeySide::source;
      case Oro::NatHwKey::staticDstNat:
      case Oro::NatHwKey::twiceNatDst:
      case Oro::NatHwKey::dynamicDstNat:
         return NatKeySide::destination;
      default:
         return NatKeySide::none;
   }
}

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

NatEntryRecipe::NatEntryRecipe( Oro::NatHwKey const& hwKey, U16 vlanId, NatEntryKind kind,
                                bool multicast, NatWorkerMode mode )
    : FpEntryRecipe(
          natTcamGroupAssignment, natEntryPriority, __FILE__,
          hwKey.isDynamicNat() ? "doProgramDynamicNatEntry" : "doProgramEntry" ),
      hwKey_( &hwKey ),
      vlanId_( vlanId ),
      kind_( kind ),
      multicast_( multicast ),
      mode_( mode ) {}

std::string NatEntryRecipe::description() const {
   return natEntryDescription( *hwKey_, vlanId_, kind_, multicast_, mode_ );
}

NatEntryRecipe natEntryRecipe( Oro::NatHwKey const& hwKey,
                               Oro::NatHwData const& shadowData,
                               Oro::NatHwData const& shadowData0, U16 vlanId,
                               NatEntryKind kind, NatWorkerMode mode, U32 opaqueId ) {
   NatEntryRecipe recipe( hwKey, vlanId, kind, shadowData0.multicast(), mode );
   bool const fragEntry = kind == NatEntryKind::fragEntry;
   switch ( hwKey.keyType() ) {
      case Oro::NatHwKey::dynamicSrcNat:
      case Oro::NatHwKey::dynamicDstNat:
         dynamicRecipe( recipe, hwKey, shadowData, shadowData0, fragEntry, opaqueId );
         break;
      case Oro::NatHwKey::staticSrcNat:
      case Oro::NatHwKey::twiceNatSrc:
         sourceRecipe( recipe, hwKey, shadowData, shadowData0, vlanId, fragEntry,
                       opaqueId );
         break;
      case Oro::NatHwKey::staticDstNat:
      case Oro::NatHwKey::twiceNatDst:
         destinationRecipe( recipe, hwKey, shadowData, shadowData0, vlanId, fragEntry,
                            opaqueId );
         break;
      default:
         FWK_ASSERT( 0 && "Unsupported NAT configuration" );
   }
   return recipe;
}

}  // namespace Corvane
