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

U32 hashMixString( U32 h, std::string const& s ) noexcept {
   h = hashMix( h, static_cast<U32>( s.size() ) );
   U32 word = 0;
   for ( std::size_t i = 0; i < s.size(); ++i ) {
      word = ( word << 8 ) | static_cast<unsigned char>( s[i] );
      if ( i % 4 == 3 ) {
         h = hashMix( h, word );
         word = 0;
      }
   }
   if ( s.size() % 4 != 0 ) {
      h = hashMix( h, word );
   }
   return h;
}

}  // namespace Fwk
