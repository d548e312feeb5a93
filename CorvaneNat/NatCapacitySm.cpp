#include "CorvaneNat/NatCapacitySm.h"

#include "CorvaneNat/NatTrace.h"

namespace Corvane {

namespace {

char const featureName[] = "CorvaneNatCapacity";
char const tableName[] = "IFP";

}  // namespace

NatCapacitySm::NatCapacitySm( OroCapacity::TableCapacity::Ptr const& tableCapacity,
                              Fwk::Clock::Ptr const& clock,
                              CorvaneCommonSmData::PtrConst const& commonSmData,
                              EntryIdTable::PtrConst const& entryIdTable,
                              CorvaneTcamEntryManager::Ptr const& entryManager )
    : CapacityHelperSm( tableCapacity, clock ),
      commonSmData_( commonSmData ),
      entryIdTable_( entryIdTable ),
      entryManager_( entryManager ) {
   handleInitialized();
}

void NatCapacitySm::initCapacityTableFeatureMaps() {
   NAT_TRACE( 8, "NatCapacitySm::initCapacityTableFeatureMaps", "" );
   initCapacityTableFeature( "", featureName, tableName );
}

void NatCapacitySm::updateCapacityTable() {
   if ( !commonSmData_ || commonSmData_->chips() == 0 ) {
      return;
   }
   // Counted once over all chips (each worker has one chip).
   U32 staticUsed = 0;
   U32 twiceUsed = 0;
   U32 dynamicUsed = 0;
   for ( auto const& chip : commonSmData_->chip() ) {
      U16 const unit = chip.first;
      U32 const allocated = entryManager_->entriesAllocated( unit );
      U32 const free = entryManager_->entriesAvailable( unit );
      U32 const max = allocated + free;
      for ( EntryIdTableEntry const& row : *entryIdTable_ ) {
         U32 const ids = U32( row.defaultEntryIds().size() + row.fragEntryIds().size() );
         switch ( row.key().keyType() ) {
            case Oro::NatHwKey::staticSrcNat:
            case Oro::NatHwKey::staticDstNat:
               staticUsed += ids;
               break;
            case Oro::NatHwKey::twiceNatSrc:
            case Oro::NatHwKey::twiceNatDst:
               twiceUsed += ids;
               break;
            case Oro::NatHwKey::dynamicSrcNat:
            case Oro::NatHwKey::dynamicDstNat:
               dynamicUsed += ids;
               break;
            default:
               break;
         }
      }
      auto key = [&]( char const* entry ) {
         return OroCapacity::TableCapacityKey( featureName, tableName, chip.second.name,
                                               entry );
      };
      updateCapacityEntry( key( "NAT-Static" ), staticUsed, free, 0, max );
      updateCapacityEntry( key( "NAT-Twice" ), twiceUsed, free, 0, max );
      updateCapacityEntry( key( "NAT-Dynamic" ), dynamicUsed, free, 0, max );
      updateCapacityEntry( key( "NAT" ), allocated, free, 0, max );
   }
}

NatCapacitySm::Ptr NatCapacitySmIs( OroCapacity::TableCapacity::Ptr const& tableCapacity,
                                    Fwk::Clock::Ptr const& clock,
                                    CorvaneCommonSmData::PtrConst const& commonSmData,
                                    EntryIdTable::PtrConst const& entryIdTable,
                                    CorvaneTcamEntryManager::Ptr const& entryManager ) {
   NatCapacitySm::Ptr sm( new NatCapacitySm( tableCapacity, clock, commonSmData,
                                             entryIdTable, entryManager ) );
   sm->hasNotificationActiveIs( true );
   return sm;
}

}  // namespace Corvane
