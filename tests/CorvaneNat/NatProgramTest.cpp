// A failing SDK call while NAT entries are programmed stops the agent.

#include "NatTestFixture.h"

namespace {

using namespace NatTest;

class NatProgramDeathTest : public NatFixture {
protected:
   void SetUp() override {
      GTEST_FLAG_SET( death_test_style, "threadsafe" );
      start();
   }
};

// The error line names the file and line of the call, the call, the SDK's message and
// the code.
TEST_F( NatProgramDeathTest, ANegativeCodeIsReportedWithTheCallAndStops ) {
   struct Case {
      char const* call;  // the SDK function that fails
      U32 nth;           // its nth call of the commit
      int rc;
      char const* errorText;
      Oro::NatHwKey key;
      Oro::NatHwData data;
   };
   Shim::Sdk const& sdk = *Shim::sdk_;
   Case const cases[] = {
       { "bcm_field_action_add", 4, sdk.BCM_E_NOT_FOUND, "Entry not found",
         natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) ),
         Data().vlans( { 10 } ).nextHop( 5 ) },
   };
   for ( Case const& c : cases ) {
      EXPECT_STREQ( Shim::sdk_->bcm_errmsg( c.rc ), c.errorText );
      EXPECT_DEATH(
          {
             Shim::sdk_->failureIs( c.call, c.rc, c.nth );
             rule( 5, c.key, c.data );
          },
          "(^|[ /\n])NatEntryRecipe\\.cpp:[0-9]+ " + std::string( c.call ) +
              "\\(.* API ERROR:" + literal( c.errorText ) +
              " \\(rc:" + std::to_string( c.rc ) + "\\)\n.*" + assertionFailure( "0" ) )
          << c.call;
   }
}

}  // namespace
