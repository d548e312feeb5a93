// natsim on malformed input, as a user runs it: every kind of bad file and bad value
// gets exactly one line on standard error, naming the place and what was expected, and
// exit status 2, with nothing played.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <regex>
#include <string>

#include "NatsimProcess.h"

namespace {

// `text` repeated `n` times.
std::string repeated( std::string const& text, int n ) {
   std::string all;
   for ( int i = 0; i < n; ++i ) {
      all += text;
   }
   return all;
}

std::string oneStep( std::string const& step ) {
   return R"({"steps": [)" + step + "]}";
}

using NatsimProcess::Outcome;

// A temporary folder in which natsim runs on files.
class Workspace {
public:
   std::string const& dir() const { return dir_.path(); }
   // Runs `natsim run PATH`.
   Outcome run( std::string const& path ) const { return natsim( "run '" + path + "'" ); }
   Outcome natsim( std::string const& args ) const {
      return NatsimProcess::natsimIn( dir_, args );
   }

private:
   NatsimProcess::TempDir dir_;
};

struct Case {
   char const* what;
   std::string content;
   // The whole line natsim prints after "natsim: <file>: ".
   std::string message;
};

// With `located` false, the line and column that follow a path are not compared.
void expectRefused( std::vector<Case> const& cases, bool located = false ) {
   Workspace const space;
   std::string const file = space.dir() + "/scenario.json";
   std::regex const location( " \\(line [0-9]+, column [0-9]+\\):" );
   for ( Case const& c : cases ) {
      std::ofstream( file, std::ios::binary | std::ios::trunc ) << c.content;
      Outcome const run = space.run( file );
      EXPECT_EQ( run.status, 2 ) << c.what << ": " << run.err;
      std::string const err =
          located ? run.err : std::regex_replace( run.err, location, ":" );
      EXPECT_EQ( err, "natsim: " + file + ": " + c.message + "\n" ) << c.what;
      EXPECT_TRUE( run.out.empty() ) << c.what << ": nothing is played";
   }
}

TEST( NatsimBadInput, FilesThatAreNoScenario ) {
   Workspace const space;
   Outcome run = space.run( space.dir() );
   EXPECT_EQ( run.status, 2 );
   EXPECT_EQ( run.err, "natsim: " + space.dir() +
                           ": is a directory (expected a scenario file)\n" );

   std::string const missing = space.dir() + "/missing.json";
   run = space.run( missing );
   EXPECT_EQ( run.status, 2 );
   EXPECT_EQ( run.err,
              "natsim: " + missing + ": cannot be read (No such file or directory)\n" );

   run = space.run( "/dev/zero" );
   EXPECT_EQ( run.status, 2 ) << "an endless file stops at the size limit";
   EXPECT_EQ( run.err,
              "natsim: /dev/zero: is too large (expected at most 67108864 bytes)\n" );
}

TEST( NatsimBadInput, TextThatIsNotJson ) {
   std::string const endOfInput =
       "invalid JSON: syntax error while parsing value - unexpected end of input; "
       "expected '[', '{', or a literal";
   expectRefused( {
       { "empty file", "", "line 1, column 1: " + endOfInput },
       { "blank file", "\n  \n", "line 3, column 1: " + endOfInput },
       { "truncated in an object", R"({"steps": [{"advance": 1)",
         "line 1, column 25: invalid JSON: syntax error while parsing object - "
         "unexpected end of input; expected '}'" },
       { "truncated in a string", R"({"steps": [{"show": "Sho)",
         "line 1, column 25: invalid JSON: syntax error while parsing value - invalid "
         "string: missing closing quote; last read: '\"Sho'" },
       { "binary (JPEG)", std::string( "\xff\xd8\xff\xe0\x00\x10JFIF", 10 ),
         "line 1, column 1: byte 0xff is not text (expected JSON in UTF-8)" },
       { "binary (ELF)",
         std::string( "\x7f"
                      "ELF\x02\x01\x01\x00",
                      8 ),
         "line 1, column 8: byte 0x00 is not text (expected JSON in UTF-8)" },
       { "NUL after a document", std::string( "{}\n\0{\"steps\": 1}", 16 ),
         "line 2, column 1: byte 0x00 is not text (expected JSON in UTF-8)" },
       { "not UTF-8 in a string", "{\"agent\": \"caf\xe9\"}",
         "line 1, column 15: byte 0xe9 is not text (expected JSON in UTF-8)" },
       { "a UTF-16 surrogate in UTF-8", "{\"agent\": \"\xed\xa0\x80\"}",
         "line 1, column 12: byte 0xed is not text (expected JSON in UTF-8)" },
       // Found by the fuzzer: the parser quotes a multi-byte character cut in half.
       { "a character in place of a value", "{\"steps\": [{\"packet\":\xde\x84}]}",
         "line 1, column 22: invalid JSON: syntax error while parsing value - invalid "
         "literal; last read: '\"packet\":\xef\xbf\xbd'" },
       { "a number beyond a double", "{\n \"steps\": [{\"advance\": 1e400}]}",
         "line 2, column 24: the number 1e400 is out of range (expected at most about "
         "1.8e308 in size)" },
       { "a negative number beyond a double", R"({"agent": -1e99999})",
         "line 1, column 11: the number -1e99999 is out of range (expected at most "
         "about 1.8e308 in size)" },
   } );
}

