// Hardware verification: the six qualifier read-backs of one entry, and doVerify of a
// whole worker, reached as tools reach it, through the worker's "doVerify" operation.
// Broken expectations are made behind the plug-in's back (through the SDK shim, or in
// the entry-id table) and must stop the process with the expectation's text.

#include "NatJournalLines.h"

#include <algorithm>

#include "platform/chip/Sdk.h"
#include "platform/fwk/Operation.h"
#include "platform/fwk/Trace.h"

namespace {

using NatTest::Data;
using NatTest::ipPort;
using NatTest::ipValue;
using NatTest::Key;
using NatTest::Lines;
using NatTest::natKey;
using NatTest::Result;
using Wirel::IpAddrWithFullMask;

char const verifyPath[] = "corvanenat/natWorkerSm/1";

// The regular expression of an assertion failure with exactly `text`.
std::string failed( std::string const& text ) {
   return "Assertion `" + literal( text ) + "' failed";
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

   Oro::NatHwKey const snat =
       natKey( Key::staticSrcNat, ipPort( "10.0.0.1" ), ipPort( "203.0.113.1" ) );
   Oro::NatHwKey const snapt = natKey( Key::staticSrcNat, ipPort( "10.0.0.2", 1024 ),
                                       ipPort( "203.0.113.2", 2048 ) );
   Oro::NatHwKey const dnat = natKey( Key::staticDstNat, {}, {}, ipPort( "203.0.113.80" ),
                                      ipPort( "10.0.0.80" ) );
   Oro::NatHwKey const dnapt =
       natKey( Key::staticDstNat, {}, {}, ipPort( "203.0.113.81", 80 ),
               ipPort( "10.0.0.81", 8080 ) );
};

// ---------------------------------------------------------------------------------------
// The read-back checks of one entry, and doVerify over all of them, each run in a child
// process so that a qualifier changed behind the plug-in's back goes with it.

// The qualifier a row reads back (`all`: doVerify of the worker) or changes first.
enum class Field { none, srcIp, dstIp, srcPort, dstPort, protocol, l3Ingress, all };
// The entries of the rules of NatVerifyReadBack.
enum class Ent { snat, snapt, dnat10, dnat4095, dnapt10 };

struct ReadBack {
   Field check;
   Ent entry;
   U32 value;  // the value expected (an address under `mask`)
   U32 mask;
   Field change = Field::none;  // written to the entry first, with `data` and `dataMask`
   U32 data = 0;
   U32 dataMask = 0;
   char const* failure = nullptr;  // the assertion that stops; none: it passes
};

class NatVerifyReadBack : public NatVerify {
protected:
   void SetUp() override {
      start();
      rule( 1, snat );
      rule( 2, snapt, natData( {}, 6 ) );
      rule( 3, dnat, natData( { 10, 4095 } ) );
      rule( 4, dnapt, natData( { 10 }, 6 ) );
   }
   U32 id( Ent e ) {
      switch ( e ) {
         case Ent::snat:
            return entryId( snat );
         case Ent::snapt:
            return entryId( snapt );
         case Ent::dnat10:
            return entryId( dnat, 10 );
         case Ent::dnat4095:
            return entryId( dnat, 4095 );
         default:
            return entryId( dnapt, 10 );
      }
   }
   void write( Field f, U32 entry, U32 data, U32 mask ) {
      switch ( f ) {
         case Field::srcIp:
            sdk().bcm_field_qualify_SrcIp( 1, entry, data, mask );
            break;
         case Field::dstIp:
            sdk().bcm_field_qualify_DstIp( 1, entry, data, mask );
            break;
         case Field::srcPort:
            sdk().bcm_field_qualify_L4SrcPort( 1, entry, U16( data ), U16( mask ) );
            break;
         case Field::dstPort:
            sdk().bcm_field_qualify_L4DstPort( 1, entry, U16( data ), U16( mask ) );
            break;
         case Field::protocol:
            sdk().bcm_field_qualify_IpProtocol( 1, entry, U8( data ), U8( mask ) );
            break;
         case Field::l3Ingress:
            sdk().bcm_field_qualify_L3Ingress( 1, entry, data, mask );
            break;
         default:
            break;
      }
   }
   void read( Field f, U32 entry, U32 value, U32 mask ) {
      IpAddrWithFullMask const ip( ( Wirel::IpAddr( value ) ), mask );
      switch ( f ) {
         case Field::srcIp:
            return worker()->doVerifySrcIp( entry, ip );
         case Field::dstIp:
            return worker()->doVerifyDstIp( entry, ip );
         case Field::srcPort:
            return worker()->doVerifySrcL4Port( entry, U16( value ) );
         case Field::dstPort:
            return worker()->doVerifyDstL4Port( entry, U16( value ) );
         case Field::protocol:
            return worker()->doVerifyIpProtocol( entry, U8( value ) );
         case Field::l3Ingress:
            return worker()->doVerifyL3Ingress( entry, U16( value ) );
         default:
            verify();
      }
   }
   void run( ReadBack const& r ) {
      U32 const entry = id( r.entry );
      ASSERT_NE( entry, 0u );
      write( r.change, entry, r.data, r.dataMask );
      read( r.check, entry, r.value, r.mask );
   }
};

TEST_F( NatVerifyReadBack, EachQualifierPassesOrStopsWithItsExpectation ) {
   U32 const full = 0xffffffffu;
   U32 const any = 0;
   std::vector<ReadBack> const rows = {
       // L4 ports: a port absent from the entry reads 0; one present must be written
       // under the full mask, unless 0 is expected, which looks at the value only.
       { Field::srcPort, Ent::snat, 0, 0 },
       { Field::srcPort, Ent::snat, 80, 0, {}, 0, 0, "l4Port == 0" },
       { Field::srcPort, Ent::snapt, 1024, 0 },
       { Field::srcPort, Ent::snapt, 80, 0, {}, 0, 0, "port == l4Port" },
       { Field::srcPort, Ent::snapt, 0, 0, {}, 0, 0, "port == l4Port" },
       { Field::srcPort, Ent::snapt, 1024, 0, Field::srcPort, 1024, 0x00ff,
         "mask == ( U16 )-1" },
       { Field::srcPort, Ent::snat, 0, 0, Field::srcPort, 0, 0 },
       { Field::dstPort, Ent::snapt, 0, 0 },
       { Field::dstPort, Ent::snapt, 443, 0, Field::dstPort, 443, 0xffff },
       { Field::dstPort, Ent::snapt, 0, 0, Field::dstPort, 443, 0xffff,
         "port == l4Port" },
       { Field::dstPort, Ent::snapt, 443, 0, Field::dstPort, 443, 0xff00,
         "mask == ( U16 )-1" },
       { Field::dstPort, Ent::snat, 443, 0, {}, 0, 0, "l4Port == 0" },
       // Addresses always compare their mask, also when 0.0.0.0 is expected.
       { Field::srcIp, Ent::snat, ipValue( "10.0.0.1" ), full },
       { Field::srcIp,
         Ent::snat,
         ipValue( "10.0.0.9" ),
         full,
         {},
         0,
         0,
         "ip == ipAddr.address().value()" },
       { Field::srcIp, Ent::snat, ipValue( "10.0.0.1" ), full, Field::srcIp,
         ipValue( "10.0.0.1" ), 0xffffff00, "mask == ipAddr.mask()" },
       { Field::srcIp, Ent::snat, ipValue( "10.0.0.1" ), 0xffffff00, Field::srcIp,
         ipValue( "10.0.0.1" ), 0xffffff00 },
       { Field::srcIp, Ent::dnat10, 0, any },
       { Field::srcIp,
         Ent::dnat10,
         ipValue( "10.0.0.1" ),
         full,
         {},
         0,
         0,
         "ipAddr.address().value() == 0" },
       { Field::dstIp, Ent::dnat10, ipValue( "203.0.113.80" ), full },
       { Field::dstIp,
         Ent::dnat10,
         ipValue( "203.0.113.81" ),
         full,
         {},
         0,
         0,
         "ip == ipAddr.address().value()" },
       { Field::dstIp,
         Ent::snat,
         ipValue( "203.0.113.80" ),
         full,
         {},
         0,
         0,
         "ipAddr.address().value() == 0" },
       { Field::dstIp, Ent::snat, 0, full, Field::dstIp, 0, full },
       { Field::dstIp, Ent::snat, 0, any, Field::dstIp, 0, full,
         "mask == ipAddr.mask()" },
       // The protocol's mask is compared only when a protocol is expected.
       { Field::protocol, Ent::snapt, 6, 0 },
       { Field::protocol, Ent::snapt, 17, 0, {}, 0, 0, "proto == protocol" },
       { Field::protocol, Ent::snat, 0, 0 },
       { Field::protocol, Ent::snat, 6, 0, {}, 0, 0, "protocol == 0" },
       { Field::protocol, Ent::snapt, 6, 0, Field::protocol, 6, 0x0f, "mask == 0xff" },
       { Field::protocol, Ent::snapt, 0, 0, Field::protocol, 0, 0x0f },
       // L3 ingress is the VLAN under 13 bits; source NAT matches none.
       { Field::l3Ingress, Ent::dnat10, 10, 0 },
       { Field::l3Ingress, Ent::dnat4095, 4095, 0 },
       { Field::l3Ingress, Ent::dnat10, 20, 0, {}, 0, 0, "intf == vlanId" },
       { Field::l3Ingress, Ent::dnat10, 0, 0, {}, 0, 0, "intf == vlanId" },
       { Field::l3Ingress, Ent::snat, 0, 0 },
       { Field::l3Ingress, Ent::snat, 10, 0, {}, 0, 0, "vlanId == 0" },
       { Field::l3Ingress, Ent::dnat10, 10, 0, Field::l3Ingress, 10, 0xfff,
         "mask == 0x1fff" },
       // doVerify reads every qualifier of every entry back.
       { Field::all, Ent::snapt, 0, 0, Field::srcIp, ipValue( "10.0.0.3" ), full,
         "ip == ipAddr.address().value()" },
       { Field::all, Ent::snapt, 0, 0, Field::srcIp, ipValue( "10.0.0.2" ), 0xffffff00,
         "mask == ipAddr.mask()" },
       { Field::all, Ent::snapt, 0, 0, Field::dstIp, ipValue( "192.0.2.1" ), full,
         "ip == ipAddr.address().value()" },
       { Field::all, Ent::snapt, 0, 0, Field::srcPort, 1025, 0xffff, "port == l4Port" },
       { Field::all, Ent::snapt, 0, 0, Field::protocol, 17, 0xff, "proto == protocol" },
       { Field::all, Ent::snapt, 0, 0, Field::l3Ingress, 10, 0x1fff, "intf == vlanId" },
       { Field::all, Ent::dnapt10, 0, 0, Field::dstPort, 80, 0x00ff,
         "mask == ( U16 )-1" },
       { Field::all, Ent::dnapt10, 0, 0, Field::srcPort, 80, 0xffff, "port == l4Port" },
       { Field::all, Ent::dnapt10, 0, 0, Field::l3Ingress, 10, 0xff, "mask == 0x1fff" },
       { Field::all, Ent::snat, 0, 0 },
   };
   for ( std::size_t i = 0; i < rows.size(); ++i ) {
      SCOPED_TRACE( "row " + std::to_string( i ) );
      ReadBack const& r = rows[i];
      if ( r.failure ) {
         EXPECT_DEATH( run( r ), failed( r.failure ) );
      } else {
         EXPECT_EXIT(
             {
                run( r );
                std::_Exit( ::testing::Test::HasFailure() ? 1 : 0 );
             },
             ::testing::ExitedWithCode( 0 ), "" );
      }
   }
}

TEST_F( NatVerifyReadBack, ReadsAreTracedWithTheirReturnCodeAndTheSourceAddress ) {
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
// doVerify on the states the plug-in builds. The randomized test (NatRandomTest.cpp) runs
// it after every step of its random sequences: both hardware modes, dropped VLANs,
// removals, module sets with modules that never answer, full TCAMs. Here: every kind of
// rule at once with every entry read back, and keys short of room.

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
      rule( 3, natKey( Key::staticSrcNat, ipPort( "10.0.0.3" ), ipPort( "203.0.113.3" ) ),
            filtered );
      Oro::NatHwData sharing;
      sharing.staticAclSharingIs( true );
      rule( 4,
            natKey( Key::staticSrcNat, ipPort( "10.0.0.4" ), ipPort( "203.0.113.4" ), {},
                    {}, 0, 7 ),
            sharing );
      rule( 5, dnat, natData( { 10, 20, 30 } ) );
      rule( 6, dnapt, natData( { 10, 20 }, 6 ) );
      Oro::NatHwData dnatFiltered = natData( { 20 } );
      dnatFiltered.filterAddrIs(
          IpAddrWithFullMask( Wirel::IpAddr( ipValue( "198.51.100.0" ) ), 0xffffff00 ) );
      rule( 7,
            natKey( Key::staticDstNat, {}, {}, ipPort( "203.0.113.82" ),
                    ipPort( "10.0.0.82" ) ),
            dnatFiltered );
      // Twice NAT, both sides, with and without ports.
      rule( 8,
            natKey( Key::twiceNatSrc, ipPort( "10.0.0.3" ), ipPort( "203.0.113.3" ),
                    ipPort( "198.51.100.7" ), ipPort( "192.0.2.7" ) ),
            natData( {}, 0, 0x8000002 ) );
      rule( 9,
            natKey( Key::twiceNatDst, ipPort( "192.0.2.7", 53 ),
                    ipPort( "198.51.100.7", 5353 ), ipPort( "203.0.113.3", 53 ),
                    ipPort( "10.0.0.3", 5353 ) ),
            natData( { 10, 20 }, 17 ) );
      rule( 10,
            natKey( Key::twiceNatSrc, ipPort( "10.0.0.4", 1000 ),
                    ipPort( "203.0.113.4", 2000 ), ipPort( "198.51.100.8", 80 ),
                    ipPort( "192.0.2.8", 8080 ) ),
            natData( {}, 6 ) );
      // Dynamic, one address each (this mode's kind): TCP, and 17 overwritten by TCP.
      rule( 11, natKey( Key::dynamicSrcNat, ipPort( "10.0.0.5" ), ipPort( "203.0.113.5" ),
                        {}, {}, 6 ) );
      rule( 13, natKey( Key::dynamicSrcNat, ipPort( "10.0.0.7" ), ipPort( "203.0.113.7" ),
                        {}, {}, 17 ) );
      rule( 14,
            natKey( Key::dynamicDstNat, {}, {}, ipPort( "203.0.113.6" ),
                    ipPort( "10.0.0.6" ) ),
            natData( { 10, 20 }, 0, 7 ) );
      // Multicast: source with the 224/4 destination, destination on ingress (L3
      // ingress, no source filter for a 239/8 group), destination not on ingress (no L3
      // ingress, 224/4 source for a 10/8 destination).
      Oro::NatHwData mcast = natData( {}, 0, 0 );
      mcast.multicastIs( true );
      mcast.mcastGroupIdIs( 3 );
      rule( 15, natKey( Key::staticSrcNat, ipPort( "10.1.0.1" ), ipPort( "10.2.0.1" ) ),
            mcast, { 1 }, 100 );
      Oro::NatHwData mcastIngress = natData( { 10 }, 0, 0 );
      mcastIngress.multicastIs( true );
      mcastIngress.ingressIs( true );
      rule( 16,
            natKey( Key::staticDstNat, {}, {}, ipPort( "239.1.1.1" ),
                    ipPort( "239.2.2.2" ) ),
            mcastIngress, { 1 }, 101 );
      Oro::NatHwData mcastEgress = natData( { 20 }, 0, ~0ull );
      mcastEgress.multicastIs( true );
      rule( 17,
            natKey( Key::staticDstNat, {}, {}, ipPort( "10.9.9.9" ),
                    ipPort( "239.3.3.3" ) ),
            mcastEgress, { 1 }, 102 );
      // Answered without programming: a destination key on no VLAN, and a dynamic key
      // with ports, which this mode cannot hold.
      rule( 18,
            natKey( Key::staticDstNat, {}, {}, ipPort( "203.0.113.90" ),
                    ipPort( "10.0.0.90" ) ),
            natData() );
      rule( 19,
            natKey( Key::dynamicDstNat, {}, {}, ipPort( "203.0.113.9", 80 ),
                    ipPort( "10.0.0.9", 8080 ) ),
            natData( { 10 } ) );
   }
};

