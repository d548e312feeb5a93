// The TCAM entry manager as a plug-in uses it: one per group, ids and capacity per unit,
// entries in the chip. (Which installed entry wins a lookup: LookupTest.cpp; entry ids
// per pipe: the plug-in's show command test.)

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "platform/tcam/CorvaneTcamGroupManager.h"

namespace {

using Corvane::CorvaneTcamEntryManager;
using Corvane::CorvaneTcamGroupManager;

Corvane::TcamGroupAssignment const natGroup = 0xa0;

class EntryManagerTest : public ::testing::Test {
protected:
   EntryManagerTest() {
      chip->unitIs( 1 );
      chip->unitIs( 2 );
   }

   U32 get( U16 unit = 1, std::string const& description = "NAT" ) {
      return nat->getEntry( unit, description, CorvaneTcam::RequestKey() );
   }
   Chip::FieldProcessor& fp( int unit = 1 ) {
      return chip->unit( unit )->fieldProcessor();
   }

   Chip::ChipModel::Ptr chip = Chip::ChipModel::ChipModelIs();
   CorvaneTcamGroupManager::Ptr groups =
       CorvaneTcamGroupManager::CorvaneTcamGroupManagerIs( chip );
   CorvaneTcamEntryManager::Ptr nat = groups->unboundedEntryManager( natGroup );
};

TEST_F( EntryManagerTest, CapacityPerUnitAndZeroWhenFull ) {
   EXPECT_EQ( nat->entriesAvailable( 1 ), 512u );
   nat->capacityIs( 1, 2 );
   U32 a = get(), b = get();
   EXPECT_TRUE( a != 0 && b != 0 && a != b );
   EXPECT_EQ( get(), 0u );
   EXPECT_EQ( fp().entries(), 2u );  // nothing created when full
   EXPECT_EQ( nat->entriesAllocated( 1 ), 2u );
   EXPECT_EQ( nat->entriesAvailable( 1 ), 0u );
   EXPECT_EQ( nat->entriesAvailable( 2 ), 512u );  // the other unit is apart

   nat->releaseEntry( 1, a );
   EXPECT_EQ( nat->entriesAllocated( 1 ), 1u );
   EXPECT_EQ( nat->entriesAvailable( 1 ), 1u );
   EXPECT_EQ( fp().entry( a ), nullptr );
   EXPECT_EQ( get(), a );  // a released id is reused

   nat->capacityIs( 1, 1 );  // below what is allocated
   EXPECT_EQ( nat->entriesAvailable( 1 ), 0u );
   EXPECT_EQ( get(), 0u );
}

TEST_F( EntryManagerTest, ReleaseOfZeroUnknownOrForeignIdsDoesNothing ) {
   auto other = groups->unboundedEntryManager( 7 );
   EXPECT_EQ( groups->unboundedEntryManager( natGroup ), nat ) << "one per group";
   U32 mine = get();
   U32 theirs = other->getEntry( 1, "other", CorvaneTcam::RequestKey() );
   nat->releaseEntry( 1, 0 );
   nat->releaseEntry( 1, 999 );
   nat->releaseEntry( 1, theirs );
   nat->releaseEntry( 3, mine );  // no such unit
   EXPECT_TRUE( fp().entry( theirs ) && fp().entry( mine ) );
   EXPECT_EQ( nat->entriesAllocated( 1 ), 1u );
   EXPECT_EQ( other->entriesAllocated( 1 ), 1u );
   EXPECT_EQ( nat->getEntry( 3, "no unit", CorvaneTcam::RequestKey() ), 0u );
}

TEST_F( EntryManagerTest, IdsAreUniquePerUnitAcrossGroups ) {
   auto other = groups->unboundedEntryManager( 7 );
   std::set<U32> ids;
   for ( int i = 0; i < 20; ++i ) {
      ids.insert( get() );
      ids.insert( other->getEntry( 1, "other", CorvaneTcam::RequestKey() ) );
   }
   EXPECT_EQ( ids.size(), 40u );
   EXPECT_EQ( ids.count( 0 ), 0u );
   Chip::FpEntry const* e = fp( 2 ).entry( get( 2, "on unit 2" ) );
   ASSERT_NE( e, nullptr );
   EXPECT_EQ( e->group(), natGroup );
   EXPECT_EQ( e->description(), "on unit 2" );
   EXPECT_FALSE( e->installed() );
}

}  // namespace
