// Injected faults, played through the natsim binary with the NAT plug-in: an SDK call
// that fails stops the agent with the plug-in's error line, and a TCAM that runs out
// ends as the plug-in documents, with no entry leaked. The scenarios are the ones under
// examples/faults/; the fragment entries that find no room are left to
// tests/CorvaneNat/NatFragmentTest.cpp and NatCommitTest.cpp.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <set>
#include <string>

#include "NatsimProcess.h"
#include "tests/RegexLiteral.h"

namespace {

using nlohmann::json;

using NatsimProcess::Outcome;

// Runs natsim on examples/faults/<name> with `args`.
Outcome playFault( std::string const& name, std::string const& args = "--json" ) {
   NatsimProcess::TempDir const dir;
   return NatsimProcess::natsimIn(
       dir, "run " + std::string( EXAMPLES_DIR ) + "/faults/" + name + " " + args );
}

// The result document of examples/faults/<name>, played to its end.
json played( std::string const& name ) {
   Outcome const run = playFault( name );
   EXPECT_EQ( run.status, 0 ) << run.err;
   return run.status == 0 ? json::parse( run.out ) : json();
}

// (The calls that program an entry fail in tests/CorvaneNat/NatProgramTest.cpp.)
TEST( NatsimFaults, AFailingSdkCallStopsTheAgentWithItsErrorLine ) {
   struct Case {
      char const* scenario;
      // What follows "<file>:<line> " on the error line.
      std::string line;
   };
   Case const cases[] = {
       { "sdk_action_remove.json",
         "bcm_field_action_remove_all( unit(), entryId ) API ERROR:Entry not found "
         "(rc:-107)" },
       { "sdk_mem_read.json",
         "soc_mem_read( unit, mem, MEM_BLOCK_ANY, idx, entry ) API ERROR:Operation timed "
         "out (rc:-109)" },
       { "sdk_mem_write.json",
         "soc_mem_write( unit, mem, MEM_BLOCK_ALL, idx, entry ) API ERROR:Internal error "
         "(rc:-101)" },
       { "sdk_reg_get.json",
         "soc_reg32_get( unit, reg, REG_PORT_ANY, 0, &val ) API ERROR:Operation still "
         "running (rc:-110)" },
       { "sdk_reg_set.json",
         "soc_reg32_set( unit, reg, REG_PORT_ANY, 0, val ) API ERROR:Operation disabled "
         "(rc:-112)" },
       { "sdk_switch_control.json",
         "bcm_switch_control_set( unit, bcmSwitchL3EgressMode, true ) API ERROR:No "
         "resources for operation (rc:-114)" },
   };
   for ( Case const& c : cases ) {
      Outcome const run = playFault( c.scenario );
      EXPECT_EQ( run.status, 3 ) << c.scenario << ": the agent stopped";
      std::string const firstLine = run.err.substr( 0, run.err.find( '\n' ) );
      EXPECT_THAT( firstLine, testing::MatchesRegex( "[A-Za-z]+\\.cpp:[0-9]+ " +
                                                     literal( c.line ) ) )
          << c.scenario;
      EXPECT_THAT( run.err, testing::HasSubstr( "Assertion `0' failed." ) ) << c.scenario;
      EXPECT_TRUE( run.out.empty() ) << c.scenario << ": no result after the stop";
   }
}

TEST( NatsimFaults, TheToleratedSwitchControlCodeIsAccepted ) {
   json const result = played( "sdk_switch_control_unavailable.json" );
   json calls = json::array();
   for ( json const& call : result["journal"] ) {
      if ( call["call"] == "bcm_switch_control_set" ) {
         calls.push_back( call );
      }
   }
   EXPECT_EQ( calls, json::parse( R"([{"step": 1, "call": "bcm_switch_control_set",
                 "unit": 1, "args": ["bcmSwitchL3EgressMode", 1], "rc": -116}])" ) );
   EXPECT_TRUE( result["chip"][0]["switchControls"].empty() );
   EXPECT_TRUE( result["events"].empty() );
   EXPECT_NE( result["chip"][0]["memories"].size(), 0u ) << "the worker initialized";
}

