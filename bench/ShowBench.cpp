// The show command "ShowCorvaneNatSlice" over 100 thousand installed keys, on a real
// clock: rows written per second, and the longest slice against the time quantum.
//
// The command is the plug-in's own: its callback is created by type name and runs the
// command through the agent's command framework, as the agent (and natsim serve) does,
// with the loop's clock following real time. The same request on the thread's CPU clock
// (ShowCommandCpuClock: the plug-in's request state machine, made as the callback makes
// it but on that clock) gives the slices without the time other processes took from it.
//
// Each key is a single-VLAN SNAT key, so the command writes one row per key. Before
// timing, one run into a file checks that every row is written.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "CorvaneNat/NatShowCommand.h"
#include "bench/BenchSupport.h"
#include "platform/agent/AgentCommand.h"
#include "platform/agent/PluginLoader.h"

namespace {

using Bench::NatBench;

constexpr U32 keys = 100000;
char const command[] = "ShowCorvaneNatSlice";

// The CPU time of the calling thread: slices measured on it leave out the time the
// machine gave to other processes, which a loaded machine adds to wall-clock slices.
class ThreadCpuClock : public Fwk::Clock {
public:
   Fwk::Seconds now() const override {
      timespec t;
      clock_gettime( CLOCK_THREAD_CPUTIME_ID, &t );
      return double( t.tv_sec ) + double( t.tv_nsec ) * 1e-9;
   }
   bool isVirtual() const override { return false; }
};

// The request of the command for `socket`: the callback's own, or (cpuClock) the
// plug-in's request state machine with the callback's quantum and worker on the
// thread's CPU clock.
Agent::AgentAsyncCommandRequestSm::Ptr request( Agent::AgentCommandCallback& callback,
                                                int socket, bool cpuClock ) {
   Agent::AgentCommandRequest r;
   r.command = command;
   r.socket = socket;
   if ( !cpuClock ) {
      return Agent::runAgentCommand( callback, r );
   }
   auto made = Fwk::ptr_cast<Corvane::NatSliceCommandRequestSm>(
       callback.createAgentAsyncCommandRequestSm( r ) );
   if ( !made ) {
      return nullptr;
   }
   made->hasNotificationActiveIs( false );
   Agent::AgentAsyncCommandRequestSm::Ptr sm = Corvane::NatSliceCommandRequestSmIs(
       "natSliceCommandRequestSm", r, made->maxRunTime(), new ThreadCpuClock,
       made->worker() );
   sm->initializedIs( true );
   return sm;
}

// Runs the request to completion.
void complete( NatBench& nat, Agent::AgentAsyncCommandRequestSm& sm ) {
   while ( !sm.executionCompleted() ) {
      nat.loop().runUntilIdle();
   }
   sm.hasNotificationActiveIs( false );
}

// The rows of one run of the command, written into a file.
std::size_t rowsWritten( NatBench& nat, Agent::AgentCommandCallback& callback ) {
   std::FILE* file = std::tmpfile();
   auto sm = request( callback, fileno( file ), false );
   if ( !sm ) {
      std::fclose( file );
      return 0;
   }
   complete( nat, *sm );
   std::rewind( file );
   std::string text;
   char chunk[1 << 16];
   std::size_t n;
   while ( ( n = std::fread( chunk, 1, sizeof chunk, file ) ) > 0 ) {
      text.append( chunk, n );
   }
   std::fclose( file );
   std::size_t rows = 0;
   for ( std::size_t at = text.find( "{\"hwKey\"" ); at != std::string::npos;
         at = text.find( "{\"hwKey\"", at + 1 ) ) {
      ++rows;
   }
   return rows;
}

void showCommand( benchmark::State& state, bool cpuClock ) {
   NatBench nat;
   for ( U32 i = 0; i < keys; ++i ) {
      nat.commit( Bench::snatRule( i ) );
   }
   // From here on the loop's clock, which the command slices on, runs in real time.
   nat.platform().clock().followRealTime();
   auto callback = Fwk::ptr_cast<Agent::AgentCommandCallback>(
       Agent::entityFromType( "Corvane::NatCliCallback", "natCli" ) );
   if ( !callback ) {
      state.SkipWithError( "the plug-in offers no Corvane::NatCliCallback" );
      return;
   }
   if ( rowsWritten( nat, *callback ) != keys ) {
      state.SkipWithError( "the command did not write one row per key" );
      return;
   }
   int const sink = ::open( "/dev/null", O_WRONLY );
   double seconds = 0;
   double longest = 0;
   double slices = 0;
   double quantum = 0;
   for ( auto _ : state ) {
      auto sm = request( *callback, sink, cpuClock );
      complete( nat, *sm );
      seconds += sm->endTime() - sm->startTime();
      longest = std::max( longest, sm->longestSlice() );
      slices += sm->slices();
      quantum = sm->maxRunTime();
   }
   ::close( sink );
   double const rowsPerSecond = double( keys ) * double( state.iterations() ) / seconds;
   state.counters["rows_per_second"] = rowsPerSecond;
   state.counters["longest_slice_us"] = longest * 1e6;
   state.counters["quantum_us"] = quantum * 1e6;
   // What a slice may take: the quantum and the row that was running when it ran out.
   state.counters["slice_limit_us"] = ( quantum + 1.0 / rowsPerSecond ) * 1e6;
   state.counters["slices"] = slices / double( state.iterations() );
   state.counters["cpu_clock"] = cpuClock;
}

void BM_ShowCommand( benchmark::State& state ) {
   showCommand( state, false );
}
void BM_ShowCommandCpuClock( benchmark::State& state ) {
   showCommand( state, true );
}

}  // namespace

BENCHMARK( BM_ShowCommandCpuClock )
    ->Unit( benchmark::kMillisecond )
    ->UseRealTime()
    ->Iterations( 5 );
BENCHMARK( BM_ShowCommand )
    ->Unit( benchmark::kMillisecond )
    ->UseRealTime()
    ->Iterations( 5 );
