// Transactions end to end: which requests a worker serves, what it answers, what a full
// TCAM does, how reprogramming reuses entries, how VLANs that leave a key and keys that
// leave the shadow give their entries back.

#include <algorithm>

#include "NatJournalLines.h"
#include "platform/mount/OrreryEntityManager.h"
#include "platform/mount/VekSharedMemEntityManager.h"
#include "platform/nat/TcamHitCountStatus.h"

namespace {

using namespace NatTest;

class NatCommit : public NatProgramFixture {
protected:
   natsim::NatRuleStep step( U32 uid, Oro::NatHwKey const& key,
                             Oro::NatHwData const& data = {} ) {
      natsim::NatRuleStep s;
      s.uid = uid;
      s.key = key;
      s.data = data;
      s.modules = { 1 };
      return s;
   }
   Lines answerTexts() const {
      Lines out;
      for ( auto const& a : answers ) {
         out.push_back( "mod " + std::to_string( a.module ) + " uid " +
                        std::to_string( a.uid ) + " result " +
                        std::to_string( U32( a.result ) ) + " field " +
                        std::to_string( a.field ) );
      }
      return out;
   }
   template <class T>
   Fwk::Ptr<T> shared( char const* path ) {
      return platform->agent().sharedMem->getEntity<T>( path );
   }
   CorvaneNat::TcamHitCountStatus::Ptr hitCounts() {
      return platform->agent().stateDatabase->lookup<CorvaneNat::TcamHitCountStatus>(
          "hardware/corvane/nat/counters/tcam/Corvane" );
   }
};

Oro::NatHwKey const snat = natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) );
Oro::NatHwKey const dnat =
    natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) );

// --- Which requests are served, and the answers ---------------------------------------

TEST_F( NatCommit, AnswerCarriesTheResultAndTheRequestsOwnField ) {
   start();
   natsim::NatRuleStep s = step( 5, snat );
   s.field = 0xabcd;
   ruleStep( s );
   EXPECT_EQ( answerTexts(), ( Lines{ "mod 1 uid 5 result 1 field 43981" } ) );
   EXPECT_EQ( chipEntries(), 1u );
}

TEST_F( NatCommit, EachModuleOfTheUidProgramsItsOwnUnitAndAnswersAndNoOtherDoes ) {
   chip.modules = { { 1, 1 }, { 2, 2 }, { 3, 3 } };
   start();
   std::size_t const from = mark();
   rule( 5, snat, {}, { 3 } );
   EXPECT_EQ( answerTexts(), ( Lines{ "mod 3 uid 5 result 1 field 0" } ) );
   EXPECT_EQ( chipEntries( 1 ), 0u );
   EXPECT_EQ( chipEntries( 3 ), 1u );
   // The worker of module 3 speaks to unit 3 only.
   std::vector<int> const units = unitsFrom( from );
   EXPECT_FALSE( units.empty() );
   EXPECT_EQ( std::count( units.begin(), units.end(), 3 ), long( units.size() ) );

   answers.clear();
   rule( 6, dnat, Data().vlans( { 10 } ), { 1, 2 } );
   Lines texts = answerTexts();  // the workers answer in any order
   std::sort( texts.begin(), texts.end() );
   EXPECT_EQ( texts, ( Lines{ "mod 1 uid 6 result 1 field 0",
                              "mod 2 uid 6 result 1 field 0" } ) );
   EXPECT_EQ( chipEntries( 1 ), 1u );
   EXPECT_EQ( chipEntries( 2 ), 1u );
   EXPECT_EQ( chipEntries( 3 ), 1u );
   EXPECT_EQ( chipActions( 1, 2 ), chipActions( 1, 1 ) );
}

TEST_F( NatCommit, AUidWithoutModuleSetIsNotServed ) {
   start();
   std::size_t const from = mark();
   upstream->natRule( step( 5, snat ) );
   shared<CorvaneNat::ModSetDir>( "corvanenat/ingModSetDir" )
       ->modSetDel( CorvaneNat::Uid( 5 ) );
   loop().runUntilIdle();
   EXPECT_TRUE( answers.empty() );
   EXPECT_TRUE( calls( from ).empty() );
}

