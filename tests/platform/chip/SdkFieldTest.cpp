// Field-processor calls of the SDK shim as the plug-in makes them: what the chip holds
// afterwards, what reads back, the return codes, and the journal's records.

#include <gmock/gmock.h>

#include "tests/platform/chip/SdkFixture.h"

namespace {

using Chip::Qualifier;
using ::testing::ElementsAre;

class SdkFieldTest : public SdkFixture {};

TEST_F( SdkFieldTest, QualifiersReadBackTruncatedToTheirWidth ) {
   Shim::Sdk& s = *Shim::sdk_;
   U32 id = newEntry();
   ASSERT_EQ( s.bcm_field_qualify_SrcIp( 1, id, 0x0a000001, -1 ), s.BCM_E_NONE );
   ASSERT_EQ( s.bcm_field_qualify_L4SrcPort( 1, id, 8080, -1 ), s.BCM_E_NONE );
   ASSERT_EQ( s.bcm_field_qualify_IpProtocol( 1, id, 6, 0xff ), s.BCM_E_NONE );
   ASSERT_EQ( s.bcm_field_qualify_L3Ingress( 1, id, 10, -1 ), s.BCM_E_NONE );

   U32 ip = 0, ipMask = 0, intf = 0, intfMask = 0;
   U16 port = 0, portMask = 0;
   U8 proto = 0, protoMask = 0;
   EXPECT_EQ( s.bcm_field_qualify_SrcIp_get( 1, id, &ip, &ipMask ), s.BCM_E_NONE );
   EXPECT_EQ( ip, 0x0a000001u );
   EXPECT_EQ( ipMask, 0xffffffffu );
   EXPECT_EQ( s.bcm_field_qualify_L4SrcPort_get( 1, id, &port, &portMask ),
              s.BCM_E_NONE );
   EXPECT_EQ( port, 8080 );
   EXPECT_EQ( portMask, 0xffff );
   EXPECT_EQ( s.bcm_field_qualify_IpProtocol_get( 1, id, &proto, &protoMask ),
              s.BCM_E_NONE );
   EXPECT_EQ( proto, 6 );
   EXPECT_EQ( s.bcm_field_qualify_L3Ingress_get( 1, id, &intf, &intfMask ),
              s.BCM_E_NONE );
   EXPECT_EQ( intf, 10u );
   EXPECT_EQ( intfMask, 0x1fffu );
   EXPECT_EQ( entry( id ).qualifierArgs( Qualifier::L3Ingress ),
              ( Chip::Args{ Chip::numberArg( 10 ), Chip::numberArg( 0x1fff ) } ) );
}

TEST_F( SdkFieldTest, ReadBackOfQualifierNeverSetIsNotFound ) {
   Shim::Sdk& s = *Shim::sdk_;
   U32 id = newEntry();
   s.bcm_field_qualify_SrcIp( 1, id, 0x0a000001, -1 );
   U32 data = 77, mask = 77;
   U16 port = 77, portMask = 77;
   EXPECT_EQ( s.bcm_field_qualify_DstIp_get( 1, id, &data, &mask ), s.BCM_E_NOT_FOUND );
   EXPECT_EQ( s.bcm_field_qualify_L4DstPort_get( 1, id, &port, &portMask ),
              s.BCM_E_NOT_FOUND );
   EXPECT_EQ( s.bcm_field_qualify_SrcIp_get( 1, id + 1, &data, &mask ),
              s.BCM_E_NOT_FOUND );
   EXPECT_EQ( s.bcm_field_qualify_SrcIp_get( 4, id, &data, &mask ), s.BCM_E_UNIT );
   EXPECT_STREQ( s.bcm_errmsg( s.BCM_E_NOT_FOUND ), "Entry not found" );
   EXPECT_EQ( data, 77u );  // outputs are written only on success
   EXPECT_EQ( port, 77 );
}

TEST_F( SdkFieldTest, BadUnitEntryOrIdChangesNothing ) {
   Shim::Sdk& s = *Shim::sdk_;
   U32 id = newEntry();
   EXPECT_EQ( s.bcm_field_qualify_DstIp( 1, id + 1, 1, 1 ), s.BCM_E_NOT_FOUND );
   EXPECT_EQ( s.bcm_field_qualify_DstIp( 3, id, 1, 1 ), s.BCM_E_UNIT );
   EXPECT_EQ( s.bcm_field_qualify_IpFrag( 1, id, 2 ), s.BCM_E_PARAM );
   EXPECT_EQ( s.bcm_field_qualify_ExactMatch( 1, id, 0, 2, 1, 1 ), s.BCM_E_PARAM );
   EXPECT_EQ( s.bcm_field_action_add( 1, id, 1, 0, 0 ), s.BCM_E_PARAM );
   EXPECT_EQ( s.bcm_field_action_add( 1, id + 1, s.bcmFieldActionDrop, 0, 0 ),
              s.BCM_E_NOT_FOUND );
   EXPECT_TRUE( entry( id ).qualifiers().empty() );
   EXPECT_TRUE( entry( id ).actions().empty() );
}

TEST_F( SdkFieldTest, ActionsKeepTheirOrderUntilRemoved ) {
   Shim::Sdk& s = *Shim::sdk_;
   U32 id = newEntry();
   s.bcm_field_action_add( 1, id, s.bcmFieldActionCopyToCpu, 0, 0 );
   s.bcm_field_action_add( 1, id, s.bcmFieldActionDrop, 0, 0 );
   s.bcm_field_action_add( 1, id, s.bcmFieldActionCosQCpuNew, 6, 0 );
   using Chip::Action;
   EXPECT_THAT( entry( id ).actions(),
                ElementsAre( Chip::ActionRecord{ Action::CopyToCpu, 0, 0 },
                             Chip::ActionRecord{ Action::Drop, 0, 0 },
                             Chip::ActionRecord{ Action::CosQCpuNew, 6, 0 } ) );
   EXPECT_EQ( s.bcm_field_action_remove_all( 1, id ), s.BCM_E_NONE );
   s.bcm_field_action_add( 1, id, s.bcmFieldActionL3Switch, 100005, 0 );
   EXPECT_THAT( entry( id ).actions(),
                ElementsAre( Chip::ActionRecord{ Action::L3Switch, 100005, 0 } ) );
}

TEST_F( SdkFieldTest, JournalNamesCallsAndArguments ) {
   Shim::Sdk& s = *Shim::sdk_;
   U32 id = newEntry();
   s.bcm_field_qualify_MyStationHit( 1, id, 1, 1 );
   s.bcm_field_qualify_SrcIp( 1, id, 0x0a000001, -1 );
   s.bcm_field_qualify_L4DstPort( 1, id, 80, -1 );
   s.bcm_field_qualify_L3Ingress( 1, id, 10, -1 );
   s.bcm_field_qualify_IpFrag( 1, id, s.bcmFieldIpFragNotFirst );
   s.bcm_field_qualify_ExactMatch( 1, id, 0, s.bcmFieldQualifyExactMatchHitStatus, 1,
                                   0x1 );
   s.bcm_field_action_add( 1, id, s.bcmFieldActionAssignOpaqueObject1, 7, 0 );
   s.bcm_field_action_add( 1, id, 1, 0, 0 );
   U32 data, mask;
   s.bcm_field_qualify_DstIp_get( 1, id, &data, &mask );
   s.bcm_field_action_remove_all( 1, id );
   std::string e = " unit=1 entry=" + std::to_string( id ) + " ";
   EXPECT_THAT(
       journalText(),
       ElementsAre( "bcm_field_qualify_MyStationHit" + e + "[1, 1] rc=0",
                    "bcm_field_qualify_SrcIp" + e + "[167772161, 4294967295] rc=0",
                    "bcm_field_qualify_L4DstPort" + e + "[80, 65535] rc=0",
                    "bcm_field_qualify_L3Ingress" + e + "[10, 4294967295] rc=0",
                    "bcm_field_qualify_IpFrag" + e + "[\"bcmFieldIpFragNotFirst\"] rc=0",
                    "bcm_field_qualify_ExactMatch" + e +
                        "[0, \"bcmFieldQualifyExactMatchHitStatus\", 1, 1] rc=0",
                    "bcm_field_action_add" + e +
                        "[\"bcmFieldActionAssignOpaqueObject1\", 7, 0] rc=0",
                    "bcm_field_action_add" + e + "[1, 0, 0] rc=-104",
                    "bcm_field_qualify_DstIp_get" + e + "[] rc=-107",
                    "bcm_field_action_remove_all" + e + "[] rc=0" ) );
   // The chip reports each qualifier with the arguments that set it.
   EXPECT_EQ( Chip::json( entry( id ).qualifierArgs( Qualifier::IpFrag ) ),
              "[\"bcmFieldIpFragNotFirst\"]" );
   EXPECT_EQ( Chip::json( entry( id ).qualifierArgs( Qualifier::ExactMatch ) ),
              "[0, \"bcmFieldQualifyExactMatchHitStatus\", 1, 1]" );
}

TEST_F( SdkFieldTest, JournalSwitchesOffAndSlices ) {
   Shim::Sdk& s = *Shim::sdk_;
   U32 id = newEntry();
   s.bcm_field_qualify_SrcIp( 1, id, 1, 1 );
   std::size_t step = Chip::journal().size();
   s.bcm_field_qualify_DstIp( 1, id, 2, 2 );
   EXPECT_THAT( journalText( step ),
                ElementsAre( "bcm_field_qualify_DstIp unit=1 entry=" +
                             std::to_string( id ) + " [2, 2] rc=0" ) );
   Chip::journal().enabledIs( false );
   s.bcm_field_qualify_DstIp( 1, id, 3, 3 );
   EXPECT_EQ( Chip::journal().size(), step + 1 );
   EXPECT_EQ( entry( id ).qualifier( Qualifier::DstIp ).data, 3u );
   Chip::journal().clear();
   EXPECT_EQ( Chip::journal().size(), 0u );
}

}  // namespace
