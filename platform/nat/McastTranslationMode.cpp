#include "platform/nat/McastTranslationMode.h"

namespace Ip {
namespace Nat {

std::string valueToStrep( McastTranslationType type ) {
   switch ( type ) {
      case mcastXlateSrc:
         return "mcastXlateSrc";
      case mcastXlateGroup:
         return "mcastXlateGroup";
      case mcastXlateSrcGroup:
         return "mcastXlateSrcGroup";
      case mcastXlateSrcPort:
         return "mcastXlateSrcPort";
      case mcastXlateGroupPort:
         return "mcastXlateGroupPort";
   }
   return std::to_string( static_cast<U32>( type ) );
}

// Defined here so that the type's vtable and type information live in the platform
// library only, and type checks agree between the host and the plug-ins.
McastTranslationMode::~McastTranslationMode() = default;

void McastTranslationMode::numTranslationTypesIs( U32 count ) {
   numTranslationTypes_ = count;
   notify( attrNumTranslationTypes );
}

void McastTranslationMode::typesIs( std::vector<McastTranslationType> const& types ) {
   U32 const count = static_cast<U32>( types.size() );
   for ( U32 position = 0; position < count; ++position ) {
      translationType_.set( position, types[position] );
   }
   std::vector<U32> stale;
   for ( auto const& entry : translationType_ ) {
      if ( entry.first >= count ) {
         stale.push_back( entry.first );
      }
   }
   for ( U32 position : stale ) {
      translationType_.del( position );
   }
   numTranslationTypesIs( count );
}

}  // namespace Nat
}  // namespace Ip
