// Reading natsim scenarios in the process: the values every step kind carries and the
// path and message of each kind of fault. (BadInputTest.cpp runs natsim on bad files and
// checks the whole line it prints; ServeTest.cpp reads single steps.)

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>

#include "tools/natsim/Scenario.h"

namespace {

using natsim::Scenario;
using natsim::ScenarioError;
using Wirel::IpAddr;
using Wirel::IpAddrWithFullMask;
using Wirel::IpAndPort;

Scenario parsed( std::string const& text ) {
   Scenario scenario;
   ScenarioError error;
   EXPECT_TRUE( natsim::parseScenario( text, &scenario, &error ) ) << error.what();
   return scenario;
}

// "<path>: <message>" of the fault in `text`.
std::string faultOf( std::string const& text ) {
   Scenario scenario;
   ScenarioError error;
   EXPECT_FALSE( natsim::parseScenario( text, &scenario, &error ) ) << text;
   return ( error.path.empty() ? "" : error.path + ": " ) + error.message;
}

std::string oneStep( std::string const& step ) {
   return R"({"steps": [)" + step + "]}";
}

// A JSON list of the numbers 1..n.
std::string numbers( int n ) {
   std::string list = "[1";
   for ( int i = 2; i <= n; ++i ) {
      list += "," + std::to_string( i );
   }
   return list + "]";
}

IpAddr ip( char const* text ) {
   IpAddr address;
   EXPECT_TRUE( IpAddr::fromString( text, address ) );
   return address;
}

// Every step kind and member is read. Values are checked for the steps that carry
// records (rule, removal, ACL, packet, failure); the others are seen where natsim plays
// them.
TEST( ScenarioTest, EveryStepKindCarriesItsValues ) {
   Scenario const s = parsed( R"({"steps": [
         {"natRule": {"uid": 4294967295, "mcastUid": 7,
                      "key": {"type": 3, "srcOld": "10.0.0.1:80", "srcNew": "1.1.1.1",
                              "dstOld": "2.2.2.2:65535", "reverse": true, "proto": 17,
                              "faId": 9, "aclId": 11},
                      "data": {"protocol": 6, "filterAddr": "10.1.0.0/24",
                               "numFilterAddrs": 4, "nextHop": "0xFFFFFFFFFFFFFFFF",
                               "vlans": [10, 65535], "staticAclSharing": true,
                               "mcastGroupId": 5, "multicast": true,
                               "egressIntfs": [18446744073709551615, 3], "ingress": true},
                      "modules": [], "dirty": 2, "field": 8}},
         {"natRuleRemove": {"uid": 1, "key": {"type": 1}, "field": 3}},
         {"trapAcl": {"name": "a", "vlan": 10, "implicitDeny": true,
                      "rules": [{"seq": 20, "permit": false, "src": "10.0.0.7/32",
                                 "dst": "192.168.0.0/16", "pool": true}, {}]}},
         {"trapAclRemove": {"name": "a", "vlan": 10}}, {"mcastMode": {"types": []}},
         {"module": {"modId": 2, "unit": 3}}, {"moduleRemove": 2},
         {"mountGroupReady": false}, {"flashDownload": {"req": 3, "done": false}},
         {"fragmentEnabled": true},
         {"packet": {"unit": 2, "src": "1.2.3.4", "dst": "5.6.7.8", "proto": 17,
                     "sport": 0, "dport": 65535, "vlan": 4095, "frag": "notFirst",
                     "tcp": ["SYN", "ACK", "SYN", "URG"], "emHit": true,
                     "myStation": false, "srcClass": 12, "count": 1000}},
         {"advance": 10.5}, {"show": "ShowCorvaneNatSlice"}, {"verify": 1},
         {"sdkFailure": {"call": "soc_mem_write", "rc": -2147483648, "nth": 7}},
         {"restart": {}}],
      "agent": "Other",
      "chip": {"natSupported": false, "modules": {"1": 1, "2": 2}, "tcamEntries": 3,
               "pipes": 4, "trapFilters": false, "hitCounters": false, "familyTest": true,
               "hitlessRestart": true, "mountGroupReady": false,
               "flashDownloadDone": false},
      "nat": {"addrOnlyMode": true, "fragmentEnabled": true}})" );
   natsim::ChipConfig const& c = s.chip;
   EXPECT_EQ( std::tie( s.agent, c.natSupported, c.tcamEntries, c.pipes, c.trapFilters,
                        c.hitCounters, c.familyTest, c.hitlessRestart, c.mountGroupReady,
                        c.flashDownloadDone, s.nat.addrOnlyMode, s.nat.fragmentEnabled ),
              std::make_tuple( "Other", false, 3u, 4u, false, false, true, true, false,
                               false, true, true ) );
   EXPECT_EQ( c.modules, ( std::map<U16, U16>{ { 1, 1 }, { 2, 2 } } ) );
   ASSERT_EQ( s.steps.size(), 16u );

   auto const& rule = std::get<natsim::NatRuleStep>( s.steps[0] );
   EXPECT_EQ( std::tie( rule.uid, rule.mcastUid, rule.dirty, rule.field ),
              std::make_tuple( 4294967295u, 7, 2u, 8u ) );
   EXPECT_EQ( rule.key, Oro::NatHwKey( Oro::NatHwKey::twiceNatSrc,
                                       IpAndPort( ip( "10.0.0.1" ), 80 ),
                                       IpAndPort( ip( "1.1.1.1" ), 0 ),
                                       IpAndPort( ip( "2.2.2.2" ), 65535 ), IpAndPort(),
                                       true, 17, 9, Oro::NatAclId( 11 ) ) );
   Oro::NatHwData data( 6, IpAddrWithFullMask( ip( "10.1.0.0" ), 0xffffff00u ), 4, ~0ull,
                        true, 5, true, true );
   data.vlanIdAppend( 10 );
   data.vlanIdAppend( 65535 );
   data.egressIntfAppend( Wirel::IntfId( ~0ull ) );
   data.egressIntfAppend( Wirel::IntfId( 3 ) );
   EXPECT_EQ( rule.data, data );
   EXPECT_TRUE( rule.modules.empty() );
   auto const& remove = std::get<natsim::NatRuleRemoveStep>( s.steps[1] );
   EXPECT_EQ( remove.key.keyType(), Oro::NatHwKey::staticSrcNat );
   EXPECT_EQ( remove.field, 3u );

   auto const& acl = std::get<natsim::TrapAclStep>( s.steps[2] );
   EXPECT_TRUE( acl.implicitDeny );
   ASSERT_EQ( acl.rules.size(), 2u );
   natsim::TrapRule const& r = acl.rules[0];
   EXPECT_EQ(
       std::tie( r.seq, r.permit, r.src, r.dst, r.pool ),
       std::make_tuple( 20u, false, IpAddrWithFullMask( ip( "10.0.0.7" ), 0xffffffffu ),
                        IpAddrWithFullMask( ip( "192.168.0.0" ), 0xffff0000u ), true ) );
   auto const& p = std::get<natsim::PacketStep>( s.steps[10] );
   EXPECT_EQ( std::tie( p.unit, p.src, p.dst, p.proto, p.sport, p.dport, p.vlan, p.frag,
                        p.tcpFlags, p.emHit, p.myStation, p.srcClass, p.count ),
              std::make_tuple( std::optional<U16>( 2 ), 0x01020304u, 0x05060708u, 17, 0,
                               65535, 4095, natsim::Frag::notFirst, 2 | 16 | 32, true,
                               false, 12u, 1000u ) );
   auto const& failure = std::get<natsim::SdkFailureStep>( s.steps[14] );
   EXPECT_EQ( std::tie( failure.call, failure.rc, failure.nth ),
              std::make_tuple( "soc_mem_write", -2147483647 - 1, 7u ) );
}

