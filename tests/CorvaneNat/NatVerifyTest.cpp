// Hardware verification: the six qualifier read-backs of one entry, and doVerify of a
// whole worker, reached as tools reach it, through the worker's "doVerify" operation.
// Broken expectations are made behind the plug-in's back (through the SDK shim, or in
// the entry-id table) and must stop the process with the expectation's text.

#include "NatJournalLines.h"
#include "NatTestFixture.h"

#include <algorithm>

#include "platform/chip/Sdk.h"
#include "platform/fwk/Operation.h"
#include "platform/fwk/Trace.h"

namespace {

using NatTest::ipPort;
using NatTest::ipValue;
using NatTest::natKey;
using Wirel::IpAddrWithFullMask;

char const verifyPath[] = "corvanenat/natWorkerSm/1";

// The regular expression of an assertion failure with exactly `text`.
std::string failed( std::string const& text ) {
   std::string escaped;
   for ( char c : text ) {
      if ( std::string( "\\^$.|?*+()[]{}" ).find( c ) != std::string::npos ) {
         escaped += '\\';
      }
      escaped += c;
   }
   return "Assertion `" + escaped + "' failed";
}

Oro::NatHwData natData( std::vector<U16> vlans = {}, U8 protocol = 0, U64 nextHop = 5 ) {
   Oro::NatHwData data;
   data.protocolIs( protocol );
   data.nextHopIdIs( nextHop );
   for ( U16 vlan : vlans ) {
      data.vlanIdAppend( vlan );
   }
   return data;
}

IpAddrWithFullMask exact( char const* ip ) {
   return IpAddrWithFullMask( Wirel::IpAddr( ipValue( ip ) ), 0xffffffffu );
}

class NatVerify : public NatTest::NatFixture {
protected:
   Corvane::EntryIdTable& table( U16 modId = 1 ) {
      return *worker( modId )->entryIdTable();
   }
   U32 entryId( Oro::NatHwKey const& key, U16 vlan = 0 ) {
      return table().entry( key ).defaultEntryId( vlan );
   }
   U32 fragEntryId( Oro::NatHwKey const& key, U16 vlan = 0 ) {
      return table().entry( key ).fragEntryId( vlan );
   }
   // Runs doVerify as a tool does; false when the worker offers no such operation.
   bool verify( char const* path = verifyPath ) {
      std::string error;
      bool const offered = Fwk::operationInvoke( path, "doVerify", &error );
      EXPECT_TRUE( offered ) << error;
      return offered;
   }
   // The qualifier read-backs in the journal from `from` on.
   std::size_t readBacks( std::size_t from ) const {
      std::size_t n = 0;
      for ( auto const& r : Chip::journal().recordsFrom( from ) ) {
         if ( r.call.rfind( "bcm_field_qualify_", 0 ) == 0 && r.call.size() > 4 &&
              r.call.compare( r.call.size() - 4, 4, "_get" ) == 0 ) {
            ++n;
         }
      }
      return n;
   }
   Shim::Sdk& sdk() { return *Shim::sdk_; }

