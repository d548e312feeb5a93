#include "platform/fwk/Hash.h"

#include <cstdlib>

namespace Fwk {

namespace {

U32 seedFromEnvironment() {
   char const* text = std::getenv( "FWK_HASH_SEED" );
   if ( text && *text ) {
      return static_cast<U32>( std::strtoul( text, nullptr, 0 ) );
   }
   return 0x2f6b1d53u;
}

}  // namespace

U32 hashSeed() {
   static U32 const seed = seedFromEnvironment();
   return seed;
}

}  // namespace Fwk
