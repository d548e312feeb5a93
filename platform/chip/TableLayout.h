#pragma once

// The layouts of the chip's memories and registers: rows of 32-bit words with fields.
//
// A register is a table of one row of one word. Every table has reported fields (the
// ones the agent programs; reports and the journal list them) and other fields that
// keep their non-zero reset value unless a whole row is written over them, so that a
// read-modify-write that loses them shows.
//
//   L4_PORT_XLATE      64 rows of 3 words: XLATE_ENABLE (2 bits); L4_PORT_MODE (4 bits,
//                      straddling words 0 and 1)
//   OPAQUE_STRENGTH_A  16 rows of 2 words: OPAQUE1_STRENGTH, OPAQUE2_STRENGTH (4 bits
//                      each, the second in word 1); CLASS_STRENGTH (4 bits)
//   OPAQUE_STRENGTH_B  16 rows of 2 words: OPAQUE_STRENGTH (4 bits); L3_STRENGTH (4 bits)
//   MCAST_XLATE_TYPES  one 32-bit register: FIXED_1 .. FIXED_5 (2 bits each), TYPE_n
//                      (3 bits) and ENABLE_n (1 bit) for n = 0, 1, 2; unnamed bits 0-1
//                      and 24-31 (RESERVED_LO, RESERVED_HI)

#include <string>
#include <vector>

#include "platform/fwk/Types.h"

namespace Chip {

enum class TableId : U8 {
   L4PortXlate,
   OpaqueStrengthA,
   OpaqueStrengthB,
   McastXlateTypes
};
constexpr unsigned tableCount = 4;

struct FieldLayout {
   char const* name;
   unsigned firstBit;
   unsigned width;
   bool reported;
   U32 resetValue;
};

struct TableLayout {
   char const* name;
   bool isRegister;
   unsigned rows;
   unsigned words;  // per row
   std::vector<FieldLayout> fields;

   // The field of a name, or null.
   FieldLayout const* field( std::string const& name ) const;
};

TableLayout const& tableLayout( TableId id );

}  // namespace Chip