   Oro::NatHwKey const snat = natKey( 1, ipPort( "10.0.0.1" ), ipPort( "203.0.113.1" ) );
   Oro::NatHwKey const snapt =
       natKey( 1, ipPort( "10.0.0.2", 1024 ), ipPort( "203.0.113.2", 2048 ) );
   Oro::NatHwKey const dnat =
       natKey( 2, {}, {}, ipPort( "203.0.113.80" ), ipPort( "10.0.0.80" ) );
   Oro::NatHwKey const dnapt =
       natKey( 2, {}, {}, ipPort( "203.0.113.81", 80 ), ipPort( "10.0.0.81", 8080 ) );
};

// ---------------------------------------------------------------------------------------
// The read-back checks of one entry.

using NatVerifyReadBack = NatVerify;

TEST_F( NatVerifyReadBack, L4PortsPassOnlyForWhatTheEntryHolds ) {
   start();
   rule( 1, snat );
   rule( 2, snapt );
   U32 const plain = entryId( snat );
   U32 const withPort = entryId( snapt );
   ASSERT_NE( plain, 0u );
   ASSERT_NE( withPort, 0u );

   // No L4 source port on the entry: 0 passes, any port stops.
   worker()->doVerifySrcL4Port( plain, 0 );
   EXPECT_DEATH( worker()->doVerifySrcL4Port( plain, 80 ), failed( "l4Port == 0" ) );
   // A port written under the full mask.
   worker()->doVerifySrcL4Port( withPort, 1024 );
   EXPECT_DEATH( worker()->doVerifySrcL4Port( withPort, 80 ),
                 failed( "port == l4Port" ) );
   EXPECT_DEATH( worker()->doVerifySrcL4Port( withPort, 0 ), failed( "port == l4Port" ) );

   // A narrower mask stops a non-zero expectation; a zero one looks at the value only.
   sdk().bcm_field_qualify_L4SrcPort( 1, withPort, 1024, 0x00ff );
   EXPECT_DEATH( worker()->doVerifySrcL4Port( withPort, 1024 ),
                 failed( "mask == ( U16 )-1" ) );
   sdk().bcm_field_qualify_L4SrcPort( 1, plain, 0, 0 );
   worker()->doVerifySrcL4Port( plain, 0 );

   // The destination port check reads the destination port.
   worker()->doVerifyDstL4Port( withPort, 0 );
   sdk().bcm_field_qualify_L4DstPort( 1, withPort, 443, 0xffff );
   worker()->doVerifyDstL4Port( withPort, 443 );
   EXPECT_DEATH( worker()->doVerifyDstL4Port( withPort, 0 ), failed( "port == l4Port" ) );
   sdk().bcm_field_qualify_L4DstPort( 1, withPort, 443, 0xff00 );
   EXPECT_DEATH( worker()->doVerifyDstL4Port( withPort, 443 ),
                 failed( "mask == ( U16 )-1" ) );
   EXPECT_DEATH( worker()->doVerifyDstL4Port( plain, 443 ), failed( "l4Port == 0" ) );
}

TEST_F( NatVerifyReadBack, AddressesAlwaysCompareTheirMask ) {
   start();
   rule( 1, snat );
   rule( 2, dnat, natData( { 10 } ) );
   U32 const source = entryId( snat );
   U32 const destination = entryId( dnat, 10 );

   worker()->doVerifySrcIp( source, exact( "10.0.0.1" ) );
   EXPECT_DEATH( worker()->doVerifySrcIp( source, exact( "10.0.0.9" ) ),
                 failed( "ip == ipAddr.address().value()" ) );
   // A /24 on the chip against a full mask.
   sdk().bcm_field_qualify_SrcIp( 1, source, ipValue( "10.0.0.1" ), 0xffffff00 );
   EXPECT_DEATH( worker()->doVerifySrcIp( source, exact( "10.0.0.1" ) ),
                 failed( "mask == ipAddr.mask()" ) );
   worker()->doVerifySrcIp(
       source, IpAddrWithFullMask( Wirel::IpAddr( ipValue( "10.0.0.1" ) ), 0xffffff00 ) );

   // The destination entry has no source address: only 0.0.0.0 passes.
   worker()->doVerifySrcIp( destination, IpAddrWithFullMask() );
   EXPECT_DEATH( worker()->doVerifySrcIp( destination, exact( "10.0.0.1" ) ),
                 failed( "ipAddr.address().value() == 0" ) );

   worker()->doVerifyDstIp( destination, exact( "203.0.113.80" ) );
   EXPECT_DEATH( worker()->doVerifyDstIp( destination, exact( "203.0.113.81" ) ),
                 failed( "ip == ipAddr.address().value()" ) );
   EXPECT_DEATH( worker()->doVerifyDstIp( source, exact( "203.0.113.80" ) ),
                 failed( "ipAddr.address().value() == 0" ) );
   // Unlike a port, an address expected as 0.0.0.0 still has its mask compared.
   sdk().bcm_field_qualify_DstIp( 1, source, 0, 0xffffffff );
   worker()->doVerifyDstIp( source, exact( "0.0.0.0" ) );
   EXPECT_DEATH( worker()->doVerifyDstIp( source, IpAddrWithFullMask() ),
                 failed( "mask == ipAddr.mask()" ) );
}

TEST_F( NatVerifyReadBack, ProtocolMaskIsComparedOnlyForAProtocol ) {
   start();
   rule( 1, snat );
   rule( 2, snapt, natData( {}, 6 ) );
   U32 const withProtocol = entryId( snapt );
   U32 const without = entryId( snat );

   worker()->doVerifyIpProtocol( withProtocol, 6 );
   EXPECT_DEATH( worker()->doVerifyIpProtocol( withProtocol, 17 ),
                 failed( "proto == protocol" ) );
   worker()->doVerifyIpProtocol( without, 0 );
   EXPECT_DEATH( worker()->doVerifyIpProtocol( without, 6 ), failed( "protocol == 0" ) );

   sdk().bcm_field_qualify_IpProtocol( 1, withProtocol, 6, 0x0f );
   EXPECT_DEATH( worker()->doVerifyIpProtocol( withProtocol, 6 ),
                 failed( "mask == 0xff" ) );
   sdk().bcm_field_qualify_IpProtocol( 1, withProtocol, 0, 0x0f );
   worker()->doVerifyIpProtocol( withProtocol, 0 );
}

TEST_F( NatVerifyReadBack, L3IngressIsTheVlanUnderThirteenBits ) {
   start();
   rule( 1, snat );
   rule( 2, dnat, natData( { 10, 4095 } ) );
   U32 const onVlan10 = entryId( dnat, 10 );
   U32 const onVlan4095 = entryId( dnat, 4095 );

   worker()->doVerifyL3Ingress( onVlan10, 10 );
   worker()->doVerifyL3Ingress( onVlan4095, 4095 );
   EXPECT_DEATH( worker()->doVerifyL3Ingress( onVlan10, 20 ),
                 failed( "intf == vlanId" ) );
   EXPECT_DEATH( worker()->doVerifyL3Ingress( onVlan10, 0 ), failed( "intf == vlanId" ) );
   // Source NAT matches no ingress interface.
   worker()->doVerifyL3Ingress( entryId( snat ), 0 );
   EXPECT_DEATH( worker()->doVerifyL3Ingress( entryId( snat ), 10 ),
                 failed( "vlanId == 0" ) );

   sdk().bcm_field_qualify_L3Ingress( 1, onVlan10, 10, 0xfff );
   EXPECT_DEATH( worker()->doVerifyL3Ingress( onVlan10, 10 ),
                 failed( "mask == 0x1fff" ) );
}

TEST_F( NatVerifyReadBack, ReadsAreTracedWithTheirReturnCodeAndTheSourceAddress ) {
   start();
   rule( 1, snat );
   rule( 2, dnat, natData( { 10 } ) );
   U32 const source = entryId( snat );
   sdk().bcm_field_qualify_SrcIp( 1, source, ipValue( "10.0.0.1" ), 0xffffff00 );
   NatTest::TraceCapture trace( "ApiCorvane/*" );
   worker()->doVerifySrcIp(
       source, IpAddrWithFullMask( Wirel::IpAddr( ipValue( "10.0.0.1" ) ), 0xffffff00 ) );
   worker()->doVerifySrcIp( entryId( dnat, 10 ), IpAddrWithFullMask() );
   worker()->doVerifyL3Ingress( entryId( dnat, 10 ), 10 );
   std::string const notFound = std::to_string( sdk().BCM_E_NOT_FOUND );
   EXPECT_EQ( trace.lines,
              ( std::vector<std::string>{
                  "doVerifySrcIp"
                  "bcm_field_qualify_SrcIp_get( unit(), entryId, &ip, &mask ) (rv:0)",
                  "doVerifySrcIp entry sip " + std::to_string( source ),
                  "doVerifySrcIp sip 10.0.0.1", "doVerifySrcIpmask 255.255.255.0",
                  "doVerifySrcIp"
                  "bcm_field_qualify_SrcIp_get( unit(), entryId, &ip, &mask ) (rv:" +
                      notFound + ")",
                  "doVerifyL3Ingress"
                  "bcm_field_qualify_L3Ingress_get( unit(), entryId, &intf, &mask ) "
                  "(rv:0)" } ) );
}

// ---------------------------------------------------------------------------------------
// doVerify on the states the plug-in builds.

class NatVerifyWorker : public NatVerify {
protected:
   // Rules of every kind that the default (address-and-port) mode programs, plus keys
   // that it answers without programming.
   void everyKind() {
      rule( 1, snat );
      rule( 2, snapt, natData( {}, 6 ) );
      Oro::NatHwData filtered;
      filtered.filterAddrIs(
          IpAddrWithFullMask( Wirel::IpAddr( ipValue( "192.0.2.0" ) ), 0xffffff00 ) );
      rule( 3, natKey( 1, ipPort( "10.0.0.3" ), ipPort( "203.0.113.3" ) ), filtered );
      Oro::NatHwData sharing;
      sharing.staticAclSharingIs( true );
      rule( 4, natKey( 1, ipPort( "10.0.0.4" ), ipPort( "203.0.113.4" ), {}, {}, 0, 7 ),
            sharing );
      rule( 5, dnat, natData( { 10, 20, 30 } ) );
      rule( 6, dnapt, natData( { 10, 20 }, 6 ) );
      Oro::NatHwData dnatFiltered = natData( { 20 } );
      dnatFiltered.filterAddrIs(
          IpAddrWithFullMask( Wirel::IpAddr( ipValue( "198.51.100.0" ) ), 0xffffff00 ) );
      rule( 7, natKey( 2, {}, {}, ipPort( "203.0.113.82" ), ipPort( "10.0.0.82" ) ),
            dnatFiltered );
      // Twice NAT, both sides, with and without ports.
      rule( 8,
            natKey( 3, ipPort( "10.0.0.3" ), ipPort( "203.0.113.3" ),
                    ipPort( "198.51.100.7" ), ipPort( "192.0.2.7" ) ),
            natData( {}, 0, 0x8000002 ) );
      rule( 9,
            natKey( 4, ipPort( "192.0.2.7", 53 ), ipPort( "198.51.100.7", 5353 ),
                    ipPort( "203.0.113.3", 53 ), ipPort( "10.0.0.3", 5353 ) ),
            natData( { 10, 20 }, 17 ) );
      rule( 10,
            natKey( 3, ipPort( "10.0.0.4", 1000 ), ipPort( "203.0.113.4", 2000 ),
                    ipPort( "198.51.100.8", 80 ), ipPort( "192.0.2.8", 8080 ) ),
            natData( {}, 6 ) );
      // Dynamic, one address each (this mode's kind): TCP, and 17 overwritten by TCP.
      rule( 11, natKey( 5, ipPort( "10.0.0.5" ), ipPort( "203.0.113.5" ), {}, {}, 6 ) );
      rule( 13, natKey( 5, ipPort( "10.0.0.7" ), ipPort( "203.0.113.7" ), {}, {}, 17 ) );
      rule( 14, natKey( 6, {}, {}, ipPort( "203.0.113.6" ), ipPort( "10.0.0.6" ) ),
            natData( { 10, 20 }, 0, 7 ) );
      // Multicast: source with the 224/4 destination, destination on ingress (L3
      // ingress, no source filter for a 239/8 group), destination not on ingress (no L3
      // ingress, 224/4 source for a 10/8 destination).
      Oro::NatHwData mcast = natData( {}, 0, 0 );
      mcast.multicastIs( true );
      mcast.mcastGroupIdIs( 3 );
      rule( 15, natKey( 1, ipPort( "10.1.0.1" ), ipPort( "10.2.0.1" ) ), mcast, { 1 },
            100 );
      Oro::NatHwData mcastIngress = natData( { 10 }, 0, 0 );
      mcastIngress.multicastIs( true );
      mcastIngress.ingressIs( true );
      rule( 16, natKey( 2, {}, {}, ipPort( "239.1.1.1" ), ipPort( "239.2.2.2" ) ),
            mcastIngress, { 1 }, 101 );
      Oro::NatHwData mcastEgress = natData( { 20 }, 0, ~0ull );
      mcastEgress.multicastIs( true );
      rule( 17, natKey( 2, {}, {}, ipPort( "10.9.9.9" ), ipPort( "239.3.3.3" ) ),
            mcastEgress, { 1 }, 102 );
      // Answered without programming: a destination key on no VLAN, and a dynamic key
      // with ports, which this mode cannot hold.
      rule( 18, natKey( 2, {}, {}, ipPort( "203.0.113.90" ), ipPort( "10.0.0.90" ) ),
            natData() );
      rule( 19,
            natKey( 6, {}, {}, ipPort( "203.0.113.9", 80 ), ipPort( "10.0.0.9", 8080 ) ),
            natData( { 10 } ) );
   }
};

TEST_F( NatVerifyWorker, PassesAfterRulesOfEveryKindAndReadsBackEveryEntry ) {
   start();
   everyKind();
   for ( auto const& a : answers ) {
      ASSERT_EQ( a.result, 1u ) << "uid " << a.uid;
   }
   EXPECT_EQ( table().entrys(), 16u ) << "two keys have no row";
   std::size_t const from = mark();
   EXPECT_TRUE( verify() );
   // Nothing vacuous: six reads of every entry that the chip holds.
   EXPECT_EQ( readBacks( from ), 6 * chipEntries() );
   EXPECT_EQ( chipEntries(), 21u );
}

TEST_F( NatVerifyWorker, PassesWithFragmentEntries ) {
   nat.fragmentEnabled = true;
   start();
   ASSERT_TRUE( worker()->fragmentEnabled() );
   everyKind();
   // Fragment entries were made for the keys with ports and for dynamic keys.
   EXPECT_TRUE( table().entry( snapt ).fragEntryIdHas( 0 ) );
   EXPECT_EQ( table().entry( dnapt ).fragEntryIds().size(), 2u );
   EXPECT_FALSE( table().entry( dnat ).fragEntryIdHas( 10 ) );
   std::size_t const from = mark();
   EXPECT_TRUE( verify() );
   EXPECT_EQ( readBacks( from ), 6 * chipEntries() );
}

TEST_F( NatVerifyWorker, PassesInAddressOnlyModeWhereDynamicKeysNeedBothAddresses ) {
   nat.addrOnlyMode = true;
   nat.fragmentEnabled = true;
   start();
   Oro::NatHwKey const withPorts =
       natKey( 5, ipPort( "10.0.0.5", 1000 ), ipPort( "203.0.113.5", 2000 ),
               ipPort( "198.51.100.5", 80 ), {}, 6 );
   Oro::NatHwKey const dstWithPorts =
       natKey( 6, ipPort( "192.0.2.6", 1000 ), {}, ipPort( "203.0.113.6", 80 ),
               ipPort( "10.0.0.6", 8080 ), 17 );
   Oro::NatHwKey const oneAddress =
       natKey( 5, ipPort( "10.0.0.7" ), ipPort( "203.0.113.7" ), {}, {}, 6 );
   rule( 1, withPorts );
   rule( 2, dstWithPorts, natData( { 10, 20 }, 0, 0x8000003 ) );
   Oro::NatHwKey const udp = natKey( 5, ipPort( "10.0.0.8" ), ipPort( "203.0.113.8" ),
                                     ipPort( "198.51.100.8" ), {}, 17 );
   rule( 3, oneAddress );  // answered without programming in this mode
   rule( 4, snapt );
   rule( 5, udp );
   ASSERT_TRUE( table().entry( withPorts ).defaultEntryIdHas( 0 ) );
   ASSERT_FALSE( table().entryHas( oneAddress ) );
   std::size_t const from = mark();
   EXPECT_TRUE( verify() );
   EXPECT_EQ( readBacks( from ), 6 * chipEntries() );
}

TEST_F( NatVerifyWorker, PassesAfterVlansAreDroppedAndRulesRemoved ) {
   start();
   everyKind();
   rule( 5, dnat, natData( { 20 } ) );  // drops 10 and 30
   EXPECT_TRUE( verify() );
   rule( 6, dnapt, natData() );  // drops every VLAN: an empty row stays
   ASSERT_TRUE( table().entryHas( dnapt ) );
   EXPECT_TRUE( verify() );
   removeRule( 1, snat );
   removeRule( 5, dnat );
   removeRule( 9, natKey( 4, ipPort( "192.0.2.7", 53 ), ipPort( "198.51.100.7", 5353 ),
                          ipPort( "203.0.113.3", 53 ), ipPort( "10.0.0.3", 5353 ) ) );
   ASSERT_FALSE( table().entryHas( snat ) );
   std::size_t const from = mark();
   EXPECT_TRUE( verify() );
   EXPECT_EQ( readBacks( from ), 6 * chipEntries() );
}

TEST_F( NatVerifyWorker, AVlanListedTwiceHasOneEntry ) {
   start();
   rule( 1, dnat, natData( { 10, 20, 10 } ) );
   EXPECT_EQ( table().entry( dnat ).defaultEntryIds().size(), 2u );
   EXPECT_TRUE( verify() );
}

TEST_F( NatVerifyWorker, EachWorkerPassesWithRulesOfOtherModules ) {
   chip.modules = { { 1, 1 }, { 2, 2 } };
   start();
   rule( 1, snat, {}, { 1 } );
   rule( 2, dnat, natData( { 10 } ), { 2 } );
   rule( 3, snapt, {}, { 1, 2 } );
   EXPECT_FALSE( table( 1 ).entryHas( dnat ) );
   EXPECT_FALSE( table( 2 ).entryHas( snat ) );
   EXPECT_TRUE( verify( "corvanenat/natWorkerSm/1" ) );
   EXPECT_TRUE( verify( "corvanenat/natWorkerSm/2" ) );
}

TEST_F( NatVerifyWorker, PassesWhileARemovalWaitsForAnotherModule ) {
   start();
   // Module 5 has no worker and never answers, so the shadow keeps the key as dirty 2
   // after this worker removed its entries and its row.
   rule( 1, snat, {}, { 1, 5 } );
   rule( 2, dnat, natData( { 10 } ), { 1, 5 } );
   removeRule( 1, snat );
   ASSERT_FALSE( table().entryHas( snat ) );
   EXPECT_TRUE( worker()->shadow()->entryHas( snat ) );
   EXPECT_TRUE( verify() );
}

TEST_F( NatVerifyWorker, KeysShortOfTcamAreHeldToTheEntriesTheyHave ) {
   chip.tcamEntries = 3;
   start();
   rule( 1, snat );
   rule( 2, dnat, natData( { 10, 20, 30 } ) );  // room for 10 and 20 only
   rule( 3, snapt );                            // no room at all: an empty row
   ASSERT_EQ( answers.size(), 3u );
   EXPECT_EQ( answers[1].result, 2u );
   EXPECT_EQ( answers[2].result, 2u );
   ASSERT_TRUE( table().entryHas( snapt ) );
   EXPECT_EQ( table().entry( dnat ).defaultEntryIds().size(), 2u );
   std::size_t const from = mark();
   EXPECT_TRUE( verify() );
   EXPECT_EQ( readBacks( from ), 6u * 3 ) << "the entries it has are still read back";

   // What a short key has must still be right.
   sdk().bcm_field_qualify_DstIp( 1, entryId( dnat, 20 ), ipValue( "203.0.113.99" ),
                                  0xffffffff );
   EXPECT_DEATH( verify(), failed( "ip == ipAddr.address().value()" ) );
   sdk().bcm_field_qualify_DstIp( 1, entryId( dnat, 20 ), ipValue( "203.0.113.80" ),
                                  0xffffffff );

   // Committed again with room to spare, the key answers 1 and is held to everything.
   removeRule( 1, snat );
   rule( 2, dnat, natData( { 10, 20, 30 } ) );
   EXPECT_EQ( answers.back().result, 1u );
   EXPECT_TRUE( verify() );
   Corvane::EntryIdTableEntry row = table().entry( dnat );
   row.defaultEntryIdDel( 30 );
   table().entryIs( row );
   EXPECT_DEATH( verify(), failed( "entry.defaultEntryIds() == shadowData.vlanIds()" ) );
}

TEST_F( NatVerifyWorker, IsOfferedPerWorkerAndWithdrawnWithIt ) {
   chip.modules = { { 1, 1 }, { 3, 3 } };
   start();
   auto const ops = Fwk::operations();
   EXPECT_NE( std::find( ops.begin(), ops.end(), "corvanenat/natWorkerSm/1 doVerify" ),
              ops.end() );
   EXPECT_NE( std::find( ops.begin(), ops.end(), "corvanenat/natWorkerSm/3 doVerify" ),
              ops.end() );
   platform->moduleDel( 3 );
   loop().runUntilIdle();
   ASSERT_FALSE( worker( 3 ) );
   std::string error;
   EXPECT_FALSE( Fwk::operationInvoke( "corvanenat/natWorkerSm/3", "doVerify", &error ) );
   EXPECT_TRUE( verify( "corvanenat/natWorkerSm/1" ) );
}

TEST_F( NatVerifyWorker, AWorkerNotYetInitializedHasNothingToVerify ) {
   chip.flashDownloadDone = false;
   start();
   rule( 1, snat );
   ASSERT_FALSE( worker()->initialized() );
   EXPECT_TRUE( verify() );
}

// ---------------------------------------------------------------------------------------
// doVerify stops at the first broken expectation.

using NatVerifyStops = NatVerifyWorker;

TEST_F( NatVerifyStops, OnATableThatDoesNotMatchTheShadow ) {
   start();
   rule( 1, snat );
   rule( 2, dnat, natData( { 10 } ) );

   // A row more than the shadow.
   Oro::NatHwKey const stray = natKey( 1, ipPort( "10.9.9.9" ), ipPort( "203.0.113.9" ) );
   table().entryIs( Corvane::EntryIdTableEntry( stray ) );
   EXPECT_DEATH( verify(), failed( "entryIdTable()->entrys() == shadow()->entrys()" ) );
   table().entryDel( stray );

   // A lost row is not mistaken for a key answered without programming.
   Corvane::EntryIdTableEntry const lost = table().entryDel( snat );
   EXPECT_DEATH( verify(), failed( "entryIdTable()->entrys() == shadow()->entrys()" ) );

   // Both together keep the count but not the keys.
   table().entryIs( Corvane::EntryIdTableEntry( stray ) );
   EXPECT_DEATH( verify(), failed( "shadow()->entryHas( hwKey )" ) );
   table().entryDel( stray );
   table().entryIs( lost );
   EXPECT_TRUE( verify() );
}

TEST_F( NatVerifyStops, OnEntriesThatDoNotMatchTheVlans ) {
   start();
   rule( 1, snat );
   rule( 2, dnat, natData( { 10, 20 } ) );
   Corvane::EntryIdTableEntry const source = table().entry( snat );
   Corvane::EntryIdTableEntry const destination = table().entry( dnat );

   Corvane::EntryIdTableEntry row = source;
   row.defaultEntryIdIs( 10, source.defaultEntryId( 0 ) );
   table().entryIs( row );
   EXPECT_DEATH( verify(), failed( "entry.defaultEntryIds() == 1" ) );
   row = source;
   row.defaultEntryIdDelAll();
   table().entryIs( row );
   EXPECT_DEATH( verify(), failed( "entry.defaultEntryIds() == 1" ) );
   row.defaultEntryIdIs( 10, source.defaultEntryId( 0 ) );
   table().entryIs( row );
   EXPECT_DEATH( verify(), failed( "entry.defaultEntryIdHas( vlanId )" ) );
   table().entryIs( source );

   row = destination;
   row.defaultEntryIdDel( 20 );
   table().entryIs( row );
   EXPECT_DEATH( verify(), failed( "entry.defaultEntryIds() == shadowData.vlanIds()" ) );
   row.defaultEntryIdIs( 30, destination.defaultEntryId( 20 ) );
   table().entryIs( row );
   EXPECT_DEATH( verify(), failed( "entry.defaultEntryIdHas( vlanId )" ) );
   row = destination;
   row.defaultEntryIdIs( 20, 0 );
   table().entryIs( row );
   EXPECT_DEATH( verify(), failed( "entryId != 0" ) );
   // Entries swapped between VLANs: the L3 ingress read-back tells.
   row.defaultEntryIdIs( 10, destination.defaultEntryId( 20 ) );
   row.defaultEntryIdIs( 20, destination.defaultEntryId( 10 ) );
   table().entryIs( row );
   EXPECT_DEATH( verify(), failed( "intf == vlanId" ) );
}

TEST_F( NatVerifyStops, OnAKeyWithPortsThatLostAFragmentEntry ) {
   nat.fragmentEnabled = true;
   start();
   rule( 1, dnapt, natData( { 10, 20 }, 6 ) );
   rule( 2, dnat, natData( { 10 } ) );
   EXPECT_TRUE( verify() );
   Corvane::EntryIdTableEntry row = table().entry( dnapt );
   row.fragEntryIdDel( 20 );
   table().entryIs( row );
   EXPECT_DEATH( verify(), failed( "!fragmentEnabled() || hwKey.isDynamicNat() || "
                                   "entry.defaultEntryIds() == entry.fragEntryIds()" ) );
   // A fragment entry is checked as one: no L4 port (the default entry has port 80).
   row = table().entry( dnapt );
   row.fragEntryIdIs( 20, row.defaultEntryId( 20 ) );
   table().entryIs( row );
   EXPECT_DEATH( verify(), failed( "port == l4Port" ) );
}

TEST_F( NatVerifyStops, OnAKeyOfAnUnsupportedKind ) {
   start();
   Oro::NatHwKey const odd = natKey( 7, ipPort( "10.0.0.1" ), ipPort( "203.0.113.1" ) );
   rule( 1, odd );  // nothing is programmed for it: no row, and verify passes
   EXPECT_EQ( answers.back().result, 1u );
   EXPECT_TRUE( verify() );
   table().entryIs( Corvane::EntryIdTableEntry( odd ) );
   EXPECT_DEATH( verify(), failed( "unsupported translation type" ) );
}

// A qualifier changed on the chip behind the plug-in's back, and what doVerify says.
struct Break {
   char const* what;
   std::function<void( Shim::Sdk&, U32 )> change;
   char const* expectation;
};

TEST_F( NatVerifyStops, OnAQualifierChangedOnTheChip ) {
   start();
   rule( 1, snapt, natData( {}, 6 ) );
   rule( 2, dnapt, natData( { 10 }, 6 ) );
   U32 const source = entryId( snapt );
   U32 const destination = entryId( dnapt, 10 );
   std::vector<std::pair<U32, Break>> const breaks = {
       { source,
         { "source address",
           []( Shim::Sdk& s, U32 id ) {
              s.bcm_field_qualify_SrcIp( 1, id, ipValue( "10.0.0.3" ), 0xffffffff );
           },
           "ip == ipAddr.address().value()" } },
       { source,
         { "source mask",
           []( Shim::Sdk& s, U32 id ) {
              s.bcm_field_qualify_SrcIp( 1, id, ipValue( "10.0.0.2" ), 0xffffff00 );
           },
           "mask == ipAddr.mask()" } },
       { source,
         { "a destination address where none was written",
           []( Shim::Sdk& s, U32 id ) {
              s.bcm_field_qualify_DstIp( 1, id, ipValue( "192.0.2.1" ), 0xffffffff );
           },
           "ip == ipAddr.address().value()" } },
       { source,
         { "source port",
           []( Shim::Sdk& s, U32 id ) {
              s.bcm_field_qualify_L4SrcPort( 1, id, 1025, 0xffff );
           },
           "port == l4Port" } },
       { source,
         { "protocol",
           []( Shim::Sdk& s, U32 id ) {
              s.bcm_field_qualify_IpProtocol( 1, id, 17, 0xff );
           },
           "proto == protocol" } },
       { source,
         { "an L3 ingress where none was written",
           []( Shim::Sdk& s, U32 id ) {
              s.bcm_field_qualify_L3Ingress( 1, id, 10, 0x1fff );
           },
           "intf == vlanId" } },
       { destination,
         { "destination port mask",
           []( Shim::Sdk& s, U32 id ) {
              s.bcm_field_qualify_L4DstPort( 1, id, 80, 0x00ff );
           },
           "mask == ( U16 )-1" } },
       { destination,
         { "a source port where none was written",
           []( Shim::Sdk& s, U32 id ) {
              s.bcm_field_qualify_L4SrcPort( 1, id, 80, 0xffff );
           },
           "port == l4Port" } },
       { destination,
         { "L3 ingress mask",
           []( Shim::Sdk& s, U32 id ) {
              s.bcm_field_qualify_L3Ingress( 1, id, 10, 0xff );
           },
           "mask == 0x1fff" } },
   };
   for ( auto const& b : breaks ) {
      SCOPED_TRACE( b.second.what );
      // Each break is made in the child only, so the next one starts from a good chip.
      EXPECT_DEATH(
          {
             b.second.change( sdk(), b.first );
             verify();
          },
          failed( b.second.expectation ) );
   }
   EXPECT_TRUE( verify() );
}

TEST_F( NatVerifyStops, OnADynamicEntryMatchingAnAddressItsKeyLacks ) {
   start();
   Oro::NatHwKey const dynamic =
       natKey( 5, ipPort( "10.0.0.5" ), ipPort( "203.0.113.5" ), {}, {}, 6 );
   rule( 1, dynamic );
   EXPECT_TRUE( verify() );
   // 0.0.0.0 under a full mask is a match on that address, not "any".
   sdk().bcm_field_qualify_DstIp( 1, entryId( dynamic ), 0, 0xffffffff );
   EXPECT_DEATH( verify(), failed( "mask == ipAddr.mask()" ) );
}

TEST_F( NatVerifyStops, OnAnEntryGoneFromTheChip ) {
   start();
   rule( 1, snat );
   U32 const id = entryId( snat );
   EXPECT_DEATH(
       {
          platform->chip().unit( 1 )->fieldProcessor().entryDel( id );
          verify();
       },
       failed( "ipAddr.address().value() == 0" ) );
}

}  // namespace
