#pragma once

// The switch chip: a set of SDK units, each created explicitly with unitIs().
//
// The model is what the SDK shim and the TCAM managers work on, and what the simulator
// reports. It is reference-counted; the shim and the managers hold a reference. A unit,
// once created, lives as long as the model, so pointers to it stay valid.
//
// The chip is not part of the agent. When the agent restarts, every entry stays
// installed with its counter and keeps matching packets, and memories, registers and
// switch controls keep their values. The restarted agent's TCAM managers take the
// entries over as leftover entries and release those nobody claims when the restart
// is over (see CorvaneTcamGroupManager).

#include <map>
#include <memory>
#include <vector>

#include "platform/chip/ChipUnit.h"
#include "platform/fwk/Ptr.h"

namespace Chip {

class ChipModel : public Fwk::PtrInterface {
public:
   typedef Fwk::Ptr<ChipModel> Ptr;

   static Ptr ChipModelIs() { return Ptr( new ChipModel() ); }

   // Creates a unit; an existing unit is kept as it is.
   ChipUnit& unitIs( int unit );
   // The unit of a number, or null when it was never created.
   ChipUnit* unit( int unit );
   ChipUnit const* unit( int unit ) const;
   // Numbers of all units, ascending.
   std::vector<int> units() const;

   // Field-processor entries of a unit in `group` matched against a packet (see
   // FieldProcessor::lookup); 0 when nothing matched or the unit does not exist.
   U32 lookup( int unit, U32 group, Packet const& packet, U64 count );

private:
   ChipModel() = default;

   std::map<int, std::unique_ptr<ChipUnit>> units_;
};

}  // namespace Chip
