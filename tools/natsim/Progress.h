#pragma once

// Progress of a long run on a terminal: once a run has taken a second, standard error
// shows "natsim: step N of M", rewritten in place a few times a second, and the line is
// cleared when the run is over. Nothing is shown when standard error is not a terminal.

#include <chrono>
#include <cstddef>

namespace natsim {

class Progress {
public:
   explicit Progress( std::size_t total );
   // Clears the progress line, if one was shown.
   ~Progress();
   Progress( Progress const& ) = delete;
   Progress& operator=( Progress const& ) = delete;

   void played( std::size_t steps );

private:
   typedef std::chrono::steady_clock Clock;

   std::size_t const total_;
   bool const terminal_;
   Clock::time_point const start_;
   Clock::time_point next_;
   bool shown_ = false;
};

}  // namespace natsim