TEST_F( NatCommit, DuringHitlessInitModuleSetsAreIgnoredAndCleanEntriesProgrammed ) {
   chip.hitlessRestart = true;
   start();
   ASSERT_TRUE( worker()->hitlessInitPhase() );
   natsim::NatRuleStep s = step( 5, snat );
   s.modules = { 2 };  // not this worker's module
   s.dirty = 0;        // clean: rebuilt from the shadow
   ruleStep( s );
   EXPECT_EQ( answerTexts(), ( Lines{ "mod 1 uid 5 result 1 field 0" } ) );
   EXPECT_EQ( chipEntries(), 1u );
}

TEST_F( NatCommit, UnknownDirtyStatesAndUnknownKeyTypesAreAnsweredWithoutHardware ) {
   start();
   std::size_t const from = mark();
   natsim::NatRuleStep s = step( 5, snat );
   s.dirty = 3;
   ruleStep( s );
   rule( 6, natKey( Key::natKeyTypeNone, at( "10.0.0.1" ), at( "1.1.1.1" ) ) );
   rule( 7, natKey( Key::NatKeyType( 7 ), at( "10.0.0.1" ), at( "1.1.1.1" ) ) );
   EXPECT_EQ( answerTexts(),
              ( Lines{ "mod 1 uid 5 result 1 field 0", "mod 1 uid 6 result 1 field 0",
                       "mod 1 uid 7 result 1 field 0" } ) );
   EXPECT_TRUE( calls( from ).empty() );
}

// --- A full TCAM
// -------------------------------------------------------------------------

TEST_F( NatCommit, FullTcamAnswers2RaisesTheEventAndStillProgramsTheOtherVlans ) {
   chip.tcamEntries = 2;
   start();
   rule( 5, dnat, Data().vlans( { 20 } ).nextHop( 5 ) );
   ASSERT_EQ( chipEntries(), 1u );
   answers.clear();

   LogCapture log;
   std::size_t const from = mark();
   rule( 5, dnat, Data().vlans( { 10, 30, 20 } ).nextHop( 5 ) );

   EXPECT_EQ( answerTexts(), ( Lines{ "mod 1 uid 5 result 2 field 0" } ) );
   ASSERT_EQ( log.records.size(), 1u );
   EXPECT_EQ( log.records[0].name, "CORVANE_NAT_TCAM_RESOURCE_FULL" );
   EXPECT_EQ( log.records[0].severity, 3 );
   EXPECT_EQ( log.records[0].message,
              "Hardware resources are insufficient to add NAT rule with key <type: "
              "staticDstNat, old dip: 1.1.1.1:0, new dip: 10.0.0.1:0, proto: 0, faId: 0, "
              "aclId: 0, reverse: false>" );

   // VLAN 10 takes the last entry, VLAN 30 gets none, VLAN 20 (listed after the
   // failure) is still reprogrammed.
   auto programmed = []( U32 id, U16 vlan, bool reinstall ) {
      Lines lines = { myStationHit(), notAclDropped(), l3Ingress( vlan ),
                      dstIp( "1.1.1.1" ) };
      if ( reinstall ) {
         lines.push_back( removeAllActions() );
      }
      lines = lines + Lines{ extractionCtrl( 16 ),
                             opaqueObject1( 5 ),
                             action( "CopyToCpuCancel" ),
                             action( "DropCancel" ),
                             l3Switch( 100005 ),
                             highestPriority(),
                             reinstall ? reinstallEntry() : installEntry() };
      for ( auto& line : lines ) {
         line = std::to_string( id ) + " " + line;
      }
      return lines;
   };
   EXPECT_EQ( idCalls( from ),
              Lines{ "2 " + getEntry( "static DNAT vlan 10 1.1.1.1 -> "
                                      "10.0.0.1 " ) } +
                  programmed( 2, 10, false ) +
                  Lines{ "0 " + getEntry( "static DNAT vlan 30 1.1.1.1 -> 10.0.0.1 " ) } +
                  programmed( 1, 20, true ) );
   EXPECT_EQ( chipEntries(), 2u );
   EXPECT_EQ( chipEntry( 1 )->qualifier( Chip::Qualifier::L3Ingress ).data, 20u );
   EXPECT_EQ( chipEntry( 2 )->qualifier( Chip::Qualifier::L3Ingress ).data, 10u );
   EXPECT_TRUE( chipEntry( 2 )->installed() );
}

