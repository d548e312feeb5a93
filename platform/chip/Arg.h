#pragma once

// The arguments of a call as the journal and the chip's reports hold them.
//
// An argument is one of three kinds: a number (addresses as host-order integers, masks
// as unsigned 32-bit values, so a mask of -1 reads 4294967295), a name (an enumeration
// value by its SDK name, a memory, register or field by the chip model's name, or a
// description text), or a field map (field name to value, in the table's field order).

#include <string>
#include <utility>
#include <vector>

#include "platform/fwk/Types.h"

namespace Chip {

typedef std::vector<std::pair<std::string, U64>> FieldValues;

struct Arg {
   enum class Kind : U8 { number, name, fields };
   Kind kind = Kind::number;
   U64 number = 0;
   std::string name;
   FieldValues fields;

   bool operator==( Arg const& o ) const;
   bool operator!=( Arg const& o ) const { return !( *this == o ); }
   // JSON text: 42, "bcmFieldActionDrop", {"XLATE_ENABLE": 3}.
   std::string json() const;
};

Arg numberArg( U64 number );
Arg nameArg( std::string name );
Arg fieldsArg( FieldValues fields );

typedef std::vector<Arg> Args;

// JSON text of an argument list: [167772161, 4294967295].
std::string json( Args const& args );
// JSON string literal of a text, with quotes, backslashes and control characters escaped.
std::string jsonString( std::string const& text );

}  // namespace Chip