// Steps are read as the parser meets them when the chip came first, and after the whole
// document otherwise (a fault of the document as a whole is then reported before a
// step's); either way a rule takes the chip's modules. Lists are kept up to the record's
// capacity.
TEST( ScenarioTest, StepsTakeTheChipWhereverItStandsAndListsUpToCapacity ) {
   std::string const chip = R"("chip": {"modules": {"3": 3, "1": 1}})";
   std::string const steps = R"("steps": [{"natRule": {"uid": 1, "key": {}, "data": {
      "vlans": )" + numbers( 64 ) +
                             R"(, "egressIntfs": )" + numbers( 64 ) + "}}}]";
   for ( std::string const& text :
         { "{" + chip + "," + steps + "}", "{" + steps + "," + chip + "}" } ) {
      Scenario const s = parsed( text );
      ASSERT_EQ( s.steps.size(), 1u ) << text;
      auto const& rule = std::get<natsim::NatRuleStep>( s.steps[0] );
      EXPECT_EQ( rule.modules, ( std::vector<U16>{ 1, 3 } ) ) << text;
      EXPECT_EQ( rule.data.vlanIds(), 64u );
      EXPECT_EQ( rule.data.vlanId( 63 ), 64 );
      EXPECT_EQ( rule.data.egressIntfs(), 64u );
   }
}

