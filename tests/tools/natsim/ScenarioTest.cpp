// Reading natsim scenarios: the values every step kind carries, the defaults of what a
// scenario leaves out, and the path and message of each kind of fault; one step read
// alone, as the server reads it. (BadInputTest.cpp runs natsim on more faults, checking
// the whole line it prints.)

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tools/natsim/Scenario.h"

namespace {

using natsim::Scenario;
using natsim::ScenarioError;
using testing::HasSubstr;
using Wirel::IpAddr;
using Wirel::IpAddrWithFullMask;
using Wirel::IpAndPort;

Scenario parsed( std::string const& text ) {
   Scenario scenario;
   ScenarioError error;
   EXPECT_TRUE( natsim::parseScenario( text, &scenario, &error ) ) << error.what();
   return scenario;
}

ScenarioError errorOf( std::string const& text ) {
   Scenario scenario;
   ScenarioError error;
   EXPECT_FALSE( natsim::parseScenario( text, &scenario, &error ) ) << text;
   return error;
}

// A scenario of the one step `step`.
std::string oneStep( std::string const& step ) {
   return R"({"steps": [)" + step + "]}";
}

// A JSON list of `n` numbers from 1.
std::string numbers( int n ) {
   std::string list = "[";
   for ( int i = 1; i <= n; ++i ) {
      list += ( i > 1 ? "," : "" ) + std::to_string( i );
   }
   return list + "]";
}

// A chip whose module map has 40 members, the last a second module 1.
std::string manyModulesWithADuplicate() {
   std::string modules;
   for ( int id = 1; id <= 39; ++id ) {
      modules += "\"" + std::to_string( id ) + "\": 1, ";
   }
   return R"({"chip": {"modules": {)" + modules + R"("1": 2}}})";
}

IpAddr ip( char const* text ) {
   IpAddr address;
   EXPECT_TRUE( IpAddr::fromString( text, address ) );
   return address;
}

TEST( ScenarioTest, EveryStepKindCarriesItsValues ) {
   Scenario const s = parsed( R"({
      "steps": [
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
         {"trapAclRemove": {"name": "a", "vlan": 10}},
         {"mcastMode": {"types": []}},
         {"module": {"modId": 2, "unit": 3}},
         {"moduleRemove": 2},
         {"mountGroupReady": false},
         {"flashDownload": {"req": 3, "done": false}},
         {"fragmentEnabled": true},
         {"packet": {"unit": 2, "src": "1.2.3.4", "dst": "5.6.7.8", "proto": 17,
                     "sport": 0, "dport": 65535, "vlan": 4095, "frag": "notFirst",
                     "tcp": ["SYN", "ACK", "SYN", "URG"], "emHit": true,
                     "myStation": false, "srcClass": 12, "count": 1000}},
         {"advance": 10.5},
         {"show": "ShowCorvaneNatSlice"},
         {"verify": 1},
         {"restart": {}}
      ],
      "agent": "Other",
      "chip": {"natSupported": false, "modules": {"1": 1, "2": 2}, "tcamEntries": 3,
               "pipes": 4, "trapFilters": false, "hitCounters": false, "familyTest": true,
               "hitlessRestart": true, "mountGroupReady": false,
               "flashDownloadDone": false},
      "nat": {"addrOnlyMode": true, "fragmentEnabled": true}
   })" );

   EXPECT_EQ( s.agent, "Other" );
   EXPECT_FALSE( s.chip.natSupported );
   EXPECT_EQ( s.chip.modules, ( std::map<U16, U16>{ { 1, 1 }, { 2, 2 } } ) );
   EXPECT_EQ( s.chip.tcamEntries, 3u );
   EXPECT_EQ( s.chip.pipes, 4u );
   EXPECT_FALSE( s.chip.trapFilters || s.chip.hitCounters || s.chip.mountGroupReady ||
                 s.chip.flashDownloadDone );
   EXPECT_TRUE( s.chip.familyTest && s.chip.hitlessRestart );
   EXPECT_TRUE( s.nat.addrOnlyMode && s.nat.fragmentEnabled );

