#include "platform/fwk/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Fwk {

namespace {
AssertionHook assertionHook = nullptr;
}  // namespace

void assertionHookIs( AssertionHook hook ) {
   assertionHook = hook;
}

void assertionFailed( char const* text, char const* file, int line,
                      char const* function ) {
   char message[1024];
   std::snprintf( message, sizeof( message ), "%s:%d: %s: Assertion `%s' failed.", file,
                  line, function, text );
   std::fprintf( stderr, "%s\n", message );
   std::fflush( stderr );
   if ( AssertionHook const hook = assertionHook ) {
      assertionHook = nullptr;  // an assertion inside the hook aborts at once
      hook( message );
   }
   std::abort();
}

}  // namespace Fwk
