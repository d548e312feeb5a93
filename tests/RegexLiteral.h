#pragma once

// Test texts matched as regular expressions (death-test and gmock expectations).

#include <string>

// `text` as a regular expression that matches exactly it.
inline std::string literal( std::string const& text ) {
   std::string out;
   for ( char ch : text ) {
      if ( std::string( "\\^$.|?*+()[]{}" ).find( ch ) != std::string::npos ) {
         out += '\\';
      }
      out += ch;
   }
   return out;
}
