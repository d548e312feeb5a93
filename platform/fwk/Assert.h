#pragma once

// Assertions that stop the process.
//
// A broken expectation is a programming error: the process prints where it broke and
// the expectation's text to standard error and aborts; the platform restarts the agent.
// FWK_ASSERT prints the condition as written, so conditions are written the way their
// failure text must read. FWK_ASSERT_TEXT prints a text of the caller's choosing.

#include <stdexcept>
#include <string>

namespace Fwk {

[[noreturn]] void assertionFailed( char const* text, char const* file, int line,
                                   char const* function );

// Called with the failure's line (without its newline) after it is printed and before
// the process aborts, so that a host can say what stopped it and clean up; a hook may
// end the process itself. One hook at a time; null removes it.
typedef void ( *AssertionHook )( char const* line );
void assertionHookIs( AssertionHook hook );

// The range error of bounded values (an index or number outside its bounds).
class RangeException : public std::range_error {
public:
   explicit RangeException( std::string const& message ) : std::range_error( message ) {}
};

}  // namespace Fwk

#define FWK_ASSERT( cond )                                              \
   do {                                                                 \
      if ( !( cond ) ) {                                                \
         ::Fwk::assertionFailed( #cond, __FILE__, __LINE__, __func__ ); \
      }                                                                 \
   } while ( 0 )

#define FWK_ASSERT_TEXT( cond, text )                                  \
   do {                                                                \
      if ( !( cond ) ) {                                               \
         ::Fwk::assertionFailed( text, __FILE__, __LINE__, __func__ ); \
      }                                                                \
   } while ( 0 )
