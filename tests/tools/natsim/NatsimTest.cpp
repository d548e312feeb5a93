// natsim as a user runs it: a scenario played through a test plug-in with the result
// document it prints (malformed input: BadInputTest.cpp).

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

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
   EXPECT_EQ( journal[0]["entry"], 1 );
   EXPECT_EQ( journal[1], nlohmann::json::parse( R"({"step": 0, "call":
      "bcm_field_qualify_SrcIp", "unit": 1, "entry": 1, "args": [167772161, 4294967295],
      "rc": 0})" ) );
   EXPECT_EQ( journal[2]["args"],
              nlohmann::json::parse( R"(["bcmFieldActionDropCancel", 0, 0])" ) );
   EXPECT_EQ( journal[5]["call"], "getEntry" );
   EXPECT_EQ( journal[5]["entry"], 0 ) << "full: no id";
   EXPECT_EQ( journal.back()["call"], "releaseEntry" );
   EXPECT_EQ( journal.back()["step"], 6 );

   EXPECT_EQ( result["packets"][0]["entry"], 1 );
   EXPECT_EQ( result["packets"][1]["entry"], 0 );
   EXPECT_EQ( result["show"][0]["output"], "[{\"uid\": 4, \"entry\": 1},]" );
   EXPECT_EQ( result["show"][1]["output"], "[]" );
   EXPECT_TRUE( result["chip"][0]["entries"].empty() ) << "the removed rule's entry";
   EXPECT_TRUE( result["problems"].empty() );
}

TEST( Natsim, ExplainsAPlugInWithoutTheMounterType ) {
   Outcome run = natsimRun( "{}", std::string( "--plugin " ) + TEST_PLUGIN_PATH );
   EXPECT_EQ( run.status, 1 );
   EXPECT_NE( run.err.find( "registers no mounter type \"Corvane::NatMounter\"" ),
              std::string::npos )
       << run.err;
}

}  // namespace
