// Hardware verification: the six qualifier read-backs of one entry, and doVerify of a
// whole worker, reached as tools reach it, through the worker's "doVerify" operation.
// Broken expectations are made behind the plug-in's back (through the SDK shim, or in
// the entry-id table) and must stop the process with the expectation's text. (The
// randomized test runs doVerify after every step of its sequences.)

#include "NatJournalLines.h"

#include <algorithm>

#include "platform/chip/Sdk.h"
#include "platform/fwk/Operation.h"

namespace {

using NatTest::at;
using NatTest::Data;
using NatTest::hostOrder;
using NatTest::Key;
using NatTest::natKey;
using NatTest::Result;
using Wirel::IpAddrWithFullMask;

char const verifyPath[] = "corvanenat/natWorkerSm/1";

// The regular expression of an assertion failure with exactly `text`.
std::string failed( std::string const& text ) {
   return "Assertion `" + literal( text ) + "' failed";
}

class NatVerify : public NatTest::NatFixture {
protected:
   Corvane::EntryIdTable& table( U16 modId = 1 ) {
      return *worker( modId )->entryIdTable();
   }
   U32 entryId( Oro::NatHwKey const& key, U16 vlan = 0 ) {
      return table().entry( key ).defaultEntryId( vlan );
   }
   // Runs doVerify as a tool does; false when the worker offers no such operation.
   bool verify( char const* path = verifyPath ) {
      std::string error;
      return Fwk::operationInvoke( path, "doVerify", &error );
   }
   // The qualifier read-backs in the journal from `from` on.
   std::size_t readBacks( std::size_t from ) const {
      std::size_t n = 0;
      for ( auto const& r : Chip::journal().recordsFrom( from ) ) {
         std::string const& c = r.call;
         n += c.rfind( "bcm_field_qualify_", 0 ) == 0 && c.size() > 4 &&
              c.compare( c.size() - 4, 4, "_get" ) == 0;
      }
      return n;
   }
   Shim::Sdk& sdk() { return *Shim::sdk_; }
   void rewriteDstIp( U32 entry, char const* ip ) {
      sdk().bcm_field_qualify_DstIp( 1, entry, hostOrder( ip ), 0xffffffff );
   }

   Oro::NatHwKey const snat =
       natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "203.0.113.1" ) );
   Oro::NatHwKey const snapt =
       natKey( Key::staticSrcNat, at( "10.0.0.2", 1024 ), at( "203.0.113.2", 2048 ) );
   Oro::NatHwKey const dnat =
       natKey( Key::staticDstNat, {}, {}, at( "203.0.113.80" ), at( "10.0.0.80" ) );
   Oro::NatHwKey const dnapt = natKey(
       Key::staticDstNat, {}, {}, at( "203.0.113.81", 80 ), at( "10.0.0.81", 8080 ) );
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
   Field change;  // written to the entry first, with `data` and `dataMask`
   U32 data;
   U32 dataMask;
   char const* failure;  // the assertion that stops; none: it passes
};

