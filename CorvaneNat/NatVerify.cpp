// Hardware verification: the worker's entry-id table against the shadow, and the
// qualifiers of every entry it holds read back from the chip against the key they were
// programmed from. Any broken expectation stops the process with the expectation's text;
// nothing is repaired. Tools reach it as the operation "doVerify" of the worker.
//
// What is read back mirrors what NatProgram.cpp and NatDynamicProgram.cpp write, entry
// by entry. Notation: "old src"/"old dst" are the key's srcIpAndPortOld() and
// dstIpAndPortOld(); "/32" is the full mask 255.255.255.255; "-" means the qualifier is
// never written, so 0 is expected (the read fails, or reads 0); `vlan` is the VLAN the
// entry is recorded under in the entry-id table; `data` is the key's shadow data.
//
//   static source (1): one entry, VLAN 0.
//      SrcIp old src/32, L4SrcPort old src port, DstIp the destination filter (a),
//      L4DstPort -, IpProtocol data.protocol(), L3Ingress (c).
//   twice source side (3): one entry, VLAN 0.
//      SrcIp old src/32, L4SrcPort old src port, DstIp old dst/32, L4DstPort old dst
//      port, IpProtocol data.protocol(), L3Ingress (c).
//   static destination (2): one entry per VLAN of the data.
//      SrcIp the source filter (b), L4SrcPort -, DstIp old dst/32, L4DstPort old dst
//      port, IpProtocol data.protocol(), L3Ingress (d).
//   twice destination side (4): one entry per VLAN of the data.
//      SrcIp old src/32, L4SrcPort old src port, DstIp old dst/32, L4DstPort old dst
//      port, IpProtocol data.protocol(), L3Ingress (d).
//   dynamic source (5): one entry, VLAN 0.
//      SrcIp old src/32 if set, L4SrcPort old src port, DstIp old dst/32 if set,
//      L4DstPort old dst port, IpProtocol (e), L3Ingress -.
//   dynamic destination (6): one entry per VLAN of the data; as dynamic source (no L3
//      ingress either: the entries of all VLANs match alike).
//   fragment entries (second entry of a key and VLAN): what the default entry of that
//      key and VLAN expects, except both L4 ports, which are never written (0).
//
//   (a) ACL sharing with a non-zero ACL id: - (the entry matches the ACL's opaque object
//       instead); else a non-zero filter address: data.filterAddr() under its own mask;
//       else multicast data: 224.0.0.0/4; else -.
//   (b) as (a), except that multicast data gives 224.0.0.0/4 only when the first octet
//       of the old destination has none of its top three bits set.
//   (c) `vlan` when the data is multicast and ingress, else -. Source-side keys are
//       programmed under VLAN 0, which the programming refuses for multicast ingress
//       data, so in practice no source-side entry carries L3 ingress.
//   (d) `vlan`, except for multicast data that is not ingress: -.
//   (e) the last protocol written: 6 when dynProto() is 6; else 17 when both old
//       addresses are set or the entry is a fragment entry; else 6.
//   A port 0 in the key is never written. Static and twice entries always carry the
//   old addresses they match (0.0.0.0/32 included); dynamic ones only those that are set.
//
// Static and twice keys split into translations with ports (isStaticNapt() or
// isTwiceNapt(): a new port for static, an old and a new port for twice) and translations
// of addresses only. Only the former get fragment entries: with fragments enabled, every
// VLAN with a default entry has a fragment entry and no other VLAN has one. Dynamic keys
// also get fragment entries, but they are not held to that rule. The read-backs of both
// branches are those of the table; old ports are matched whenever the key has them.
//
// Which shadow keys have a row. The table has a row for every key the worker programmed,
// kept also when its entries are gone (all VLANs dropped, TCAM full). A shadow key
// without a row is counted as legitimately unprogrammed, and skipped, when the commit
// would not have programmed it:
//  - its transaction is not for this module (module set without this module, outside
//    the hitless-init phase);
//  - it is being removed (dirty 2: the commit removed the row, the entry leaves the
//    shadow when every module has answered);
//  - a dynamic key the hardware mode cannot hold (an old address 0.0.0.0 in
//    address-only mode, an old port outside it): answered without programming;
//  - nothing to program: a kind other than 1 to 6, or a destination-side key whose data
//    lists no VLAN.
// The first check is then "rows == shadow entries - unprogrammed keys", reported with
// the text "entryIdTable()->entrys() == shadow()->entrys()". Any other shadow key
// without a row (a lost row) breaks it, and so does a row for a key not in the shadow.
//
// Keys short of entries because the TCAM ran out. Programming that finds the TCAM full
// records nothing for that VLAN (a new key keeps an empty row) and answers its
// transaction with result 2. A key whose answer on this module is 2 is held only to the
// entries it has: its count of default entries and the presence of each VLAN are not
// checked, while every entry it does have is checked and read back as usual. Once the
// key is committed again with room to spare, its answer is 1 and it is held to
// everything. A worker that has not initialized has no table and nothing to verify.

