// natsim on malformed input, as a user runs it: a bad file or text gets exactly one
// line on standard error, naming the place and what was expected, and exit status 2,
// with nothing played (each kind of bad value: ScenarioTest.cpp).

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "NatsimProcess.h"

namespace {

// `text` repeated `n` times.
std::string repeated( std::string const& text, int n ) {
   std::string all;
   while ( n-- > 0 ) {
      all += text;
   }
   return all;
}

std::string oneStep( std::string const& step ) {
   return R"({"steps": [)" + step + "]}";
}

using NatsimProcess::natsimIn;
using NatsimProcess::Outcome;
using NatsimProcess::TempDir;

struct Case {
   char const* what;
   std::string content;
   // The whole line natsim prints after "natsim: <file>: ".
   std::string message;
};

void expectRefused( std::vector<Case> const& cases ) {
   TempDir const dir;
   std::string const file = dir.path() + "/scenario.json";
   for ( Case const& c : cases ) {
      std::ofstream( file, std::ios::binary | std::ios::trunc ) << c.content;
      Outcome const run = natsimIn( dir, "run " + file );
      EXPECT_EQ( run.status, 2 ) << c.what << ": " << run.err;
      EXPECT_EQ( run.err, "natsim: " + file + ": " + c.message + "\n" ) << c.what;
      EXPECT_TRUE( run.out.empty() ) << c.what << ": nothing is played";
   }
}

TEST( NatsimBadInput, FilesThatAreNoScenario ) {
   TempDir const dir;
   std::string const missing = dir.path() + "/missing.json";
   std::pair<std::string, std::string> const cases[] = {
       { dir.path(), "is a directory (expected a scenario file)" },
       { missing, "cannot be read (No such file or directory)" },
       { "/dev/zero", "is too large (expected at most 67108864 bytes)" },
   };
   for ( auto const& [file, message] : cases ) {
      Outcome const run = natsimIn( dir, "run " + file );
      EXPECT_EQ( run.status, 2 ) << file;
      EXPECT_EQ( run.err, "natsim: " + file + ": " + message + "\n" );
   }
}

TEST( NatsimBadInput, BadTextGetsOneLineNamingWhereAndWhatWasExpected ) {
   int const depth = 100000;
   std::string const name( 5000, 'x' );
   std::string const endOfInput =
       "invalid JSON: syntax error while parsing value - unexpected end of input; "
       "expected '[', '{', or a literal";
   expectRefused( {
       { "empty file", "", "line 1, column 1: " + endOfInput },
       { "binary (JPEG)", std::string( "\xff\xd8\xff\xe0\x00\x10JFIF", 10 ),
         "line 1, column 1: byte 0xff is not text (expected JSON in UTF-8)" },
       { "NUL after a document", std::string( "{}\n\0{\"steps\": 1}", 16 ),
         "line 2, column 1: byte 0x00 is not text (expected JSON in UTF-8)" },
       { "not UTF-8 in a string", "{\"agent\": \"caf\xe9\"}",
         "line 1, column 15: byte 0xe9 is not text (expected JSON in UTF-8)" },
       // Found by the fuzzer: the parser quotes a multi-byte character cut in half.
       { "a character in place of a value", "{\"steps\": [{\"packet\":\xde\x84}]}",
         "line 1, column 22: invalid JSON: syntax error while parsing value - invalid "
         "literal; last read: '\"packet\":\xef\xbf\xbd'" },
       { "a number beyond a double", "{\n \"steps\": [{\"advance\": 1e400}]}",
         "line 2, column 24: the number 1e400 is out of range (expected at most about "
         "1.8e308 in size)" },
       // Nesting deeper than any parser's stack.
       { "nested arrays", std::string( depth, '[' ) + std::string( depth, ']' ),
         "expected an object, got an array" },
       { "nested objects", repeated( R"({"a": )", depth ) + "1" + repeated( "}", depth ),
         "unknown member \"a\" (known: agent, chip, nat, steps)" },
       { "nesting cut short", std::string( depth, '[' ),
         "line 1, column 100001: " + endOfInput },
       // Long names are cut in the message, never inside a character.
       { "a long step name", oneStep( "{\"" + name + "\": 1}" ),
         "steps[0] (line 1, column 12): unknown step \"" + name.substr( 0, 60 ) +
             "\"... (known: natRule, natRuleRemove, trapAcl, trapAclRemove, mcastMode, "
             "module, moduleRemove, mountGroupReady, flashDownload, fragmentEnabled, "
             "packet, advance, show, verify, sdkFailure, restart)" },
       { "cut before a multi-byte character",
         oneStep( R"({"packet": {"frag": ")" + std::string( 59, 'a' ) + "\xc3\xa9\"}}" ),
         "steps[0].packet.frag (line 1, column 32): \"" + std::string( 59, 'a' ) +
             "\"... is not a fragment kind (expected none, first or notFirst)" },
       // Faults found after parsing name their line.
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
   } );
}