TEST_F( NatCommit, FullTcamOnASourceKeyAnswers2AndLeavesNothingBehind ) {
   chip.tcamEntries = 0;
   start();
   LogCapture log;
   std::size_t const from = mark();
   rule( 5, snat );
   EXPECT_EQ( answerTexts(), ( Lines{ "mod 1 uid 5 result 2 field 0" } ) );
   EXPECT_EQ( idCalls( from ),
              ( Lines{ "0 " + getEntry( "static SNAT  10.0.0.1 -> 1.1.1.1 " ) } ) );
   EXPECT_EQ( log.records.size(), 1u );
}

// The default entry is given back when its fragment entry does not fit, so the key can
// be programmed whole once there is room.
TEST_F( NatCommit, AFragmentEntryThatDoesNotFitGivesTheDefaultEntryBack ) {
   chip.tcamEntries = 1;
   nat.fragmentEnabled = true;
   start();
   Oro::NatHwKey const dnapt =
       natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1", 80 ), at( "10.0.0.1", 8080 ) );
   LogCapture log;
   std::size_t from = mark();
   rule( 5, dnapt, Data().vlans( { 10 } ) );
   EXPECT_EQ( answerTexts(), ( Lines{ "mod 1 uid 5 result 2 field 0" } ) );
   EXPECT_EQ(
       idCalls( from ),
       ( Lines{ "1 " + getEntry( "static DNAPT vlan 10 1.1.1.1:80 -> 10.0.0.1:8080 " ),
                "0 " + getEntry( "static DNAT vlan 10 1.1.1.1 -> 10.0.0.1 " ),
                "1 " + releaseEntry() } ) );
   EXPECT_EQ( log.records.size(), 1u );
   EXPECT_EQ( chipEntries(), 0u );

   platform->tcamManager().unboundedEntryManager( 160 )->capacityIs( 1, 2 );
   answers.clear();
   from = mark();
   rule( 5, dnapt, Data().vlans( { 10 } ) );
   EXPECT_EQ( answerTexts(), ( Lines{ "mod 1 uid 5 result 1 field 0" } ) );
   Lines const journal = entryCalls( from );
   EXPECT_EQ( std::count( journal.begin(), journal.end(), "#1 " + installEntry() ), 1 );
   EXPECT_EQ( std::count( journal.begin(), journal.end(), "#2 " + installEntry() ), 1 );
   EXPECT_EQ( chipEntries(), 2u );
}

// --- Reprogramming
// ------------------------------------------------------------------------

TEST_F( NatCommit, ReprogrammingASourceKeyRemovesItsActionsFirstAndReinstalls ) {
   start();
   rule( 5, snat );
   std::size_t const from = mark();
   rule( 5, snat, Data().protocol( 6 ) );
   EXPECT_EQ(
       idCalls( from ),
       ( Lines{ "1 " + removeAllActions(), "1 " + myStationHit(), "1 " + notAclDropped(),
                "1 " + srcIp( "10.0.0.1" ), "1 " + ipProtocol( 6 ),
                "1 " + extractionCtrl( 20 ), "1 " + opaqueObject1( 5 ),
                "1 " + highestPriority(), "1 " + reinstallEntry() } ) );
   EXPECT_EQ( chipActions( 1 ), ( Lines{ extractionCtrl( 20 ), opaqueObject1( 5 ) } ) );
   EXPECT_EQ( chipEntries(), 1u );
}

