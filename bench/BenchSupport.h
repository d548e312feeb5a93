#pragma once

// What the benchmarks share: the plug-in on natsim's simulated platform (as the plug-in
// tests stand it up), the rules they commit, and the floor: the SDK and entry-manager
// calls of a workload, taken from the journal and made again directly on the shim and
// the entry manager of a platform without the plug-in.
//
// Only one simulated platform exists at a time, so a benchmark records its workload's
// calls on a platform of its own, drops it, and then builds the platform it measures.

#include <memory>
#include <string>
#include <vector>

#include "CorvaneNat/NatMounter.h"
#include "platform/chip/Journal.h"
#include "platform/chip/Sdk.h"
#include "tools/natsim/SimPlatform.h"
#include "tools/natsim/Upstream.h"

namespace Bench {

// Room for every entry a benchmark makes.
constexpr U32 benchTcamEntries = 1u << 22;

// The plug-in on the simulated platform, on module 1 (unit 1).
class NatBench {
public:
   // Builds the platform, upstream and the plug-in, and runs the loop until the worker
   // is serving. The journal records while `journal` is true.
   explicit NatBench( natsim::NatConfig const& nat = {}, bool journal = false,
                      natsim::ChipConfig chip = chipConfig() );
   ~NatBench();

   static natsim::ChipConfig chipConfig();

   natsim::SimPlatform& platform() { return *platform_; }
   natsim::Upstream& upstream() { return *upstream_; }
   Fwk::ActivityManager& loop() { return platform_->loop(); }
   Corvane::NatWorkerSm* worker() const;
   std::size_t answers() const { return answers_; }

   // Publishes a rule (or its removal) as upstream does and runs the loop.
   void commit( natsim::NatRuleStep const& step );
   void remove( natsim::NatRuleRemoveStep const& step );

private:
   std::unique_ptr<natsim::SimPlatform> platform_;
   std::unique_ptr<natsim::Upstream> upstream_;
   Corvane::NatMounter::Ptr mounter_;
   std::size_t answers_ = 0;
};

// Rules, numbered from 0; uids are `index + 1`.
// A static SNAT rule on one VLAN (the VLAN-less source key): 10.x -> 100.x.
natsim::NatRuleStep snatRule( U32 index );
// A static DNAPT rule on four VLANs: 20.x:80 -> 30.x:8080, next hop 5.
natsim::NatRuleStep dnaptRule( U32 index );
// A dynamic SNAPT rule (address-only mode off): 40.x:1024 -> 50.x:2000 towards
// 8.8.8.8:53, TCP.
natsim::NatRuleStep dynamicRule( U32 index );
natsim::NatRuleRemoveStep removal( natsim::NatRuleStep const& rule );

// The calls of a workload, decoded from journal records once so that replaying them
// costs a switch per call. Entry ids are remapped: an id that getEntry returned in the
// recording stands for whatever getEntry returns in the replay.
class Replay {
public:
   // Decodes records into calls of `sdk`'s enumeration values; an unknown call stops
   // the program (the floor would be wrong).
   Replay( std::vector<Chip::JournalRecord> const& records, Shim::Sdk const& sdk );

   std::size_t calls() const { return ops_.size(); }
   std::size_t entriesAllocated() const { return getEntries_; }
   // Marks call boundaries of units of work (e.g. commits): records [0, mark) belong to
   // the units before. Set by the caller from journal sizes.
   void unitEndIs( std::size_t recordIndex ) { unitEnds_.push_back( recordIndex ); }
   std::size_t units() const { return unitEnds_.size(); }

   // Makes calls [first, last) on the shim and the entry manager of group `group`, under
   // the activity lock given up around every SDK call, as the plug-in makes them.
   void run( std::size_t first, std::size_t last, Shim::Sdk& sdk,
             Corvane::CorvaneTcamEntryManager& entryManager );
   // Makes the calls of unit `unit`.
   void runUnit( std::size_t unit, Shim::Sdk& sdk,
                 Corvane::CorvaneTcamEntryManager& entryManager ) {
      run( unit == 0 ? 0 : unitEnds_[unit - 1], unitEnds_[unit], sdk, entryManager );
   }
   // The slots that the getEntry calls among [first, last) fill, in call order.
   std::vector<U32> getEntrySlots( std::size_t first, std::size_t last ) const;
   // Makes each slot of `to` stand for the entry that the same slot of `from` holds, so
   // that calls recorded against an earlier round of entries can be made again against
   // the latest round (republishing).
   void slotsCarry( std::vector<U32> const& from, std::vector<U32> const& to );
   // Releases every entry on unit 1 that the replay allocated and still holds.
   void releaseAll( Corvane::CorvaneTcamEntryManager& entryManager );

private:
   struct Op {
      U8 kind;
      U16 unit;
      U32 slot;  // the entry's slot, or ~0 for a literal entry id
      U32 entry;
      U32 a;
      U32 b;
      S32 c;
      U32 text;  // getEntry: index of its description
   };
   U32 entry( Op const& op ) const { return op.slot == ~0u ? op.entry : ids_[op.slot]; }
   // One call of the field processor (returns its code) or of the entry manager.
   static int sdkCall( Op const& op, U32 e, Shim::Sdk& sdk );
   void entryManagerCall( Op const& op, U32 e, Corvane::CorvaneTcamEntryManager& em );

   std::vector<Op> ops_;
   std::vector<std::string> texts_;
   std::vector<U32> ids_;
   std::vector<bool> held_;
   std::vector<std::size_t> unitEnds_;
   std::size_t getEntries_ = 0;
};

// The journal from `first` on, as a copy.
std::vector<Chip::JournalRecord> journalFrom( std::size_t first );

}  // namespace Bench
