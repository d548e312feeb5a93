// What stops the agent while NAT entries are programmed: entries the data cannot give,
// key types without a branch, and a failing SDK call, whose error line carries the text
// of the call.

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

TEST_F( NatProgramDeathTest, EntriesTheDataCannotGiveStop ) {
   Oro::NatHwKey const dnat =
       natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) );
   Oro::NatHwKey const snat =
       natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) );
   EXPECT_DEATH( rule( 5, dnat, Data().vlans( { 0 } ) ), assertionFailure( "vlanId" ) );
   // A source-side key is programmed without VLAN, so multicast at ingress cannot be.
   EXPECT_DEATH( rule( 5, snat, Data().multicast( 3, true ), { 1 }, 4 ),
                 "Missing vlanId for multicast ingress SNAT/Twice" );
   EXPECT_DEATH(
       rule( 5, natKey( Key::dynamicDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) ),
             Data().vlans( { 0 } ) ),
       assertionFailure( "shadowData0.vlanId( 0 )" ) );
   // A multicast entry carries its multicast uid; none is the uid's range error.
   EXPECT_DEATH( stopOnRangeError( [&] {
                    rule( 5, dnat, Data().vlans( { 10 } ).multicast( 3 ), { 1 }, 0 );
                 } ),
                 "range error: Uid::value < Uid::min or > Uid::max not allowed" );
   U32 const id =
       platform->tcamManager().unboundedEntryManager( 160 )->getEntry( 1, "test", {} );
   Oro::NatHwData const data = Data().vlans( { 10 } );
   for ( Key::NatKeyType type : { Key::natKeyTypeNone, Key::NatKeyType( 7 ) } ) {
      Oro::NatHwKey const key = natKey( type, at( "10.0.0.1" ), at( "1.1.1.1" ) );
      EXPECT_DEATH(
          worker()->doProgramEntry( id, false, false, key, data, key, data, 10, 5 ),
          "Unsupported NAT configuration" )
          << "key type " << type;
   }
}

TEST_F( NatProgramDeathTest, ANegativeCodeIsReportedWithTheCallTextAndStops ) {
   struct Case {
      char const* call;  // the SDK function that fails
      U32 nth;           // its nth call of the commit
      int rc;
      char const* errorText;
      Oro::NatHwKey key;
      Oro::NatHwData data;
      char const* callText;
   };
   Shim::Sdk const& sdk = *Shim::sdk_;
   Oro::NatHwKey const dyn =
       natKey( Key::dynamicSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) );
   Case const cases[] = {
       { "bcm_field_action_add", 4, sdk.BCM_E_NOT_FOUND, "Entry not found",
         natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) ),
         Data().vlans( { 10 } ).nextHop( 5 ),
         "bcm_field_action_add( unit(), entryId, bcmFieldActionDropCancel, 0, 0 )" },
       { "bcm_field_qualify_TcpControl",
         1,
         sdk.BCM_E_INTERNAL,
         "Internal error",
         dyn,
         {},
         "bcm_field_qualify_TcpControl( unit(), entryId, 0, TCAM_FIELD_TCP_CONTROL_MASK "
         ")" },
       { "bcm_field_action_add",
         1,
         sdk.BCM_E_RESOURCE,
         "No resources for operation",
         dyn,
         {},
         "bcm_field_action_add( unit(), entryId, bcmFieldActionAssignOpaqueObject1, uid, "
         "0 )" },
   };
   for ( Case const& c : cases ) {
      EXPECT_STREQ( Shim::sdk_->bcm_errmsg( c.rc ), c.errorText );
      EXPECT_DEATH(
          {
             Shim::sdk_->failureIs( c.call, c.rc, c.nth );
             rule( 5, c.key, c.data );
          },
          "(^|[ /\n])NatEntryRecipe\\.cpp:[0-9]+ " + literal( c.callText ) +
              " API ERROR:" + literal( c.errorText ) +
              " \\(rc:" + std::to_string( c.rc ) + "\\)\n.*" + assertionFailure( "0" ) )
          << c.callText;
   }
}

}  // namespace
