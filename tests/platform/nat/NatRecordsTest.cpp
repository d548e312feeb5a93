// The NAT records: which keys are address-only NAT, the data's bounds and equality over
// every field, and the hit-count keys. (What the NAT entities hold and announce is seen
// through the plug-in's tests, which publish and read them as upstream, agent and
// plug-in do.)

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/fwk/Assert.h"
#include "platform/nat/NatHwData.h"
#include "platform/nat/NatHwKey.h"
#include "platform/nat/TcamHitCountStatus.h"

namespace {

using CorvaneNat::TcamHitCountKey;
using Oro::NatAclId;
using Oro::NatHwData;
using Oro::NatHwKey;
using Wirel::IntfId;
using Wirel::IpAddr;
using Wirel::IpAddrWithFullMask;
using Wirel::IpAndPort;

IpAndPort ipPort( char const* ip, U16 port ) {
   IpAddr addr;
   EXPECT_TRUE( IpAddr::fromString( ip, addr ) ) << ip;
   return IpAndPort( addr, port );
}

IpAndPort const unset;

// Runs `f`, which must throw Fwk::RangeException, and returns its text.
std::string rangeError( std::function<void()> const& f ) {
   try {
      f();
   } catch ( Fwk::RangeException const& e ) {
      return e.what();
   }
   ADD_FAILURE() << "no Fwk::RangeException";
   return "";
}

TEST( NatHwKeyTest, AddrOnlyNatIsADynamicKeyWithAZeroOldAddress ) {
   IpAndPort const host = ipPort( "10.1.1.1", 0 );
   IpAndPort const zeroWithPort = ipPort( "0.0.0.0", 8080 );
   struct Case {
      NatHwKey::NatKeyType type;
      IpAndPort srcOld, srcNew, dstOld, dstNew;
      bool addrOnly;
   } const cases[] = {
       { NatHwKey::dynamicSrcNat, unset, host, host, host, true },
       { NatHwKey::dynamicSrcNat, host, host, unset, host, true },
       { NatHwKey::dynamicDstNat, zeroWithPort, host, host, host, true },  // port ignored
       { NatHwKey::dynamicDstNat, host, host, zeroWithPort, host, true },
       { NatHwKey::dynamicSrcNat, host, unset, host, unset, false },  // new ones ignored
       { NatHwKey::dynamicDstNat, host, host, host, host, false },
       { NatHwKey::staticSrcNat, unset, unset, unset, unset, false },
       { NatHwKey::twiceNatDst, unset, host, unset, host, false },
       { static_cast<NatHwKey::NatKeyType>( 7 ), unset, unset, unset, unset, false },
   };
   for ( Case const& c : cases ) {
      NatHwKey key( c.type, c.srcOld, c.srcNew, c.dstOld, c.dstNew, false, 6, 0,
                    NatAclId() );
      EXPECT_EQ( key.isAddrOnlyNat(), c.addrOnly ) << key;
   }
}

TEST( NatHwDataTest, ArraysHold64AndBeyondIsARangeErrorThatChangesNothing ) {
   std::string const vlanRange =
       "NatVlanIdIndex::value < NatVlanIdIndex::min or > NatVlanIdIndex::max not allowed";
   std::string const egressRange =
       "NatEgressIntfIndex::value < NatEgressIntfIndex::min "
       "or > NatEgressIntfIndex::max not allowed";
   NatHwData d;
   for ( U32 i = 0; i < 64; ++i ) {
      d.vlanIdAppend( static_cast<U16>( 100 + i ) );
      d.egressIntfAppend( IntfId( 1000 + i ) );
   }
   EXPECT_EQ( d.vlanId( 63 ), 163 );
   EXPECT_EQ( d.egressIntf( 63 ), IntfId( 1063 ) );
   NatHwData const before = d;
   EXPECT_EQ( rangeError( [&] { d.vlanIdAppend( 1 ); } ), vlanRange );
   EXPECT_EQ( rangeError( [&] { d.vlanId( 0xffffffffu ); } ), vlanRange );
   EXPECT_EQ( rangeError( [&] { d.egressIntfAppend( IntfId( 1 ) ); } ), egressRange );
   EXPECT_EQ( rangeError( [&] { d.egressIntfIs( 64, IntfId( 1 ) ); } ), egressRange );
   EXPECT_EQ( d, before );
   EXPECT_EQ( d.vlanIds(), 64u );

   // A record claiming more than it can hold keeps the claim and cannot be printed.
   d.vlanIdsIs( 65 );
   EXPECT_EQ( rangeError( [&] { d.stringValue(); } ), vlanRange );
   d.vlanIdsIs( 2 );
   d.multicastIs( true );
   d.egressIntfsIs( 65 );
   EXPECT_EQ( rangeError( [&] { d.stringValue(); } ), egressRange );
   d.egressIntfsIs( 1 );
   EXPECT_EQ(
       d.stringValue(),
       "vlan: [ 100 101 ] ingress: false multicast: true egressIntf: [ 1000,  ] " );
}

TEST( NatHwDataTest, EqualityCoversEveryField ) {
   NatHwData base( 17, IpAddrWithFullMask( IpAddr( 0xc0000200 ), 0xffffff00 ), 2, 9, true,
                   4, true, false );
   base.vlanIdAppend( 1 );
   std::function<void( NatHwData& )> const changes[] = {
       []( NatHwData& d ) { d.protocolIs( 6 ); },
       []( NatHwData& d ) {
          d.filterAddrIs( IpAddrWithFullMask( IpAddr( 0xc0000200 ), 0 ) );
       },
       []( NatHwData& d ) { d.numFilterAddrsIs( 3 ); },
       []( NatHwData& d ) { d.nextHopIdIs( 9 + ( 1ull << 32 ) ); },
       []( NatHwData& d ) { d.staticAclSharingIs( false ); },
       []( NatHwData& d ) { d.mcastGroupIdIs( 5 ); },
       []( NatHwData& d ) { d.multicastIs( false ); },
       []( NatHwData& d ) { d.ingressIs( true ); },
       []( NatHwData& d ) { d.vlanIdAppend( 0 ); },  // a zero element still counts
       []( NatHwData& d ) { d.egressIntfsIs( 1 ); },
       []( NatHwData& d ) { d.vlanIdIs( 0, 2 ); },
   };
   for ( auto const& change : changes ) {
      NatHwData d = base;
      EXPECT_EQ( d, base );
      change( d );
      EXPECT_NE( d, base ) << d;
   }
}

// `same`, built apart from `base` with equal fields, must compare and hash equal; each
// variant differs in one field and must be another key, in order and (for these
// samples) in hash.
template <class K>
void expectKeysDistinct( K const& base, K const& same, std::vector<K> const& variants ) {
   EXPECT_EQ( same, base );
   EXPECT_FALSE( same < base || base < same );
   EXPECT_EQ( same.hash( 7 ), base.hash( 7 ) );
   for ( K const& v : variants ) {
      EXPECT_NE( v, base ) << v;
      EXPECT_TRUE( v < base || base < v ) << v;
      EXPECT_NE( v.hash( 7 ), base.hash( 7 ) ) << v;
   }
}

TEST( NatKeysTest, HitCountKeysAreEqualExactlyWhenEveryFieldIs ) {
   auto hitKey = [] {
      return TcamHitCountKey( TcamHitCountKey::dynamicSrcNat, IpAddr( 0x0a000001 ), 1024,
                              IpAddr( 0xc0000201 ), 80, 6 );
   };
   TcamHitCountKey const hit = hitKey();
   std::vector<TcamHitCountKey> variants( 6, hit );
   variants[0].keyTypeIs( TcamHitCountKey::dynamicDstNat );
   variants[1].srcAddrIs( IpAddr( 0x0a000002 ) );
   variants[2].srcPortIs( 1025 );
   variants[3].dstAddrIs( IpAddr( 0xc0000202 ) );
   variants[4].dstPortIs( 81 );
   variants[5].protocolIs( 17 );
   expectKeysDistinct( hit, hitKey(), variants );
   TcamHitCountKey swapped = hit;
   swapped.srcPortIs( hit.dstPort() );
   swapped.dstPortIs( hit.srcPort() );
   EXPECT_NE( swapped, hit );
   EXPECT_EQ( hit.stringValue(),
              "type: dynamicSrcNat, src: 10.0.0.1:1024, dst: 192.0.2.1:80, proto: 6" );
}

}  // namespace
