// A journal record's JSON text: the short form most calls take and the general one
// (names to escape, field maps, texts too long for the short form) read the same.

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tools/natsim/JsonText.h"
#include "tools/natsim/ResultText.h"

namespace {

nlohmann::json recordText( Chip::JournalRecord const& record ) {
   std::string out = "[";
   natsim::appendJournalRecord( out, 7, record );
   out += ',';
   natsim::appendJournalRecord( out, 8, record );
   out += ']';
   nlohmann::json const both = nlohmann::json::parse( out );
   EXPECT_EQ( both[0]["step"], 7 );
   return both[1];
}

TEST( JournalText, EveryKindOfArgumentReadsAsTheRecordHoldsIt ) {
   std::string const longName( 500, 'd' );
   struct Case {
      Chip::Args args;
      bool hasEntry;
      nlohmann::json expected;
   } const cases[] = {
       { { Chip::numberArg( 4294967295u ), Chip::nameArg( "bcmFieldActionDrop" ) },
         true,
         { 4294967295u, "bcmFieldActionDrop" } },
       { { Chip::nameArg( "say \"hi\"\\ \xc3\xa9" ) },
         true,
         { "say \"hi\"\\ \xc3\xa9" } },
       { { Chip::fieldsArg( { { "XLATE_ENABLE", 3 } } ) },
         false,
         { { { "XLATE_ENABLE", 3 } } } },
       { { Chip::nameArg( longName ), Chip::numberArg( 1 ) }, true, { longName, 1 } },
       { {}, false, nlohmann::json::array() },
   };
   for ( Case const& c : cases ) {
      Chip::JournalRecord record;
      record.call = "bcm_field_qualify_SrcIp";
      record.unit = 1;
      record.hasEntry = c.hasEntry;
      record.entry = 12;
      record.args = c.args;
      record.rc = -4;
      nlohmann::json expected = { { "step", 8 },
                                  { "call", "bcm_field_qualify_SrcIp" },
                                  { "unit", 1 },
                                  { "args", c.expected },
                                  { "rc", -4 } };
      if ( c.hasEntry ) {
         expected["entry"] = 12;
      }
      EXPECT_EQ( recordText( record ), expected ) << c.expected.dump();
   }
}

// Every byte, at every place of a text read eight bytes at a time and of its tail.
TEST( JournalText,
      ATextIsPlainExactlyWhenEveryByteIsPrintableAsciiButQuoteAndBackslash ) {
   for ( unsigned byte = 0; byte < 256; ++byte ) {
      bool const plain = byte >= 0x20 && byte < 0x7f && byte != '"' && byte != '\\';
      for ( std::size_t at = 0; at < 19; ++at ) {
         std::string text( 19, 'a' );
         text[at] = char( byte );
         ASSERT_EQ( natsim::jsonPlain( text ), plain ) << "byte " << byte << " at " << at;
      }
   }
}

}  // namespace
