#include "tools/natsim/JsonText.h"

#include <nlohmann/json.hpp>

namespace natsim {

namespace {

// The bytes that go into a JSON string as they are: printable ASCII but quotes and
// backslashes.
struct PlainBytes {
   bool plain[256] = {};
   PlainBytes() {
      for ( unsigned c = 0x20; c < 0x7f; ++c ) {
         plain[c] = c != '"' && c != '\\';
      }
   }
};

}  // namespace

bool jsonPlain( std::string_view text ) {
   static PlainBytes const bytes;
   for ( char c : text ) {
      if ( !bytes.plain[static_cast<unsigned char>( c )] ) {
         return false;
      }
   }
   return true;
}

void appendJsonString( std::string& out, std::string_view text ) {
   if ( jsonPlain( text ) ) {
      out.push_back( '"' );
      out.append( text.data(), text.size() );
      out.push_back( '"' );
      return;
   }
   out += nlohmann::json( std::string( text ) )
              .dump( -1, ' ', false, nlohmann::json::error_handler_t::replace );
}

void appendJsonArgs( std::string& out, Chip::Args const& args ) {
   out.push_back( '[' );
   for ( std::size_t i = 0; i < args.size(); ++i ) {
      if ( i > 0 ) {
         out.push_back( ',' );
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
   out.push_back( ']' );
}

}  // namespace natsim
