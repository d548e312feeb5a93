// Trap filters: an ACL of 1000 rules published (and removed again with the timer
// paused) and republished (released whole and programmed anew), per entry programmed,
// against the floor of the same SDK and entry-manager calls replayed directly.

#include <benchmark/benchmark.h>

#include "CorvaneNat/CorvaneNatTrapSm.h"
#include "bench/BenchSupport.h"

namespace {

constexpr U32 rules = 1000;

Oro::NatTrapKey aclKey() {
   return Oro::NatTrapKey( "natTrapBench", 10 );
}

// Permit rules from distinct /32 sources towards a /24 each; every tenth rule denies.
Oro::NatTrapAcl acl() {
   Oro::NatTrapAcl out( aclKey() );
   for ( U32 i = 0; i < rules; ++i ) {
      Wirel::IpAddrWithFullMask src( Wirel::IpAddr( ( 10u << 24 ) | ( i + 1 ) ),
                                     Wirel::prefixMask( 32 ) );
      Wirel::IpAddrWithFullMask dst( Wirel::IpAddr( ( 60u << 24 ) | ( ( i + 1 ) << 8 ) ),
                                     Wirel::prefixMask( 24 ) );
      out.ruleBySequenceIs( 10 * ( i + 1 ), Oro::NatTrapRule( i % 10 != 9, src, dst ) );
   }
   out.implicitDenyIs( true );
   return out;
}

// The trap filters of module 1 on a platform of their own (no NAT worker).
struct TrapBench {
   explicit TrapBench( bool journal ) {
      platform = std::make_unique<natsim::SimPlatform>(
          "Corvane", Bench::NatBench::chipConfig(), natsim::NatConfig() );
      Chip::journal().enabledIs( journal );
      trapSm = CorvaneNat::TrapSmIs(
          1, Oro::NatTrapConfig::PtrConst( &platform->trapConfig() ),
          Corvane::CorvaneTcamGroupManager::Ptr( &platform->tcamManager() ) );
      platform->loop().runUntilIdle();
   }
   ~TrapBench() {
      trapSm = nullptr;
      platform.reset();
      Chip::journal().clear();
      Chip::journal().enabledIs( true );
   }
   void publish( Oro::NatTrapAcl const& trapAcl ) {
      platform->trapConfig().trapAclIs( trapAcl );
      platform->loop().runUntilIdle();
   }
   void remove() {
      platform->trapConfig().trapAclDel( aclKey() );
      platform->loop().runUntilIdle();
   }
   std::unique_ptr<natsim::SimPlatform> platform;
   CorvaneNat::TrapSm::Ptr trapSm;
};

std::size_t entriesOf( std::vector<Chip::JournalRecord> const& records ) {
   std::size_t n = 0;
   for ( auto const& r : records ) {
      n += r.call == "getEntry";
   }
   return n;
}

// The timed work, apart so that a profiler can be pointed at it alone
// (valgrind --tool=callgrind --toggle-collect='*timedPublish*').
__attribute__( ( noinline ) ) void timedPublish( TrapBench& trap,
                                                 Oro::NatTrapAcl const& trapAcl ) {
   trap.publish( trapAcl );
}

// republish: every iteration publishes the ACL again over itself; otherwise every
// iteration publishes it anew and it is removed with the timer paused.
void trapThroughPlugin( benchmark::State& state, bool republish ) {
   Oro::NatTrapAcl const trapAcl = acl();
   std::size_t entries = 0;
   {
      TrapBench recording( true );
      std::size_t const mark = Chip::journal().size();
      recording.publish( trapAcl );
      entries = entriesOf( Bench::journalFrom( mark ) );
   }
   TrapBench trap( false );
   if ( republish ) {
      trap.publish( trapAcl );
   }
   for ( auto _ : state ) {
      timedPublish( trap, trapAcl );
      if ( !republish ) {
         state.PauseTiming();
         trap.remove();
         state.ResumeTiming();
      }
   }
   if ( !trap.trapSm->tcamEntryHas( aclKey() ) && republish ) {
      state.SkipWithError( "the ACL has no entries" );
   }
   state.SetItemsProcessed( state.iterations() * long( entries ) );
   state.counters["entries"] = double( entries );
}

void trapFloor( benchmark::State& state, bool republish ) {
   Oro::NatTrapAcl const trapAcl = acl();
   // Recorded: publish, republish, republish (or publish alone). Replayed: the first
   // part once; then the last publish every iteration.
   std::vector<Chip::JournalRecord> all;
   std::size_t lastStart = 0;
   std::size_t previousStart = 0;
   {
      TrapBench recording( true );
      std::size_t const start = Chip::journal().size();
      for ( int round = 0; round < ( republish ? 3 : 1 ); ++round ) {
         previousStart = lastStart;
         lastStart = Chip::journal().size() - start;
         recording.publish( trapAcl );
      }
      all = Bench::journalFrom( start );
   }
   natsim::SimPlatform floor( "Corvane", Bench::NatBench::chipConfig(),
                              natsim::NatConfig() );
   Chip::journal().enabledIs( false );
   Shim::Sdk& sdk = *Shim::sdk_;
   auto& em = *floor.tcamManager().unboundedEntryManager( natsim::natGroup );
   Bench::Replay replay( all, sdk );
   replay.run( 0, lastStart, sdk, em );
   // The last publish releases the previous one's entries: after each iteration its
   // own entries take the previous one's place.
   std::vector<U32> const previous = replay.getEntrySlots( previousStart, lastStart );
   std::vector<U32> const last = replay.getEntrySlots( lastStart, replay.calls() );
   std::size_t entries = last.size();
   for ( auto _ : state ) {
      replay.run( lastStart, replay.calls(), sdk, em );
      state.PauseTiming();
      if ( republish ) {
         replay.slotsCarry( last, previous );
      } else {
         replay.releaseAll( em );
      }
      state.ResumeTiming();
   }
   state.SetItemsProcessed( state.iterations() * long( entries ) );
   state.counters["entries"] = double( entries );
   state.counters["calls"] = double( replay.calls() - lastStart );
   Chip::journal().clear();
   Chip::journal().enabledIs( true );
}

void BM_TrapAclPublish( benchmark::State& state ) {
   trapThroughPlugin( state, false );
}
void BM_TrapAclPublishFloor( benchmark::State& state ) {
   trapFloor( state, false );
}
void BM_TrapAclRepublish( benchmark::State& state ) {
   trapThroughPlugin( state, true );
}
void BM_TrapAclRepublishFloor( benchmark::State& state ) {
   trapFloor( state, true );
}

}  // namespace

BENCHMARK( BM_TrapAclPublish )->Unit( benchmark::kMicrosecond )->Iterations( 5 );
BENCHMARK( BM_TrapAclPublishFloor )->Unit( benchmark::kMicrosecond )->Iterations( 5 );
BENCHMARK( BM_TrapAclRepublish )->Unit( benchmark::kMicrosecond )->Iterations( 5 );
BENCHMARK( BM_TrapAclRepublishFloor )->Unit( benchmark::kMicrosecond )->Iterations( 5 );