class NatVerifyReadBack : public NatVerify {
protected:
   void SetUp() override {
      start();
      rule( 1, snat );
      rule( 2, snapt, Data().nextHop( 5 ).protocol( 6 ) );
      rule( 3, dnat, Data().nextHop( 5 ).vlans( { 10, 4095 } ) );
      rule( 4, dnapt, Data().nextHop( 5 ).vlans( { 10 } ).protocol( 6 ) );
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
   U32 const ip1 = hostOrder( "10.0.0.1" ), ip80 = hostOrder( "203.0.113.80" );
   using F = Field;
   using E = Ent;
   // clang-format off
   std::vector<ReadBack> const rows = {
       // L4 ports: a port absent from the entry reads 0; one present must be written
       // under the full mask, unless 0 is expected, which looks at the value only.
       { F::srcPort, E::snat, 0, 0, F::none, 0, 0, nullptr },
       { F::srcPort, E::snat, 80, 0, F::none, 0, 0, "l4Port == 0" },
       { F::srcPort, E::snapt, 1024, 0, F::none, 0, 0, nullptr },
       { F::srcPort, E::snapt, 80, 0, F::none, 0, 0, "port == l4Port" },
       { F::srcPort, E::snapt, 0, 0, F::none, 0, 0, "port == l4Port" },
       { F::srcPort, E::snapt, 1024, 0, F::srcPort, 1024, 0x00ff, "mask == ( U16 )-1" },
       { F::srcPort, E::snat, 0, 0, F::srcPort, 0, 0, nullptr },
       { F::dstPort, E::snapt, 443, 0, F::dstPort, 443, 0xffff, nullptr },
       { F::dstPort, E::snapt, 0, 0, F::dstPort, 443, 0xffff, "port == l4Port" },
       { F::dstPort, E::snapt, 443, 0, F::dstPort, 443, 0xff00, "mask == ( U16 )-1" },
       { F::dstPort, E::snat, 443, 0, F::none, 0, 0, "l4Port == 0" },
       // Addresses always compare their mask, also when 0.0.0.0 is expected.
       { F::srcIp, E::snat, ip1, full, F::none, 0, 0, nullptr },
       { F::srcIp, E::snat, ip1 + 8, full, F::none, 0, 0, "ip == ipAddr.address().value()" },
       { F::srcIp, E::snat, ip1, full, F::srcIp, ip1, 0xffffff00, "mask == ipAddr.mask()" },
       { F::srcIp, E::snat, ip1, 0xffffff00, F::srcIp, ip1, 0xffffff00, nullptr },
       { F::srcIp, E::dnat10, 0, 0, F::none, 0, 0, nullptr },
       { F::srcIp, E::dnat10, ip1, full, F::none, 0, 0, "ipAddr.address().value() == 0" },
       { F::dstIp, E::dnat10, ip80, full, F::none, 0, 0, nullptr },
       { F::dstIp, E::dnat10, ip80 + 1, full, F::none, 0, 0, "ip == ipAddr.address().value()" },
       { F::dstIp, E::snat, ip80, full, F::none, 0, 0, "ipAddr.address().value() == 0" },
       { F::dstIp, E::snat, 0, full, F::dstIp, 0, full, nullptr },
       { F::dstIp, E::snat, 0, 0, F::dstIp, 0, full, "mask == ipAddr.mask()" },
       // The protocol's mask is compared only when a protocol is expected.
       { F::protocol, E::snapt, 6, 0, F::none, 0, 0, nullptr },
       { F::protocol, E::snapt, 17, 0, F::none, 0, 0, "proto == protocol" },
       { F::protocol, E::snat, 0, 0, F::none, 0, 0, nullptr },
       { F::protocol, E::snat, 6, 0, F::none, 0, 0, "protocol == 0" },
       { F::protocol, E::snapt, 6, 0, F::protocol, 6, 0x0f, "mask == 0xff" },
       { F::protocol, E::snapt, 0, 0, F::protocol, 0, 0x0f, nullptr },
       // L3 ingress is the VLAN under 13 bits; source NAT matches none.
       { F::l3Ingress, E::dnat10, 10, 0, F::none, 0, 0, nullptr },
       { F::l3Ingress, E::dnat4095, 4095, 0, F::none, 0, 0, nullptr },
       { F::l3Ingress, E::dnat10, 20, 0, F::none, 0, 0, "intf == vlanId" },
       { F::l3Ingress, E::dnat10, 0, 0, F::none, 0, 0, "intf == vlanId" },
       { F::l3Ingress, E::snat, 0, 0, F::none, 0, 0, nullptr },
       { F::l3Ingress, E::snat, 10, 0, F::none, 0, 0, "vlanId == 0" },
       { F::l3Ingress, E::dnat10, 10, 0, F::l3Ingress, 10, 0xfff, "mask == 0x1fff" },
       // doVerify reads every qualifier of every entry back.
       { F::all, E::snapt, 0, 0, F::srcIp, ip1 + 2, full, "ip == ipAddr.address().value()" },
       { F::all, E::snapt, 0, 0, F::srcIp, ip1 + 1, 0xffffff00, "mask == ipAddr.mask()" },
       { F::all, E::snapt, 0, 0, F::dstIp, ip1, full, "ip == ipAddr.address().value()" },
       { F::all, E::snapt, 0, 0, F::srcPort, 1025, 0xffff, "port == l4Port" },
       { F::all, E::snapt, 0, 0, F::protocol, 17, 0xff, "proto == protocol" },
       { F::all, E::snapt, 0, 0, F::l3Ingress, 10, 0x1fff, "intf == vlanId" },
       { F::all, E::dnapt10, 0, 0, F::dstPort, 80, 0x00ff, "mask == ( U16 )-1" },
       { F::all, E::dnapt10, 0, 0, F::srcPort, 80, 0xffff, "port == l4Port" },
       { F::all, E::dnapt10, 0, 0, F::l3Ingress, 10, 0xff, "mask == 0x1fff" },
       { F::all, E::snat, 0, 0, F::none, 0, 0, nullptr },
   };
   // clang-format on
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

// ---------------------------------------------------------------------------------------
// doVerify on the states the plug-in builds: every kind of rule at once with every entry
// read back, keys short of room, and data changes that drop a qualifier.

TEST_F( NatVerify, PassesAfterRulesOfEveryKindAndReadsBackEveryEntry ) {
   for ( bool fragments : { false, true } ) {
      SCOPED_TRACE( fragments ? "with fragment entries" : "without fragment entries" );
      nat.fragmentEnabled = fragments;
      start();
      auto const nh5 = Data().nextHop( 5 );
      rule( 1, snat );
      rule( 2, snapt, Data( nh5 ).protocol( 6 ) );
      rule( 3, natKey( Key::staticSrcNat, at( "10.0.0.3" ), at( "203.0.113.3" ) ),
            Data().filter( "192.0.2.0", 24 ) );
      rule( 4,
            natKey( Key::staticSrcNat, at( "10.0.0.4" ), at( "203.0.113.4" ), {}, {}, 0,
                    7 ),
            Data().aclSharing() );
      rule( 5, dnat, Data( nh5 ).vlans( { 10, 20, 30 } ) );
      rule( 6, dnapt, Data( nh5 ).vlans( { 10, 20 } ).protocol( 6 ) );
      rule( 7,
            natKey( Key::staticDstNat, {}, {}, at( "203.0.113.82" ), at( "10.0.0.82" ) ),
            Data( nh5 ).vlans( { 20 } ).filter( "198.51.100.0", 24 ) );
      // Twice NAT, both sides, with and without ports.
      rule( 8,
            natKey( Key::twiceNatSrc, at( "10.0.0.3" ), at( "203.0.113.3" ),
                    at( "198.51.100.7" ), at( "192.0.2.7" ) ),
            Data().nextHop( 0x8000002 ) );
      rule( 9,
            natKey( Key::twiceNatDst, at( "192.0.2.7", 53 ), at( "198.51.100.7", 5353 ),
                    at( "203.0.113.3", 53 ), at( "10.0.0.3", 5353 ) ),
            Data( nh5 ).vlans( { 10, 20 } ).protocol( 17 ) );
      rule( 10,
            natKey( Key::twiceNatSrc, at( "10.0.0.4", 1000 ), at( "203.0.113.4", 2000 ),
                    at( "198.51.100.8", 80 ), at( "192.0.2.8", 8080 ) ),
            Data( nh5 ).protocol( 6 ) );
      // Dynamic, one address each (this mode's kind): TCP, and 17 overwritten by TCP.
      rule( 11, natKey( Key::dynamicSrcNat, at( "10.0.0.5" ), at( "203.0.113.5" ), {}, {},
                        6 ) );
      rule( 13, natKey( Key::dynamicSrcNat, at( "10.0.0.7" ), at( "203.0.113.7" ), {}, {},
                        17 ) );
      rule( 14,
            natKey( Key::dynamicDstNat, {}, {}, at( "203.0.113.6" ), at( "10.0.0.6" ) ),
            Data().nextHop( 7 ).vlans( { 10, 20 } ) );
      // Multicast: source with the 224/4 destination, destination on ingress (L3
      // ingress, no source filter for a 239/8 group), destination not on ingress (no L3
      // ingress, 224/4 source for a 10/8 destination).
      rule( 15, natKey( Key::staticSrcNat, at( "10.1.0.1" ), at( "10.2.0.1" ) ),
            Data().multicast( 3 ), { 1 }, 100 );
      rule( 16, natKey( Key::staticDstNat, {}, {}, at( "239.1.1.1" ), at( "239.2.2.2" ) ),
            Data().vlans( { 10 } ).multicast( 0, true ), { 1 }, 101 );
      rule( 17, natKey( Key::staticDstNat, {}, {}, at( "10.9.9.9" ), at( "239.3.3.3" ) ),
            Data().vlans( { 20 } ).nextHop( ~0ull ).multicast( 0 ), { 1 }, 102 );
      // Answered without programming: a destination key on no VLAN, and a dynamic key
      // with ports, which this mode cannot hold.
      rule( 18,
            natKey( Key::staticDstNat, {}, {}, at( "203.0.113.90" ), at( "10.0.0.90" ) ),
            nh5 );
      rule( 19,
            natKey( Key::dynamicDstNat, {}, {}, at( "203.0.113.9", 80 ),
                    at( "10.0.0.9", 8080 ) ),
            Data( nh5 ).vlans( { 10 } ) );
      for ( auto const& a : answers ) {
         ASSERT_EQ( a.result, Result::done ) << "uid " << a.uid;
      }
      EXPECT_EQ( table().entrys(), 16u ) << "two keys have no row";
      EXPECT_EQ( chipEntries(), fragments ? 31u : 21u ) << "ten fragment entries";
      std::size_t const from = mark();
      EXPECT_TRUE( verify() );
      // Nothing vacuous: six reads of every entry that the chip holds.
      EXPECT_EQ( readBacks( from ), 6 * chipEntries() );
      TearDown();
      answers.clear();
   }
}

TEST_F( NatVerify, IsOfferedPerWorkerAndWithdrawnWithIt ) {
   chip.modules = { { 1, 1 }, { 2, 2 } };
   chip.flashDownloadDone = false;
   start();
   rule( 1, snat, {}, { 1 } );
   ASSERT_FALSE( worker()->initialized() );
   EXPECT_TRUE( verify() ) << "a worker not yet initialized has nothing to verify";
   platform->commonData().flashDownloadWaitIs( Corvane::tcamFlashDownloadReqL3Status,
                                               true );
   loop().runUntilIdle();
   rule( 2, dnat, Data().vlans( { 10 } ), { 2 } );
   rule( 3, snapt, {}, { 1, 2 } );
   EXPECT_TRUE( verify( "corvanenat/natWorkerSm/1" ) );
   EXPECT_TRUE( verify( "corvanenat/natWorkerSm/2" ) );
   platform->moduleDel( 2 );
   loop().runUntilIdle();
   EXPECT_FALSE( verify( "corvanenat/natWorkerSm/2" ) );
   EXPECT_TRUE( verify( "corvanenat/natWorkerSm/1" ) );
}

TEST_F( NatVerify, KeysShortOfTcamAreHeldToTheEntriesTheyHave ) {
   chip.tcamEntries = 3;
   start();
   rule( 1, snat );
   rule( 2, dnat, Data().vlans( { 10, 20, 30 } ) );  // room for 10 and 20 only
   rule( 3, snapt );                                 // no room at all: an empty row
   ASSERT_EQ( answers.size(), 3u );
   EXPECT_EQ( answers[1].result, Result::hwFull );
   EXPECT_EQ( answers[2].result, Result::hwFull );
   std::size_t const from = mark();
   EXPECT_TRUE( verify() );
   EXPECT_EQ( readBacks( from ), 6u * 3 ) << "the entries it has are still read back";
   // What a short key has must still be right.
   rewriteDstIp( entryId( dnat, 20 ), "203.0.113.99" );
   EXPECT_DEATH( verify(), failed( "ip == ipAddr.address().value()" ) );
   rewriteDstIp( entryId( dnat, 20 ), "203.0.113.80" );
   // Committed again with room to spare, the key answers 1 and is held to everything.
   removeRule( 1, snat );
   rule( 2, dnat, Data().vlans( { 10, 20, 30 } ) );
   EXPECT_EQ( answers.back().result, Result::done );
   Corvane::EntryIdTableEntry row = table().entry( dnat );
   row.defaultEntryIdDel( 30 );
   table().entryIs( row );
   EXPECT_DEATH( verify(), failed( "entry.defaultEntryIds() == shadowData.vlanIds()" ) );
}

// A data change that drops a protocol, a filter, ACL sharing or multicast ingress takes
// that qualifier off the entry (bcm_field_qualifier_delete), so that the entry matches
// as the current data says and doVerify passes; a change that drops nothing deletes
// nothing.
TEST_F( NatVerify, AReprogrammedEntryHoldsExactlyWhatItsNewDataAsks ) {
   Oro::NatHwKey const source =
       natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "203.0.113.1" ), {}, {}, 0, 7 );
   Chip::Packet udpOut;  // from the source key's old address, not to the filter
   udpOut.src = hostOrder( "10.0.0.1" );
   udpOut.dst = hostOrder( "8.8.8.8" );
   udpOut.protocol = 17;
   udpOut.myStationHit = true;
   Chip::Packet udpIn = udpOut;  // to the destination key's old address on VLAN 20
   udpIn.src = hostOrder( "192.0.2.1" );
   udpIn.dst = hostOrder( "203.0.113.80" );
   udpIn.vlan = 20;
   struct Change {
      char const* what;
      bool source;
      Oro::NatHwData data;
      std::vector<char const*> deleted;  // the qualifiers taken off, in call order
      bool udpMatches;                   // whether the key's UDP packet hits its entry
   };
   Data const tcpFiltered = Data().protocol( 6 ).filter( "198.51.100.0", 24 );
   Data const vlan10 = Data().vlans( { 10 } );
   // clang-format off
   Change const changes[] = {
       { "source: protocol and filter", true, tcpFiltered, {}, false },
       { "source: neither", true, Data(), { "DstIp", "IpProtocol" }, true },
       { "source: ACL sharing", true, Data().aclSharing(), {}, false },
       { "source: no ACL sharing", true, Data(), { "OpaqueObject1" }, true },
       { "source: protocol and filter again", true, tcpFiltered, {}, false },
       { "destination: unicast on VLAN 10", false, vlan10, {}, false },
       { "destination: multicast, not at ingress", false, Data( vlan10 ).multicast( 3 ), { "L3Ingress" }, true },
       { "destination: multicast at ingress", false, Data( vlan10 ).multicast( 3, true ), {}, false },
       { "destination: unicast again", false, vlan10, {}, false },
   };
   // clang-format on
   start();
   for ( Change const& c : changes ) {
      SCOPED_TRACE( c.what );
      std::size_t const from = mark();
      Oro::NatHwKey const& key = c.source ? source : dnat;
      rule( c.source ? 1 : 2, key, c.data, { 1 }, 9 );
      NatTest::Lines deleted, expected;
      for ( auto const& r : Chip::journal().recordsFrom( from ) ) {
         if ( r.call == "bcm_field_qualifier_delete" ) {
            ASSERT_EQ( r.rc, 0 );
            deleted.push_back( Chip::json( r.args ) );
         }
      }
      for ( char const* name : c.deleted ) {
         expected.push_back( std::string( "[\"" ) + name + "\"]" );
      }
      EXPECT_EQ( deleted, expected );
      EXPECT_TRUE( verify() );
      U32 const hit = platform->chip().unit( 1 )->fieldProcessor().lookup(
          160, c.source ? udpOut : udpIn, 1 );
      EXPECT_EQ( hit == entryId( key, c.source ? 0 : 10 ), c.udpMatches );
   }
}

