// natsim's clock after the scenario, as the server uses it: real time from where the
// scenario left it, timers falling due as the wall clock passes, and further steps
// played one at a time (an advance jumps ahead at once).

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include <nlohmann/json.hpp>

#include "platform/fwk/Quay.h"
#include "tools/natsim/Simulation.h"

namespace {

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
   EXPECT_LT( loop.clock()->now(), 150.0 ) << "from the scenario's time, not from boot";
   int count = 0;
   auto task = Quay::TimerTask::TimerTaskIs(
       Quay::TaskSchedulerRoot::findOrCreateScheduler(), "tick", 3 );
   Runs runs( task, &count );
   task->enabledIs( true );
   task->scheduleTaskDelay( 0.01 );
   for ( int i = 0; i < 60000 && count == 0; ++i ) {  // a bounded wait
      std::this_thread::sleep_for( std::chrono::milliseconds( 1 ) );
      loop.runTurn();
   }
   EXPECT_EQ( count, 1 ) << "the timer fell due as real time passed";
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