TEST_F( NatVerifyWorker, PassesAfterRulesOfEveryKindAndReadsBackEveryEntry ) {
   for ( bool fragments : { false, true } ) {
      SCOPED_TRACE( fragments ? "with fragment entries" : "without fragment entries" );
      nat.fragmentEnabled = fragments;
      start();
      everyKind();
      for ( auto const& a : answers ) {
         ASSERT_EQ( a.result, Result::done ) << "uid " << a.uid;
      }
      EXPECT_EQ( table().entrys(), 16u ) << "two keys have no row";
      // Fragment entries for the keys with ports and for dynamic keys.
      EXPECT_EQ( table().entry( snapt ).fragEntryIdHas( 0 ), fragments );
      EXPECT_EQ( table().entry( dnapt ).fragEntryIds().size(), fragments ? 2u : 0u );
      EXPECT_FALSE( table().entry( dnat ).fragEntryIdHas( 10 ) );
      std::size_t const from = mark();
      EXPECT_TRUE( verify() );
      // Nothing vacuous: six reads of every entry that the chip holds.
      EXPECT_EQ( readBacks( from ), 6 * chipEntries() );
      if ( !fragments ) {
         EXPECT_EQ( chipEntries(), 21u );
      }
      TearDown();
      answers.clear();
   }
}

