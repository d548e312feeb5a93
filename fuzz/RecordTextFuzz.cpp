// Fuzz target of the record text forms natsim reads: an address ("10.0.0.1"), an
// address and port ("10.0.0.1:80"), an address with a prefix length ("10.0.0.0/8") and a
// hex number ("0x8000003"). The input is used as the string of each form in a step, as
// a scenario writes it, and read by the scenario reader.
//
// Besides crashes, it checks what the reader accepts: an address agrees with the C
// library's inet_pton (both refuse leading zeros), and every
// accepted value, written back in its canonical text, reads back as the same value.

#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "tools/natsim/Scenario.h"

namespace {

using nlohmann::json;

// The step, read alone; nullopt when the reader refuses it.
std::optional<natsim::Step> stepOf( json const& step ) {
   natsim::ChipConfig const chip;
   natsim::Step out;
   natsim::ScenarioError error;
   std::string const text = step.dump( -1, ' ', false, json::error_handler_t::replace );
   if ( !natsim::parseStep( text, chip, &out, &error ) ) {
      return std::nullopt;
   }
   return out;
}

void check( bool ok ) {
   if ( !ok ) {
      std::abort();
   }
}

// The packet's source address as the reader takes "src": text.
std::optional<U32> address( std::string const& text ) {
   auto step = stepOf( { { "packet", { { "src", text } } } } );
   if ( !step ) {
      return std::nullopt;
   }
   return std::get<natsim::PacketStep>( *step ).src;
}

// True when some octet of a dotted text starts with a 0 followed by a digit.
void checkAddress( std::string const& text ) {
   std::optional<U32> const value = address( text );
   in_addr reference;
   bool const libcTakes = ::inet_pton( AF_INET, text.c_str(), &reference ) == 1 &&
                          text.find( '\0' ) == std::string::npos;
   if ( libcTakes ) {
      check( value && *value == ntohl( reference.s_addr ) );
   }
   if ( value ) {
      check( libcTakes );
      check( address( Wirel::IpAddr( *value ).stringValue() ) == value );
   }
}

std::optional<Wirel::IpAndPort> ipAndPort( std::string const& text ) {
   auto step =
       stepOf( { { "natRule", { { "uid", 1 }, { "key", { { "srcOld", text } } } } } } );
   if ( !step ) {
      return std::nullopt;
   }
   return std::get<natsim::NatRuleStep>( *step ).key.srcIpAndPortOld();
}

void checkIpAndPort( std::string const& text ) {
   if ( auto const value = ipAndPort( text ) ) {
      check( ipAndPort( value->stringValue() ) == value );
      std::size_t const colon = text.find( ':' );
      check( address( text.substr( 0, colon ) ) == value->ip().value() );
   }
}

std::optional<Wirel::IpAddrWithFullMask> prefix( std::string const& text ) {
   json const rule = { { "src", text } };
   auto step = stepOf(
       { { "trapAcl", { { "name", "a" }, { "vlan", 1 }, { "rules", { rule } } } } } );
   if ( !step ) {
      return std::nullopt;
   }
   return std::get<natsim::TrapAclStep>( *step ).rules.at( 0 ).src;
}

void checkPrefix( std::string const& text ) {
   if ( auto const value = prefix( text ) ) {
      check( value->maskIsContiguous() );
      check( prefix( value->stringValue() ) == value );
   }
}

std::optional<U64> hexNumber( std::string const& text ) {
   auto step = stepOf( { { "natRule",
                           { { "uid", 1 },
                             { "key", json::object() },
                             { "data", { { "nextHop", text } } } } } } );
   if ( !step ) {
      return std::nullopt;
   }
   return std::get<natsim::NatRuleStep>( *step ).data.nextHopId();
}

void checkHexNumber( std::string const& text ) {
   if ( auto const value = hexNumber( text ) ) {
      check( std::strtoull( text.c_str(), nullptr, 16 ) == *value );
   }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput( std::uint8_t const* data, std::size_t size ) {
   std::string const text( reinterpret_cast<char const*>( data ), size );
   checkAddress( text );
   checkIpAndPort( text );
   checkPrefix( text );
   checkHexNumber( text );
   return 0;
}
