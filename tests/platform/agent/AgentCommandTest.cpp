// The command framework: slices that yield by time, resumption from the loop with other
// work in between, and the output that reaches the requester's descriptor. (Yielding by
// buffer and unknown commands: tests/CorvaneNat/NatShowCommandTest.cpp.)

#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdio>

#include "platform/agent/AgentCommand.h"

namespace {

// Writes "<i>;" for rows 0..rows-1, asking to yield after each row.
class CountingRequest : public Agent::AgentAsyncCommandRequestSm {
public:
   CountingRequest( Agent::AgentCommandRequest request, double quantum,
                    Fwk::Clock::Ptr clock, int rows, double rowCost )
       : AgentAsyncCommandRequestSm( "count", std::move( request ), quantum,
                                     std::move( clock ) ),
         rows_( rows ),
         rowCost_( rowCost ) {}
   void handleAsyncCommand( int, std::string const& ) override {
      output( "[" );
      while ( next_ < rows_ ) {
         output( std::to_string( next_++ ) + ";" );
         clock()->nowIs( clock()->now() + rowCost_ );
         if ( next_ < rows_ && shouldYield() ) {
            output( "]" );
            return;
         }
      }
      output( "]" );
      executionCompletedIs( true );
   }

private:
   int rows_;
   double rowCost_;
   int next_ = 0;
};

class Callback : public Agent::AgentCommandCallback {
public:
   Callback( Fwk::Clock::Ptr clock, double quantum, double rowCost )
       : AgentCommandCallback( "test" ),
         clock_( clock ),
         quantum_( quantum ),
         rowCost_( rowCost ) {}
   Agent::AgentAsyncCommandRequestSm::Ptr createAgentAsyncCommandRequestSm(
       Agent::AgentCommandRequest const& request ) override {
      if ( request.command.rfind( "count ", 0 ) != 0 ) {
         return nullptr;
      }
      return new CountingRequest( request, quantum_, clock_,
                                  std::stoi( request.command.substr( 6 ) ), rowCost_ );
   }

private:
   Fwk::Clock::Ptr clock_;
   double quantum_;
   double rowCost_;
};

class AgentCommandTest : public ::testing::Test {
protected:
   std::string readBack() {
      std::string text;
      std::rewind( file );
      char chunk[256];
      std::size_t n;
      while ( ( n = std::fread( chunk, 1, sizeof( chunk ), file ) ) > 0 ) {
         text.append( chunk, n );
      }
      return text;
   }
   ~AgentCommandTest() override { std::fclose( file ); }

   Fwk::Clock::Ptr clock{ new Fwk::VirtualClock };
   Fwk::ScopedActivityManager scope{ clock };
   std::FILE* file = std::tmpfile();
};

TEST_F( AgentCommandTest, RunsInSlicesThatYieldByTimeWithOtherWorkInBetween ) {
   Callback callback( clock, 0.05, 0.02 );  // three rows fill a slice
   auto sm = Agent::runAgentCommand( callback, { "count 7", fileno( file ), "json" } );
   ASSERT_TRUE( sm );
   U32 slicesSeenBetween = 9;
   scope.manager().post( [&] { slicesSeenBetween = sm->slices(); } );
   EXPECT_EQ( sm->slices(), 0u ) << "nothing runs before the loop";
   scope.manager().runUntilIdle();
   EXPECT_EQ( slicesSeenBetween, 1u ) << "the second slice waits its turn in the loop";
   EXPECT_TRUE( sm->executionCompleted() );
   EXPECT_EQ( readBack(), "[0;1;2;][3;4;5;][6;]" );
   EXPECT_EQ( sm->slices(), 3u );
   EXPECT_EQ( sm->timeYieldCount(), 2u );
   EXPECT_EQ( sm->bufferYieldCount(), 0u );
   EXPECT_NEAR( sm->longestSlice(), 0.06, 1e-9 );
   EXPECT_NEAR( sm->endTime() - sm->startTime(), 0.14, 1e-9 );
}

TEST_F( AgentCommandTest, AZeroQuantumYieldsAfterEveryRow ) {
   Callback callback( clock, 0.0, 0.0 );
   auto sm = Agent::runAgentCommand( callback, { "count 3", fileno( file ), "json" } );
   scope.manager().runUntilIdle();
   EXPECT_EQ( readBack(), "[0;][1;][2;]" );
   EXPECT_EQ( sm->timeYieldCount(), 2u );
}

}  // namespace
