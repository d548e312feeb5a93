#include "platform/chip/ChipModel.h"

namespace Chip {

ChipUnit& ChipModel::unitIs( int unit ) {
   auto& slot = units_[unit];
   if ( !slot ) {
      slot = std::make_unique<ChipUnit>( unit );
   }
   return *slot;
}

ChipUnit* ChipModel::unit( int unit ) {
   auto i = units_.find( unit );
   return i == units_.end() ? nullptr : i->second.get();
}

ChipUnit const* ChipModel::unit( int unit ) const {
   auto i = units_.find( unit );
   return i == units_.end() ? nullptr : i->second.get();
}

std::vector<int> ChipModel::units() const {
   std::vector<int> numbers;
   for ( auto const& u : units_ ) {
      numbers.push_back( u.first );
   }
   return numbers;
}

U32 ChipModel::lookup( int unit, U32 group, Packet const& packet, U64 count ) {
   ChipUnit* u = this->unit( unit );
   return u ? u->fieldProcessor().lookup( group, packet, count ) : 0;
}

}  // namespace Chip
