// The event loop: order of delivery, run to completion, silencing, and timers on the
// virtual clock.

#include <gtest/gtest.h>

#include <map>
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

class ActivityManagerTest : public ::testing::Test {
protected:
   Fwk::Ptr<Fwk::VirtualClock> clock{ new Fwk::VirtualClock };
   Fwk::ScopedActivityManager scope{ clock };
   Fwk::ActivityManager& loop = scope.manager();
   Log log;
};

TEST_F( ActivityManagerTest, ChangesAreDeliveredFromTheLoopInOrderWithTheirKeys ) {
   Counter::Ptr a( new Counter( "a" ) );
   Recorder r( a, &log, "r" );
   a->items.set( 7, "x" );
   a->valueIs( 3 );
   a->items.del( 7 );
   a->items.del( 8 );  // absent: no change, no notification
   EXPECT_TRUE( log.empty() ) << "nothing is delivered before the loop runs";
   EXPECT_EQ( loop.runUntilIdle(), 3u );
   EXPECT_EQ( log, ( Log{ "r:a.item[7]", "r:a.value=3", "r:a.removed[7]" } ) );
}

TEST_F( ActivityManagerTest, ChangesMadeInsideAReactionComeAfterItInOrder ) {
   Counter::Ptr a( new Counter( "a" ) ), b( new Counter( "b" ) );
   Recorder ra( a, &log, "ra" ), ra2( a, &log, "ra2" ), rb( b, &log, "rb" );
   ra.chain = [&] {
      b->valueIs( 10 );
      log.push_back( "ra changed b" );
      b->items.set( 1, "y" );
   };
   a->valueIs( 1 );
   loop.runUntilIdle();
   EXPECT_EQ( log, ( Log{ "ra changed b", "ra:a.value=1", "ra2:a.value=1",
                          "rb:b.value=10", "rb:b.item[1]" } ) );
}

TEST_F( ActivityManagerTest, SilencedAndDestroyedReactorsReceiveNothing ) {
   Counter::Ptr a( new Counter( "a" ) );
   auto first = std::make_unique<Recorder>( a, &log, "first" );
   Recorder second( a, &log, "second" );
   Recorder third( a, &log, "third" );
   third.hasNotificationActiveIs( false );
   // The first reactor silences the second while the change is being delivered.
   first->chain = [&] { second.hasNotificationActiveIs( false ); };
   a->valueIs( 1 );
   loop.runUntilIdle();
   EXPECT_EQ( log, ( Log{ "first:a.value=1" } ) );

   log.clear();
   first.reset();
   second.hasNotificationActiveIs( true );
   a->valueIs( 2 );
   loop.runUntilIdle();
   EXPECT_EQ( log, ( Log{ "second:a.value=2" } ) );
}

TEST_F( ActivityManagerTest, AReactorSeesOnlyChangesMadeAfterItWasCreated ) {
   Counter::Ptr a( new Counter( "a" ) );
   Recorder early( a, &log, "early" );
   a->items.set( 1, "before" );
   Recorder late( a, &log, "late" );
   a->items.set( 2, "after" );
   loop.runUntilIdle();
   EXPECT_EQ( log, ( Log{ "early:a.item[1]", "early:a.item[2]", "late:a.item[2]" } ) );
}

TEST_F( ActivityManagerTest, AReactorMayHoldTheLastReferenceToItsEntity ) {
   auto r =
       std::make_unique<Recorder>( Counter::Ptr( new Counter( "only" ) ), &log, "r" );
   r.reset();  // leaves the entity before releasing it (the sanitizer build checks)
   SUCCEED();
}

