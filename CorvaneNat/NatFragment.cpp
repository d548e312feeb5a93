// Fragment entries: the second entry of a key and VLAN, matching non-first IP fragments
// (which carry no L4 ports), added to or freed from every programmed key when
// fragmentEnabled changes.
//
// How the handling behaves, and why:
//
// - Which entries. Turning the feature on gives a fragment entry to every VLAN that
//   holds a default entry in the row of a key that needs one (needsFragEntry); that is
//   exactly what doProgram would have made had the feature been on when the key was
//   committed, so a later commit of the key finds the ids it expects and reprograms
//   both. Keys that a commit answered without programming (dynamic keys the hardware
//   mode cannot hold) have no row and get nothing. A VLAN that already has a fragment
//   entry keeps it. Every row is handled whatever the dirty state of its shadow entry:
//   a key whose removal is still to be committed gets its fragment entry and the
//   removal frees it with the default one.
// - What they are programmed with. The key's current shadow data, with the key itself
//   as the paired key, as the commit programs it; the opaque id and the description
//   come from the same data. A row whose key is not in the shadow (or not in the
//   key-to-uid table) is a broken table and stops the process, as it does in the
//   commit; this is found before any entry is taken.
// - Room first, and nothing half-added. The fragment entries needed are counted and
//   compared with the group's free entries before any is taken, so a short TCAM
//   changes nothing in the chip. When there is room, every id is taken before any
//   entry is programmed; should the manager still refuse one, the ids already taken go
//   back and nothing is programmed or recorded. Only then are the entries programmed
//   and stored in the rows.
// - Short of room. The handler traces "Not enough space in TCAM to add fragments
//   entries." and "Disabling fragment feature." and switches the feature off with
//   fragmentEnabledIs( false ), which reports it in the capability status and calls
//   this handler again at once; that inner call runs the "off" half (which finds no
//   fragment entry to free) and the outer one does nothing after it. The feature stays
//   off until the configuration turns it off and on again.
// - Off. Every fragment entry of every row is released through the entry manager
//   (which takes it out of the chip) and dropped from its row; default entries and rows
//   stay as they are.
// - Before initialization there is no entry-id table and nothing is programmed, so
//   there is nothing to do: once initialized, the commits make fragment entries as the
//   keys arrive, following fragmentEnabled().
// - Order. Entries are added in the order of their default entries' ids and freed in
//   the order of their own ids, so a run gives the same chip on every build. All NAT
//   entries share one priority, so an added fragment entry is looked up after every
//   NAT entry installed before it, where a commit would have installed it right after
//   its default entry; only rules that overlap can tell the difference.

#include <algorithm>
#include <vector>

#include "CorvaneNat/NatTrace.h"
#include "CorvaneNat/NatWorkerSm.h"