TEST_F( NatVerifyWorker, IsOfferedPerWorkerEachPassingWithRulesOfOtherModules ) {
   chip.modules = { { 1, 1 }, { 2, 2 } };
   start();
   auto const ops = Fwk::operations();
   for ( char const* path : { "corvanenat/natWorkerSm/1", "corvanenat/natWorkerSm/2" } ) {
      EXPECT_NE( std::find( ops.begin(), ops.end(), std::string( path ) + " doVerify" ),
                 ops.end() );
   }
   rule( 1, snat, {}, { 1 } );
   rule( 2, dnat, natData( { 10 } ), { 2 } );
   rule( 3, snapt, {}, { 1, 2 } );
   EXPECT_FALSE( table( 1 ).entryHas( dnat ) );
   EXPECT_FALSE( table( 2 ).entryHas( snat ) );
   EXPECT_TRUE( verify( "corvanenat/natWorkerSm/1" ) );
   EXPECT_TRUE( verify( "corvanenat/natWorkerSm/2" ) );
   // Withdrawn with its worker.
   platform->moduleDel( 2 );
   loop().runUntilIdle();
   ASSERT_FALSE( worker( 2 ) );
   std::string error;
   EXPECT_FALSE( Fwk::operationInvoke( "corvanenat/natWorkerSm/2", "doVerify", &error ) );
   EXPECT_TRUE( verify( "corvanenat/natWorkerSm/1" ) );
}

