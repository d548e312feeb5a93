// The trace facility: the setting grammar and the lines the sink gets. (Handles made
// before the setting, and the default sink: natsim's --trace in FaultsTest.cpp.)

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/fwk/Trace.h"

namespace {

// The levels of `handle` that are on, as "0,4,8".
std::string levelsOn( Fwk::TraceHandle const& handle ) {
   std::string levels;
   for ( int level = 0; level <= Fwk::traceLevelMax; ++level ) {
      if ( handle.enabled( level ) ) {
         levels += ( levels.empty() ? "" : "," ) + std::to_string( level );
      }
   }
   return levels;
}

// Captures trace lines; restores the sink and the setting it found.
class TraceTest : public testing::Test {
protected:
   void SetUp() override {
      previousSetting_ = Fwk::traceSetting();
      previousSink_ = Fwk::traceSinkIs(
          [this]( Fwk::TraceRecord const& record ) { records.push_back( record ); } );
   }
   void TearDown() override {
      Fwk::traceSinkIs( previousSink_ );
      Fwk::traceSettingIs( previousSetting_ );
   }
   std::vector<Fwk::TraceRecord> records;

private:
   std::string previousSetting_;
   Fwk::TraceSink previousSink_;
};

// Each setting replaces the one before it.
TEST_F( TraceTest, SettingEnablesTheLevelsItNamesAndIgnoresMalformedItems ) {
   char const all[] = "0,1,2,3,4,5,6,7,8,9";
   struct Case {
      char const* setting;
      char const* api;
      char const* other;
   } const cases[] = {
       { "Api/0,4,8,Other/*", "0,4,8", all },
       { "Api", all, "" },
       { "*/3", "3", "3" },
       { "Api/2-4,7,Other/9-9", "2,3,4,7", "9" },
       { " Api / 1 , 2 ,,", "1,2", "" },
       // Malformed: reversed or out-of-range levels, junk, levels without a handle.
       { "Api/4-2,3,10,1-12", "3", "" },
       { "Api/-,1--2,0-,,5", "5", "" },
   };
   Fwk::TraceHandle api( "Api" );
   Fwk::TraceHandle other( "Other" );
   for ( Case const& c : cases ) {
      Fwk::traceSettingIs( c.setting );
      EXPECT_EQ( levelsOn( api ), c.api ) << "setting \"" << c.setting << "\"";
      EXPECT_EQ( levelsOn( other ), c.other ) << "setting \"" << c.setting << "\"";
   }
}

void traceFromNamedFunction( Fwk::TraceHandle const& handle ) {
   FWK_TRACE_FN( handle, 0, " done" );
}

TEST_F( TraceTest, LevelsThatAreOnEmitTheFunctionFollowedByTheMessage ) {
   Fwk::TraceHandle handle( "EmitApi" );
   Fwk::traceSettingIs( "EmitApi/0,8" );
   bool const flag = true;
   bool const ready = false;
   FWK_TRACE( handle, 8, "doInit",
              " flash download " << flag << " mountGroup ready " << ready );
   traceFromNamedFunction( handle );
   for ( bool taken : { true, false } ) {
      if ( taken )
         FWK_TRACE( handle, 0, "then", "" );
      else
         FWK_TRACE( handle, 0, "else", "" );
   }
   int evaluated = 0;
   FWK_TRACE( handle, 5, "off", ++evaluated );
   FWK_TRACE( handle, 10, "off", ++evaluated );

   EXPECT_EQ( evaluated, 0 );
   ASSERT_EQ( records.size(), 4u );
   EXPECT_EQ( records[0].handle + "/" + std::to_string( records[0].level ), "EmitApi/8" );
   EXPECT_EQ( records[0].function, "doInit" );
   EXPECT_EQ( records[0].line(), "doInit flash download true mountGroup ready false" );
   EXPECT_EQ( records[1].line(), "traceFromNamedFunction done" );
   EXPECT_EQ( records[2].function + records[3].function, "thenelse" );
}

}  // namespace
