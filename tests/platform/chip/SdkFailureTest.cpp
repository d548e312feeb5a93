// Injected SDK failures, error codes and their texts, and run-time ids that cannot be
// mistaken for one another.

#include <gmock/gmock.h>

#include <set>
#include <vector>

#include "tests/platform/chip/SdkFixture.h"

namespace {

using ::testing::ElementsAre;

class SdkFailureTest : public SdkFixture {};

TEST_F( SdkFailureTest, InjectedFailureReturnsItsCodeOnceAndChangesNothing ) {
   Shim::Sdk& s = *Shim::sdk_;
   U32 id = newEntry();
   s.failureIs( "bcm_field_qualify_SrcIp", s.BCM_E_FULL );
   EXPECT_EQ( s.bcm_field_qualify_SrcIp( 1, id, 0x0a000001, -1 ), s.BCM_E_FULL );
   EXPECT_STREQ( s.bcm_errmsg( s.BCM_E_FULL ), "Table full" );
   EXPECT_FALSE( entry( id ).qualifierHas( Chip::Qualifier::SrcIp ) );
   EXPECT_EQ( s.bcm_field_qualify_SrcIp( 1, id, 0x0a000001, -1 ), s.BCM_E_NONE );
   EXPECT_EQ( s.failuresPending(), 0u );
   std::string e = " unit=1 entry=" + std::to_string( id ) + " ";
   EXPECT_THAT(
       journalText(),
       ElementsAre( "bcm_field_qualify_SrcIp" + e + "[167772161, 4294967295] rc=-106",
                    "bcm_field_qualify_SrcIp" + e + "[167772161, 4294967295] rc=0" ) );
}

TEST_F( SdkFailureTest, NthCallOfTheNameFails ) {
   Shim::Sdk& s = *Shim::sdk_;
   U32 id = newEntry();
   s.failureIs( "bcm_field_action_add", s.BCM_E_RESOURCE, 3 );
   std::vector<int> rcs;
   for ( U32 p = 1; p <= 4; ++p ) {
      s.bcm_field_action_remove_all( 1, id );  // other calls do not count
      rcs.push_back( s.bcm_field_action_add( 1, id, s.bcmFieldActionL3Switch, p, 0 ) );
   }
   EXPECT_THAT( rcs, ElementsAre( 0, 0, s.BCM_E_RESOURCE, 0 ) );
   EXPECT_EQ( entry( id ).actions().back().param0, 4u );
}

TEST_F( SdkFailureTest, FailedMemoryCallsLeaveChipAndBuffer ) {
   Shim::Sdk& s = *Shim::sdk_;
   s.failureIs( "soc_mem_read", s.BCM_E_TIMEOUT );
   s.failureIs( "soc_mem_write", s.BCM_E_INTERNAL );
   s.failureIs( "soc_reg32_set", s.BCM_E_BUSY );
   s.failureIs( "bcm_switch_control_set", s.BCM_E_UNAVAIL );
   Shim::opaque_strength_b_entry_t b = { { 0xdead, 0xbeef } };
   EXPECT_EQ( s.soc_mem_read( 1, s.OPAQUE_STRENGTH_Bm, s.MEM_BLOCK_ANY, 0, &b ),
              s.BCM_E_TIMEOUT );
   EXPECT_EQ( b.entry_data[0], 0xdeadu );
   EXPECT_EQ( s.soc_mem_write( 1, s.OPAQUE_STRENGTH_Bm, s.MEM_BLOCK_ALL, 0, &b ),
              s.BCM_E_INTERNAL );
   EXPECT_EQ( s.soc_reg32_set( 1, s.MCAST_XLATE_TYPESr, s.REG_PORT_ANY, 0, 0 ),
              s.BCM_E_BUSY );
   EXPECT_EQ( s.bcm_switch_control_set( 1, s.bcmSwitchL3EgressMode, 1 ),
              s.l3EgressModeTolerableRc );
   EXPECT_TRUE( table( Chip::TableId::OpaqueStrengthB ).rowsWritten().empty() );
   EXPECT_TRUE( table( Chip::TableId::McastXlateTypes ).rowsWritten().empty() );
   EXPECT_TRUE( chip->unit( 1 )->switchControls().empty() );
   EXPECT_EQ( Chip::journal().record( 0 ).rc, s.BCM_E_TIMEOUT );
}

TEST_F( SdkFailureTest, EveryCodeIsNegativeDistinctAndHasItsOwnText ) {
   Shim::Sdk& s = *Shim::sdk_;
   std::vector<int> const codes = { s.BCM_E_INTERNAL,  s.BCM_E_MEMORY,   s.BCM_E_UNIT,
                                    s.BCM_E_PARAM,     s.BCM_E_EMPTY,    s.BCM_E_FULL,
                                    s.BCM_E_NOT_FOUND, s.BCM_E_EXISTS,   s.BCM_E_TIMEOUT,
                                    s.BCM_E_BUSY,      s.BCM_E_FAIL,     s.BCM_E_DISABLED,
                                    s.BCM_E_BADID,     s.BCM_E_RESOURCE, s.BCM_E_CONFIG,
                                    s.BCM_E_UNAVAIL,   s.BCM_E_INIT,     s.BCM_E_PORT };
   std::set<int> distinctCodes;
   std::set<std::string> texts;
   for ( int rc : codes ) {
      EXPECT_LT( rc, 0 );
      distinctCodes.insert( rc );
      texts.insert( s.bcm_errmsg( rc ) );
   }
   EXPECT_EQ( distinctCodes.size(), codes.size() );
   EXPECT_EQ( texts.size(), codes.size() );
   EXPECT_EQ( texts.count( "Unknown error" ), 0u );
   EXPECT_STREQ( s.bcm_errmsg( s.BCM_E_PARAM ), "Invalid parameter" );
   EXPECT_STREQ( s.bcm_errmsg( -9999 ), "Unknown error" );
   EXPECT_EQ( s.BCM_E_NONE, 0 );
}

// Ids of one kind must differ, or the shim could not tell them apart; none is a small
// number that code might have hardcoded.
TEST_F( SdkFailureTest, RunTimeIdsAreDistinctAndNotSmall ) {
   Shim::Sdk& s = *Shim::sdk_;
   std::vector<std::vector<int>> const kinds = {
       { s.bcmFieldActionDrop, s.bcmFieldActionDropCancel, s.bcmFieldActionCopyToCpu,
         s.bcmFieldActionCopyToCpuCancel, s.bcmFieldActionCosQCpuNew,
         s.bcmFieldActionL3Switch, s.bcmFieldActionRedirectIpmc,
         s.bcmFieldActionAssignExtractionCtrlId, s.bcmFieldActionAssignOpaqueObject1 },
       { s.bcmFieldIpFragNon, s.bcmFieldIpFragFirst, s.bcmFieldIpFragNonOrFirst,
         s.bcmFieldIpFragNotFirst, s.bcmFieldIpFragAny },
       { s.MEM_BLOCK_ANY, s.MEM_BLOCK_ALL },
       { s.L4_PORT_XLATEm, s.OPAQUE_STRENGTH_Am, s.OPAQUE_STRENGTH_Bm,
         s.MCAST_XLATE_TYPESr },
       { s.XLATE_ENABLEf, s.OPAQUE1_STRENGTHf, s.OPAQUE2_STRENGTHf, s.OPAQUE_STRENGTHf,
         s.FIXED_1f, s.FIXED_2f, s.FIXED_3f, s.FIXED_4f, s.FIXED_5f, s.TYPE_0f,
         s.ENABLE_0f, s.TYPE_1f, s.ENABLE_1f, s.TYPE_2f, s.ENABLE_2f } };
   for ( auto const& ids : kinds ) {
      EXPECT_EQ( std::set<int>( ids.begin(), ids.end() ).size(), ids.size() );
      for ( int id : ids ) {
         EXPECT_GT( id, 8 );
      }
   }
}

}  // namespace