namespace Corvane {

namespace {

// One fragment entry to add or to free.
struct FragEntrySlot {
   Oro::NatHwKey key;
   U16 vlanId;
   // The VLAN's default entry (to add) or fragment entry (to free).
   U32 entryId;
};

// One fragment entry to add, with what it is programmed with.
struct FragEntryToAdd {
   FragEntrySlot slot;
   Oro::NatHwData data;
   U32 opaqueId;
};

bool entryIdLess( FragEntrySlot const& a, FragEntrySlot const& b ) {
   return a.entryId < b.entryId;
}

}  // namespace

void NatWorkerSm::handleFragment() {
   NAT_TRACE(
       8, "handleFragment",
       " fragmentEnabled: " << fragmentEnabled() << " initialized: " << initialized() );
   if ( !entryIdTable() ) {
      return;  // nothing programmed yet; the commits follow fragmentEnabled()
   }
   CorvaneTcamEntryManager* entryManager = natEntryManager();

   if ( !fragmentEnabled() ) {
      std::vector<FragEntrySlot> held;
      for ( EntryIdTableEntry const& row : *entryIdTable() ) {
         for ( auto const& frag : row.fragEntryIds() ) {
            held.push_back( { row.key(), frag.vlanId, frag.entryId } );
         }
      }
      std::sort( held.begin(), held.end(), entryIdLess );
      for ( FragEntrySlot const& slot : held ) {
         NAT_TRACE( 8, "handleFragment",
                    " freeing frag entry " << slot.entryId << " for vlan " << slot.vlanId
                                           << " key " << slot.key.stringValue() );
         entryManager->releaseEntry( unit(), slot.entryId );
         EntryIdTableEntry row = entryIdTable()->entry( slot.key );
         row.fragEntryIdDel( slot.vlanId );
         entryIdTable()->entryIs( row );
      }
      return;
   }

   // What each entry is programmed with is looked up before any id is taken, so that a
   // broken table stops the process before anything has changed.
   std::vector<FragEntryToAdd> missing;
   for ( EntryIdTableEntry const& row : *entryIdTable() ) {
      if ( !needsFragEntry( row.key() ) ) {
         continue;
      }
      for ( auto const& entry : row.defaultEntryIds() ) {
         if ( row.fragEntryIdHas( entry.vlanId ) ) {
            continue;
         }
         FWK_ASSERT( shadow()->entryHas( row.key() ) );
         Oro::NatHwData const& data = shadow()->entry( row.key() )->data();
         missing.push_back( { { row.key(), entry.vlanId, entry.entryId },
                              data,
                              opaqueIdOf( row.key(), data ) } );
      }
   }
   if ( missing.empty() ) {
      return;
   }
   std::sort( missing.begin(), missing.end(),
              []( FragEntryToAdd const& a, FragEntryToAdd const& b ) {
                 return entryIdLess( a.slot, b.slot );
              } );

   U32 const available = entryManager->entriesAvailable( unit() );
   NAT_TRACE( 8, "handleFragment",
              " frag entries needed " << missing.size() << " available " << available );
   bool room = missing.size() <= available;

   // Take every id before programming any, so that a refusal leaves nothing behind.
   std::vector<U32> ids;
   if ( room ) {
      ids.reserve( missing.size() );
      for ( FragEntryToAdd const& add : missing ) {
         U32 const id = entryManager->getEntry(
             unit(),
             natEntryDescription( add.slot.key, add.slot.vlanId, NatEntryKind::fragEntry,
                                  add.data.multicast(), mode() ),
             CorvaneTcam::RequestKey() );
         if ( id == 0 ) {
            room = false;
            break;
         }
         ids.push_back( id );
      }
      if ( !room ) {
         for ( U32 id : ids ) {
            entryManager->releaseEntry( unit(), id );
         }
      }
   }
   if ( !room ) {
      NAT_TRACE( 0, "handleFragment",
                 "Not enough space in TCAM to add fragments entries." );
      NAT_TRACE( 0, "handleFragment", "Disabling fragment feature." );
      // Re-enters this handler with the feature off; nothing is left to do here.
      fragmentEnabledIs( false );
      return;
   }

   for ( std::size_t i = 0; i < missing.size(); ++i ) {
      FragEntryToAdd const& add = missing[i];
      U32 const fragEntryId = ids[i];
      EntryIdTableEntry row = entryIdTable()->entry( add.slot.key );
      row.fragEntryIdIs( add.slot.vlanId, fragEntryId );
      entryIdTable()->entryIs( row );
      NAT_TRACE( 8, "handleFragment",
                 " adding frag entry " << fragEntryId << " for vlan " << add.slot.vlanId
                                       << " key " << add.slot.key.stringValue() );
      // The key itself is the paired key, with its own shadow data, as in the commit.
      FpQualifierSet const holds =
          doProgramEntry( fragEntryId, false, true, add.slot.key, add.data, add.slot.key,
                          add.data, add.slot.vlanId, add.opaqueId );
      // The data may be newer than the default entries': the row keeps both.
      row.dataQualifiersIs( row.dataQualifiers() | holds );
      entryIdTable()->entryIs( row );
   }
}

}  // namespace Corvane
