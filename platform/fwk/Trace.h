#pragma once

// The trace facility: named trace handles with levels 0 to 9, switched on by a setting.
//
// A handle is usually a file-static of a source: `static Fwk::TraceHandle th( "Api" );`.
// Every handle object of one name shares one state, so the handles of all source files
// of a library switch together. Checking a level reads one mask and costs almost
// nothing, so traces may sit on hot paths; FWK_TRACE formats its message only when the
// level is on.
//
// The setting is a comma-separated list of items:
//   Name/levels   starts handle Name and enables `levels`: a number, a range a-b or *
//   levels        a number, range or * after a handle adds levels to that handle
//   Name          enables every level of Name
//   *             as a name, means every handle ("*" alone: every level of every handle)
// e.g. "ApiCorvane/0,4,8,Other/*". It is read from the environment variable TRACE at
// first use and replaced with traceSettingIs(); a new setting replaces the old one for
// every handle, including handles registered later. A trace setting must never stop
// the agent: malformed items (an unknown level, a reversed range, levels before any
// handle, an empty name) are ignored. "Name/junk" still starts handle Name; the levels
// after an item with an empty name are dropped rather than given to an earlier handle.
//
// Trace lines go to a replaceable sink; the default sink writes
// "<handle>/<level> <function><message>" to standard error. Handles, the setting and
// the sink may be used from any thread; the sink is called without any lock held.

#include <atomic>
#include <functional>
#include <sstream>
#include <string>
#include <utility>

#include "platform/fwk/Types.h"

namespace Fwk {

int const traceLevelMax = 9;

// The state shared by every handle of one name; owned by the facility, never freed.
struct TraceHandleState {
   explicit TraceHandleState( std::string n ) : name( std::move( n ) ) {}
   std::string const name;
   // Bit n set when level n is on.
   std::atomic<U16> levels{ 0 };
};

class TraceHandle {
public:
   explicit TraceHandle( std::string const& name );

   std::string const& name() const { return state_->name; }
   bool enabled( int level ) const {
      return static_cast<unsigned>( level ) <= static_cast<unsigned>( traceLevelMax ) &&
             ( state_->levels.load( std::memory_order_relaxed ) & ( 1u << level ) ) != 0;
   }

private:
   TraceHandleState* state_;
};

// One trace line as the sink receives it.
struct TraceRecord {
   std::string handle;
   int level = 0;
   std::string function;
   std::string message;
   // The text of the line: the function text immediately followed by the message.
   std::string line() const { return function + message; }
};

typedef std::function<void( TraceRecord const& )> TraceSink;

// Installs `sink` (an empty one restores the default) and returns the previous sink.
TraceSink traceSinkIs( TraceSink sink );

// Replaces the setting (see above) and applies it to every handle.
void traceSettingIs( std::string const& setting );
// The current setting text, as given.
std::string traceSetting();
// What is wrong with `setting` for a user who wrote it: its first item that would be
// ignored (malformed levels, levels before any handle, an empty name) or that names a
// handle nobody has made yet; empty when every item applies.
std::string traceSettingFault( std::string const& setting );

// Sends a trace line to the sink, whether or not the level is on (FWK_TRACE checks).
void traceEmit( TraceHandle const& handle, int level, std::string function,
                std::string message );

}  // namespace Fwk

// Traces `message`, a stream-insertion chain such as `" ready " << ready`, when `level`
// of `handle` is on; booleans print as true/false. The message is not evaluated when the
// level is off. `message` stays unparenthesised so that the chain continues the stream.
#define FWK_TRACE( handle, level, function, message )                     \
   do {                                                                   \
      ::Fwk::TraceHandle const& fwkTraceHandle_ = ( handle );             \
      int const fwkTraceLevel_ = ( level );                               \
      if ( fwkTraceHandle_.enabled( fwkTraceLevel_ ) ) {                  \
         std::ostringstream fwkTraceStream_;                              \
         fwkTraceStream_ << std::boolalpha << message;                    \
         ::Fwk::traceEmit( fwkTraceHandle_, fwkTraceLevel_, ( function ), \
                           fwkTraceStream_.str() );                       \
      }                                                                   \
   } while ( 0 )

// As FWK_TRACE, with the name of the enclosing function as the function text.
#define FWK_TRACE_FN( handle, level, message ) \
   FWK_TRACE( handle, level, __func__, message )
