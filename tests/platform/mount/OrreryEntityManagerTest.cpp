// Orrery mounts as a plug-in uses them: completion once from the loop after the group
// closes, its status, creation of "wc" entities, typed lookups and the record of mounts.

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "platform/fwk/ActivityManager.h"
#include "platform/fwk/TypeFactory.h"
#include "platform/mount/OrreryEntityManager.h"

namespace {

using Orrery::MountStatus;

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

// Records each completion it is given.
class Mounter : public Orrery::Mounter {
public:
   void doMountsComplete( MountStatus status, Orrery::EntityManager::Ptr ) override {
      statuses.push_back( status );
   }
   std::vector<MountStatus> statuses;
};

typedef std::vector<std::tuple<std::string, std::string, std::string>> Mounts;

class OrreryTest : public ::testing::Test {
protected:
   OrreryTest() { em->entityIs( "hw/caps", capsType, new Capabilities( "caps" ) ); }

   // The status of one closed group of `mounts`.
   MountStatus mountAll( Mounts const& mounts ) {
      Mounter mounter;
      auto group = em->getMountGroup( &mounter );
      for ( auto const& [path, type, mode] : mounts ) {
         group->doMount( path, type, mode );
      }
      group->doClose();
      loop.runUntilIdle();
      EXPECT_EQ( mounter.statuses.size(), 1u );
      return mounter.statuses.empty() ? MountStatus( MountStatus::pending )
                                      : mounter.statuses[0];
   }

   Fwk::ScopedActivityManager scope{ Fwk::Clock::Ptr( new Fwk::VirtualClock ) };
   Fwk::ActivityManager& loop = scope.manager();
   Orrery::EntityManager::Ptr em{ new Orrery::EntityManager };
};

TEST_F( OrreryTest, EachGroupCompletesOnceFromTheLoopAfterCloseInCloseOrder ) {
   Mounter first, second;
   auto a = em->getMountGroup( &first );
   auto b = em->getMountGroup( &second );
   a->doMount( "hw/caps", capsType, "r" );
   a->doMount( "nat/status", statusType, "wc" );
   b->doMount( "nat/none", statusType, "r" );
   loop.runUntilIdle();
   EXPECT_TRUE( first.statuses.empty() ) << "an open group reports nothing";
   b->doClose();
   a->doClose();
   a = nullptr;  // the loop keeps a closed group until it has reported
   EXPECT_TRUE( first.statuses.empty() && second.statuses.empty() );
   loop.runUntilIdle();
   loop.runUntilIdle();
   EXPECT_EQ( first.statuses, std::vector<MountStatus>{ Orrery::mountSuccess() } );
   EXPECT_EQ( second.statuses,
              std::vector<MountStatus>{ MountStatus( MountStatus::entityMissing ) } );
   auto const& mounts = em->mounts();
   ASSERT_EQ( mounts.size(), 3u );
   EXPECT_EQ( mounts[0].path, "hw/caps" );
   EXPECT_EQ( mounts[2].group, b->id() );
   EXPECT_EQ( mounts[2].status, MountStatus( MountStatus::entityMissing ) );

   // "wc" made the entity through the factory, with its path, and published it.
   auto status = em->lookup<Status>( "nat/status" );
   ASSERT_TRUE( status );
   EXPECT_EQ( status->name(), "nat/status" );
   EXPECT_EQ( em->typeName( "nat/status" ), statusType );
   EXPECT_FALSE( em->lookup<Status const>( "hw/caps" ) ) << "of another type";
}

TEST_F( OrreryTest, StatusIsTheFirstFailureInMountOrder ) {
   using S = MountStatus;
   std::pair<Mounts, MountStatus> const cases[] = {
       { {}, Orrery::mountSuccess() },
       { { { "nat/missing", statusType, "w" } }, S( S::entityMissing ) },
       { { { "hw/caps", statusType, "r" } }, S( S::typeMismatch ) },
       { { { "hw/caps", statusType, "wc" } }, S( S::typeMismatch ) },
       { { { "nat/x", "OrreryTest::NoSuchType", "wc" } }, S( S::typeUnknown ) },
       { { { "hw/caps", capsType, "r" },
           { "nat/gone", capsType, "r" },
           { "hw/caps", statusType, "w" } },
         S( S::entityMissing ) },
       // An entity made by "wc" satisfies a later "r".
       { { { "nat/s", statusType, "wc" }, { "nat/s", statusType, "r" } },
         Orrery::mountSuccess() },
   };
   for ( auto const& [mounts, status] : cases ) {
      EXPECT_EQ( mountAll( mounts ), status ) << mounts.size() << " mounts";
   }
   EXPECT_FALSE( em->entity( "nat/x" ) );
}

}  // namespace
