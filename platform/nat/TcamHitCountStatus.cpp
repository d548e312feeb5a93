#include "platform/nat/TcamHitCountStatus.h"

#include <ostream>
#include <tuple>

#include "platform/fwk/Hash.h"

namespace CorvaneNat {

std::string TcamHitCountKey::stringValue() const {
   return "type: " + valueToStrep( keyType_ ) +
          ", src: " + Wirel::IpAndPort( srcAddr_, srcPort_ ).stringValue() +
          ", dst: " + Wirel::IpAndPort( dstAddr_, dstPort_ ).stringValue() +
          ", proto: " + std::to_string( protocol_ );
}

unsigned TcamHitCountKey::hash( unsigned seed ) const noexcept {
   U32 h = seed;
   h = Fwk::hashMix( h, keyType_ );
   h = Fwk::hashMix( h, srcAddr_.value() );
   h = Fwk::hashMix( h, dstAddr_.value() );
   h = Fwk::hashMix( h, ( U32( srcPort_ ) << 16 ) | dstPort_ );
   h = Fwk::hashMix( h, protocol_ );
   return h;
}

bool TcamHitCountKey::operator==( TcamHitCountKey const& o ) const {
   return keyType_ == o.keyType_ && srcAddr_ == o.srcAddr_ && srcPort_ == o.srcPort_ &&
          dstAddr_ == o.dstAddr_ && dstPort_ == o.dstPort_ && protocol_ == o.protocol_;
}

bool TcamHitCountKey::operator<( TcamHitCountKey const& o ) const {
   auto tie = []( TcamHitCountKey const& k ) {
      return std::tie( k.keyType_, k.srcAddr_, k.srcPort_, k.dstAddr_, k.dstPort_,
                       k.protocol_ );
   };
   return tie( *this ) < tie( o );
}

std::string valueToStrep( TcamHitCountKey::NatKeyType keyType ) {
   switch ( keyType ) {
      case TcamHitCountKey::dynamicSrcNat:
         return "dynamicSrcNat";
      case TcamHitCountKey::dynamicDstNat:
         return "dynamicDstNat";
   }
   return std::to_string( static_cast<U32>( keyType ) );
}

std::ostream& operator<<( std::ostream& os, TcamHitCountKey const& key ) {
   return os << key.stringValue();
}

// Defined here so that the type's vtable and type information live in the platform
// library only, and type checks agree between the host and the plug-ins.
TcamHitCountStatus::~TcamHitCountStatus() = default;

}  // namespace CorvaneNat