TEST_F( NatCommit, ReprogrammingADestinationKeyRemovesItsActionsAfterTheQualifiers ) {
   start();
   rule( 5, dnat, Data().vlans( { 10 } ).nextHop( 5 ) );
   std::size_t const from = mark();
   rule( 5, dnat, Data().vlans( { 10 } ).nextHop( 6 ).protocol( 17 ) );
   Lines const actions = { extractionCtrl( 16 ), opaqueObject1( 5 ),
                           action( "CopyToCpuCancel" ), action( "DropCancel" ),
                           l3Switch( 100006 ) };
   Lines expected = { myStationHit(),     notAclDropped(),  l3Ingress( 10 ),
                      dstIp( "1.1.1.1" ), ipProtocol( 17 ), removeAllActions() };
   expected = expected + actions + Lines{ highestPriority(), reinstallEntry() };
   for ( auto& line : expected ) {
      line = "1 " + line;
   }
   EXPECT_EQ( idCalls( from ), expected );
   EXPECT_EQ( chipActions( 1 ), actions );
}

// --- VLANs that leave a key ------------------------------------------------------------

TEST_F( NatCommit, DroppedVlansAreFreedAndKeptVlansKeepTheirEntries ) {
   nat.fragmentEnabled = true;
   start();
   Oro::NatHwKey const dnapt =
       natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1", 80 ), at( "10.0.0.1", 8080 ) );
   rule( 5, dnapt, Data().vlans( { 10, 20, 30 } ) );
   ASSERT_EQ( chipEntries(), 6u );  // VLAN 10: 1, 2; VLAN 20: 3, 4; VLAN 30: 5, 6

   std::size_t const from = mark();
   rule( 5, dnapt, Data().vlans( { 20, 40 } ) );
   EXPECT_EQ( answerTexts().back(), "mod 1 uid 5 result 1 field 0" );
   Lines released;
   Lines reinstalled;
   std::vector<U32> const fresh = allocated( from );
   for ( auto const& line : idCalls( from ) ) {
      if ( line.find( "releaseEntry" ) != std::string::npos ) {
         released.push_back( line );
      }
      if ( line.find( "reinstallEntry" ) != std::string::npos ) {
         reinstalled.push_back( line );
      }
   }
   // VLAN 20 is reprogrammed in place, VLAN 40 gets new entries, then VLANs 10 and 30
   // give back their default and fragment entries.
   EXPECT_EQ( reinstalled,
              ( Lines{ "3 " + reinstallEntry(), "4 " + reinstallEntry() } ) );
   EXPECT_EQ( fresh, ( std::vector<U32>{ 7, 8 } ) );
   EXPECT_EQ( released, ( Lines{ "1 " + releaseEntry(), "2 " + releaseEntry(),
                                 "5 " + releaseEntry(), "6 " + releaseEntry() } ) );
   EXPECT_EQ( idCalls( from ).back(), "6 " + releaseEntry() );
   EXPECT_EQ( fieldProcessor().entryIds(), ( std::vector<U32>{ 3, 4, 7, 8 } ) );
   EXPECT_EQ( chipEntry( 7 )->qualifier( Chip::Qualifier::L3Ingress ).data, 40u );

   // The kept VLAN is reprogrammed again in place on the next change.
   std::size_t const again = mark();
   rule( 5, dnapt, Data().vlans( { 40 } ) );
   EXPECT_TRUE( allocated( again ).empty() );
   EXPECT_EQ( fieldProcessor().entryIds(), ( std::vector<U32>{ 7, 8 } ) );
}

// doProgram of one VLAN, as tools call it, stores the entry in the key's row.
TEST_F( NatCommit, ProgrammingOneVlanStoresItsEntryInTheRow ) {
   start();
   rule( 5, dnat, Data().vlans( { 10 } ).nextHop( 5 ) );
   EXPECT_TRUE( worker()->doProgram( dnat, dnat, Data().vlans( { 10, 20 } ), 20 ) );
   Corvane::EntryIdTableEntry const row = worker()->entryIdTable()->entry( dnat );
   ASSERT_EQ( row.defaultEntryIds().size(), 2u );
   EXPECT_EQ( chipEntries(), 2u );
   EXPECT_EQ( chipEntry( row.defaultEntryId( 20 ) )
                  ->qualifier( Chip::Qualifier::L3Ingress )
                  .data,
              20u );
}

