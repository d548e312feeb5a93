#include "platform/fwk/Trace.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace Fwk {

namespace {

U16 const allLevels = ( 1u << ( traceLevelMax + 1 ) ) - 1;

U16 levelBit( int level ) {
   return static_cast<U16>( 1u << level );
}

// The levels the setting gives to one name; "*" stands for every name.
struct TraceRule {
   std::string name;
   U16 levels;
};

std::string trimmed( std::string const& text ) {
   auto const first = text.find_first_not_of( " \t" );
   if ( first == std::string::npos ) {
      return std::string();
   }
   auto const last = text.find_last_not_of( " \t" );
   return text.substr( first, last - first + 1 );
}

std::vector<std::string> items( std::string const& text ) {
   std::vector<std::string> result;
   std::string::size_type start = 0;
   for ( ;; ) {
      auto const comma = text.find( ',', start );
      result.push_back( trimmed( text.substr( start, comma - start ) ) );
      if ( comma == std::string::npos ) {
         return result;
      }
      start = comma + 1;
   }
}

// True for the text of a level item (digits, '-' or "*"), well formed or not.
bool isLevelText( std::string const& text ) {
   return text == "*" || text.find_first_not_of( "0123456789-" ) == std::string::npos;
}

bool levelNumber( std::string const& text, int* level ) {
   if ( text.empty() || text.size() > 2 ) {
      return false;
   }
   int value = 0;
   for ( char c : text ) {
      if ( !std::isdigit( static_cast<unsigned char>( c ) ) ) {
         return false;
      }
      value = value * 10 + ( c - '0' );
   }
   if ( value > traceLevelMax ) {
      return false;
   }
   *level = value;
   return true;
}

// The levels named by a number, a range a-b or "*"; none when malformed.
U16 levelsOf( std::string const& text ) {
   if ( text == "*" ) {
      return allLevels;
   }
   int first = 0;
   int last = 0;
   auto const dash = text.find( '-' );
   if ( dash == std::string::npos ) {
      return levelNumber( text, &first ) ? levelBit( first ) : 0;
   }
   if ( !levelNumber( trimmed( text.substr( 0, dash ) ), &first ) ||
        !levelNumber( trimmed( text.substr( dash + 1 ) ), &last ) || first > last ) {
      return 0;
   }
   U16 levels = 0;
   for ( int level = first; level <= last; ++level ) {
      levels |= levelBit( level );
   }
   return levels;
}

std::vector<TraceRule> parsedSetting( std::string const& setting ) {
   std::vector<TraceRule> rules;
   // Whether rules.back() is the handle that following level items add to.
   bool current = false;
   for ( std::string const& item : items( setting ) ) {
      auto const slash = item.find( '/' );
      if ( item.empty() ) {
         continue;
      } else if ( slash != std::string::npos ) {
         std::string name = trimmed( item.substr( 0, slash ) );
         current = !name.empty();
         if ( current ) {
            rules.push_back( { name, levelsOf( trimmed( item.substr( slash + 1 ) ) ) } );
         }
      } else if ( current && isLevelText( item ) ) {
         rules.back().levels |= levelsOf( item );
      } else if ( isLevelText( item ) && item != "*" ) {
         // Levels before any handle: nothing to add them to.
      } else {
         rules.push_back( { item, allLevels } );
         current = true;
      }
   }
   return rules;
}

void writeToStandardError( TraceRecord const& record ) {
   std::string const text =
       record.handle + "/" + std::to_string( record.level ) + " " + record.line() + "\n";
   // One write per line, so that lines of different threads do not interleave.
   std::fwrite( text.data(), 1, text.size(), stderr );
}

class TraceRegistry {
public:
   TraceRegistry() : sink_( writeToStandardError ) {
      char const* const setting = std::getenv( "TRACE" );
      settingIs( setting ? setting : "" );
   }

   TraceHandleState* state( std::string const& name ) {
      std::lock_guard<std::mutex> lock( mutex_ );
      std::unique_ptr<TraceHandleState>& state = states_[name];
      if ( !state ) {
         state = std::make_unique<TraceHandleState>( name );
         state->levels.store( levelsFor( name ), std::memory_order_relaxed );
      }
      return state.get();
   }

   void settingIs( std::string const& setting ) {
      std::lock_guard<std::mutex> lock( mutex_ );
      setting_ = setting;
      rules_ = parsedSetting( setting );
      for ( auto const& entry : states_ ) {
         entry.second->levels.store( levelsFor( entry.first ),
                                     std::memory_order_relaxed );
      }
   }

   std::string setting() {
      std::lock_guard<std::mutex> lock( mutex_ );
      return setting_;
   }

   bool hasHandle( std::string const& name ) {
      std::lock_guard<std::mutex> lock( mutex_ );
      return states_.count( name ) != 0;
   }

   TraceSink sinkIs( TraceSink sink ) {
      std::lock_guard<std::mutex> lock( mutex_ );
      TraceSink previous = std::move( sink_ );
      sink_ = sink ? std::move( sink ) : TraceSink( writeToStandardError );
      return previous;
   }

   TraceSink sink() {
      std::lock_guard<std::mutex> lock( mutex_ );
      return sink_;
   }

private:
   U16 levelsFor( std::string const& name ) const {
      U16 levels = 0;
      for ( TraceRule const& rule : rules_ ) {
         if ( rule.name == "*" || rule.name == name ) {
            levels |= rule.levels;
         }
      }
      return levels;
   }

   std::mutex mutex_;
   std::map<std::string, std::unique_ptr<TraceHandleState>> states_;
   std::string setting_;
   std::vector<TraceRule> rules_;
   TraceSink sink_;
};

TraceRegistry& registry() {
   // Never destroyed: handles may still trace while other statics are destroyed.
   static TraceRegistry* const instance = new TraceRegistry;
   return *instance;
}

}  // namespace

TraceHandle::TraceHandle( std::string const& name )
    : state_( registry().state( name ) ) {}

TraceSink traceSinkIs( TraceSink sink ) {
   return registry().sinkIs( std::move( sink ) );
}

void traceSettingIs( std::string const& setting ) {
   registry().settingIs( setting );
}

std::string traceSetting() {
   return registry().setting();
}

std::string traceSettingFault( std::string const& setting ) {
   bool current = false;
   for ( std::string const& item : items( setting ) ) {
      std::string const quoted = "\"" + item + "\"";
      auto const slash = item.find( '/' );
      std::string const name = trimmed( item.substr( 0, slash ) );
      bool const levelsOnly = slash == std::string::npos && isLevelText( item );
      if ( item.empty() || ( slash != std::string::npos && name.empty() ) ) {
         return "an item without a handle name";
      }
      if ( levelsOnly && item != "*" && !current ) {
         return quoted + ": levels before any handle";
      }
      std::string const levels = slash != std::string::npos
                                     ? trimmed( item.substr( slash + 1 ) )
                                 : levelsOnly ? item
                                              : "*";
      if ( levelsOf( levels ) == 0 ) {
         return quoted + ": \"" + levels + "\" are no levels (expected 0.." +
                std::to_string( traceLevelMax ) + ", a range a-b or *)";
      }
      if ( !levelsOnly && name != "*" && !registry().hasHandle( name ) ) {
         return quoted + ": no trace handle is named \"" + name + "\"";
      }
      current = current || !levelsOnly || item == "*";
   }
   return std::string();
}

void traceEmit( TraceHandle const& handle, int level, std::string function,
                std::string message ) {
   TraceSink const sink = registry().sink();
   sink(
       TraceRecord{ handle.name(), level, std::move( function ), std::move( message ) } );
}

}  // namespace Fwk