   std::vector<std::string> kinds;
   for ( natsim::Step const& step : s.steps ) {
      kinds.push_back( natsim::stepKindName( step ) );
   }
   EXPECT_EQ( kinds, ( std::vector<std::string>{
                         "natRule", "natRuleRemove", "trapAcl", "trapAclRemove",
                         "mcastMode", "module", "moduleRemove", "mountGroupReady",
                         "flashDownload", "fragmentEnabled", "packet", "advance", "show",
                         "verify", "restart" } ) );
   ASSERT_EQ( s.steps.size(), 15u );

   auto const& rule = std::get<natsim::NatRuleStep>( s.steps[0] );
   EXPECT_EQ( rule.uid, 4294967295u );
   EXPECT_EQ( rule.mcastUid, 7 );
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
   EXPECT_EQ( rule.dirty, 2u );
   EXPECT_EQ( rule.field, 8u );

   auto const& remove = std::get<natsim::NatRuleRemoveStep>( s.steps[1] );
   EXPECT_EQ( remove.key.keyType(), Oro::NatHwKey::staticSrcNat );
   EXPECT_EQ( remove.field, 3u );

   auto const& acl = std::get<natsim::TrapAclStep>( s.steps[2] );
   EXPECT_EQ( acl.name, "a" );
   EXPECT_TRUE( acl.implicitDeny );
   ASSERT_EQ( acl.rules.size(), 2u );
   EXPECT_EQ( acl.rules[0].seq, 20u );
   EXPECT_FALSE( acl.rules[0].permit );
   EXPECT_EQ( acl.rules[0].src, IpAddrWithFullMask( ip( "10.0.0.7" ), 0xffffffffu ) );
   EXPECT_EQ( acl.rules[0].dst, IpAddrWithFullMask( ip( "192.168.0.0" ), 0xffff0000u ) );
   EXPECT_TRUE( acl.rules[0].pool );
   EXPECT_EQ( acl.rules[1].src, IpAddrWithFullMask( ip( "10.0.0.0" ), 0xff000000u ) );

   EXPECT_EQ( std::get<natsim::TrapAclRemoveStep>( s.steps[3] ).vlan, 10 );
   EXPECT_TRUE( std::get<natsim::McastModeStep>( s.steps[4] ).types.empty() );
   EXPECT_EQ( std::get<natsim::ModuleStep>( s.steps[5] ).unit, 3 );
   EXPECT_EQ( std::get<natsim::ModuleRemoveStep>( s.steps[6] ).modId, 2 );
   EXPECT_FALSE( std::get<natsim::MountGroupReadyStep>( s.steps[7] ).ready );
   EXPECT_EQ( std::get<natsim::FlashDownloadStep>( s.steps[8] ).req, 3u );
   EXPECT_FALSE( std::get<natsim::FlashDownloadStep>( s.steps[8] ).done );
   EXPECT_TRUE( std::get<natsim::FragmentEnabledStep>( s.steps[9] ).enabled );

   auto const& packet = std::get<natsim::PacketStep>( s.steps[10] );
   EXPECT_EQ( packet.unit, std::optional<U16>( 2 ) );
   EXPECT_EQ( packet.src, 0x01020304u );
   EXPECT_EQ( packet.dst, 0x05060708u );
   EXPECT_EQ( packet.sport, 0 );
   EXPECT_EQ( packet.dport, 65535 );
   EXPECT_EQ( packet.frag, natsim::Frag::notFirst );
   EXPECT_EQ( packet.tcpFlags, 2 | 16 | 32 );
   EXPECT_TRUE( packet.emHit );
   EXPECT_FALSE( packet.myStation );
   EXPECT_EQ( packet.count, 1000u );

   EXPECT_EQ( std::get<natsim::AdvanceStep>( s.steps[11] ).seconds, 10.5 );
   EXPECT_EQ( std::get<natsim::ShowStep>( s.steps[12] ).command, "ShowCorvaneNatSlice" );
   EXPECT_EQ( std::get<natsim::VerifyStep>( s.steps[13] ).modId, 1 );
}

