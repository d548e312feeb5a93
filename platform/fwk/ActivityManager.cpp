#include "platform/fwk/ActivityManager.h"

#include "platform/fwk/ActivityLock.h"

#include <chrono>
#include <thread>

namespace Fwk {

namespace {

double monotonicSeconds() {
   using namespace std::chrono;
   return duration<double>( steady_clock::now().time_since_epoch() ).count();
}

ActivityManager* current = nullptr;

}  // namespace

RealClock::RealClock() : start_( monotonicSeconds() ) {}

Seconds RealClock::now() const {
   return monotonicSeconds() - start_;
}

void Timer::scheduleAt( Seconds due ) {
   due_ = due;
   scheduled_ = true;
   ++generation_;
   activityManager().schedule( this );
}

void Timer::cancel() {
   scheduled_ = false;
   ++generation_;
}

bool ActivityManager::Later::operator()( Scheduled const& a, Scheduled const& b ) const {
   if ( a.due != b.due ) {
      return a.due > b.due;
   }
   if ( a.priority != b.priority ) {
      return a.priority < b.priority;
   }
   return a.sequence > b.sequence;
}

ActivityManager::ActivityManager( Clock::Ptr clock ) : clock_( std::move( clock ) ) {
   FWK_ASSERT( clock_ );
}

ActivityManager::~ActivityManager() = default;

void ActivityManager::schedule( Timer* timer ) {
   timers_.push( Scheduled{ timer->due_, timer->priority_, ++sequence_,
                            timer->generation_, Timer::Ptr( timer ) } );
}

void ActivityManager::dropStaleTimers() {
   while ( !timers_.empty() ) {
      Scheduled const& top = timers_.top();
      if ( top.timer->scheduled_ && top.generation == top.timer->generation_ ) {
         return;
      }
      timers_.pop();
   }
}

Seconds ActivityManager::nextTimerDue() {
   dropStaleTimers();
   return timers_.empty() ? -1.0 : timers_.top().due;
}

void ActivityManager::post( std::function<void()> call ) {
   queue_.push_back( Notification{ nullptr, 0, StoredKey(), std::move( call ), 0 } );
}

bool ActivityManager::idle() const {
   return queue_.empty();
}

bool ActivityManager::deliverOne() {
   if ( queue_.empty() ) {
      return false;
   }
   Notification n = std::move( queue_.front() );
   queue_.pop_front();
   if ( n.entity ) {
      n.entity->deliver( n.attr, n.key.ref(), n.sequence );
   } else {
      n.call();
   }
   return true;
}

bool ActivityManager::fireOneDue( Seconds now ) {
   dropStaleTimers();
   if ( timers_.empty() || timers_.top().due > now ) {
      return false;
   }
   Timer::Ptr timer = timers_.top().timer;
   timers_.pop();
   timer->scheduled_ = false;
   timer->onDue();
   return true;
}

ActivityLock& ActivityLock::instance() {
   static ActivityLock lock;
   return lock;
}

std::size_t ActivityManager::runUntilIdle() {
   FWK_ASSERT_TEXT( !running_, "the event loop does not run inside a reaction" );
   running_ = true;
   ActivityLock::instance().take();
   std::size_t done = 0;
   for ( ;; ) {
      if ( deliverOne() ) {
         ++done;
         continue;
      }
      if ( fireOneDue( clock_->now() ) ) {
         ++done;
         continue;
      }
      break;
   }
   ActivityLock::instance().give();
   running_ = false;
   return done;
}

std::size_t ActivityManager::runTurn() {
   FWK_ASSERT_TEXT( !running_, "the event loop does not run inside a reaction" );
   running_ = true;
   ActivityLock::instance().take();
   std::size_t done = 0;
   for ( std::size_t queued = queue_.size(); done < queued; ++done ) {
      deliverOne();
   }
   if ( done == 0 && fireOneDue( clock_->now() ) ) {
      done = 1;
   }
   ActivityLock::instance().give();
   running_ = false;
   return done;
}

void ActivityManager::runUntil( Seconds t ) {
   runUntilIdle();
   for ( ;; ) {
      Seconds due = nextTimerDue();
      if ( due < 0 || due > t ) {
         break;
      }
      if ( clock_->isVirtual() ) {
         clock_->nowIs( due );
      } else {
         Seconds wait = due - clock_->now();
         if ( wait > 0 ) {
            std::this_thread::sleep_for( std::chrono::duration<double>( wait ) );
         }
      }
      runUntilIdle();
   }
   if ( clock_->isVirtual() ) {
      clock_->nowIs( t );
   } else {
      Seconds wait = t - clock_->now();
      if ( wait > 0 ) {
         std::this_thread::sleep_for( std::chrono::duration<double>( wait ) );
      }
   }
   runUntilIdle();
}

ActivityManager& activityManager() {
   if ( !current ) {
      static ActivityManager fallback( Clock::Ptr( new VirtualClock ) );
      current = &fallback;
   }
   return *current;
}

ActivityManager* activityManagerIs( ActivityManager* manager ) {
   ActivityManager* previous = current;
   current = manager;
   return previous;
}

ScopedActivityManager::ScopedActivityManager( Clock::Ptr clock )
    : manager_( std::move( clock ) ), previous_( activityManagerIs( &manager_ ) ) {}

ScopedActivityManager::~ScopedActivityManager() {
   activityManagerIs( previous_ );
}

}  // namespace Fwk
