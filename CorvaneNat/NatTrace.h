#pragma once

// Tracing and log events of the NAT plug-in.
//
// Every trace line goes to the handle "ApiCorvane" with the function's name first;
// levels: 0 errors and warnings, 4 SDK results, 8 entry into handlers, 9 polling.
// The four log events are registered when the library is loaded.

#include "platform/fwk/LogEvent.h"
#include "platform/fwk/Trace.h"

namespace Corvane {

// The plug-in's trace handle, checked on every traced path: inline, so that a trace
// that is off costs a load and a test.
extern Fwk::TraceHandle const natTraceHandle;
inline Fwk::TraceHandle const& traceHandle() {
   return natTraceHandle;
}

extern char const CORVANE_CONFIG_CHANGE[];
extern char const CORVANE_UNEXPECTED_RESTART[];
extern char const CORVANE_NAT_TCAM_RESOURCE_FULL[];
extern char const CORVANENAT_TRAP_TCAM_RESOURCE_FULL[];

}  // namespace Corvane

// Traces `message` (a stream-insertion chain) under `function` at `level`.
#define NAT_TRACE( level, function, message ) \
   FWK_TRACE( ::Corvane::traceHandle(), level, function, message )
