// The restart step as a user sees it in natsim's result document, with the NAT plug-in:
// the restarted agent rebuilds exactly the entries the chip held (modulo ids), the old
// entries keep taking traffic until the new ones are in and are then released, nothing
// is left over, the hitless-init phase ends with the restart, and a transaction pending
// at the restart is answered after it.

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "NatsimProcess.h"
#include "tools/natsim/Scenario.h"

namespace {

using nlohmann::json;

struct Played {
   int status = -1;
   json result;
   std::string err;
};

// Plays a scenario with natsim and the NAT plug-in next to it; the result document
// when natsim finished.
Played natsim( json const& scenario ) {
   NatsimProcess::Outcome const run =
       NatsimProcess::natsimRun( scenario.dump(), "--json" );
   Played played;
   played.status = run.status;
   if ( run.status == 0 ) {
      played.result = json::parse( run.out );
   }
   played.err = run.err;
   return played;
}

json scenario( json const& steps, json chip = json::object() ) {
   if ( !chip.contains( "modules" ) ) {
      chip["modules"] = { { "1", 1 }, { "2", 2 } };
   }
   chip["tcamEntries"] = 64;
   return {
       { "chip", chip }, { "nat", { { "fragmentEnabled", true } } }, { "steps", steps } };
}

json concat( json a, json const& b ) {
   for ( auto const& step : b ) {
      a.push_back( step );
   }
   return a;
}

json const removedKey = json::parse( R"({"type": 3, "srcOld": "10.0.0.3",
   "dstOld": "198.51.100.7", "srcNew": "203.0.113.3", "dstNew": "192.0.2.7"})" );

// Every kind of rule (static, twice, dynamic; source and destination; with ports, which
// gives fragment entries; multicast), the multicast mode and a trap ACL with implicit
// deny, on two modules.
json const everything = json::parse( R"([
   {"mcastMode": {"types": [5, 1, 2]}},
   {"natRule": {"uid": 1, "key": {"type": 1, "srcOld": "10.0.0.1:1024",
                "srcNew": "203.0.113.1:2048"}, "data": {"protocol": 6, "nextHop": 3}}},
   {"natRule": {"uid": 2, "key": {"type": 2, "dstOld": "203.0.113.80:80",
                "dstNew": "10.0.0.80:8080"},
                "data": {"protocol": 6, "nextHop": 5, "vlans": [10, 20]}, "field": 9}},
   {"natRule": {"uid": 3, "key": {"type": 3, "srcOld": "10.0.0.3",
                "dstOld": "198.51.100.7", "srcNew": "203.0.113.3", "dstNew": "192.0.2.7"},
                "data": {"nextHop": "0x8000002"}}},
   {"natRule": {"uid": 4, "key": {"type": 4, "srcOld": "192.0.2.7", "dstOld": "203.0.113.3",
                "srcNew": "198.51.100.7", "dstNew": "10.0.0.3"},
                "data": {"nextHop": 6, "vlans": [10]}}},
   {"natRule": {"uid": 5, "key": {"type": 5, "srcOld": "10.0.0.5", "srcNew": "203.0.113.5",
                "proto": 6}}},
   {"natRule": {"uid": 6, "key": {"type": 6, "dstOld": "203.0.113.6", "dstNew": "10.0.0.6"},
                "data": {"nextHop": 7, "vlans": [10]}}},
   {"natRule": {"uid": 7, "mcastUid": 70, "key": {"type": 2, "dstOld": "232.1.1.1",
                "dstNew": "232.2.2.2"}, "data": {"multicast": true, "mcastGroupId": 12,
                "egressIntfs": [3, 4], "vlans": [30]}}},
   {"trapAcl": {"name": "inside", "vlan": 10, "implicitDeny": true, "rules": [
       {"seq": 10, "permit": true, "src": "10.0.0.0/8"},
       {"seq": 20, "permit": false, "src": "10.9.0.0/16"},
       {"seq": 30, "permit": true, "src": "0.0.0.0/0", "dst": "203.0.113.0/24",
        "pool": true}]}},
   {"packet": {"src": "192.0.2.50", "dst": "203.0.113.80", "sport": 40000, "dport": 80,
               "vlan": 10, "count": 3}}
])" );

json const restart = json::array( { { { "restart", json::object() } } } );

