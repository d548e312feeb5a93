#pragma once

// The entries of one TCAM group assignment, over the chip model.
//
// The manager hands out entry ids of its group on each unit, up to the unit's capacity
// (set by the simulator; 512 until then). Ids come from the unit's field processor, so
// they are unique on the unit across all groups, released ids are reused, and
// allocation and release cost O(1). getEntry creates the entry in the chip, in the
// group, with the description, not installed.
//
// No operation reports failure to its caller: an operation on an id that is 0, unknown
// or of another group, or on a unit that does not exist, does nothing (getEntry then
// returns 0). Every operation is recorded in the journal (Chip::journal()) with the
// unit, the entry id (for getEntry the id returned, 0 when full) and return code 0;
// getEntry's arguments are [description], setPriorityForEntry's [priority] (a negative
// priority, which the agent does not use, reads as its 64-bit two's complement), the
// others' [].
//
// Agent restarts. The chip is not part of the agent: its entries stay installed when the
// agent restarts, and traffic goes on matching them. A restarted agent's managers do not
// know those ids. The group manager hands each entry it finds in the chip at its
// construction to the manager of the entry's group as a leftover entry: it takes room
// in the group (entriesAvailable) but is not allocated (entriesAllocated) and getEntry
// never returns it. A leftover entry is either claimed (claimEntry: it becomes allocated
// as if from getEntry) or released, individually with releaseEntry or all at once with
// leftoverEntriesRelease(), which the platform calls when the restart is over. Either
// way the chip ends with exactly the entries the restarted agent holds.
//
// Reference-counted; the group manager holds each manager it made, and a manager holds
// the chip.

#include <map>
#include <string>
#include <unordered_set>

#include "platform/chip/ChipModel.h"
#include "platform/chip/Journal.h"
#include "platform/fwk/Ptr.h"
#include "platform/tcam/TcamTypes.h"

namespace Corvane {

class CorvaneTcamEntryManager : public Fwk::PtrInterface {
public:
   typedef Fwk::Ptr<CorvaneTcamEntryManager> Ptr;
   static constexpr U32 defaultCapacity = 512;

   CorvaneTcamEntryManager( Chip::ChipModel::Ptr chip, TcamGroupAssignment group );

   TcamGroupAssignment groupAssignment() const { return group_; }

   // How many entries of the group the unit holds. A capacity below the entries
   // allocated leaves them in place; no new one is given until enough are released.
   void capacityIs( U16 unit, U32 entries );
   U32 capacity( U16 unit ) const;

   // A new entry id, or 0 when the unit's group is full (nothing is created then). The
   // description is taken over by the chip's entry.
   U32 getEntry( U16 unit, std::string description,
                 CorvaneTcam::RequestKey const& requestKey );
   void setPriorityForEntry( U16 unit, U32 entryId, S32 priority );
   // Installs the entry behind installed entries of equal priority.
   void installEntry( U16 unit, U32 entryId );
   // Installs the entry again in its place among equal priorities.
   void reinstallEntry( U16 unit, U32 entryId );
   // Removes the entry from the chip and frees its id for reuse.
   void releaseEntry( U16 unit, U32 entryId );
   // The entry's hit counter in the chip; 0 for an unknown entry.
   U64 hitsForEntry( U16 unit, U32 entryId );

   U32 entriesAllocated( U16 unit ) const;
   // Capacity minus entries allocated and leftover entries, 0 when the group is over
   // capacity.
   U32 entriesAvailable( U16 unit ) const;

   // Records an entry of this group that the chip held before the agent (re)started;
   // the group manager calls it at construction, before any entry is allocated. Ignored
   // for an id the unit does not hold in this group, or that is leftover already.
   void leftoverEntryIs( U16 unit, U32 entryId );
   // Leftover entries of the unit, not claimed or released yet.
   U32 leftoverEntries( U16 unit ) const;
   // Takes a leftover entry over: it becomes allocated, untouched in the chip. False
   // (and nothing changes) when the id is not a leftover entry of the unit. Journaled
   // as claimEntry with [].
   bool claimEntry( U16 unit, U32 entryId );
   // Releases every leftover entry of every unit, journaled as releaseEntry each, in
   // ascending unit and id order.
   void leftoverEntriesRelease();

private:
   struct UnitUse {
      U32 capacity = defaultCapacity;
      U32 allocated = 0;
      U32 leftover = 0;
   };

   Chip::FieldProcessor* fieldProcessor( U16 unit ) const;
   // The unit's field processor when it holds `entryId` in this group, else null.
   Chip::FieldProcessor* owner( U16 unit, U32 entryId ) const;
   UnitUse use( U16 unit ) const;
   // Callers check journaling() first, so that a disabled journal costs no arguments.
   bool journaling() const { return Chip::journal().enabled(); }
   void record( char const* call, U16 unit, U32 entryId, Chip::Args args ) const;

   // Removes `entryId` from the unit's leftover entries; false when it is not one.
   bool leftoverDel( U16 unit, U32 entryId );

   Chip::ChipModel::Ptr chip_;
   TcamGroupAssignment group_;
   std::map<U16, UnitUse> units_;
   // Leftover entry ids per unit; empty but for a restarted agent.
   std::map<U16, std::unordered_set<U32>> leftovers_;
};

}  // namespace Corvane
