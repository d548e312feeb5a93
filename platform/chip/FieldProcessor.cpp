#include "platform/chip/FieldProcessor.h"

#include <algorithm>

#include "platform/fwk/Assert.h"

namespace Chip {

U32 FieldProcessor::idNew() {
   if ( !freeIds_.empty() ) {
      U32 id = freeIds_.back();
      freeIds_.pop_back();
      return id;
   }
   FWK_ASSERT_TEXT( nextId_ != 0, "field processor entry ids exhausted" );
   return nextId_++;
}

U32 FieldProcessor::entryIs( U32 group, std::string description ) {
   U32 id = idNew();
   entries_.emplace( id, FpEntry( id, group, std::move( description ) ) );
   return id;
}

bool FieldProcessor::entryDel( U32 id ) {
   FpEntry* entry = find( id );
   if ( !entry ) {
      return false;
   }
   orderIs( *entry, false );
   entries_.erase( id );
   freeIds_.push_back( id );
   return true;
}

FpEntry const* FieldProcessor::entry( U32 id ) const {
   auto i = entries_.find( id );
   return i == entries_.end() ? nullptr : &i->second;
}

FpEntry* FieldProcessor::find( U32 id ) {
   auto i = entries_.find( id );
   return i == entries_.end() ? nullptr : &i->second;
}

std::vector<U32> FieldProcessor::entryIds() const {
   std::vector<U32> ids;
   ids.reserve( entries_.size() );
   for ( auto const& entry : entries_ ) {
      ids.push_back( entry.first );
   }
   std::sort( ids.begin(), ids.end() );
   return ids;
}

Status FieldProcessor::qualifierIs( U32 id, Qualifier qualifier, U32 data, U32 mask ) {
   if ( qualifier == Qualifier::IpFrag || qualifier == Qualifier::ExactMatch ) {
      return Status::badParam;
   }
   FpEntry* entry = find( id );
   if ( !entry ) {
      return Status::noEntry;
   }
   U32 width = qualifierWidthMask( qualifier );
   entry->qualifiers_[unsigned( qualifier )] = { data & width, mask & width };
   entry->qualifiersSet_ |= FpEntry::bit( qualifier );
   return Status::ok;
}

Status FieldProcessor::ipFragIs( U32 id, IpFragSelector selector ) {
   FpEntry* entry = find( id );
   if ( !entry ) {
      return Status::noEntry;
   }
   entry->ipFrag_ = selector;
   entry->qualifiersSet_ |= FpEntry::bit( Qualifier::IpFrag );
   return Status::ok;
}

Status FieldProcessor::exactMatchIs( U32 id, U32 instance, ExactMatchField field,
                                     U32 data, U32 mask ) {
   FpEntry* entry = find( id );
   if ( !entry ) {
      return Status::noEntry;
   }
   U32 width = qualifierWidthMask( Qualifier::ExactMatch );
   entry->exactMatchInstance_ = instance;
   entry->exactMatchField_ = field;
   entry->qualifiers_[unsigned( Qualifier::ExactMatch )] = { data & width, mask & width };
   entry->qualifiersSet_ |= FpEntry::bit( Qualifier::ExactMatch );
   return Status::ok;
}

Status FieldProcessor::qualifierDel( U32 id, Qualifier qualifier ) {
   FpEntry* entry = find( id );
   if ( !entry || !entry->qualifierHas( qualifier ) ) {
      return Status::noEntry;
   }
   entry->qualifiers_[unsigned( qualifier )] = {};
   entry->qualifiersSet_ &= U16( ~FpEntry::bit( qualifier ) );
   if ( qualifier == Qualifier::IpFrag ) {
      entry->ipFrag_ = IpFragSelector::Any;
   }
   return Status::ok;
}

Status FieldProcessor::actionAdd( U32 id, ActionRecord action ) {
   FpEntry* entry = find( id );
   if ( !entry ) {
      return Status::noEntry;
   }
   entry->actions_.push_back( action );
   return Status::ok;
}

Status FieldProcessor::actionDelAll( U32 id ) {
   FpEntry* entry = find( id );
   if ( !entry ) {
      return Status::noEntry;
   }
   entry->actions_.clear();
   return Status::ok;
}

Status FieldProcessor::priorityIs( U32 id, S32 priority ) {
   FpEntry* entry = find( id );
   if ( !entry ) {
      return Status::noEntry;
   }
   bool installed = entry->installed_;
   orderIs( *entry, false );
   entry->priority_ = priority;
   orderIs( *entry, installed );
   return Status::ok;
}

Status FieldProcessor::install( U32 id ) {
   FpEntry* entry = find( id );
   if ( !entry ) {
      return Status::noEntry;
   }
   orderIs( *entry, false );
   entry->installOrder_ = ++installSequence_;
   orderIs( *entry, true );
   return Status::ok;
}

Status FieldProcessor::reinstall( U32 id ) {
   FpEntry* entry = find( id );
   if ( !entry ) {
      return Status::noEntry;
   }
   if ( entry->installOrder_ == 0 ) {
      entry->installOrder_ = ++installSequence_;
   }
   orderIs( *entry, true );
   return Status::ok;
}

Status FieldProcessor::uninstall( U32 id ) {
   FpEntry* entry = find( id );
   if ( !entry ) {
      return Status::noEntry;
   }
   orderIs( *entry, false );
   return Status::ok;
}

// Puts the entry into its group's lookup order or takes it out, and sets its installed
// flag to match.
void FieldProcessor::orderIs( FpEntry& entry, bool installed ) {
   if ( entry.installed_ == installed ) {
      return;
   }
   Order& order = installed_[entry.group_];
   if ( installed ) {
      // A newly installed entry usually ranks last (its install order is the newest), so
      // the end is tried first; any other place is found as usual.
      order.emplace_hint( order.end(), rank( entry ), &entry );
   } else {
      order.erase( rank( entry ) );
   }
   entry.installed_ = installed;
}

U32 FieldProcessor::lookup( U32 group, Packet const& packet, U64 count ) {
   auto i = installed_.find( group );
   if ( i == installed_.end() ) {
      return 0;
   }
   for ( auto const& ranked : i->second ) {
      FpEntry* entry = ranked.second;
      if ( entry->matches( packet ) ) {
         entry->hits_ += count;
         return entry->id_;
      }
   }
   return 0;
}

}  // namespace Chip
