#include "platform/nat/NatHwKey.h"

#include <cstring>
#include <ostream>
#include <tuple>

#include "platform/fwk/Hash.h"

namespace Oro {

NatHwKey::NatHwKey( NatKeyType keyType, Wirel::IpAndPort srcIpAndPortOld,
                    Wirel::IpAndPort srcIpAndPortNew, Wirel::IpAndPort dstIpAndPortOld,
                    Wirel::IpAndPort dstIpAndPortNew, bool reverse, U8 dynProto, U32 faId,
                    NatAclId aclId )
    : keyType_( keyType ),
      ip_{ srcIpAndPortOld.ip().value(), srcIpAndPortNew.ip().value(),
           dstIpAndPortOld.ip().value(), dstIpAndPortNew.ip().value() },
      port_{ srcIpAndPortOld.port(), srcIpAndPortNew.port(), dstIpAndPortOld.port(),
             dstIpAndPortNew.port() },
      dynProto_( dynProto ),
      reverse_( reverse ),
      faId_( faId ),
      aclId_( aclId ) {}

bool NatHwKey::isStaticNapt() const {
   return ( keyType_ == staticSrcNat || keyType_ == staticDstNat ) &&
          ( port_[srcNew] != 0 || port_[dstNew] != 0 );
}

bool NatHwKey::isTwiceNapt() const {
   return ( keyType_ == twiceNatSrc || keyType_ == twiceNatDst ) &&
          ( port_[srcOld] != 0 || port_[dstOld] != 0 ) &&
          ( port_[srcNew] != 0 || port_[dstNew] != 0 );
}

bool NatHwKey::isDynamicNat() const {
   return keyType_ == dynamicSrcNat || keyType_ == dynamicDstNat;
}

bool NatHwKey::isAddrOnlyNat() const {
   return isDynamicNat() && ( ip_[srcOld] == 0 || ip_[dstOld] == 0 );
}

std::string NatHwKey::stringValue() const {
   static char const* const labels[4] = {
       " old sip: ", " new sip: ", " old dip: ", " new dip: " };
   std::string s = "type: " + valueToStrep( keyType_ ) + ",";
   for ( int f = srcOld; f <= dstNew; ++f ) {
      Wirel::IpAndPort value = ipAndPort( static_cast<Field>( f ) );
      if ( !value.isUnset() ) {
         s += labels[f];
         s += value.stringValue();
         s += ",";
      }
   }
   s += " proto: " + std::to_string( dynProto_ ) + ",";
   s += " faId: " + std::to_string( faId_ ) + ",";
   s += " aclId: " + aclId_.stringValue() + ",";
   s += " reverse: ";
   s += reverse_ ? "true" : "false";
   return s;
}

unsigned NatHwKey::hash( unsigned seed ) const noexcept {
   // The fields packed into five words, each mixed in with one multiply.
   U64 const words[5] = {
       ( U64( ip_[0] ) << 32 ) | ip_[1], ( U64( ip_[2] ) << 32 ) | ip_[3],
       ( U64( port_[0] ) << 48 ) | ( U64( port_[1] ) << 32 ) | ( U64( port_[2] ) << 16 ) |
           port_[3],
       ( U64( U32( keyType_ ) ) << 32 ) | ( U64( dynProto_ ) << 8 ) | U64( reverse_ ),
       ( U64( faId_ ) << 32 ) | aclId_.value() };
   U64 h = seed;
   for ( U64 word : words ) {
      h = Fwk::hashMix64( h, word );
   }
   return unsigned( h ^ ( h >> 32 ) );
}

bool NatHwKey::operator==( NatHwKey const& o ) const {
   return keyType_ == o.keyType_ && std::memcmp( ip_, o.ip_, sizeof( ip_ ) ) == 0 &&
          std::memcmp( port_, o.port_, sizeof( port_ ) ) == 0 &&
          dynProto_ == o.dynProto_ && reverse_ == o.reverse_ && faId_ == o.faId_ &&
          aclId_ == o.aclId_;
}

bool NatHwKey::operator<( NatHwKey const& o ) const {
   auto tie = []( NatHwKey const& k ) {
      return std::tie( k.keyType_, k.ip_[0], k.port_[0], k.ip_[1], k.port_[1], k.ip_[2],
                       k.port_[2], k.ip_[3], k.port_[3], k.dynProto_, k.reverse_, k.faId_,
                       k.aclId_ );
   };
   return tie( *this ) < tie( o );
}

std::string valueToStrep( NatHwKey::NatKeyType keyType ) {
   switch ( keyType ) {
      case NatHwKey::natKeyTypeNone:
         return "natKeyTypeNone";
      case NatHwKey::staticSrcNat:
         return "staticSrcNat";
      case NatHwKey::staticDstNat:
         return "staticDstNat";
      case NatHwKey::twiceNatSrc:
         return "twiceNatSrc";
      case NatHwKey::twiceNatDst:
         return "twiceNatDst";
      case NatHwKey::dynamicSrcNat:
         return "dynamicSrcNat";
      case NatHwKey::dynamicDstNat:
         return "dynamicDstNat";
   }
   return std::to_string( static_cast<U32>( keyType ) );
}

std::ostream& operator<<( std::ostream& os, NatHwKey const& key ) {
   return os << key.stringValue();
}

}  // namespace Oro