#include <algorithm>
#include <vector>

#include "CorvaneNat/NatTrace.h"
#include "CorvaneNat/NatWorkerSm.h"
#include "platform/chip/Sdk.h"
#include "platform/fwk/ActivityLock.h"
#include "platform/fwk/Assert.h"
#include "platform/nat/NatChipAttr.h"

namespace Corvane {

namespace {

constexpr U32 fullMask = 0xffffffffu;
constexpr U32 l3IngressMask = 0x1fff;
constexpr U32 multicastAddr = 0xe0000000u;
constexpr U32 multicastMask = 0xf0000000u;
constexpr U8 ipProtoTcp = 6;
constexpr U8 ipProtoUdp = 17;

// Runs one qualifier read with the activity lock given up, and traces it.
template <class Read>
int sdkRead( char const* function, char const* callText, Read read ) {
   int rv;
   {
      Fwk::ActivityLockRelease release;
      rv = read();
   }
   NAT_TRACE( 4, function, callText << " (rv:" << rv << ")" );
   return rv;
}

enum class Side { source, destination, none };

// Source-side kinds are programmed once (VLAN 0), destination-side kinds once per VLAN.
Side sideOf( Oro::NatHwKey::NatKeyType type ) {
   switch ( type ) {
      case Oro::NatHwKey::staticSrcNat:
      case Oro::NatHwKey::twiceNatSrc:
      case Oro::NatHwKey::dynamicSrcNat:
         return Side::source;
      case Oro::NatHwKey::staticDstNat:
      case Oro::NatHwKey::twiceNatDst:
      case Oro::NatHwKey::dynamicDstNat:
         return Side::destination;
      default:
         return Side::none;
   }
}

// Whether a static or twice key translates ports, which is what gives it fragment
// entries: a new port for static NAT, an old and a new port for twice NAT.
bool translatesPorts( Oro::NatHwKey const& key ) {
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
      default:
         return false;
   }
}

// The same VLANs in both maps.
bool sameVlans( VlanEntryIdMap const& a, VlanEntryIdMap const& b ) {
   return a.size() == b.size() &&
          std::all_of( a.begin(), a.end(), [&b]( VlanEntryIdMap::Pair const& p ) {
             return b.has( p.vlanId );
          } );
}

// The VLANs a key's entries are recorded under: VLAN 0 for a source-side key, the
// data's VLANs (each once, in the data's order) for a destination-side key.
std::vector<U16> entryVlans( Side side, Oro::NatHwData const& data ) {
   std::vector<U16> vlanIds;
   if ( side == Side::source ) {
      vlanIds.push_back( 0 );
   } else if ( side == Side::destination ) {
      for ( U32 i = 0; i < data.vlanIds(); ++i ) {
         U16 const vlanId = data.vlanId( i );
         if ( std::find( vlanIds.begin(), vlanIds.end(), vlanId ) == vlanIds.end() ) {
            vlanIds.push_back( vlanId );
         }
      }
   }
   return vlanIds;
}

Wirel::IpAddrWithFullMask exactAddr( Wirel::IpAddr ip ) {
   return Wirel::IpAddrWithFullMask( ip, fullMask );
}

// An address the dynamic programming writes only when it is set.
Wirel::IpAddrWithFullMask exactAddrIfSet( Wirel::IpAddr ip ) {
   return ip.isZero() ? Wirel::IpAddrWithFullMask() : exactAddr( ip );
}

Wirel::IpAddrWithFullMask allMulticast() {
   return Wirel::IpAddrWithFullMask( Wirel::IpAddr( multicastAddr ), multicastMask );
}

// The protocol a dynamic entry is left with: the TCP or UDP qualifier is written last.
U8 dynamicProtocol( Oro::NatHwKey const& key, bool fragEntry ) {
   if ( key.dynProto() == ipProtoTcp ) {
      return ipProtoTcp;
   }
   if ( !key.srcIpAndPortOld().ip().isZero() && !key.dstIpAndPortOld().ip().isZero() ) {
      return ipProtoUdp;
   }
   return fragEntry ? ipProtoUdp : ipProtoTcp;
}

// What one entry's six read-back qualifiers are expected to hold; 0 for "not written".
struct Expected {
   Wirel::IpAddrWithFullMask srcIp;
   Wirel::IpAddrWithFullMask dstIp;
   U16 srcPort = 0;
   U16 dstPort = 0;
   U8 protocol = 0;
   U16 l3Ingress = 0;
};

// The destination filter of a static source key (the mirror of its source filter).
Wirel::IpAddrWithFullMask staticSourceDstFilter( Oro::NatHwKey const& key,
                                                 Oro::NatHwData const& data ) {
   if ( data.staticAclSharing() && key.aclId().value() ) {
      return {};
   }
   if ( !data.filterAddr().address().isZero() ) {
      return data.filterAddr();
   }
   if ( data.multicast() ) {
      return allMulticast();
   }
   return {};
}

Wirel::IpAddrWithFullMask staticDestinationSrcFilter( Oro::NatHwKey const& key,
                                                      Oro::NatHwData const& data ) {
   if ( data.staticAclSharing() && key.aclId().value() ) {
      return {};
   }
   if ( !data.filterAddr().address().isZero() ) {
      return data.filterAddr();
   }
   U32 const firstOctet = key.dstIpAndPortOld().ip().value() >> 24;
   if ( data.multicast() && ( firstOctet & 0xe0 ) == 0 ) {
      return allMulticast();
   }
   return {};
}

// The expectations of a static or twice entry.
Expected translationEntry( Oro::NatHwKey const& key, Oro::NatHwData const& data,
                           bool fragEntry, U16 vlanId ) {
   Expected e;
   Wirel::IpAndPort const srcOld = key.srcIpAndPortOld();
   Wirel::IpAndPort const dstOld = key.dstIpAndPortOld();
   e.protocol = data.protocol();
   switch ( key.keyType() ) {
      case Oro::NatHwKey::staticSrcNat:
         e.srcIp = exactAddr( srcOld.ip() );
         e.srcPort = fragEntry ? 0 : srcOld.port();
         e.dstIp = staticSourceDstFilter( key, data );
         e.l3Ingress = data.multicast() && data.ingress() ? vlanId : 0;
         break;
      case Oro::NatHwKey::twiceNatSrc:
         e.srcIp = exactAddr( srcOld.ip() );
         e.srcPort = fragEntry ? 0 : srcOld.port();
         e.dstIp = exactAddr( dstOld.ip() );
         e.dstPort = fragEntry ? 0 : dstOld.port();
         e.l3Ingress = data.multicast() && data.ingress() ? vlanId : 0;
         break;
      case Oro::NatHwKey::staticDstNat:
         e.srcIp = staticDestinationSrcFilter( key, data );
         e.dstIp = exactAddr( dstOld.ip() );
         e.dstPort = fragEntry ? 0 : dstOld.port();
         e.l3Ingress = data.multicast() && !data.ingress() ? 0 : vlanId;
         break;
      case Oro::NatHwKey::twiceNatDst:
         e.srcIp = exactAddr( srcOld.ip() );
         e.srcPort = fragEntry ? 0 : srcOld.port();
         e.dstIp = exactAddr( dstOld.ip() );
         e.dstPort = fragEntry ? 0 : dstOld.port();
         e.l3Ingress = data.multicast() && !data.ingress() ? 0 : vlanId;
         break;
      default:
         break;
   }
   return e;
}

// The expectations of a dynamic entry (source or destination: the same qualifiers).
Expected dynamicEntry( Oro::NatHwKey const& key, bool fragEntry ) {
   Expected e;
   e.srcIp = exactAddrIfSet( key.srcIpAndPortOld().ip() );
   e.dstIp = exactAddrIfSet( key.dstIpAndPortOld().ip() );
   e.srcPort = fragEntry ? 0 : key.srcIpAndPortOld().port();
   e.dstPort = fragEntry ? 0 : key.dstIpAndPortOld().port();
   e.protocol = dynamicProtocol( key, fragEntry );
   return e;
}

}  // namespace