TEST_F( NatVerifyWorker, KeysShortOfTcamAreHeldToTheEntriesTheyHave ) {
   chip.tcamEntries = 3;
   start();
   rule( 1, snat );
   rule( 2, dnat, natData( { 10, 20, 30 } ) );  // room for 10 and 20 only
   rule( 3, snapt );                            // no room at all: an empty row
   ASSERT_EQ( answers.size(), 3u );
   EXPECT_EQ( answers[1].result, Result::hwFull );
   EXPECT_EQ( answers[2].result, Result::hwFull );
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
   EXPECT_EQ( answers.back().result, Result::done );
   EXPECT_TRUE( verify() );
   Corvane::EntryIdTableEntry row = table().entry( dnat );
   row.defaultEntryIdDel( 30 );
   table().entryIs( row );
   EXPECT_DEATH( verify(), failed( "entry.defaultEntryIds() == shadowData.vlanIds()" ) );
}

// A data change that drops a protocol, a filter, ACL sharing or multicast ingress takes
// that qualifier off the entry (bcm_field_qualifier_delete), so that the entry matches
// as the current data says and doVerify passes; a change that drops nothing deletes
// nothing.
TEST_F( NatVerifyWorker, AReprogrammedEntryHoldsExactlyWhatItsNewDataAsks ) {
   Oro::NatHwKey const source = natKey( Key::staticSrcNat, ipPort( "10.0.0.1" ),
                                        ipPort( "203.0.113.1" ), {}, {}, 0, 7 );
   Oro::NatHwKey const destination = dnat;
   auto lookup = [this]( Chip::Packet packet ) {
      packet.myStationHit = true;
      return platform->chip().unit( 1 )->fieldProcessor().lookup( 160, packet, 1 );
   };
   Chip::Packet udpOut;  // from the source key's old address, not to the filter
   udpOut.src = ipValue( "10.0.0.1" );
   udpOut.dst = ipValue( "8.8.8.8" );
   udpOut.protocol = 17;
   Chip::Packet udpIn;  // to the destination key's old address on VLAN 20
   udpIn.src = ipValue( "192.0.2.1" );
   udpIn.dst = ipValue( "203.0.113.80" );
   udpIn.protocol = 17;
   udpIn.vlan = 20;
   struct Change {
      char const* what;
      Oro::NatHwKey key;
      Oro::NatHwData data;
      Lines deleted;    // the qualifiers taken off, in call order
      bool udpMatches;  // whether the key's UDP packet above hits its entry
   };
   Change const changes[] = {
       { "source: protocol and filter",
         source,
         Data().protocol( 6 ).filter( "198.51.100.0", 24 ),
         {},
         false },
       { "source: neither", source, Data(), { "DstIp", "IpProtocol" }, true },
       { "source: ACL sharing", source, Data().aclSharing(), {}, false },
       { "source: no ACL sharing", source, Data(), { "OpaqueObject1" }, true },
       { "source: protocol and filter again",
         source,
         Data().protocol( 6 ).filter( "198.51.100.0", 24 ),
         {},
         false },
       { "destination: unicast on VLAN 10",
         destination,
         Data().vlans( { 10 } ),
         {},
         false },
       { "destination: multicast, not at ingress",
         destination,
         Data().vlans( { 10 } ).multicast( 3 ),
         { "L3Ingress" },
         true },
       { "destination: multicast at ingress",
         destination,
         Data().vlans( { 10 } ).multicast( 3, true ),
         {},
         false },
       { "destination: unicast again", destination, Data().vlans( { 10 } ), {}, false },
   };
   start();
   for ( Change const& c : changes ) {
      SCOPED_TRACE( c.what );
      std::size_t const from = mark();
      rule( c.key == source ? 1 : 2, c.key, c.data, { 1 }, 9 );
      Lines deleted;
      for ( auto const& r : Chip::journal().recordsFrom( from ) ) {
         if ( r.call == "bcm_field_qualifier_delete" ) {
            ASSERT_EQ( r.rc, 0 );
            deleted.push_back( Chip::json( r.args ) );
         }
      }
      Lines expected;
      for ( std::string const& name : c.deleted ) {
         expected.push_back( "[\"" + name + "\"]" );
      }
      EXPECT_EQ( deleted, expected );
      EXPECT_TRUE( verify() );
      Chip::Packet const packet = c.key == source ? udpOut : udpIn;
      EXPECT_EQ( lookup( packet ) == entryId( c.key, c.key == source ? 0 : 10 ),
                 c.udpMatches );
   }
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
   Oro::NatHwKey const stray =
       natKey( Key::staticSrcNat, ipPort( "10.9.9.9" ), ipPort( "203.0.113.9" ) );
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
   Oro::NatHwKey const odd =
       natKey( Key::NatKeyType( 7 ), ipPort( "10.0.0.1" ), ipPort( "203.0.113.1" ) );
   rule( 1, odd );  // nothing is programmed for it: no row, and verify passes
   EXPECT_EQ( answers.back().result, Result::done );
   EXPECT_TRUE( verify() );
   table().entryIs( Corvane::EntryIdTableEntry( odd ) );
   EXPECT_DEATH( verify(), failed( "unsupported translation type" ) );
}

TEST_F( NatVerifyStops, OnADynamicEntryMatchingAnAddressItsKeyLacks ) {
   start();
   Oro::NatHwKey const dynamic = natKey( Key::dynamicSrcNat, ipPort( "10.0.0.5" ),
                                         ipPort( "203.0.113.5" ), {}, {}, 6 );
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
