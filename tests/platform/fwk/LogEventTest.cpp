// The log-event registry: registration, message formatting, the sink and raise counts.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/fwk/LogEvent.h"

namespace {

// Registered from a static initialiser, as a plug-in does.
Fwk::LogEventRegistration const natHwFull(
    "TEST_NAT_HW_FULL", 3,
    "Hardware resources are insufficient to add NAT rule with key <%s>", "",
    Fwk::logContactSupportIfPersists, 0.0, 1.0, 0, 0 );

Fwk::LogEventDefinition definition( std::string name, std::string format ) {
   Fwk::LogEventDefinition result;
   result.name = std::move( name );
   result.severity = 5;
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

TEST_F( LogEventTest, MessageTakesTheArgumentsInOrderOfTheConversions ) {
   struct Case {
      char const* format;
      std::vector<std::string> args;
      char const* message;
   } const cases[] = {
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
      Fwk::logEventIs( definition( name, c.format ) );
      Fwk::logEventRaise( name, c.args );
      EXPECT_EQ( records.back().message, c.message ) << "format \"" << c.format << "\"";
   }
}

TEST_F( LogEventTest, TheFirstDefinitionOfANameIsKept ) {
   EXPECT_FALSE( Fwk::logEventIs( definition( "TEST_NAT_HW_FULL", "other %s" ) ) );
   ASSERT_NE( Fwk::logEvent( "TEST_NAT_HW_FULL" ), nullptr );
   EXPECT_EQ( Fwk::logEvent( "TEST_NAT_HW_FULL" )->severity, 3 );
   EXPECT_EQ( Fwk::logEvent( "TEST_NEVER_REGISTERED" ), nullptr );
   Fwk::logEventRaise( "TEST_NAT_HW_FULL", { "1" } );
   ASSERT_EQ( records.size(), 1u );
   EXPECT_EQ( records[0].name + " " + std::to_string( records[0].severity ) + " " +
                  records[0].message,
              "TEST_NAT_HW_FULL 3 Hardware resources are insufficient to add NAT rule "
              "with key <1>" );
   EXPECT_EQ( Fwk::raiseCount( "TEST_NAT_HW_FULL" ), 1u );
}

TEST( LogEventDeathTest, RaisingAnUnregisteredEventStopsNamingIt ) {
   EXPECT_DEATH( Fwk::logEventRaise( "TEST_NEVER_REGISTERED", { "x" } ),
                 "unregistered log event TEST_NEVER_REGISTERED" );
}

}  // namespace