TEST_F( NatCommit, SixtyFourVlansThenHalfOfThemThenNone ) {
   start();
   Oro::NatHwData all;
   Oro::NatHwData even;
   for ( U16 vlan = 1; vlan <= 64; ++vlan ) {
      all.vlanIdAppend( vlan );
      if ( vlan % 2 == 0 ) {
         even.vlanIdAppend( vlan );
      }
   }
   rule( 5, dnat, all );
   ASSERT_EQ( chipEntries(), 64u );
   std::vector<U32> const ids = fieldProcessor().entryIds();
   for ( U32 id : ids ) {  // VLAN n got entry n
      EXPECT_EQ( chipEntry( id )->qualifier( Chip::Qualifier::L3Ingress ).data, id );
   }

   std::size_t from = mark();
   rule( 5, dnat, even );
   EXPECT_TRUE( allocated( from ).empty() );
   std::vector<U32> kept;
   Lines released;
   for ( U32 id = 2; id <= 64; id += 2 ) {
      kept.push_back( id );
      released.push_back( std::to_string( id ) + " " + releaseEntry() );
   }
   EXPECT_EQ( fieldProcessor().entryIds(), kept );
   EXPECT_EQ( answerTexts().back(), "mod 1 uid 5 result 1 field 0" );

   // Data that lists no VLAN gives every entry back, in VLAN order.
   from = mark();
   rule( 5, dnat, Data() );
   EXPECT_EQ( idCalls( from ), released );
   EXPECT_EQ( answerTexts().back(), "mod 1 uid 5 result 1 field 0" );
   EXPECT_EQ( chipEntries(), 0u );
}

TEST_F( NatCommit, AVlanListedTwiceIsProgrammedTwiceOnOneEntry ) {
   start();
   std::size_t const from = mark();
   rule( 5, dnat, Data().vlans( { 10, 10 } ) );
   Lines const journal = idCalls( from );
   EXPECT_EQ( allocated( from ), ( std::vector<U32>{ 1 } ) );
   EXPECT_EQ( std::count( journal.begin(), journal.end(), "1 " + installEntry() ), 1 );
   EXPECT_EQ( std::count( journal.begin(), journal.end(), "1 " + reinstallEntry() ), 1 );
   EXPECT_EQ( chipEntries(), 1u );
}

// --- Keys that leave the shadow
// ----------------------------------------------------------

