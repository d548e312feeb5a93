// What stops the agent while NAT entries are programmed: entries the data cannot give,
// key types without a branch, and a failing SDK call, whose error line carries the text
// of the call. (What each entry holds: NatEntryRecipeTest.cpp.)

#include "NatJournalLines.h"

namespace {

using namespace NatTest;

// --- Broken expectations and failing SDK calls stop the agent --------------------------
// (FaultsTest.cpp plays more failing calls through natsim: the static source qualifier,
// the action removal of a reinstall, memories, registers and switch controls.)

class NatProgramDeathTest : public NatProgramFixture {
protected:
   void SetUp() override { GTEST_FLAG_SET( death_test_style, "threadsafe" ); }
};

TEST_F( NatProgramDeathTest, AUnicastDestinationEntryWithoutVlanStops ) {
   start();
   EXPECT_DEATH(
       rule( 5, natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) ),
             Data().vlans( { 0 } ) ),
       assertionFailure( "vlanId" ) );
}

// A source-side key is programmed without VLAN, so multicast at ingress cannot be.
TEST_F( NatProgramDeathTest, AMulticastIngressSourceEntryStops ) {
   start();
   EXPECT_DEATH( rule( 5, natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) ),
                       Data().multicast( 3, true ), { 1 }, 4 ),
                 assertionFailure(
                     "vlanId && \"Missing vlanId for multicast ingress SNAT/Twice\"" ) );
}

TEST_F( NatProgramDeathTest, ADynamicDestinationEntryWithoutVlanStops ) {
   start();
   EXPECT_DEATH(
       rule( 5, natKey( Key::dynamicDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) ),
             Data().vlans( { 0 } ) ),
       assertionFailure( "shadowData0.vlanId( 0 )" ) );
}

TEST_F( NatProgramDeathTest, KeyTypesWithoutBranchStop ) {
   start();
   U32 const id =
       platform->tcamManager().unboundedEntryManager( 160 )->getEntry( 1, "test", {} );
   Oro::NatHwData const data = Data().vlans( { 10 } );
   for ( Key::NatKeyType type : { Key::natKeyTypeNone, Key::NatKeyType( 7 ) } ) {
      Oro::NatHwKey const key = natKey( type, at( "10.0.0.1" ), at( "1.1.1.1" ) );
      EXPECT_DEATH(
          worker()->doProgramEntry( id, false, false, key, data, key, data, 10, 5 ),
          assertionFailure( "0 && \"Unsupported NAT configuration\"" ) )
          << "key type " << type;
   }
}

// A multicast entry carries its multicast uid; a row without one is the uid's range
// error, which nothing in the agent catches.
TEST_F( NatProgramDeathTest, AMulticastRowWithoutMulticastUidIsTheUidRangeError ) {
   start();
   auto commit = [this] {
      rule( 5, natKey( Key::staticDstNat, {}, {}, at( "239.1.1.1" ), at( "239.2.2.2" ) ),
            Data().vlans( { 10 } ).multicast( 3 ), { 1 }, 0 );
   };
   EXPECT_DEATH(
       stopOnRangeError( commit ),
       literal( "range error: Uid::value < Uid::min or > Uid::max not allowed" ) );
}

struct SdkFailureCase {
   char const* name;
   char const* call;  // the SDK function that fails
   U32 nth;           // its nth call of the commit
   int const Shim::Sdk::*rc;
   char const* errorText;
   Oro::NatHwKey key;
   Oro::NatHwData data;
   char const* file;
   char const* callText;
};

std::vector<SdkFailureCase> sdkFailureCases() {
   Oro::NatHwKey const dnat =
       natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) );
   Oro::NatHwKey const dyn =
       natKey( Key::dynamicSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) );
   Oro::NatHwData const vlan = Data().vlans( { 10 } ).nextHop( 5 );
   return {
       { "StaticDestinationAction", "bcm_field_action_add", 4,
         &Shim::Sdk::BCM_E_NOT_FOUND, "Entry not found", dnat, vlan, "NatEntryRecipe.cpp",
         "bcm_field_action_add( unit(), entryId, bcmFieldActionDropCancel, 0, 0 )" },
       { "DynamicTcpControl",
         "bcm_field_qualify_TcpControl",
         1,
         &Shim::Sdk::BCM_E_INTERNAL,
         "Internal error",
         dyn,
         {},
         "NatEntryRecipe.cpp",
         "bcm_field_qualify_TcpControl( unit(), entryId, 0, TCAM_FIELD_TCP_CONTROL_MASK "
         ")" },
       { "DynamicOpaqueObject",
         "bcm_field_action_add",
         1,
         &Shim::Sdk::BCM_E_RESOURCE,
         "No resources for operation",
         dyn,
         {},
         "NatEntryRecipe.cpp",
         "bcm_field_action_add( unit(), entryId, bcmFieldActionAssignOpaqueObject1, uid, "
         "0 "
         ")" },
   };
}

void PrintTo( SdkFailureCase const& c, std::ostream* os ) {
   *os << c.name;
}

class NatSdkFailureDeathTest : public NatProgramFixture,
                               public ::testing::WithParamInterface<SdkFailureCase> {
protected:
   void SetUp() override { GTEST_FLAG_SET( death_test_style, "threadsafe" ); }
};

TEST_P( NatSdkFailureDeathTest, ANegativeCodeIsReportedWithTheCallTextAndStops ) {
   SdkFailureCase const& c = GetParam();
   start();
   int const rc = Shim::sdk_->*c.rc;
   ASSERT_STREQ( Shim::sdk_->bcm_errmsg( rc ), c.errorText );
   Shim::sdk_->failureIs( c.call, rc, c.nth );
   std::string const report =
       "(^|[ /\n])" + literal( c.file ) + ":[0-9]+ " + literal( c.callText ) +
       " API ERROR:" + literal( c.errorText ) + literal( " (rc:" ) +
       std::to_string( rc ) + "\\)\n.*" + assertionFailure( "0" );
   EXPECT_DEATH( rule( 5, c.key, c.data ), report );
}

INSTANTIATE_TEST_SUITE_P( Calls, NatSdkFailureDeathTest,
                          ::testing::ValuesIn( sdkFailureCases() ),
                          []( ::testing::TestParamInfo<SdkFailureCase> const& info ) {
                             return std::string( info.param.name );
                          } );

}  // namespace
