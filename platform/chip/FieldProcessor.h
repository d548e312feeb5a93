#pragma once

// The ingress field processor of one unit: its entries, their ids and packet lookup.
//
// Entry ids are unique within the unit across all groups. A new entry takes the most
// recently freed id, or the next unused one (ids start at 1; 0 is never an entry).
// Entries are held in a hash map by id and every call costs O(1) or O(log n) in the
// number of entries, except lookup(), which walks the installed entries of one group
// in lookup order until the first match.
//
// Lookup order within a group: higher priority first; among equal priorities the
// entry installed first. install() takes a new install order (also for an installed
// entry, which so moves behind its equals); reinstall() keeps the entry's order (an
// entry never installed takes a new one). Changing the priority of an installed entry
// moves it at once and keeps its install order.

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/chip/FpEntry.h"

namespace Chip {

// The outcome of a change of the chip; the SDK shim turns it into its codes.
enum class Status : U8 { ok, noEntry, badParam };

class FieldProcessor {
public:
   FieldProcessor() = default;
   FieldProcessor( FieldProcessor const& ) = delete;
   FieldProcessor& operator=( FieldProcessor const& ) = delete;

   // Creates an entry in `group`, not installed, and returns its id.
   U32 entryIs( U32 group, std::string description );
   // Removes an entry (uninstalling it) and frees its id. False when there is none.
   bool entryDel( U32 id );
   // The entry of an id, or null; valid until the entry is removed.
   FpEntry const* entry( U32 id ) const;
   std::size_t entries() const { return entries_.size(); }
   // Ids of all entries, ascending.
   std::vector<U32> entryIds() const;

   // Data and mask are truncated to the qualifier's width. Not for IpFrag or
   // ExactMatch (badParam).
   Status qualifierIs( U32 id, Qualifier qualifier, U32 data, U32 mask );
   Status ipFragIs( U32 id, IpFragSelector selector );
   Status exactMatchIs( U32 id, U32 instance, ExactMatchField field, U32 data, U32 mask );
   // Takes a qualifier off an entry, so that it no longer restricts what the entry
   // matches; noEntry when the entry does not exist or does not hold the qualifier.
   Status qualifierDel( U32 id, Qualifier qualifier );
   Status actionAdd( U32 id, ActionRecord action );
   Status actionDelAll( U32 id );
   Status priorityIs( U32 id, S32 priority );
   Status install( U32 id );
   Status reinstall( U32 id );
   Status uninstall( U32 id );

   // The first installed entry of `group` in lookup order that matches the packet, or
   // 0; the matched entry's hit counter grows by `count`.
   U32 lookup( U32 group, Packet const& packet, U64 count );

private:
   // Position in lookup order: priority descending, then install order ascending.
   struct Rank {
      S32 priority;
      U64 order;
      bool operator<( Rank const& o ) const {
         return priority != o.priority ? priority > o.priority : order < o.order;
      }
   };
   typedef std::map<Rank, FpEntry*> Order;

   FpEntry* find( U32 id );
   U32 idNew();
   void orderIs( FpEntry& entry, bool installed );
   Rank rank( FpEntry const& entry ) const {
      return { entry.priority_, entry.installOrder_ };
   }

   std::unordered_map<U32, FpEntry> entries_;
   std::vector<U32> freeIds_;
   U32 nextId_ = 1;
   U64 installSequence_ = 0;
   // Installed entries of each group in lookup order.
   std::unordered_map<U32, Order> installed_;
};

}  // namespace Chip
