// The event loop: order of delivery, run to completion, silencing, the activity lock,
// and timers on the virtual clock.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/fwk/ActivityLock.h"
#include "platform/fwk/ActivityManager.h"
#include "platform/fwk/Quay.h"

namespace {

using Fwk::AttributeId;
using Fwk::KeyRef;

// A small entity with a plain attribute and a keyed collection.
class Counter : public Fwk::Entity {
public:
   typedef Fwk::Ptr<Counter> Ptr;
   enum : AttributeId { value = 1, item = 2 };

   explicit Counter( std::string name ) : Entity( std::move( name ) ) {}
   int valueGet() const { return value_; }
   void valueIs( int v ) {
      value_ = v;
      notify( value );
   }
   Fwk::Collection<int, std::string> items{ this, item };

private:
   int value_ = 0;
};

typedef std::vector<std::string> Log;

// Records what it sees; optionally makes a change of its own from inside the reaction.
class Recorder : public Fwk::ReactorOn<Counter, Log> {
public:
   Recorder( Counter::Ptr const& c, Log* log, std::string tag )
       : ReactorOn( c, log ), tag_( std::move( tag ) ) {
      hasNotificationActiveIs( true );
   }
   void onAttribute( AttributeId attr, KeyRef key ) override {
      std::string entry = tag_ + ":" + notifier()->name();
      if ( attr == Counter::value ) {
         entry += ".value=" + std::to_string( notifier()->valueGet() );
         if ( chain ) {
            chain();
         }
      } else {
         entry += std::string( key.removed() ? ".removed[" : ".item[" ) +
                  std::to_string( key.as<int>() ) + "]";
      }
      owner()->push_back( entry );
   }
   std::function<void()> chain;

private:
   std::string tag_;
};

// Logs each run of a timer task with the virtual time; reschedules itself if periodic.
class Ticker : public Fwk::ReactorOn<Quay::TimerTask, Log> {
public:
   Ticker( Quay::TimerTask::Ptr const& t, Log* log, double period = 0 )
       : ReactorOn( t, log ), period_( period ) {
      hasNotificationActiveIs( true );
   }
   void onAttribute( AttributeId attr, KeyRef ) override {
      if ( attr != Quay::Task::run ) {
         return;
      }
      EXPECT_EQ( Quay::Task::currentTask(), notifier() );
      char at[32];
      std::snprintf( at, sizeof( at ), "@%g", Fwk::activityManager().clock()->now() );
      owner()->push_back( notifier()->name() + at );
      if ( period_ > 0 ) {
         notifier()->scheduleTaskDelay( period_ );
      }
   }

private:
   double period_;
};

class ActivityManagerTest : public ::testing::Test {
protected:
   Quay::TimerTask::Ptr timer( char const* name, int priority, double delay ) {
      auto task = Quay::TimerTask::TimerTaskIs(
          Quay::TaskSchedulerRoot::findOrCreateScheduler(), name, priority );
      task->enabledIs( true );
      task->scheduleTaskDelay( delay );
      return task;
   }

