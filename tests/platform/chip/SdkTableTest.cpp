// Memories and the translation-type register through the SDK shim: the journal's
// records of a read-modify-write cycle, the register's unnamed bits, and the codes of
// bad requests. (What the chip holds after the plug-in's cycles, and switch controls:
// tests/CorvaneNat/NatChipConfigTest.cpp and tests/tools/natsim/FaultsTest.cpp.)

#include <gmock/gmock.h>

#include <algorithm>
#include <vector>

#include "tests/platform/chip/SdkFixture.h"

namespace {

using Chip::FieldValues;
using Chip::TableId;
using ::testing::ElementsAre;

class SdkTableTest : public SdkFixture {
protected:
   // Sets XLATE_ENABLE of a row of L4_PORT_XLATE the way the plug-in does.
   int enableL4PortTranslation( int row ) {
      Shim::Sdk& s = *Shim::sdk_;
      std::vector<U32> entry( std::size_t( s.SOC_MAX_MEM_WORDS ), 0 );
      int rc = s.soc_mem_read( 1, s.L4_PORT_XLATEm, s.MEM_BLOCK_ANY, row, entry.data() );
      if ( rc != s.BCM_E_NONE ) {
         return rc;
      }
      s.soc_mem_field32_set( 1, s.L4_PORT_XLATEm, entry.data(), s.XLATE_ENABLEf, 3 );
      return s.soc_mem_write( 1, s.L4_PORT_XLATEm, s.MEM_BLOCK_ALL, row, entry.data() );
   }
};

TEST_F( SdkTableTest, JournalNamesMemoriesBlocksAndWrittenFields ) {
   Shim::Sdk& s = *Shim::sdk_;
   enableL4PortTranslation( 30 );
   Shim::opaque_strength_a_entry_t a = {};
   s.soc_mem_read( 1, s.OPAQUE_STRENGTH_Am, s.MEM_BLOCK_ANY, 2, &a );
   s.soc_mem_field32_set( 1, s.OPAQUE_STRENGTH_Am, &a, s.OPAQUE2_STRENGTHf, 6 );
   s.soc_mem_write( 1, s.OPAQUE_STRENGTH_Am, s.MEM_BLOCK_ALL, 2, &a );
   EXPECT_THAT(
       journalText(),
       ElementsAre(
           "soc_mem_read unit=1 [\"L4_PORT_XLATE\", \"MEM_BLOCK_ANY\", 30] rc=0",
           "soc_mem_write unit=1 [\"L4_PORT_XLATE\", \"MEM_BLOCK_ALL\", 30, "
           "{\"XLATE_ENABLE\": 3}] rc=0",
           "soc_mem_read unit=1 [\"OPAQUE_STRENGTH_A\", \"MEM_BLOCK_ANY\", 2] rc=0",
           "soc_mem_write unit=1 [\"OPAQUE_STRENGTH_A\", \"MEM_BLOCK_ALL\", 2, "
           "{\"OPAQUE1_STRENGTH\": 0, \"OPAQUE2_STRENGTH\": 6}] rc=0" ) );
}

TEST_F( SdkTableTest, BadMemoryRequestsAreRefusedAndWriteNothing ) {
   Shim::Sdk& s = *Shim::sdk_;
   EXPECT_EQ( enableL4PortTranslation( 64 ), s.BCM_E_PARAM );
   EXPECT_EQ( enableL4PortTranslation( -1 ), s.BCM_E_PARAM );
   std::vector<U32> entry( std::size_t( s.SOC_MAX_MEM_WORDS ), 0 );
   EXPECT_EQ(
       s.soc_mem_write( 1, s.MCAST_XLATE_TYPESr, s.MEM_BLOCK_ALL, 0, entry.data() ),
       s.BCM_E_PARAM );
   EXPECT_EQ( s.soc_mem_write( 1, s.L4_PORT_XLATEm, 5, 0, entry.data() ), s.BCM_E_PARAM );
   EXPECT_EQ( s.soc_mem_write( 2, s.L4_PORT_XLATEm, s.MEM_BLOCK_ALL, 0, entry.data() ),
              s.BCM_E_UNIT );
   // A field of another memory is not set.
   EXPECT_EQ(
       s.soc_mem_field32_set( 1, s.L4_PORT_XLATEm, entry.data(), s.OPAQUE_STRENGTHf, 7 ),
       s.BCM_E_PARAM );
   EXPECT_EQ( std::count( entry.begin(), entry.end(), 0u ),
              std::ptrdiff_t( entry.size() ) );
   EXPECT_TRUE( table( TableId::L4PortXlate ).rowsWritten().empty() );
   EXPECT_TRUE( table( TableId::McastXlateTypes ).rowsWritten().empty() );
}

TEST_F( SdkTableTest, RegisterFieldsAreSetAndOtherBitsKept ) {
   Shim::Sdk& s = *Shim::sdk_;
   U32 value = 0;
   ASSERT_EQ( s.soc_reg32_get( 1, s.MCAST_XLATE_TYPESr, s.REG_PORT_ANY, 0, &value ),
              s.BCM_E_NONE );
   U32 const initial = value;
   for ( int f : { s.FIXED_1f, s.FIXED_2f, s.FIXED_3f } ) {
      s.soc_reg_field_set( 1, s.MCAST_XLATE_TYPESr, &value, f, 3 );
   }
   for ( int f : { s.FIXED_4f, s.FIXED_5f, s.TYPE_0f, s.ENABLE_0f } ) {
      s.soc_reg_field_set( 1, s.MCAST_XLATE_TYPESr, &value, f, 1 );
   }
   s.soc_reg_field_set( 1, s.MCAST_XLATE_TYPESr, &value, s.TYPE_2f, 5 );
   EXPECT_EQ( s.soc_reg_field_set( 1, s.MCAST_XLATE_TYPESr, &value, s.XLATE_ENABLEf, 1 ),
              s.BCM_E_PARAM );
   ASSERT_EQ( s.soc_reg32_set( 1, s.MCAST_XLATE_TYPESr, s.REG_PORT_ANY, 0, value ),
              s.BCM_E_NONE );

   FieldValues const expected = { { "FIXED_1", 3 },  { "FIXED_2", 3 }, { "FIXED_3", 3 },
                                  { "FIXED_4", 1 },  { "FIXED_5", 1 }, { "TYPE_0", 1 },
                                  { "ENABLE_0", 1 }, { "TYPE_1", 0 },  { "ENABLE_1", 0 },
                                  { "TYPE_2", 5 },   { "ENABLE_2", 0 } };
   EXPECT_EQ( table( TableId::McastXlateTypes ).reportedFields( 0 ), expected );
   U32 const unnamedBits = 0xff000003;
   ASSERT_NE( initial & unnamedBits, 0u );
   U32 stored = 0;
   s.soc_reg32_get( 1, s.MCAST_XLATE_TYPESr, s.REG_PORT_ANY, 0, &stored );
   EXPECT_EQ( stored & unnamedBits, initial & unnamedBits );
   EXPECT_EQ( s.soc_reg_field_get( 1, s.MCAST_XLATE_TYPESr, stored, s.TYPE_2f ), 5u );
   EXPECT_EQ( Chip::journal().record( 1 ).stringValue(),
              "soc_reg32_set unit=1 [\"MCAST_XLATE_TYPES\", \"REG_PORT_ANY\", 0, "
              "{\"FIXED_1\": 3, \"FIXED_2\": 3, \"FIXED_3\": 3, \"FIXED_4\": 1, "
              "\"FIXED_5\": 1, \"TYPE_0\": 1, \"ENABLE_0\": 1, \"TYPE_1\": 0, "
              "\"ENABLE_1\": 0, \"TYPE_2\": 5, \"ENABLE_2\": 0}] rc=0" );
}

TEST_F( SdkTableTest, BadRegisterRequestsAreRefused ) {
   Shim::Sdk& s = *Shim::sdk_;
   U32 value = 0;
   EXPECT_EQ( s.soc_reg32_get( 1, s.MCAST_XLATE_TYPESr, 3, 0, &value ), s.BCM_E_PORT );
   EXPECT_EQ( s.soc_reg32_set( 1, s.MCAST_XLATE_TYPESr, s.REG_PORT_ANY, 1, 0 ),
              s.BCM_E_PARAM );
   EXPECT_EQ( s.soc_reg32_set( 1, s.L4_PORT_XLATEm, s.REG_PORT_ANY, 0, 0 ),
              s.BCM_E_PARAM );
   EXPECT_EQ( s.soc_reg32_set( 9, s.MCAST_XLATE_TYPESr, s.REG_PORT_ANY, 0, 0 ),
              s.BCM_E_UNIT );
   EXPECT_TRUE( table( TableId::McastXlateTypes ).rowsWritten().empty() );
   EXPECT_EQ( Chip::journal().record( 0 ).stringValue(),
              "soc_reg32_get unit=1 [\"MCAST_XLATE_TYPES\", 3, 0] rc=-118" );
}

}  // namespace
