#pragma once

// Loads plug-ins into the agent.
//
// A plug-in is a shared library. Loading it runs its static initialisers, which register
// its entity types with the type factory (and its trace handles and log events); the
// host then creates the plug-in's mounter by type name with one string argument, the
// mounter's name. Libraries stay loaded for the life of the process: entities of their
// types may live until the end.

#include <string>
#include <vector>

#include "platform/fwk/Entity.h"

namespace Agent {

struct Plugin {
   std::string path;
   // The entity types that loading the library registered, by name.
   std::vector<std::string> types;
};

// Loads the library at `path`. Returns false and an error text (the loader's own,
// naming the library) when it cannot be loaded.
bool pluginLoad( std::string const& path, Plugin* plugin, std::string* error );

// Creates an entity of a registered type with its name as the one argument; null when
// the type is not registered.
Fwk::Entity::Ptr entityFromType( std::string const& typeName, std::string const& name );

}  // namespace Agent
