// Commit cost: static rules committed by the plug-in, from the worker's reaction to a
// published transaction to its answer, against the floor of the same SDK and
// entry-manager calls made directly under the same activity-lock hand-off (the lock
// held as during a reaction, given up around every SDK call); and the same commit with
// 1 thousand and 100 thousand keys already installed. The Publish variants time
// upstream's publishing of a rule alone (natsim's work, not the plug-in's).
//
// One iteration is one commit. Rules are committed in batches of `batch` new keys on
// top of `installed` keys; between batches the batch's keys are removed with the timer
// paused, so every batch meets the same table and chip.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

#include "bench/BenchSupport.h"

namespace {

using Bench::NatBench;
typedef natsim::NatRuleStep ( *RuleFn )( U32 );

constexpr U32 batch = 1000;
constexpr U32 batches = 10;

// The timed work, apart so that a profiler can be pointed at it alone
// (valgrind --tool=callgrind --toggle-collect='*timedCommits*').
__attribute__( ( noinline ) ) void timedCommits( NatBench& nat ) {
   nat.loop().runTurn();
}
__attribute__( ( noinline ) ) void timedReplay( Bench::Replay& replay, std::size_t unit,
                                                Corvane::CorvaneTcamEntryManager& em ) {
   replay.runUnit( unit, *Shim::sdk_, em );
}

std::vector<natsim::NatRuleStep> rules( RuleFn rule, U32 first, U32 count ) {
   std::vector<natsim::NatRuleStep> out;
   out.reserve( count );
   for ( U32 i = 0; i < count; ++i ) {
      out.push_back( rule( first + i ) );
   }
   return out;
}

// `installed` keys committed, and the batch of rules to time with their removals.
struct Workload {
   Workload( RuleFn rule, U32 installed ) : added( rules( rule, installed, batch ) ) {
      for ( natsim::NatRuleStep const& step : rules( rule, 0, installed ) ) {
         nat.commit( step );
      }
      for ( auto const& step : added ) {
         removals.push_back( Bench::removal( step ) );
      }
   }
   // Removes the batch again, so that the next batch meets the same table and chip.
   void removeBatch() {
      for ( auto const& removal : removals ) {
         nat.remove( removal );
      }
   }
   NatBench nat;
   std::vector<natsim::NatRuleStep> const added;
   std::vector<natsim::NatRuleRemoveStep> removals;
};

// The plug-in's commit, from the worker's reaction to its answer: upstream publishes a
// batch with the timer paused; the timed part is the loop's turn that delivers the
// requests, in which the worker commits each rule and writes its answer. Upstream's
// handling of the answers (next turns) runs with the timer paused again. The chip must
// hold every entry of the batch after the timed turn: otherwise the worker left work
// for later turns and the time would be wrong.
void commitThroughPlugin( benchmark::State& state, RuleFn rule ) {
   U32 const installed = U32( state.range( 0 ) );
   Workload work( rule, installed );
   NatBench& nat = work.nat;
   Chip::FieldProcessor const& fp = nat.platform().chip().unit( 1 )->fieldProcessor();
   std::size_t const answersBefore = nat.answers();
   std::size_t const entriesBefore = fp.entries();
   std::size_t entriesPerBatch = 0;
   bool complete = true;
   U32 n = 0;
   for ( auto _ : state ) {
      if ( n == 0 ) {
         state.PauseTiming();
         for ( auto const& step : work.added ) {
            nat.upstream().natRule( step );
         }
         state.ResumeTiming();
         timedCommits( nat );
         state.PauseTiming();
         std::size_t const made = fp.entries() - entriesBefore;
         nat.loop().runUntilIdle();
         entriesPerBatch =
             entriesPerBatch ? entriesPerBatch : fp.entries() - entriesBefore;
         complete = complete && made == entriesPerBatch && made > 0;
         state.ResumeTiming();
      }
      if ( ++n == batch ) {
         state.PauseTiming();
         work.removeBatch();
         n = 0;
         state.ResumeTiming();
      }
   }
   std::size_t const commits = nat.answers() - answersBefore;
   if ( !complete ) {
      state.SkipWithError( "the worker did not commit the batch in the timed turn" );
   } else if ( n != 0 || commits != 2 * std::size_t( state.iterations() ) ||
               fp.entries() != entriesBefore ) {
      state.SkipWithError( "commits were not answered or entries leaked" );
   }
   state.SetItemsProcessed( state.iterations() );
   state.counters["installed"] = installed;
}

// Not a goal: upstream's publishing of a rule (natsim's own work, outside the plug-in).
void commitPublish( benchmark::State& state, RuleFn rule ) {
   U32 const installed = U32( state.range( 0 ) );
   Workload work( rule, installed );
   U32 n = 0;
   for ( auto _ : state ) {
      work.nat.upstream().natRule( work.added[n] );
      if ( ++n == batch ) {
         state.PauseTiming();
         work.nat.loop().runUntilIdle();
         work.removeBatch();
         n = 0;
         state.ResumeTiming();
      }
   }
   state.SetItemsProcessed( state.iterations() );
}

// Records the calls of the same workload on a platform of its own, then replays them.
void commitFloor( benchmark::State& state, RuleFn rule ) {
   U32 const installed = U32( state.range( 0 ) );
   std::vector<Chip::JournalRecord> prefillCalls;
   std::vector<Chip::JournalRecord> batchCalls;
   std::vector<std::size_t> commitEnds;
   {
      NatBench nat( {}, true );
      std::size_t const start = Chip::journal().size();
      for ( natsim::NatRuleStep const& step : rules( rule, 0, installed ) ) {
         nat.commit( step );
      }
      std::size_t const mark = Chip::journal().size();
      for ( natsim::NatRuleStep const& step : rules( rule, installed, batch ) ) {
         nat.commit( step );
         commitEnds.push_back( Chip::journal().size() - mark );
      }
      auto all = Bench::journalFrom( start );
      prefillCalls.assign( all.begin(), all.begin() + long( mark - start ) );
      batchCalls.assign( all.begin() + long( mark - start ), all.end() );
   }

   natsim::SimPlatform floor( "Corvane", NatBench::chipConfig(), natsim::NatConfig() );
   Chip::journal().enabledIs( false );
   Shim::Sdk& sdk = *Shim::sdk_;
   Corvane::CorvaneTcamEntryManager& em =
       *floor.tcamManager().unboundedEntryManager( natsim::natGroup );
   Bench::Replay prefill( prefillCalls, sdk );
   prefill.run( 0, prefill.calls(), sdk, em );
   Bench::Replay replay( batchCalls, sdk );
   for ( std::size_t end : commitEnds ) {
      replay.unitEndIs( end );
   }
   U32 n = 0;
   for ( auto _ : state ) {
      timedReplay( replay, n, em );
      if ( ++n == batch ) {
         state.PauseTiming();
         replay.releaseAll( em );
         n = 0;
         state.ResumeTiming();
      }
   }
   state.SetItemsProcessed( state.iterations() );
   state.counters["installed"] = installed;
   state.counters["calls_per_commit"] = double( replay.calls() ) / batch;
   Chip::journal().clear();
   Chip::journal().enabledIs( true );
}

void BM_CommitSnat( benchmark::State& state ) {
   commitThroughPlugin( state, Bench::snatRule );
}
void BM_CommitSnatFloor( benchmark::State& state ) {
   commitFloor( state, Bench::snatRule );
}
void BM_CommitSnatPublish( benchmark::State& state ) {
   commitPublish( state, Bench::snatRule );
}
void BM_CommitDnapt4VlanPublish( benchmark::State& state ) {
   commitPublish( state, Bench::dnaptRule );
}
void BM_CommitDnapt4Vlan( benchmark::State& state ) {
   commitThroughPlugin( state, Bench::dnaptRule );
}
void BM_CommitDnapt4VlanFloor( benchmark::State& state ) {
   commitFloor( state, Bench::dnaptRule );
}

constexpr benchmark::IterationCount iterations = batch * batches;

}  // namespace

BENCHMARK( BM_CommitSnat )->Arg( 1000 )->Arg( 100000 )->Iterations( iterations );
BENCHMARK( BM_CommitSnatPublish )->Arg( 1000 )->Iterations( iterations );
BENCHMARK( BM_CommitSnatFloor )->Arg( 1000 )->Iterations( iterations );
BENCHMARK( BM_CommitDnapt4Vlan )->Arg( 1000 )->Arg( 100000 )->Iterations( iterations );
BENCHMARK( BM_CommitDnapt4VlanPublish )->Arg( 1000 )->Iterations( iterations );
BENCHMARK( BM_CommitDnapt4VlanFloor )->Arg( 1000 )->Iterations( iterations );
