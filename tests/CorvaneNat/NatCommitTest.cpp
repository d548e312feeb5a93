// Transactions end to end: which requests a worker serves and what it answers, the
// journal of an install and of a reinstall, a full TCAM, VLANs that leave a key and keys
// that leave the shadow.

#include <algorithm>

#include "NatTestFixture.h"
#include "platform/nat/TcamHitCountStatus.h"

namespace {

using namespace NatTest;

class NatCommit : public NatFixture {
protected:
   natsim::NatRuleStep step( U32 uid, Oro::NatHwKey const& key ) {
      natsim::NatRuleStep s;
      s.uid = uid;
      s.key = key;
      s.modules = { 1 };
      return s;
   }
   template <class T>
   Fwk::Ptr<T> shared( char const* path ) {
      return platform->agent().sharedMem->getEntity<T>( path );
   }
};

Oro::NatHwKey const snat = natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) );
Oro::NatHwKey const dnat =
    natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) );
Oro::NatHwKey const dnapt =
    natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1", 80 ), at( "10.0.0.1", 8080 ) );

TEST_F( NatCommit, EachModuleOfTheSetAnswersWithTheRequestsFieldOnItsOwnUnit ) {
   chip.modules = { { 1, 1 }, { 2, 2 }, { 3, 3 } };
   start();
   natsim::NatRuleStep s = step( 5, snat );
   s.modules = { 3 };
   s.field = 0xabcd;
   std::size_t const from = mark();
   ruleStep( s );
   EXPECT_EQ( answerTexts(), ( Lines{ "mod 3 uid 5 result 1 field 43981" } ) );
   EXPECT_EQ( chipEntries( 1 ), 0u );
   EXPECT_EQ( chipEntries( 3 ), 1u );
   for ( auto const& r : Chip::journal().recordsFrom( from ) ) {
      EXPECT_EQ( r.unit, 3 ) << r.call;
   }
   answers.clear();
   rule( 6, dnat, Data().vlans( { 10 } ), { 1, 2 } );
   Lines texts = answerTexts();
   std::sort( texts.begin(), texts.end() );
   EXPECT_EQ( texts, ( Lines{ "mod 1 uid 6 result 1 field 0",
                              "mod 2 uid 6 result 1 field 0" } ) );
   EXPECT_EQ( chipEntries( 1 ) + chipEntries( 2 ) + chipEntries( 3 ), 3u );
}

