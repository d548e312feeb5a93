// TCAM managers of a restarted agent over a chip that kept its entries: the old entries
// stay installed and matched, take room without being allocated, can be claimed, and
// are released by the sweep at the end of the restart, so that the chip ends with
// exactly the new agent's entries.

#include <gmock/gmock.h>

#include <string>

#include "platform/chip/Journal.h"
#include "platform/tcam/CorvaneTcamGroupManager.h"

namespace {

using Corvane::CorvaneTcamEntryManager;
using Corvane::CorvaneTcamGroupManager;
using ::testing::ElementsAre;

Corvane::TcamGroupAssignment const natGroup = 0xa0;
Corvane::TcamGroupAssignment const otherGroup = 7;

class LeftoverEntryTest : public ::testing::Test {
protected:
   LeftoverEntryTest() {
      chip->unitIs( 1 );
      chip->unitIs( 2 );
      Chip::journal().clear();
      Chip::journal().enabledIs( true );
   }

   Chip::FieldProcessor& fp( int unit = 1 ) {
      return chip->unit( unit )->fieldProcessor();
   }
   // An installed entry of the manager's group on unit 1 that matches source `src`.
   U32 installed( CorvaneTcamEntryManager& manager, U32 src, std::string const& text ) {
      U32 id = manager.getEntry( 1, text, CorvaneTcam::RequestKey() );
      fp().qualifierIs( id, Chip::Qualifier::SrcIp, src, 0xffffffff );
      manager.setPriorityForEntry( 1, id, 10 );
      manager.installEntry( 1, id );
      return id;
   }
   U32 lookupSrc( U32 src ) {
      Chip::Packet p;
      p.src = src;
      return chip->lookup( 1, natGroup, p, 1 );
   }
   std::vector<std::string> journalCalls( std::size_t from ) {
      std::vector<std::string> calls;
      for ( std::size_t i = from; i < Chip::journal().size(); ++i ) {
         calls.push_back( Chip::journal().record( i ).stringValue() );
      }
      return calls;
   }

