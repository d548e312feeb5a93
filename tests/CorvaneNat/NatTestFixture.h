#pragma once

// A NAT plug-in on the simulated platform, for tests: natsim's chip, platform and
// upstream, with the plug-in's mounter built directly (the library is linked in).
// Tests publish rules as upstream does and check what reached the journal and the chip.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "CorvaneNat/NatMounter.h"
#include "platform/chip/Journal.h"
#include "tools/natsim/SimPlatform.h"
#include "tools/natsim/Upstream.h"

namespace NatTest {

// Journal lines, trace lines, texts.
using Lines = std::vector<std::string>;

inline Wirel::IpAndPort ipPort( char const* text, U16 port = 0 ) {
   Wirel::IpAddr ip;
   EXPECT_TRUE( Wirel::IpAddr::fromString( text, ip ) ) << text;
   return Wirel::IpAndPort( ip, port );
}

inline U32 ipValue( char const* text ) {
   return ipPort( text ).ip().value();
}

// Key types by name: natKey( Key::staticSrcNat, ... ).
using Key = Oro::NatHwKey;
// Transaction results by name: answers.back().result == Result::done.
using Result = Xact::XactSluiceStatus;

// A key with the given kind and addresses; others unset.
inline Oro::NatHwKey natKey( Key::NatKeyType type, Wirel::IpAndPort srcOld,
                             Wirel::IpAndPort srcNew, Wirel::IpAndPort dstOld = {},
                             Wirel::IpAndPort dstNew = {}, U8 dynProto = 0,
                             U32 aclId = 0 ) {
   return Oro::NatHwKey( type, srcOld, srcNew, dstOld, dstNew, false, dynProto, 0,
                         Oro::NatAclId( aclId ) );
}

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

   // The journal from `mark` on, one line per call: "<call> <args as JSON>".
   std::vector<std::string> calls( std::size_t mark = 0 ) const {
      std::vector<std::string> out;
      for ( auto const& r : Chip::journal().recordsFrom( mark ) ) {
         out.push_back( r.call + " " + Chip::json( r.args ) );
      }
      return out;
   }
   std::size_t mark() const { return Chip::journal().size(); }

   Chip::FieldProcessor const& fieldProcessor( int unit = 1 ) {
      return platform->chip().unit( unit )->fieldProcessor();
   }
   std::size_t chipEntries( int unit = 1 ) {
      return fieldProcessor( unit ).entryIds().size();
   }

   natsim::ChipConfig chip;
   natsim::NatConfig nat;
   std::unique_ptr<natsim::SimPlatform> platform;
   std::unique_ptr<natsim::Upstream> upstream;
   Corvane::NatMounter::Ptr mounter;
   std::vector<natsim::Answer> answers;
};

}  // namespace NatTest
