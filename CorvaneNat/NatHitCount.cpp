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
   NAT_TRACE( 8, "tcamHitCountKeyFromHwKey",
              "hitCountKey srcAddr: " << key.srcAddr().stringValue()
                                      << " dstAddr: " << key.dstAddr().stringValue()
                                      << " proto: " << unsigned( key.protocol() )
                                      << " keyType: " << unsigned( key.keyType() ) );
   return key;
}

}  // namespace Corvane
