// A plug-in's mounter built inside an agent: what it gets from the agent, and its
// state-database mounts reported back from the loop.

#include <gtest/gtest.h>

#include "platform/agent/MounterBase.h"
#include "platform/fwk/ActivityManager.h"

namespace {

class Thing : public Fwk::Entity {
public:
   explicit Thing( std::string name ) : Entity( std::move( name ) ) {}
};

class TestMounter : public CorvaneLib::MounterBase {
public:
   explicit TestMounter( std::string name ) : MounterBase( std::move( name ) ) {}
   void doInit() override {
      auto group = getMountGroup();
      group->doMount( "config/thing", "Test::Thing", "r" );
      group->doClose();
   }
   void doMountsComplete( Orrery::MountStatus status,
                          Orrery::EntityManager::Ptr manager ) override {
      statuses.push_back( status );
      thing = manager->lookup<Thing const>( "config/thing" );
   }
   std::vector<Orrery::MountStatus> statuses;
   Fwk::PtrConst<Thing> thing;
};

TEST( MounterBase, TakesTheAgentsServicesAndHearsItsMountsComplete ) {
   Fwk::ScopedActivityManager scope( Fwk::Clock::Ptr( new Fwk::VirtualClock ) );
   Agent::AgentContext agent;
   agent.name = "Corvane";
   agent.stateDatabase = new Orrery::EntityManager;
   agent.sharedMem = new VekSharedMem::EntityManager;
   Fwk::Ptr<Thing> shared( new Thing( "tcamManager" ) );
   agent.sharedEntities["tcamManager"] = shared;
   agent.stateDatabase->entityIs( "config/thing", "Test::Thing",
                                  new Thing( "config/thing" ) );
   Agent::currentAgentIs( &agent );

   Fwk::Ptr<TestMounter> mounter( new TestMounter( "nat" ) );
   EXPECT_EQ( mounter->agentName(), "Corvane" );
   EXPECT_EQ( mounter->sharedMemEntityManager(), agent.sharedMem.ptr() );
   EXPECT_EQ( mounter->sharedEntity<Thing>( "tcamManager" ), shared );
   EXPECT_FALSE( mounter->sharedEntity( "corvaneCommon" ) );

   mounter->doInit();
   EXPECT_TRUE( mounter->statuses.empty() );
   scope.manager().runUntilIdle();
   ASSERT_EQ( mounter->statuses.size(), 1u );
   EXPECT_EQ( mounter->statuses[0], Orrery::mountSuccess() );
   ASSERT_TRUE( mounter->thing );
   EXPECT_EQ( mounter->thing->name(), "config/thing" );
   Agent::currentAgentIs( nullptr );
}

}  // namespace
