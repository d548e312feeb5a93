// Hardware verification: the six qualifier read-backs of one entry, and doVerify of a
// whole worker, reached as tools reach it, through the worker's "doVerify" operation.
// Broken expectations are made behind the plug-in's back (through the SDK shim, or in
// the entry-id table) and must stop the process. (The randomized test runs doVerify
// after every step of its sequences.)

#include "NatTestFixture.h"
#include "platform/chip/Sdk.h"
#include "platform/fwk/Operation.h"

namespace {

using namespace NatTest;
using Wirel::IpAddrWithFullMask;

char const stops[] = "Assertion `.*' failed";

class NatVerify : public NatFixture {
protected:
   Corvane::EntryIdTable& table() { return *worker()->entryIdTable(); }
   U32 entryId( Oro::NatHwKey const& key, U16 vlan = 0 ) {
      return table().entry( key ).defaultEntryId( vlan );
   }
   // Runs doVerify as a tool does; false when the worker offers no such operation.
   bool verify( char const* path = "corvanenat/natWorkerSm/1" ) {
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

   Oro::NatHwKey const snat =
       natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "203.0.113.1" ) );
   Oro::NatHwKey const snapt =
       natKey( Key::staticSrcNat, at( "10.0.0.2", 1024 ), at( "203.0.113.2", 2048 ) );
   Oro::NatHwKey const dnat =
       natKey( Key::staticDstNat, {}, {}, at( "203.0.113.80" ), at( "10.0.0.80" ) );
   Oro::NatHwKey const dnapt = natKey(
       Key::staticDstNat, {}, {}, at( "203.0.113.81", 80 ), at( "10.0.0.81", 8080 ) );
};

// The qualifier a row reads back (`all`: doVerify of the worker) or changes first.
enum class F { none, srcIp, dstIp, srcPort, dstPort, protocol, l3Ingress, all };
enum class E { snat, snapt, dnat10, dnat4095, dnapt10 };

struct ReadBack {
   F check;
   E entry;
   U32 value;  // the value expected (an address under `mask`)
   U32 mask;
   F change;  // written to the entry first, with `data` and `dataMask`
   U32 data;
   U32 dataMask;
   bool stops;
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
   U32 id( E e ) {
      switch ( e ) {
         case E::snat:
            return entryId( snat );
         case E::snapt:
            return entryId( snapt );
         case E::dnat10:
            return entryId( dnat, 10 );
         case E::dnat4095:
            return entryId( dnat, 4095 );
         default:
            return entryId( dnapt, 10 );
      }
   }
   void run( ReadBack const& r ) {
      U32 const entry = id( r.entry );
      ASSERT_NE( entry, 0u );
      U32 const d = r.data, m = r.dataMask;
      switch ( r.change ) {
         case F::srcIp:
            sdk().bcm_field_qualify_SrcIp( 1, entry, d, m );
            break;
         case F::dstIp:
            sdk().bcm_field_qualify_DstIp( 1, entry, d, m );
            break;
         case F::srcPort:
            sdk().bcm_field_qualify_L4SrcPort( 1, entry, U16( d ), U16( m ) );
            break;
         case F::dstPort:
            sdk().bcm_field_qualify_L4DstPort( 1, entry, U16( d ), U16( m ) );
            break;
         case F::protocol:
            sdk().bcm_field_qualify_IpProtocol( 1, entry, U8( d ), U8( m ) );
            break;
         case F::l3Ingress:
            sdk().bcm_field_qualify_L3Ingress( 1, entry, d, m );
            break;
         default:
            break;
      }
      IpAddrWithFullMask const ip( ( Wirel::IpAddr( r.value ) ), r.mask );
      switch ( r.check ) {
         case F::srcIp:
            return worker()->doVerifySrcIp( entry, ip );
         case F::dstIp:
            return worker()->doVerifyDstIp( entry, ip );
         case F::srcPort:
            return worker()->doVerifySrcL4Port( entry, U16( r.value ) );
         case F::dstPort:
            return worker()->doVerifyDstL4Port( entry, U16( r.value ) );
         case F::protocol:
            return worker()->doVerifyIpProtocol( entry, U8( r.value ) );
         case F::l3Ingress:
            return worker()->doVerifyL3Ingress( entry, U16( r.value ) );
         default:
            verify();
      }
   }
};

