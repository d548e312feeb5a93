#include "platform/tcam/CorvaneTcamEntryManager.h"

#include <set>

#include "platform/fwk/Assert.h"

namespace Corvane {

CorvaneTcamEntryManager::CorvaneTcamEntryManager( Chip::ChipModel::Ptr chip,
                                                  TcamGroupAssignment group )
    : chip_( std::move( chip ) ), group_( group ) {
   FWK_ASSERT( chip_ );
}

void CorvaneTcamEntryManager::capacityIs( U16 unit, U32 entries ) {
   units_[unit].capacity = entries;
}

U32 CorvaneTcamEntryManager::capacity( U16 unit ) const {
   return use( unit ).capacity;
}

CorvaneTcamEntryManager::UnitUse CorvaneTcamEntryManager::use( U16 unit ) const {
   auto i = units_.find( unit );
   return i == units_.end() ? UnitUse() : i->second;
}

U32 CorvaneTcamEntryManager::entriesAllocated( U16 unit ) const {
   return use( unit ).allocated;
}

U32 CorvaneTcamEntryManager::entriesAvailable( U16 unit ) const {
   UnitUse u = use( unit );
   U32 const taken = u.allocated + u.leftover;
   return taken < u.capacity ? u.capacity - taken : 0;
}

void CorvaneTcamEntryManager::leftoverEntryIs( U16 unit, U32 entryId ) {
   if ( !owner( unit, entryId ) || !leftovers_[unit].insert( entryId ).second ) {
      return;
   }
   ++units_[unit].leftover;
}

U32 CorvaneTcamEntryManager::leftoverEntries( U16 unit ) const {
   return use( unit ).leftover;
}

bool CorvaneTcamEntryManager::leftoverDel( U16 unit, U32 entryId ) {
   auto i = leftovers_.find( unit );
   if ( i == leftovers_.end() || !i->second.erase( entryId ) ) {
      return false;
   }
   --units_[unit].leftover;
   return true;
}

bool CorvaneTcamEntryManager::claimEntry( U16 unit, U32 entryId ) {
   bool const claimed = leftoverDel( unit, entryId );
   if ( claimed ) {
      ++units_[unit].allocated;
   }
   if ( journaling() ) {
      record( "claimEntry", unit, entryId, {} );
   }
   return claimed;
}

void CorvaneTcamEntryManager::leftoverEntriesRelease() {
   std::map<U16, std::unordered_set<U32>> leftovers;
   leftovers.swap( leftovers_ );
   for ( auto const& unit : leftovers ) {
      units_[unit.first].leftover = 0;
      std::set<U32> ids( unit.second.begin(), unit.second.end() );
      Chip::FieldProcessor* fp = fieldProcessor( unit.first );
      for ( U32 id : ids ) {
         if ( fp ) {
            fp->entryDel( id );
         }
         if ( journaling() ) {
            record( "releaseEntry", unit.first, id, {} );
         }
      }
   }
}

Chip::FieldProcessor* CorvaneTcamEntryManager::fieldProcessor( U16 unit ) const {
   Chip::ChipUnit* u = chip_->unit( unit );
   return u ? &u->fieldProcessor() : nullptr;
}

Chip::FieldProcessor* CorvaneTcamEntryManager::owner( U16 unit, U32 entryId ) const {
   Chip::FieldProcessor* fp = fieldProcessor( unit );
   if ( !fp ) {
      return nullptr;
   }
   Chip::FpEntry const* entry = fp->entry( entryId );
   return entry && entry->group() == group_ ? fp : nullptr;
}

void CorvaneTcamEntryManager::record( char const* call, U16 unit, U32 entryId,
                                      Chip::Args args ) const {
   Chip::JournalRecord r;
   r.call = call;
   r.unit = unit;
   r.hasEntry = true;
   r.entry = entryId;
   r.args = std::move( args );
   Chip::journal().recordIs( std::move( r ) );
}

U32 CorvaneTcamEntryManager::getEntry( U16 unit, std::string description,
                                       CorvaneTcam::RequestKey const& ) {
   Chip::Args args;
   if ( journaling() ) {
      args.push_back( Chip::nameArg( description ) );
   }
   Chip::FieldProcessor* fp = fieldProcessor( unit );
   U32 id = 0;
   if ( fp && entriesAvailable( unit ) > 0 ) {
      id = fp->entryIs( group_, std::move( description ) );
      ++units_[unit].allocated;
   }
   if ( journaling() ) {
      record( "getEntry", unit, id, std::move( args ) );
   }
   return id;
}

void CorvaneTcamEntryManager::setPriorityForEntry( U16 unit, U32 entryId, S32 priority ) {
   if ( Chip::FieldProcessor* fp = owner( unit, entryId ) ) {
      fp->priorityIs( entryId, priority );
   }
   if ( journaling() ) {
      record( "setPriorityForEntry", unit, entryId,
              { Chip::numberArg( U64( priority ) ) } );
   }
}

void CorvaneTcamEntryManager::installEntry( U16 unit, U32 entryId ) {
   if ( Chip::FieldProcessor* fp = owner( unit, entryId ) ) {
      fp->install( entryId );
   }
   if ( journaling() ) {
      record( "installEntry", unit, entryId, {} );
   }
}

void CorvaneTcamEntryManager::reinstallEntry( U16 unit, U32 entryId ) {
   if ( Chip::FieldProcessor* fp = owner( unit, entryId ) ) {
      fp->reinstall( entryId );
   }
   if ( journaling() ) {
      record( "reinstallEntry", unit, entryId, {} );
   }
}

void CorvaneTcamEntryManager::releaseEntry( U16 unit, U32 entryId ) {
   if ( Chip::FieldProcessor* fp = owner( unit, entryId ) ) {
      fp->entryDel( entryId );
      if ( leftovers_.empty() || !leftoverDel( unit, entryId ) ) {
         --units_[unit].allocated;
      }
   }
   if ( journaling() ) {
      record( "releaseEntry", unit, entryId, {} );
   }
}

U64 CorvaneTcamEntryManager::hitsForEntry( U16 unit, U32 entryId ) {
   U64 hits = 0;
   if ( Chip::FieldProcessor* fp = fieldProcessor( unit ) ) {
      // One lookup: owner() and then entry() would find the entry twice.
      Chip::FpEntry const* entry = fp->entry( entryId );
      if ( entry && entry->group() == group_ ) {
         hits = entry->hits();
      }
   }
   if ( journaling() ) {
      record( "hitsForEntry", unit, entryId, {} );
   }
   return hits;
}

}  // namespace Corvane