// ---------------------------------------------------------------------------------------
// doVerify stops at the first broken expectation of the entry-id table.

struct TableFault {
   char const* what;
   std::function<void( Corvane::EntryIdTable&, Oro::NatHwKey const& snat,
                       Oro::NatHwKey const& dnat )>
       change;
   char const* failure;
};

TEST_F( NatVerify, StopsOnATableThatDoesNotMatchTheShadowOrTheVlans ) {
   using Row = Corvane::EntryIdTableEntry;
   Oro::NatHwKey const stray =
       natKey( Key::staticSrcNat, at( "10.9.9.9" ), at( "203.0.113.9" ) );
   char const* const rows = "entryIdTable()->entrys() == shadow()->entrys()";
   // clang-format off
   std::vector<TableFault> const faults = {
       { "a row more than the shadow", [&]( auto& t, auto&, auto& ) { t.entryIs( Row( stray ) ); }, rows },
       { "a row lost", [&]( auto& t, auto& s, auto& ) { t.entryDel( s ); }, rows },
       { "a row swapped for a stray one", [&]( auto& t, auto& s, auto& ) {
            t.entryDel( s );
            t.entryIs( Row( stray ) );
         }, "shadow()->entryHas( hwKey )" },
       { "a source row on a VLAN", [&]( auto& t, auto& s, auto& ) {
            Row row = t.entry( s );
            row.defaultEntryIdIs( 10, row.defaultEntryId( 0 ) );
            t.entryIs( row );
         }, "entry.defaultEntryIds() == 1" },
       { "a source row without entry", [&]( auto& t, auto& s, auto& ) {
            Row row = t.entry( s );
            row.defaultEntryIdDelAll();
            t.entryIs( row );
         }, "entry.defaultEntryIds() == 1" },
       { "a source row moved to a VLAN", [&]( auto& t, auto& s, auto& ) {
            Row row = t.entry( s );
            row.defaultEntryIdDelAll();
            row.defaultEntryIdIs( 10, t.entry( s ).defaultEntryId( 0 ) );
            t.entryIs( row );
         }, "entry.defaultEntryIdHas( vlanId )" },
       { "a destination VLAN lost", [&]( auto& t, auto&, auto& d ) {
            Row row = t.entry( d );
            row.defaultEntryIdDel( 20 );
            t.entryIs( row );
         }, "entry.defaultEntryIds() == shadowData.vlanIds()" },
       { "a destination VLAN renamed", [&]( auto& t, auto&, auto& d ) {
            Row row = t.entry( d );
            row.defaultEntryIdDel( 20 );
            row.defaultEntryIdIs( 30, t.entry( d ).defaultEntryId( 20 ) );
            t.entryIs( row );
         }, "entry.defaultEntryIdHas( vlanId )" },
       { "a destination entry of id 0", [&]( auto& t, auto&, auto& d ) {
            Row row = t.entry( d );
            row.defaultEntryIdIs( 20, 0 );
            t.entryIs( row );
         }, "entryId != 0" },
       { "entries swapped between VLANs", [&]( auto& t, auto&, auto& d ) {
            Row row = t.entry( d );
            row.defaultEntryIdIs( 10, t.entry( d ).defaultEntryId( 20 ) );
            row.defaultEntryIdIs( 20, t.entry( d ).defaultEntryId( 10 ) );
            t.entryIs( row );
         }, "intf == vlanId" },
   };
   // clang-format on
   start();
   rule( 1, snat );
   rule( 2, dnat, Data().vlans( { 10, 20 } ) );
   for ( TableFault const& f : faults ) {
      SCOPED_TRACE( f.what );
      EXPECT_DEATH(
          {
             f.change( table(), snat, dnat );
             verify();
          },
          failed( f.failure ) );
   }
   EXPECT_TRUE( verify() );
}

