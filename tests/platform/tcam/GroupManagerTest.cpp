// The TCAM group manager: one entry manager per group assignment, and entry ids per
// pipe.

#include <gtest/gtest.h>

#include "platform/fwk/Assert.h"
#include "platform/tcam/CorvaneTcamGroupManager.h"

namespace {

using Corvane::CorvaneTcamGroupManager;

class GroupManagerTest : public ::testing::Test {
protected:
   Chip::ChipModel::Ptr chip = Chip::ChipModel::ChipModelIs();
   CorvaneTcamGroupManager::Ptr groups =
       CorvaneTcamGroupManager::CorvaneTcamGroupManagerIs( chip );
};

TEST_F( GroupManagerTest, OneEntryManagerPerAssignment ) {
   EXPECT_EQ( groups->name(), "tcamManager" );
   auto nat = groups->unboundedEntryManager( 160 );
   EXPECT_EQ( groups->unboundedEntryManager( 160 ), nat );
   EXPECT_NE( groups->unboundedEntryManager( 161 ), nat );
   EXPECT_EQ( nat->groupAssignment(), 160u );
   // Capacity set on the manager stays with it.
   nat->capacityIs( 1, 3 );
   EXPECT_EQ( groups->unboundedEntryManager( 160 )->entriesAvailable( 1 ), 3u );
}

TEST_F( GroupManagerTest, PipeEntryIds ) {
   EXPECT_EQ( groups->getNumPipe( 1 ), 1u );
   EXPECT_EQ( groups->getNumCopiesPerPipe( 1, 0 ), 1u );
   EXPECT_EQ( groups->getPipeEntryId( 1, 42, 0, 0 ), 42u );
   groups->numPipeIs( 1, 4 );
   EXPECT_EQ( groups->getNumPipe( 1 ), 4u );
   EXPECT_EQ( groups->getNumPipe( 2 ), 1u );
   EXPECT_EQ( groups->getPipeEntryId( 1, 42, 3, 0 ),
              42u + 3 * CorvaneTcamGroupManager::pipeEntryIdStride );
   EXPECT_THROW( groups->getPipeEntryId( 1, 42, 4, 0 ), Fwk::RangeException );
   EXPECT_THROW( groups->getPipeEntryId( 1, 42, 0, 1 ), Fwk::RangeException );
   EXPECT_THROW( groups->getNumCopiesPerPipe( 2, 1 ), Fwk::RangeException );
   EXPECT_THROW( groups->numPipeIs( 1, 0 ), Fwk::RangeException );
   EXPECT_EQ( groups->getNumPipe( 1 ), 4u );
}

}  // namespace
