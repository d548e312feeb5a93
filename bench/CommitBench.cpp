// Commit cost: static rules committed through the plug-in (upstream publishes, the loop
// runs until the answer is in and upstream has finished the transaction), against the
// floor of the same SDK and entry-manager calls made directly; and the same commit with
// 1 thousand and 100 thousand keys already installed. The Served variants time only the
// loop's share (upstream publishes with the timer paused).
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
// (valgrind --tool=callgrind --toggle-collect='*timedCommit*').
__attribute__( ( noinline ) ) void timedCommit( NatBench& nat,
                                                natsim::NatRuleStep const& step ) {
   nat.commit( step );
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

void commitThroughPlugin( benchmark::State& state, RuleFn rule ) {
   U32 const installed = U32( state.range( 0 ) );
   Workload work( rule, installed );
   NatBench& nat = work.nat;
   std::vector<natsim::NatRuleStep> const& added = work.added;
   std::size_t const answersBefore = nat.answers();
   std::size_t const chipEntriesBefore =
       nat.platform().chip().unit( 1 )->fieldProcessor().entries();
   U32 n = 0;
   for ( auto _ : state ) {
      timedCommit( nat, added[n] );
      if ( ++n == batch ) {
         state.PauseTiming();
         work.removeBatch();
         n = 0;
         state.ResumeTiming();
      }
   }
   std::size_t const commits = nat.answers() - answersBefore;
   if ( n != 0 || commits != 2 * std::size_t( state.iterations() ) ||
        nat.platform().chip().unit( 1 )->fieldProcessor().entries() !=
            chipEntriesBefore ) {
      state.SkipWithError( "commits were not answered or entries leaked" );
   }
   state.SetItemsProcessed( state.iterations() );
   state.counters["installed"] = installed;
}

// The loop's share of a commit: upstream publishes a batch with the timer paused, then
// the loop serves it (the plug-in's commits, its answers and upstream's handling of
// them). Not a goal of its own: it shows how much of a commit upstream's publishing is.
void commitServed( benchmark::State& state, RuleFn rule ) {
   U32 const installed = U32( state.range( 0 ) );
   Workload work( rule, installed );
   NatBench& nat = work.nat;
   std::vector<natsim::NatRuleStep> const& added = work.added;
   U32 n = 0;
   for ( auto _ : state ) {
      if ( n == 0 ) {
         state.PauseTiming();
         for ( auto const& step : added ) {
            nat.upstream().natRule( step );
         }
         state.ResumeTiming();
         nat.loop().runUntilIdle();
      }
      if ( ++n == batch ) {
         state.PauseTiming();
         work.removeBatch();
         n = 0;
         state.ResumeTiming();
      }
   }
   state.SetItemsProcessed( state.iterations() );
   state.counters["installed"] = installed;
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
void BM_CommitSnatServed( benchmark::State& state ) {
   commitServed( state, Bench::snatRule );
}
void BM_CommitDnapt4VlanServed( benchmark::State& state ) {
   commitServed( state, Bench::dnaptRule );
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
BENCHMARK( BM_CommitSnatServed )->Arg( 1000 )->Iterations( iterations );
BENCHMARK( BM_CommitSnatFloor )->Arg( 1000 )->Iterations( iterations );
BENCHMARK( BM_CommitDnapt4Vlan )->Arg( 1000 )->Arg( 100000 )->Iterations( iterations );
BENCHMARK( BM_CommitDnapt4VlanServed )->Arg( 1000 )->Iterations( iterations );
BENCHMARK( BM_CommitDnapt4VlanFloor )->Arg( 1000 )->Iterations( iterations );
