// Orrery mounts as a plug-in uses them: completion from the loop, its status, creation of
// "wc" entities, typed lookups and the record of mounts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "platform/fwk/ActivityManager.h"
#include "platform/fwk/TypeFactory.h"
#include "platform/mount/OrreryEntityManager.h"

namespace {

using Orrery::MountStatus;
using ::testing::_;
using ::testing::StrictMock;

class Capabilities : public Fwk::Entity {
public:
   explicit Capabilities( std::string name ) : Entity( std::move( name ) ) {}
};

class Status : public Fwk::Entity {
public:
   explicit Status( std::string name ) : Entity( std::move( name ) ) {}
};

char const capsType[] = "OrreryTest::Capabilities";
char const statusType[] = "OrreryTest::Status";

Fwk::TypeRegistration statusRegistration( statusType, []( auto const& args ) {
   return Fwk::Entity::Ptr( new Status( args.at( 0 ) ) );
} );

class MockMounter : public Orrery::Mounter {
public:
   MOCK_METHOD( void, doMountsComplete,
                ( MountStatus status, Orrery::EntityManager::Ptr entityManager ),
                ( override ) );
};

typedef std::vector<std::tuple<std::string, std::string, std::string>> Mounts;

class OrreryTest : public ::testing::Test {
protected:
   OrreryTest() { em->entityIs( "hw/caps", capsType, new Capabilities( "caps" ) ); }

   // Mounts `mounts` in one group, closes it, runs the loop and returns the status the
   // mounter was given.
   MountStatus mountAll( Mounts const& mounts ) {
      auto group = em->getMountGroup( &mounter );
      for ( auto const& m : mounts ) {
         group->doMount( std::get<0>( m ), std::get<1>( m ), std::get<2>( m ) );
      }
      group->doClose();
      MountStatus reported( MountStatus::pending );
      EXPECT_CALL( mounter, doMountsComplete( _, em ) )
          .WillOnce( ::testing::SaveArg<0>( &reported ) );
      loop.runUntilIdle();
      ::testing::Mock::VerifyAndClearExpectations( &mounter );
      return reported;
   }

   Fwk::ScopedActivityManager scope{ Fwk::Clock::Ptr( new Fwk::VirtualClock ) };
   Fwk::ActivityManager& loop = scope.manager();
   Orrery::EntityManager::Ptr em{ new Orrery::EntityManager };
   StrictMock<MockMounter> mounter;
};

TEST_F( OrreryTest, CompletionComesOnceFromTheLoopAfterClose ) {
   auto group = em->getMountGroup( &mounter );
   group->doMount( "hw/caps", capsType, "r" );
   group->doMount( "nat/status", statusType, "wc" );
   loop.runUntilIdle();  // an open group reports nothing
   group->doClose();     // nor does closing it (the strict mock fails on any call)
   group = nullptr;      // the loop keeps the closed group until it has reported

   EXPECT_CALL( mounter, doMountsComplete( Orrery::mountSuccess(), em ) ).Times( 1 );
   loop.runUntilIdle();
   loop.runUntilIdle();

   // "wc" made the entity through the factory, with its path, and published it.
   auto status = em->lookup<Status>( "nat/status" );
   ASSERT_TRUE( status );
   EXPECT_EQ( status->name(), "nat/status" );
   EXPECT_EQ( em->typeName( "nat/status" ), statusType );
}

TEST_F( OrreryTest, StatusIsTheFirstFailureInMountOrder ) {
   EXPECT_EQ( mountAll( {} ), Orrery::mountSuccess() );
   EXPECT_EQ( mountAll( { { "nat/missing", statusType, "r" } } ),
              MountStatus( MountStatus::entityMissing ) );
   EXPECT_EQ( mountAll( { { "nat/missing", statusType, "w" } } ),
              MountStatus( MountStatus::entityMissing ) );
   EXPECT_EQ( mountAll( { { "hw/caps", statusType, "r" } } ),
              MountStatus( MountStatus::typeMismatch ) );
   EXPECT_EQ( mountAll( { { "hw/caps", statusType, "wc" } } ),
              MountStatus( MountStatus::typeMismatch ) )
       << "wc does not replace an entity of another type";
   EXPECT_EQ( mountAll( { { "nat/x", "OrreryTest::NoSuchType", "wc" } } ),
              MountStatus( MountStatus::typeUnknown ) );
   EXPECT_FALSE( em->entity( "nat/x" ) );
   EXPECT_EQ( mountAll( { { "hw/caps", capsType, "r" },
                          { "nat/gone", capsType, "r" },
                          { "hw/caps", statusType, "w" } } ),
              MountStatus( MountStatus::entityMissing ) );
   // Mounts are checked in order: an entity made by "wc" satisfies a later "r".
   EXPECT_EQ( mountAll( { { "nat/s", statusType, "wc" }, { "nat/s", statusType, "r" } } ),
              Orrery::mountSuccess() );
}

TEST_F( OrreryTest, GroupsReportToTheirOwnMounterInCloseOrderAndAreRecorded ) {
   StrictMock<MockMounter> other;
   auto first = em->getMountGroup( &mounter );
   auto second = em->getMountGroup( &other );
   first->doMount( "hw/caps", capsType, "r" );
   second->doMount( "nat/none", statusType, "r" );
   second->doClose();
   first->doClose();
   ::testing::InSequence order;
   EXPECT_CALL( other,
                doMountsComplete( MountStatus( MountStatus::entityMissing ), em ) );
   EXPECT_CALL( mounter, doMountsComplete( Orrery::mountSuccess(), em ) );
   loop.runUntilIdle();

   auto const& mounts = em->mounts();
   ASSERT_EQ( mounts.size(), 2u );
   EXPECT_EQ( mounts[0].path, "hw/caps" );
   EXPECT_EQ( mounts[0].group, first->id() );
   EXPECT_EQ( mounts[0].status, Orrery::mountSuccess() );
   EXPECT_EQ( mounts[1].group, second->id() );
   EXPECT_EQ( mounts[1].status, MountStatus( MountStatus::entityMissing ) );
}

TEST_F( OrreryTest, TypedLookupIsNullWhenMissingOrOfAnotherType ) {
   Fwk::Ptr<Capabilities const> caps = em->lookup<Capabilities const>( "hw/caps" );
   ASSERT_TRUE( caps );
   EXPECT_EQ( caps->name(), "caps" );
   EXPECT_EQ( em->lookup<Capabilities>( "hw/caps" ), caps );
   EXPECT_FALSE( em->lookup<Status const>( "hw/caps" ) );
   EXPECT_FALSE( em->lookup<Capabilities>( "hw/none" ) );
   EXPECT_EQ( em->typeName( "hw/none" ), "" );

   em->entityDel( "hw/caps" );
   EXPECT_FALSE( em->lookup<Capabilities const>( "hw/caps" ) );
   EXPECT_EQ( caps->name(), "caps" ) << "a looked-up entity stays held by its user";
}

TEST_F( OrreryTest, MisuseOfAGroupStopsTheProcess ) {
   auto group = em->getMountGroup( &mounter );
   EXPECT_DEATH( group->doMount( "hw/caps", capsType, "rw" ), "unknown mode 'rw'" );
   group->doClose();
   EXPECT_DEATH( group->doMount( "hw/caps", capsType, "r" ), "closed group" );
   EXPECT_DEATH( group->doClose(), "closed twice" );
   EXPECT_CALL( mounter, doMountsComplete( _, _ ) );
   loop.runUntilIdle();
}

}  // namespace