void NatWorkerSm::doVerifySrcIp( U32 entryId, Wirel::IpAddrWithFullMask const& ipAddr ) {
   Shim::Sdk& sdk = *Shim::sdk_;
   U32 ip = 0;
   U32 mask = 0;
   int const rv = sdkRead(
       "doVerifySrcIp", "bcm_field_qualify_SrcIp_get( unit(), entryId, &ip, &mask )",
       [&] { return sdk.bcm_field_qualify_SrcIp_get( unit(), entryId, &ip, &mask ); } );
   if ( rv == sdk.BCM_E_NONE ) {
      NAT_TRACE( 4, "doVerifySrcIp", " entry sip " << entryId );
      NAT_TRACE( 4, "doVerifySrcIp", " sip " << Wirel::IpAddr( ip ).stringValue() );
      NAT_TRACE( 4, "doVerifySrcIp", "mask " << Wirel::IpAddr( mask ).stringValue() );
      FWK_ASSERT_TEXT( ip == ipAddr.address().value(), "ip == ipAddr.address().value()" );
      FWK_ASSERT_TEXT( mask == ipAddr.mask(), "mask == ipAddr.mask()" );
   } else {
      FWK_ASSERT_TEXT( ipAddr.address().value() == 0, "ipAddr.address().value() == 0" );
   }
}

