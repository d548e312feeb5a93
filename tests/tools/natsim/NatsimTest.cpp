// natsim as a user runs it: a scenario played through a test plug-in with the result
// document it prints (malformed input: BadInputTest.cpp).

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>

#include "NatsimProcess.h"

namespace {

using NatsimProcess::natsimRun;
using NatsimProcess::Outcome;

std::string const testPlugin = std::string( "--plugin " ) + TEST_PLUGIN_PATH +
                               " --mounter TestPlugin::Mounter --callback "
                               "TestPlugin::CliCallback";

TEST( Natsim, PlaysAScenarioThroughAPlugInIntoTheResultDocument ) {
   Outcome run = natsimRun( R"({
      "chip": { "modules": { "1": 1 }, "tcamEntries": 1 },
      "steps": [
        { "natRule": { "uid": 4, "key": { "type": 1, "srcOld": "10.0.0.1" }, "field": 9 } },
        { "natRule": { "uid": 5, "key": { "type": 1, "srcOld": "10.0.0.2" } } },
        { "packet": { "src": "10.0.0.1", "count": 2 } },
        { "packet": { "src": "10.9.9.9" } },
        { "show": "ShowTest" },
        { "verify": 1 },
        { "natRuleRemove": { "uid": 4, "key": { "type": 1, "srcOld": "10.0.0.1" } } },
        { "show": "ShowTest" }
      ] })",
                            testPlugin + " --json" );
   ASSERT_EQ( run.status, 0 ) << run.err;
   nlohmann::json result = nlohmann::json::parse( run.out );

   EXPECT_EQ( result["answers"], nlohmann::json::parse( R"([
                 {"step": 0, "module": 1, "uid": 4, "result": 1, "field": 9},
                 {"step": 1, "module": 1, "uid": 5, "result": 2, "field": 0},
                 {"step": 6, "module": 1, "uid": 4, "result": 1, "field": 0}])" ) );
   ASSERT_EQ( result["events"].size(), 2u );
   EXPECT_EQ( result["events"][0]["name"], "TEST_PLUGIN_FULL" );
   EXPECT_EQ( result["events"][0]["step"], 1 );
   EXPECT_EQ( result["events"][1]["message"], "Verified module 1" );

   auto const& journal = result["journal"];
   ASSERT_GE( journal.size(), 5u );
   EXPECT_EQ( journal[0]["call"], "getEntry" );
   EXPECT_EQ( journal[1], nlohmann::json::parse( R"({"step": 0, "call":
      "bcm_field_qualify_SrcIp", "unit": 1, "entry": 1, "args": [167772161, 4294967295],
      "rc": 0})" ) );
   EXPECT_EQ( journal[5]["call"], "getEntry" );
   EXPECT_EQ( journal[5]["entry"], 0 ) << "full: no id";
   EXPECT_EQ( journal.back()["call"], "releaseEntry" );

   EXPECT_EQ( result["packets"][0]["entry"], 1 );
   EXPECT_EQ( result["packets"][1]["entry"], 0 );
   EXPECT_EQ( result["show"][0]["output"], "[{\"uid\": 4, \"entry\": 1},]" );
   EXPECT_EQ( result["show"][1]["output"], "[]" );
   EXPECT_TRUE( result["chip"][0]["entries"].empty() ) << "the removed rule's entry";
   EXPECT_TRUE( result["problems"].empty() );
}

// The journal the result keeps (all, none, some calls, or into a file of its own), and
// the step table, which counts every call whatever is kept.
TEST( Natsim, KeepsTheJournalAsAskedAndTheTablesCountEveryCall ) {
   NatsimProcess::TempDir const dir;
   std::string const file = dir.path() + "/scenario.json";
   std::ofstream( file ) << R"({"steps": [
      {"natRule": {"uid": 1, "key": {"type": 1, "srcOld": "10.0.0.1", "srcNew": "1.1.1.1"}}},
      {"natRule": {"uid": 2, "key": {"type": 2, "dstOld": "1.1.1.2", "dstNew": "10.0.0.2"}}}
      ]})";
   auto run = [&]( std::string const& args ) {
      return NatsimProcess::natsimIn( dir, "run " + file + " " + args );
   };
   Outcome const all = run( "--json" );
   ASSERT_EQ( all.status, 0 ) << all.err;
   nlohmann::json const journal = nlohmann::json::parse( all.out )["journal"];
   ASSERT_GT( journal.size(), 10u );

   nlohmann::json some = nlohmann::json::array();
   for ( auto const& call : journal ) {
      std::string const name = call["call"];
      if ( name == "getEntry" || name.rfind( "bcm_field_action_", 0 ) == 0 ) {
         some.push_back( call );
      }
   }
   Outcome const kept = run( "--json --journal getEntry,bcm_field_action_*" );
   EXPECT_EQ( nlohmann::json::parse( kept.out )["journal"], some );
   Outcome const none = run( "--json --journal none" );
   EXPECT_EQ( nlohmann::json::parse( none.out )["journal"], nlohmann::json::array() );

   Outcome const toFile = run( "--json --journal-file " + dir.path() + "/journal.json" );
   ASSERT_EQ( toFile.status, 0 ) << toFile.err;
   EXPECT_EQ( nlohmann::json::parse( toFile.out )["journal"], nlohmann::json::array() );
   EXPECT_EQ(
       nlohmann::json::parse( NatsimProcess::readFile( dir.path() + "/journal.json" ) ),
       journal );

   Outcome const tables = run( "" );
   EXPECT_NE( tables.out.find( "natsim: " + std::to_string( journal.size() ) +
                               " SDK and entry-manager calls" ),
              std::string::npos )
       << tables.out;
   EXPECT_NE(
       tables.out.find( "  1 natRule  answer uid 2 module 1: 1  no entry  (0 calls)" ),
       std::string::npos )
       << "a destination rule without VLANs is answered without an entry\n"
       << tables.out;
}

// The shipped examples play to their end through the NAT plug-in: every verify step
// passes and no assertion stops the agent.
TEST( Natsim, TheExamplesPlayToTheirEnd ) {
   NatsimProcess::TempDir dir;
   for ( std::string name : { "demo.json", "reprogram.json", "restart.json" } ) {
      Outcome run =
          NatsimProcess::natsimIn( dir, "run " + std::string( EXAMPLES_DIR ) + "/" +
                                            name + " --json --journal none" );
      EXPECT_EQ( run.status, 0 ) << name << ": " << run.err;
   }
}

}  // namespace
