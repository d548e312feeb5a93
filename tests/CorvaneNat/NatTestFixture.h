#pragma once

// A NAT plug-in on the simulated platform, for tests: natsim's chip, platform and
// upstream, with the plug-in's mounter built directly (the library is linked in). Tests
// publish rules as upstream does and check the journal (lines written the way it prints
// them: "bcm_field_qualify_SrcIp [167772161, 4294967295]"), the chip and the answers.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "CorvaneNat/NatMounter.h"
#include "CorvaneNat/NatWorkerSm.h"
#include "platform/chip/Journal.h"
#include "platform/fwk/LogEvent.h"
#include "platform/fwk/Trace.h"
#include "tests/RegexLiteral.h"
#include "tools/natsim/SimPlatform.h"
#include "tools/natsim/Upstream.h"

namespace NatTest {

using Lines = std::vector<std::string>;
using Key = Oro::NatHwKey;
using Result = Xact::XactSluiceStatus;

// An address and port from dotted text; usable outside a running test (case tables).
inline Wirel::IpAndPort at( char const* text, U16 port = 0 ) {
   Wirel::IpAddr addr;
   if ( !Wirel::IpAddr::fromString( text, addr ) ) {
      ADD_FAILURE() << "not an address: " << text;
   }
   return Wirel::IpAndPort( addr, port );
}
inline U32 ip( char const* text ) {
   return at( text ).ip().value();
}

inline Oro::NatHwKey natKey( Key::NatKeyType type, Wirel::IpAndPort srcOld,
                             Wirel::IpAndPort srcNew, Wirel::IpAndPort dstOld = {},
                             Wirel::IpAndPort dstNew = {}, U8 dynProto = 0,
                             U32 aclId = 0 ) {
   return Oro::NatHwKey( type, srcOld, srcNew, dstOld, dstNew, false, dynProto, 0,
                         Oro::NatAclId( aclId ) );
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
   Data& nextHop( U64 id ) {
      d.nextHopIdIs( id );
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

// What standard error shows when the assertion `expectation` stops the process.
inline std::string assertionFailure( std::string const& expectation ) {
   return literal( "Assertion `" + expectation + "' failed." );
}

// Trace lines of "ApiCorvane" ("<function><message>") up to `levels` while alive.
class TraceCapture {
public:
   explicit TraceCapture( std::string const& levels = "ApiCorvane/8" )
       : setting_( Fwk::traceSetting() ) {
      previous_ = Fwk::traceSinkIs( [this]( Fwk::TraceRecord const& r ) {
         if ( r.handle == "ApiCorvane" ) {
            lines.push_back( r.line() );
         }
      } );
      Fwk::traceSettingIs( levels );
   }
   ~TraceCapture() {
      Fwk::traceSettingIs( setting_ );
      Fwk::traceSinkIs( previous_ );
   }
   Lines lines;

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
   std::vector<Fwk::LogRecord> records;

private:
   Fwk::LogSink previous_;
};

class NatFixture : public ::testing::Test {
protected:
   // Builds the platform and starts the plug-in; the worker of each module initializes
   // when the chip's defaults allow it.
   void start() {
      platform = std::make_unique<natsim::SimPlatform>( "Corvane", chip, nat );
      upstream = std::make_unique<natsim::Upstream>(
          *platform, [this]( natsim::Answer const& a ) { answers.push_back( a ); } );
      mounter = new Corvane::NatMounter( "natMounter" );
      mounter->doInit();
      loop().runUntilIdle();
   }
   void TearDown() override {
      mounter = nullptr;
      upstream.reset();
      platform.reset();
      answers.clear();
   }

   Fwk::ActivityManager& loop() { return platform->loop(); }
   Corvane::NatWorkerSm* worker( U16 modId = 1 ) {
      auto root = mounter->rootSm();
      return root ? root->natWorkerSm( modId ).ptr() : nullptr;
   }

   // Publishes a rule as upstream does and runs the loop.
   void rule( U32 uid, Oro::NatHwKey const& key, Oro::NatHwData const& data = {},
              std::vector<U16> modules = { 1 }, U16 mcastUid = 0 ) {
      natsim::NatRuleStep step;
      step.uid = uid;
      step.key = key;
      step.data = data;
      step.modules = std::move( modules );
      step.mcastUid = mcastUid;
      ruleStep( step );
   }
   void ruleStep( natsim::NatRuleStep const& step ) {
      upstream->natRule( step );
      loop().runUntilIdle();
   }
   void removeRule( U32 uid, Oro::NatHwKey const& key ) {
      natsim::NatRuleRemoveStep step;
      step.uid = uid;
      step.key = key;
      std::string problem;
      EXPECT_TRUE( upstream->natRuleRemove( step, &problem ) ) << problem;
      loop().runUntilIdle();
   }
   // "mod 1 uid 5 result 1 field 0" per answer.
   Lines answerTexts() const {
      Lines out;
      for ( auto const& a : answers ) {
         out.push_back( "mod " + std::to_string( a.module ) + " uid " +
                        std::to_string( a.uid ) + " result " +
                        std::to_string( U32( a.result ) ) + " field " +
                        std::to_string( a.field ) );
      }
      return out;
   }

   std::size_t mark() const { return Chip::journal().size(); }
   // The journal from `mark` on, the entry id leading each line that has one:
   // "3 installEntry []".
   Lines idCalls( std::size_t mark ) const {
      Lines out;
      for ( auto const& r : Chip::journal().recordsFrom( mark ) ) {
         std::string const line = r.call + " " + Chip::json( r.args );
         out.push_back( r.hasEntry ? std::to_string( r.entry ) + " " + line : line );
      }
      return out;
   }
   Chip::FieldProcessor const& fieldProcessor( int unit = 1 ) {
      return platform->chip().unit( unit )->fieldProcessor();
   }
   Chip::FpEntry const* chipEntry( U32 id, int unit = 1 ) {
      return fieldProcessor( unit ).entry( id );
   }
   std::size_t chipEntries( int unit = 1 ) { return fieldProcessor( unit ).entries(); }

   natsim::ChipConfig chip;
   natsim::NatConfig nat;
   std::unique_ptr<natsim::SimPlatform> platform;
   std::unique_ptr<natsim::Upstream> upstream;
   Corvane::NatMounter::Ptr mounter;
   std::vector<natsim::Answer> answers;
};

}  // namespace NatTest