// What the chip holds, without what a restart may change: entry ids and hit counters.
// Per unit, the entries sorted by their text, and the memories, registers and controls.
json chipModuloIds( json const& result ) {
   json out = json::object();
   for ( auto const& unit : result["chip"] ) {
      std::vector<std::string> entries;
      for ( json entry : unit["entries"] ) {
         entry.erase( "id" );
         entry.erase( "hits" );
         entries.push_back( entry.dump() );
      }
      std::sort( entries.begin(), entries.end() );
      json u = unit;
      u["entries"] = entries;
      out[std::to_string( unit["unit"].get<int>() )] = u;
   }
   return out;
}

// The ids of the chip's entries per unit.
std::map<int, std::set<U32>> entryIds( json const& result ) {
   std::map<int, std::set<U32>> ids;
   for ( auto const& unit : result["chip"] ) {
      for ( auto const& entry : unit["entries"] ) {
         ids[unit["unit"]].insert( entry["id"].get<U32>() );
      }
   }
   return ids;
}

// The journal records of one step.
std::vector<json> journalOf( json const& result, int step ) {
   std::vector<json> records;
   for ( auto const& record : result["journal"] ) {
      if ( record["step"] == step ) {
         records.push_back( record );
      }
   }
   return records;
}

// (module, uid, result, field) of every answer from step `from` on, sorted (modules
// answer in the order of the module map, which a restart may change).
std::vector<std::string> answersFrom( json const& result, int from ) {
   std::vector<std::string> answers;
   for ( auto const& a : result["answers"] ) {
      if ( a["step"].get<int>() >= from ) {
         json copy = a;
         copy.erase( "step" );
         answers.push_back( copy.dump() );
      }
   }
   std::sort( answers.begin(), answers.end() );
   return answers;
}

TEST( Restart, RebuildsEveryEntryThenReleasesTheOldOnes ) {
   Played const before = natsim( scenario( everything ) );
   Played const after = natsim( scenario( concat( everything, restart ) ) );
   ASSERT_EQ( before.status, 0 ) << before.err;
   ASSERT_EQ( after.status, 0 ) << after.err;
   int const restartStep = static_cast<int>( everything.size() );

   EXPECT_EQ( chipModuloIds( after.result ), chipModuloIds( before.result ) );
   auto const oldIds = entryIds( before.result );
   auto const newIds = entryIds( after.result );
   ASSERT_EQ( oldIds.size(), 2u );
   for ( auto const& unit : newIds ) {
      std::vector<U32> common;
      std::set_intersection(
          unit.second.begin(), unit.second.end(), oldIds.at( unit.first ).begin(),
          oldIds.at( unit.first ).end(), std::back_inserter( common ) );
      EXPECT_TRUE( common.empty() ) << "unit " << unit.first << ": every entry is new";
   }

   // The restart takes a new entry for each one the chip had and installs them all
   // before it releases any old one; it releases exactly the old ones.
   std::map<int, std::set<U32>> taken, released;
   std::size_t lastInstall = 0, firstRelease = 0, index = 0;
   for ( auto const& record : journalOf( after.result, restartStep ) ) {
      ++index;
      if ( record["call"] == "getEntry" ) {
         taken[record["unit"]].insert( record["entry"].get<U32>() );
      } else if ( record["call"] == "installEntry" ) {
         lastInstall = index;
      } else if ( record["call"] == "releaseEntry" ) {
         released[record["unit"]].insert( record["entry"].get<U32>() );
         firstRelease = firstRelease ? firstRelease : index;
      }
   }
   EXPECT_EQ( taken, newIds );
   EXPECT_EQ( released, oldIds );
   EXPECT_LT( lastInstall, firstRelease );

   // Every transaction is answered again by both modules, with its request field.
   std::vector<std::string> expected;
   for ( int module : { 1, 2 } ) {
      for ( int uid = 1; uid <= 7; ++uid ) {
         expected.push_back( json( { { "module", module },
                                     { "uid", uid },
                                     { "result", 1 },
                                     { "field", uid == 2 ? 9 : 0 } } )
                                 .dump() );
      }
   }
   std::sort( expected.begin(), expected.end() );
   EXPECT_EQ( answersFrom( after.result, restartStep ), expected );

   // Nothing is left over: what the NAT group has allocated is what the chip holds.
   for ( auto const& row : after.result["capacity"] ) {
      if ( row["entry"] == "NAT" ) {
         int const unit = row["chip"] == "Chip1" ? 1 : 2;
         EXPECT_EQ( row["used"].get<std::size_t>(), newIds.at( unit ).size() );
         EXPECT_EQ( row["used"].get<U32>() + row["free"].get<U32>(), 64u );
      }
   }
   EXPECT_TRUE( after.result["problems"].empty() );
}

