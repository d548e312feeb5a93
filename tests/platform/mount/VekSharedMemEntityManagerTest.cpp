// Shared-memory mount groups as a plug-in uses them: ready while connected once closed,
// announced from the loop. (Tables created once and shared: every natsim run, where
// upstream and plug-in meet in them.)

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/fwk/ActivityManager.h"
#include "platform/fwk/TypeFactory.h"
#include "platform/mount/VekSharedMemEntityManager.h"

namespace {

using VekSharedMem::MountDescription;
using VekSharedMem::MountGroup;

class Table : public Fwk::Entity {
public:
   explicit Table( std::string name ) : Entity( std::move( name ) ) {}
};

char const tableType[] = "VekTest::Table";

Fwk::TypeRegistration tableRegistration( tableType, []( auto const& args ) {
   return Fwk::Entity::Ptr( new Table( args.at( 0 ) ) );
} );

typedef std::vector<bool> Log;

// Logs the readiness a group has at each notification, as a plug-in's reactor sees it.
class ReadyWatcher : public Fwk::ReactorOn<MountGroup const, Log> {
public:
   ReadyWatcher( MountGroup::PtrConst const& group, Log* log ) : ReactorOn( group, log ) {
      hasNotificationActiveIs( true );
   }
   void onAttribute( Fwk::AttributeId attr, Fwk::KeyRef ) override {
      EXPECT_EQ( attr, MountGroup::attrReady );
      owner()->push_back( notifier()->ready() );
   }
};

class VekSharedMemTest : public ::testing::Test {
protected:
   Fwk::ScopedActivityManager scope{ Fwk::Clock::Ptr( new Fwk::VirtualClock ) };
   Fwk::ActivityManager& loop = scope.manager();
   VekSharedMem::EntityManager::Ptr em{ new VekSharedMem::EntityManager };
   MountDescription shared{ MountDescription::shared };
   Log log;
};

TEST_F( VekSharedMemTest, AClosedGroupIsReadyWhileConnected ) {
   auto group = em->mountGroup();
   ReadyWatcher watcher( group, &log );
   group->doMount( "nat/rules", tableType, shared );
   loop.runUntilIdle();
   EXPECT_FALSE( group->ready() ) << "an open group is never ready";

   group->doClose();
   EXPECT_FALSE( group->ready() ) << "readiness comes from the loop";
   EXPECT_TRUE( log.empty() );
   loop.runUntilIdle();
   EXPECT_TRUE( group->ready() );
   EXPECT_EQ( log, ( Log{ true } ) );

   em->connectedIs( false );
   loop.runUntilIdle();
   EXPECT_FALSE( group->ready() );
   em->connectedIs( false );
   loop.runUntilIdle();
   EXPECT_EQ( log, ( Log{ true, false } ) ) << "no change, no notification";

   // A group closed while disconnected waits for the connection.
   auto late = em->mountGroup();
   late->doClose();
   Log lateLog;
   ReadyWatcher lateWatcher( late, &lateLog );
   loop.runUntilIdle();
   EXPECT_FALSE( late->ready() );
   em->connectedIs( true );
   loop.runUntilIdle();
   EXPECT_TRUE( group->ready() && late->ready() );
   EXPECT_EQ( log, ( Log{ true, false, true } ) );
   EXPECT_EQ( lateLog, ( Log{ true } ) );

   // A closed group that its user drops leaves the manager: the next change of the
   // connection must not reach it (the sanitize build sees a dangling one).
   auto dropped = em->mountGroup();
   dropped->doClose();
   loop.runUntilIdle();
   dropped = nullptr;
   em->connectedIs( false );
   loop.runUntilIdle();
   EXPECT_FALSE( group->ready() );
}

}  // namespace
