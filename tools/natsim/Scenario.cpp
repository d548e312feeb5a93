#include "tools/natsim/Scenario.h"

#include <cctype>
#include <iterator>
#include <limits>
#include <set>
#include <utility>

#include <nlohmann/json.hpp>

#include "platform/fwk/Assert.h"

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

std::string memberPath( std::string const& path, std::string const& name ) {
   return path.empty() ? name : path + "." + name;
}

std::string elementPath( std::string const& path, std::size_t index ) {
   return path + "[" + std::to_string( index ) + "]";
}

// A string as JSON writes it, quotes and escapes included.
std::string quoted( std::string const& text ) {
   return json( text ).dump();
}

std::string joined( std::vector<char const*> const& names ) {
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
// that is not an object and any member it does not know, so typos do not pass.
class Record {
public:
   Record( json const& value, std::string path, std::vector<char const*> known )
       : value_( value ), path_( std::move( path ) ) {
      if ( !value.is_object() ) {
         failKind( value, path_, "an object" );
      }
      for ( auto const& member : value.items() ) {
         if ( !isKnown( member.key(), known ) ) {
            fail( path_, "unknown member " + quoted( member.key() ) +
                             " (known: " + joined( known ) + ")" );
         }
      }
   }

   // The member, or nullptr when it is left out.
   json const* find( char const* name ) const {
      auto const it = value_.find( name );
      return it == value_.end() ? nullptr : &*it;
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
   static bool isKnown( std::string const& name, std::vector<char const*> const& known ) {
      for ( char const* k : known ) {
         if ( name == k ) {
            return true;
         }
      }
      return false;
   }

   json const& value_;
   std::string path_;
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

// Any number of seconds, 0 or more.
double readSeconds( json const& v, std::string const& path ) {
   if ( !v.is_number() ) {
      failKind( v, path, "a number" );
   }
   double const seconds = v.get<double>();
   if ( seconds < 0 ) {
      fail( path, v.dump() + " is out of range (expected 0 or more seconds)" );
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
   if ( colon != std::string::npos ) {
      port = decimal( text.substr( colon + 1 ) );
   }
   if ( !Wirel::IpAddr::fromString( text.substr( 0, colon ), address ) || !port ) {
      fail( path, quoted( text ) +
                      " is not an IPv4 address (expected a.b.c.d or a.b.c.d:port)" );
   }
   if ( *port > std::numeric_limits<U16>::max() ) {
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

// Runs an append of the data record; its range error (a list longer than the record
// holds) becomes a fault of the list, with the record's own message.
template <class Append>
void appendTo( std::string const& listPath, Append append ) {
   try {
      append();
   } catch ( Fwk::RangeException const& e ) {
      fail( listPath, e.what() );
   }
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
   r.optional( "vlans", &vlans, readListOf<U16, readUnsigned<U16>> );
   r.optional( "staticAclSharing", &staticAclSharing, readBool );
   r.optional( "mcastGroupId", &mcastGroupId, readUnsigned<U32> );
   r.optional( "multicast", &multicast, readBool );
   r.optional( "egressIntfs", &egressIntfs, readListOf<U64, readUnsigned<U64>> );
   r.optional( "ingress", &ingress, readBool );

   Oro::NatHwData data( protocol, filterAddr, numFilterAddrs, nextHop, staticAclSharing,
                        mcastGroupId, multicast, ingress );
   for ( U16 vlan : vlans ) {
      appendTo( memberPath( path, "vlans" ), [&] { data.vlanIdAppend( vlan ); } );
   }
   for ( U64 intf : egressIntfs ) {
      appendTo( memberPath( path, "egressIntfs" ),
                [&] { data.egressIntfAppend( Wirel::IntfId( intf ) ); } );
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
   r.required( "modId", &s.modId, readUnsigned<U16> );
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
    { "restart", readRestart },
};
static_assert( std::size( stepKinds ) == std::variant_size_v<Step>,
               "one step kind for each alternative of Step" );

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

std::vector<Step> readSteps( json const& v, std::string const& path,
                             ChipConfig const& chip ) {
   if ( !v.is_array() ) {
      failKind( v, path, "an array" );
   }
   std::vector<Step> steps;
   for ( std::size_t i = 0; i < v.size(); ++i ) {
      steps.push_back( readStep( v[i], elementPath( path, i ), chip ) );
   }
   return steps;
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
      if ( !modId || *modId > std::numeric_limits<U16>::max() ) {
         fail( memberAt, "module id " + quoted( member.key() ) +
                             " is not a decimal number 0..65535" );
      }
      modules[static_cast<U16>( *modId )] = readUnsigned<U16>( member.value(), memberAt );
   }
   return modules;
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
   r.optional( "pipes", &c.pipes, readUnsigned<U32> );
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

// The chip is read before the steps, whatever the members' order: a rule's default
// modules are the chip's.
Scenario readScenario( json const& document ) {
   Record const r( document, "", { "agent", "chip", "nat", "steps" } );
   Scenario s;
   r.optional( "agent", &s.agent, readString );
   r.optional( "chip", &s.chip, readChip );
   r.optional( "nat", &s.nat, readNat );
   if ( json const* steps = r.find( "steps" ) ) {
      s.steps = readSteps( *steps, "steps", s.chip );
   }
   return s;
}

// ---- The document

// Watches the parser for a member given twice in one object, which the parser itself
// would keep silently (the last one wins). Records the first such member.
class DuplicateFinder {
public:
   bool onEvent( json::parse_event_t event, json const& parsed ) {
      switch ( event ) {
         case json::parse_event_t::object_start:
         case json::parse_event_t::array_start:
            elementStarts();
            levels_.emplace_back();
            levels_.back().array = event == json::parse_event_t::array_start;
            break;
         case json::parse_event_t::object_end:
         case json::parse_event_t::array_end:
            levels_.pop_back();
            break;
         case json::parse_event_t::key:
            keyStarts( parsed.get<std::string>() );
            break;
         case json::parse_event_t::value:
            elementStarts();
            break;
      }
      return true;
   }

   std::optional<Fault> const& duplicate() const { return duplicate_; }

private:
   struct Level {
      bool array = false;
      std::size_t elements = 0;  // array: elements begun so far
      std::string key;           // object: the member being read
      std::set<std::string> keys;
   };

   void elementStarts() {
      if ( !levels_.empty() && levels_.back().array ) {
         ++levels_.back().elements;
      }
   }

   void keyStarts( std::string const& key ) {
      Level& object = levels_.back();
      if ( !object.keys.insert( key ).second && !duplicate_ ) {
         duplicate_ =
             Fault{ objectPath(), "member " + quoted( key ) + " is given twice" };
      }
      object.key = key;
   }

   // The path of the innermost object.
   std::string objectPath() const {
      std::string path;
      for ( std::size_t i = 0; i + 1 < levels_.size(); ++i ) {
         path = levels_[i].array ? elementPath( path, levels_[i].elements - 1 )
                                 : memberPath( path, levels_[i].key );
      }
      return path;
   }

   std::vector<Level> levels_;
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

}  // namespace

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
   return path.empty() ? message : path + ": " + message;
}

namespace {

// Parses `text` as JSON and reads the document with `read`, turning the first fault
// into `*error`.
template <class Read>
bool parseWith( std::string const& text, ScenarioError* error, Read read ) {
   DuplicateFinder finder;
   json document;
   try {
      document =
          json::parse( text, [&finder]( int, json::parse_event_t event, json& parsed ) {
             return finder.onEvent( event, parsed );
          } );
   } catch ( json::exception const& e ) {
      *error = syntaxError( e );
      return false;
   }
   if ( finder.duplicate() ) {
      *error = ScenarioError{ finder.duplicate()->path, finder.duplicate()->message };
      return false;
   }
   try {
      read( document );
   } catch ( Fault const& fault ) {
      *error = ScenarioError{ fault.path, fault.message };
      return false;
   }
   return true;
}

}  // namespace

bool parseScenario( std::string const& text, Scenario* out, ScenarioError* error ) {
   return parseWith( text, error,
                     [out]( json const& document ) { *out = readScenario( document ); } );
}

bool parseStep( std::string const& text, ChipConfig const& chip, Step* out,
                ScenarioError* error ) {
   return parseWith( text, error, [out, &chip]( json const& document ) {
      *out = readStep( document, "", chip );
   } );
}

}  // namespace natsim
