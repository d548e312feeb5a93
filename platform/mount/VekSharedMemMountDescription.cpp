#include "platform/mount/VekSharedMemMountDescription.h"

namespace VekSharedMem {

U32 MountDescription::collectionSize( std::string const& collection ) const {
   auto i = sizes_.find( collection );
   return i == sizes_.end() ? 0 : i->second;
}

std::string MountDescription::stringValue() const {
   std::string text;
   switch ( mountType_ ) {
      case localStatus:
         text = "localStatus";
         break;
      case requestReader:
         text = "requestReader";
         break;
      case shared:
         text = "shared";
         break;
      default:
         text = "type" + std::to_string( mountType_ );
   }
   for ( auto const& size : sizes_ ) {
      text += " " + size.first + "=" + std::to_string( size.second );
   }
   return text;
}

}  // namespace VekSharedMem
