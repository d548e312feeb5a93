#pragma once

// The convention of every SDK call of the plug-in.
//
// CORVANE_SDK_CALL( "call text", call ) gives up the activity lock for the call (the
// shim takes its own lock inside), then checks the return code: a negative code writes
// "<file>:<line> <call text> API ERROR:<SDK error text> (rc:<code>)" to standard error
// and stops the process on the assertion "0" (there is no retry); success traces the
// call text and " (rc:<code>)" at level 4 under the calling function's name. The call
// text is the call as the source writes it, e.g.
// "bcm_field_action_add( unit(), entryId, bcmFieldActionDropCancel, 0, 0 )".

#include "platform/fwk/ActivityLock.h"

namespace Corvane {

// Checks one SDK call's return code as described above; returns it.
int sdkCallDone( int rc, char const* callText, char const* file, int line,
                 char const* function );
// As sdkCallDone, except that the code `tolerated` is accepted silently.
int sdkCallDoneTolerating( int rc, int tolerated, char const* callText, char const* file,
                           int line, char const* function );

}  // namespace Corvane

#define CORVANE_SDK_CALL( text, call )                        \
   ::Corvane::sdkCallDone(                                    \
       [&]() {                                                \
          ::Fwk::ActivityLockRelease corvaneActivityRelease_; \
          return ( call );                                    \
       }(),                                                   \
       text, __FILE__, __LINE__, __func__ )
