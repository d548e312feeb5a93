// TCAM hit counters of dynamic NAT keys.

#include "CorvaneNat/NatTrace.h"
#include "CorvaneNat/NatWorkerSm.h"

namespace Corvane {

CorvaneNat::TcamHitCountKey tcamHitCountKeyFromHwKey( Oro::NatHwKey const& hwKey ) {
   CorvaneNat::TcamHitCountKey key;
   Wirel::IpAndPort src;
   Wirel::IpAndPort dst;
   if ( hwKey.keyType() == Oro::NatHwKey::dynamicSrcNat ) {
      src = hwKey.srcIpAndPortOld();
      dst = hwKey.dstIpAndPortNew();
      key.keyTypeIs( CorvaneNat::TcamHitCountKey::dynamicSrcNat );
   } else if ( hwKey.keyType() == Oro::NatHwKey::dynamicDstNat ) {
      // Crossed on purpose: the translated destination is the hit-count key's source.
      src = hwKey.dstIpAndPortNew();
      dst = hwKey.srcIpAndPortOld();
      key.keyTypeIs( CorvaneNat::TcamHitCountKey::dynamicDstNat );
   } else {
      return key;
   }
   key.srcAddrIs( src.ip() );
   key.srcPortIs( src.port() );
   key.dstAddrIs( dst.ip() );
   key.dstPortIs( dst.port() );
   key.protocolIs( hwKey.dynProto() );
   NAT_TRACE( 9, "tcamHitCountKeyFromHwKey",
              "hitCountKey srcAddr: " << key.srcAddr().stringValue()
                                      << " dstAddr: " << key.dstAddr().stringValue()
                                      << " proto: " << unsigned( key.protocol() )
                                      << " keyType: " << unsigned( key.keyType() ) );
   return key;
}

}  // namespace Corvane

namespace Corvane {

void NatWorkerSm::updateTcamHitCountStatus() {
   NAT_TRACE( 9, "updateTcamHitCountStatus", "" );
   Quay::Task const* task = tcamCountersPollingTask();
   if ( !task ) {
      task = Quay::Task::currentTask();
   }
   if ( !task || !task->taskCurrentlyRunning() ) {
      NAT_TRACE( 9, "updateTcamHitCountStatus", "Task not running" );
      return;
   }
   CorvaneTcamEntryManager* entryManager = natEntryManager();
   for ( EntryIdTableEntry const& row : *entryIdTable() ) {
      Oro::NatHwKey const& key = row.key();
      NAT_TRACE( 9, "updateTcamHitCountStatus",
                 "Iterating over key: " << key.stringValue() );
      if ( !key.isDynamicNat() ) {
         continue;
      }
      CorvaneNat::TcamHitCountKey const hitCountKey = tcamHitCountKeyFromHwKey( key );
      U64 totalHits = 0;
      for ( auto const& vlanEntry : row.defaultEntryIds() ) {
         NAT_TRACE( 9, "updateTcamHitCountStatus",
                    "vlanId: " << vlanEntry.vlanId << "entryId: " << vlanEntry.entryId );
         U64 const entryHits = entryManager->hitsForEntry( unit(), vlanEntry.entryId );
         NAT_TRACE( 9, "updateTcamHitCountStatus", "entryHits: " << entryHits );
         totalHits += entryHits;
      }
      NAT_TRACE( 9, "updateTcamHitCountStatus", "totalHits: " << totalHits );
      if ( tcamHitCountStatus() ) {
         tcamHitCountStatus()->entryIs( hitCountKey, totalHits );
      }
   }
   if ( Quay::TimerTask* polling = tcamCountersPollingTask() ) {
      polling->scheduleTaskDelay( tcamCountersPollingInterval() );
   }
}

}  // namespace Corvane
