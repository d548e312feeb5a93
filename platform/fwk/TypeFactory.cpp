#include "platform/fwk/TypeFactory.h"

namespace Fwk {

TypeFactory& TypeFactory::instance() {
   static TypeFactory factory;
   return factory;
}

void TypeFactory::typeIs( std::string const& name, Creator creator ) {
   creators_[name] = std::move( creator );
}

bool TypeFactory::typeHas( std::string const& name ) const {
   return creators_.count( name ) != 0;
}

std::vector<std::string> TypeFactory::typeNames() const {
   std::vector<std::string> names;
   for ( auto const& entry : creators_ ) {
      names.push_back( entry.first );
   }
   return names;
}

Entity::Ptr TypeFactory::create( std::string const& name,
                                 std::vector<std::string> const& args ) const {
   auto i = creators_.find( name );
   if ( i == creators_.end() ) {
      return nullptr;
   }
   return i->second( args );
}

}  // namespace Fwk
