#pragma once

// The journal lines that NAT programming produces, written the way the journal prints
// them ("bcm_field_qualify_SrcIp [167772161, 4294967295]"), and a fixture that reads the
// journal entry by entry, the chip's entries, trace lines and raised log events.

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "NatTestFixture.h"
#include "platform/fwk/Assert.h"
#include "platform/fwk/LogEvent.h"
#include "platform/fwk/Trace.h"
#include "tests/RegexLiteral.h"

namespace NatTest {

// An address and port from dotted text; usable outside a running test (case tables).
inline Wirel::IpAndPort at( char const* text, U16 port = 0 ) {
   unsigned a = 0, b = 0, c = 0, d = 0;
   if ( std::sscanf( text, "%u.%u.%u.%u", &a, &b, &c, &d ) != 4 ) {
      ADD_FAILURE() << "not an address: " << text;
   }
   return Wirel::IpAndPort( Wirel::IpAddr( ( a << 24 ) | ( b << 16 ) | ( c << 8 ) | d ),
                            port );
}

inline U64 hostOrder( char const* text ) {
   return at( text ).ip().value();
}

// NAT data built in one expression: Data().vlans( { 10 } ).nextHop( 5 ).
struct Data {
   Oro::NatHwData d;
   Data& vlans( std::initializer_list<U16> ids ) {
      for ( U16 id : ids ) {
         d.vlanIdAppend( id );
      }
      return *this;
   }
   Data& nextHop( U64 nextHopId ) {
      d.nextHopIdIs( nextHopId );
      return *this;
   }
   Data& protocol( U8 protocol ) {
      d.protocolIs( protocol );
      return *this;
   }
   Data& filter( char const* address, unsigned prefixLength ) {
      d.filterAddrIs( Wirel::IpAddrWithFullMask( at( address ).ip(),
                                                 Wirel::prefixMask( prefixLength ) ) );
      return *this;
   }
   Data& aclSharing() {
      d.staticAclSharingIs( true );
      return *this;
   }
   Data& multicast( U32 group, bool ingress = false ) {
      d.multicastIs( true );
      d.mcastGroupIdIs( group );
      d.ingressIs( ingress );
      return *this;
   }
   operator Oro::NatHwData() const { return d; }
};

// A mask of -1 as the journal reads it.
constexpr U64 minusOne = 0xffffffffu;

inline std::string callLine( std::string const& call, Chip::Args const& args ) {
   return call + " " + Chip::json( args );
}

inline std::string qualify( char const* qualifier, U64 data, U64 mask ) {
   return callLine( std::string( "bcm_field_qualify_" ) + qualifier,
                    { Chip::numberArg( data ), Chip::numberArg( mask ) } );
}
inline std::string myStationHit() {
   return qualify( "MyStationHit", 1, 1 );
}
// Data 0 under the VFP ACL drop class (8).
inline std::string notAclDropped() {
   return qualify( "SrcClassField", 0, 8 );
}
inline std::string srcIp( char const* ip ) {
   return qualify( "SrcIp", hostOrder( ip ), minusOne );
}
inline std::string dstIp( char const* ip ) {
   return qualify( "DstIp", hostOrder( ip ), minusOne );
}
inline std::string l3Ingress( U16 vlanId ) {
   return qualify( "L3Ingress", vlanId, minusOne );
}
inline std::string ipProtocol( U8 protocol ) {
   return qualify( "IpProtocol", protocol, 0xff );
}
// FIN, SYN and RST all clear.
inline std::string tcpControlClear() {
   return qualify( "TcpControl", 0, 7 );
}

inline std::string action( char const* name, U64 param0 = 0, U64 param1 = 0 ) {
   return callLine( "bcm_field_action_add",
                    { Chip::nameArg( std::string( "bcmFieldAction" ) + name ),
                      Chip::numberArg( param0 ), Chip::numberArg( param1 ) } );
}
inline std::string extractionCtrl( U32 id ) {
   return action( "AssignExtractionCtrlId", id, 0x1f );
}
inline std::string opaqueObject1( U32 id ) {
   return action( "AssignOpaqueObject1", id );
}
inline std::string l3Switch( U32 nextHopId ) {
   return action( "L3Switch", nextHopId );
}
inline std::string removeAllActions() {
   return callLine( "bcm_field_action_remove_all", {} );
}

inline std::string getEntry( std::string const& description ) {
   return callLine( "getEntry", { Chip::nameArg( description ) } );
}
inline std::string highestPriority() {
   return callLine( "setPriorityForEntry", { Chip::numberArg( 0x7fffffff ) } );
}
inline std::string installEntry() {
   return callLine( "installEntry", {} );
}
inline std::string reinstallEntry() {
   return callLine( "reinstallEntry", {} );
}
inline std::string releaseEntry() {
   return callLine( "releaseEntry", {} );
}

// Appends `more` to `lines`.
inline Lines operator+( Lines lines, Lines const& more ) {
   lines.insert( lines.end(), more.begin(), more.end() );
   return lines;
}

// What standard error shows when the assertion `expectation` stops the process.
inline std::string assertionFailure( std::string const& expectation ) {
   return literal( "Assertion `" + expectation + "' failed." );
}

// Runs `f`. A range error escaping it (nothing in the agent catches one) stops the
// process with "range error: <message>" on standard error, for death tests.
template <class F>
void stopOnRangeError( F f ) {
   try {
      f();
   } catch ( Fwk::RangeException const& e ) {
      std::fprintf( stderr, "range error: %s\n", e.what() );
      std::fflush( stderr );
      std::abort();
   }
}

// Trace lines of "ApiCorvane" ("<function><message>") while alive.
class TraceCapture {
public:
   explicit TraceCapture( std::string const& levels = "ApiCorvane/8" )
       : setting_( Fwk::traceSetting() ) {
      previous_ = Fwk::traceSinkIs( [this]( Fwk::TraceRecord const& r ) {
         if ( r.handle == "ApiCorvane" ) {
            lines.push_back( r.line() );
            if ( onLine ) {
               onLine( r.line() );
            }
         }
      } );
      Fwk::traceSettingIs( levels );
   }
   ~TraceCapture() {
      Fwk::traceSettingIs( setting_ );
      Fwk::traceSinkIs( previous_ );
   }
   TraceCapture( TraceCapture const& ) = delete;
   TraceCapture& operator=( TraceCapture const& ) = delete;

