#pragma once

// The activity lock: held by the event loop while it delivers changes and runs timers,
// so that other threads of the agent (none in the simulator) never see a reaction half
// done. Code that waits on something slow, such as an SDK call, gives the lock up for
// that time with ActivityLockRelease. Giving up a lock that is not held does nothing, so
// the same code also runs outside the loop (tests, tools).

#include <mutex>

namespace Fwk {

class ActivityLock {
public:
   static ActivityLock& instance();

   bool held() const { return held_; }
   void take() {
      mutex_.lock();
      held_ = true;
   }
   void give() {
      held_ = false;
      mutex_.unlock();
   }

private:
   std::mutex mutex_;
   bool held_ = false;
};

// Gives the activity lock up for the life of the object, if it is held.
class ActivityLockRelease {
public:
   ActivityLockRelease() : lock_( ActivityLock::instance() ), released_( lock_.held() ) {
      if ( released_ ) {
         lock_.give();
      }
   }
   ~ActivityLockRelease() {
      if ( released_ ) {
         lock_.take();
      }
   }
   ActivityLockRelease( ActivityLockRelease const& ) = delete;
   ActivityLockRelease& operator=( ActivityLockRelease const& ) = delete;

private:
   ActivityLock& lock_;
   bool released_;
};

}  // namespace Fwk