// The ids of the NAT entries the plug-in owns after `result`'s last show ("eid0" and
// "eid1" of each row).
std::set<int> ownedNatEntries( json const& result ) {
   std::string const show = result["show"].back()["output"];
   std::set<int> owned;
   for ( auto at = show.find( "\"eid" ); at != std::string::npos;
         at = show.find( "\"eid", at + 1 ) ) {
      owned.insert( std::atoi( show.c_str() + at + 9 ) );
   }
   return owned;
}

// The chip holds exactly the entries `owned`, the NAT capacity row counts them, and
// whatever the entry manager gave out in `step` (if any) it took back.
void expectNothingLeaked( json const& result, std::set<int> const& owned,
                          int step = -1 ) {
   std::set<int> chip, taken, released;
   for ( json const& entry : result["chip"][0]["entries"] ) {
      chip.insert( entry["id"].get<int>() );
   }
   EXPECT_EQ( chip, owned );
   for ( json const& row : result["capacity"] ) {
      if ( row["entry"] == "NAT" ) {
         EXPECT_EQ( row["used"], owned.size() );
         EXPECT_EQ( row["used"].get<int>() + row["free"].get<int>(), row["max"] );
      }
   }
   for ( json const& call : result["journal"] ) {
      if ( call["step"] == step && call["call"] == "getEntry" && call["entry"] != 0 ) {
         taken.insert( call["entry"].get<int>() );
      } else if ( call["step"] == step && call["call"] == "releaseEntry" ) {
         released.insert( call["entry"].get<int>() );
      }
   }
   EXPECT_EQ( taken, released ) << "step " << step;
   EXPECT_TRUE( result["problems"].empty() ) << result["problems"];
}

TEST( NatsimFaults, TheDefaultEntryFindsTheTcamFull ) {
   json const result = played( "tcam_full_rule.json" );
   EXPECT_EQ( result["answers"], json::parse( R"([
                 {"step": 0, "module": 1, "uid": 1, "result": 1, "field": 0},
                 {"step": 1, "module": 1, "uid": 2, "result": 2, "field": 0},
                 {"step": 2, "module": 1, "uid": 3, "result": 2, "field": 0}])" ) );
   ASSERT_EQ( result["events"].size(), 2u );
   EXPECT_EQ( result["events"][0]["name"], "CORVANE_NAT_TCAM_RESOURCE_FULL" );
   EXPECT_EQ(
       result["events"][0]["message"],
       "Hardware resources are insufficient to add NAT rule with key <type: "
       "staticDstNat, old dip: 203.0.113.80:80, new dip: 10.0.0.80:8080, proto: 0, "
       "faId: 0, aclId: 0, reverse: false>" );
   EXPECT_EQ( result["events"][1]["step"], 2 );
   // The rule of two VLANs keeps the entry of the VLAN that found room.
   EXPECT_EQ( ownedNatEntries( result ), ( std::set<int>{ 1, 2 } ) );
   expectNothingLeaked( result, { 1, 2 }, -1 );
}

TEST( NatsimFaults, ATrapAclThatRunsOutLeavesNoneOfItsEntries ) {
   json const result = played( "tcam_full_trap_acl.json" );
   EXPECT_EQ( result["events"], json::parse( R"([{"step": 2,
                 "name": "CORVANENAT_TRAP_TCAM_RESOURCE_FULL",
                 "message": "Hardware resources are insufficient to add NAT trap filter aclName: inside, vlanId: 10"}])" ) );
   int taken = 0;
   for ( json const& call : result["journal"] ) {
      taken += call["step"] == 2 && call["call"] == "getEntry" && call["entry"] != 0;
   }
   EXPECT_EQ( taken, 6 ) << "the ACL ran out half-way";
   // Owned: the NAT rule's entry and the five entries of the ACL that fitted.
   std::set<int> owned = ownedNatEntries( result );
   for ( json const& entry : result["chip"][0]["entries"] ) {
      if ( entry["description"].get<std::string>().find( "src=10.1.0.0/16" ) !=
           std::string::npos ) {
         owned.insert( entry["id"].get<int>() );
      }
   }
   EXPECT_EQ( owned.size(), 6u );
   expectNothingLeaked( result, owned, 2 );
   EXPECT_EQ( result["packets"][0]["entry"], 0 ) << "no trap filter of the refused ACL";
}

}  // namespace
