#include "tools/natsim/SimClock.h"

#include <chrono>

namespace natsim {

namespace {

Fwk::Seconds monotonicSeconds() {
   using namespace std::chrono;
   return duration<double>( steady_clock::now().time_since_epoch() ).count();
}

}  // namespace

Fwk::Seconds SimClock::now() const {
   return realTime_ ? base_ + monotonicSeconds() : base_;
}

void SimClock::nowIs( Fwk::Seconds t ) {
   Fwk::Seconds const shown = now();
   if ( t > shown ) {
      base_ += t - shown;
   }
}

void SimClock::followRealTime() {
   if ( !realTime_ ) {
      base_ -= monotonicSeconds();
      realTime_ = true;
   }
}

}  // namespace natsim
