// The NAT hardware data: its text form, the bounds of its arrays, equality, and the
// uid's bounds.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>

#include "platform/fwk/Assert.h"
#include "platform/nat/NatHwData.h"
#include "platform/nat/Uid.h"

namespace {

using Oro::NatHwData;
using Wirel::IntfId;
using Wirel::IpAddr;
using Wirel::IpAddrWithFullMask;

std::string const vlanRange =
    "NatVlanIdIndex::value < NatVlanIdIndex::min or > NatVlanIdIndex::max not allowed";
std::string const egressRange =
    "NatEgressIntfIndex::value < NatEgressIntfIndex::min or > NatEgressIntfIndex::max "
    "not "
    "allowed";

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

TEST( NatHwDataTest, TextFormOfAFullRecord ) {
   NatHwData d( 6, IpAddrWithFullMask( IpAddr( 0x0a000000 ), 0xff000000 ), 256,
                0x100000002ull, true, 77, true, true );
   d.vlanIdAppend( 10 );
   d.vlanIdAppend( 4094 );
   d.egressIntfAppend( IntfId( 3 ) );
   d.egressIntfAppend( IntfId( 0x123456789ull ) );
   EXPECT_EQ( d.stringValue(),
              "vlan: [ 10 4094 ] proto: 6 faddr: 10.0.0.0/8 #faddrs: 256 nhid: 4294967298"
              " mcastGroupId: 77 staticAclSharing: true ingress: true multicast: true"
              " egressIntf: [ 3, 4886718345,  ] " );
   std::ostringstream os;
   os << d;
   EXPECT_EQ( os.str(), d.stringValue() );

   EXPECT_EQ( NatHwData().stringValue(), "vlan: [ ] ingress: false" );
   NatHwData noIntfs;
   noIntfs.multicastIs( true );
   EXPECT_EQ( noIntfs.stringValue(),
              "vlan: [ ] ingress: false multicast: true egressIntf: [  ] " );
}

TEST( NatHwDataTest, EachOptionalFieldIsPrintedExactlyWhenSet ) {
   struct Case {
      std::function<void( NatHwData& )> set;
      char const* text;
   } const cases[] = {
       { []( NatHwData& d ) { d.protocolIs( 255 ); },
         "vlan: [ ] proto: 255 ingress: false" },
       { []( NatHwData& d ) {
           d.filterAddrIs( IpAddrWithFullMask( IpAddr( 0 ), 0xffff0000 ) );
        },
         "vlan: [ ] faddr: 0.0.0.0/16 ingress: false" },
       { []( NatHwData& d ) {
           d.filterAddrIs( IpAddrWithFullMask( IpAddr( 0x01020304 ), 0 ) );
        },
         "vlan: [ ] faddr: 1.2.3.4/0 ingress: false" },
       { []( NatHwData& d ) { d.numFilterAddrsIs( 0xffffffffu ); },
         "vlan: [ ] #faddrs: 4294967295 ingress: false" },
       { []( NatHwData& d ) { d.nextHopIdIs( 0xffffffffffffffffull ); },
         "vlan: [ ] nhid: 18446744073709551615 ingress: false" },
       { []( NatHwData& d ) { d.mcastGroupIdIs( 1 ); },
         "vlan: [ ] mcastGroupId: 1 ingress: false" },
       { []( NatHwData& d ) { d.staticAclSharingIs( true ); },
         "vlan: [ ] staticAclSharing: true ingress: false" },
       { []( NatHwData& d ) { d.ingressIs( true ); }, "vlan: [ ] ingress: true" },
       // Egress interfaces only show on a multicast record.
       { []( NatHwData& d ) { d.egressIntfAppend( IntfId( 5 ) ); },
         "vlan: [ ] ingress: false" },
       { []( NatHwData& d ) { d.vlanIdAppend( 0 ); }, "vlan: [ 0 ] ingress: false" },
   };
   for ( Case const& c : cases ) {
      NatHwData d;
      c.set( d );
      EXPECT_EQ( d.stringValue(), c.text );
   }
}

TEST( NatHwDataTest, ArraysHold64AndIndex64IsARangeError ) {
   NatHwData d;
   std::string expected = "vlan: [ ";
   for ( U32 i = 0; i < 64; ++i ) {
      d.vlanIdAppend( static_cast<U16>( 100 + i ) );
      d.egressIntfAppend( IntfId( 1000 + i ) );
      expected += std::to_string( 100 + i ) + " ";
   }
   EXPECT_EQ( d.vlanIds(), 64u );
   EXPECT_EQ( d.vlanId( 63 ), 163 );
   EXPECT_EQ( d.egressIntf( 63 ), IntfId( 1063 ) );
   EXPECT_EQ( d.stringValue(), expected + "] ingress: false" );
   d.multicastIs( true );
   EXPECT_THAT( d.stringValue(), ::testing::EndsWith( "1062, 1063,  ] " ) );

   NatHwData const before = d;
   EXPECT_EQ( rangeError( [&] { d.vlanIdAppend( 1 ); } ), vlanRange );
   EXPECT_EQ( rangeError( [&] { d.vlanId( 64 ); } ), vlanRange );
   EXPECT_EQ( rangeError( [&] { d.vlanIdIs( 64, 1 ); } ), vlanRange );
   EXPECT_EQ( rangeError( [&] { d.vlanId( 0xffffffffu ); } ), vlanRange );
   EXPECT_EQ( rangeError( [&] { d.egressIntfAppend( IntfId( 1 ) ); } ), egressRange );
   EXPECT_EQ( rangeError( [&] { d.egressIntf( 64 ); } ), egressRange );
   EXPECT_EQ( rangeError( [&] { d.egressIntfIs( 64, IntfId( 1 ) ); } ), egressRange );
   EXPECT_EQ( d, before ) << "a refused write changes nothing";
   EXPECT_EQ( d.vlanIds(), 64u );

   // A record claiming more than it can hold keeps the claim and cannot be printed.
   d.vlanIdsIs( 65 );
   EXPECT_EQ( d.vlanIds(), 65u );
   EXPECT_EQ( rangeError( [&] { d.stringValue(); } ), vlanRange );
   d.vlanIdsIs( 2 );
   d.egressIntfsIs( 65 );
   EXPECT_EQ( rangeError( [&] { d.stringValue(); } ), egressRange );
   d.multicastIs( false );
   EXPECT_EQ( d.stringValue(), "vlan: [ 100 101 ] ingress: false" );
}

TEST( NatHwDataTest, ConstructorAndEqualityCoverEveryField ) {
   IpAddrWithFullMask const faddr( IpAddr( 0xc0000200 ), 0xffffff00 );
   NatHwData const base( 17, faddr, 2, 9, true, 4, true, false );
   EXPECT_EQ( base.protocol(), 17 );
   EXPECT_EQ( base.filterAddr(), faddr );
   EXPECT_EQ( base.numFilterAddrs(), 2u );
   EXPECT_EQ( base.nextHopId(), 9u );
   EXPECT_TRUE( base.staticAclSharing() );
   EXPECT_EQ( base.mcastGroupId(), 4u );
   EXPECT_TRUE( base.multicast() );
   EXPECT_FALSE( base.ingress() );
   EXPECT_EQ( base.vlanIds(), 0u );
   EXPECT_EQ( base.egressIntfs(), 0u );

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
   NatHwData withVlan = base;
   withVlan.vlanIdAppend( 1 );
   for ( auto const& change : changes ) {
      NatHwData d = withVlan;
      EXPECT_EQ( d, withVlan );
      change( d );
      EXPECT_NE( d, withVlan ) << d;
   }

   // Elements past the count are not part of the value.
   NatHwData shrunk = withVlan;
   shrunk.vlanIdAppend( 7 );
   shrunk.egressIntfIs( 5, IntfId( 8 ) );
   shrunk.vlanIdsIs( 1 );
   EXPECT_EQ( shrunk, withVlan );
}

TEST( UidTest, ZeroIsOutOfBounds ) {
   try {
      CorvaneNat::Uid( 0 );
      FAIL() << "Uid( 0 ) was accepted";
   } catch ( Fwk::RangeException const& e ) {
      EXPECT_STREQ( e.what(), "Uid::value < Uid::min or > Uid::max not allowed" );
   }
   EXPECT_EQ( CorvaneNat::Uid().value(), 1u );
   EXPECT_EQ( CorvaneNat::Uid( 0xffffffffu ).value(), 0xffffffffu );
   std::ostringstream os;
   os << CorvaneNat::Uid( 4000000000u );
   EXPECT_EQ( os.str(), "4000000000" );
}

}  // namespace