TEST_F( NatVerifyReadBack, EachQualifierPassesOrStops ) {
   U32 const full = 0xffffffffu, ip1 = ip( "10.0.0.1" ), ip80 = ip( "203.0.113.80" );
   // clang-format off
   ReadBack const rows[] = {
       // L4 ports: a port absent from the entry reads 0; one present must be written
       // under the full mask, unless 0 is expected, which looks at the value only.
       { F::srcPort, E::snat, 0, 0, F::none, 0, 0, false },
       { F::srcPort, E::snat, 80, 0, F::none, 0, 0, true },
       { F::srcPort, E::snapt, 1024, 0, F::none, 0, 0, false },
       { F::srcPort, E::snapt, 80, 0, F::none, 0, 0, true },
       { F::srcPort, E::snapt, 0, 0, F::none, 0, 0, true },
       { F::srcPort, E::snapt, 1024, 0, F::srcPort, 1024, 0x00ff, true },
       { F::srcPort, E::snat, 0, 0, F::srcPort, 0, 0, false },
       { F::dstPort, E::snapt, 443, 0, F::dstPort, 443, 0xffff, false },
       { F::dstPort, E::snapt, 0, 0, F::dstPort, 443, 0xffff, true },
       { F::dstPort, E::snapt, 443, 0, F::dstPort, 443, 0xff00, true },
       { F::dstPort, E::snat, 443, 0, F::none, 0, 0, true },
       // Addresses always compare their mask, also when 0.0.0.0 is expected.
       { F::srcIp, E::snat, ip1, full, F::none, 0, 0, false },
       { F::srcIp, E::snat, ip1 + 8, full, F::none, 0, 0, true },
       { F::srcIp, E::snat, ip1, full, F::srcIp, ip1, 0xffffff00, true },
       { F::srcIp, E::snat, ip1, 0xffffff00, F::srcIp, ip1, 0xffffff00, false },
       { F::srcIp, E::dnat10, 0, 0, F::none, 0, 0, false },
       { F::srcIp, E::dnat10, ip1, full, F::none, 0, 0, true },
       { F::dstIp, E::dnat10, ip80, full, F::none, 0, 0, false },
       { F::dstIp, E::dnat10, ip80 + 1, full, F::none, 0, 0, true },
       { F::dstIp, E::snat, ip80, full, F::none, 0, 0, true },
       { F::dstIp, E::snat, 0, full, F::dstIp, 0, full, false },
       { F::dstIp, E::snat, 0, 0, F::dstIp, 0, full, true },
       // The protocol's mask is compared only when a protocol is expected.
       { F::protocol, E::snapt, 6, 0, F::none, 0, 0, false },
       { F::protocol, E::snapt, 17, 0, F::none, 0, 0, true },
       { F::protocol, E::snat, 0, 0, F::none, 0, 0, false },
       { F::protocol, E::snat, 6, 0, F::none, 0, 0, true },
       { F::protocol, E::snapt, 6, 0, F::protocol, 6, 0x0f, true },
       { F::protocol, E::snapt, 0, 0, F::protocol, 0, 0x0f, false },
       // L3 ingress is the VLAN under 13 bits; source NAT matches none.
       { F::l3Ingress, E::dnat10, 10, 0, F::none, 0, 0, false },
       { F::l3Ingress, E::dnat4095, 4095, 0, F::none, 0, 0, false },
       { F::l3Ingress, E::dnat10, 20, 0, F::none, 0, 0, true },
       { F::l3Ingress, E::dnat10, 0, 0, F::none, 0, 0, true },
       { F::l3Ingress, E::snat, 0, 0, F::none, 0, 0, false },
       { F::l3Ingress, E::snat, 10, 0, F::none, 0, 0, true },
       { F::l3Ingress, E::dnat10, 10, 0, F::l3Ingress, 10, 0xfff, true },
       // doVerify reads every qualifier of every entry back.
       { F::all, E::snapt, 0, 0, F::srcIp, ip1 + 2, full, true },
       { F::all, E::snapt, 0, 0, F::srcIp, ip1 + 1, 0xffffff00, true },
       { F::all, E::snapt, 0, 0, F::dstIp, ip1, full, true },
       { F::all, E::snapt, 0, 0, F::srcPort, 1025, 0xffff, true },
       { F::all, E::snapt, 0, 0, F::protocol, 17, 0xff, true },
       { F::all, E::snapt, 0, 0, F::l3Ingress, 10, 0x1fff, true },
       { F::all, E::dnapt10, 0, 0, F::dstPort, 80, 0x00ff, true },
       { F::all, E::dnapt10, 0, 0, F::srcPort, 80, 0xffff, true },
       { F::all, E::dnapt10, 0, 0, F::l3Ingress, 10, 0xff, true },
       { F::all, E::snat, 0, 0, F::none, 0, 0, false },
   };
   // clang-format on
   for ( std::size_t i = 0; i < std::size( rows ); ++i ) {
      SCOPED_TRACE( "row " + std::to_string( i ) );
      if ( rows[i].stops ) {
         EXPECT_DEATH( run( rows[i] ), stops );
      } else {
         EXPECT_EXIT(
             {
                run( rows[i] );
                std::_Exit( ::testing::Test::HasFailure() ? 1 : 0 );
             },
             ::testing::ExitedWithCode( 0 ), "" );
      }
   }
}

