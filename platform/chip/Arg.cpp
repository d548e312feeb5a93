#include "platform/chip/Arg.h"

#include <cstdio>

namespace Chip {

bool Arg::operator==( Arg const& o ) const {
   if ( kind != o.kind ) {
      return false;
   }
   switch ( kind ) {
      case Kind::number:
         return number == o.number;
      case Kind::name:
         return name == o.name;
      case Kind::fields:
         return fields == o.fields;
   }
   return false;
}

std::string Arg::json() const {
   switch ( kind ) {
      case Kind::number:
         return std::to_string( number );
      case Kind::name:
         return jsonString( name );
      case Kind::fields: {
         std::string text = "{";
         for ( auto const& field : fields ) {
            if ( text.size() > 1 ) {
               text += ", ";
            }
            text += jsonString( field.first ) + ": " + std::to_string( field.second );
         }
         return text + "}";
      }
   }
   return std::string();
}

Arg numberArg( U64 number ) {
   Arg arg;
   arg.number = number;
   return arg;
}

Arg nameArg( std::string name ) {
   Arg arg;
   arg.kind = Arg::Kind::name;
   arg.name = std::move( name );
   return arg;
}

Arg fieldsArg( FieldValues fields ) {
   Arg arg;
   arg.kind = Arg::Kind::fields;
   arg.fields = std::move( fields );
   return arg;
}

std::string json( Args const& args ) {
   std::string text = "[";
   for ( std::size_t i = 0; i < args.size(); ++i ) {
      if ( i > 0 ) {
         text += ", ";
      }
      text += args[i].json();
   }
   return text + "]";
}

std::string jsonString( std::string const& text ) {
   std::string out = "\"";
   for ( char c : text ) {
      if ( c == '"' || c == '\\' ) {
         out += '\\';
         out += c;
      } else if ( static_cast<unsigned char>( c ) < 0x20 ) {
         char escaped[8];
         std::snprintf( escaped, sizeof escaped, "\\u%04x", c );
         out += escaped;
      } else {
         out += c;
      }
   }
   return out + "\"";
}

}  // namespace Chip
