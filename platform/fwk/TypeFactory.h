#pragma once

// The type factory: entity types registered by name and created by name.
//
// A plug-in registers its types from static initialisers when it is loaded; the host
// then creates them by name with an argument vector. There is one factory per process
// (the platform is a shared library, so host and plug-ins share it).

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/fwk/Entity.h"

namespace Fwk {

class TypeFactory {
public:
   typedef std::function<Entity::Ptr( std::vector<std::string> const& args )> Creator;

   static TypeFactory& instance();

   // Registers a type; registering a name twice replaces the creator.
   void typeIs( std::string const& name, Creator creator );
   bool typeHas( std::string const& name ) const;
   std::vector<std::string> typeNames() const;
   // Creates an entity of a registered type; null when the name is unknown.
   Entity::Ptr create( std::string const& name,
                       std::vector<std::string> const& args ) const;

private:
   std::map<std::string, Creator> creators_;
};

// Registers a type from a static initialiser:
//   static Fwk::TypeRegistration reg( "Corvane::NatMounter", []( auto const& args ) {...}
//   );
struct TypeRegistration {
   TypeRegistration( std::string const& name, TypeFactory::Creator creator ) {
      TypeFactory::instance().typeIs( name, std::move( creator ) );
   }
};

// The creator of an entity type whose only constructor argument is its name: it takes
// the argument vector { name } (a mount passes the entity's path) and gives null when
// the vector is empty; further arguments are ignored.
template <class T>
TypeFactory::Creator namedEntityCreator() {
   return []( std::vector<std::string> const& args ) -> Entity::Ptr {
      if ( args.empty() ) {
         return nullptr;
      }
      return Entity::Ptr( new T( args[0] ) );
   };
}

}  // namespace Fwk
