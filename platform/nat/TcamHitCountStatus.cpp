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
   // The fields packed into three words, each mixed in with one multiply.
   U64 const words[3] = { ( U64( U32( keyType_ ) ) << 32 ) | protocol_,
                          ( U64( srcAddr_.value() ) << 32 ) | dstAddr_.value(),
                          ( U64( srcPort_ ) << 16 ) | dstPort_ };
   U64 h = seed;
   for ( U64 word : words ) {
      h = Fwk::hashMix64( h, word );
   }
   return unsigned( h ^ ( h >> 32 ) );
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
