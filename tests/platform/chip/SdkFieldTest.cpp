// Field-processor calls of the SDK shim: what reads back, the return codes of bad
// requests, and switching the journal off. (The journal lines of each call, and the
// actions an entry holds through reprogramming, are checked where the plug-in makes
// them: tests/CorvaneNat/NatCommitTest.cpp and TrapSmTest.cpp.)

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