TEST( Restart, TheRestartedAgentVerifiesAndTakesNewRulesAndRemovals ) {
   json const later = json::parse( R"([
      {"verify": 1}, {"verify": 2},
      {"natRule": {"uid": 8, "key": {"type": 1, "srcOld": "10.0.0.8:80",
                   "srcNew": "203.0.113.8:8080"}}},
      {"natRule": {"uid": 2, "key": {"type": 2, "dstOld": "203.0.113.80:80",
                   "dstNew": "10.0.0.80:8080"},
                   "data": {"protocol": 6, "nextHop": 5, "vlans": [20, 40]}}},
      {"packet": {"src": "192.0.2.50", "dst": "203.0.113.80", "sport": 40000,
                  "dport": 80, "vlan": 40}},
      {"verify": 1}, {"verify": 2}])" );
   json removal = json::array(
       { { { "natRuleRemove", { { "uid", 3 }, { "key", removedKey } } } } } );
   json const steps =
       concat( later, concat( removal, json::parse( R"([{"verify": 1}])" ) ) );

   Played const plain = natsim( scenario( concat( everything, steps ) ) );
   Played const restarted =
       natsim( scenario( concat( concat( everything, restart ), steps ) ) );
   ASSERT_EQ( plain.status, 0 ) << plain.err;
   ASSERT_EQ( restarted.status, 0 ) << restarted.err;
   EXPECT_EQ( chipModuloIds( restarted.result ), chipModuloIds( plain.result ) );
   int const first = static_cast<int>( everything.size() );
   EXPECT_EQ( answersFrom( restarted.result, first + 1 ),
              answersFrom( plain.result, first ) );
   EXPECT_EQ( restarted.result["packets"].back()["description"],
              plain.result["packets"].back()["description"] );
   EXPECT_NE( restarted.result["packets"].back()["entry"], 0 );
   EXPECT_TRUE( restarted.result["problems"].empty() );
}

TEST( Restart, OldEntriesTakeTheTrafficUntilTheNewAgentIsUp ) {
   // With the mount group down, the restarted agent cannot program yet: the chip keeps
   // the old entry installed.
   Played const run = natsim( scenario( json::parse( R"([
      {"natRule": {"uid": 1, "key": {"type": 1, "srcOld": "10.0.0.1",
                   "srcNew": "203.0.113.1"}}},
      {"mountGroupReady": false},
      {"restart": {}},
      {"packet": {"src": "10.0.0.1", "count": 2}},
      {"mountGroupReady": true},
      {"packet": {"src": "10.0.0.1"}}])" ),
                                        { { "modules", { { "1", 1 } } } } ) );
   ASSERT_EQ( run.status, 0 ) << run.err;
   json const& packets = run.result["packets"];
   ASSERT_EQ( packets.size(), 2u );
   U32 const oldEntry = packets[0]["entry"];
   U32 const newEntry = packets[1]["entry"];
   EXPECT_NE( oldEntry, 0u );
   EXPECT_NE( newEntry, 0u );
   EXPECT_NE( oldEntry, newEntry );
   EXPECT_EQ( packets[0]["description"], packets[1]["description"] );
   EXPECT_EQ( packets[0]["actions"], packets[1]["actions"] );

   EXPECT_TRUE( journalOf( run.result, 2 ).empty() ) << "the restart itself waits";
   std::vector<std::string> calls;
   for ( auto const& record : journalOf( run.result, 4 ) ) {
      std::string call = record["call"];
      if ( call == "getEntry" || call == "installEntry" || call == "releaseEntry" ) {
         calls.push_back( call + " " + std::to_string( record["entry"].get<U32>() ) );
      }
   }
   EXPECT_EQ( calls, ( std::vector<std::string>{
                         "getEntry " + std::to_string( newEntry ),
                         "installEntry " + std::to_string( newEntry ),
                         "releaseEntry " + std::to_string( oldEntry ) } ) );
   ASSERT_EQ( run.result["chip"][0]["entries"].size(), 1u );
   EXPECT_EQ( run.result["chip"][0]["entries"][0]["hits"], 1 )
       << "the old entry's hits went with it";
}

