#include "platform/nat/ModSetDir.h"

#include <algorithm>
#include <ostream>

namespace CorvaneNat {

bool ModSet::hasModule( ModId mod ) const {
   return std::binary_search( modules_.begin(), modules_.end(), mod );
}

void ModSet::moduleIs( ModId mod ) {
   auto i = std::lower_bound( modules_.begin(), modules_.end(), mod );
   if ( i == modules_.end() || *i != mod ) {
      modules_.insert( i, mod );
   }
}

bool ModSet::moduleDel( ModId mod ) {
   auto i = std::lower_bound( modules_.begin(), modules_.end(), mod );
   if ( i == modules_.end() || *i != mod ) {
      return false;
   }
   modules_.erase( i );
   return true;
}

std::ostream& operator<<( std::ostream& os, ModSet const& set ) {
   os << "{ ";
   for ( ModSet::ModId mod : set ) {
      os << mod << " ";
   }
   return os << "}";
}

// Defined here so that the type's vtable and type information live in the platform
// library only, and type checks agree between the host and the plug-ins.
ModSetDir::~ModSetDir() = default;

}  // namespace CorvaneNat
