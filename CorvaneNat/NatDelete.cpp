// Entry deletion: the entries of one key and VLAN go back to the entry manager.

#include "CorvaneNat/NatTrace.h"
#include "CorvaneNat/NatWorkerSm.h"

namespace Corvane {

void NatWorkerSm::doDeleteEntry( Oro::NatHwKey const& hwKey, U16 vlanId ) {
   EntryIdTableEntry entry = entryIdTable()->entry( hwKey );
   U32 const entryId = entry.defaultEntryId( vlanId );
   NAT_TRACE( 8, "doDeleteEntry",
              " freeing entry " << entryId << " for key " << hwKey.stringValue() );
   CorvaneTcamEntryManager* entryManager = natEntryManager();
   entryManager->releaseEntry( unit(), entryId );
   entry.defaultEntryIdDel( vlanId );
   if ( entry.fragEntryIdHas( vlanId ) ) {
      U32 const fragEntryId = entry.fragEntryId( vlanId );
      NAT_TRACE(
          8, "doDeleteEntry",
          " freeing frag entry " << fragEntryId << " for key " << hwKey.stringValue() );
      entryManager->releaseEntry( unit(), fragEntryId );
      entry.fragEntryIdDel( vlanId );
   }
   entryIdTable()->entryIs( entry );
}

}  // namespace Corvane
