#include "platform/mount/OrreryMountStatus.h"

#include <ostream>

namespace Orrery {

std::string MountStatus::stringValue() const {
   switch ( code_ ) {
      case success:
         return "success";
      case pending:
         return "pending";
      case entityMissing:
         return "entity missing";
      case typeMismatch:
         return "type mismatch";
      case typeUnknown:
         return "type unknown";
   }
   return "status " + std::to_string( static_cast<int>( code_ ) );
}

std::ostream& operator<<( std::ostream& os, MountStatus status ) {
   return os << status.stringValue();
}

}  // namespace Orrery