// The command line and what playing shows: usage errors are refused input (2), a trace
// setting that would do nothing is refused, a plug-in that cannot be set up ends with 1,
// a step that cannot be played as asked is a problem, and an assertion of the plug-in
// ends natsim with status 3 and its text.
TEST( NatsimBadInput, CommandLinesAndStopsSayWhatHappened ) {
   TempDir const dir;
   std::string const file = dir.path() + "/scenario.json";
   struct Run {
      char const* what;
      std::string scenario;
      std::string args;
      int status;
      std::string err;  // a part of standard error
   };
   std::string const rule =
       R"({"natRule": {"uid": 1, "key": {"type": 2, "dstOld": "1.1.1.1"}, )";
   Run const runs[] = {
       { "no file", "{}", "run", 2, "FILE is required" },
       { "an unknown option", "{}", "--bogus", 2, "The following argument" },
       { "a journal of no call", "{}", "run " + file + " --journal getEntries", 2,
         "natsim: --journal: \"getEntries\" is not a call the journal records" },
       { "a journal file that cannot be written",
         oneStep( R"({"natRule": {"uid": 1, "key": {"srcOld": "10.0.0.1"}}})" ),
         "run " + file + " --journal-file /dev/full", 1,
         "natsim: --journal-file: cannot write /dev/full" },
       { "a trace of no handle", "{}", "run " + file + " --trace garbage", 2,
         "natsim: --trace: \"garbage\": no trace handle is named \"garbage\"\n" },
       { "a trace of no level", "{}", "run " + file + " --trace ApiCorvane/12", 2,
         "natsim: --trace: \"ApiCorvane/12\": \"12\" are no levels (expected 0..9, a "
         "range a-b or *)\n" },
       { "removing an unknown ACL",
         oneStep( R"({"trapAclRemove": {"name": "x", "vlan": 1}})" ), "run " + file, 0,
         "natsim: step 0: trapAclRemove: the trap config holds no ACL \"x\" on VLAN "
         "1\n" },
       { "a destination rule on VLAN 0", oneStep( rule + R"("data": {"vlans": [0]}}})" ),
         "run " + file, 3, "" },
       { "a plug-in without the mounter type", "{}",
         "run " + file + " --plugin " + TEST_PLUGIN_PATH, 1,
         "registers no mounter type \"Corvane::NatMounter\"" },
       { "a show with two modules",
         R"({"chip": {"modules": {"1": 1, "2": 2}}, "steps": [{"show": "ShowCorvaneNatSlice"}]})",
         "run " + file, 3, "" },
   };
   for ( Run const& r : runs ) {
      std::ofstream( file, std::ios::trunc ) << r.scenario;
      Outcome const run = natsimIn( dir, r.args );
      EXPECT_EQ( run.status, r.status ) << r.what << ": " << run.err;
      EXPECT_NE( run.err.find( r.err ), std::string::npos ) << r.what << ": " << run.err;
      if ( r.status == 3 ) {
         EXPECT_NE( run.err.find( "Assertion `" ), std::string::npos ) << r.what;
         EXPECT_TRUE( run.out.empty() ) << r.what << ": no result after the stop";
      }
   }
}

}  // namespace
