#pragma once

// One SDK unit of the chip: its field processor, memories and register, switch
// controls, and the chip-family flag that the SDK shim reports.

#include <array>
#include <map>

#include "platform/chip/FieldProcessor.h"
#include "platform/chip/Table.h"

namespace Chip {

// The switch controls the chip knows.
enum class SwitchControl : U8 { L3EgressMode };
// The SDK's name of the control ("bcmSwitchL3EgressMode").
char const* switchControlName( SwitchControl control );

class ChipUnit {
public:
   explicit ChipUnit( int unit );
   ChipUnit( ChipUnit const& ) = delete;
   ChipUnit& operator=( ChipUnit const& ) = delete;

   int unit() const { return unit_; }

   FieldProcessor& fieldProcessor() { return fieldProcessor_; }
   FieldProcessor const& fieldProcessor() const { return fieldProcessor_; }

   Table& table( TableId id ) { return tables_[unsigned( id )]; }
   Table const& table( TableId id ) const { return tables_[unsigned( id )]; }

   // The controls ever set, with their last value.
   std::map<SwitchControl, int> const& switchControls() const { return switchControls_; }
   void switchControlIs( SwitchControl control, int value ) {
      switchControls_[control] = value;
   }

   // Which chip family the unit belongs to (false until the simulator sets it).
   bool natChipFamily() const { return natChipFamily_; }
   void natChipFamilyIs( bool family ) { natChipFamily_ = family; }

private:
   int unit_;
   FieldProcessor fieldProcessor_;
   std::array<Table, tableCount> tables_;
   std::map<SwitchControl, int> switchControls_;
   bool natChipFamily_ = false;
};

}  // namespace Chip
