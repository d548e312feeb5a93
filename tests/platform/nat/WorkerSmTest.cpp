// The generic NAT worker: which transactions reach doCommitHwConfig, when, and how often;
// the capability configuration's effects.

#include <gtest/gtest.h>

#include <vector>

#include "platform/fwk/ActivityManager.h"
#include "platform/nat/WorkerSm.h"

namespace {

using CorvaneNat::Uid;
using Xact::XactSluiceConfig;
using Xact::XactSluiceKey;

class TestWorker : public CorvaneNat::WorkerSm {
public:
   typedef Fwk::Ptr<TestWorker> Ptr;
   TestWorker( Xact::XactSluiceConfigDir::PtrConst const& requests,
               CorvaneNat::CapabilityConfig::PtrConst const& config,
               CorvaneNat::CapabilityStatus::Ptr const& status )
       : WorkerSm( requests, nullptr, nullptr, nullptr, nullptr, nullptr, config,
                   status ) {}

   void doCommitHwConfig( Uid uid ) override {
      EXPECT_TRUE( initialized() );
      commits.push_back( uid.value() );
   }
   void handleInitialized() override {
      ++initializations;
      WorkerSm::handleInitialized();
   }
   void handleFragment() override { fragmentChanges.push_back( fragmentEnabled() ); }

   std::vector<U32> commits;
   std::vector<bool> fragmentChanges;
   int initializations = 0;
};

class WorkerSmTest : public ::testing::Test {
protected:
   void request( U32 uid ) {
      requests->xactConfigIs( XactSluiceConfig{ XactSluiceKey( Uid( uid ) ), 0 } );
   }
   TestWorker::Ptr makeWorker() {
      TestWorker::Ptr w( new TestWorker( requests, config, status ) );
      w->hasNotificationActiveIs( true );
      return w;
   }

   Fwk::ScopedActivityManager scope{ Fwk::Clock::Ptr( new Fwk::VirtualClock ) };
   Fwk::ActivityManager& loop = scope.manager();
   Xact::XactSluiceConfigDir::Ptr requests{ new Xact::XactSluiceConfigDir( "requests" ) };
   CorvaneNat::CapabilityConfig::Ptr config{
       new CorvaneNat::CapabilityConfig( "config" ) };
   CorvaneNat::CapabilityStatus::Ptr status{
       new CorvaneNat::CapabilityStatus( "status" ) };
};

TEST_F( WorkerSmTest, NothingIsCommittedBeforeInitializationThenPendingRequestsInOrder ) {
   request( 7 );
   loop.runUntilIdle();
   auto worker = makeWorker();
   request( 3 );
   request( 9 );
   requests->xactConfigDel( XactSluiceKey( Uid( 9 ) ) );  // withdrawn before it is served
   loop.runUntilIdle();
   EXPECT_TRUE( worker->commits.empty() );

   worker->initializedIs( true );
   EXPECT_TRUE( worker->commits.empty() ) << "initialization is handled from the loop";
   loop.runUntilIdle();
   EXPECT_EQ( worker->commits, ( std::vector<U32>{ 7, 3 } ) );
   EXPECT_EQ( worker->initializations, 1 );

   worker->initializedIs( true );  // no change, no second handling
   loop.runUntilIdle();
   EXPECT_EQ( worker->initializations, 1 );
}

TEST_F( WorkerSmTest, EveryRequestWrittenAfterInitializationIsCommittedOnce ) {
   auto worker = makeWorker();
   worker->initializedIs( true );
   request( 1 );  // written before the initialization is handled: served once, not twice
   loop.runUntilIdle();
   request( 2 );
   request( 1 );  // published again: a new request
   requests->xactConfigDel( XactSluiceKey( Uid( 2 ) ) );
   request( 2 );
   loop.runUntilIdle();
   EXPECT_EQ( worker->commits, ( std::vector<U32>{ 1, 2, 1, 2 } ) );
   worker->hasNotificationActiveIs( false );
   request( 4 );
   loop.runUntilIdle();
   EXPECT_EQ( worker->commits.size(), 4u ) << "a silenced worker commits nothing";
}

TEST_F( WorkerSmTest, CapabilityConfigurationDrivesModesAndStatus ) {
   config->fragmentEnabledIs( true );
   auto worker = makeWorker();
   EXPECT_TRUE( worker->fragmentEnabled() ) << "taken from the configuration when built";
   EXPECT_FALSE( worker->isAddrOnlyMode() );
   config->addrOnlyModeIs( true );
   EXPECT_TRUE( worker->isAddrOnlyMode() );

   config->fragmentEnabledIs( false );
   config->resourceProfileIs( 4 );
   loop.runUntilIdle();
   EXPECT_EQ( worker->fragmentChanges, ( std::vector<bool>{ false } ) );
   EXPECT_FALSE( status->fragmentEnabled() );
   EXPECT_EQ( status->resourceProfile(), 4u );

   worker->fragmentEnabledIs( true );
   worker->fragmentEnabledIs( true );  // no change, not handled again
   EXPECT_EQ( worker->fragmentChanges, ( std::vector<bool>{ false, true } ) );
   EXPECT_TRUE( status->fragmentEnabled() );
}

}  // namespace
