// Entry descriptions: the one-line text handed to the entry manager with each entry.

#include <cstdio>

#include "CorvaneNat/NatWorkerSm.h"

namespace Corvane {

namespace {

std::string format( char const* pattern, std::string const& a, std::string const& b,
                    std::string const& c, std::string const& d ) {
   char text[256];
   std::snprintf( text, sizeof( text ), pattern, a.c_str(), b.c_str(), c.c_str(),
                  d.c_str() );
   return text;
}

std::string format( char const* pattern, std::string const& a, std::string const& b,
                    std::string const& c, std::string const& d, std::string const& e,
                    std::string const& f ) {
   char text[256];
   std::snprintf( text, sizeof( text ), pattern, a.c_str(), b.c_str(), c.c_str(),
                  d.c_str(), e.c_str(), f.c_str() );
   return text;
}

std::string format( char const* pattern, U16 vlanId, std::string const& a,
                    std::string const& b ) {
   char text[256];
   std::snprintf( text, sizeof( text ), pattern, unsigned( vlanId ), a.c_str(),
                  b.c_str() );
   return text;
}

std::string format( char const* pattern, std::string const& a, std::string const& b ) {
   char text[256];
   std::snprintf( text, sizeof( text ), pattern, a.c_str(), b.c_str() );
   return text;
}

}  // namespace

std::string NatWorkerSm::generateTcamEntryDescription( Oro::NatHwKey const& hwKey,
                                                       U16 vlanId, bool fragEntry,
                                                       bool multicast ) const {
   Oro::NatHwKey::NatKeyType const type = hwKey.keyType();
   if ( type == Oro::NatHwKey::dynamicSrcNat || type == Oro::NatHwKey::dynamicDstNat ) {
      if ( hwKey.isAddrOnlyNat() ) {
         FWK_ASSERT( !isAddrOnlyMode() );
      } else {
         FWK_ASSERT( isAddrOnlyMode() );
      }
   }
   // A VLAN replaces "(multicast)": a multicast entry with a VLAN shows the VLAN alone.
   std::string prefix;
   if ( multicast ) {
      prefix = "(multicast)";
   }
   if ( vlanId ) {
      prefix = "vlan " + std::to_string( vlanId );
   }
   std::string const suffix;

   Wirel::IpAndPort const srcOld = hwKey.srcIpAndPortOld();
   Wirel::IpAndPort const srcNew = hwKey.srcIpAndPortNew();
   Wirel::IpAndPort const dstOld = hwKey.dstIpAndPortOld();
   Wirel::IpAndPort const dstNew = hwKey.dstIpAndPortNew();
   bool const newPort = srcNew.port() != 0 || dstNew.port() != 0;
   bool const oldPort = srcOld.port() != 0 || dstOld.port() != 0;
   switch ( type ) {
      case Oro::NatHwKey::natKeyTypeNone:
         FWK_ASSERT( false );
         return "";
      case Oro::NatHwKey::staticSrcNat:
         if ( !fragEntry && newPort ) {
            return format( "static SNAPT %s %s -> %s %s", prefix, srcOld.stringValue(),
                           srcNew.stringValue(), suffix );
         }
         return format( "static SNAT %s %s -> %s %s", prefix, srcOld.ip().stringValue(),
                        srcNew.ip().stringValue(), suffix );
      case Oro::NatHwKey::staticDstNat:
         if ( !fragEntry && newPort ) {
            return format( "static DNAPT %s %s -> %s %s", prefix, dstOld.stringValue(),
                           dstNew.stringValue(), suffix );
         }
         return format( "static DNAT %s %s -> %s %s", prefix, dstOld.ip().stringValue(),
                        dstNew.ip().stringValue(), suffix );
      case Oro::NatHwKey::twiceNatSrc:
      case Oro::NatHwKey::twiceNatDst:
         if ( !fragEntry && oldPort && newPort ) {
            return format( "twice NAPT %s %s %s -> %s %s %s", prefix,
                           srcOld.stringValue(), dstOld.stringValue(),
                           srcNew.stringValue(), dstNew.stringValue(), suffix );
         }
         return format( "twice NAT %s %s %s -> %s %s %s", prefix,
                        srcOld.ip().stringValue(), dstOld.ip().stringValue(),
                        srcNew.ip().stringValue(), dstNew.ip().stringValue(), suffix );
      case Oro::NatHwKey::dynamicSrcNat:
         if ( hwKey.isAddrOnlyNat() ) {
            return format(
                fragEntry ? "dynamic SNAT udp %s -> %s" : "dynamic SNAT tcp %s -> %s",
                srcOld.ip().stringValue(), srcNew.ip().stringValue() );
         }
         if ( fragEntry ) {
            return format( "dynamic SNAPT %s -> %s", srcOld.ip().stringValue(),
                           srcNew.ip().stringValue() );
         }
         return format( "dynamic SNAPT %s -> %s", srcOld.stringValue(),
                        srcNew.stringValue() );
      case Oro::NatHwKey::dynamicDstNat:
         if ( hwKey.isAddrOnlyNat() ) {
            return format( fragEntry ? "dynamic DNAT udp vlan %d %s -> %s"
                                     : "dynamic DNAT tcp vlan %d %s -> %s",
                           vlanId, dstOld.ip().stringValue(), dstNew.ip().stringValue() );
         }
         if ( fragEntry ) {
            return format( "dynamic DNAPT vlan %d %s -> %s", vlanId,
                           dstOld.ip().stringValue(), dstNew.ip().stringValue() );
         }
         return format( "dynamic DNAPT vlan %d %s -> %s", vlanId, dstOld.stringValue(),
                        dstNew.stringValue() );
   }
   return "";
}

}  // namespace Corvane
