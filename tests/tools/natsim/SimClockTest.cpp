// natsim's clock: virtual while the scenario plays, then real time from where the
// scenario left it; a simulation handed over to real time fires its timers as the wall
// clock passes and plays further steps one at a time.

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include <nlohmann/json.hpp>

#include "platform/fwk/Quay.h"
#include "tools/natsim/SimClock.h"
#include "tools/natsim/Simulation.h"

namespace {

// Waits, for a bounded time, until `done` holds, doing `step` in between.
template <class Done, class Step>
bool eventually( Done done, Step step ) {
   for ( int i = 0; i < 60000; ++i ) {
      if ( done() ) {
         return true;
      }
      step();
   }
   return done();
}

void pause() {
   std::this_thread::sleep_for( std::chrono::milliseconds( 1 ) );
}

TEST( SimClock, VirtualUntilHandedOverThenRealTimeFromThereNeverBack ) {
   natsim::SimClock clock;
   pause();
   EXPECT_EQ( clock.now(), 0.0 ) << "wall time does not move a virtual clock";
   clock.nowIs( 100 );
   clock.nowIs( 10 );
   EXPECT_EQ( clock.now(), 100.0 );

   clock.followRealTime();
   EXPECT_TRUE( clock.realTime() && clock.isVirtual() ) << "the loop may still move it";
   Fwk::Seconds const start = clock.now();
   EXPECT_GE( start, 100.0 );
   EXPECT_LT( start, 200.0 ) << "it goes on from the scenario's time, not from boot";
   EXPECT_TRUE( eventually( [&] { return clock.now() > start; }, pause ) );
   Fwk::Seconds const before = clock.now();
   clock.nowIs( before + 3600 );
   clock.nowIs( 0 );
   EXPECT_GE( clock.now(), before + 3600 ) << "jumps ahead, never back";
   Fwk::Seconds const jumped = clock.now();
   EXPECT_TRUE( eventually( [&] { return clock.now() > jumped; }, pause ) );
   clock.followRealTime();
   EXPECT_GE( clock.now(), jumped ) << "handing over twice changes nothing";
}

// Counts the runs of a timer task.
class Runs : public Fwk::ReactorOn<Quay::TimerTask, int> {
public:
   Runs( Quay::TimerTask::Ptr const& task, int* count ) : ReactorOn( task, count ) {
      hasNotificationActiveIs( true );
   }
   void onAttribute( Fwk::AttributeId, Fwk::KeyRef ) override { ++*owner(); }
};

natsim::Options testPlugin() {
   natsim::Options options;
   options.pluginPath = TEST_PLUGIN_PATH;
   options.mounterType = "TestPlugin::Mounter";
   options.callbackType = "TestPlugin::CliCallback";
   return options;
}

TEST( SimClock, AfterTheScenarioTimersFireInRealTimeAndStepsPlayOneByOne ) {
   natsim::Scenario scenario;
   scenario.steps.push_back( natsim::AdvanceStep{ 50 } );
   natsim::Simulation simulation( scenario, testPlugin() );
   std::string problem;
   ASSERT_TRUE( simulation.start( &problem ) ) << problem;
   simulation.play();
   Fwk::ActivityManager& loop = simulation.loop();
   EXPECT_EQ( loop.clock()->now(), 50.0 );

   simulation.followRealTime();
   int count = 0;
   auto task = Quay::TimerTask::TimerTaskIs(
       Quay::TaskSchedulerRoot::findOrCreateScheduler(), "tick", 3 );
   Runs runs( task, &count );
   task->enabledIs( true );
   task->scheduleTaskDelay( 0.01 );
   EXPECT_TRUE( eventually( [&] { return count == 1; },
                            [&] {
                               pause();
                               loop.runTurn();
                            } ) )
       << "the timer fell due as real time passed";
   EXPECT_GT( loop.clock()->now(), 50.0 );

   // A step more: an advance jumps ahead at once (it does not sleep for an hour) and
   // fires the timer due on the way.
   task->scheduleTaskDelay( 1800 );
   Fwk::Seconds const before = loop.clock()->now();
   auto answer =
       nlohmann::json::parse( simulation.playOne( natsim::AdvanceStep{ 3600 } ) );
   EXPECT_EQ( count, 2 );
   EXPECT_GE( loop.clock()->now(), before + 3600 );
   EXPECT_EQ( answer["step"], 1 );
   EXPECT_EQ( answer["kind"], "advance" );
}

}  // namespace