TEST( NatsimBadInput, DeepNesting ) {
   int const depth = 100000;
   expectRefused( {
       { "nested arrays", repeated( "[", depth ) + repeated( "]", depth ),
         "expected an object, got an array" },
       { "nested objects", repeated( R"({"a": )", depth ) + "1" + repeated( "}", depth ),
         "unknown member \"a\" (known: agent, chip, nat, steps)" },
       { "nested arrays in a step",
         oneStep( R"({"mcastMode": {"types": )" + repeated( "[", depth ) +
                  repeated( "]", depth ) + "}}" ),
         "steps[0].mcastMode.types[0]: expected a number, got an array" },
       { "nesting cut short", repeated( "[", depth ),
         "line 1, column 100001: invalid JSON: syntax error while parsing value - "
         "unexpected end of input; expected '[', '{', or a literal" },
   } );
}

TEST( NatsimBadInput, ValuesOfTheWrongType ) {
   std::string const key = R"("key": {"type": 1})";
   expectRefused( {
       { "steps an object", R"({"steps": {"advance": 1}})",
         "steps: expected an array, got an object" },
       { "uid a string", oneStep( R"({"natRule": {"uid": "1", )" + key + "}}" ),
         "steps[0].natRule.uid: expected a number, got a string" },
       { "VLAN a string", oneStep( R"({"packet": {"vlan": "10"}})" ),
         "steps[0].packet.vlan: expected a number, got a string" },
       { "port a fraction", oneStep( R"({"packet": {"sport": 80.5}})" ),
         "steps[0].packet.sport: expected a whole number 0..65535, got 80.5" },
       { "flag a number", R"({"chip": {"hitCounters": 1}})",
         "chip.hitCounters: expected true or false, got a number" },
       { "address a number", oneStep( R"({"packet": {"src": 167772161}})" ),
         "steps[0].packet.src: expected a string, got a number" },
       { "key null", oneStep( R"({"natRule": {"uid": 1, "key": null}})" ),
         "steps[0].natRule.key: expected an object, got null" },
       { "rules an object",
         oneStep( R"({"trapAcl": {"name": "a", "vlan": 1, "rules": {}}})" ),
         "steps[0].trapAcl.rules: expected an array, got an object" },
       { "advance a string", oneStep( R"({"advance": "10"})" ),
         "steps[0].advance: expected a number, got a string" },
   } );
}

