#include "platform/nat/Uid.h"

#include <ostream>

#include "platform/fwk/Assert.h"
#include "platform/fwk/Hash.h"

namespace CorvaneNat {

Uid::Uid( U32 value ) : value_( value ) {
   // The upper bound is the type's own; only the lower one can be broken.
   if ( value < min ) {
      throw Fwk::RangeException( "Uid::value < Uid::min or > Uid::max not allowed" );
   }
}

unsigned Uid::hash( unsigned seed ) const noexcept {
   return Fwk::hashMix( seed, value_ );
}

std::ostream& operator<<( std::ostream& os, Uid uid ) {
   return os << uid.value();
}

}  // namespace CorvaneNat
