// The SDK shim over the chip model: the codes of bad requests (which change nothing) and
// injected failures. (The journal's records of the plug-in's calls are checked in
// tests/CorvaneNat, the codes' texts end to end in tests/tools/natsim/FaultsTest.cpp.)

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "platform/chip/Sdk.h"

namespace {

using Chip::Qualifier;
using Chip::TableId;
using ::testing::ElementsAre;

// A chip of one unit (1) behind the process's SDK shim, with an empty journal.
class SdkTest : public ::testing::Test {
protected:
   SdkTest() {
      chip->unitIs( 1 );
      Chip::journal().clear();
      Chip::journal().enabledIs( true );
      Shim::sdk_ = &s;
   }
   ~SdkTest() override { Shim::sdk_ = nullptr; }

   U32 newEntry() { return chip->unit( 1 )->fieldProcessor().entryIs( 160, "entry" ); }
   Chip::FpEntry const& entry( U32 id ) {
      return *chip->unit( 1 )->fieldProcessor().entry( id );
   }
   Chip::Table const& table( TableId id ) { return chip->unit( 1 )->table( id ); }
   // The journal's records from `first` on, as text.
   static std::vector<std::string> journalText( std::size_t first = 0 ) {
      std::vector<std::string> lines;
      for ( auto const& r : Chip::journal().recordsFrom( first ) ) {
         lines.push_back( r.stringValue() );
      }
      return lines;
   }

   Chip::ChipModel::Ptr chip = Chip::ChipModel::ChipModelIs();
   Shim::Sdk s{ chip };
   std::vector<U32> row = std::vector<U32>( std::size_t( s.SOC_MAX_MEM_WORDS ), 0 );
};

TEST_F( SdkTest, BadRequestsAreRefusedAndChangeNothing ) {
   U32 id = newEntry();
   U32 value = 0;
   std::vector<std::pair<int, int>> const calls = {
       { s.bcm_field_qualify_DstIp( 1, id + 1, 1, 1 ), s.BCM_E_NOT_FOUND },
       { s.bcm_field_qualify_DstIp_get( 1, id, &value, &value ), s.BCM_E_NOT_FOUND },
       { s.bcm_field_qualify_IpFrag( 1, id, 2 ), s.BCM_E_PARAM },
       { s.bcm_field_qualify_ExactMatch( 1, id, 0, 2, 1, 1 ), s.BCM_E_PARAM },
       { s.bcm_field_action_add( 1, id, 1, 0, 0 ), s.BCM_E_PARAM },
       { s.bcm_field_action_add( 1, id + 1, s.bcmFieldActionDrop, 0, 0 ),
         s.BCM_E_NOT_FOUND },
       { s.soc_mem_read( 1, s.L4_PORT_XLATEm, s.MEM_BLOCK_ANY, 64, row.data() ),
         s.BCM_E_PARAM },
       { s.soc_mem_write( 1, s.MCAST_XLATE_TYPESr, s.MEM_BLOCK_ALL, 0, row.data() ),
         s.BCM_E_PARAM },
       { s.soc_mem_write( 2, s.L4_PORT_XLATEm, s.MEM_BLOCK_ALL, 0, row.data() ),
         s.BCM_E_UNIT },
       { s.soc_mem_field32_set( 1, s.L4_PORT_XLATEm, row.data(), s.OPAQUE_STRENGTHf, 7 ),
         s.BCM_E_PARAM },
       { s.soc_reg32_get( 1, s.MCAST_XLATE_TYPESr, 3, 0, &value ), s.BCM_E_PORT },
       { s.soc_reg32_set( 1, s.L4_PORT_XLATEm, s.REG_PORT_ANY, 0, 0 ), s.BCM_E_PARAM },
       { s.soc_reg32_set( 9, s.MCAST_XLATE_TYPESr, s.REG_PORT_ANY, 0, 0 ), s.BCM_E_UNIT },
   };
   for ( std::size_t i = 0; i < calls.size(); ++i ) {
      EXPECT_EQ( calls[i].first, calls[i].second ) << "call " << i;
   }
   EXPECT_TRUE( entry( id ).qualifiers().empty() && entry( id ).actions().empty() );
   EXPECT_EQ( std::count( row.begin(), row.end(), 0u ), std::ptrdiff_t( row.size() ) );
   EXPECT_TRUE( table( TableId::L4PortXlate ).rowsWritten().empty() );
   EXPECT_TRUE( table( TableId::McastXlateTypes ).rowsWritten().empty() );
   EXPECT_THAT( journalText(),
                ::testing::Contains(
                    "soc_reg32_get unit=1 [\"MCAST_XLATE_TYPES\", 3, 0] rc=-118" ) );
}

TEST_F( SdkTest, AnInjectedFailureHitsTheNthCallOfItsNameOnceAndChangesNothing ) {
   U32 id = newEntry();
   s.failureIs( "bcm_field_action_add", s.BCM_E_RESOURCE, 3 );
   std::vector<int> rcs;
   for ( U32 p = 1; p <= 4; ++p ) {
      s.bcm_field_action_remove_all( 1, id );  // other calls do not count
      rcs.push_back( s.bcm_field_action_add( 1, id, s.bcmFieldActionL3Switch, p, 0 ) );
   }
   EXPECT_THAT( rcs, ElementsAre( 0, 0, s.BCM_E_RESOURCE, 0 ) );
   EXPECT_EQ( entry( id ).actions().back().param0, 4u );
   EXPECT_EQ( s.failuresPending(), 0u );

   s.failureIs( "soc_mem_read", s.BCM_E_TIMEOUT );
   s.failureIs( "soc_mem_write", s.BCM_E_INTERNAL );
   s.failureIs( "soc_reg32_set", s.BCM_E_BUSY );
   s.failureIs( "bcm_switch_control_set", s.BCM_E_UNAVAIL );
   s.failureIs( "bcm_field_qualify_SrcIp", s.BCM_E_FULL );
   std::size_t const first = Chip::journal().size();
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
   EXPECT_EQ( s.bcm_field_qualify_SrcIp( 1, id, 0x0a000001, -1 ), s.BCM_E_FULL );
   EXPECT_FALSE( entry( id ).qualifierHas( Qualifier::SrcIp ) );
   EXPECT_TRUE( table( TableId::OpaqueStrengthB ).rowsWritten().empty() );
   EXPECT_TRUE( table( TableId::McastXlateTypes ).rowsWritten().empty() );
   EXPECT_TRUE( chip->unit( 1 )->switchControls().empty() );
   EXPECT_EQ( journalText( first + 4 ),
              std::vector<std::string>{
                  "bcm_field_qualify_SrcIp unit=1 entry=" + std::to_string( id ) +
                  " [167772161, 4294967295] rc=-106" } );
   EXPECT_STREQ( s.bcm_errmsg( s.BCM_E_FULL ), "Table full" );
   EXPECT_STREQ( s.bcm_errmsg( -9999 ), "Unknown error" );

   Chip::journal().enabledIs( false );
   s.bcm_field_qualify_DstIp( 1, id, 3, 3 );
   EXPECT_EQ( Chip::journal().size(), first + 5 ) << "a journal switched off";
   EXPECT_EQ( entry( id ).qualifier( Qualifier::DstIp ).data, 3u );
}

}  // namespace