void NatWorkerSm::doVerifyDstIp( U32 entryId, Wirel::IpAddrWithFullMask const& ipAddr ) {
   Shim::Sdk& sdk = *Shim::sdk_;
   U32 ip = 0;
   U32 mask = 0;
   int const rv = sdkRead(
       "doVerifyDstIp", "bcm_field_qualify_DstIp_get( unit(), entryId, &ip, &mask )",
       [&] { return sdk.bcm_field_qualify_DstIp_get( unit(), entryId, &ip, &mask ); } );
   if ( rv == sdk.BCM_E_NONE ) {
      FWK_ASSERT_TEXT( ip == ipAddr.address().value(), "ip == ipAddr.address().value()" );
      FWK_ASSERT_TEXT( mask == ipAddr.mask(), "mask == ipAddr.mask()" );
   } else {
      FWK_ASSERT_TEXT( ipAddr.address().value() == 0, "ipAddr.address().value() == 0" );
   }
}

void NatWorkerSm::doVerifySrcL4Port( U32 entryId, U16 l4Port ) {
   Shim::Sdk& sdk = *Shim::sdk_;
   U16 port = 0;
   U16 mask = 0;
   int const rv = sdkRead(
       "doVerifySrcL4Port",
       "bcm_field_qualify_L4SrcPort_get( unit(), entryId, &port, &mask )", [&] {
          return sdk.bcm_field_qualify_L4SrcPort_get( unit(), entryId, &port, &mask );
       } );
   if ( rv == sdk.BCM_E_NONE ) {
      FWK_ASSERT_TEXT( port == l4Port, "port == l4Port" );
      if ( l4Port ) {
         FWK_ASSERT_TEXT( mask == ( U16 )-1, "mask == ( U16 )-1" );
      }
   } else {
      FWK_ASSERT_TEXT( l4Port == 0, "l4Port == 0" );
   }
}

void NatWorkerSm::doVerifyDstL4Port( U32 entryId, U16 l4Port ) {
   Shim::Sdk& sdk = *Shim::sdk_;
   U16 port = 0;
   U16 mask = 0;
   int const rv = sdkRead(
       "doVerifyDstL4Port",
       "bcm_field_qualify_L4DstPort_get( unit(), entryId, &port, &mask )", [&] {
          return sdk.bcm_field_qualify_L4DstPort_get( unit(), entryId, &port, &mask );
       } );
   if ( rv == sdk.BCM_E_NONE ) {
      FWK_ASSERT_TEXT( port == l4Port, "port == l4Port" );
      if ( l4Port ) {
         FWK_ASSERT_TEXT( mask == ( U16 )-1, "mask == ( U16 )-1" );
      }
   } else {
      FWK_ASSERT_TEXT( l4Port == 0, "l4Port == 0" );
   }
}

void NatWorkerSm::doVerifyIpProtocol( U32 entryId, U8 protocol ) {
   Shim::Sdk& sdk = *Shim::sdk_;
   U8 proto = 0;
   U8 mask = 0;
   int const rv = sdkRead(
       "doVerifyIpProtocol",
       "bcm_field_qualify_IpProtocol_get( unit(), entryId, &proto, &mask )", [&] {
          return sdk.bcm_field_qualify_IpProtocol_get( unit(), entryId, &proto, &mask );
       } );
   if ( rv == sdk.BCM_E_NONE ) {
      FWK_ASSERT_TEXT( proto == protocol, "proto == protocol" );
      if ( protocol ) {
         FWK_ASSERT_TEXT( mask == 0xff, "mask == 0xff" );
      }
   } else {
      FWK_ASSERT_TEXT( protocol == 0, "protocol == 0" );
   }
}

