// The capacity helper: features set up once, rows published at once and refreshed on
// the clock, and no refresh once silenced.

#include <gtest/gtest.h>

#include "platform/agent/CapacityHelperSm.h"

namespace {

// Publishes one row whose "used" is the number of refreshes so far.
class CountingHelper : public Hardware::Capacity::CapacityHelperSm {
public:
   CountingHelper( OroCapacity::TableCapacity::Ptr table, Fwk::Clock::Ptr clock )
       : CapacityHelperSm( std::move( table ), std::move( clock ) ) {
      handleInitialized();
   }
   void initCapacityTableFeatureMaps() override {
      initCapacityTableFeature( "", "TestCapacity", "IFP" );
   }
   void updateCapacityTable() override {
      ++refreshes;
      updateCapacityEntry( key(), refreshes, 10 - refreshes, 0, 10 );
   }
   static OroCapacity::TableCapacityKey key() {
      return OroCapacity::TableCapacityKey( "TestCapacity", "IFP", "Chip1", "Test" );
   }
   U32 refreshes = 0;
};

TEST( CapacityHelperSm, PublishesAtOnceThenEveryIntervalUntilSilenced ) {
   Fwk::Ptr<Fwk::VirtualClock> clock( new Fwk::VirtualClock );
   Fwk::ScopedActivityManager scope( clock );
   OroCapacity::TableCapacity::Ptr table( new OroCapacity::TableCapacity( "capacity" ) );
   Fwk::Ptr<CountingHelper> helper( new CountingHelper( table, clock ) );

   auto row = [&] { return *table->entry( CountingHelper::key() ); };
   EXPECT_EQ( row(), ( OroCapacity::TableCapacityEntry{ 1, 9, 0, 10 } ) ) << "at once";

   scope.manager().advance( 4.9 );
   EXPECT_EQ( helper->refreshes, 1u );
   scope.manager().advance( 0.1 );
   EXPECT_EQ( helper->refreshes, 2u );
   scope.manager().advance( 10.0 );
   EXPECT_EQ( row().used, 4u );

   helper->hasNotificationActiveIs( false );
   scope.manager().advance( 20.0 );
   EXPECT_EQ( helper->refreshes, 4u );
   Hardware::Capacity::CapacityHelperSm::refreshAll();
   EXPECT_EQ( row().used, 5u ) << "an explicit refresh still publishes";
}

}  // namespace