TEST_F( NatCommit, RemovalReleasesTheEntriesThenTheHitCountsThenTheRow ) {
   nat.fragmentEnabled = true;
   start();
   Oro::NatHwKey const dynDst =
       natKey( Key::dynamicDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1", 0 ) );
   Oro::NatHwKey const other =
       natKey( Key::dynamicSrcNat, at( "10.0.0.9" ), at( "1.1.1.1" ) );
   rule( 5, dynDst, Data().vlans( { 10, 20 } ).nextHop( 5 ) );
   rule( 6, other );
   ASSERT_EQ( chipEntries(), 6u );

   // Destination NAT: the translated destination is the hit-count key's source.
   CorvaneNat::TcamHitCountKey const counted( CorvaneNat::TcamHitCountKey::dynamicDstNat,
                                              at( "10.0.0.1" ).ip(), 0, Wirel::IpAddr(),
                                              0, 0 );
   CorvaneNat::TcamHitCountKey const otherCounted(
       CorvaneNat::TcamHitCountKey::dynamicSrcNat, at( "10.0.0.9" ).ip(), 0,
       Wirel::IpAddr(), 0, 0 );
   auto status = hitCounts();
   ASSERT_TRUE( status );
   status->entryIs( counted, 42 );
   status->entryIs( otherCounted, 7 );

   TraceCapture trace( "ApiCorvane/9" );
   Lines seenAtHitCountKey;
   std::size_t const from = mark();
   trace.onLine = [&]( std::string const& line ) {
      if ( line.rfind( "tcamHitCountKeyFromHwKey", 0 ) == 0 ) {
         seenAtHitCountKey.push_back(
             std::to_string( Chip::journal().size() - from ) + " calls, status " +
             ( status->entryHas( counted ) ? "held" : "gone" ) + ", row " +
             ( worker()->entryIdTable()->entryHas( dynDst ) ? "held" : "gone" ) );
      }
   };
   removeRule( 5, dynDst );
   trace.onLine = nullptr;

   EXPECT_EQ( idCalls( from ),
              ( Lines{ "1 " + releaseEntry(), "2 " + releaseEntry(),
                       "3 " + releaseEntry(), "4 " + releaseEntry() } ) );
   EXPECT_EQ( seenAtHitCountKey, ( Lines{ "4 calls, status held, row held" } ) );
   EXPECT_FALSE( status->entryHas( counted ) );
   EXPECT_TRUE( status->entryHas( otherCounted ) );
   EXPECT_FALSE( worker()->entryIdTable()->entryHas( dynDst ) );
   EXPECT_EQ( answerTexts().back(), "mod 1 uid 5 result 1 field 0" );
   EXPECT_EQ( fieldProcessor().entryIds(), ( std::vector<U32>{ 5, 6 } ) );

   // Source NAT: keyed by the old source.
   removeRule( 6, other );
   EXPECT_FALSE( status->entryHas( otherCounted ) );
   EXPECT_EQ( chipEntries(), 0u );
}

// --- Broken expectations stop the agent -----------------------------------------------

class NatCommitDeathTest : public NatCommit {
protected:
   void SetUp() override { GTEST_FLAG_SET( death_test_style, "threadsafe" ); }
};

TEST_F( NatCommitDeathTest, ARequestForAUidWithoutKeyStops ) {
   start();
   upstream->natRule( step( 5, snat ) );
   shared<CorvaneNat::UidHwKeyTable>( "corvanenat/uidHwKeyTable" )
       ->entryDel( CorvaneNat::Uid( 5 ) );
   EXPECT_DEATH( loop().runUntilIdle(),
                 assertionFailure( "uidHwKeyTable()->entryHas( uid )" ) );
}

// The key's one shadow lookup is that of the paired key (the key itself).
TEST_F( NatCommitDeathTest, ARequestForAKeyWithoutShadowEntryStops ) {
   start();
   upstream->natRule( step( 6, dnat ) );
   shared<Oro::NatHwShadow>( "corvanenat/hwShadow" )->entryDel( dnat );
   EXPECT_DEATH( loop().runUntilIdle(),
                 assertionFailure( "shadow()->entryHas( hwKey0 )" ) );
}

TEST_F( NatCommitDeathTest, ACleanShadowEntryOutsideHitlessInitStops ) {
   start();
   natsim::NatRuleStep s = step( 5, snat );
   s.dirty = 0;
   EXPECT_DEATH( ruleStep( s ),
                 assertionFailure(
                     "hitlessInitPhase() && \"invalid hw access with clean shadow\"" ) );
}

TEST_F( NatCommitDeathTest, DataClaimingMoreThan64VlansIsTheVlanIndexRangeError ) {
   start();
   Oro::NatHwData data = Data().vlans( { 10 } );
   data.vlanIdsIs( 65 );
   EXPECT_DEATH( stopOnRangeError( [&] { rule( 5, dnat, data ); } ),
                 literal( "range error: NatVlanIdIndex::value < NatVlanIdIndex::min or > "
                          "NatVlanIdIndex::max not allowed" ) );
}

TEST_F( NatCommitDeathTest, ACommitBeforeInitializationStops ) {
   chip.flashDownloadDone = false;
   start();
   ASSERT_TRUE( worker() );
   ASSERT_FALSE( worker()->initialized() );
   EXPECT_DEATH( worker()->doCommitHwConfig( CorvaneNat::Uid( 5 ) ),
                 assertionFailure( "initialized()" ) );
}

}  // namespace
