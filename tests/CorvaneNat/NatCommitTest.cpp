// Transactions end to end: requests that touch no hardware, the journal of an install
// and of a reinstall, a full TCAM, the qualifiers a reprogramming takes off, VLANs that
// leave a key. (Answers per module and removals: the randomized test.)

#include "NatTestFixture.h"

namespace {

using namespace NatTest;

using NatCommit = NatFixture;

Oro::NatHwKey const snat = natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) );
Oro::NatHwKey const dnat =
    natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) );
Oro::NatHwKey const dnapt =
    natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1", 80 ), at( "10.0.0.1", 8080 ) );

// Requests that touch no hardware: a uid without module set is not answered; unknown
// dirty states and key types are answered done; during a hitless restart module sets
// are ignored and clean entries are programmed.
TEST_F( NatCommit, RequestsWithoutHardwareAndTheHitlessRestart ) {
   start();
   std::size_t const from = mark();
   upstream->natRule( { 4, 0, snat, {}, { 1 } } );
   platform->agent()
       .sharedMem->getEntity<CorvaneNat::ModSetDir>( "corvanenat/ingModSetDir" )
       ->modSetDel( CorvaneNat::Uid( 4 ) );
   loop().runUntilIdle();
   EXPECT_TRUE( answers.empty() );
   natsim::NatRuleStep s{ 5, 0, snat, {}, { 1 }, 3 };  // dirty 3
   ruleStep( s );
   rule( 6, natKey( Key::natKeyTypeNone, at( "10.0.0.1" ), at( "1.1.1.1" ) ) );
   rule( 7, natKey( Key::NatKeyType( 7 ), at( "10.0.0.1" ), at( "1.1.1.1" ) ) );
   EXPECT_EQ( answerTexts(),
              ( Lines{ "mod 1 uid 5 result 1 field 0", "mod 1 uid 6 result 1 field 0",
                       "mod 1 uid 7 result 1 field 0" } ) );
   EXPECT_EQ( mark(), from );

   TearDown();
   chip.hitlessRestart = true;
   start();
   s.modules = { 2 };
   s.dirty = 0;
   ruleStep( s );
   EXPECT_EQ( answerTexts(), ( Lines{ "mod 1 uid 5 result 1 field 0" } ) );
   EXPECT_EQ( chipEntries(), 1u );
}

// A destination key on three VLANs with room for one more entry: VLAN 10 is installed,
// VLAN 30 gets no entry, VLAN 20 (after the failure) is still reinstalled; the answer is
// 2 and the log event names the key.
TEST_F( NatCommit, InstallAndReinstallJournalsAndAFullTcam ) {
   chip.tcamEntries = 2;
   start();
   rule( 5, dnat, Data().vlans( { 20 } ).nextHop( 5 ) );
   answers.clear();
   LogCapture log;
   std::size_t from = mark();
   rule( 5, dnat, Data().vlans( { 10, 30, 20 } ).nextHop( 5 ) );
   EXPECT_EQ( answerTexts(), ( Lines{ "mod 1 uid 5 result 2 field 0" } ) );
   ASSERT_EQ( log.records.size(), 1u );
   EXPECT_EQ( log.records[0].name, "CORVANE_NAT_TCAM_RESOURCE_FULL" );
   EXPECT_EQ( log.records[0].severity, 3 );
   EXPECT_EQ( log.records[0].message,
              "Hardware resources are insufficient to add NAT rule with key <type: "
              "staticDstNat, old dip: 1.1.1.1:0, new dip: 10.0.0.1:0, proto: 0, faId: 0, "
              "aclId: 0, reverse: false>" );
   auto programmed = []( std::string const& id, std::string const& vlan,
                         bool reinstall ) {
      Lines lines = {
          "bcm_field_qualify_MyStationHit [1, 1]",
          "bcm_field_qualify_SrcClassField [0, 8]",
          "bcm_field_qualify_L3Ingress [" + vlan + ", 4294967295]",
          "bcm_field_qualify_DstIp [16843009, 4294967295]",
          "bcm_field_action_remove_all []",
          "bcm_field_action_add [\"bcmFieldActionAssignExtractionCtrlId\", 16, 31]",
          "bcm_field_action_add [\"bcmFieldActionAssignOpaqueObject1\", 5, 0]",
          "bcm_field_action_add [\"bcmFieldActionCopyToCpuCancel\", 0, 0]",
          "bcm_field_action_add [\"bcmFieldActionDropCancel\", 0, 0]",
          "bcm_field_action_add [\"bcmFieldActionL3Switch\", 100005, 0]",
          "setPriorityForEntry [2147483647]",
          reinstall ? "reinstallEntry []" : "installEntry []" };
      if ( !reinstall ) {
         lines.erase( lines.begin() + 4 );  // the old actions go after the qualifiers
      }
      for ( auto& line : lines ) {
         line = id + " " + line;
      }
      return lines;
   };
   Lines expected = { "2 getEntry [\"static DNAT vlan 10 1.1.1.1 -> 10.0.0.1 \"]" };
   for ( Lines const& more :
         { programmed( "2", "10", false ),
           Lines{ "0 getEntry [\"static DNAT vlan 30 1.1.1.1 -> 10.0.0.1 \"]" },
           programmed( "1", "20", true ) } ) {
      expected.insert( expected.end(), more.begin(), more.end() );
   }
   EXPECT_EQ( idCalls( from ), expected );

   // No room at all: only the failed getEntry, answer 2.
   TearDown();
   chip.tcamEntries = 0;
   start();
   from = mark();
   rule( 5, snat );
   EXPECT_EQ( answerTexts(), ( Lines{ "mod 1 uid 5 result 2 field 0" } ) );
   EXPECT_EQ( idCalls( from ),
              Lines{ "0 getEntry [\"static SNAT  10.0.0.1 -> 1.1.1.1 \"]" } );
}

