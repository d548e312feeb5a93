// The command framework: slices that yield by time, resumption from the loop with other
// work in between, and the output that reaches the requester's descriptor. (Yielding by
// buffer and unknown commands: tests/CorvaneNat/NatShowCommandTest.cpp.)

#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdio>

#include "platform/agent/AgentCommand.h"

namespace {

// "count N" writes "<i>;" for rows 0..N-1, each row taking 0.02 s, asking to yield after
// each row; slices of 0.05 s.
class CountingRequest : public Agent::AgentAsyncCommandRequestSm {
public:
   explicit CountingRequest( Agent::AgentCommandRequest const& request )
       : AgentAsyncCommandRequestSm( "count", request, 0.05,
                                     Fwk::activityManager().clockPtr() ),
         rows_( std::stoi( request.command.substr( 6 ) ) ) {}
   void handleAsyncCommand( int, std::string const& ) override {
      output( "[" );
      while ( next_ < rows_ ) {
         output( std::to_string( next_++ ) + ";" );
         clock()->nowIs( clock()->now() + 0.02 );
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
   int next_ = 0;
};

class Callback : public Agent::AgentCommandCallback {
public:
   Callback() : AgentCommandCallback( "test" ) {}
   Agent::AgentAsyncCommandRequestSm::Ptr createAgentAsyncCommandRequestSm(
       Agent::AgentCommandRequest const& request ) override {
      return request.command.rfind( "count ", 0 ) == 0 ? new CountingRequest( request )
                                                       : nullptr;
   }
};

TEST( AgentCommandTest, RunsInSlicesThatYieldByTimeWithOtherWorkInBetween ) {
   Fwk::ScopedActivityManager scope{ Fwk::Clock::Ptr( new Fwk::VirtualClock ) };
   std::FILE* file = std::tmpfile();
   Callback callback;
   auto sm = Agent::runAgentCommand( callback, { "count 7", fileno( file ), "json" } );
   ASSERT_TRUE( sm );
   U32 slicesSeenBetween = 9;
   scope.manager().post( [&] { slicesSeenBetween = sm->slices(); } );
   EXPECT_EQ( sm->slices(), 0u ) << "nothing runs before the loop";
   scope.manager().runUntilIdle();
   EXPECT_EQ( slicesSeenBetween, 1u ) << "the second slice waits its turn in the loop";
   EXPECT_TRUE( sm->executionCompleted() );
   EXPECT_EQ( sm->slices(), 3u );
   EXPECT_EQ( sm->timeYieldCount(), 2u );
   EXPECT_NEAR( sm->longestSlice(), 0.06, 1e-9 );
   EXPECT_NEAR( sm->endTime() - sm->startTime(), 0.14, 1e-9 );

   char text[64] = {};
   std::rewind( file );
   EXPECT_EQ( std::string( text, std::fread( text, 1, sizeof( text ), file ) ),
              "[0;1;2;][3;4;5;][6;]" );
   std::fclose( file );
}

}  // namespace
