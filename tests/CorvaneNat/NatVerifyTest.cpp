// Hardware verification, reached as tools reach it, through the worker's "doVerify"
// operation. Broken expectations are made behind the plug-in's back (through the SDK
// shim, or in the entry-id table) and must stop the process. (The randomized test runs
// doVerify after every step of its sequences, where it must pass.)

#include "NatTestFixture.h"
#include "platform/chip/Sdk.h"
#include "platform/fwk/Operation.h"

namespace {

using namespace NatTest;

char const stops[] = "Assertion `.*' failed";

class NatVerify : public NatFixture {
protected:
   Corvane::EntryIdTable& table() { return *worker()->entryIdTable(); }
   U32 entryId( Oro::NatHwKey const& key, U16 vlan = 0 ) {
      return table().entry( key ).defaultEntryId( vlan );
   }
   // Runs doVerify as a tool does.
   bool verify() {
      std::string error;
      return Fwk::operationInvoke( "corvanenat/natWorkerSm/1", "doVerify", &error );
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

// A key short of TCAM room is held only to the entries it has; committed again with
// room, to everything.
TEST_F( NatVerify, KeysShortOfTcamAreHeldToTheEntriesTheyHave ) {
   chip.tcamEntries = 3;
   start();
   rule( 1, snat );
   rule( 2, dnat, Data().vlans( { 10, 20, 30 } ) );  // room for 10 and 20 only
   rule( 3, snapt );                                 // no room at all: an empty row
   EXPECT_TRUE( verify() );
   EXPECT_DEATH(
       {
          sdk().bcm_field_qualify_DstIp( 1, entryId( dnat, 20 ), 1, 0xffffffff );
          verify();
       },
       stops );
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
       { "the row of a key on one VLAN lost", [&]( T& t, Row, Row ) { t.entryDel( egress ); } },
       { "a row swapped", [&]( T& t, Row s, Row ) { t.entryDel( s.key() ); t.entryIs( Row( stray ) ); } },
       { "a source row on a VLAN", [&]( T& t, Row s, Row ) { s.defaultEntryIdIs( 10, s.defaultEntryId( 0 ) ); t.entryIs( s ); } },
       { "a VLAN lost", [&]( T& t, Row, Row d ) { d.defaultEntryIdDel( 20 ); t.entryIs( d ); } },
       { "a VLAN renamed", [&]( T& t, Row, Row d ) { d.defaultEntryIdIs( 30, d.defaultEntryIdDel( 20 ) ); t.entryIs( d ); } },
       { "an entry of id 0", [&]( T& t, Row, Row d ) { d.defaultEntryIdIs( 20, 0 ); t.entryIs( d ); } },
       { "entries swapped", [&]( T& t, Row, Row d ) { Row e = d; e.defaultEntryIdIs( 10, d.defaultEntryId( 20 ) ); e.defaultEntryIdIs( 20, d.defaultEntryId( 10 ) ); t.entryIs( e ); } },
       { "a fragment entry lost", [&]( T& t, Row, Row d ) { d.fragEntryIdDel( 20 ); t.entryIs( d ); } },
       // A fragment entry is checked as one: no L4 port.
       { "a default entry as fragment entry", [&]( T& t, Row, Row d ) { d.fragEntryIdIs( 20, d.defaultEntryId( 20 ) ); t.entryIs( d ); } },
       { "an entry gone from the chip", [&]( T&, Row s, Row ) {
            platform->chip().unit( 1 )->fieldProcessor().entryDel( s.defaultEntryId( 0 ) ); } },
       { "a row of an unknown type", [&]( T& t, Row, Row ) { t.entryIs( Row( odd ) ); } },
       // Multicast off ingress is matched on no VLAN.
       { "a multicast egress entry on a VLAN", [&]( T& t, Row, Row ) {
            sdk().bcm_field_qualify_L3Ingress( 1, t.entry( egress ).defaultEntryId( 20 ), 20, 0x1fff ); } },
       { "a source port under a partial mask", [&]( T& t, Row, Row ) {
            sdk().bcm_field_qualify_L4SrcPort( 1, t.entry( snapt ).defaultEntryId( 0 ), 1024, 0xff ); } },
       { "a protocol under a partial mask", [&]( T& t, Row, Row ) {
            sdk().bcm_field_qualify_IpProtocol( 1, t.entry( snapt ).defaultEntryId( 0 ), 6, 0xf ); } },
       { "a protocol where none is expected", [&]( T&, Row s, Row ) {
            sdk().bcm_field_qualify_IpProtocol( 1, s.defaultEntryId( 0 ), 6, 0xff ); } },
       { "a destination port where none is expected", [&]( T&, Row s, Row ) {
            sdk().bcm_field_qualify_L4DstPort( 1, s.defaultEntryId( 0 ), 80, 0xffff ); } },
       { "a destination port under a partial mask", [&]( T&, Row, Row d ) {
            sdk().bcm_field_qualify_L4DstPort( 1, d.defaultEntryId( 10 ), 80, 0xff00 ); } },
       { "a VLAN under a partial mask", [&]( T&, Row, Row d ) {
            sdk().bcm_field_qualify_L3Ingress( 1, d.defaultEntryId( 10 ), 10, 0xfff ); } },
       { "a source address under another mask", [&]( T&, Row s, Row ) {
            sdk().bcm_field_qualify_SrcIp( 1, s.defaultEntryId( 0 ), ip( "10.0.0.1" ), 0xffffff00 ); } },
       { "a source address where none is expected", [&]( T&, Row, Row d ) {
            sdk().bcm_field_qualify_SrcIp( 1, d.defaultEntryId( 10 ), ip( "10.0.0.1" ), 0xffffffff ); } },
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
   rule( 6, snapt, Data().protocol( 6 ) );
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
