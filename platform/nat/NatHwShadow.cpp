#include "platform/nat/NatHwShadow.h"

#include <ostream>

namespace Oro {

std::string valueToStrep( NatHwShadowEntry::Dirty dirty ) {
   switch ( dirty ) {
      case NatHwShadowEntry::clean:
         return "clean";
      case NatHwShadowEntry::programPending:
         return "programPending";
      case NatHwShadowEntry::deletePending:
         return "deletePending";
   }
   return std::to_string( static_cast<U32>( dirty ) );
}

// Defined here so that the type's vtable and type information live in the platform
// library only, and type checks agree between the host and the plug-ins.
NatHwShadow::~NatHwShadow() = default;

std::ostream& operator<<( std::ostream& os, NatHwShadowEntry const& entry ) {
   return os << "key: { " << entry.key() << " } data: { " << entry.data()
             << " } uid: " << entry.uid() << " dirty: " << valueToStrep( entry.dirty() );
}

}  // namespace Oro