void NatWorkerSm::doVerifyL3Ingress( U32 entryId, U16 vlanId ) {
   Shim::Sdk& sdk = *Shim::sdk_;
   U32 intf = 0;
   U32 mask = 0;
   int const rv = sdkRead(
       "doVerifyL3Ingress",
       "bcm_field_qualify_L3Ingress_get( unit(), entryId, &intf, &mask )", [&] {
          return sdk.bcm_field_qualify_L3Ingress_get( unit(), entryId, &intf, &mask );
       } );
   if ( rv == sdk.BCM_E_NONE ) {
      FWK_ASSERT_TEXT( intf == vlanId, "intf == vlanId" );
      if ( vlanId ) {
         FWK_ASSERT_TEXT( mask == l3IngressMask, "mask == 0x1fff" );
      }
   } else {
      FWK_ASSERT_TEXT( vlanId == 0, "vlanId == 0" );
   }
}

namespace {

// Whether the commit leaves a shadow key without a row (see the top of this file).
bool programmedNowhere( NatWorkerSm const& worker, Oro::NatHwShadowEntry const& entry ) {
   Oro::NatHwKey const& key = entry.key();
   if ( !worker.hitlessInitPhase() ) {
      CorvaneNat::ModSet const* modSet =
          worker.modSetDir() ? worker.modSetDir()->modSet( entry.uid() ) : nullptr;
      if ( !modSet || !modSet->hasModule( worker.modId() ) ) {
         return true;
      }
   }
   if ( entry.dirty() == Oro::NatHwShadowEntry::deletePending ) {
      return true;
   }
   if ( key.isDynamicNat() ) {
      bool const zeroAddress =
          key.srcIpAndPortOld().ip().isZero() || key.dstIpAndPortOld().ip().isZero();
      bool const port =
          key.srcIpAndPortOld().port() != 0 || key.dstIpAndPortOld().port() != 0;
      if ( ( zeroAddress && worker.isAddrOnlyMode() ) ||
           ( port && !worker.isAddrOnlyMode() ) ) {
         return true;
      }
   }
   Side const side = sideOf( key.keyType() );
   return side == Side::none ||
          ( side == Side::destination && entry.data().vlanIds() == 0 );
}

// Whether this module answered the key's transaction with "hardware full".
bool answeredHardwareFull( NatWorkerSm const& worker,
                           Oro::NatHwShadowEntry const& entry ) {
   if ( !worker.xactSluiceStatusDir() ) {
      return false;
   }
   Xact::XactSluiceStatus const* status =
       worker.xactSluiceStatusDir()->xactStatus( Xact::XactSluiceKey( entry.uid() ) );
   return status && status->result == Xact::XactSluiceStatus::hwFull;
}

// Reads back the six qualifiers of one entry of `hwKey` recorded under `vlanId`.
void verifyEntry( NatWorkerSm& worker, U32 entryId, bool fragEntry,
                  Oro::NatHwKey const& hwKey, Oro::NatHwData const& shadowData,
                  U16 vlanId ) {
   Expected expected;
   switch ( hwKey.keyType() ) {
      case Oro::NatHwKey::dynamicSrcNat:
      case Oro::NatHwKey::dynamicDstNat:
         expected = dynamicEntry( hwKey, fragEntry );
         break;
      case Oro::NatHwKey::staticSrcNat:
      case Oro::NatHwKey::staticDstNat:
      case Oro::NatHwKey::twiceNatSrc:
      case Oro::NatHwKey::twiceNatDst:
         if ( !translatesPorts( hwKey ) ) {
            // Addresses only: the key's own port predicates must agree.
            FWK_ASSERT_TEXT( !hwKey.isStaticNapt() && !hwKey.isTwiceNapt(),
                             "!hwKey.isStaticNapt() && !hwKey.isTwiceNapt()" );
         }
         expected = translationEntry( hwKey, shadowData, fragEntry, vlanId );
         break;
      default:
         FWK_ASSERT_TEXT( false, "unsupported translation type" );
   }
   NAT_TRACE(
       8, "doVerify",
       " entry " << entryId << ( fragEntry ? " (fragment)" : "" ) << " vlan " << vlanId );
   worker.doVerifyL3Ingress( entryId, expected.l3Ingress );
   worker.doVerifySrcIp( entryId, expected.srcIp );
   worker.doVerifySrcL4Port( entryId, expected.srcPort );
   worker.doVerifyDstIp( entryId, expected.dstIp );
   worker.doVerifyDstL4Port( entryId, expected.dstPort );
   worker.doVerifyIpProtocol( entryId, expected.protocol );
}

}  // namespace

