#include "tools/natsim/Progress.h"

#include <unistd.h>

#include <cstdio>

namespace natsim {

namespace {

constexpr std::chrono::seconds quiet( 1 );
constexpr std::chrono::milliseconds interval( 200 );

}  // namespace

Progress::Progress( std::size_t total )
    : total_( total ),
      terminal_( ::isatty( STDERR_FILENO ) == 1 ),
      start_( Clock::now() ),
      next_( start_ + quiet ) {}

Progress::~Progress() {
   if ( shown_ ) {
      std::fputs( "\r\033[K", stderr );
      std::fflush( stderr );
   }
}

void Progress::played( std::size_t steps ) {
   if ( !terminal_ ) {
      return;
   }
   Clock::time_point const now = Clock::now();
   if ( now < next_ ) {
      return;
   }
   next_ = now + interval;
   shown_ = true;
   std::fprintf( stderr, "\rnatsim: step %zu of %zu", steps, total_ );
   std::fflush( stderr );
}

}  // namespace natsim
