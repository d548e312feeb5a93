// The log-event registry: registration, message formatting, the sink and raise counts.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "platform/fwk/LogEvent.h"

namespace {

// Registered from a static initialiser, as a plug-in does.
char const natHwFullFormat[] =
    "Hardware resources are insufficient to add NAT rule with key <%s>";
Fwk::LogEventRegistration const natHwFull( "TEST_NAT_HW_FULL", 3, natHwFullFormat, "",
                                           Fwk::logContactSupportIfPersists, 0.0, 1.0, 0,
                                           0 );

Fwk::LogEventDefinition definition( std::string name, int severity, std::string format ) {
   Fwk::LogEventDefinition result;
   result.name = std::move( name );
   result.severity = severity;
   result.format = std::move( format );
   return result;
}

// Captures raised events; restores the sink it found.
class LogEventTest : public testing::Test {
protected:
   void SetUp() override {
      previousSink_ = Fwk::logSinkIs(
          [this]( Fwk::LogRecord const& record ) { records.push_back( record ); } );
   }
   void TearDown() override { Fwk::logSinkIs( previousSink_ ); }
   std::vector<Fwk::LogRecord> records;

private:
   Fwk::LogSink previousSink_;
};

TEST_F( LogEventTest, RegistrationKeepsTheFirstDefinitionOfAName ) {
   EXPECT_FALSE( Fwk::logEventIs( definition( "TEST_NAT_HW_FULL", 6, "other %s" ) ) );
   Fwk::LogEventDefinition const* e = Fwk::logEvent( "TEST_NAT_HW_FULL" );
   ASSERT_NE( e, nullptr );
   EXPECT_EQ( std::tie( e->severity, e->format, e->recommendedAction ),
              std::make_tuple( 3, natHwFullFormat, Fwk::logContactSupportIfPersists ) );
   EXPECT_EQ( std::tie( e->firstRate, e->secondRate, e->firstCount, e->secondCount ),
              std::make_tuple( 0.0, 1.0, 0u, 0u ) );
   EXPECT_EQ( Fwk::logEvent( "TEST_NEVER_REGISTERED" ), nullptr );
   auto const events = Fwk::logEvents();
   EXPECT_EQ( std::count_if(
                  events.begin(), events.end(),
                  []( auto const& each ) { return each.name == "TEST_NAT_HW_FULL"; } ),
              1 );
}

TEST_F( LogEventTest, MessageTakesTheArgumentsInOrderOfTheConversions ) {
   struct Case {
      char const* format;
      std::vector<std::string> args;
      char const* message;
   } const cases[] = {
       { "key <%s>", { "10.0.0.1:80" }, "key <10.0.0.1:80>" },
       { "%d of %u in %i", { "1", "2", "3" }, "1 of 2 in 3" },
       { "entry %llu at 0x%08x", { "42", "ff" }, "entry 42 at 0xff" },
       { "[%-10s][%.2f][%lx]%d%s", { "a", "b", "c", "d", "e" }, "[a][b][c]de" },
       { "100%% of %s, not %%s", { "x", "y" }, "100% of x, not %s" },
       { "%s and %s", { "one" }, "one and " },
       { "only %s", { "one", "two" }, "only one" },
       { "rate 5%, cap %", { "unused" }, "rate 5%, cap %" },
   };
   int n = 0;
   for ( Case const& c : cases ) {
      std::string const name = "TEST_FORMAT_" + std::to_string( ++n );
      Fwk::logEventIs( definition( name, 5, c.format ) );
      Fwk::logEventRaise( name, c.args );
      EXPECT_EQ( records.back().message, c.message ) << "format \"" << c.format << "\"";
   }
}

TEST_F( LogEventTest, RaiseReachesTheSinkAndIsCountedPerEvent ) {
   Fwk::logEventIs( definition( "TEST_COUNT_A", 4, "a %s" ) );
   Fwk::logEventIs( definition( "TEST_COUNT_B", 6, "b" ) );
   Fwk::logEventRaise( "TEST_COUNT_A", { "1" } );
   Fwk::logEventRaise( "TEST_COUNT_B", {} );
   Fwk::logEventRaise( "TEST_COUNT_A", { "2" } );

   EXPECT_EQ( Fwk::raiseCount( "TEST_COUNT_A" ), 2u );
   EXPECT_EQ( Fwk::raiseCount( "TEST_COUNT_B" ), 1u );
   EXPECT_EQ( Fwk::raiseCount( "TEST_NEVER_REGISTERED" ), 0u );
   ASSERT_EQ( records.size(), 3u );
   EXPECT_EQ( std::tie( records[0].name, records[0].severity, records[0].message ),
              std::make_tuple( "TEST_COUNT_A", 4, "a 1" ) );
   EXPECT_EQ( records[1].name + " " + records[2].message, "TEST_COUNT_B a 2" );
}

TEST_F( LogEventTest, SinkIsReplaceableAndTheDefaultWritesToStandardError ) {
   Fwk::logSinkIs( nullptr )( Fwk::LogRecord{ "HANDED_BACK", 1, "" } );
   EXPECT_EQ( records.size(), 1u );

   testing::internal::CaptureStderr();
   Fwk::logEventRaise( "TEST_NAT_HW_FULL", { "vrf 2 10.1.1.1" } );
   EXPECT_EQ(
       testing::internal::GetCapturedStderr(),
       "%TEST_NAT_HW_FULL: Hardware resources are insufficient to add NAT rule with "
       "key <vrf 2 10.1.1.1>\n" );
}

TEST( LogEventDeathTest, RaisingAnUnregisteredEventStopsNamingIt ) {
   EXPECT_DEATH( Fwk::logEventRaise( "TEST_NEVER_REGISTERED", { "x" } ),
                 "unregistered log event TEST_NEVER_REGISTERED" );
}

}  // namespace
