#include "platform/tcam/CorvaneTcamGroupManager.h"

#include <string>

#include "platform/fwk/Assert.h"

namespace Corvane {

CorvaneTcamGroupManager::Ptr CorvaneTcamGroupManager::CorvaneTcamGroupManagerIs(
    Chip::ChipModel::Ptr chip ) {
   return Ptr( new CorvaneTcamGroupManager( std::move( chip ) ) );
}

CorvaneTcamGroupManager::CorvaneTcamGroupManager( Chip::ChipModel::Ptr chip )
    : Entity( "tcamManager" ), chip_( std::move( chip ) ) {
   FWK_ASSERT( chip_ );
   leftoverEntriesIs();
}

void CorvaneTcamGroupManager::leftoverEntriesIs() {
   for ( int unit : chip_->units() ) {
      Chip::FieldProcessor const& fp = chip_->unit( unit )->fieldProcessor();
      for ( U32 id : fp.entryIds() ) {
         unboundedEntryManager( fp.entry( id )->group() )
             ->leftoverEntryIs( static_cast<U16>( unit ), id );
      }
   }
}

void CorvaneTcamGroupManager::leftoverEntriesRelease() {
   for ( auto const& manager : entryManagers_ ) {
      manager.second->leftoverEntriesRelease();
   }
}

CorvaneTcamEntryManager::Ptr CorvaneTcamGroupManager::unboundedEntryManager(
    TcamGroupAssignment group ) {
   auto& manager = entryManagers_[group];
   if ( !manager ) {
      manager = new CorvaneTcamEntryManager( chip_, group );
   }
   return manager;
}

U32 CorvaneTcamGroupManager::getNumPipe( U16 unit ) const {
   auto i = pipes_.find( unit );
   return i == pipes_.end() ? 1 : i->second;
}

void CorvaneTcamGroupManager::numPipeIs( U16 unit, U32 pipes ) {
   if ( pipes < 1 || pipes > maxPipes ) {
      throw Fwk::RangeException( "pipes " + std::to_string( pipes ) +
                                 " out of range 1.." + std::to_string( maxPipes ) );
   }
   pipes_[unit] = pipes;
}

void CorvaneTcamGroupManager::pipeCheck( U16 unit, U32 pipe ) const {
   if ( pipe >= getNumPipe( unit ) ) {
      throw Fwk::RangeException( "pipe " + std::to_string( pipe ) + " of unit " +
                                 std::to_string( unit ) + " out of range" );
   }
}

U32 CorvaneTcamGroupManager::getNumCopiesPerPipe( U16 unit, U32 pipe ) const {
   pipeCheck( unit, pipe );
   return 1;
}

U32 CorvaneTcamGroupManager::getPipeEntryId( U16 unit, U32 entryId, U32 pipe,
                                             U32 copy ) const {
   if ( copy >= getNumCopiesPerPipe( unit, pipe ) ) {
      throw Fwk::RangeException( "copy " + std::to_string( copy ) + " out of range" );
   }
   return entryId + pipe * pipeEntryIdStride;
}

}  // namespace Corvane