TEST_F( NatVerify, StopsOnAFragmentEntryLostOrWrong ) {
   nat.fragmentEnabled = true;
   start();
   rule( 1, dnapt, Data().vlans( { 10, 20 } ).protocol( 6 ) );
   rule( 2, dnat, Data().vlans( { 10 } ) );
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

TEST_F( NatVerify, StopsOnWhatTheChipNoLongerHolds ) {
   start();
   Oro::NatHwKey const odd =
       natKey( Key::NatKeyType( 7 ), at( "10.0.0.1" ), at( "203.0.113.1" ) );
   Oro::NatHwKey const dynamic =
       natKey( Key::dynamicSrcNat, at( "10.0.0.5" ), at( "203.0.113.5" ), {}, {}, 6 );
   rule( 1, odd );  // nothing is programmed for it: no row, and verify passes
   rule( 2, dynamic );
   rule( 3, snat );
   EXPECT_EQ( answers.front().result, Result::done );
   EXPECT_TRUE( verify() );
   // 0.0.0.0 under a full mask is a match on that address, not "any".
   EXPECT_DEATH(
       {
          sdk().bcm_field_qualify_DstIp( 1, entryId( dynamic ), 0, 0xffffffff );
          verify();
       },
       failed( "mask == ipAddr.mask()" ) );
   EXPECT_DEATH(
       {
          platform->chip().unit( 1 )->fieldProcessor().entryDel( entryId( snat ) );
          verify();
       },
       failed( "ipAddr.address().value() == 0" ) );
   table().entryIs( Corvane::EntryIdTableEntry( odd ) );
   EXPECT_DEATH( verify(), failed( "unsupported translation type" ) );
}

}  // namespace
