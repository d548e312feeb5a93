#include "platform/chip/ChipUnit.h"

#include "platform/fwk/Assert.h"

namespace Chip {

char const* switchControlName( SwitchControl control ) {
   FWK_ASSERT( control == SwitchControl::L3EgressMode );
   return "bcmSwitchL3EgressMode";
}

ChipUnit::ChipUnit( int unit )
    : unit_( unit ),
      tables_{ Table( tableLayout( TableId::L4PortXlate ) ),
               Table( tableLayout( TableId::OpaqueStrengthA ) ),
               Table( tableLayout( TableId::OpaqueStrengthB ) ),
               Table( tableLayout( TableId::McastXlateTypes ) ) } {}

}  // namespace Chip
