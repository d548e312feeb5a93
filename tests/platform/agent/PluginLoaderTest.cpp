// Loading a plug-in library and creating the type that only it registered.

#include <gtest/gtest.h>

#include "platform/agent/AgentContext.h"
#include "platform/agent/PluginLoader.h"
#include "platform/fwk/ActivityManager.h"
#include "platform/fwk/TypeFactory.h"

namespace {

TEST( PluginLoader, CreatesATypeThatOnlyTheLoadedLibraryRegistered ) {
   EXPECT_FALSE( Agent::entityFromType( "TestPlugin::Mounter", "m" ) )
       << "not known before the library is loaded";
   Agent::Plugin plugin;
   std::string error;
   ASSERT_TRUE( Agent::pluginLoad( TEST_PLUGIN_PATH, &plugin, &error ) ) << error;
   EXPECT_EQ( plugin.types, ( std::vector<std::string>{ "TestPlugin::CliCallback",
                                                        "TestPlugin::Mounter" } ) );
   Fwk::ScopedActivityManager scope( Fwk::Clock::Ptr( new Fwk::VirtualClock ) );
   Agent::AgentContext agent;
   agent.stateDatabase = new Orrery::EntityManager;
   agent.sharedMem = new VekSharedMem::EntityManager;
   Agent::currentAgentIs( &agent );  // a mounter is built inside an agent
   Fwk::Entity::Ptr mounter = Agent::entityFromType( "TestPlugin::Mounter", "nat" );
   Agent::currentAgentIs( nullptr );
   ASSERT_TRUE( mounter );
   EXPECT_EQ( mounter->name(), "nat" );
}

TEST( PluginLoader, AMissingLibraryIsAnErrorNamingIt ) {
   Agent::Plugin plugin;
   std::string error;
   EXPECT_FALSE( Agent::pluginLoad( "/nonexistent/libNothing.so", &plugin, &error ) );
   EXPECT_NE( error.find( "libNothing.so" ), std::string::npos ) << error;
}

}  // namespace