   Fwk::Ptr<Fwk::VirtualClock> clock{ new Fwk::VirtualClock };
   Fwk::ScopedActivityManager scope{ clock };
   Fwk::ActivityManager& loop = scope.manager();
   Log log;
};

TEST_F( ActivityManagerTest, ChangesReachReactorsFromTheLoopInOrderWithTheirKeys ) {
   Counter::Ptr a( new Counter( "a" ) );
   Recorder early( a, &log, "early" );
   a->items.set( 7, "x" );
   Recorder late( a, &log, "late" );  // sees only what changes after it was made
   a->valueIs( 3 );
   a->items.del( 7 );
   a->items.del( 8 );  // absent: no change, no notification
   EXPECT_TRUE( log.empty() ) << "nothing is delivered before the loop runs";
   loop.runUntilIdle();
   EXPECT_EQ( log, ( Log{ "early:a.item[7]", "early:a.value=3", "late:a.value=3",
                          "early:a.removed[7]", "late:a.removed[7]" } ) );
}

TEST_F( ActivityManagerTest, ChangesMadeInsideAReactionOrAPostedCallComeAfterIt ) {
   Counter::Ptr a( new Counter( "a" ) ), b( new Counter( "b" ) );
   Recorder ra( a, &log, "ra" ), ra2( a, &log, "ra2" ), rb( b, &log, "rb" );
   ra.chain = [&, once = true]() mutable {
      if ( once ) {
         b->valueIs( 10 );
         log.push_back( "ra changed b" );
         b->items.set( 1, "y" );
      }
      once = false;
   };
   a->valueIs( 1 );
   loop.post( [&] {
      log.push_back( "posted" );
      a->valueIs( 2 );
   } );
   loop.runUntilIdle();
   // A reaction sees the value as it is when the change is delivered.
   EXPECT_EQ(
       log, ( Log{ "ra changed b", "ra:a.value=1", "ra2:a.value=1", "posted",
                   "rb:b.value=10", "rb:b.item[1]", "ra:a.value=2", "ra2:a.value=2" } ) );
}

TEST_F( ActivityManagerTest, SilencedAndDestroyedReactorsReceiveNothing ) {
   Counter::Ptr a( new Counter( "a" ) );
   auto first = std::make_unique<Recorder>( a, &log, "first" );
   Recorder second( a, &log, "second" );
   // The first reactor silences the second while the change is being delivered.
   first->chain = [&] { second.hasNotificationActiveIs( false ); };
   a->valueIs( 1 );
   loop.runUntilIdle();
   EXPECT_EQ( log, ( Log{ "first:a.value=1" } ) );

   first.reset();
   second.hasNotificationActiveIs( true );
   a->valueIs( 2 );
   loop.runUntilIdle();
   EXPECT_EQ( log, ( Log{ "first:a.value=1", "second:a.value=2" } ) );

   // An entity notified and then dropped by everyone lives until its change is taken
   // from the queue; a reactor may hold the last reference to its entity (the sanitize
   // build checks both).
   {
      Counter::Ptr gone( new Counter( "gone" ) );
      auto r = std::make_unique<Recorder>( gone, &log, "r" );
      gone->valueIs( 5 );
      r.reset();
   }
   auto r =
       std::make_unique<Recorder>( Counter::Ptr( new Counter( "only" ) ), &log, "r" );
   r.reset();
   loop.runUntilIdle();
   EXPECT_EQ( log.size(), 2u );
}

TEST_F( ActivityManagerTest, TheActivityLockIsHeldByReactionsAndGivenUpAroundSlowCalls ) {
   auto& lock = Fwk::ActivityLock::instance();
   std::vector<bool> held;
   loop.post( [&] {
      held.push_back( lock.held() );
      {
         Fwk::ActivityLockRelease release;
         held.push_back( lock.held() );
      }
      held.push_back( lock.held() );
   } );
   EXPECT_FALSE( lock.held() );
   loop.runUntilIdle();
   EXPECT_EQ( held, ( std::vector<bool>{ true, false, true } ) );
   EXPECT_FALSE( lock.held() );
   Fwk::ActivityLockRelease outsideTheLoop;  // gives up nothing
   EXPECT_FALSE( lock.held() );
}

TEST_F( ActivityManagerTest,
        TimersFireOnTheVirtualClockInDueAndPriorityOrderAsScheduled ) {
   auto poll = timer( "poll", 3, 10.0 );
   auto low = timer( "low", 1, 20.0 );
   auto high = timer( "high", 5, 20.0 );
   Ticker tp( poll, &log, 10.0 ), tl( low, &log ), th( high, &log );
   loop.runUntilIdle();
   EXPECT_TRUE( log.empty() ) << "nothing is due at time 0";
   loop.advance( 35.5 );
   EXPECT_EQ( clock->now(), 35.5 );
   EXPECT_EQ( log, ( Log{ "poll@10", "high@20", "poll@20", "low@20", "poll@30" } ) );
   EXPECT_EQ( loop.nextTimerDue(), 40.0 );

   // Rescheduling replaces a run; switching off or cancelling skips one.
   poll->cancel();
   log.clear();
   auto task = timer( "t", 3, 5.0 );
   Ticker ticker( task, &log );
   task->scheduleTaskDelay( 8.0 );  // replaces the run at 5
   loop.advance( 10.0 );
   EXPECT_EQ( log, ( Log{ "t@43.5" } ) );
   task->scheduleTaskDelay( 1.0 );
   task->enabledIs( false );
   loop.advance( 5.0 );
   task->enabledIs( true );
   task->scheduleTaskDelay( 1.0 );
   task->cancel();
   loop.advance( 5.0 );
   EXPECT_EQ( log.size(), 1u );
   EXPECT_LT( loop.nextTimerDue(), 0.0 );
}

// A turn runs what was queued when it began, and fires a timer only when nothing is
// queued: the changes of a timer run are delivered before the next timer fires.
TEST_F( ActivityManagerTest, ATurnRunsWhatWasQueuedWhenItBeganAndLeavesTheRest ) {
   Counter::Ptr a( new Counter( "a" ) );
   Recorder r( a, &log, "r" );
   std::function<void( int )> slice = [&]( int n ) {  // queues its own continuation
      log.push_back( "slice" + std::to_string( n ) );
      if ( n < 1 ) {
         loop.post( [&, n] { slice( n + 1 ); } );
      }
   };
   loop.post( [&] { slice( 0 ); } );
   a->valueIs( 1 );
   EXPECT_EQ( loop.runTurn(), 2u );
   EXPECT_EQ( log, ( Log{ "slice0", "r:a.value=1" } ) );
   EXPECT_EQ( loop.runTurn(), 1u );
   EXPECT_EQ( loop.runTurn(), 0u ) << "nothing left: the turn does nothing";

   log.clear();
   auto first = timer( "first", 3, 1.0 );
   auto second = timer( "second", 1, 1.0 );
   Ticker t1( first, &log ), t2( second, &log );
   struct Bump : Fwk::ReactorOn<Quay::TimerTask, Counter> {
      Bump( Quay::TimerTask::Ptr const& t, Counter* c ) : ReactorOn( t, c ) {
         hasNotificationActiveIs( true );
      }
      void onAttribute( AttributeId, KeyRef ) override {
         owner()->valueIs( owner()->valueGet() + 1 );
      }
   } b1( first, a.ptr() ), b2( second, a.ptr() );
   EXPECT_EQ( loop.runTurn(), 0u ) << "not due yet";
   clock->nowIs( 1.0 );
   std::vector<std::size_t> turns;
   while ( std::size_t done = loop.runTurn() ) {
      turns.push_back( done );
   }
   EXPECT_EQ( log, ( Log{ "first@1", "r:a.value=2", "second@1", "r:a.value=3" } ) );
   EXPECT_EQ( turns, ( std::vector<std::size_t>{ 1, 1, 1, 1 } ) );
}

}  // namespace
