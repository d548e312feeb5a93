// The restart step as a user sees it in natsim's result document, with the NAT plug-in:
// the restarted agent rebuilds exactly the entries the chip held (modulo ids), the old
// entries keep taking traffic until the new ones are in and are then released, nothing
// is left over, and transactions pending at the restart are answered after it. (The
// hitless-init phase itself: tests/CorvaneNat/NatCommitTest.cpp.)

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "NatsimProcess.h"

namespace {

using nlohmann::json;

struct Played {
   int status;
   json result;  // the result document when natsim finished
   std::string err;
};

// Plays `steps` with natsim and the NAT plug-in on a chip of 64 entries per unit (two
// modules unless `chip` says otherwise), fragments on.
Played natsim( json const& steps, json chip = json::object() ) {
   if ( !chip.contains( "modules" ) ) {
      chip["modules"] = { { "1", 1 }, { "2", 2 } };
   }
   chip["tcamEntries"] = 64;
   json const scenario = {
       { "chip", chip }, { "nat", { { "fragmentEnabled", true } } }, { "steps", steps } };
   NatsimProcess::Outcome const run =
       NatsimProcess::natsimRun( scenario.dump(), "--json" );
   return { run.status, run.status == 0 ? json::parse( run.out ) : json(), run.err };
}

json concat( json a, json const& b ) {
   a.insert( a.end(), b.begin(), b.end() );
   return a;
}

// Every kind of rule (static, twice, dynamic; source and destination; with ports, which
// gives fragment entries; multicast), the multicast mode and a trap ACL with implicit
// deny, on two modules: examples/restart.json up to its restart, uid 2 asking with
// field 9.
json const everything = [] {
   json steps =
       json::parse( NatsimProcess::readFile( EXAMPLES_DIR "/restart.json" ) )["steps"];
   steps.erase(
       std::find( steps.begin(), steps.end(), json::parse( R"({"restart": {}})" ) ),
       steps.end() );
   steps[2]["natRule"]["field"] = 9;
   return steps;
}();

// What the chip holds, without what a restart may change: entry ids and hit counters.
// Per unit, the entries sorted by their text, and the memories, registers and controls.
json chipModuloIds( json chip ) {
   for ( json& unit : chip ) {
      std::vector<std::string> entries;
      for ( json& entry : unit["entries"] ) {
         entry.erase( "id" );
         entry.erase( "hits" );
         entries.push_back( entry.dump() );
      }
      std::sort( entries.begin(), entries.end() );
      unit["entries"] = entries;
   }
   return chip;
}

// The ids of the chip's entries per unit.
std::map<int, std::set<unsigned>> entryIds( json const& result ) {
   std::map<int, std::set<unsigned>> ids;
   for ( auto const& unit : result["chip"] ) {
      for ( auto const& entry : unit["entries"] ) {
         ids[unit["unit"]].insert( entry["id"].get<unsigned>() );
      }
   }
   return ids;
}

// (module, uid, result, field) of every answer of steps `from`..`to`, sorted (modules
// answer in the order of the module map, which a restart may change).
std::vector<std::string> answers( json const& result, int from, int to = 1000 ) {
   std::vector<std::string> texts;
   for ( json a : result["answers"] ) {
      if ( a["step"] >= from && a["step"] <= to ) {
         a.erase( "step" );
         texts.push_back( a.dump() );
      }
   }
   std::sort( texts.begin(), texts.end() );
   return texts;
}

std::string answer( int module, int uid, int field ) {
   return json( { { "module", module },
                  { "uid", uid },
                  { "result", 1 },
                  { "field", field } } )
       .dump();
}

// The restarted agent rebuilds what the chip held, answers every transaction again,
// verifies, and takes new rules and removals: it ends as an agent that never restarted.
TEST( Restart, RebuildsEveryEntryThenReleasesTheOldOnesAndGoesOnAsBefore ) {
   json const later = json::parse( R"([
      {"verify": 1}, {"verify": 2},
      {"natRule": {"uid": 8, "key": {"type": 1, "srcOld": "10.0.0.8:80",
                   "srcNew": "203.0.113.8:8080"}}},
      {"natRule": {"uid": 2, "key": {"type": 2, "dstOld": "203.0.113.80:80",
                   "dstNew": "10.0.0.80:8080"},
                   "data": {"protocol": 6, "nextHop": 5, "vlans": [20, 40]}}},
      {"packet": {"src": "192.0.2.50", "dst": "203.0.113.80", "sport": 40000,
                  "dport": 80, "vlan": 40}},
      {"verify": 1}, {"verify": 2},
      {"natRuleRemove": {"uid": 3, "key": {"type": 3, "srcOld": "10.0.0.3",
                         "dstOld": "198.51.100.7", "srcNew": "203.0.113.3",
                         "dstNew": "192.0.2.7"}}},
      {"verify": 1}])" );
   Played const before = natsim( everything );
   Played const plain = natsim( concat( everything, later ) );
   Played const restarted = natsim(
       concat( concat( everything, json::parse( R"([{"restart": {}}])" ) ), later ) );
   ASSERT_EQ( before.status, 0 ) << before.err;
   ASSERT_EQ( plain.status, 0 ) << plain.err;
   ASSERT_EQ( restarted.status, 0 ) << restarted.err;
   int const restartStep = static_cast<int>( everything.size() );

