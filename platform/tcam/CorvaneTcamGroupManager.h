#pragma once

// The agent's TCAM group manager, the agent-shared entity "tcamManager".
//
// It hands out one entry manager per group assignment (the same one every time) and
// tells how a unit holds entries in pipes. A unit has one pipe unless the simulator
// sets more (numPipeIs), and one copy of each entry per pipe. The id of an entry in
// pipe p is entryId + p * pipeEntryIdStride, so pipe 0 holds the entry's own id.
// Asking for a pipe or copy that the unit does not have throws Fwk::RangeException.
//
// A group manager made over a chip that already holds entries belongs to an agent that
// restarted while the hardware kept its state: every entry of the chip becomes a
// leftover entry of its group's entry manager (see CorvaneTcamEntryManager), and
// leftoverEntriesRelease() ends the restart by releasing the ones nobody claimed.

#include <map>

#include "platform/chip/ChipModel.h"
#include "platform/fwk/Entity.h"
#include "platform/tcam/CorvaneTcamEntryManager.h"

namespace Corvane {

class CorvaneTcamGroupManager : public Fwk::Entity {
public:
   typedef Fwk::Ptr<CorvaneTcamGroupManager> Ptr;
   static constexpr U32 pipeEntryIdStride = 0x1000000;
   static constexpr U32 maxPipes = 16;

   // A group manager over the chip; the entries the chip holds now become leftover
   // entries of their groups.
   static Ptr CorvaneTcamGroupManagerIs( Chip::ChipModel::Ptr chip );

   // The entry manager of a group assignment, made on first use.
   CorvaneTcamEntryManager::Ptr unboundedEntryManager( TcamGroupAssignment group );

   U32 getNumPipe( U16 unit ) const;
   // Sets the unit's pipes, 1 to maxPipes (else Fwk::RangeException).
   void numPipeIs( U16 unit, U32 pipes );
   U32 getNumCopiesPerPipe( U16 unit, U32 pipe ) const;
   U32 getPipeEntryId( U16 unit, U32 entryId, U32 pipe, U32 copy ) const;

   // Releases every leftover entry not claimed, of every group (the end of a restart).
   void leftoverEntriesRelease();

protected:
   explicit CorvaneTcamGroupManager( Chip::ChipModel::Ptr chip );

private:
   void leftoverEntriesIs();
   void pipeCheck( U16 unit, U32 pipe ) const;

   Chip::ChipModel::Ptr chip_;
   std::map<TcamGroupAssignment, CorvaneTcamEntryManager::Ptr> entryManagers_;
   std::map<U16, U32> pipes_;
};

}  // namespace Corvane