TEST( ScenarioTest, EmptyDocumentIsTheDefaultChipWithNoSteps ) {
   Scenario const s = parsed( "{}" );
   EXPECT_EQ( s.agent, "Corvane" );
   EXPECT_EQ( s.chip.modules, ( std::map<U16, U16>{ { 1, 1 } } ) );
   EXPECT_EQ( s.chip.tcamEntries, 512u );
   EXPECT_TRUE( s.chip.natSupported && s.chip.trapFilters && s.chip.hitCounters &&
                s.chip.mountGroupReady && s.chip.flashDownloadDone );
   EXPECT_FALSE( s.chip.familyTest || s.chip.hitlessRestart || s.nat.addrOnlyMode ||
                 s.nat.fragmentEnabled );
   EXPECT_TRUE( s.steps.empty() );
}

TEST( ScenarioTest, StepsLeftShortTakeTheirDefaults ) {
   Scenario const s = parsed( R"({
      "chip": {"modules": {"3": 3, "1": 1}},
      "steps": [{"natRule": {"uid": 1, "key": {}}},
                {"packet": {}},
                {"trapAcl": {"name": "a", "vlan": 1}},
                {"mcastMode": {}},
                {"flashDownload": {"req": 0}},
                {"advance": 0}]
   })" );
   ASSERT_EQ( s.steps.size(), 6u );
   auto const& rule = std::get<natsim::NatRuleStep>( s.steps[0] );
   EXPECT_EQ( rule.key, Oro::NatHwKey() );
   EXPECT_EQ( rule.data, Oro::NatHwData() );
   EXPECT_EQ( rule.modules, ( std::vector<U16>{ 1, 3 } ) );
   EXPECT_EQ( rule.mcastUid, 0 );
   EXPECT_EQ( rule.dirty, 1u );
   EXPECT_EQ( rule.field, 0u );

   auto const& packet = std::get<natsim::PacketStep>( s.steps[1] );
   EXPECT_FALSE( packet.unit.has_value() );
   EXPECT_EQ( packet.src, 0x0a000001u );
   EXPECT_EQ( packet.dst, 0x08080808u );
   EXPECT_EQ( packet.proto, 6 );
   EXPECT_EQ( packet.sport, 1234 );
   EXPECT_EQ( packet.dport, 80 );
   EXPECT_EQ( packet.vlan, 10 );
   EXPECT_EQ( packet.frag, natsim::Frag::none );
   EXPECT_EQ( packet.tcpFlags, 0 );
   EXPECT_TRUE( packet.myStation );
   EXPECT_EQ( packet.count, 1u );

   auto const& acl = std::get<natsim::TrapAclStep>( s.steps[2] );
   EXPECT_FALSE( acl.implicitDeny );
   ASSERT_EQ( acl.rules.size(), 1u );
   EXPECT_EQ( acl.rules[0].seq, 10u );
   EXPECT_TRUE( acl.rules[0].permit );
   EXPECT_EQ( acl.rules[0].src.stringValue(), "10.0.0.0/8" );
   EXPECT_EQ( acl.rules[0].dst.stringValue(), "0.0.0.0/0" );

   EXPECT_EQ( std::get<natsim::McastModeStep>( s.steps[3] ).types,
              ( std::vector<U32>{ 5, 1, 2 } ) );
   EXPECT_TRUE( std::get<natsim::FlashDownloadStep>( s.steps[4] ).done );
}

// Steps are read as the parser meets them when the chip came first, and after the whole
// document otherwise; either way a rule takes the chip's modules, and a fault of the
// document as a whole is reported before a step's.
TEST( ScenarioTest, StepsTakeTheChipWhereverItStands ) {
   std::string const chip = R"("chip": {"modules": {"2": 2}})";
   std::string const steps = R"("steps": [{"natRule": {"uid": 1, "key": {}}}])";
   for ( std::string const& text :
         { "{" + chip + "," + steps + "}", "{" + steps + "," + chip + "}" } ) {
      Scenario const s = parsed( text );
      ASSERT_EQ( s.steps.size(), 1u ) << text;
      EXPECT_EQ( std::get<natsim::NatRuleStep>( s.steps[0] ).modules,
                 std::vector<U16>{ 2 } )
          << text;
   }
   ScenarioError const error =
       errorOf( R"({"chip": {}, "steps": [{"advance": -1}], "stepz": []})" );
   EXPECT_EQ( error.path, "" );
   EXPECT_THAT( error.message, HasSubstr( "unknown member \"stepz\"" ) );
}

