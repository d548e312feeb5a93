// Entry descriptions: the one-line text handed to the entry manager with each entry.

#include <string>

#include "CorvaneNat/DescriptionText.h"
#include "CorvaneNat/NatEntryRecipe.h"
#include "CorvaneNat/NatWorkerSm.h"

namespace Corvane {

namespace {

// The part of a static or twice description before the addresses.
struct Prefix {
   U16 vlanId;
   bool multicast;
};

DescriptionText& operator<<( DescriptionText& text, Prefix prefix ) {
   if ( prefix.vlanId ) {
      return text << "vlan " << unsigned( prefix.vlanId );
   }
   return prefix.multicast ? text << "(multicast)" : text;
}

}  // namespace

std::string NatWorkerSm::generateTcamEntryDescription( Oro::NatHwKey const& hwKey,
                                                       U16 vlanId, bool fragEntry,
                                                       bool multicast ) const {
   return natEntryDescription(
       hwKey, vlanId, fragEntry ? NatEntryKind::fragEntry : NatEntryKind::defaultEntry,
       multicast, mode() );
}

std::string natEntryDescription( Oro::NatHwKey const& hwKey, U16 vlanId,
                                 NatEntryKind kind, bool multicast, NatWorkerMode mode ) {
   bool const fragEntry = kind == NatEntryKind::fragEntry;
   Oro::NatHwKey::NatKeyType const type = hwKey.keyType();
   if ( type == Oro::NatHwKey::dynamicSrcNat || type == Oro::NatHwKey::dynamicDstNat ) {
      if ( hwKey.isAddrOnlyNat() ) {
         FWK_ASSERT_TEXT( !mode.addrOnly, "!isAddrOnlyMode()" );
      } else {
         FWK_ASSERT_TEXT( mode.addrOnly, "isAddrOnlyMode()" );
      }
   }
   // A VLAN replaces "(multicast)": a multicast entry with a VLAN shows the VLAN alone.
   Prefix const prefix{ vlanId, multicast };
   // Every static and twice description ends in " " and an empty suffix.
   char const* const suffix = "";

   Wirel::IpAndPort const srcOld = hwKey.srcIpAndPortOld();
   Wirel::IpAndPort const srcNew = hwKey.srcIpAndPortNew();
   Wirel::IpAndPort const dstOld = hwKey.dstIpAndPortOld();
   Wirel::IpAndPort const dstNew = hwKey.dstIpAndPortNew();
   bool const newPort = srcNew.port() != 0 || dstNew.port() != 0;
   bool const oldPort = srcOld.port() != 0 || dstOld.port() != 0;
   DescriptionText text;
   switch ( type ) {
      case Oro::NatHwKey::natKeyTypeNone:
         FWK_ASSERT( false );
         return "";
      case Oro::NatHwKey::staticSrcNat:
         if ( !fragEntry && newPort ) {
            text << "static SNAPT " << prefix << " " << srcOld << " -> " << srcNew << " "
                 << suffix;
         } else {
            text << "static SNAT " << prefix << " " << srcOld.ip() << " -> "
                 << srcNew.ip() << " " << suffix;
         }
         return text.str();
      case Oro::NatHwKey::staticDstNat:
         if ( !fragEntry && newPort ) {
            text << "static DNAPT " << prefix << " " << dstOld << " -> " << dstNew << " "
                 << suffix;
         } else {
            text << "static DNAT " << prefix << " " << dstOld.ip() << " -> "
                 << dstNew.ip() << " " << suffix;
         }
         return text.str();
      case Oro::NatHwKey::twiceNatSrc:
      case Oro::NatHwKey::twiceNatDst:
         if ( !fragEntry && oldPort && newPort ) {
            text << "twice NAPT " << prefix << " " << srcOld << " " << dstOld << " -> "
                 << srcNew << " " << dstNew << " " << suffix;
         } else {
            text << "twice NAT " << prefix << " " << srcOld.ip() << " " << dstOld.ip()
                 << " -> " << srcNew.ip() << " " << dstNew.ip() << " " << suffix;
         }
         return text.str();
      case Oro::NatHwKey::dynamicSrcNat:
         if ( hwKey.isAddrOnlyNat() ) {
            text << ( fragEntry ? "dynamic SNAT udp " : "dynamic SNAT tcp " )
                 << srcOld.ip() << " -> " << srcNew.ip();
         } else if ( fragEntry ) {
            text << "dynamic SNAPT " << srcOld.ip() << " -> " << srcNew.ip();
         } else {
            text << "dynamic SNAPT " << srcOld << " -> " << srcNew;
         }
         return text.str();
      case Oro::NatHwKey::dynamicDstNat:
         if ( hwKey.isAddrOnlyNat() ) {
            text << ( fragEntry ? "dynamic DNAT udp vlan " : "dynamic DNAT tcp vlan " )
                 << unsigned( vlanId ) << " " << dstOld.ip() << " -> " << dstNew.ip();
         } else if ( fragEntry ) {
            text << "dynamic DNAPT vlan " << unsigned( vlanId ) << " " << dstOld.ip()
                 << " -> " << dstNew.ip();
         } else {
            text << "dynamic DNAPT vlan " << unsigned( vlanId ) << " " << dstOld << " -> "
                 << dstNew;
         }
         return text.str();
   }
   return "";
}

}  // namespace Corvane
