#include "platform/agent/PluginLoader.h"

#include <dlfcn.h>

#include <algorithm>

#include "platform/fwk/TypeFactory.h"

namespace Agent {

bool pluginLoad( std::string const& path, Plugin* plugin, std::string* error ) {
   auto& factory = Fwk::TypeFactory::instance();
   std::vector<std::string> before = factory.typeNames();
   // RTLD_GLOBAL: the plug-in's symbols stay visible to libraries it loads in turn.
   void* handle = ::dlopen( path.c_str(), RTLD_NOW | RTLD_GLOBAL );
   if ( !handle ) {
      char const* text = ::dlerror();
      *error = text ? text : ( "cannot load " + path );
      return false;
   }
   plugin->path = path;
   plugin->types.clear();
   for ( auto const& name : factory.typeNames() ) {
      if ( !std::binary_search( before.begin(), before.end(), name ) ) {
         plugin->types.push_back( name );
      }
   }
   return true;
}

Fwk::Entity::Ptr entityFromType( std::string const& typeName, std::string const& name ) {
   return Fwk::TypeFactory::instance().create( typeName, { name } );
}

}  // namespace Agent