TEST( ScenarioTest, ListsUpToTheRecordsCapacityAreKept ) {
   Scenario const s = parsed( oneStep( R"({"natRule": {"uid": 1, "key": {}, "data": {
         "vlans": )" + numbers( 64 ) + R"(, "egressIntfs": )" +
                                       numbers( 64 ) + "}}}" ) );
   auto const& data = std::get<natsim::NatRuleStep>( s.steps.at( 0 ) ).data;
   EXPECT_EQ( data.vlanIds(), 64u );
   EXPECT_EQ( data.vlanId( 63 ), 64 );
   EXPECT_EQ( data.egressIntfs(), 64u );
}

struct Fault {
   char const* what;
   std::string text;
   std::string path;
   std::string message;  // a part of the message
};

void expectFaults( std::vector<Fault> const& faults ) {
   for ( Fault const& f : faults ) {
      ScenarioError const error = errorOf( f.text );
      EXPECT_EQ( error.path, f.path ) << f.what;
      EXPECT_THAT( error.message, HasSubstr( f.message ) ) << f.what;
   }
}

std::string const vlanRange = "65 VLAN ids are too many (expected at most 64)";

TEST( ScenarioTest, DocumentFaults ) {
   expectFaults( {
       { "not JSON", "{\n  \"steps\": [\n  }", "line 3, column 3",
         "invalid JSON: syntax error" },
       { "trailing text", "{} x", "line 1, column 4", "invalid JSON" },
       { "not an object", "[]", "", "expected an object, got an array" },
       { "unknown top member", R"({"chips": {}})", "", "unknown member \"chips\"" },
       { "unknown chip member", R"({"chip": {"tcam": 1}})", "chip",
         "unknown member \"tcam\" (known: natSupported, modules," },
       { "module id not a number", R"({"chip": {"modules": {"x": 1}}})", "chip.modules.x",
         "module id \"x\" is not a decimal number 1..65535" },
       { "module id too large", R"({"chip": {"modules": {"65536": 1}}})",
         "chip.modules.65536", "not a decimal number" },
       { "unit too large", R"({"chip": {"modules": {"1": 65536}}})", "chip.modules.1",
         "65536 is out of range (expected 0..65535)" },
       { "number for a flag", R"({"nat": {"addrOnlyMode": 1}})", "nat.addrOnlyMode",
         "expected true or false, got a number" },
       { "member twice", R"({"steps": [{"mcastMode": {"types": [1, 2]}},
             {"natRule": {"uid": 1, "key": {"srcOld": "1.1.1.1", "srcOld": "1.1.1.2"}}}]})",
         "steps[1].natRule.key", "member \"srcOld\" is given twice" },
       { "member twice among many", manyModulesWithADuplicate(), "chip.modules",
         "member \"1\" is given twice" },
   } );
}

