#include "tools/natsim/Scenario.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <set>
#include <unordered_set>
#include <utility>

#include <nlohmann/json.hpp>

#include "platform/fwk/Assert.h"
#include "platform/tcam/CorvaneTcamGroupManager.h"

namespace natsim {

namespace {

using nlohmann::json;

// The first fault of a scenario. The readers throw it; parseScenario() turns it into
// a ScenarioError, so each reader only says what it expects.
struct Fault {
   std::string path;
   std::string message;
};

[[noreturn]] void fail( std::string const& path, std::string const& message ) {
   throw Fault{ path, message };
}

// Built for every member read, so in one allocation.
std::string memberPath( std::string const& path, std::string const& name ) {
   if ( path.empty() ) {
      return name;
   }
   std::string member;
   member.reserve( path.size() + 1 + name.size() );
   member += path;
   member += '.';
   member += name;
   return member;
}

std::string elementPath( std::string const& path, std::size_t index ) {
   return path + "[" + std::to_string( index ) + "]";
}

// Text longer than this is cut short where a message quotes it.
constexpr std::size_t quotedLengthMax = 60;

// A string as JSON writes it, quotes and escapes included. Longer text is cut after
// quotedLengthMax bytes (not inside a UTF-8 sequence) and followed by "...", so that a
// message stays one readable line.
std::string quoted( std::string const& text ) {
   std::size_t end = text.size();
   if ( end > quotedLengthMax ) {
      end = quotedLengthMax;
      while ( end > 0 && ( static_cast<unsigned char>( text[end] ) & 0xc0 ) == 0x80 ) {
         --end;
      }
   }
   std::string const shown = json( text.substr( 0, end ) )
                                 .dump( -1, ' ', false, json::error_handler_t::replace );
   return end < text.size() ? shown + "..." : shown;
}

template <class Names>
std::string joined( Names const& names ) {
   std::string text;
   for ( char const* name : names ) {
      text += text.empty() ? "" : ", ";
      text += name;
   }
   return text;
}

// "a string", "an array", ... as a message names what it got.
std::string kindOf( json const& v ) {
   switch ( v.type() ) {
      case json::value_t::null:
         return "null";
      case json::value_t::boolean:
         return "a boolean";
      case json::value_t::string:
         return "a string";
      case json::value_t::array:
         return "an array";
      case json::value_t::object:
         return "an object";
      default:
         return "a number";
   }
}

[[noreturn]] void failKind( json const& v, std::string const& path,
                            std::string const& expected ) {
   fail( path, "expected " + expected + ", got " + kindOf( v ) );
}

// An object of the scenario with the members it may have. Building one refuses a value
// that is not an object and any member it does not know, so typos do not pass. The
// members are found once, as the object is checked: a scenario reads a record for
// every step.
class Record {
public:
   Record( json const& value, std::string path, std::initializer_list<char const*> known )
       : value_( value ), path_( std::move( path ) ) {
      if ( !value.is_object() ) {
         failKind( value, path_, "an object" );
      }
      FWK_ASSERT( known.size() <= names_.size() );
      for ( char const* name : known ) {
         names_[known_++] = name;
      }
      for ( auto const& member : value.items() ) {
         std::size_t const i = indexOf( member.key().c_str() );
         if ( i == known_ ) {
            fail( path_, "unknown member " + quoted( member.key() ) +
                             " (known: " + joined( known ) + ")" );
         }
         members_[i] = &member.value();
      }
   }

   // The member, or nullptr when it is left out. `name` is one of the known names.
   json const* find( char const* name ) const {
      std::size_t const i = indexOf( name );
      FWK_ASSERT( i < known_ );
      return members_[i];
   }

   // Stores the member, read by `read`, in `*out`; leaves `*out` when it is left out.
   template <class T, class Read>
   void optional( char const* name, T* out, Read read ) const {
      if ( json const* v = find( name ) ) {
         *out = read( *v, memberPath( path_, name ) );
      }
   }

   template <class T, class Read>
   void required( char const* name, T* out, Read read ) const {
      if ( !find( name ) ) {
         fail( path_, "missing member " + quoted( name ) );
      }
      optional( name, out, read );
   }

private:
   // The index of a known name, or known_ when `name` is not one.
   std::size_t indexOf( char const* name ) const {
      std::size_t i = 0;
      while ( i < known_ && std::strcmp( names_[i], name ) != 0 ) {
         ++i;
      }
      return i;
   }