TEST_F( ActivityManagerTest, PostedCallsRunInOrderWithChanges ) {
   Counter::Ptr a( new Counter( "a" ) );
   Recorder r( a, &log, "r" );
   a->valueIs( 1 );
   loop.post( [&] {
      log.push_back( "posted" );
      a->valueIs( 2 );
   } );
   a->valueIs( 3 );
   loop.runUntilIdle();
   EXPECT_EQ( log, ( Log{ "r:a.value=3", "posted", "r:a.value=2", "r:a.value=2" } ) )
       << "a reaction sees the value as it is when the change is delivered";
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

TEST_F( ActivityManagerTest, ANotifiedEntityLivesUntilDelivery ) {
   Log seen;
   {
      Counter::Ptr a( new Counter( "gone" ) );
      auto r = std::make_unique<Recorder>( a, &seen, "r" );
      a->valueIs( 5 );
      EXPECT_EQ( a->references(), 3 );  // ours, the reactor's, the queued change's
      r.reset();
   }
   EXPECT_EQ( loop.pendingNotifications(), 1u );
   loop.runUntilIdle();
   EXPECT_TRUE( seen.empty() );
   EXPECT_EQ( loop.pendingNotifications(), 0u );
}

// A task reactor that logs each run with the virtual time and reschedules itself.
class Ticker : public Fwk::ReactorOn<Quay::TimerTask, Log> {
public:
   Ticker( Quay::TimerTask::Ptr const& t, Log* log, double period )
       : ReactorOn( t, log ), period_( period ) {
      hasNotificationActiveIs( true );
   }
   void onAttribute( AttributeId attr, KeyRef ) override {
      if ( attr != Quay::Task::run ) {
         return;
      }
      EXPECT_TRUE( notifier()->taskCurrentlyRunning() );
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

TEST_F( ActivityManagerTest, TimersFireOnTheVirtualClockInDueAndPriorityOrder ) {
   auto scheduler = Quay::TaskSchedulerRoot::findOrCreateScheduler();
   EXPECT_EQ( scheduler, Quay::TaskSchedulerRoot::findOrCreateScheduler() );
   auto poll = Quay::TimerTask::TimerTaskIs( scheduler, "poll", 3 );
   auto low = Quay::TimerTask::TimerTaskIs( scheduler, "low", 1 );
   auto high = Quay::TimerTask::TimerTaskIs( scheduler, "high", 5 );
   Ticker tp( poll, &log, 10.0 ), tl( low, &log, 0 ), th( high, &log, 0 );
   for ( auto const& t : { poll, low, high } ) {
      t->enabledIs( true );
   }
   poll->scheduleTaskDelay( 10.0 );
   low->scheduleTaskDelay( 20.0 );
   high->scheduleTaskDelay( 20.0 );

   loop.runUntilIdle();
   EXPECT_TRUE( log.empty() ) << "nothing is due at time 0";
   EXPECT_FALSE( poll->taskCurrentlyRunning() );

   loop.advance( 35.5 );
   EXPECT_EQ( clock->now(), 35.5 );
   EXPECT_EQ( log, ( Log{ "poll@10", "high@20", "poll@20", "low@20", "poll@30" } ) );
   EXPECT_EQ( loop.nextTimerDue(), 40.0 );
}

TEST_F( ActivityManagerTest, ReschedulingReplacesAndSwitchingOffSkipsARun ) {
   auto scheduler = Quay::TaskSchedulerRoot::findOrCreateScheduler();
   auto task = Quay::TimerTask::TimerTaskIs( scheduler, "t", 3 );
   Ticker ticker( task, &log, 0 );
   task->enabledIs( true );
   task->scheduleTaskDelay( 5.0 );
   task->scheduleTaskDelay( 8.0 );  // replaces the run at 5
   loop.advance( 10.0 );
   EXPECT_EQ( log, ( Log{ "t@8" } ) );

   task->scheduleTaskDelay( 1.0 );
   task->enabledIs( false );
   loop.advance( 5.0 );
   EXPECT_EQ( log.size(), 1u ) << "a task that is off when due does not run";

   task->enabledIs( true );
   task->scheduleTaskDelay( 1.0 );
   task->cancel();
   loop.advance( 5.0 );
   EXPECT_EQ( log.size(), 1u );
   EXPECT_LT( loop.nextTimerDue(), 0.0 );
}

TEST_F( ActivityManagerTest, ATurnRunsWhatWasQueuedWhenItBeganAndLeavesTheRest ) {
   Counter::Ptr a( new Counter( "a" ) );
   Recorder r( a, &log, "r" );
   // A call that queues its own continuation, as a yielding command does.
   std::function<void( int )> slice = [&]( int n ) {
      log.push_back( "slice" + std::to_string( n ) );
      if ( n < 2 ) {
         loop.post( [&, n] { slice( n + 1 ); } );
      }
   };
   loop.post( [&] { slice( 0 ); } );
   a->valueIs( 1 );
   EXPECT_EQ( loop.runTurn(), 2u );
   EXPECT_EQ( log, ( Log{ "slice0", "r:a.value=1" } ) );
   a->valueIs( 2 );
   EXPECT_EQ( loop.runTurn(), 2u );
   EXPECT_EQ( log, ( Log{ "slice0", "r:a.value=1", "slice1", "r:a.value=2" } ) );
   EXPECT_EQ( loop.runTurn(), 1u );
   EXPECT_EQ( loop.runTurn(), 0u ) << "nothing left: the turn does nothing";
   EXPECT_EQ( log.back(), "slice2" );
}

// Changes a timer run makes are delivered before the next timer fires.
TEST_F( ActivityManagerTest, TurnsFireTimersInTheOrderRunUntilIdleWould ) {
   Counter::Ptr a( new Counter( "a" ) );
   Recorder r( a, &log, "r" );
   auto scheduler = Quay::TaskSchedulerRoot::findOrCreateScheduler();
   auto first = Quay::TimerTask::TimerTaskIs( scheduler, "first", 3 );
   auto second = Quay::TimerTask::TimerTaskIs( scheduler, "second", 1 );
   Ticker t1( first, &log, 0 ), t2( second, &log, 0 );
   struct Bump : Fwk::ReactorOn<Quay::TimerTask, Counter> {
      Bump( Quay::TimerTask::Ptr const& t, Counter* c ) : ReactorOn( t, c ) {
         hasNotificationActiveIs( true );
      }
      void onAttribute( AttributeId, KeyRef ) override {
         owner()->valueIs( owner()->valueGet() + 1 );
      }
   } b1( first, a.ptr() ), b2( second, a.ptr() );
   for ( auto const& task : { first, second } ) {
      task->enabledIs( true );
      task->scheduleTaskDelay( 1.0 );
   }
   EXPECT_EQ( loop.runTurn(), 0u ) << "not due yet";
   clock->nowIs( 1.0 );
   std::vector<std::size_t> turns;
   while ( std::size_t done = loop.runTurn() ) {
      turns.push_back( done );
   }
   EXPECT_EQ( log, ( Log{ "first@1", "r:a.value=1", "second@1", "r:a.value=2" } ) );
   EXPECT_EQ( turns, ( std::vector<std::size_t>{ 1, 1, 1, 1 } ) )
       << "a timer fires only in a turn with nothing queued";
}

}  // namespace

// Keys that a queued change cannot keep in place (a string) are kept on the heap: the
// reactor sees each one whole, after the caller's copy is gone, in order.
TEST( ActivityManagerKeys, KeysKeptOnTheHeapReachTheReactorWhole ) {
   Fwk::Ptr<Fwk::VirtualClock> clock( new Fwk::VirtualClock );
   Fwk::ScopedActivityManager scope( clock );
   struct Names : Fwk::Entity {
      Names() : Entity( "names" ) {}
      Fwk::Collection<std::string, int, std::map<std::string, int>> byName{ this, 1 };
   };
   struct Seen : Fwk::ReactorOn<Names, Log> {
      Seen( Fwk::Ptr<Names> const& n, Log* log ) : ReactorOn( n, log ) {
         hasNotificationActiveIs( true );
      }
      void onAttribute( AttributeId, KeyRef key ) override {
         owner()->push_back( ( key.removed() ? "-" : "+" ) + key.as<std::string>() );
      }
   };
   Fwk::Ptr<Names> names( new Names );
   Log log;
   Seen seen( names, &log );
   {
      std::string const longName( 40, 'n' );  // past any in-place storage of a string
      names->byName.set( longName, 1 );
      names->byName.set( "short", 2 );
      names->byName.del( longName );
   }
   scope.manager().runUntilIdle();
   EXPECT_EQ( log, ( Log{ "+" + std::string( 40, 'n' ), "+short",
                          "-" + std::string( 40, 'n' ) } ) );
}
