// Loading a plug-in library and creating the type that only it registered.

#include <gtest/gtest.h>

#include "platform/agent/PluginLoader.h"
#include "platform/fwk/TypeFactory.h"

namespace {

TEST( PluginLoader, CreatesATypeThatOnlyTheLoadedLibraryRegistered ) {
   EXPECT_FALSE( Agent::entityFromType( "TestPlugin::Mounter", "m" ) )
       << "not known before the library is loaded";
   Agent::Plugin plugin;
   std::string error;
   ASSERT_TRUE( Agent::pluginLoad( TEST_PLUGIN_PATH, &plugin, &error ) ) << error;
   EXPECT_EQ( plugin.types, std::vector<std::string>{ "TestPlugin::Mounter" } );
   Fwk::Entity::Ptr mounter = Agent::entityFromType( "TestPlugin::Mounter", "nat" );
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