   bool has( std::string const& text ) const {
      for ( auto const& l : lines ) {
         if ( l.find( text ) != std::string::npos ) {
            return true;
         }
      }
      return false;
   }

   Lines lines;
   std::function<void( std::string const& )> onLine;

private:
   std::string setting_;
   Fwk::TraceSink previous_;
};

// Raised log events while alive.
class LogCapture {
public:
   LogCapture() {
      previous_ =
          Fwk::logSinkIs( [this]( Fwk::LogRecord const& r ) { records.push_back( r ); } );
   }
   ~LogCapture() { Fwk::logSinkIs( previous_ ); }
   LogCapture( LogCapture const& ) = delete;
   LogCapture& operator=( LogCapture const& ) = delete;

   std::vector<Fwk::LogRecord> records;

private:
   Fwk::LogSink previous_;
};

class NatProgramFixture : public NatFixture {
protected:
   // The journal from `mark` on, each line led by the entry it concerns: "#k <line>",
   // k counting the entries in the order getEntry handed them out from `mark` on
   // ("#?" for an entry allocated before). Calls without an entry stand alone.
   Lines entryCalls( std::size_t mark ) const {
      std::map<U32, unsigned> order;
      Lines out;
      for ( auto const& r : Chip::journal().recordsFrom( mark ) ) {
         std::string line = callLine( r.call, r.args );
         if ( r.rc != 0 ) {
            line += " rc=" + std::to_string( r.rc );
         }
         if ( !r.hasEntry ) {
            out.push_back( line );
            continue;
         }
         if ( r.call == "getEntry" && r.entry != 0 ) {
            order.emplace( r.entry, unsigned( order.size() + 1 ) );
         }
         auto known = order.find( r.entry );
         std::string tag =
             known == order.end() ? "#?" : "#" + std::to_string( known->second );
         out.push_back( tag + " " + line );
      }
      return out;
   }
   // The journal from `mark` on with the entry id leading each line that has one:
   // "3 installEntry []".
   Lines idCalls( std::size_t mark ) const {
      Lines out;
      for ( auto const& r : Chip::journal().recordsFrom( mark ) ) {
         std::string line = callLine( r.call, r.args );
         out.push_back( r.hasEntry ? std::to_string( r.entry ) + " " + line : line );
      }
      return out;
   }
   // The entry ids that getEntry handed out from `mark` on, in order (0 for full).
   std::vector<U32> allocated( std::size_t mark ) const {
      std::vector<U32> ids;
      for ( auto const& r : Chip::journal().recordsFrom( mark ) ) {
         if ( r.call == "getEntry" ) {
            ids.push_back( r.entry );
         }
      }
      return ids;
   }
   // The units that the calls from `mark` on were made on.
   std::vector<int> unitsFrom( std::size_t mark ) const {
      std::vector<int> units;
      for ( auto const& r : Chip::journal().recordsFrom( mark ) ) {
         units.push_back( r.unit );
      }
      return units;
   }
   // The actions an entry holds in the chip, as action_add lines.
   Lines chipActions( U32 id, int unit = 1 ) {
      Lines out;
      Chip::FpEntry const* e = fieldProcessor( unit ).entry( id );
      if ( !e ) {
         return out;
      }
      for ( auto const& a : e->actions() ) {
         out.push_back(
             callLine( "bcm_field_action_add",
                       { Chip::nameArg( Chip::actionName( a.action ) ),
                         Chip::numberArg( a.param0 ), Chip::numberArg( a.param1 ) } ) );
      }
      return out;
   }
   Chip::FpEntry const* chipEntry( U32 id, int unit = 1 ) {
      return fieldProcessor( unit ).entry( id );
   }

   // Upstream's rule step with everything a test may set.
   void ruleStep( natsim::NatRuleStep const& step ) {
      upstream->natRule( step );
      loop().runUntilIdle();
   }
};

}  // namespace NatTest