TEST( ScenarioTest, StepFaults ) {
   expectFaults( {
       { "unknown step", oneStep( R"({"natRules": {}})" ), "steps[0]",
         "unknown step \"natRules\" (known: natRule, natRuleRemove, trapAcl," },
       { "two members", oneStep( R"({"advance": 1, "verify": 1})" ), "steps[0]",
         "a step has exactly one member, got 2" },
       { "no member", oneStep( "{}" ), "steps[0]",
         "a step has exactly one member, got 0" },
       { "not an object", oneStep( "\"advance\"" ), "steps[0]",
         "expected a step (an object with one member), got a string" },
       { "wrong kind of value", oneStep( R"({"natRule": 5})" ), "steps[0].natRule",
         "expected an object, got a number" },
       { "missing uid", oneStep( R"({"natRule": {"key": {}}})" ), "steps[0].natRule",
         "missing member \"uid\"" },
       { "missing key", oneStep( R"({"natRuleRemove": {"uid": 1}})" ),
         "steps[0].natRuleRemove", "missing member \"key\"" },
       { "missing vlan", oneStep( R"({"trapAcl": {"name": "a"}})" ), "steps[0].trapAcl",
         "missing member \"vlan\"" },
       { "missing unit", oneStep( R"({"module": {"modId": 2}})" ), "steps[0].module",
         "missing member \"unit\"" },
       { "missing req", oneStep( R"({"flashDownload": {}})" ), "steps[0].flashDownload",
         "missing member \"req\"" },
       { "unknown member",
         oneStep( R"({"natRule": {"uid": 1, "key": {"srcOlds": ""}}})" ),
         "steps[0].natRule.key", "unknown member \"srcOlds\"" },
       { "restart with a member", oneStep( R"({"restart": {"hitless": false}})" ),
         "steps[0].restart",
         "unknown member \"hitless\" (a restart takes no members: {})" },
       { "restart not an object", oneStep( R"({"restart": true})" ), "steps[0].restart",
         "expected an object, got a boolean" },
       { "negative advance", R"({"steps": [{"verify": 1}, {"advance": -0.5}]})",
         "steps[1].advance", "-0.5 is out of range (expected 0 or more seconds)" },
   } );
}

TEST( ScenarioTest, NumberFaults ) {
   expectFaults( {
       { "uid past 32 bits",
         oneStep( R"({"natRuleRemove": {"uid": 4294967296, "key": {}}})" ),
         "steps[0].natRuleRemove.uid", "4294967296 is out of range" },
       { "fraction", oneStep( R"({"packet": {"proto": 1.5}})" ), "steps[0].packet.proto",
         "expected a whole number 0..255, got 1.5" },
       { "proto past 8 bits",
         oneStep( R"({"natRule": {"uid": 1, "key": {"proto": 256}}})" ),
         "steps[0].natRule.key.proto", "256 is out of range (expected 0..255)" },
       { "no packets", oneStep( R"({"packet": {"count": 0}})" ), "steps[0].packet.count",
         "0 is out of range (expected 1..4294967295)" },
       { "negative module", oneStep( R"({"moduleRemove": -2})" ), "steps[0].moduleRemove",
         "-2 is out of range" },
       { "next hop not hex",
         oneStep( R"({"natRule": {"uid": 1, "key": {}, "data": {"nextHop": "12"}}})" ),
         "steps[0].natRule.data.nextHop", "\"12\" is not a hex number" },
       { "module list element",
         oneStep( R"({"natRule": {"uid": 1, "key": {}, "modules": [1, true]}})" ),
         "steps[0].natRule.modules[1]", "expected a number, got a boolean" },
   } );
}