TEST( NatsimBadInput, ValuesOutOfRange ) {
   std::string const rule = R"({"natRule": {"uid": 1, "key": {"type": 1)";
   expectRefused( {
       { "port above 16 bits", oneStep( R"({"packet": {"dport": 65536}})" ),
         "steps[0].packet.dport: 65536 is out of range (expected 0..65535)" },
       { "negative port", oneStep( R"({"packet": {"sport": -1}})" ),
         "steps[0].packet.sport: -1 is out of range (expected 0..65535)" },
       { "port in an address", oneStep( rule + R"(, "srcOld": "10.0.0.1:65536"}}})" ),
         "steps[0].natRule.key.srcOld: \"10.0.0.1:65536\" has a port out of range "
         "(expected 0..65535)" },
       { "long port in an address",
         oneStep( rule + R"(, "dstNew": "10.0.0.1:99999999999999999999"}}})" ),
         "steps[0].natRule.key.dstNew: \"10.0.0.1:99999999999999999999\" has a port "
         "out of range (expected 0..65535)" },
       { "VLAN above 16 bits", oneStep( R"({"trapAcl": {"name": "a", "vlan": 65536}})" ),
         "steps[0].trapAcl.vlan: 65536 is out of range (expected 0..65535)" },
       { "negative VLAN in a rule",
         oneStep( rule + R"(}, "data": {"vlans": [10, -1]}}})" ),
         "steps[0].natRule.data.vlans[1]: -1 is out of range (expected 0..65535)" },
       { "2^64", oneStep( R"({"verify": 18446744073709551616})" ),
         "steps[0].verify: 1.8446744073709552e+19 is out of range (expected 0..65535)" },
       { "2^64 as a 64-bit number",
         oneStep( rule + R"(}, "data": {"nextHop": 18446744073709551616}}})" ),
         "steps[0].natRule.data.nextHop: 1.8446744073709552e+19 is out of range "
         "(expected 0..18446744073709551615)" },
       { "below -2^63", oneStep( rule + R"(}, "field": -9223372036854775809}})" ),
         "steps[0].natRule.field: -9.223372036854776e+18 is out of range (expected "
         "0..4294967295)" },
       { "2^32 entries", R"({"chip": {"tcamEntries": 4294967296}})",
         "chip.tcamEntries: 4294967296 is out of range (expected 0..4294967295)" },
       { "uid 0", oneStep( R"({"natRule": {"uid": 0, "key": {}}})" ),
         "steps[0].natRule.uid: 0 is out of range (expected 1..4294967295)" },
       { "an endless advance", oneStep( R"({"advance": 1e308})" ),
         "steps[0].advance: 1e+308 is out of range (expected at most 1000000 seconds in "
         "one step)" },
       { "17 hex digits",
         oneStep( rule + R"(}, "data": {"nextHop": "0x10000000000000000"}}})" ),
         "steps[0].natRule.data.nextHop: \"0x10000000000000000\" is not a hex number "
         "(expected 0x and 1 to 16 hex digits)" },
   } );
}

TEST( NatsimBadInput, LongNamesAreCutInTheMessage ) {
   std::string const name( 5000, 'x' );
   expectRefused( {
       { "a long step name", oneStep( "{\"" + name + "\": 1}" ),
         "steps[0]: unknown step \"" + name.substr( 0, 60 ) +
             "\"... (known: natRule, natRuleRemove, trapAcl, trapAclRemove, mcastMode, "
             "module, moduleRemove, mountGroupReady, flashDownload, fragmentEnabled, "
             "packet, advance, show, verify, sdkFailure, restart)" },
       { "cut before a multi-byte character",
         oneStep( R"({"packet": {"frag": ")" + std::string( 59, 'a' ) + "\xc3\xa9\"}}" ),
         "steps[0].packet.frag: \"" + std::string( 59, 'a' ) +
             "\"... is not a fragment kind (expected none, first or notFirst)" },
   } );
}

TEST( NatsimBadInput, FaultsFoundAfterParsingNameTheirLine ) {
   expectRefused(
       {
           { "a value", "{\n  \"steps\": [\n    {\"packet\": {\"sport\": -1}}\n  ]\n}",
             "steps[0].packet.sport (line 3, column 26): -1 is out of range (expected "
             "0..65535)" },
           { "an object missing a member",
             "{\"steps\": [{\"advance\": 1},\n {\"natRule\": {\"key\": {}}}]}",
             "steps[1].natRule (line 2, column 14): missing member \"uid\"" },
           { "behind strings and nesting",
             "{\"agent\": \"a]},\\\"\", \"nat\": {},\n\"chip\": {\"modules\": {\"1\": 1, "
             "\"2\": [1]}}}",
             "chip.modules.2 (line 2, column 35): expected a number, got an array" },
           { "the document as a whole", "[]", "expected an object, got an array" },
       },
       true );
}