   json const& value_;
   std::string path_;
   std::array<char const*, 16> names_{};
   std::array<json const*, 16> members_{};
   std::size_t known_ = 0;
};

// ---- Plain values

bool readBool( json const& v, std::string const& path ) {
   if ( !v.is_boolean() ) {
      failKind( v, path, "true or false" );
   }
   return v.get<bool>();
}

std::string readString( json const& v, std::string const& path ) {
   if ( !v.is_string() ) {
      failKind( v, path, "a string" );
   }
   return v.get<std::string>();
}

// A JSON integer from min to max; 1.5 and 1.0 are not integers.
U64 readInteger( json const& v, std::string const& path, U64 min, U64 max ) {
   std::string const range = std::to_string( min ) + ".." + std::to_string( max );
   if ( !v.is_number() ) {
      failKind( v, path, "a number" );
   }
   if ( v.is_number_float() ) {
      // A whole number too large for a 64-bit integer arrives as a double.
      double const d = v.get<double>();
      bool const whole = std::trunc( d ) == d;
      // (max + 1.0 rounds to 2^64 for a 64-bit max, as max alone does.)
      bool const beyond =
          d < static_cast<double>( min ) || d >= static_cast<double>( max ) + 1.0;
      if ( whole && beyond ) {
         fail( path, v.dump() + " is out of range (expected " + range + ")" );
      }
      fail( path, "expected a whole number " + range + ", got " + v.dump() );
   }
   bool const negative =
       v.is_number_integer() && !v.is_number_unsigned() && v.get<S64>() < 0;
   U64 const value = negative ? 0 : v.get<U64>();
   if ( negative || value < min || value > max ) {
      fail( path, v.dump() + " is out of range (expected " + range + ")" );
   }
   return value;
}

// An integer that fits T and is at least Min.
template <class T, U64 Min = 0>
T readUnsigned( json const& v, std::string const& path ) {
   return static_cast<T>( readInteger( v, path, Min, std::numeric_limits<T>::max() ) );
}

template <class T, T ( *Read )( json const&, std::string const& )>
std::vector<T> readListOf( json const& v, std::string const& path ) {
   if ( !v.is_array() ) {
      failKind( v, path, "an array" );
   }
   std::vector<T> list;
   for ( std::size_t i = 0; i < v.size(); ++i ) {
      list.push_back( Read( v[i], elementPath( path, i ) ) );
   }
   return list;
}

// Any number of seconds from 0 to advanceSecondsMax.
double readSeconds( json const& v, std::string const& path ) {
   if ( !v.is_number() ) {
      failKind( v, path, "a number" );
   }
   double const seconds = v.get<double>();
   if ( seconds < 0 ) {
      fail( path, v.dump() + " is out of range (expected 0 or more seconds)" );
   }
   if ( seconds > advanceSecondsMax ) {
      fail( path, v.dump() + " is out of range (expected at most " +
                      std::to_string( static_cast<U64>( advanceSecondsMax ) ) +
                      " seconds in one step)" );
   }
   return seconds;
}

// The value of a decimal number without sign or leading zeros, of at most 9 digits.
std::optional<U32> decimal( std::string const& text ) {
   if ( text.empty() || text.size() > 9 || ( text[0] == '0' && text.size() > 1 ) ) {
      return std::nullopt;
   }
   U32 value = 0;
   for ( char c : text ) {
      if ( c < '0' || c > '9' ) {
         return std::nullopt;
      }
      value = value * 10 + static_cast<U32>( c - '0' );
   }
   return value;
}

// The value of a hex digit, or -1 for another character.
int hexDigit( char c ) {
   if ( c >= '0' && c <= '9' ) {
      return c - '0';
   }
   c = static_cast<char>( std::tolower( static_cast<unsigned char>( c ) ) );
   return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// A number, or a string of "0x" and 1 to 16 hex digits.
U64 readNextHop( json const& v, std::string const& path ) {
   if ( v.is_number() ) {
      return readUnsigned<U64>( v, path );
   }
   if ( !v.is_string() ) {
      failKind( v, path, "a number or a hex string" );
   }
   std::string const text = v.get<std::string>();
   bool ok = text.size() > 2 && text.size() <= 18 && text[0] == '0' &&
             ( text[1] == 'x' || text[1] == 'X' );
   U64 value = 0;
   for ( std::size_t i = 2; ok && i < text.size(); ++i ) {
      int const digit = hexDigit( text[i] );
      ok = digit >= 0;
      value = value * 16 + static_cast<U64>( ok ? digit : 0 );
   }
   if ( !ok ) {
      fail( path, quoted( text ) +
                      " is not a hex number (expected 0x and 1 to 16 hex digits)" );
   }
   return value;
}

// ---- Addresses

// "a.b.c.d", as a host-order number.
U32 readAddress( json const& v, std::string const& path ) {
   std::string const text = readString( v, path );
   Wirel::IpAddr address;
   if ( !Wirel::IpAddr::fromString( text, address ) ) {
      fail( path, quoted( text ) + " is not an IPv4 address (expected a.b.c.d)" );
   }
   return address.value();
}

// "a.b.c.d" (port 0) or "a.b.c.d:port".
Wirel::IpAndPort readIpAndPort( json const& v, std::string const& path ) {
   std::string const text = readString( v, path );
   std::size_t const colon = text.find( ':' );
   Wirel::IpAddr address;
   std::optional<U32> port = 0;
   bool longPort = false;
   if ( colon != std::string::npos ) {
      std::string const digits = text.substr( colon + 1 );
      port = decimal( digits );
      longPort = !port && digits.size() > 9 && digits[0] != '0' &&
                 digits.find_first_not_of( "0123456789" ) == std::string::npos;
   }
   if ( !Wirel::IpAddr::fromString( text.substr( 0, colon ), address ) ||
        ( !port && !longPort ) ) {
      fail( path, quoted( text ) +
                      " is not an IPv4 address (expected a.b.c.d or a.b.c.d:port)" );
   }
   if ( longPort || *port > std::numeric_limits<U16>::max() ) {
      fail( path, quoted( text ) + " has a port out of range (expected 0..65535)" );
   }
   return Wirel::IpAndPort( address, static_cast<U16>( *port ) );
}

// "a.b.c.d/len", any prefix length 0 to 32.
Wirel::IpAddrWithFullMask readPrefix( json const& v, std::string const& path ) {
   std::string const text = readString( v, path );
   std::size_t const slash = text.find( '/' );
   Wirel::IpAddr address;
   std::optional<U32> length;
   if ( slash != std::string::npos ) {
      length = decimal( text.substr( slash + 1 ) );
   }
   if ( !length || *length > 32 ||
        !Wirel::IpAddr::fromString( text.substr( 0, slash ), address ) ) {
      fail( path, quoted( text ) +
                      " is not an address with a prefix length (expected a.b.c.d/len, "
                      "len 0..32)" );
   }
   return Wirel::IpAddrWithFullMask( address, Wirel::prefixMask( *length ) );
}

// ---- NAT records

Oro::NatHwKey readKey( json const& v, std::string const& path ) {
   Record const r( v, path,
                   { "type", "srcOld", "srcNew", "dstOld", "dstNew", "reverse", "proto",
                     "faId", "aclId" } );
   U32 type = Oro::NatHwKey::natKeyTypeNone;
   Wirel::IpAndPort srcOld, srcNew, dstOld, dstNew;
   bool reverse = false;
   U8 proto = 0;
   U32 faId = 0;
   U32 aclId = 0;
   r.optional( "type", &type, readUnsigned<U32> );
   r.optional( "srcOld", &srcOld, readIpAndPort );
   r.optional( "srcNew", &srcNew, readIpAndPort );
   r.optional( "dstOld", &dstOld, readIpAndPort );
   r.optional( "dstNew", &dstNew, readIpAndPort );
   r.optional( "reverse", &reverse, readBool );
   r.optional( "proto", &proto, readUnsigned<U8> );
   r.optional( "faId", &faId, readUnsigned<U32> );
   r.optional( "aclId", &aclId, readUnsigned<U32> );
   return Oro::NatHwKey( static_cast<Oro::NatHwKey::NatKeyType>( type ), srcOld, srcNew,
                         dstOld, dstNew, reverse, proto, faId, Oro::NatAclId( aclId ) );
}

// A list of the data record, which holds at most `capacity` elements.
template <class T, T ( *Read )( json const&, std::string const& )>
std::vector<T> readBoundedList( json const& v, std::string const& path, U32 capacity,
                                char const* what ) {
   if ( v.is_array() && v.size() > capacity ) {
      fail( path, std::to_string( v.size() ) + " " + what +
                      " are too many (expected at most " + std::to_string( capacity ) +
                      ")" );
   }
   return readListOf<T, Read>( v, path );
}

std::vector<U16> readVlans( json const& v, std::string const& path ) {
   return readBoundedList<U16, readUnsigned<U16>>(
       v, path, Oro::NatHwData::vlanIdCapacity, "VLAN ids" );
}

std::vector<U64> readEgressIntfs( json const& v, std::string const& path ) {
   return readBoundedList<U64, readUnsigned<U64>>(
       v, path, Oro::NatHwData::egressIntfCapacity, "egress interfaces" );
}

Oro::NatHwData readData( json const& v, std::string const& path ) {
   Record const r(
       v, path,
       { "protocol", "filterAddr", "numFilterAddrs", "nextHop", "vlans",
         "staticAclSharing", "mcastGroupId", "multicast", "egressIntfs", "ingress" } );
   U8 protocol = 0;
   Wirel::IpAddrWithFullMask filterAddr;
   U32 numFilterAddrs = 0;
   U64 nextHop = 0;
   std::vector<U16> vlans;
   bool staticAclSharing = false;
   U32 mcastGroupId = 0;
   bool multicast = false;
   std::vector<U64> egressIntfs;
   bool ingress = false;
   r.optional( "protocol", &protocol, readUnsigned<U8> );
   r.optional( "filterAddr", &filterAddr, readPrefix );
   r.optional( "numFilterAddrs", &numFilterAddrs, readUnsigned<U32> );
   r.optional( "nextHop", &nextHop, readNextHop );
   r.optional( "vlans", &vlans, readVlans );
   r.optional( "staticAclSharing", &staticAclSharing, readBool );
   r.optional( "mcastGroupId", &mcastGroupId, readUnsigned<U32> );
   r.optional( "multicast", &multicast, readBool );
   r.optional( "egressIntfs", &egressIntfs, readEgressIntfs );
   r.optional( "ingress", &ingress, readBool );

   Oro::NatHwData data( protocol, filterAddr, numFilterAddrs, nextHop, staticAclSharing,
                        mcastGroupId, multicast, ingress );
   for ( U16 vlan : vlans ) {
      data.vlanIdAppend( vlan );
   }
   for ( U64 intf : egressIntfs ) {
      data.egressIntfAppend( Wirel::IntfId( intf ) );
   }
   return data;
}

// ---- Steps

// Each step reader gets the step's value, its path and the chip (for defaults that
// depend on it).
typedef Step ( *StepReader )( json const& value, std::string const& path,
                              ChipConfig const& chip );

Step readNatRule( json const& v, std::string const& path, ChipConfig const& chip ) {
   Record const r( v, path,
                   { "uid", "mcastUid", "key", "data", "modules", "dirty", "field" } );
   NatRuleStep s;
   r.required( "uid", &s.uid, readUnsigned<U32, 1> );
   r.optional( "mcastUid", &s.mcastUid, readUnsigned<U16> );
   r.required( "key", &s.key, readKey );
   r.optional( "data", &s.data, readData );
   for ( auto const& module : chip.modules ) {
      s.modules.push_back( module.first );
   }
   r.optional( "modules", &s.modules, readListOf<U16, readUnsigned<U16>> );
   r.optional( "dirty", &s.dirty, readUnsigned<U32> );
   r.optional( "field", &s.field, readUnsigned<U32> );
   return s;
}

Step readNatRuleRemove( json const& v, std::string const& path, ChipConfig const& ) {
   Record const r( v, path, { "uid", "key", "field" } );
   NatRuleRemoveStep s;
   r.required( "uid", &s.uid, readUnsigned<U32, 1> );
   r.required( "key", &s.key, readKey );
   r.optional( "field", &s.field, readUnsigned<U32> );
   return s;
}

TrapRule readTrapRule( json const& v, std::string const& path ) {
   Record const r( v, path, { "seq", "permit", "src", "dst", "pool" } );
   TrapRule rule;
   r.optional( "seq", &rule.seq, readUnsigned<U32> );
   r.optional( "permit", &rule.permit, readBool );
   r.optional( "src", &rule.src, readPrefix );
   r.optional( "dst", &rule.dst, readPrefix );
   r.optional( "pool", &rule.pool, readBool );
   return rule;
}

Step readTrapAcl( json const& v, std::string const& path, ChipConfig const& ) {
   Record const r( v, path, { "name", "vlan", "implicitDeny", "rules" } );
   TrapAclStep s;
   r.required( "name", &s.name, readString );
   r.required( "vlan", &s.vlan, readUnsigned<U16> );
   r.optional( "implicitDeny", &s.implicitDeny, readBool );
   r.optional( "rules", &s.rules, readListOf<TrapRule, readTrapRule> );
   return s;
}

Step readTrapAclRemove( json const& v, std::string const& path, ChipConfig const& ) {
   Record const r( v, path, { "name", "vlan" } );
   TrapAclRemoveStep s;
   r.required( "name", &s.name, readString );
   r.required( "vlan", &s.vlan, readUnsigned<U16> );
   return s;
}

Step readMcastMode( json const& v, std::string const& path, ChipConfig const& ) {
   Record const r( v, path, { "types" } );
   McastModeStep s;
   r.optional( "types", &s.types, readListOf<U32, readUnsigned<U32>> );
   return s;
}

Step readModule( json const& v, std::string const& path, ChipConfig const& ) {
   Record const r( v, path, { "modId", "unit" } );
   ModuleStep s;
   r.required( "modId", &s.modId, readUnsigned<U16, 1> );
   r.required( "unit", &s.unit, readUnsigned<U16> );
   return s;
}

Step readModuleRemove( json const& v, std::string const& path, ChipConfig const& ) {
   return ModuleRemoveStep{ readUnsigned<U16>( v, path ) };
}

Step readMountGroupReady( json const& v, std::string const& path, ChipConfig const& ) {
   return MountGroupReadyStep{ readBool( v, path ) };
}

Step readFlashDownload( json const& v, std::string const& path, ChipConfig const& ) {
   Record const r( v, path, { "req", "done" } );
   FlashDownloadStep s;
   r.required( "req", &s.req, readUnsigned<U32> );
   r.optional( "done", &s.done, readBool );
   return s;
}

Step readFragmentEnabled( json const& v, std::string const& path, ChipConfig const& ) {
   return FragmentEnabledStep{ readBool( v, path ) };
}

Frag readFrag( json const& v, std::string const& path ) {
   std::string const text = readString( v, path );
   if ( text == "none" ) {
      return Frag::none;
   }
   if ( text == "first" ) {
      return Frag::first;
   }
   if ( text == "notFirst" ) {
      return Frag::notFirst;
   }
   fail( path,
         quoted( text ) + " is not a fragment kind (expected none, first or notFirst)" );
}

U8 readTcpFlag( json const& v, std::string const& path ) {
   static std::vector<std::pair<char const*, TcpFlag>> const flags = {
       { "FIN", tcpFin }, { "SYN", tcpSyn }, { "RST", tcpRst },
       { "PSH", tcpPsh }, { "ACK", tcpAck }, { "URG", tcpUrg } };
   std::string const name = readString( v, path );
   for ( auto const& flag : flags ) {
      if ( name == flag.first ) {
         return flag.second;
      }
   }
   fail( path, quoted( name ) +
                   " is not a TCP flag (expected FIN, SYN, RST, PSH, ACK or URG)" );
}

// The list of flag names, as the flags' bits.
U8 readTcpFlags( json const& v, std::string const& path ) {
   U8 bits = 0;
   for ( U8 flag : readListOf<U8, readTcpFlag>( v, path ) ) {
      bits |= flag;
   }
   return bits;
}

U16 readUnit( json const& v, std::string const& path ) {
   return readUnsigned<U16>( v, path );
}

Step readPacket( json const& v, std::string const& path, ChipConfig const& ) {
   Record const r( v, path,
                   { "unit", "src", "dst", "proto", "sport", "dport", "vlan", "frag",
                     "tcp", "emHit", "myStation", "srcClass", "count" } );
   PacketStep s;
   r.optional( "unit", &s.unit, readUnit );
   r.optional( "src", &s.src, readAddress );
   r.optional( "dst", &s.dst, readAddress );
   r.optional( "proto", &s.proto, readUnsigned<U8> );
   r.optional( "sport", &s.sport, readUnsigned<U16> );
   r.optional( "dport", &s.dport, readUnsigned<U16> );
   r.optional( "vlan", &s.vlan, readUnsigned<U16> );
   r.optional( "frag", &s.frag, readFrag );
   r.optional( "tcp", &s.tcpFlags, readTcpFlags );
   r.optional( "emHit", &s.emHit, readBool );
   r.optional( "myStation", &s.myStation, readBool );
   r.optional( "srcClass", &s.srcClass, readUnsigned<U32> );
   r.optional( "count", &s.count, readUnsigned<U32, 1> );
   return s;
}

Step readAdvance( json const& v, std::string const& path, ChipConfig const& ) {
   return AdvanceStep{ readSeconds( v, path ) };
}

Step readShow( json const& v, std::string const& path, ChipConfig const& ) {
   return ShowStep{ readString( v, path ) };
}

Step readVerify( json const& v, std::string const& path, ChipConfig const& ) {
   return VerifyStep{ readUnsigned<U16>( v, path ) };
}

// A JSON integer from -2147483648 to -1: an SDK error code.
int readErrorCode( json const& v, std::string const& path ) {
   std::string const expected = "expected a negative whole number -2147483648..-1";
   if ( !v.is_number() ) {
      failKind( v, path, "a number" );
   }
   bool const inRange = v.is_number_integer() && !v.is_number_unsigned() &&
                        v.get<S64>() < 0 &&
                        v.get<S64>() >= std::numeric_limits<int>::min();
   if ( !inRange ) {
      fail( path, v.dump() + " is not an SDK error code (" + expected + ")" );
   }
   return static_cast<int>( v.get<S64>() );
}

std::string readSdkCall( json const& v, std::string const& path ) {
   std::string const name = readString( v, path );
   for ( char const* call : sdkFailureCalls() ) {
      if ( name == call ) {
         return name;
      }
   }
   fail( path, quoted( name ) + " is not an SDK call that can fail (known: " +
                   joined( sdkFailureCalls() ) + ")" );
}

Step readSdkFailure( json const& v, std::string const& path, ChipConfig const& ) {
   Record const r( v, path, { "call", "rc", "nth" } );
   SdkFailureStep s;
   r.required( "call", &s.call, readSdkCall );
   r.required( "rc", &s.rc, readErrorCode );
   r.optional( "nth", &s.nth, readUnsigned<U32, 1> );
   return s;
}

// An empty object: a restart has no members.
Step readRestart( json const& v, std::string const& path, ChipConfig const& ) {
   if ( !v.is_object() ) {
      failKind( v, path, "an object" );
   }
   if ( !v.empty() ) {
      fail( path, "unknown member " + quoted( v.begin().key() ) +
                      " (a restart takes no members: {})" );
   }
   return RestartStep{};
}

struct StepKind {
   char const* name;
   StepReader read;
};

// In the order of Step's alternatives: stepKindName() looks names up by the index.
StepKind const stepKinds[] = {
    { "natRule", readNatRule },
    { "natRuleRemove", readNatRuleRemove },
    { "trapAcl", readTrapAcl },
    { "trapAclRemove", readTrapAclRemove },
    { "mcastMode", readMcastMode },
    { "module", readModule },
    { "moduleRemove", readModuleRemove },
    { "mountGroupReady", readMountGroupReady },
    { "flashDownload", readFlashDownload },
    { "fragmentEnabled", readFragmentEnabled },
    { "packet", readPacket },
    { "advance", readAdvance },
    { "show", readShow },
    { "verify", readVerify },
    { "sdkFailure", readSdkFailure },
    { "restart", readRestart },
};
static_assert( std::size( stepKinds ) == std::variant_size_v<Step>,
               "one step kind for each alternative of Step" );

// Some calls of the plug-in take a module id as the SDK unit, so the chip must have a
// unit of that number; any other map stops the agent on an SDK error.
void checkModuleUnit( U16 modId, std::set<U16> const& units, std::string const& path ) {
   if ( !units.count( modId ) ) {
      fail( path, "module " + std::to_string( modId ) + " has no unit " +
                      std::to_string( modId ) +
                      " (the plug-in also uses a module id as its SDK unit, so each "
                      "module id must be one of the chip's units)" );
   }
}

// An object with exactly one member: the step's name and its value.
Step readStep( json const& v, std::string const& path, ChipConfig const& chip ) {
   if ( !v.is_object() ) {
      failKind( v, path, "a step (an object with one member)" );
   }
   if ( v.size() != 1 ) {
      fail( path, "a step has exactly one member, got " + std::to_string( v.size() ) );
   }
   std::string const& name = v.begin().key();
   for ( StepKind const& kind : stepKinds ) {
      if ( name == kind.name ) {
         return kind.read( v.begin().value(), memberPath( path, name ), chip );
      }
   }
   fail( path, "unknown step " + quoted( name ) +
                   " (known: " + joined( stepKindNames() ) + ")" );
}

// ---- Configuration

// Module ids are the member names, in decimal.
std::map<U16, U16> readModuleMap( json const& v, std::string const& path ) {
   if ( !v.is_object() ) {
      failKind( v, path, "an object" );
   }
   std::map<U16, U16> modules;
   for ( auto const& member : v.items() ) {
      std::string const memberAt = memberPath( path, member.key() );
      std::optional<U32> const modId = decimal( member.key() );
      if ( !modId || *modId < 1 || *modId > std::numeric_limits<U16>::max() ) {
         fail( memberAt, "module id " + quoted( member.key() ) +
                             " is not a decimal number 1..65535" );
      }
      modules[static_cast<U16>( *modId )] = readUnsigned<U16>( member.value(), memberAt );
   }
   std::set<U16> units;
   for ( auto const& module : modules ) {
      units.insert( module.second );
   }
   for ( auto const& module : modules ) {
      checkModuleUnit( module.first, units,
                       memberPath( path, std::to_string( module.first ) ) );
   }
   return modules;
}

U32 readPipes( json const& v, std::string const& path ) {
   return static_cast<U32>(
       readInteger( v, path, 1, Corvane::CorvaneTcamGroupManager::maxPipes ) );
}

ChipConfig readChip( json const& v, std::string const& path ) {
   Record const r(
       v, path,
       { "natSupported", "modules", "tcamEntries", "pipes", "trapFilters", "hitCounters",
         "familyTest", "hitlessRestart", "mountGroupReady", "flashDownloadDone" } );
   ChipConfig c;
   r.optional( "natSupported", &c.natSupported, readBool );
   r.optional( "modules", &c.modules, readModuleMap );
   r.optional( "tcamEntries", &c.tcamEntries, readUnsigned<U32> );
   r.optional( "pipes", &c.pipes, readPipes );
   r.optional( "trapFilters", &c.trapFilters, readBool );
   r.optional( "hitCounters", &c.hitCounters, readBool );
   r.optional( "familyTest", &c.familyTest, readBool );
   r.optional( "hitlessRestart", &c.hitlessRestart, readBool );
   r.optional( "mountGroupReady", &c.mountGroupReady, readBool );
   r.optional( "flashDownloadDone", &c.flashDownloadDone, readBool );
   return c;
}

NatConfig readNat( json const& v, std::string const& path ) {
   Record const r( v, path, { "addrOnlyMode", "fragmentEnabled" } );
   NatConfig c;
   r.optional( "addrOnlyMode", &c.addrOnlyMode, readBool );
   r.optional( "fragmentEnabled", &c.fragmentEnabled, readBool );
   return c;
}

// The elements of a scenario's steps list, handed over one by one as the parser reads
// them. A step is read at once when the chip it takes its defaults from (a rule's
// modules are the chip's) came before the list in the document; otherwise it waits, as
// JSON, until the whole document has been read.
class StepStream {
public:
   explicit StepStream( json const& document ) : document_( document ) {}

   void operator()( json& value, std::size_t index ) {
      if ( fault_ ) {
         return;  // only the first fault is reported
      }
      if ( !decided_ ) {
         decided_ = true;
         chip_ = chipBefore();
      }
      if ( !chip_ ) {
         waiting_.push_back( std::move( value ) );
         return;
      }
      read( value, index, *chip_ );
   }

   // Every step, read; throws the first faulty one's fault.
   Steps finish( ChipConfig const& chip ) {
      for ( std::size_t i = 0; i < waiting_.size() && !fault_; ++i ) {
         read( waiting_[i], i, chip );
      }
      if ( fault_ ) {
         throw *fault_;
      }
      return std::move( steps_ );
   }

private:
   // Reads step `index`; a module step's module must have a unit of its number among
   // the chip's units and those the steps before added (a unit, once made, stays).
   void read( json const& value, std::size_t index, ChipConfig const& chip ) {
      std::string const path = elementPath( "steps", index );
      try {
         if ( steps_.empty() ) {
            for ( auto const& module : chip.modules ) {
               units_.insert( module.second );
            }
         }
         steps_.push_back( readStep( value, path, chip ) );
         if ( auto const* module = std::get_if<ModuleStep>( &steps_.back() ) ) {
            units_.insert( module->unit );
            checkModuleUnit( module->modId, units_, memberPath( path, "module.modId" ) );
         }
      } catch ( Fault const& fault ) {
         fault_ = fault;
      }
   }

   // The chip of the document, when its member came before the steps and is valid.
   std::optional<ChipConfig> chipBefore() const {
      if ( !document_.is_object() ) {
         return std::nullopt;
      }
      auto const chip = document_.find( "chip" );
      if ( chip == document_.end() ) {
         return std::nullopt;
      }
      try {
         return readChip( *chip, "chip" );
      } catch ( Fault const& ) {
         return std::nullopt;  // reported where the chip is read in turn
      }
   }

   json const& document_;
   bool decided_ = false;
   std::optional<ChipConfig> chip_;
   Steps steps_;
   std::vector<json> waiting_;
   std::set<U16> units_;
   std::optional<Fault> fault_;
};

// The chip is read before the steps, whatever the members' order: a rule's default
// modules are the chip's. The steps list was handed to `stream` as it was read.
Scenario readScenario( json const& document, StepStream& stream ) {
   Record const r( document, "", { "agent", "chip", "nat", "steps" } );
   Scenario s;
   r.optional( "agent", &s.agent, readString );
   r.optional( "chip", &s.chip, readChip );
   r.optional( "nat", &s.nat, readNat );
   if ( json const* steps = r.find( "steps" ) ) {
      if ( !steps->is_array() ) {
         failKind( *steps, "steps", "an array" );
      }
      s.steps = stream.finish( s.chip );
   }
   return s;
}

// ---- The document

// Builds the document as the parser's own reader does, and watches for a member given
// twice in one object, which that reader would keep silently (the last one wins).
// Records the first such member. (The parser's callback reader would do the same, but
// it searches the enclosing array after every object, which makes a long list of steps
// quadratic.)
//
// With a step handler, the elements of the document's "steps" list are not kept in the
// document (its list stays empty): each is built on its own and handed to the handler
// with its index as soon as it ends, so that a long scenario is never held as a whole.
class DocumentReader {
public:
   typedef std::function<void( json&, std::size_t )> StepHandler;

   explicit DocumentReader( json& document, StepHandler onStep = nullptr )
       : dom_( document, true ), onStep_( std::move( onStep ) ) {}

   bool null() {
      elementStarts();
      return dom().null() && valueEnds();
   }
   bool boolean( bool v ) {
      elementStarts();
      return dom().boolean( v ) && valueEnds();
   }
   bool number_integer( json::number_integer_t v ) {
      elementStarts();
      return dom().number_integer( v ) && valueEnds();
   }
   bool number_unsigned( json::number_unsigned_t v ) {
      elementStarts();
      return dom().number_unsigned( v ) && valueEnds();
   }
   bool number_float( json::number_float_t v, json::string_t const& text ) {
      elementStarts();
      return dom().number_float( v, text ) && valueEnds();
   }
   bool string( json::string_t& v ) {
      elementStarts();
      return dom().string( v ) && valueEnds();
   }
   bool binary( json::binary_t& v ) {
      elementStarts();
      return dom().binary( v ) && valueEnds();
   }
   bool start_object( std::size_t n ) {
      levelStarts( false );
      return dom().start_object( n );
   }
   bool key( json::string_t& k ) {
      keyStarts( k );
      return dom().key( k );
   }
   bool end_object() {
      --depth_;
      return dom().end_object() && valueEnds();
   }
   bool start_array( std::size_t n ) {
      levelStarts( true );
      return dom().start_array( n );
   }
   bool end_array() {
      --depth_;
      return dom().end_array() && valueEnds();
   }
   template <class Exception>
   bool parse_error( std::size_t position, std::string const& token,
                     Exception const& e ) {
      return dom().parse_error( position, token, e );
   }

   std::optional<Fault> const& duplicate() const { return duplicate_; }

private:
   // One open object or array. Levels are kept for reuse as the parser goes in and
   // out, so that reading a long list allocates nothing per element for them.
   struct Level {
      bool array = false;
      // The document's "steps" list, whose elements go to the step handler.
      bool steps = false;
      std::size_t elements = 0;  // array: elements begun so far
      std::string key;           // object: the member being read
      // The object's member names so far: a few in a list, many in a set.
      std::vector<std::string> keys;
      std::unordered_set<std::string> manyKeys;

      void reset( bool isArray, bool isSteps ) {
         array = isArray;
         steps = isSteps;
         elements = 0;
         key.clear();
         keys.clear();
         manyKeys.clear();
      }
      // False when the object has the member already.
      bool keyIsNew( std::string const& name ) {
         constexpr std::size_t few = 16;
         if ( manyKeys.empty() && keys.size() < few ) {
            for ( auto const& k : keys ) {
               if ( k == name ) {
                  return false;
               }
            }
            keys.push_back( name );
            return true;
         }
         if ( manyKeys.empty() ) {
            manyKeys.insert( keys.begin(), keys.end() );
         }
         return manyKeys.insert( name ).second;
      }
   };

   Level& top() { return levels_[depth_ - 1]; }

   nlohmann::detail::json_sax_dom_parser<json>& dom() { return step_ ? *step_ : dom_; }

   // A value begins: an element of the steps list gets a document of its own.
   void elementStarts() {
      if ( depth_ == 0 || !top().array ) {
         return;
      }
      ++top().elements;
      if ( top().steps ) {
         stepValue_ = json();
         step_.emplace( stepValue_, true );
      }
   }

   // A value has ended: an element of the steps list goes to the handler.
   bool valueEnds() {
      if ( step_ && top().steps ) {
         step_.reset();
         onStep_( stepValue_, top().elements - 1 );
      }
      return true;
   }

   void levelStarts( bool array ) {
      elementStarts();
      bool const steps = array && onStep_ && depth_ == 1 && !levels_[0].array &&
                         levels_[0].key == "steps";
      if ( depth_ == levels_.size() ) {
         levels_.emplace_back();
      }
      levels_[depth_++].reset( array, steps );
   }

   void keyStarts( std::string const& key ) {
      Level& object = top();
      if ( !object.keyIsNew( key ) && !duplicate_ ) {
         duplicate_ =
             Fault{ objectPath(), "member " + quoted( key ) + " is given twice" };
      }
      object.key = key;
   }

   // The path of the innermost object.
   std::string objectPath() const {
      std::string path;
      for ( std::size_t i = 0; i + 1 < depth_; ++i ) {
         path = levels_[i].array ? elementPath( path, levels_[i].elements - 1 )
                                 : memberPath( path, levels_[i].key );
      }
      return path;
   }

   nlohmann::detail::json_sax_dom_parser<json> dom_;
   StepHandler onStep_;
   // The element of the steps list being built, and its builder.
   json stepValue_;
   std::optional<nlohmann::detail::json_sax_dom_parser<json>> step_;
   // Levels [0, depth_) are open.
   std::vector<Level> levels_;
   std::size_t depth_ = 0;
   std::optional<Fault> duplicate_;
};

// nlohmann's text is "[json.exception.parse_error.101] parse error at line 4, column 7:
// syntax error while parsing ..."; the location becomes the path.
ScenarioError syntaxError( json::exception const& e ) {
   std::string text = e.what();
   std::size_t const tag = text.find( "] " );
   if ( tag != std::string::npos ) {
      text.erase( 0, tag + 2 );
   }
   std::string location;
   std::string const at = "parse error at ";
   std::size_t const colon = text.find( ": " );
   if ( text.compare( 0, at.size(), at ) == 0 && colon != std::string::npos ) {
      location = text.substr( at.size(), colon - at.size() );
      text.erase( 0, colon + 2 );
   } else if ( text.compare( 0, 13, "parse error: " ) == 0 ) {
      text.erase( 0, 13 );
   }
   return ScenarioError{ location, "invalid JSON: " + text };
}

// "line L, column C" of the byte at `offset`, counted as the JSON parser counts them:
// lines from 1, columns in bytes from 1.
std::string location( std::string const& text, std::size_t offset ) {
   std::size_t line = 1;
   std::size_t lineStart = 0;
   for ( std::size_t i = 0; i < offset && i < text.size(); ++i ) {
      if ( text[i] == '\n' ) {
         ++line;
         lineStart = i + 1;
      }
   }
   return "line " + std::to_string( line ) + ", column " +
          std::to_string( offset - lineStart + 1 );
}

// The length of the UTF-8 sequence at `i` (1 to 4), or 0 when the bytes there are not
// well-formed UTF-8 (overlong forms, surrogates and code points past U+10FFFF are not).
std::size_t utf8SequenceLength( std::string const& text, std::size_t i ) {
   auto const byte = [&text]( std::size_t at ) {
      return at < text.size() ? static_cast<unsigned char>( text[at] ) : 0u;
   };
   unsigned const lead = byte( i );
   if ( lead < 0x80 ) {
      return 1;
   }
   // The second byte's range depends on the lead byte; later bytes are 0x80..0xbf.
   std::size_t length = 0;
   unsigned low = 0x80, high = 0xbf;
   if ( lead >= 0xc2 && lead <= 0xdf ) {
      length = 2;
   } else if ( lead >= 0xe0 && lead <= 0xef ) {
      length = 3;
      low = lead == 0xe0 ? 0xa0 : 0x80;
      high = lead == 0xed ? 0x9f : 0xbf;
   } else if ( lead >= 0xf0 && lead <= 0xf4 ) {
      length = 4;
      low = lead == 0xf0 ? 0x90 : 0x80;
      high = lead == 0xf4 ? 0x8f : 0xbf;
   } else {
      return 0;
   }
   if ( byte( i + 1 ) < low || byte( i + 1 ) > high ) {
      return 0;
   }
   for ( std::size_t k = 2; k < length; ++k ) {
      if ( byte( i + k ) < 0x80 || byte( i + k ) > 0xbf ) {
         return 0;
      }
   }
   return length;
}

// A scenario is JSON text in UTF-8. The parser would stop silently at a NUL byte, and
// would quote other bytes raw in its message, so both are refused first, where they are.
std::optional<ScenarioError> textFault( std::string const& text ) {
   for ( std::size_t i = 0; i < text.size(); ) {
      std::size_t const length = text[i] == '\0' ? 0 : utf8SequenceLength( text, i );
      if ( length == 0 ) {
         char hex[8];
         std::snprintf( hex, sizeof( hex ), "0x%02x",
                        static_cast<unsigned char>( text[i] ) );
         return ScenarioError{ location( text, i ), "byte " + std::string( hex ) +
                                                        " is not text (expected JSON "
                                                        "in UTF-8)" };
      }
      i += length;
   }
   return std::nullopt;
}

// Finds where a number too large for a double stands. The parser's DOM reader drops
// the position of that fault; its event interface gives it. Every other event is
// accepted.
class OverflowLocator : public nlohmann::json_sax<json> {
public:
   explicit OverflowLocator( std::string const& text ) : text_( text ) {}

   std::optional<ScenarioError> const& fault() const { return fault_; }

   bool null() override { return true; }
   bool boolean( bool ) override { return true; }
   bool number_integer( number_integer_t ) override { return true; }
   bool number_unsigned( number_unsigned_t ) override { return true; }
   bool number_float( number_float_t, string_t const& ) override { return true; }
   bool string( string_t& ) override { return true; }
   bool binary( binary_t& ) override { return true; }
   bool start_object( std::size_t ) override { return true; }
   bool key( string_t& ) override { return true; }
   bool end_object() override { return true; }
   bool start_array( std::size_t ) override { return true; }
   bool end_array() override { return true; }
   // `position` is the offset just past the number.
   bool parse_error( std::size_t position, std::string const& token,
                     nlohmann::detail::exception const& ) override {
      std::size_t const start = position >= token.size() ? position - token.size() : 0;
      std::string number = token.substr( 0, quotedLengthMax );
      if ( number.size() < token.size() ) {
         number += "...";
      }
      fault_ = ScenarioError{ location( text_, start ),
                              "the number " + number +
                                  " is out of range (expected at most about 1.8e308 "
                                  "in size)" };
      return false;
   }

private:
   std::string const& text_;
   std::optional<ScenarioError> fault_;
};

// `text` with every byte that does not start a well-formed UTF-8 sequence replaced by
// U+FFFD.
std::string validUtf8( std::string const& text ) {
   std::string valid;
   for ( std::size_t i = 0; i < text.size(); ) {
      std::size_t const length = utf8SequenceLength( text, i );
      valid += length == 0 ? std::string( "\xef\xbf\xbd" ) : text.substr( i, length );
      i += length == 0 ? 1 : length;
   }
   return valid;
}

// The fault of a document the parser refused: its syntax error with the location as
// the path, or a number out of range with its location. The parser quotes the bytes it
// last read, which may end inside a UTF-8 sequence; the message is made valid UTF-8.
ScenarioError parseFault( std::string const& text, json::exception const& e ) {
   if ( dynamic_cast<json::out_of_range const*>( &e ) ) {
      OverflowLocator locator( text );
      json::sax_parse( text, &locator );
      if ( locator.fault() ) {
         return *locator.fault();
      }
   }
   ScenarioError fault = syntaxError( e );
   fault.message = validUtf8( fault.message );
   return fault;
}

// The offset just past the JSON value at `at` in valid JSON text; strings are skipped
// whole, nesting is counted, not recursed into.
std::size_t skipValue( std::string const& text, std::size_t at ) {
   std::size_t depth = 0;
   std::size_t i = at;
   while ( i < text.size() ) {
      char const c = text[i];
      if ( c == '"' ) {
         for ( ++i; i < text.size() && text[i] != '"'; ++i ) {
            i += text[i] == '\\' ? 1 : 0;
         }
         ++i;
      } else if ( c == '{' || c == '[' ) {
         ++depth;
         ++i;
      } else if ( c == '}' || c == ']' ) {
         if ( depth == 0 ) {
            return i;  // the end of a scalar before the container's end
         }
         --depth;
         ++i;
      } else if ( depth == 0 &&
                  ( c == ',' || c == ' ' || c == '\t' || c == '\n' || c == '\r' ) ) {
         return i;
      } else {
         ++i;
      }
      if ( depth == 0 && ( c == '"' || c == '}' || c == ']' ) ) {
         return i;
      }
   }
   return i;
}

std::size_t skipBlanks( std::string const& text, std::size_t i ) {
   while ( i < text.size() && std::strchr( " \t\r\n", text[i] ) && text[i] != '\0' ) {
      ++i;
   }
   return i;
}

// Where the value at `path` ("steps[3].natRule.key") starts in the valid JSON `text`,
// as "line L, column C"; empty when it cannot be found.
std::string locate( std::string const& text, std::string const& path ) {
   std::size_t at = skipBlanks( text, 0 );
   std::size_t p = 0;
   while ( p < path.size() ) {
      if ( path[p] == '.' ) {
         ++p;
      }
      if ( path[p] == '[' ) {  // an element
         std::size_t const close = path.find( ']', p );
         std::size_t index = std::stoul( path.substr( p + 1, close - p - 1 ) );
         p = close + 1;
         if ( at >= text.size() || text[at] != '[' ) {
            return std::string();
         }
         at = skipBlanks( text, at + 1 );
         for ( ; index > 0; --index ) {
            at = skipBlanks( text, skipBlanks( text, skipValue( text, at ) ) + 1 );
         }
         continue;
      }
      std::size_t const end = path.find_first_of( ".[", p );
      std::string const name = path.substr( p, end == std::string::npos ? end : end - p );
      p = end == std::string::npos ? path.size() : end;
      if ( at >= text.size() || text[at] != '{' ) {
         return std::string();
      }
      at = skipBlanks( text, at + 1 );
      for ( ;; ) {  // each member: key, colon, value
         if ( at >= text.size() || text[at] != '"' ) {
            return std::string();
         }
         std::size_t const keyEnd = skipValue( text, at );
         json const key = json::parse( text.substr( at, keyEnd - at ), nullptr, false );
         at = skipBlanks( text, skipBlanks( text, keyEnd ) + 1 );
         if ( key.is_string() && key.get<std::string>() == name ) {
            break;
         }
         at = skipBlanks( text, skipBlanks( text, skipValue( text, at ) ) + 1 );
      }
   }
   return location( text, at );
}

}  // namespace

bool readScenarioFile( std::string const& file, std::string* text,
                       ScenarioError* error ) {
   auto const refuse = [error]( std::string const& message ) {
      *error = ScenarioError{ "", message };
      return false;
   };
   int const fd = ::open( file.c_str(), O_RDONLY | O_CLOEXEC );
   if ( fd < 0 ) {
      return refuse( std::string( "cannot be read (" ) + std::strerror( errno ) + ")" );
   }
   struct stat status;
   if ( ::fstat( fd, &status ) == 0 && S_ISDIR( status.st_mode ) ) {
      ::close( fd );
      return refuse( "is a directory (expected a scenario file)" );
   }
   // Read in chunks, so that a pipe or a device works too and an endless one stops.
   text->clear();
   char chunk[65536];
   for ( ;; ) {
      ssize_t const n = ::read( fd, chunk, sizeof( chunk ) );
      if ( n < 0 && errno == EINTR ) {
         continue;
      }
      if ( n < 0 ) {
         int const reason = errno;
         ::close( fd );
         return refuse( std::string( "cannot be read (" ) + std::strerror( reason ) +
                        ")" );
      }
      if ( n == 0 ) {
         break;
      }
      if ( text->size() + std::size_t( n ) > scenarioFileBytesMax ) {
         ::close( fd );
         return refuse( "is too large (expected at most " +
                        std::to_string( scenarioFileBytesMax ) + " bytes)" );
      }
      text->append( chunk, std::size_t( n ) );
   }
   ::close( fd );
   return true;
}

std::vector<char const*> const& sdkFailureCalls() {
   // Every call the shim journals (the field setters and getters it does not journal
   // cannot fail).
   static std::vector<char const*> const calls = { "bcm_field_qualify_MyStationHit",
                                                   "bcm_field_qualify_SrcClassField",
                                                   "bcm_field_qualify_SrcIp",
                                                   "bcm_field_qualify_DstIp",
                                                   "bcm_field_qualify_L4SrcPort",
                                                   "bcm_field_qualify_L4DstPort",
                                                   "bcm_field_qualify_IpProtocol",
                                                   "bcm_field_qualify_TcpControl",
                                                   "bcm_field_qualify_L3Ingress",
                                                   "bcm_field_qualify_IpFrag",
                                                   "bcm_field_qualify_OpaqueObject1",
                                                   "bcm_field_qualify_ExactMatch",
                                                   "bcm_field_qualifier_delete",
                                                   "bcm_field_qualify_SrcIp_get",
                                                   "bcm_field_qualify_DstIp_get",
                                                   "bcm_field_qualify_L4SrcPort_get",
                                                   "bcm_field_qualify_L4DstPort_get",
                                                   "bcm_field_qualify_IpProtocol_get",
                                                   "bcm_field_qualify_L3Ingress_get",
                                                   "bcm_field_action_add",
                                                   "bcm_field_action_remove_all",
                                                   "bcm_switch_control_set",
                                                   "soc_mem_read",
                                                   "soc_mem_write",
                                                   "soc_reg32_get",
                                                   "soc_reg32_set" };
   return calls;
}

std::vector<char const*> const& stepKindNames() {
   static std::vector<char const*> const names = [] {
      std::vector<char const*> list;
      for ( StepKind const& kind : stepKinds ) {
         list.push_back( kind.name );
      }
      return list;
   }();
   return names;
}

char const* stepKindName( Step const& step ) {
   return stepKinds[step.index()].name;
}

std::string ScenarioError::what() const {
   std::string const place = at.empty() ? path : path + " (" + at + ")";
   return place.empty() ? message : place + ": " + message;
}

namespace {

// Parses `text` as JSON and reads the document with `read`, turning the first fault
// into `*error`; with `locateFaults`, a fault found after parsing gets its line. `read`
// gets the document and, when `streamSteps`, the stream its steps list went to.
template <class Read>
bool parseWith( std::string const& text, ScenarioError* error, bool locateFaults,
                Read read, bool streamSteps = false ) {
   if ( auto const fault = textFault( text ) ) {
      *error = *fault;
      return false;
   }
   json document;
   StepStream steps( document );
   DocumentReader reader( document, streamSteps
                                        ? DocumentReader::StepHandler( std::ref( steps ) )
                                        : nullptr );
   try {
      json::sax_parse( text, &reader );
   } catch ( json::exception const& e ) {
      *error = parseFault( text, e );
      return false;
   }
   if ( reader.duplicate() ) {
      *error = ScenarioError{ reader.duplicate()->path, reader.duplicate()->message };
      return false;
   }
   try {
      read( document, steps );
   } catch ( Fault const& fault ) {
      *error = ScenarioError{
          fault.path, fault.message,
          locateFaults && !fault.path.empty() ? locate( text, fault.path ) : "" };
      return false;
   }
   return true;
}

}  // namespace

bool parseScenario( std::string const& text, Scenario* out, ScenarioError* error ) {
   return parseWith(
       text, error, true,
       [out]( json const& document, StepStream& steps ) {
          *out = readScenario( document, steps );
       },
       true );
}

bool parseStep( std::string const& text, ChipConfig const& chip, Step* out,
                ScenarioError* error ) {
   return parseWith( text, error, false,
                     [out, &chip]( json const& document, StepStream& ) {
                        *out = readStep( document, "", chip );
                     } );
}

}  // namespace natsim