   // The restart takes a new entry for each one the chip had and installs them all
   // before it releases any old one; it releases exactly the old ones.
   auto const oldIds = entryIds( before.result );
   ASSERT_EQ( oldIds.size(), 2u );
   std::map<int, std::set<unsigned>> taken, released;
   std::size_t lastInstall = 0, firstRelease = 0, index = 0;
   for ( auto const& record : restarted.result["journal"] ) {
      if ( record["step"] != restartStep ) {
         continue;
      }
      ++index;
      if ( record["call"] == "getEntry" ) {
         taken[record["unit"]].insert( record["entry"].get<unsigned>() );
      } else if ( record["call"] == "installEntry" ) {
         lastInstall = index;
      } else if ( record["call"] == "releaseEntry" ) {
         released[record["unit"]].insert( record["entry"].get<unsigned>() );
         firstRelease = firstRelease ? firstRelease : index;
      }
   }
   EXPECT_EQ( released, oldIds );
   for ( auto const& [unit, ids] : oldIds ) {
      EXPECT_EQ( taken[unit].size(), ids.size() ) << "unit " << unit;
   }
   EXPECT_LT( lastInstall, firstRelease );

   // Every transaction is answered again by both modules, with its request field.
   std::vector<std::string> expected;
   for ( int module : { 1, 2 } ) {
      for ( int uid = 1; uid <= 7; ++uid ) {
         expected.push_back( answer( module, uid, uid == 2 ? 9 : 0 ) );
      }
   }
   std::sort( expected.begin(), expected.end() );
   EXPECT_EQ( answers( restarted.result, restartStep, restartStep ), expected );

   EXPECT_EQ( chipModuloIds( restarted.result["chip"] ),
              chipModuloIds( plain.result["chip"] ) );
   EXPECT_EQ( answers( restarted.result, restartStep + 1 ),
              answers( plain.result, restartStep ) );
   EXPECT_EQ( restarted.result["packets"].back()["description"],
              plain.result["packets"].back()["description"] );
   EXPECT_NE( restarted.result["packets"].back()["entry"], 0 );
   // Nothing is left over: what the NAT group has allocated is what the chip holds.
   auto const newIds = entryIds( restarted.result );
   for ( auto const& row : restarted.result["capacity"] ) {
      if ( row["entry"] == "NAT" ) {
         int const unit = row["chip"] == "Chip1" ? 1 : 2;
         EXPECT_EQ( row["used"].get<std::size_t>(), newIds.at( unit ).size() );
         EXPECT_EQ( row["used"].get<unsigned>() + row["free"].get<unsigned>(), 64u );
      }
   }
   EXPECT_TRUE( restarted.result["problems"].empty() );
}

// With the mount group down, the restarted agent cannot program yet: the chip keeps the
// old entries installed and taking traffic, and a removal and a new rule wait
// unanswered until the group is up.
TEST( Restart, OldEntriesTakeTheTrafficAndTransactionsWaitUntilTheNewAgentIsUp ) {
   Played const run = natsim( json::parse( R"([
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
      {"packet": {"src": "10.0.0.1", "count": 2}},
      {"mountGroupReady": true},
      {"packet": {"src": "10.0.0.1"}},
      {"verify": 1}])" ),
                              { { "modules", { { "1", 1 } } } } );
   ASSERT_EQ( run.status, 0 ) << run.err;
   json const& packets = run.result["packets"];
   ASSERT_EQ( packets.size(), 2u );
   unsigned const oldEntry = packets[0]["entry"];
   unsigned const newEntry = packets[1]["entry"];
   EXPECT_TRUE( oldEntry != 0 && newEntry != 0 && oldEntry != newEntry );
   EXPECT_EQ( packets[0]["description"], packets[1]["description"] );
   EXPECT_EQ( packets[0]["actions"], packets[1]["actions"] );

   std::vector<std::string> calls;
   for ( auto const& record : run.result["journal"] ) {
      EXPECT_NE( record["step"], 5 ) << "the restart itself waits";
      std::string const call = record["call"];
      unsigned const entry = record.value( "entry", 0u );
      if ( record["step"] == 7 && ( entry == oldEntry || entry == newEntry ) &&
           ( call == "getEntry" || call == "installEntry" || call == "releaseEntry" ) ) {
         calls.push_back( call + " " + std::to_string( entry ) );
      }
   }
   EXPECT_EQ( calls, ( std::vector<std::string>{
                         "getEntry " + std::to_string( newEntry ),
                         "installEntry " + std::to_string( newEntry ),
                         "releaseEntry " + std::to_string( oldEntry ) } ) );

   EXPECT_EQ( answers( run.result, 2 ),
              ( std::vector<std::string>{ answer( 1, 1, 0 ), answer( 1, 2, 4 ),
                                          answer( 1, 3, 5 ) } ) );
   EXPECT_EQ( answers( run.result, 2, 7 ), answers( run.result, 7, 7 ) ) << "all at 7";
   std::vector<std::string> entries;
   for ( auto const& entry : run.result["chip"][0]["entries"] ) {
      entries.push_back( entry["description"].get<std::string>() + " hits " +
                         std::to_string( entry["hits"].get<int>() ) );
   }
   std::sort( entries.begin(), entries.end() );
   EXPECT_EQ( entries, ( std::vector<std::string>{
                           "static SNAT  10.0.0.1 -> 203.0.113.1  hits 1",
                           "static SNAT  10.0.0.3 -> 203.0.113.3  hits 0" } ) )
       << "the old entry's hits went with it";
}

}  // namespace
