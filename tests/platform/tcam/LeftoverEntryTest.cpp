// TCAM managers of a restarted agent over a chip that kept its entries: the old entries
// stay installed and matched, take room without being allocated, can be claimed, and
// are released by the sweep at the end of the restart, so that the chip ends with
// exactly the new agent's entries. (natsim's restart step: RestartTest.cpp.)

#include <gmock/gmock.h>

#include <string>

#include "platform/chip/Journal.h"
#include "platform/tcam/CorvaneTcamGroupManager.h"

namespace {

using Corvane::CorvaneTcamEntryManager;
using Corvane::CorvaneTcamGroupManager;
using ::testing::ElementsAre;

Corvane::TcamGroupAssignment const natGroup = 0xa0;

class LeftoverEntryTest : public ::testing::Test {
protected:
   LeftoverEntryTest() {
      chip->unitIs( 1 );
      chip->unitIs( 2 );
      Chip::journal().clear();
      Chip::journal().enabledIs( true );
   }
   // An installed entry of the manager's group on unit 1 that matches source `src`.
   U32 installed( CorvaneTcamEntryManager& manager, U32 src ) {
      U32 id = manager.getEntry( 1, "e", CorvaneTcam::RequestKey() );
      chip->unit( 1 )->fieldProcessor().qualifierIs( id, Chip::Qualifier::SrcIp, src,
                                                     0xffffffff );
      manager.setPriorityForEntry( 1, id, 10 );
      manager.installEntry( 1, id );
      return id;
   }
   U32 lookupSrc( U32 src ) {
      Chip::Packet p;
      p.src = src;
      return chip->lookup( 1, natGroup, p, 1 );
   }
   Chip::ChipModel::Ptr chip = Chip::ChipModel::ChipModelIs();
};

TEST_F( LeftoverEntryTest, OldEntriesMatchAndTakeRoomUntilClaimedOrSwept ) {
   // The first agent: NAT entries on units 1 and 2, and one of another group.
   auto oldGroups = CorvaneTcamGroupManager::CorvaneTcamGroupManagerIs( chip );
   auto oldNat = oldGroups->unboundedEntryManager( natGroup );
   U32 const oldA = installed( *oldNat, 0x0a000001 );
   U32 const oldB = installed( *oldNat, 0x0a000002 );
   U32 const claimed = installed( *oldNat, 0x0a000003 );
   U32 const gone = installed( *oldNat, 0x0a000004 );
   oldNat->getEntry( 2, "c", CorvaneTcam::RequestKey() );
   oldGroups->unboundedEntryManager( 7 )->getEntry( 1, "o", CorvaneTcam::RequestKey() );

   // The agent restarts: its managers are new, the chip is the same.
   oldNat = nullptr;
   oldGroups = nullptr;
   auto groups = CorvaneTcamGroupManager::CorvaneTcamGroupManagerIs( chip );
   auto nat = groups->unboundedEntryManager( natGroup );
   nat->capacityIs( 1, 6 );
   EXPECT_EQ( nat->entriesAllocated( 1 ), 0u );
   EXPECT_EQ( nat->leftoverEntries( 1 ), 4u );
   EXPECT_EQ( nat->leftoverEntries( 2 ), 1u );
   EXPECT_EQ( nat->entriesAvailable( 1 ), 2u ) << "the old entries still take room";

   EXPECT_TRUE( nat->claimEntry( 1, claimed ) );
   EXPECT_FALSE( nat->claimEntry( 1, claimed ) ) << "claimed already";
   EXPECT_FALSE( nat->claimEntry( 2, oldB ) ) << "not a leftover of unit 2";
   nat->releaseEntry( 1, gone );
   EXPECT_EQ( nat->entriesAllocated( 1 ), 1u ) << "the claimed entry";
   EXPECT_EQ( nat->leftoverEntries( 1 ), 2u );

   // The new agent programs a rule again: a new id, installed behind the old one of
   // equal priority, which still takes the traffic.
   U32 const newA = installed( *nat, 0x0a000001 );
   EXPECT_EQ( lookupSrc( 0x0a000001 ), oldA );
   EXPECT_EQ( nat->entriesAvailable( 1 ), 2u );

   std::size_t const before = Chip::journal().size();
   groups->leftoverEntriesRelease();
   EXPECT_EQ( Chip::journal().size() - before, 4u ) << "the other group's too";
   EXPECT_THAT( chip->unit( 1 )->fieldProcessor().entryIds(),
                ElementsAre( claimed, newA ) );
   EXPECT_EQ( chip->unit( 2 )->fieldProcessor().entries(), 0u );
   EXPECT_EQ( lookupSrc( 0x0a000001 ), newA ) << "the new entry takes over";
   EXPECT_EQ( lookupSrc( 0x0a000002 ), 0u ) << "nobody programmed b again";
   EXPECT_EQ( lookupSrc( 0x0a000003 ), claimed );
   EXPECT_EQ( nat->entriesAvailable( 1 ), 4u );
   std::size_t const swept = Chip::journal().size();
   groups->leftoverEntriesRelease();
   EXPECT_EQ( Chip::journal().size(), swept ) << "a second sweep has nothing to do";
}

}  // namespace
