#pragma once

// The log-event registry: the events a component may log, registered by name, and
// raising them.
//
// A component registers each of its events once per process, from a static initialiser
// (LogEventRegistration). A definition holds the severity, a printf-like message format,
// an explanation and a recommended action for the people who read the log, and four
// rate-limit parameters kept as registered for the tools that show definitions; the
// registry does not throttle, every raise reaches the sink. Registering a name again
// keeps the first definition unchanged, so two libraries that carry the same
// registration do not fight over it.
//
// Raising an event formats its message: each conversion of the format (a '%', then
// flags, width, precision and length, ending at a conversion letter, e.g. %s, %d, %08x,
// %llu) is replaced by the next argument text, in order; "%%" gives "%". A missing
// argument gives an empty text and extra arguments are ignored. A '%' that does not
// start a conversion is kept as it is. The record goes to a replaceable sink (the
// default writes "%NAME: message" to standard error) and the raise is counted. Raising
// an unregistered name is a programming error and stops the process.

#include <functional>
#include <string>
#include <vector>

#include "platform/fwk/Types.h"

namespace Fwk {

// Standard recommended actions.
inline constexpr char logNoActionRequired[] = "No action is required.";
inline constexpr char logContactSupportIfPersists[] =
    "If this message appears repeatedly, contact your customer support representative.";

struct LogEventDefinition {
   std::string name;
   int severity = 0;
   std::string format;
   std::string explanation;
   std::string recommendedAction;
   // Rate-limit parameters, as registered.
   double firstRate = 0.0;
   double secondRate = 0.0;
   U32 firstCount = 0;
   U32 secondCount = 0;
};

// Registers an event; returns false, keeping the first definition, when the name is
// already registered.
bool logEventIs( LogEventDefinition definition );
// The definition of `name`, or null when it is unknown. Definitions are never removed,
// so the pointer stays valid.
LogEventDefinition const* logEvent( std::string const& name );
// Every definition, by name.
std::vector<LogEventDefinition> logEvents();

// Registers an event from a static initialiser:
//   static Fwk::LogEventRegistration natFull( "NAT_HW_FULL", 3, "... <%s>", "...",
//                                             Fwk::logContactSupportIfPersists,
//                                             0.0, 1.0, 0, 0 );
struct LogEventRegistration {
   LogEventRegistration( std::string name, int severity, std::string format,
                         std::string explanation, std::string recommendedAction,
                         double firstRate, double secondRate, U32 firstCount,
                         U32 secondCount );
};

// One raised event as the sink receives it.
struct LogRecord {
   std::string name;
   int severity = 0;
   std::string message;
};

typedef std::function<void( LogRecord const& )> LogSink;

// Installs `sink` (an empty one restores the default) and returns the previous sink.
LogSink logSinkIs( LogSink sink );

// Raises the registered event `name` with the argument texts of its format.
void logEventRaise( std::string const& name, std::vector<std::string> const& args );
// How often `name` has been raised in this process; 0 for an unknown name.
U64 raiseCount( std::string const& name );

}  // namespace Fwk