TEST( ScenarioTest, ValueSyntaxFaults ) {
   std::string const rule = R"({"natRule": {"uid": 1, "key": {}, "data": )";
   expectFaults( {
       { "octet past 255",
         R"({"steps": [{"verify": 1}, {"natRule": {"uid": 1, "key": {"srcOld": "10.0.0.300"}}}]})",
         "steps[1].natRule.key.srcOld",
         "\"10.0.0.300\" is not an IPv4 address (expected a.b.c.d or a.b.c.d:port)" },
       { "empty port",
         oneStep( R"({"natRule": {"uid": 1, "key": {"dstNew": "1.1.1.1:"}}})" ),
         "steps[0].natRule.key.dstNew", "is not an IPv4 address" },
       { "packet address with a port", oneStep( R"({"packet": {"src": "1.1.1.1:80"}})" ),
         "steps[0].packet.src", "is not an IPv4 address (expected a.b.c.d)" },
       { "prefix past 32", oneStep( rule + R"({"filterAddr": "10.0.0.0/33"}}})" ),
         "steps[0].natRule.data.filterAddr",
         "\"10.0.0.0/33\" is not an address with a prefix length" },
       { "no prefix length",
         oneStep(
             R"({"trapAcl": {"name": "a", "vlan": 1, "rules": [{}, {}, {"src": "10.0.0.0"}]}})" ),
         "steps[0].trapAcl.rules[2].src", "(expected a.b.c.d/len, len 0..32)" },
       { "65 VLANs", oneStep( rule + R"({"vlans": )" + numbers( 65 ) + "}}}" ),
         "steps[0].natRule.data.vlans", vlanRange },
       { "65 egress interfaces",
         oneStep( rule + R"({"egressIntfs": )" + numbers( 65 ) + "}}}" ),
         "steps[0].natRule.data.egressIntfs",
         "65 egress interfaces are too many (expected at most 64)" },
       { "fragment kind", oneStep( R"({"packet": {"frag": "last"}})" ),
         "steps[0].packet.frag",
         "\"last\" is not a fragment kind (expected none, first or notFirst)" },
       { "TCP flag", oneStep( R"({"packet": {"tcp": ["ACK", "syn"]}})" ),
         "steps[0].packet.tcp[1]", "\"syn\" is not a TCP flag" },
   } );
   EXPECT_EQ(
       errorOf( oneStep( rule + R"({"vlans": )" + numbers( 65 ) + "}}}" ) ).message,
       vlanRange );
}

TEST( ScenarioTest, ErrorTextAndTheScenarioOnFailure ) {
   Scenario s;
   s.agent = "kept";
   ScenarioError error;
   EXPECT_FALSE( natsim::parseScenario( R"({"agent": "x", "steps": [{"advance": "1"}]})",
                                        &s, &error ) );
   EXPECT_EQ( error.what(),
              "steps[0].advance (line 1, column 38): expected a number, got a string" );
   EXPECT_EQ( s.agent, "kept" );
   EXPECT_EQ( errorOf( "[]" ).what(), "expected an object, got an array" );
}

TEST( ScenarioTest, OneStepAloneTakesTheChipsDefaultsAndNamesFaultsFromTheStep ) {
   natsim::ChipConfig chip;
   chip.modules = { { 3, 1 }, { 7, 2 } };
   natsim::Step step = natsim::AdvanceStep{ 1 };
   ScenarioError error;
   ASSERT_TRUE( natsim::parseStep(
       R"({"natRule": {"uid": 9, "key": {"srcOld": "1.2.3.4"}}})", chip, &step, &error ) )
       << error.what();
   auto const& rule = std::get<natsim::NatRuleStep>( step );
   EXPECT_EQ( rule.uid, 9u );
   EXPECT_EQ( rule.key.srcIpAndPortOld().ip(), ip( "1.2.3.4" ) );
   EXPECT_EQ( rule.modules, ( std::vector<U16>{ 3, 7 } ) ) << "the chip's modules";

   struct Case {
      std::string text;
      std::string what;
   };
   Case const cases[] = {
       { R"({"natRule": {"uid": 1, "key": {"srcOld": "1.2.3.400"}}})",
         "natRule.key.srcOld: \"1.2.3.400\" is not an IPv4 address" },
       { R"({"natRules": {}})", "unknown step \"natRules\" (known: natRule," },
       { R"({"advance": 1, "verify": 1})", "a step has exactly one member, got 2" },
       { "[1]", "expected a step (an object with one member), got an array" },
       { R"({"advance": 1)", "line 1, column 14: invalid JSON" },
       { R"({"trapAcl": {"name": "a", "vlan": 1, "vlan": 2}})",
         "trapAcl: member \"vlan\" is given twice" },
   };
   for ( Case const& c : cases ) {
      natsim::Step kept = natsim::VerifyStep{ 5 };
      EXPECT_FALSE( natsim::parseStep( c.text, chip, &kept, &error ) ) << c.text;
      EXPECT_EQ( error.what().rfind( c.what, 0 ), 0u ) << error.what();
      EXPECT_EQ( std::get<natsim::VerifyStep>( kept ).modId, 5 ) << "left as it was";
   }
}

}  // namespace