TEST_F( NatVerify, IsOfferedPerInitializedWorkerAndWithdrawnWithIt ) {
   chip.modules = { { 1, 1 }, { 2, 2 } };
   chip.flashDownloadDone = false;
   start();
   rule( 1, snat, {}, { 1 } );
   EXPECT_TRUE( verify() ) << "a worker not yet initialized has nothing to verify";
   platform->commonData().flashDownloadWaitIs( Corvane::tcamFlashDownloadReqL3Status,
                                               true );
   loop().runUntilIdle();
   rule( 2, dnat, Data().vlans( { 10 } ), { 2 } );
   rule( 3, snapt, {}, { 1, 2 } );
   EXPECT_TRUE( verify( "corvanenat/natWorkerSm/2" ) );
   platform->moduleDel( 2 );
   loop().runUntilIdle();
   EXPECT_FALSE( verify( "corvanenat/natWorkerSm/2" ) );
   EXPECT_TRUE( verify( "corvanenat/natWorkerSm/1" ) );
}

// A key short of TCAM room is held only to the entries it has; committed again with
// room, to everything.
TEST_F( NatVerify, KeysShortOfTcamAreHeldToTheEntriesTheyHave ) {
   chip.tcamEntries = 3;
   start();
   rule( 1, snat );
   rule( 2, dnat, Data().vlans( { 10, 20, 30 } ) );  // room for 10 and 20 only
   rule( 3, snapt );                                 // no room at all: an empty row
   std::size_t const from = mark();
   EXPECT_TRUE( verify() );
   EXPECT_EQ( readBacks( from ), 6u * 3 );
   sdk().bcm_field_qualify_DstIp( 1, entryId( dnat, 20 ), 1, 0xffffffff );
   EXPECT_DEATH( verify(), stops );
   sdk().bcm_field_qualify_DstIp( 1, entryId( dnat, 20 ), ip( "203.0.113.80" ),
                                  0xffffffff );
   removeRule( 1, snat );
   rule( 2, dnat, Data().vlans( { 10, 20, 30 } ) );
   EXPECT_EQ( answers.back().result, Result::done );
   Corvane::EntryIdTableEntry row = table().entry( dnat );
   row.defaultEntryIdDel( 30 );
   table().entryIs( row );
   EXPECT_DEATH( verify(), stops );
}

