// Hit-counter polling and capacity refresh over 24 thousand dynamic entries, per entry
// visited. One iteration is one polling cycle (the timer task fires from the loop and
// runs NatWorkerSm::updateTcamHitCountStatus; the capacity refreshes, due every 5 s,
// run untimed before it, unless one falls due at the cycle's very time) or one
// CapacityHelperSm::refreshAll(). The floor of a polling cycle is its entry-manager calls
// (hitsForEntry), replayed.

#include <benchmark/benchmark.h>

#include "bench/BenchSupport.h"
#include "platform/agent/CapacityHelperSm.h"

namespace {

using Bench::NatBench;

constexpr U32 dynamicEntries = 24000;

natsim::NatConfig dynamicMode() {
   natsim::NatConfig nat;
   nat.addrOnlyMode = true;  // dynamic keys with ports get hardware entries
   return nat;
}

void install( NatBench& nat ) {
   for ( U32 i = 0; i < dynamicEntries; ++i ) {
      nat.commit( Bench::dynamicRule( i ) );
   }
}

// Runs the loop up to the next polling cycle, which stays due: the timers due before it
// (capacity refreshes) run here, outside the timed cycle. Returns the cycle's time.
Fwk::Seconds untilPoll( NatBench& nat ) {
   Fwk::Seconds const due = nat.worker()->tcamCountersPollingTask()->dueTime();
   nat.loop().runUntil( due - 1e-3 );
   return due;
}

// The timed work, apart so that a profiler can be pointed at it alone
// (valgrind --tool=callgrind --toggle-collect='*timedCycle*').
__attribute__( ( noinline ) ) void timedCycle( NatBench& nat, Fwk::Seconds due ) {
   nat.loop().runUntil( due );
}

void BM_HitCountPoll( benchmark::State& state ) {
   NatBench nat( dynamicMode() );
   install( nat );
   nat.loop().runUntil( untilPoll( nat ) );  // the first cycle creates the rows
   for ( auto _ : state ) {
      state.PauseTiming();
      Fwk::Seconds const due = untilPoll( nat );
      state.ResumeTiming();
      timedCycle( nat, due );
   }
   if ( nat.platform().tcamHitCountStatus()->entrys() != dynamicEntries ) {
      state.SkipWithError( "polling did not publish every key" );
   }
   state.SetItemsProcessed( state.iterations() * dynamicEntries );
   state.counters["entries"] = dynamicEntries;
}

void BM_HitCountPollFloor( benchmark::State& state ) {
   std::vector<Chip::JournalRecord> prefillCalls;
   std::vector<Chip::JournalRecord> pollCalls;
   {
      NatBench nat( dynamicMode(), true );
      std::size_t const start = Chip::journal().size();
      install( nat );
      std::size_t const mark = Chip::journal().size();
      nat.loop().advance( nat.worker()->tcamCountersPollingInterval() );
      auto all = Bench::journalFrom( start );
      prefillCalls.assign( all.begin(), all.begin() + long( mark - start ) );
      pollCalls.assign( all.begin() + long( mark - start ), all.end() );
   }
   natsim::SimPlatform floor( "Corvane", NatBench::chipConfig(), dynamicMode() );
   Chip::journal().enabledIs( false );
   Shim::Sdk& sdk = *Shim::sdk_;
   auto& em = *floor.tcamManager().unboundedEntryManager( natsim::natGroup );
   Bench::Replay prefill( prefillCalls, sdk );
   prefill.run( 0, prefill.calls(), sdk, em );
   Bench::Replay poll( pollCalls, sdk );
   for ( auto _ : state ) {
      poll.run( 0, poll.calls(), sdk, em );
   }
   state.SetItemsProcessed( state.iterations() * dynamicEntries );
   state.counters["calls"] = double( poll.calls() );
   state.counters["entries"] = dynamicEntries;
   Chip::journal().clear();
   Chip::journal().enabledIs( true );
}

void BM_CapacityRefresh( benchmark::State& state ) {
   NatBench nat( dynamicMode() );
   install( nat );
   for ( auto _ : state ) {
      Hardware::Capacity::CapacityHelperSm::refreshAll();
      nat.loop().runUntilIdle();
   }
   state.SetItemsProcessed( state.iterations() * dynamicEntries );
   state.counters["entries"] = dynamicEntries;
}

}  // namespace

BENCHMARK( BM_HitCountPoll )->Unit( benchmark::kMillisecond )->Iterations( 50 );
BENCHMARK( BM_HitCountPollFloor )->Unit( benchmark::kMillisecond )->Iterations( 50 );
BENCHMARK( BM_CapacityRefresh )->Unit( benchmark::kMillisecond )->Iterations( 200 );
