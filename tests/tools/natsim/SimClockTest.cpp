// natsim's clock: virtual while the scenario plays, then real time from where the
// scenario left it; and a simulation handed over to real time, whose timers fall due
// as the wall clock passes and which plays further steps one at a time.

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

TEST( SimClock, VirtualTimeMovesOnlyWhenMovedAndNeverBack ) {
   natsim::SimClock clock;
   EXPECT_TRUE( clock.isVirtual() );
   EXPECT_FALSE( clock.realTime() );
   EXPECT_EQ( clock.now(), 0.0 );
   pause();
   EXPECT_EQ( clock.now(), 0.0 ) << "wall time does not move it";
   clock.nowIs( 42.5 );
   clock.nowIs( 10 );
   EXPECT_EQ( clock.now(), 42.5 );
}

TEST( SimClock, RealTimeRunsOnFromTheVirtualTimeAndCanStillJumpAhead ) {
   natsim::SimClock clock;
   clock.nowIs( 100 );
   clock.followRealTime();
   EXPECT_TRUE( clock.realTime() );
   EXPECT_TRUE( clock.isVirtual() ) << "the loop may still move it forward";
   Fwk::Seconds const start = clock.now();
   EXPECT_GE( start, 100.0 );
   EXPECT_LT( start, 200.0 ) << "it goes on from the scenario's time, not from boot";
   EXPECT_TRUE( eventually( [&] { return clock.now() > start; }, pause ) );

   Fwk::Seconds const before = clock.now();
   clock.nowIs( before + 3600 );
   EXPECT_GE( clock.now(), before + 3600 );
   clock.nowIs( 0 );
   EXPECT_GE( clock.now(), before + 3600 ) << "never back";
   Fwk::Seconds const jumped = clock.now();
   EXPECT_TRUE( eventually( [&] { return clock.now() > jumped; }, pause ) )
       << "and real time runs on from there";
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
   EXPECT_EQ( loop.runTurn(), 0u ) << "due in real time, not at once";
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

   natsim::Step step;
   natsim::ScenarioError error;
   ASSERT_TRUE(
       natsim::parseStep( R"({"natRule": {"uid": 7, "key": {"srcOld": "10.0.0.1"}}})",
                          simulation.chip(), &step, &error ) );
   auto rule = nlohmann::json::parse( simulation.playOne( step ) );
   EXPECT_EQ( rule["step"], 2 );
   ASSERT_EQ( rule["answers"].size(), 1u );
   EXPECT_EQ( rule["answers"][0]["uid"], 7 );
   EXPECT_EQ( rule["journal"][0]["call"], "getEntry" );
   EXPECT_EQ( rule["journal"][0]["step"], 2 );
   EXPECT_TRUE( simulation.records().answers.empty() )
       << "a served step's records go with its answer";
}

}  // namespace
