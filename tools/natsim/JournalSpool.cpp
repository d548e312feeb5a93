#include "tools/natsim/JournalSpool.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "tools/natsim/Scenario.h"

namespace natsim {

namespace {

// The entry manager's calls; the SDK's are the ones a scenario can make fail.
char const* const entryManagerCalls[] = {
    "getEntry",     "setPriorityForEntry", "installEntry", "reinstallEntry",
    "releaseEntry", "hitsForEntry",        "claimEntry" };

bool isJournaledCall( std::string const& name ) {
   for ( char const* call : entryManagerCalls ) {
      if ( name == call ) {
         return true;
      }
   }
   for ( char const* call : sdkFailureCalls() ) {
      if ( name == call ) {
         return true;
      }
   }
   return false;
}

std::string knownCalls() {
   std::string text;
   for ( char const* call : entryManagerCalls ) {
      text += text.empty() ? "" : ", ";
      text += call;
   }
   for ( char const* call : sdkFailureCalls() ) {
      text += std::string( ", " ) + call;
   }
   return text;
}

}  // namespace

JournalFilter JournalFilter::none() {
   JournalFilter filter;
   filter.all_ = false;
   return filter;
}

bool JournalFilter::parse( std::string const& text, JournalFilter* out,
                           std::string* error ) {
   if ( text == "all" ) {
      *out = JournalFilter();
      return true;
   }
   JournalFilter filter = none();
   if ( text == "none" ) {
      *out = filter;
      return true;
   }
   std::size_t begin = 0;
   while ( begin <= text.size() ) {
      std::size_t end = text.find( ',', begin );
      if ( end == std::string::npos ) {
         end = text.size();
      }
      std::string const name = text.substr( begin, end - begin );
      if ( !name.empty() && name.back() == '*' ) {
         filter.prefixes_.push_back( name.substr( 0, name.size() - 1 ) );
      } else if ( isJournaledCall( name ) ) {
         filter.names_.push_back( name );
      } else {
         *error = "\"" + name +
                  "\" is not a call the journal records (expected all, none, or "
                  "call names separated by commas, a name ending in * for every call "
                  "it starts; the calls: " +
                  knownCalls() + ")";
         return false;
      }
      begin = end + 1;
   }
   *out = filter;
   return true;
}

bool JournalFilter::keeps( std::string const& call ) const {
   if ( all_ ) {
      return true;
   }
   for ( auto const& name : names_ ) {
      if ( call == name ) {
         return true;
      }
   }
   for ( auto const& prefix : prefixes_ ) {
      if ( call.compare( 0, prefix.size(), prefix ) == 0 ) {
         return true;
      }
   }
   return false;
}

JournalSpool::JournalSpool() : file_( std::tmpfile() ) {
   if ( !file_ ) {
      throw std::runtime_error( std::string( "cannot make a temporary file for the "
                                             "journal: " ) +
                                std::strerror( errno ) );
   }
}

JournalSpool::~JournalSpool() {
   std::fclose( file_ );
}

void JournalSpool::append( std::string const& record ) {
   if ( records_ > 0 ) {
      pending_ += ",\n";
   }
   pending_ += record;
   ++records_;
   if ( pending_.size() >= ( 1u << 16 ) ) {
      flush();
   }
}

void JournalSpool::flush() const {
   std::fwrite( pending_.data(), 1, pending_.size(), file_ );
   pending_.clear();
}

bool JournalSpool::ok() const {
   flush();
   return std::fflush( file_ ) == 0 && std::ferror( file_ ) == 0;
}

void JournalSpool::copyTo( std::ostream& out ) const {
   flush();
   std::fflush( file_ );
   std::rewind( file_ );
   char chunk[1 << 16];
   std::size_t n;
   while ( ( n = std::fread( chunk, 1, sizeof( chunk ), file_ ) ) > 0 ) {
      out.write( chunk, std::streamsize( n ) );
   }
   std::fseek( file_, 0, SEEK_END );
}

}  // namespace natsim
