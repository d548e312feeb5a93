// The trap filters at work, seen as natsim shows them: packets enter the chip and the
// result names the entry each one matched and that entry's actions.

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include <nlohmann/json.hpp>

#include "tools/natsim/ResultText.h"
#include "tools/natsim/Simulation.h"

namespace {

typedef nlohmann::ordered_json Json;

// Plays a scenario through the NAT plug-in and returns natsim's result document.
Json play( std::string const& text ) {
   natsim::Scenario scenario;
   natsim::ScenarioError error;
   EXPECT_TRUE( natsim::parseScenario( text, &scenario, &error ) ) << error.message;
   natsim::Options options;
   options.pluginPath = NAT_PLUGIN_PATH;
   natsim::Simulation simulation( std::move( scenario ), options );
   std::string why;
   EXPECT_TRUE( simulation.start( &why ) ) << why;
   simulation.play();
   std::ostringstream result;
   natsim::writeResult( result, simulation, true );
   return Json::parse( result.str() );
}

bool hasAction( Json const& packet, std::string const& action ) {
   for ( auto const& a : packet["actions"] ) {
      if ( a[0] == action ) {
         return true;
      }
   }
   return false;
}

bool toCpu( Json const& packet ) {
   return hasAction( packet, "bcmFieldActionCopyToCpu" ) &&
          hasAction( packet, "bcmFieldActionDrop" );
}

// A permitted inside network, a NAT pool for return traffic, implicit deny; packets of
// one TCP flow, first without and then with an exact-match hit.
std::string const trapScenario = R"({
  "chip": {"modules": {"1": 1}},
  "steps": [
    {"trapAcl": {"name": "inside", "vlan": 10, "implicitDeny": true, "rules": [
       {"seq": 5, "permit": false, "src": "10.9.0.0/16"},
       {"seq": 10, "permit": true, "src": "10.0.0.0/8", "dst": "0.0.0.0/0"},
       {"seq": 20, "permit": true, "src": "0.0.0.0/0", "dst": "203.0.113.0/24",
        "pool": true}]}},
    {"packet": {"src": "10.1.2.3", "dst": "192.0.2.10", "sport": 33000, "dport": 443}},
    {"packet": {"src": "10.1.2.3", "dst": "192.0.2.10", "sport": 33000, "dport": 443,
                "emHit": true, "tcp": ["ACK"]}},
    {"packet": {"src": "10.1.2.3", "dst": "192.0.2.10", "sport": 33000, "dport": 443,
                "emHit": true, "tcp": ["SYN"]}},
    {"packet": {"src": "10.1.2.3", "dst": "192.0.2.10", "sport": 33000, "dport": 443,
                "emHit": true, "tcp": ["FIN", "ACK"]}},
    {"packet": {"src": "10.1.2.3", "dst": "192.0.2.10", "sport": 33000, "dport": 443,
                "emHit": true, "tcp": ["RST"]}},
    {"packet": {"src": "192.0.2.10", "dst": "203.0.113.5", "sport": 443, "dport": 40000,
                "emHit": true, "tcp": ["ACK"]}},
    {"packet": {"src": "192.0.2.10", "dst": "203.0.113.5", "sport": 443, "dport": 40000}},
    {"packet": {"src": "172.16.0.1", "dst": "192.0.2.10", "emHit": true}},
    {"packet": {"src": "10.1.2.3", "dst": "192.0.2.10", "emHit": true, "srcClass": 8}},
    {"packet": {"src": "10.9.0.1", "dst": "192.0.2.10", "proto": 17, "emHit": true}},
    {"packet": {"src": "172.16.0.1", "dst": "192.0.2.10", "proto": 17}},
    {"packet": {"src": "172.16.0.1", "dst": "203.0.113.7", "proto": 17, "emHit": true}},
    {"packet": {"src": "192.0.2.10", "dst": "203.0.113.5", "emHit": true, "tcp": ["SYN"]}}
  ]})";

TEST( TrapPackets, FirstPacketsGoToTheCpuTranslatedFlowsSkipItTcpControlReachesIt ) {
   Json const result = play( trapScenario );
   Json const& packets = result["packets"];
   ASSERT_EQ( packets.size(), 13u ) << result.dump( 2 );

   // The first packet of a permitted flow: no exact-match hit yet, so the CPU sets the
   // flow up.
   EXPECT_EQ( packets[0]["description"], "NAT acl:  !EM_HIT src=10.0.0.0/8 IP => CPU" );
   EXPECT_TRUE( toCpu( packets[0] ) );

   // The flow is translated (hit): its data packets go on to the NAT lookup.
   EXPECT_EQ( packets[1]["description"], "NAT acl:   EM_HIT src=10.0.0.0/8 IP => Nat" );
   EXPECT_FALSE( hasAction( packets[1], "bcmFieldActionCopyToCpu" ) );

   // SYN, FIN and RST of the translated flow still reach the CPU, which tracks the
   // connection's state.
   char const* const flags[] = { "SYN", "FIN", "RST" };
   for ( int i = 0; i < 3; ++i ) {
      Json const& p = packets[2 + i];
      EXPECT_EQ( p["description"], std::string( "NAT acl:   EM_HIT src=10.0.0.0/8 " ) +
                                       flags[i] + " => CPU" );
      EXPECT_TRUE( toCpu( p ) ) << flags[i];
   }

   // Return traffic towards the pool: data of a translated flow skips the CPU, a first
   // packet goes to it.
   EXPECT_EQ( packets[5]["description"],
              "NAT pool:  EM_HIT dst=203.0.113.0/24 TCP_DATA => Skip CPU" );
   EXPECT_TRUE( hasAction( packets[5], "bcmFieldActionCopyToCpuCancel" ) );
   EXPECT_FALSE( toCpu( packets[5] ) );
   EXPECT_EQ( packets[6]["description"],
              "NAT pool: !EM_HIT dst=203.0.113.0/24 IP => CPU" );
   EXPECT_TRUE( toCpu( packets[6] ) );

   // Nothing permits this source: the implicit deny keeps it from being translated.
   EXPECT_EQ( packets[7]["description"], "NAT acl:   EM_HIT Implicit deny =>" );
   EXPECT_TRUE( hasAction( packets[7], "bcmFieldActionAssignExtractionCtrlId" ) );
   EXPECT_FALSE( toCpu( packets[7] ) );

   // A packet the VFP stage dropped meets no NAT entry; the earlier rule wins; without
   // a hit, what no rule matches meets nothing.
   EXPECT_EQ( packets[8]["entry"], 0 );
   EXPECT_EQ( packets[9]["description"],
              "NAT acl:   EM_HIT src=10.9.0.0/16 deny => SkipNat" );
   EXPECT_EQ( packets[10]["entry"], 0 );
   // Towards the pool, translated data that is not TCP skips the CPU; a TCP control
   // packet reaches it.
   EXPECT_EQ( packets[11]["description"],
              "NAT pool:  EM_HIT dst=203.0.113.0/24 IP => Skip CPU" );
   EXPECT_EQ( packets[12]["description"],
              "NAT pool:  EM_HIT dst=203.0.113.0/24 TCP_CTRL => CPU" );
   EXPECT_TRUE( toCpu( packets[12] ) );
}

}  // namespace
