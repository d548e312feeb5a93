#include "platform/fwk/LogEvent.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include "platform/fwk/Assert.h"

namespace Fwk {

namespace {

bool isConversionLetter( char c ) {
   return c != '\0' && std::strchr( "diouxXfFeEgGaAcspn", c ) != nullptr;
}

// Flags, width, precision and length: what may stand between '%' and the letter.
bool isConversionModifier( char c ) {
   return c != '\0' && std::strchr( "-+ #0123456789.*hlLqjzt", c ) != nullptr;
}

// The end of the conversion that starts with the '%' at `percent`; npos when the '%'
// starts none.
std::string::size_type conversionEnd( std::string const& format,
                                      std::string::size_type percent ) {
   for ( auto i = percent + 1; i < format.size(); ++i ) {
      if ( isConversionLetter( format[i] ) ) {
         return i + 1;
      }
      if ( !isConversionModifier( format[i] ) ) {
         return std::string::npos;
      }
   }
   return std::string::npos;
}

std::string formatted( std::string const& format, std::vector<std::string> const& args ) {
   std::string message;
   std::size_t nextArg = 0;
   std::string::size_type i = 0;
   while ( i < format.size() ) {
      auto const end = format[i] == '%' ? conversionEnd( format, i ) : std::string::npos;
      if ( format.compare( i, 2, "%%" ) == 0 ) {
         message += '%';
         i += 2;
      } else if ( end != std::string::npos ) {
         if ( nextArg < args.size() ) {
            message += args[nextArg];
         }
         ++nextArg;
         i = end;
      } else {
         message += format[i];
         ++i;
      }
   }
   return message;
}

void writeToStandardError( LogRecord const& record ) {
   std::string const text = "%" + record.name + ": " + record.message + "\n";
   std::fwrite( text.data(), 1, text.size(), stderr );
}

class LogEventRegistry {
public:
   bool eventIs( LogEventDefinition definition ) {
      std::lock_guard<std::mutex> lock( mutex_ );
      std::string const name = definition.name;
      return events_.emplace( name, Event{ std::move( definition ), 0 } ).second;
   }

   LogEventDefinition const* event( std::string const& name ) {
      std::lock_guard<std::mutex> lock( mutex_ );
      auto const i = events_.find( name );
      return i == events_.end() ? nullptr : &i->second.definition;
   }

   std::vector<LogEventDefinition> events() {
      std::lock_guard<std::mutex> lock( mutex_ );
      std::vector<LogEventDefinition> result;
      for ( auto const& entry : events_ ) {
         result.push_back( entry.second.definition );
      }
      return result;
   }

   // Counts a raise of `name` and fills in its record; false when `name` is unknown.
   bool raised( std::string const& name, std::vector<std::string> const& args,
                LogRecord* record ) {
      std::lock_guard<std::mutex> lock( mutex_ );
      auto const i = events_.find( name );
      if ( i == events_.end() ) {
         return false;
      }
      ++i->second.raises;
      LogEventDefinition const& definition = i->second.definition;
      *record =
          LogRecord{ name, definition.severity, formatted( definition.format, args ) };
      return true;
   }

   U64 raiseCount( std::string const& name ) {
      std::lock_guard<std::mutex> lock( mutex_ );
      auto const i = events_.find( name );
      return i == events_.end() ? 0 : i->second.raises;
   }

   LogSink sinkIs( LogSink sink ) {
      std::lock_guard<std::mutex> lock( mutex_ );
      LogSink previous = std::move( sink_ );
      sink_ = sink ? std::move( sink ) : LogSink( writeToStandardError );
      return previous;
   }

   LogSink sink() {
      std::lock_guard<std::mutex> lock( mutex_ );
      return sink_;
   }

private:
   struct Event {
      LogEventDefinition definition;
      U64 raises;
   };

   std::mutex mutex_;
   std::map<std::string, Event> events_;
   LogSink sink_ = writeToStandardError;
};

LogEventRegistry& registry() {
   // Never destroyed: events may still be raised while other statics are destroyed.
   static LogEventRegistry* const instance = new LogEventRegistry;
   return *instance;
}

}  // namespace

bool logEventIs( LogEventDefinition definition ) {
   return registry().eventIs( std::move( definition ) );
}

LogEventDefinition const* logEvent( std::string const& name ) {
   return registry().event( name );
}

std::vector<LogEventDefinition> logEvents() {
   return registry().events();
}

LogEventRegistration::LogEventRegistration( std::string name, int severity,
                                            std::string format, std::string explanation,
                                            std::string recommendedAction,
                                            double firstRate, double secondRate,
                                            U32 firstCount, U32 secondCount ) {
   logEventIs( LogEventDefinition{
       std::move( name ), severity, std::move( format ), std::move( explanation ),
       std::move( recommendedAction ), firstRate, secondRate, firstCount, secondCount } );
}

LogSink logSinkIs( LogSink sink ) {
   return registry().sinkIs( std::move( sink ) );
}

void logEventRaise( std::string const& name, std::vector<std::string> const& args ) {
   LogRecord record;
   bool const known = registry().raised( name, args, &record );
   FWK_ASSERT_TEXT( known, ( "raise of unregistered log event " + name ).c_str() );
   LogSink const sink = registry().sink();
   sink( record );
}

U64 raiseCount( std::string const& name ) {
   return registry().raiseCount( name );
}

}  // namespace Fwk
