#pragma once

// JSON text appended to a string, for output written as a stream rather than built as a
// document: strings (with nlohmann's escaping, invalid UTF-8 shown as U+FFFD), integers,
// and objects written member by member. The output parses to what nlohmann would have
// written for the same values.

#include <charconv>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/chip/Arg.h"

namespace natsim {

// Appends `text` as a JSON string, quotes included.
void appendJsonString( std::string& out, std::string_view text );
// True when `text` goes into a JSON string as it is: printable ASCII but quotes and
// backslashes (almost every string natsim writes).
bool jsonPlain( std::string_view text );

template <class Int>
void appendJsonNumber( std::string& out, Int value ) {
   static_assert( std::is_integral_v<Int> && !std::is_same_v<Int, bool> );
   char digits[24];
   auto const end = std::to_chars( digits, digits + sizeof( digits ), value ).ptr;
   out.append( digits, end );
}

// [42, "bcmFieldActionDrop", {"XLATE_ENABLE": 3}]
void appendJsonArgs( std::string& out, Chip::Args const& args );

// Writes one object's members in order: ObjectText( out ).number( "step", 3 )...
// The object is closed when the ObjectText goes.
class ObjectText {
public:
   explicit ObjectText( std::string& out ) : out_( out ) { out_.push_back( '{' ); }
   ~ObjectText() { out_.push_back( '}' ); }
   ObjectText( ObjectText const& ) = delete;
   ObjectText& operator=( ObjectText const& ) = delete;

   template <class Int>
   ObjectText& number( char const* name, Int value ) {
      key( name );
      appendJsonNumber( out_, value );
      return *this;
   }
   ObjectText& text( char const* name, std::string_view value ) {
      key( name );
      appendJsonString( out_, value );
      return *this;
   }
   ObjectText& boolean( char const* name, bool value ) {
      key( name );
      out_ += value ? "true" : "false";
      return *this;
   }
   // Writes the member's name; the caller appends its value to the string next. Names
   // are identifiers (natsim's own, the chip's field and table names, row numbers): they
   // are written as they are.
   std::string& key( std::string_view name ) {
      if ( !first_ ) {
         out_.push_back( ',' );
      }
      first_ = false;
      out_.push_back( '"' );
      out_.append( name.data(), name.size() );
      out_.push_back( '"' );
      out_.push_back( ':' );
      return out_;
   }

private:
   std::string& out_;
   bool first_ = true;
};

}  // namespace natsim