   Chip::ChipModel::Ptr chip = Chip::ChipModel::ChipModelIs();
};

TEST_F( LeftoverEntryTest, AFirstAgentFindsNoLeftovers ) {
   auto groups = CorvaneTcamGroupManager::CorvaneTcamGroupManagerIs( chip );
   auto nat = groups->unboundedEntryManager( natGroup );
   EXPECT_EQ( nat->leftoverEntries( 1 ), 0u );
   EXPECT_EQ( nat->entriesAvailable( 1 ), 512u );
   std::size_t const before = Chip::journal().size();
   groups->leftoverEntriesRelease();
   EXPECT_EQ( Chip::journal().size(), before ) << "nothing to sweep";
}

TEST_F( LeftoverEntryTest, OldEntriesKeepMatchingUntilTheSweepReleasesThem ) {
   // The first agent: two NAT entries on unit 1, one on unit 2, one of another group.
   auto oldGroups = CorvaneTcamGroupManager::CorvaneTcamGroupManagerIs( chip );
   auto oldNat = oldGroups->unboundedEntryManager( natGroup );
   U32 const oldA = installed( *oldNat, 0x0a000001, "a" );
   U32 const oldB = installed( *oldNat, 0x0a000002, "b" );
   U32 const oldUnit2 = oldNat->getEntry( 2, "c", CorvaneTcam::RequestKey() );
   U32 const oldOther = oldGroups->unboundedEntryManager( otherGroup )
                            ->getEntry( 1, "other", CorvaneTcam::RequestKey() );
   EXPECT_EQ( lookupSrc( 0x0a000001 ), oldA );

   // The agent restarts: its managers are new, the chip is the same.
   oldNat = nullptr;
   oldGroups = nullptr;
   auto groups = CorvaneTcamGroupManager::CorvaneTcamGroupManagerIs( chip );
   auto nat = groups->unboundedEntryManager( natGroup );
   nat->capacityIs( 1, 4 );
   EXPECT_EQ( nat->entriesAllocated( 1 ), 0u );
   EXPECT_EQ( nat->leftoverEntries( 1 ), 2u );
   EXPECT_EQ( nat->leftoverEntries( 2 ), 1u );
   EXPECT_EQ( nat->entriesAvailable( 1 ), 2u ) << "the old entries still take room";
   EXPECT_EQ( groups->unboundedEntryManager( otherGroup )->leftoverEntries( 1 ), 1u );

   // The new agent programs the same rule again: a new id, installed behind the old
   // one of equal priority, which still takes the traffic.
   U32 const newA = installed( *nat, 0x0a000001, "a" );
   EXPECT_NE( newA, oldA );
   EXPECT_NE( newA, oldB );
   EXPECT_EQ( lookupSrc( 0x0a000001 ), oldA );
   EXPECT_EQ( nat->entriesAllocated( 1 ), 1u );
   EXPECT_EQ( nat->entriesAvailable( 1 ), 1u );

   std::size_t const before = Chip::journal().size();
   groups->leftoverEntriesRelease();
   EXPECT_THAT(
       journalCalls( before ),
       ElementsAre(
           "releaseEntry unit=1 entry=" + std::to_string( oldOther ) + " [] rc=0",
           "releaseEntry unit=1 entry=" + std::to_string( oldA ) + " [] rc=0",
           "releaseEntry unit=1 entry=" + std::to_string( oldB ) + " [] rc=0",
           "releaseEntry unit=2 entry=" + std::to_string( oldUnit2 ) + " [] rc=0" ) );
   EXPECT_THAT( fp( 1 ).entryIds(), ElementsAre( newA ) );
   EXPECT_EQ( fp( 2 ).entries(), 0u );
   EXPECT_EQ( lookupSrc( 0x0a000001 ), newA ) << "the new entry takes over";
   EXPECT_EQ( lookupSrc( 0x0a000002 ), 0u ) << "nobody programmed b again";
   EXPECT_EQ( nat->entriesAllocated( 1 ), 1u );
   EXPECT_EQ( nat->leftoverEntries( 1 ), 0u );
   EXPECT_EQ( nat->entriesAvailable( 1 ), 3u );

   std::size_t const swept = Chip::journal().size();
   groups->leftoverEntriesRelease();
   EXPECT_EQ( Chip::journal().size(), swept ) << "a second sweep has nothing to do";
}

TEST_F( LeftoverEntryTest, AClaimedOrReleasedLeftoverIsNotSwept ) {
   U32 claimed, released, swept;
   {
      auto oldGroups = CorvaneTcamGroupManager::CorvaneTcamGroupManagerIs( chip );
      auto oldNat = oldGroups->unboundedEntryManager( natGroup );
      claimed = installed( *oldNat, 0x0a000001, "claimed" );
      released = installed( *oldNat, 0x0a000002, "released" );
      swept = installed( *oldNat, 0x0a000003, "swept" );
   }
   auto groups = CorvaneTcamGroupManager::CorvaneTcamGroupManagerIs( chip );
   auto nat = groups->unboundedEntryManager( natGroup );

   std::size_t const before = Chip::journal().size();
   EXPECT_TRUE( nat->claimEntry( 1, claimed ) );
   EXPECT_FALSE( nat->claimEntry( 1, claimed ) ) << "claimed already";
   EXPECT_FALSE( nat->claimEntry( 2, swept ) ) << "not a leftover of unit 2";
   EXPECT_FALSE( nat->claimEntry( 1, 999 ) );
   EXPECT_EQ( Chip::journal().record( before ).stringValue(),
              "claimEntry unit=1 entry=" + std::to_string( claimed ) + " [] rc=0" );
   EXPECT_EQ( nat->entriesAllocated( 1 ), 1u );
   EXPECT_EQ( nat->leftoverEntries( 1 ), 2u );
   EXPECT_EQ( fp().entry( claimed )->description(), "claimed" ) << "untouched";
   EXPECT_TRUE( fp().entry( claimed )->installed() );

   nat->releaseEntry( 1, released );
   EXPECT_EQ( fp().entry( released ), nullptr );
   EXPECT_EQ( nat->entriesAllocated( 1 ), 1u ) << "a leftover was never allocated";
   EXPECT_EQ( nat->leftoverEntries( 1 ), 1u );

   groups->leftoverEntriesRelease();
   EXPECT_THAT( fp().entryIds(), ElementsAre( claimed ) );
   EXPECT_EQ( lookupSrc( 0x0a000001 ), claimed );
   EXPECT_EQ( nat->entriesAllocated( 1 ), 1u );
   nat->releaseEntry( 1, claimed );
   EXPECT_EQ( nat->entriesAllocated( 1 ), 0u ) << "a claimed entry is allocated";
   EXPECT_EQ( fp().entries(), 0u );
}

}  // namespace
