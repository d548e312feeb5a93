// The test every text of natsim's JSON output passes before it is written as it is:
// exactly the texts without a byte to escape. (The records themselves are read back in
// every test that parses natsim's result.)

#include <gtest/gtest.h>

#include "tools/natsim/JsonText.h"

namespace {

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