// One fault a line: a step (or after "doc", a whole scenario), "=>", and how the
// reader's "<path>: <message>" starts. Some are values the reader took before that then
// stopped the agent on the chip or an SDK error.
char const faults[] = R"(doc {} x => line 1, column 4: invalid JSON
doc {"chips": {}} => unknown member "chips" (known: agent, chip, nat, steps)
doc {"chip": {}, "steps": [{"advance": -1}], "stepz": []} => unknown member "stepz"
doc {"chip": {"tcam": 1}} => chip: unknown member "tcam" (known: natSupported, modules,
doc {"chip": {"modules": {"x": 1}}} => chip.modules.x: module id "x" is not a decimal number 1..65535
doc {"nat": {"addrOnlyMode": 1}} => nat.addrOnlyMode: expected true or false, got a number
doc {"steps": {"advance": 1}} => steps: expected an array, got an object
doc {"chip": {"pipes": 0}} => chip.pipes: 0 is out of range (expected 1..16)
doc {"chip": {"modules": {"0": 1}}} => chip.modules.0: module id "0" is not a decimal number 1..65535
doc {"chip": {"modules": {"1": 65535}}} => chip.modules.1: module 1 has no unit 1 (the plug-in also uses a module id as its SDK unit, so each module id must be one of the chip's units)
doc {"chip": {"modules": {"1": 1, "2": 1}}} => chip.modules.2: module 2 has no unit 2 (the plug-in
{"module": {"modId": 3, "unit": 1}} => steps[0].module.modId: module 3 has no unit 3 (the plug-in
{"packet": {"src": "010.0.0.010"}} => steps[0].packet.src: "010.0.0.010" is not an IPv4 address (expected a.b.c.d)
doc {"steps": [{"verify": 1}, {"advance": -0.5}]} => steps[1].advance: -0.5 is out of range (expected 0 or more seconds)
{"natRule": {"uid": 1, "key": {"srcOld": "1.1.1.1", "srcOld": "1.1.1.2"}}} => steps[0].natRule.key: member "srcOld" is given twice
{"natRules": {}} => steps[0]: unknown step "natRules" (known: natRule, natRuleRemove, trapAcl,
{"advance": 1, "verify": 1} => steps[0]: a step has exactly one member, got 2
"advance" => steps[0]: expected a step (an object with one member), got a string
{"natRule": {"key": {}}} => steps[0].natRule: missing member "uid"
{"restart": {"hitless": false}} => steps[0].restart: unknown member "hitless" (a restart takes no members: {})
{"natRule": {"uid": "1", "key": {}}} => steps[0].natRule.uid: expected a number, got a string
{"natRule": {"uid": 1, "key": null}} => steps[0].natRule.key: expected an object, got null
{"packet": {"sport": 80.5}} => steps[0].packet.sport: expected a whole number 0..65535, got 80.5
{"packet": {"dport": 65536}} => steps[0].packet.dport: 65536 is out of range (expected 0..65535)
{"natRule": {"uid": 0, "key": {}}} => steps[0].natRule.uid: 0 is out of range (expected 1..4294967295)
{"natRule": {"uid": 1, "key": {"proto": 256}}} => steps[0].natRule.key.proto: 256 is out of range (expected 0..255)
{"verify": 18446744073709551616} => steps[0].verify: 1.8446744073709552e+19 is out of range (expected 0..65535)
{"natRule": {"uid": 1, "key": {}, "data": {"nextHop": 18446744073709551616}}} => steps[0].natRule.data.nextHop: 1.8446744073709552e+19 is out of range (expected 0..18446744073709551615)
{"advance": 1e308} => steps[0].advance: 1e+308 is out of range (expected at most 1000000 seconds
{"natRule": {"uid": 1, "key": {}, "data": {"nextHop": "12"}}} => steps[0].natRule.data.nextHop: "12" is not a hex number
{"natRule": {"uid": 1, "key": {}, "data": {"nextHop": "0x10000000000000000"}}} => steps[0].natRule.data.nextHop: "0x10000000000000000" is not a hex number (expected 0x and 1 to 16 hex digits)
{"natRule": {"uid": 1, "key": {"srcOld": "10.0.0.300"}}} => steps[0].natRule.key.srcOld: "10.0.0.300" is not an IPv4 address (expected a.b.c.d or a.b.c.d:port)
{"natRule": {"uid": 1, "key": {"srcOld": "10.0.0.1:65536"}}} => steps[0].natRule.key.srcOld: "10.0.0.1:65536" has a port out of range (expected 0..65535)
{"packet": {"src": "1.1.1.1:80"}} => steps[0].packet.src: "1.1.1.1:80" is not an IPv4 address (expected a.b.c.d)
{"natRule": {"uid": 1, "key": {}, "data": {"filterAddr": "10.0.0.0/33"}}} => steps[0].natRule.data.filterAddr: "10.0.0.0/33" is not an address with a prefix length
{"trapAcl": {"name": "a", "vlan": 1, "rules": [{}, {"src": "10.0.0.0"}]}} => steps[0].trapAcl.rules[1].src: "10.0.0.0" is not an address with a prefix length (expected a.b.c.d/len, len 0..32)
{"natRule": {"uid": 1, "key": {}, "data": {"vlans": [10, -1]}}} => steps[0].natRule.data.vlans[1]: -1 is out of range (expected 0..65535)
{"packet": {"frag": "last"}} => steps[0].packet.frag: "last" is not a fragment kind (expected none, first or notFirst)
{"packet": {"tcp": ["ACK", "syn"]}} => steps[0].packet.tcp[1]: "syn" is not a TCP flag
{"sdkFailure": {"call": "getEntry", "rc": -1}} => steps[0].sdkFailure.call: "getEntry" is not an SDK call that can fail (known: bcm_field_qualify_MyStationHit, 
{"sdkFailure": {"call": "soc_mem_read", "rc": 0}} => steps[0].sdkFailure.rc: 0 is not an SDK error code (expected a negative whole number -2147483648..-1)
)";

TEST( ScenarioTest, EachFaultNamesItsPlaceAndWhatWasExpected ) {
   std::istringstream lines( faults );
   for ( std::string line; std::getline( lines, line ); ) {
      std::size_t const arrow = line.find( " => " );
      std::string const input = line.substr( 0, arrow );
      std::string const text =
          input.rfind( "doc ", 0 ) == 0 ? input.substr( 4 ) : oneStep( input );
      EXPECT_THAT( faultOf( text ), testing::StartsWith( line.substr( arrow + 4 ) ) );
   }
   std::string modules;  // 40 members, the last a second module 1
   for ( int id = 1; id <= 39; ++id ) {
      modules += "\"" + std::to_string( id ) + "\": 1, ";
   }
   EXPECT_EQ( faultOf( R"({"chip": {"modules": {)" + modules + R"("1": 2}}})" ),
              "chip.modules: member \"1\" is given twice" );
   std::string const data = R"({"natRule": {"uid": 1, "key": {}, "data": {")";
   EXPECT_EQ(
       faultOf( oneStep( data + R"(vlans": )" + numbers( 65 ) + "}}}" ) ),
       "steps[0].natRule.data.vlans: 65 VLAN ids are too many (expected at most 64)" );
   EXPECT_EQ( faultOf( oneStep( data + R"(egressIntfs": )" + numbers( 65 ) + "}}}" ) ),
              "steps[0].natRule.data.egressIntfs: 65 egress interfaces are too many "
              "(expected at most 64)" );
   EXPECT_THAT( faultOf( "{\n  \"steps\": [\n  }" ),
                testing::StartsWith( "line 3, column 3: invalid JSON: syntax error" ) );
}

}  // namespace