void NatWorkerSm::doVerify() {
   CorvaneNat::NatChipAttr const& chipAttr = CorvaneNat::getNatChipAttr();
   NAT_TRACE( 8, "doVerify",
              " mod " << modId() << " fragmentEnabled " << fragmentEnabled()
                      << " addrOnlyMode " << isAddrOnlyMode() << " noNatTrapFilters "
                      << chipAttr.noNatTrapFilters << " natTcamHitCountSupported "
                      << chipAttr.natTcamHitCountSupported );
   if ( !entryIdTable() ) {
      NAT_TRACE( 0, "doVerify",
                 " mod " << modId() << " not initialized, nothing to verify" );
      return;
   }

   std::size_t unprogrammed = 0;
   for ( auto const& shadowEntry : *shadow() ) {
      if ( !entryIdTable()->entryHas( shadowEntry.first ) &&
           programmedNowhere( *this, shadowEntry.second ) ) {
         ++unprogrammed;
      }
   }
   NAT_TRACE( 8, "doVerify",
              " rows " << entryIdTable()->entrys() << " shadow entries "
                       << shadow()->entrys() << " unprogrammed " << unprogrammed );
   FWK_ASSERT_TEXT( entryIdTable()->entrys() + unprogrammed == shadow()->entrys(),
                    "entryIdTable()->entrys() == shadow()->entrys()" );

   for ( EntryIdTableEntry const& entry : *entryIdTable() ) {
      Oro::NatHwKey const& hwKey = entry.key();
      Oro::NatHwShadowEntry const* shadowEntry = shadow()->entry( hwKey );
      FWK_ASSERT_TEXT( shadowEntry, "shadow()->entryHas( hwKey )" );
      Oro::NatHwData const& shadowData = shadowEntry->data();

      // Only keys that translate ports get fragment entries (see the top of the file).
      FWK_ASSERT_TEXT( !fragmentEnabled() || hwKey.isDynamicNat() ||
                           !translatesPorts( hwKey ) ||
                           sameVlans( entry.defaultEntryIds(), entry.fragEntryIds() ),
                       "!fragmentEnabled() || hwKey.isDynamicNat() || "
                       "entry.defaultEntryIds() == entry.fragEntryIds()" );

      Side const side = sideOf( hwKey.keyType() );
      FWK_ASSERT_TEXT( side != Side::none, "unsupported translation type" );
      std::vector<U16> const vlanIds = entryVlans( side, shadowData );
      bool const shortOfEntries = answeredHardwareFull( *this, *shadowEntry );
      if ( !shortOfEntries ) {
         if ( side == Side::source ) {
            FWK_ASSERT_TEXT( entry.defaultEntryIds().size() == 1,
                             "entry.defaultEntryIds() == 1" );
         } else {
            FWK_ASSERT_TEXT( entry.defaultEntryIds().size() == vlanIds.size(),
                             "entry.defaultEntryIds() == shadowData.vlanIds()" );
         }
      }
      NAT_TRACE( 8, "doVerify",
                 " key " << hwKey.stringValue() << " entries "
                         << entry.defaultEntryIds().size() << " frag entries "
                         << entry.fragEntryIds().size()
                         << ( shortOfEntries ? " (hardware full)" : "" ) );

      for ( U16 const vlanId : vlanIds ) {
         if ( !entry.defaultEntryIdHas( vlanId ) ) {
            FWK_ASSERT_TEXT( shortOfEntries, "entry.defaultEntryIdHas( vlanId )" );
            continue;
         }
         U32 const entryId = entry.defaultEntryId( vlanId );
         FWK_ASSERT_TEXT( entryId != 0, "entryId != 0" );
         verifyEntry( *this, entryId, false, hwKey, shadowData, vlanId );
         if ( entry.fragEntryIdHas( vlanId ) ) {
            U32 const fragEntryId = entry.fragEntryId( vlanId );
            FWK_ASSERT_TEXT( fragEntryId != 0, "entryId != 0" );
            verifyEntry( *this, fragEntryId, true, hwKey, shadowData, vlanId );
         }
      }
   }
   NAT_TRACE( 8, "doVerify", " mod " << modId() << " verified" );
}

}  // namespace Corvane