TEST( Restart, APendingTransactionIsAnsweredAfterTheRestart ) {
   // The flash download is not done: the rule waits, unanswered, across the restart.
   Played const run = natsim(
       scenario( json::parse( R"([
      {"natRule": {"uid": 1, "key": {"type": 1, "srcOld": "10.0.0.1",
                   "srcNew": "203.0.113.1"}, "field": 7}},
      {"restart": {}},
      {"flashDownload": {"req": 3}},
      {"verify": 1}])" ),
                 { { "modules", { { "1", 1 } } }, { "flashDownloadDone", false } } ) );
   ASSERT_EQ( run.status, 0 ) << run.err;
   EXPECT_EQ( run.result["answers"], json::parse( R"([
      {"step": 2, "module": 1, "uid": 1, "result": 1, "field": 7}])" ) );
   ASSERT_EQ( run.result["chip"][0]["entries"].size(), 1u );
   EXPECT_EQ( run.result["chip"][0]["entries"][0]["description"],
              "static SNAT  10.0.0.1 -> 203.0.113.1 " );
}

TEST( Restart, PendingRuleAndRemovalAreAnsweredAfterTheRestart ) {
   // With the mount group down, a new rule and a removal wait across the restart.
   Played const run = natsim( scenario( json::parse( R"([
      {"natRule": {"uid": 1, "key": {"type": 1, "srcOld": "10.0.0.1",
                   "srcNew": "203.0.113.1"}}},
      {"natRule": {"uid": 2, "key": {"type": 1, "srcOld": "10.0.0.2",
                   "srcNew": "203.0.113.2"}}},
      {"mountGroupReady": false},
      {"natRuleRemove": {"uid": 2, "key": {"type": 1, "srcOld": "10.0.0.2",
                         "srcNew": "203.0.113.2"}, "field": 4}},
      {"natRule": {"uid": 3, "key": {"type": 1, "srcOld": "10.0.0.3",
                   "srcNew": "203.0.113.3"}, "field": 5}},
      {"restart": {}},
      {"mountGroupReady": true},
      {"verify": 1}])" ),
                                        { { "modules", { { "1", 1 } } } } ) );
   ASSERT_EQ( run.status, 0 ) << run.err;
   EXPECT_EQ(
       answersFrom( run.result, 2 ),
       ( std::vector<std::string>{ R"({"field":0,"module":1,"result":1,"uid":1})",
                                   R"({"field":4,"module":1,"result":1,"uid":2})",
                                   R"({"field":5,"module":1,"result":1,"uid":3})" } ) );
   for ( auto const& a : run.result["answers"] ) {
      EXPECT_TRUE( a["step"] < 2 || a["step"] == 6 ) << a;
   }
   std::vector<std::string> descriptions;
   for ( auto const& entry : run.result["chip"][0]["entries"] ) {
      descriptions.push_back( entry["description"] );
   }
   std::sort( descriptions.begin(), descriptions.end() );
   EXPECT_EQ( descriptions,
              ( std::vector<std::string>{ "static SNAT  10.0.0.1 -> 203.0.113.1 ",
                                          "static SNAT  10.0.0.3 -> 203.0.113.3 " } ) );
}

// The step always restarts hitlessly, whatever the chip's flag said at start, and the
// phase ends with it: module sets count again, and a clean shadow entry is an error.
class RestartPhase : public ::testing::TestWithParam<bool> {};

TEST_P( RestartPhase, EndsWithTheRestart ) {
   json const chip = { { "hitlessRestart", GetParam() } };
   json const steps = json::parse( R"([
      {"natRule": {"uid": 1, "key": {"type": 1, "srcOld": "10.0.0.1",
                   "srcNew": "203.0.113.1"}}},
      {"restart": {}},
      {"natRule": {"uid": 2, "key": {"type": 1, "srcOld": "10.0.0.2",
                   "srcNew": "203.0.113.2"}, "modules": [1]}}])" );
   Played const run = natsim( scenario( steps, chip ) );
   ASSERT_EQ( run.status, 0 ) << run.err;
   EXPECT_EQ(
       answersFrom( run.result, 2 ),
       std::vector<std::string>{ R"({"field":0,"module":1,"result":1,"uid":2})" } );
   EXPECT_EQ( run.result["chip"][0]["entries"].size(), 2u );
   EXPECT_EQ( run.result["chip"][1]["entries"].size(), 1u );

   json clean = steps;
   clean[2]["natRule"]["dirty"] = 0;
   clean[2]["natRule"].erase( "modules" );
   Played const stopped = natsim( scenario( clean, chip ) );
   EXPECT_NE( stopped.status, 0 );
   EXPECT_NE( stopped.err.find( "invalid hw access with clean shadow" ),
              std::string::npos )
       << stopped.err;
}

INSTANTIATE_TEST_SUITE_P( ChipFlag, RestartPhase, ::testing::Bool() );

}  // namespace