// A data change that drops a protocol, a filter, ACL sharing or the ingress match of
// multicast takes that qualifier off the entry before it is reinstalled; a change that
// drops nothing deletes nothing.
TEST_F( NatCommit, AReprogrammedEntryHoldsExactlyWhatItsNewDataAsks ) {
   Oro::NatHwKey const source =
       natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ), {}, {}, 0, 7 );
   Data const tcpFiltered = Data().protocol( 6 ).filter( "198.51.100.0", 24 );
   Data const vlan10 = Data().vlans( { 10 } );
   struct Change {
      bool source;
      Oro::NatHwData data;
      Lines deleted;  // in call order
   };
   Change const changes[] = {
       { true, tcpFiltered, {} },
       { true, Data(), { "[\"DstIp\"]", "[\"IpProtocol\"]" } },
       { true, Data().aclSharing(), {} },
       { true, Data(), { "[\"OpaqueObject1\"]" } },
       { false, vlan10, {} },
       { false, Data( vlan10 ).multicast( 3 ), { "[\"L3Ingress\"]" } },
       { false, Data( vlan10 ).multicast( 3, true ), {} },
       { false, vlan10, { "[\"SrcIp\"]" } },  // the multicast source range of 1/8
   };
   start();
   for ( Change const& c : changes ) {
      std::size_t const from = mark();
      Oro::NatHwKey const& key = c.source ? source : dnat;
      rule( c.source ? 1 : 2, key, c.data, { 1 }, 9 );
      Lines deleted;
      for ( auto const& r : Chip::journal().recordsFrom( from ) ) {
         if ( r.call == "bcm_field_qualifier_delete" ) {
            deleted.push_back( Chip::json( r.args ) );
         }
      }
      EXPECT_EQ( deleted, c.deleted ) << &c - changes;
      U32 const id =
          worker()->entryIdTable()->entry( key ).defaultEntryId( c.source ? 0 : 10 );
      EXPECT_EQ( chipEntry( id )->qualifierHas( Chip::Qualifier::L3Ingress ),
                 !c.source && !( Oro::NatHwData( c.data ).multicast() &&
                                 !Oro::NatHwData( c.data ).ingress() ) );
   }
}

TEST_F( NatCommit, DroppedVlansAreFreedAndKeptVlansKeepTheirEntries ) {
   nat.fragmentEnabled = true;
   start();
   rule( 5, dnapt, Data().vlans( { 10, 20, 30, 30 } ) );
   ASSERT_EQ( chipEntries(), 6u );  // VLAN 10: 1, 2; VLAN 20: 3, 4; VLAN 30: 5, 6
   std::size_t const from = mark();
   rule( 5, dnapt, Data().vlans( { 20, 40 } ) );
   Lines released, reinstalled;
   for ( auto const& line : idCalls( from ) ) {
      if ( line.find( "releaseEntry" ) != std::string::npos ) {
         released.push_back( line );
      }
      if ( line.find( "reinstallEntry" ) != std::string::npos ) {
         reinstalled.push_back( line );
      }
   }
   // VLAN 20 is reprogrammed in place, VLAN 40 gets new entries, then VLANs 10 and 30
   // give back their default and fragment entries, last of all.
   EXPECT_EQ( reinstalled, ( Lines{ "3 reinstallEntry []", "4 reinstallEntry []" } ) );
   EXPECT_EQ( released, ( Lines{ "1 releaseEntry []", "2 releaseEntry []",
                                 "5 releaseEntry []", "6 releaseEntry []" } ) );
   EXPECT_EQ( idCalls( from ).back(), "6 releaseEntry []" );
   EXPECT_EQ( fieldProcessor().entryIds(), ( std::vector<U32>{ 3, 4, 7, 8 } ) );
   EXPECT_EQ( chipEntry( 7 )->qualifier( Chip::Qualifier::L3Ingress ).data, 40u );

   // doProgram of one VLAN, as tools call it, stores its entry in the key's row.
   EXPECT_TRUE( worker()->doProgram( dnapt, dnapt, Data().vlans( { 20, 40, 50 } ), 50 ) );
   EXPECT_TRUE( worker()->entryIdTable()->entry( dnapt ).defaultEntryIdHas( 50 ) );
   EXPECT_EQ( chipEntries(), 6u );
   // Data that lists no VLAN gives every entry back.
   rule( 5, dnapt, Data() );
   EXPECT_EQ( chipEntries(), 0u );
}

}  // namespace
