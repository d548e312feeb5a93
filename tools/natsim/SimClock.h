#pragma once

// natsim's clock. While a scenario plays it is virtual: it stands still until the loop
// moves it to the next due timer (an advance step). followRealTime() hands it over to
// real time: from then on it runs on from the time it showed, one second a second, so
// timers fall due as the wall clock passes. It can still be moved forward at once
// (nowIs(), so isVirtual() stays true): an advance step served after the scenario
// jumps ahead without sleeping, and real time runs on from there.

#include "platform/fwk/ActivityManager.h"

namespace natsim {

class SimClock : public Fwk::Clock {
public:
   typedef Fwk::Ptr<SimClock> Ptr;

   Fwk::Seconds now() const override;
   // The loop may move it forward instead of waiting, in both modes.
   bool isVirtual() const override { return true; }
   // Moves the clock forward to `t`; a time before now is ignored.
   void nowIs( Fwk::Seconds t ) override;

   bool realTime() const { return realTime_; }
   // From now on the clock follows real time, starting from the time it shows.
   void followRealTime();

private:
   bool realTime_ = false;
   // Virtual: the time shown. Real time: the time shown minus the monotonic clock.
   Fwk::Seconds base_ = 0.0;
};

}  // namespace natsim
