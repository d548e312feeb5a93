#include "platform/chip/BitField.h"

#include "platform/fwk/Assert.h"

namespace Chip {

namespace {

U64 widthMask( unsigned width ) {
   return ( U64( 1 ) << width ) - 1;
}

bool straddles( unsigned firstBit, unsigned width ) {
   return firstBit % 32 + width > 32;
}

}  // namespace

U32 bitsGet( U32 const* words, unsigned firstBit, unsigned width ) {
   FWK_ASSERT( width >= 1 && width <= 32 );
   unsigned word = firstBit / 32;
   U64 pair = words[word];
   if ( straddles( firstBit, width ) ) {
      pair |= U64( words[word + 1] ) << 32;
   }
   return U32( ( pair >> ( firstBit % 32 ) ) & widthMask( width ) );
}

void bitsSet( U32* words, unsigned firstBit, unsigned width, U32 value ) {
   FWK_ASSERT( width >= 1 && width <= 32 );
   unsigned word = firstBit / 32;
   bool const two = straddles( firstBit, width );
   U64 pair = words[word];
   if ( two ) {
      pair |= U64( words[word + 1] ) << 32;
   }
   unsigned shift = firstBit % 32;
   pair &= ~( widthMask( width ) << shift );
   pair |= ( U64( value ) & widthMask( width ) ) << shift;
   words[word] = U32( pair );
   if ( two ) {
      words[word + 1] = U32( pair >> 32 );
   }
}

}  // namespace Chip
