#pragma once

// Fields at bit positions within a row of 32-bit words.
//
// Bit 0 is the lowest bit of word 0, bit 32 the lowest bit of word 1. A field is at
// most 32 bits wide and may straddle two words.

#include "platform/fwk/Types.h"

namespace Chip {

U32 bitsGet( U32 const* words, unsigned firstBit, unsigned width );
// Stores the low `width` bits of `value`; the other bits of the row are kept.
void bitsSet( U32* words, unsigned firstBit, unsigned width, U32 value );

}  // namespace Chip