// Values the reader took before and that then stopped the agent on the chip or an SDK
// error, or leaked a record's internal message; and text it took that is no address.
TEST( NatsimBadInput, ValuesThatWouldStopTheAgent ) {
   std::string const noUnit =
       " (the plug-in also uses a module id as its SDK unit, so each module id must be "
       "one of the chip's units)";
   std::string vlans = "[1";
   for ( int i = 2; i <= 65; ++i ) {
      vlans += "," + std::to_string( i );
   }
   vlans += "]";
   expectRefused( {
       { "no pipe", R"({"chip": {"pipes": 0}})",
         "chip.pipes: 0 is out of range (expected 1..16)" },
       { "too many pipes", R"({"chip": {"pipes": 4294967295}})",
         "chip.pipes: 4294967295 is out of range (expected 1..16)" },
       { "module 0", R"({"chip": {"modules": {"0": 1}}})",
         "chip.modules.0: module id \"0\" is not a decimal number 1..65535" },
       { "a module on a unit of another number", R"({"chip": {"modules": {"1": 65535}}})",
         "chip.modules.1: module 1 has no unit 1" + noUnit },
       { "two modules on one unit", R"({"chip": {"modules": {"1": 1, "2": 1}}})",
         "chip.modules.2: module 2 has no unit 2" + noUnit },
       { "a module step onto a unit in use",
         oneStep( R"({"module": {"modId": 3, "unit": 1}})" ),
         "steps[0].module.modId: module 3 has no unit 3" + noUnit },
       { "a module step of module 0", oneStep( R"({"module": {"modId": 0, "unit": 0}})" ),
         "steps[0].module.modId: 0 is out of range (expected 1..65535)" },
       { "65 VLANs",
         oneStep( R"({"natRule": {"uid": 1, "key": {}, "data": {"vlans": )" + vlans +
                  "}}}" ),
         "steps[0].natRule.data.vlans: 65 VLAN ids are too many (expected at most 64)" },
       { "leading zeros", oneStep( R"({"packet": {"src": "010.0.0.010"}})" ),
         "steps[0].packet.src: \"010.0.0.010\" is not an IPv4 address (expected "
         "a.b.c.d)" },
   } );
}

// The command line and what playing shows: usage errors are refused input (2), a trace
// setting that would do nothing is refused, a step that cannot be played as asked is a
// problem, and an assertion of the plug-in ends natsim with status 3 and its text.
TEST( NatsimBadInput, CommandLinesAndStopsSayWhatHappened ) {
   Workspace const space;
   std::string const file = space.dir() + "/scenario.json";
   struct Run {
      char const* what;
      std::string scenario;
      std::string args;
      int status;
      std::string err;  // how standard error starts
   };
   std::string const rule =
       R"({"natRule": {"uid": 1, "key": {"type": 2, "dstOld": "1.1.1.1"}, )";
   Run const runs[] = {
       { "no file", "{}", "run", 2, "FILE is required" },
       { "an unknown option", "{}", "--bogus", 2, "The following argument" },
       { "help", "{}", "--help", 0, "" },
       { "a trace of no handle", "{}", "run " + file + " --trace garbage", 2,
         "natsim: --trace: \"garbage\": no trace handle is named \"garbage\"\n" },
       { "a trace of no level", "{}", "run " + file + " --trace ApiCorvane/12", 2,
         "natsim: --trace: \"ApiCorvane/12\": \"12\" are no levels (expected 0..9, a "
         "range a-b or *)\n" },
       { "a trace that applies", "{}", "run " + file + " --trace ApiCorvane/0,4", 0, "" },
       { "removing an unknown ACL",
         oneStep( R"({"trapAclRemove": {"name": "x", "vlan": 1}})" ), "run " + file, 0,
         "natsim: step 0: trapAclRemove: the trap config holds no ACL \"x\" on VLAN "
         "1\n" },
       { "a destination rule on VLAN 0", oneStep( rule + R"("data": {"vlans": [0]}}})" ),
         "run " + file, 3, "" },
       { "a show with two modules",
         R"({"chip": {"modules": {"1": 1, "2": 2}}, "steps": [{"show": "ShowCorvaneNatSlice"}]})",
         "run " + file, 3, "" },
   };
   for ( Run const& r : runs ) {
      std::ofstream( file, std::ios::trunc ) << r.scenario;
      Outcome const run = space.natsim( r.args );
      EXPECT_EQ( run.status, r.status ) << r.what << ": " << run.err;
      EXPECT_EQ( run.err.rfind( r.err, 0 ), 0u ) << r.what << ": " << run.err;
      if ( r.status == 3 ) {
         EXPECT_NE( run.err.find( "Assertion `" ), std::string::npos ) << r.what;
         EXPECT_TRUE( run.out.empty() ) << r.what << ": no result after the stop";
      }
   }
}

}  // namespace