// Requests that touch no hardware: a uid without module set is not answered; unknown
// dirty states and key types are answered done; during a hitless restart module sets
// are ignored and clean entries are programmed.
TEST_F( NatCommit, RequestsWithoutHardwareAndTheHitlessRestart ) {
   start();
   std::size_t const from = mark();
   upstream->natRule( step( 4, snat ) );
   shared<CorvaneNat::ModSetDir>( "corvanenat/ingModSetDir" )
       ->modSetDel( CorvaneNat::Uid( 4 ) );
   loop().runUntilIdle();
   EXPECT_TRUE( answers.empty() );
   natsim::NatRuleStep s = step( 5, snat );
   s.dirty = 3;
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
   auto programmed = []( U32 id, U16 vlan, bool reinstall ) {
      Lines lines = { qualify( "MyStationHit", 1, 1 ), qualify( "SrcClassField", 0, 8 ),
                      qualify( "L3Ingress", vlan, 0xffffffff ),
                      qualify( "DstIp", ip( "1.1.1.1" ), 0xffffffff ) };
      if ( reinstall ) {
         lines.push_back( call( "bcm_field_action_remove_all" ) );
      }
      lines = lines +
              Lines{ action( "AssignExtractionCtrlId", 16, 0x1f ),
                     action( "AssignOpaqueObject1", 5 ),
                     action( "CopyToCpuCancel" ),
                     action( "DropCancel" ),
                     action( "L3Switch", 100005 ),
                     callLine( "setPriorityForEntry", { Chip::numberArg( 0x7fffffff ) } ),
                     call( reinstall ? "reinstallEntry" : "installEntry" ) };
      for ( auto& line : lines ) {
         line = std::to_string( id ) + " " + line;
      }
      return lines;
   };
   EXPECT_EQ( idCalls( from ),
              Lines{ "2 " + getEntry( "static DNAT vlan 10 1.1.1.1 -> 10.0.0.1 " ) } +
                  programmed( 2, 10, false ) +
                  Lines{ "0 " + getEntry( "static DNAT vlan 30 1.1.1.1 -> 10.0.0.1 " ) } +
                  programmed( 1, 20, true ) );
   EXPECT_TRUE( chipEntry( 2 )->installed() );

   // A source key is reprogrammed with its old actions removed first.
   TearDown();
   chip.tcamEntries = 10;
   start();
   rule( 5, snat );
   from = mark();
   rule( 5, snat, Data().protocol( 6 ) );
   Lines expected = {
       call( "bcm_field_action_remove_all" ),
       qualify( "MyStationHit", 1, 1 ),
       qualify( "SrcClassField", 0, 8 ),
       qualify( "SrcIp", ip( "10.0.0.1" ), 0xffffffff ),
       qualify( "IpProtocol", 6, 0xff ),
       action( "AssignExtractionCtrlId", 20, 0x1f ),
       action( "AssignOpaqueObject1", 5 ),
       callLine( "setPriorityForEntry", { Chip::numberArg( 0x7fffffff ) } ),
       call( "reinstallEntry" ) };
   for ( auto& line : expected ) {
      line = "1 " + line;
   }
   EXPECT_EQ( idCalls( from ), expected );
   EXPECT_EQ( chipEntry( 1 )->actions().size(), 2u );

   // No room at all: only the failed getEntry, answer 2.
   TearDown();
   chip.tcamEntries = 0;
   start();
   from = mark();
   rule( 5, snat );
   EXPECT_EQ( answerTexts(), ( Lines{ "mod 1 uid 5 result 2 field 0" } ) );
   EXPECT_EQ( idCalls( from ),
              ( Lines{ "0 " + getEntry( "static SNAT  10.0.0.1 -> 1.1.1.1 " ) } ) );
}

// The default entry is given back when its fragment entry does not fit, so the key can
// be programmed whole once there is room.
TEST_F( NatCommit, AFragmentEntryThatDoesNotFitGivesTheDefaultEntryBack ) {
   chip.tcamEntries = 1;
   nat.fragmentEnabled = true;
   start();
   LogCapture log;
   std::size_t const from = mark();
   rule( 5, dnapt, Data().vlans( { 10 } ) );
   EXPECT_EQ( answerTexts(), ( Lines{ "mod 1 uid 5 result 2 field 0" } ) );
   EXPECT_EQ(
       idCalls( from ),
       ( Lines{ "1 " + getEntry( "static DNAPT vlan 10 1.1.1.1:80 -> 10.0.0.1:8080 " ),
                "0 " + getEntry( "static DNAT vlan 10 1.1.1.1 -> 10.0.0.1 " ),
                "1 " + call( "releaseEntry" ) } ) );
   EXPECT_EQ( log.records.size(), 1u );
   platform->tcamManager().unboundedEntryManager( 160 )->capacityIs( 1, 2 );
   answers.clear();
   rule( 5, dnapt, Data().vlans( { 10 } ) );
   EXPECT_EQ( answerTexts(), ( Lines{ "mod 1 uid 5 result 1 field 0" } ) );
   EXPECT_EQ( chipEntries(), 2u );
   EXPECT_TRUE( chipEntry( 1 )->installed() && chipEntry( 2 )->installed() );
}