// doVerify stops at an entry-id table that does not match the shadow, the VLANs, the
// fragment entries or the chip.
TEST_F( NatVerify, StopsOnATableThatDoesNotMatch ) {
   using Row = Corvane::EntryIdTableEntry;
   using T = Corvane::EntryIdTable;
   Oro::NatHwKey const stray =
       natKey( Key::staticSrcNat, at( "10.9.9.9" ), at( "203.0.113.9" ) );
   Oro::NatHwKey const odd =
       natKey( Key::NatKeyType( 7 ), at( "10.0.0.1" ), at( "1.1.1.1" ) );
   Oro::NatHwKey const dyn =
       natKey( Key::dynamicSrcNat, at( "10.0.0.5" ), at( "1.1.1.5" ), {}, {}, 6 );
   Oro::NatHwKey const egress =
       natKey( Key::staticDstNat, {}, {}, at( "10.9.9.9" ), at( "239.3.3.3" ) );
   struct Fault {
      char const* what;
      std::function<void( T&, Row s, Row d )> change;
   };
   // clang-format off
   Fault const faults[] = {
       { "a row more", [&]( T& t, Row, Row ) { t.entryIs( Row( stray ) ); } },
       { "a row lost", [&]( T& t, Row s, Row ) { t.entryDel( s.key() ); } },
       { "a row swapped", [&]( T& t, Row s, Row ) { t.entryDel( s.key() ); t.entryIs( Row( stray ) ); } },
       { "a source row on a VLAN", [&]( T& t, Row s, Row ) { s.defaultEntryIdIs( 10, s.defaultEntryId( 0 ) ); t.entryIs( s ); } },
       { "a source row without entry", [&]( T& t, Row s, Row ) { s.defaultEntryIdDelAll(); t.entryIs( s ); } },
       { "a source row moved to a VLAN", [&]( T& t, Row s, Row ) {
            U32 const id = s.defaultEntryId( 0 );
            s.defaultEntryIdDelAll();
            s.defaultEntryIdIs( 10, id );
            t.entryIs( s ); } },
       { "a VLAN lost", [&]( T& t, Row, Row d ) { d.defaultEntryIdDel( 20 ); t.entryIs( d ); } },
       { "a VLAN renamed", [&]( T& t, Row, Row d ) {
            U32 const id = d.defaultEntryId( 20 );
            d.defaultEntryIdDel( 20 );
            d.defaultEntryIdIs( 30, id );
            t.entryIs( d ); } },
       { "an entry of id 0", [&]( T& t, Row, Row d ) { d.defaultEntryIdIs( 20, 0 ); t.entryIs( d ); } },
       { "entries swapped", [&]( T& t, Row, Row d ) {
            U32 const id10 = d.defaultEntryId( 10 );
            d.defaultEntryIdIs( 10, d.defaultEntryId( 20 ) );
            d.defaultEntryIdIs( 20, id10 );
            t.entryIs( d ); } },
       { "a fragment entry lost", [&]( T& t, Row, Row d ) { d.fragEntryIdDel( 20 ); t.entryIs( d ); } },
       // A fragment entry is checked as one: no L4 port.
       { "a default entry as fragment entry", [&]( T& t, Row, Row d ) { d.fragEntryIdIs( 20, d.defaultEntryId( 20 ) ); t.entryIs( d ); } },
       { "an entry gone from the chip", [&]( T&, Row s, Row ) {
            platform->chip().unit( 1 )->fieldProcessor().entryDel( s.defaultEntryId( 0 ) ); } },
       { "a row of an unknown type", [&]( T& t, Row, Row ) { t.entryIs( Row( odd ) ); } },
       // Multicast off ingress is matched on no VLAN.
       { "a multicast egress entry on a VLAN", [&]( T& t, Row, Row ) {
            sdk().bcm_field_qualify_L3Ingress( 1, t.entry( egress ).defaultEntryId( 20 ), 20, 0x1fff ); } },
       { "0.0.0.0 as a match on that address", [&]( T& t, Row, Row ) {
            sdk().bcm_field_qualify_DstIp( 1, t.entry( dyn ).defaultEntryId( 0 ), 0, 0xffffffff ); } },
   };
   // clang-format on
   nat.fragmentEnabled = true;
   start();
   rule( 1, snat );
   rule( 2, dnapt, Data().vlans( { 10, 20 } ).protocol( 6 ) );
   rule( 3, odd );  // nothing is programmed for it: no row
   rule( 4, dyn );
   rule( 5, egress, Data().vlans( { 20 } ).nextHop( ~0ull ).multicast( 0 ), { 1 }, 102 );
   EXPECT_TRUE( verify() );
   for ( Fault const& f : faults ) {
      SCOPED_TRACE( f.what );
      EXPECT_DEATH(
          {
             f.change( table(), table().entry( snat ), table().entry( dnapt ) );
             verify();
          },
          stops );
   }
   EXPECT_TRUE( verify() );
}

}  // namespace
