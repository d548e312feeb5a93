#pragma once

// The convention of every SDK call of the plug-in.
//
// CORVANE_SDK( name, args... ) calls Shim::sdk_->name( args... ) with the activity lock
// given up (the shim takes its own lock inside), then checks the return code: a negative
// code writes "<file>:<line> <call text> API ERROR:<SDK error text> (rc:<code>)" to
// standard error and stops the process on the assertion "0" (there is no retry);
// success traces the call text and " (rc:<code>)" at level 4 under the calling
// function's name. The call text is the call expression itself, stringized:
// "name( args... )", e.g. "soc_reg32_get( unit, reg, REG_PORT_ANY, 0, &val )"; so the
// arguments are written the way the text reads (local names for the SDK's run-time
// values where needed). CORVANE_SDK_TOLERATING( rc, name, args... ) accepts the code
// `rc` silently. CORVANE_SDK_READ( name, args... ) is a read-back: it only traces the
// text with " (rv:<code>)" and gives the code to the caller.

#include "CorvaneNat/NatTrace.h"
#include "platform/fwk/ActivityLock.h"

namespace Corvane {

// Checks one SDK call's return code as described above; returns it.
int sdkCallDone( int rc, char const* callText, char const* file, int line,
                 char const* function );
// sdkCallDone, inline for the common case: most calls succeed untraced, and every entry
// makes a dozen of them.
inline int sdkCallChecked( int rc, char const* callText, char const* file, int line,
                           char const* function ) {
   if ( rc < 0 || traceHandle().enabled( 4 ) ) {
      return sdkCallDone( rc, callText, file, line, function );
   }
   return rc;
}
// As sdkCallDone, except that the code `tolerated` is accepted silently.
int sdkCallDoneTolerating( int rc, int tolerated, char const* callText, char const* file,
                           int line, char const* function );
// Traces a read-back's text with " (rv:<code>)" at level 4; returns the code.
int sdkReadDone( int rv, char const* callText, char const* function );

}  // namespace Corvane

// The SDK call of name( args... ), made with the activity lock given up.
#define CORVANE_SDK_INVOKE_( name, ... )                  \
   [&]() {                                                \
      ::Fwk::ActivityLockRelease corvaneActivityRelease_; \
      return ::Shim::sdk_->name( __VA_ARGS__ );           \
   }()

#define CORVANE_SDK( name, ... ) CORVANE_SDK_AS( __func__, name, __VA_ARGS__ )

// CORVANE_SDK traced under the name `function` rather than the calling function's.
#define CORVANE_SDK_AS( function, name, ... )                                   \
   ::Corvane::sdkCallChecked( CORVANE_SDK_INVOKE_( name, __VA_ARGS__ ),         \
                              #name "( " #__VA_ARGS__ " )", __FILE__, __LINE__, \
                              ( function ) )

#define CORVANE_SDK_TOLERATING( tolerated, name, ... )                            \
   ::Corvane::sdkCallDoneTolerating( CORVANE_SDK_INVOKE_( name, __VA_ARGS__ ),    \
                                     ( tolerated ), #name "( " #__VA_ARGS__ " )", \
                                     __FILE__, __LINE__, __func__ )

#define CORVANE_SDK_READ( name, ... )                                \
   ::Corvane::sdkReadDone( CORVANE_SDK_INVOKE_( name, __VA_ARGS__ ), \
                           #name "( " #__VA_ARGS__ " )", __func__ )