TEST_F( NatCommit, DroppedVlansAreFreedAndKeptVlansKeepTheirEntries ) {
   nat.fragmentEnabled = true;
   start();
   rule( 5, dnapt, Data().vlans( { 10, 20, 30, 30 } ) );
   ASSERT_EQ( chipEntries(), 6u );  // VLAN 10: 1, 2; VLAN 20: 3, 4; VLAN 30: 5, 6
   std::size_t const from = mark();
   rule( 5, dnapt, Data().vlans( { 20, 40 } ) );
   EXPECT_EQ( answerTexts().back(), "mod 1 uid 5 result 1 field 0" );
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
   EXPECT_EQ( allocated( from ), ( std::vector<U32>{ 7, 8 } ) );
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

TEST_F( NatCommit, RemovalReleasesTheEntriesThenTheHitCountThenTheRow ) {
   nat.fragmentEnabled = true;
   start();
   Oro::NatHwKey const dynDst =
       natKey( Key::dynamicDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) );
   Oro::NatHwKey const dynSrc =
       natKey( Key::dynamicSrcNat, at( "10.0.0.9" ), at( "1.1.1.1" ) );
   rule( 5, dynDst, Data().vlans( { 10, 20 } ).nextHop( 5 ) );
   rule( 6, dynSrc );
   ASSERT_EQ( chipEntries(), 6u );
   // Destination NAT is counted under its translated destination, source NAT under its
   // old source.
   using HitKey = CorvaneNat::TcamHitCountKey;
   HitKey const dstCounted( HitKey::dynamicDstNat, at( "10.0.0.1" ).ip(), 0,
                            Wirel::IpAddr(), 0, 0 );
   HitKey const srcCounted( HitKey::dynamicSrcNat, at( "10.0.0.9" ).ip(), 0,
                            Wirel::IpAddr(), 0, 0 );
   auto status = platform->agent().stateDatabase->lookup<CorvaneNat::TcamHitCountStatus>(
       "hardware/corvane/nat/counters/tcam/Corvane" );
   status->entryIs( dstCounted, 42 );
   status->entryIs( srcCounted, 7 );

   TraceCapture trace( "ApiCorvane/9" );
   std::string seen;
   std::size_t const from = mark();
   trace.onLine = [&]( std::string const& line ) {
      if ( line.rfind( "tcamHitCountKeyFromHwKey", 0 ) == 0 ) {
         seen += std::to_string( mark() - from ) + " calls, count " +
                 ( status->entryHas( dstCounted ) ? "held" : "gone" ) + ", row " +
                 ( worker()->entryIdTable()->entryHas( dynDst ) ? "held" : "gone" );
      }
   };
   removeRule( 5, dynDst );
   trace.onLine = nullptr;
   EXPECT_EQ( idCalls( from ), ( Lines{ "1 releaseEntry []", "2 releaseEntry []",
                                        "3 releaseEntry []", "4 releaseEntry []" } ) );
   EXPECT_EQ( seen, "4 calls, count held, row held" );
   EXPECT_FALSE( status->entryHas( dstCounted ) );
   EXPECT_TRUE( status->entryHas( srcCounted ) );
   EXPECT_FALSE( worker()->entryIdTable()->entryHas( dynDst ) );
   EXPECT_EQ( answerTexts().back(), "mod 1 uid 5 result 1 field 0" );
   removeRule( 6, dynSrc );
   EXPECT_FALSE( status->entryHas( srcCounted ) );
   EXPECT_EQ( chipEntries(), 0u );
}

// Broken expectations stop the agent.
TEST_F( NatCommit, BrokenExpectationsStop ) {
   GTEST_FLAG_SET( death_test_style, "threadsafe" );
   start();
   upstream->natRule( step( 5, snat ) );
   shared<CorvaneNat::UidHwKeyTable>( "corvanenat/uidHwKeyTable" )
       ->entryDel( CorvaneNat::Uid( 5 ) );
   EXPECT_DEATH( loop().runUntilIdle(),
                 assertionFailure( "uidHwKeyTable()->entryHas( uid )" ) );
   TearDown();
   start();
   upstream->natRule( step( 6, dnat ) );
   shared<Oro::NatHwShadow>( "corvanenat/hwShadow" )->entryDel( dnat );
   EXPECT_DEATH( loop().runUntilIdle(),
                 assertionFailure( "shadow()->entryHas( hwKey0 )" ) );
   TearDown();
   start();
   natsim::NatRuleStep s = step( 5, snat );
   s.dirty = 0;
   EXPECT_DEATH( ruleStep( s ), "invalid hw access with clean shadow" );
   Oro::NatHwData data = Data().vlans( { 10 } );
   data.vlanIdsIs( 65 );
   EXPECT_DEATH( stopOnRangeError( [&] { rule( 5, dnat, data ); } ),
                 "range error: NatVlanIdIndex" );
   TearDown();
   chip.flashDownloadDone = false;
   start();
   EXPECT_DEATH( worker()->doCommitHwConfig( CorvaneNat::Uid( 5 ) ),
                 assertionFailure( "initialized()" ) );
}

}  // namespace
