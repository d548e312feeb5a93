// The chip-wide NAT configuration: the translation-type register from the multicast
// mode, the L4 port translation rows of the chip's family, the opaque-object strengths
// and the L3 egress-object mode, as the journal and the chip show them. (A failing or
// tolerated code of the egress mode: FaultsTest.cpp.)

#include "NatTestFixture.h"

#include <map>

namespace {

using NatTest::Lines;
using NatTest::NatFixture;

class NatChipConfig : public NatFixture {
protected:
   // The register's named fields as the chip holds them.
   std::map<std::string, U64> registerFields() {
      std::map<std::string, U64> fields;
      Chip::Table const& reg =
          platform->chip().unit( 1 )->table( Chip::TableId::McastXlateTypes );
      for ( auto const& f : reg.reportedFields( 0 ) ) {
         fields[f.first] = f.second;
      }
      return fields;
   }
   void mode( std::vector<U32> types ) {
      natsim::McastModeStep step;
      step.types = std::move( types );
      upstream->mcastMode( step );
      loop().runUntilIdle();
   }
   // Names of the calls from `from` on, with the memory or register they touch.
   Lines chipCalls( std::size_t from ) {
      Lines out;
      for ( auto const& r : Chip::journal().recordsFrom( from ) ) {
         std::string line = r.call;
         if ( !r.args.empty() && r.args[0].kind == Chip::Arg::Kind::name ) {
            line += " " + r.args[0].name;
         }
         if ( r.args.size() > 2 && r.args[2].kind == Chip::Arg::Kind::number ) {
            line += " " + std::to_string( r.args[2].number );
         }
         out.push_back( line );
      }
      return out;
   }
};

TEST_F( NatChipConfig, InitializationAppliesTheDefaultsInOrder ) {
   start();
   std::map<std::string, U64> const expected = {
       { "FIXED_1", 3 },  { "FIXED_2", 3 }, { "FIXED_3", 3 },  { "FIXED_4", 1 },
       { "FIXED_5", 1 },  { "TYPE_0", 1 },  { "ENABLE_0", 1 }, { "TYPE_1", 2 },
       { "ENABLE_1", 0 }, { "TYPE_2", 3 },  { "ENABLE_2", 1 } };
   EXPECT_EQ( registerFields(), expected );

   Lines calls = chipCalls( 0 );
   Lines want = { "soc_reg32_get MCAST_XLATE_TYPES 0",
                  "soc_reg32_set MCAST_XLATE_TYPES 0" };
   for ( int row : { 18, 19, 20, 21, 25, 26 } ) {
      want.push_back( "soc_mem_read L4_PORT_XLATE " + std::to_string( row ) );
      want.push_back( "soc_mem_write L4_PORT_XLATE " + std::to_string( row ) );
   }
   for ( int row = 0; row < 8; ++row ) {  // interleaved, rows 0 to 7 only
      want.push_back( "soc_mem_read OPAQUE_STRENGTH_A " + std::to_string( row ) );
      want.push_back( "soc_mem_write OPAQUE_STRENGTH_A " + std::to_string( row ) );
      want.push_back( "soc_mem_read OPAQUE_STRENGTH_B " + std::to_string( row ) );
      want.push_back( "soc_mem_write OPAQUE_STRENGTH_B " + std::to_string( row ) );
   }
   want.push_back( "bcm_switch_control_set bcmSwitchL3EgressMode" );
   EXPECT_EQ( calls, want );

   Chip::ChipUnit const& unit = *platform->chip().unit( 1 );
   Chip::Table const& l4 = unit.table( Chip::TableId::L4PortXlate );
   EXPECT_EQ( l4.field( 18, "XLATE_ENABLE" ), 3u );
   EXPECT_EQ( l4.field( 18, "L4_PORT_MODE" ), 9u )
       << "fields outside the named ones kept";
   Chip::Table const& a = unit.table( Chip::TableId::OpaqueStrengthA );
   EXPECT_EQ( a.field( 7, "OPAQUE1_STRENGTH" ), 6u );
   EXPECT_EQ( a.field( 7, "OPAQUE2_STRENGTH" ), 6u );
   EXPECT_EQ( a.field( 7, "CLASS_STRENGTH" ), 5u );
   Chip::Table const& b = unit.table( Chip::TableId::OpaqueStrengthB );
   EXPECT_EQ( b.field( 0, "OPAQUE_STRENGTH" ), 7u );
   EXPECT_EQ( b.field( 0, "L3_STRENGTH" ), 0xcu );
   EXPECT_EQ( unit.switchControls().at( Chip::SwitchControl::L3EgressMode ), 1 );

   // The chip family chooses the L4 rows.
   TearDown();
   chip.familyTest = true;
   start();
   EXPECT_EQ(
       platform->chip().unit( 1 )->table( Chip::TableId::L4PortXlate ).rowsWritten(),
       ( std::set<unsigned>{ 30, 31, 32, 33, 40, 41 } ) );
}

TEST_F( NatChipConfig, AModeOfThreeTypesOrTheDefaultsIsAppliedOthersAreSkipped ) {
   start();
   auto types = [this] {  // the types and enables of the register, in field order
      auto f = registerFields();
      return std::vector<U64>{ f["TYPE_0"],   f["ENABLE_0"], f["TYPE_1"],
                               f["ENABLE_1"], f["TYPE_2"],   f["ENABLE_2"] };
   };
   std::size_t from = mark();
   mode( { 5, 1, 2 } );
   EXPECT_EQ( types(), ( std::vector<U64>{ 5, 0, 1, 1, 2, 0 } ) );
   Lines const calls = chipCalls( from );
   ASSERT_FALSE( calls.empty() );
   EXPECT_EQ( calls.front(), "soc_reg32_get MCAST_XLATE_TYPES 0" );
   EXPECT_EQ( calls.back(), "bcm_switch_control_set bcmSwitchL3EgressMode" );
   EXPECT_EQ( calls.size(), 2u + 12u + 32u + 1u ) << "one application per mode";
   from = mark();
   mode( { 1, 3 } );
   EXPECT_EQ( mark(), from ) << "a count of 2 is not applied";
   mode( {} );
   EXPECT_EQ( types(), ( std::vector<U64>{ 1, 1, 2, 0, 3, 1 } ) ) << "the defaults";

   // Before initialization a mode is only traced.
   TearDown();
   chip.flashDownloadDone = false;
   start();
   NatTest::TraceCapture trace;
   from = mark();
   mode( { 5, 1, 2 } );
   EXPECT_EQ( mark(), from );
   EXPECT_EQ( trace.lines,
              ( Lines{ "updateMcastTranslationModeStatus numTranslationTypes: 3",
                       "updateMcastTranslationModeStatusnot initialized. Skipping the "
                       "update." } ) );
}

}  // namespace
