// The show command over 100 thousand installed keys, on a real clock: rows written per
// second, and the longest slice against the time quantum. The same command on the
// thread's CPU clock (ShowCommandCpuClock) gives the slices without the time other
// processes took from it.
//
// NOTE: the plug-in's show command ("ShowCorvaneNatSlice", CorvaneNat/NatShowCommand.*)
// is being written on another branch and is not in this tree yet. Until it is merged,
// this benchmark runs a stand-in written against the same command framework: a request
// state machine that walks the worker's entry-id table and writes one row per key and
// VLAN, asking shouldYield() after every row, as the command does. Once the command is
// here, ShowStandIn and its callback are replaced by the plug-in's own callback (built
// the way the agent builds it) and nothing else changes: the counters and the goal are
// the same.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include "bench/BenchSupport.h"
#include "platform/agent/AgentCommand.h"

namespace {

using Bench::NatBench;

constexpr U32 keys = 100000;
constexpr Fwk::Seconds quantum = 0.005;

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

// Rows of the entry-id table, resumed where the last slice stopped.
class ShowStandIn : public Agent::AgentAsyncCommandRequestSm {
public:
   ShowStandIn( Agent::AgentCommandRequest const& request, Fwk::Clock::Ptr clock,
                Corvane::EntryIdTable const& table )
       : AgentAsyncCommandRequestSm( "ShowCorvaneNatSlice", request, quantum,
                                     std::move( clock ) ),
         table_( table ),
         next_( table.begin() ) {}

   void handleAsyncCommand( int, std::string const& ) override {
      if ( !started_ ) {
         output( "{\"entries\": [\n" );
         started_ = true;
      }
      while ( next_ != table_.end() ) {
         Corvane::EntryIdTableEntry const& row = *next_;
         for ( auto const& pair : row.defaultEntryIds() ) {
            row_.assign( "{\"key\": \"" );
            row_ += row.key().stringValue();
            row_ += "\", \"vlan\": ";
            row_ += std::to_string( pair.vlanId );
            row_ += ", \"entry\": ";
            row_ += std::to_string( pair.entryId );
            row_ += "},\n";
            output( row_ );
            ++rows_;
         }
         ++next_;
         if ( shouldYield() ) {
            return;
         }
      }
      output( "]}\n" );
      executionCompletedIs( true );
   }

   U64 rows() const { return rows_; }

private:
   Corvane::EntryIdTable const& table_;
   Corvane::EntryIdTable::const_iterator next_;
   std::string row_;
   bool started_ = false;
   U64 rows_ = 0;
};

class ShowStandInCallback : public Agent::AgentCommandCallback {
public:
   ShowStandInCallback( Fwk::Clock::Ptr clock, Corvane::EntryIdTable const& table )
       : AgentCommandCallback( "ShowStandInCallback" ),
         clock_( std::move( clock ) ),
         table_( table ) {}
   Agent::AgentAsyncCommandRequestSm::Ptr createAgentAsyncCommandRequestSm(
       Agent::AgentCommandRequest const& request ) override {
      if ( request.command != "ShowCorvaneNatSlice" ) {
         return nullptr;
      }
      return new ShowStandIn( request, clock_, table_ );
   }

private:
   Fwk::Clock::Ptr clock_;
   Corvane::EntryIdTable const& table_;
};

// `cpuClock`: the request runs on the thread's CPU clock instead of the real clock.
void showCommand( benchmark::State& state, bool cpuClock ) {
   NatBench nat;
   for ( U32 i = 0; i < keys; ++i ) {
      nat.commit( Bench::snatRule( i ) );
   }
   int const sink = ::open( "/dev/null", O_WRONLY );
   Fwk::Clock::Ptr clock( cpuClock ? static_cast<Fwk::Clock*>( new ThreadCpuClock )
                                   : new Fwk::RealClock );
   Fwk::Ptr<ShowStandInCallback> callback(
       new ShowStandInCallback( clock, *nat.worker()->entryIdTable() ) );
   Agent::AgentCommandRequest request;
   request.command = "ShowCorvaneNatSlice";
   request.socket = sink;
   double rows = 0;
   double seconds = 0;
   double longest = 0;
   double slices = 0;
   for ( auto _ : state ) {
      auto sm = Agent::runAgentCommand( *callback, request );
      while ( !sm->executionCompleted() ) {
         nat.loop().runUntilIdle();
      }
      auto const* show = static_cast<ShowStandIn const*>( sm.ptr() );
      rows += double( show->rows() );
      seconds += sm->endTime() - sm->startTime();
      longest = std::max( longest, sm->longestSlice() );
      slices += sm->slices();
      sm->hasNotificationActiveIs( false );
   }
   ::close( sink );
   if ( rows != double( keys ) * double( state.iterations() ) ) {
      state.SkipWithError( "the command did not write every row" );
   }
   double const rowsPerSecond = rows / seconds;
   state.counters["rows_per_second"] = rowsPerSecond;
   state.counters["longest_slice_us"] = longest * 1e6;
   state.counters["quantum_us"] = quantum * 1e6;
   // What a slice may take: the quantum and the row that was running when it ran out.
   state.counters["slice_limit_us"] = ( quantum + 1.0 / rowsPerSecond ) * 1e6;
   state.counters["slices"] = slices / double( state.iterations() );
   state.counters["stand_in"] = 1;
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
