#pragma once

// The event loop of the agent: clocks, the notification queue and timers.
//
// One ActivityManager is current per process (activityManager()); entities queue their
// changes on it and timers are scheduled on it. Its loop delivers queued changes first,
// oldest first, then fires the earliest due timer, and repeats. A timer's run is a
// reaction like any other: changes made inside it are delivered after it returns.
//
// Time comes from a Clock. On a VirtualClock, runUntil() jumps the clock to each due
// timer in turn, so waiting costs no wall time; on a RealClock it sleeps. Among timers
// due at the same time, the one of higher priority fires first, then the one scheduled
// first.

#include <deque>
#include <functional>
#include <memory>
#include <queue>
#include <vector>

#include "platform/fwk/Entity.h"
#include "platform/fwk/Ptr.h"
#include "platform/fwk/Types.h"

namespace Fwk {

class Clock : public PtrInterface {
public:
   typedef Fwk::Ptr<Clock> Ptr;
   virtual Seconds now() const = 0;
   // True when the clock may be moved forward by the loop instead of waited for.
   virtual bool isVirtual() const = 0;
   // Moves a virtual clock forward; a real clock ignores it.
   virtual void nowIs( Seconds ) {}
};

class VirtualClock : public Clock {
public:
   Seconds now() const override { return now_; }
   bool isVirtual() const override { return true; }
   void nowIs( Seconds t ) override {
      if ( t > now_ ) {
         now_ = t;
      }
   }

private:
   Seconds now_ = 0.0;
};

// Seconds since the clock was made, from the monotonic clock of the system.
class RealClock : public Clock {
public:
   RealClock();
   Seconds now() const override;
   bool isVirtual() const override { return false; }

private:
   double start_;
};

// Something the loop fires when it is due. Scheduling again replaces the earlier due
// time; cancel() drops it. A scheduled timer is kept alive by the loop until it fires.
class Timer : public Entity {
public:
   typedef Fwk::Ptr<Timer> Ptr;

   bool isScheduled() const { return scheduled_; }
   Seconds dueTime() const { return due_; }
   int priority() const { return priority_; }
   void cancel();

protected:
   Timer( std::string name, int priority )
       : Entity( std::move( name ) ), priority_( priority ) {}
   void scheduleAt( Seconds due );
   // Runs when due, from the loop.
   virtual void onDue() = 0;

private:
   friend class ActivityManager;
   int priority_;
   Seconds due_ = 0.0;
   bool scheduled_ = false;
   U64 generation_ = 0;
};

class ActivityManager {
public:
   explicit ActivityManager( Clock::Ptr clock );
   ~ActivityManager();
   ActivityManager( ActivityManager const& ) = delete;
   ActivityManager& operator=( ActivityManager const& ) = delete;

   Clock* clock() const { return clock_.ptr(); }
   Clock::Ptr clockPtr() const { return clock_; }

   // Delivers every queued change and fires every timer due now, until nothing is left
   // to do at the current time. Returns the number of deliveries and timer runs.
   std::size_t runUntilIdle();
   // One turn of the loop, for a host that does other work between turns (a server
   // polling its sockets): delivers the changes and calls queued when the turn begins
   // (what they queue waits for the next turn) or, when none were queued, fires the
   // earliest timer due now. Turns taken until none does anything run everything in
   // the order runUntilIdle() would. Returns the number of deliveries and timer runs.
   std::size_t runTurn();
   // As runUntilIdle(), then moves time on to `t`, firing timers as they fall due.
   void runUntil( Seconds t );
   void advance( Seconds dt ) { runUntil( clock_->now() + dt ); }

   // Queues a call to run from the loop, in order with queued changes (mount completion
   // and other deferred work of the platform).
   void post( std::function<void()> call );

   bool idle() const;
   // The number of changes queued so far; a change's number orders it against the
   // creation of reactors.
   U64 changeCount() const { return changeCount_; }
   std::size_t pendingNotifications() const { return queue_.size(); }
   // Due time of the earliest scheduled timer, or a negative value when none is.
   Seconds nextTimerDue();

private:
   friend class Entity;
   friend class Timer;
   // A queued change of an entity, or a posted call (entity null).
   struct Notification {
      PtrConst<Entity> entity;
      AttributeId attr;
      StoredKey key;
      std::function<void()> call;
      U64 sequence;
   };
   struct Scheduled {
      Seconds due;
      int priority;
      U64 sequence;
      U64 generation;
      Timer::Ptr timer;
   };
   struct Later {
      bool operator()( Scheduled const& a, Scheduled const& b ) const;
   };

   void enqueue( Notification n ) {
      n.sequence = ++changeCount_;
      queue_.push_back( std::move( n ) );
   }
   void schedule( Timer* timer );
   bool deliverOne();
   bool fireOneDue( Seconds now );
   void dropStaleTimers();

   Clock::Ptr clock_;
   std::deque<Notification> queue_;
   std::priority_queue<Scheduled, std::vector<Scheduled>, Later> timers_;
   U64 sequence_ = 0;
   U64 changeCount_ = 0;
   bool running_ = false;
};

// The process's current manager. Until one is installed, a manager on a VirtualClock
// is made on first use.
ActivityManager& activityManager();
// Installs `manager` as current (null restores the default) and returns the previous.
ActivityManager* activityManagerIs( ActivityManager* manager );

// Installs a manager for the life of a scope (tests, tools), then restores the previous.
class ScopedActivityManager {
public:
   explicit ScopedActivityManager( Clock::Ptr clock );
   ~ScopedActivityManager();
   ActivityManager& manager() { return manager_; }

private:
   ActivityManager manager_;
   ActivityManager* previous_;
};

}  // namespace Fwk
