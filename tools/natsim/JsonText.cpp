#include "tools/natsim/JsonText.h"

#include <nlohmann/json.hpp>

namespace natsim {

namespace {

// True when the text goes into a JSON string as it is: printable ASCII without quotes
// or backslashes (almost every string natsim writes).
bool plain( std::string_view text ) {
   for ( char c : text ) {
      unsigned char const u = static_cast<unsigned char>( c );
      if ( u < 0x20 || u >= 0x7f || c == '"' || c == '\\' ) {
         return false;
      }
   }
   return true;
}

}  // namespace

void appendJsonString( std::string& out, std::string_view text ) {
   if ( plain( text ) ) {
      out += '"';
      out.append( text.data(), text.size() );
      out += '"';
      return;
   }
   out += nlohmann::json( std::string( text ) )
              .dump( -1, ' ', false, nlohmann::json::error_handler_t::replace );
}

void appendJsonArgs( std::string& out, Chip::Args const& args ) {
   out += '[';
   for ( std::size_t i = 0; i < args.size(); ++i ) {
      if ( i > 0 ) {
         out += ',';
      }
      Chip::Arg const& arg = args[i];
      switch ( arg.kind ) {
         case Chip::Arg::Kind::number:
            appendJsonNumber( out, arg.number );
            break;
         case Chip::Arg::Kind::name:
            appendJsonString( out, arg.name );
            break;
         case Chip::Arg::Kind::fields: {
            ObjectText fields( out );
            for ( auto const& field : arg.fields ) {
               fields.number( field.first.c_str(), field.second );
            }
            break;
         }
      }
   }
   out += ']';
}

}  // namespace natsim
