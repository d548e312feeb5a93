#include "platform/chip/Journal.h"

#include "platform/fwk/Assert.h"

namespace Chip {

std::string JournalRecord::stringValue() const {
   std::string text = call + " unit=" + std::to_string( unit );
   if ( hasEntry ) {
      text += " entry=" + std::to_string( entry );
   }
   return text + " " + json( args ) + " rc=" + std::to_string( rc );
}

JournalRecord const& Journal::record( std::size_t index ) const {
   FWK_ASSERT( index < records_.size() );
   return records_[index];
}

std::vector<JournalRecord> Journal::recordsFrom( std::size_t first ) const {
   if ( first >= records_.size() ) {
      return {};
   }
   return std::vector<JournalRecord>( records_.begin() + std::ptrdiff_t( first ),
                                      records_.end() );
}

void Journal::recordIs( JournalRecord record ) {
   if ( !enabled_ ) {
      return;
   }
   if ( sink_ ) {
      sink_( record );
      return;
   }
   records_.push_back( std::move( record ) );
}

Journal& journal() {
   static Journal theJournal;
   return theJournal;
}

}  // namespace Chip
