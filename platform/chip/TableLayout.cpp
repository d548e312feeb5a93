#include "platform/chip/TableLayout.h"

#include "platform/fwk/Assert.h"

namespace Chip {

namespace {

std::vector<TableLayout> const& layouts() {
   // In the order of TableId.
   static std::vector<TableLayout> const all = {
       { "L4_PORT_XLATE",
         false,
         64,
         3,
         { { "XLATE_ENABLE", 37, 2, true, 0 }, { "L4_PORT_MODE", 30, 4, false, 0x9 } } },
       { "OPAQUE_STRENGTH_A",
         false,
         16,
         2,
         { { "OPAQUE1_STRENGTH", 3, 4, true, 0 },
           { "OPAQUE2_STRENGTH", 40, 4, true, 0 },
           { "CLASS_STRENGTH", 12, 4, false, 0x5 } } },
       { "OPAQUE_STRENGTH_B",
         false,
         16,
         2,
         { { "OPAQUE_STRENGTH", 9, 4, true, 0 }, { "L3_STRENGTH", 33, 4, false, 0xc } } },
       { "MCAST_XLATE_TYPES",
         true,
         1,
         1,
         { { "FIXED_1", 2, 2, true, 0 },
           { "FIXED_2", 4, 2, true, 0 },
           { "FIXED_3", 6, 2, true, 0 },
           { "FIXED_4", 8, 2, true, 0 },
           { "FIXED_5", 10, 2, true, 0 },
           { "TYPE_0", 12, 3, true, 0 },
           { "ENABLE_0", 15, 1, true, 0 },
           { "TYPE_1", 16, 3, true, 0 },
           { "ENABLE_1", 19, 1, true, 0 },
           { "TYPE_2", 20, 3, true, 0 },
           { "ENABLE_2", 23, 1, true, 0 },
           { "RESERVED_LO", 0, 2, false, 0x2 },
           { "RESERVED_HI", 24, 8, false, 0xa5 } } },
   };
   return all;
}

}  // namespace

FieldLayout const* TableLayout::field( std::string const& fieldName ) const {
   for ( auto const& f : fields ) {
      if ( fieldName == f.name ) {
         return &f;
      }
   }
   return nullptr;
}

TableLayout const& tableLayout( TableId id ) {
   auto index = static_cast<unsigned>( id );
   FWK_ASSERT( index < tableCount );
   return layouts()[index];
}

}  // namespace Chip
