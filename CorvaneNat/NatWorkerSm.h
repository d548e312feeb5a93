#pragma once

// The NAT worker of one chip module: it owns everything that programs NAT on that chip.
//
// Built by the root (one per module of the chip-common data's module map) from the
// shared NAT state, it waits until the chip's TCAM flash download (the L3-status request)
// has completed and the shared-memory mount group is ready, in either order, and then
// initializes: it creates its entry-id table and starts serving transactions (its base
// calls doCommitHwConfig( uid ) once per request). A commit programs, reprograms or
// removes the field-processor entries of one NAT key through the SDK and the TCAM entry
// manager of group 160, keeps the entry-id table in step and answers the transaction.
//
// The worker's SDK unit is its module id. Hardware entries belong to the TCAM entry
// manager and are referenced by id; destroying a worker frees none of them. The worker
// runs on the event loop only.
//
// The operations are split over sources by subsystem: NatWorkerSm.cpp (lifecycle),
// NatCommit.cpp, NatProgram.cpp (entries from NatEntryRecipe.cpp), NatDelete.cpp,
// NatDescription.cpp, NatFragment.cpp, NatVerify.cpp.

#include <memory>
#include <string>

#include "CorvaneNat/CorvaneNatTrapSm.h"
#include "CorvaneNat/EntryIdTable.h"
#include "CorvaneNat/NatCapacitySm.h"
#include "CorvaneNat/NatEntryRecipe.h"
#include "CorvaneNat/NatWorkerDeps.h"
#include "platform/agent/TableCapacity.h"
#include "platform/fwk/Operation.h"
#include "platform/fwk/Quay.h"
#include "platform/mount/VekSharedMemEntityManager.h"
#include "platform/nat/CorvaneCommonSmData.h"
#include "platform/nat/McastTranslationMode.h"
#include "platform/nat/NatTrapConfig.h"
#include "platform/nat/TcamHitCountStatus.h"
#include "platform/nat/WorkerSm.h"
#include "platform/tcam/CorvaneTcamGroupManager.h"

namespace Corvane {

// The hit-count key of a dynamic NAT key: (old source, new destination) of a source key,
// (new destination, old source) of a destination key; all zero for other kinds.
CorvaneNat::TcamHitCountKey tcamHitCountKeyFromHwKey( Oro::NatHwKey const& hwKey );

class NatWorkerSm : public CorvaneNat::WorkerSm {
public:
   typedef Fwk::Ptr<NatWorkerSm> Ptr;
   typedef Fwk::PtrConst<NatWorkerSm> PtrConst;

   explicit NatWorkerSm( NatWorkerDeps const& deps );
   ~NatWorkerSm() override;

   // Attributes.
   // What the worker was built from.
   NatWorkerDeps deps() const;
   CorvaneCentral::ModId modId() const { return modId_; }
   // The SDK unit of every call: the module id.
   U16 unit() const { return modId_; }
   CorvaneTcamGroupManager* tcamGroupManager() const { return tcamGroupManager_.ptr(); }
   CorvaneCommonSmData const* commonSmData() const;
   VekSharedMem::MountGroup const* mountGroup() const;
   OroCapacity::TableCapacity* tableCapacity() const { return tableCapacity_.ptr(); }
   Ip::Nat::McastTranslationMode const* mcastTranslationModeStatus() const;
   Oro::NatTrapConfig const* trapConfig() const;
   CorvaneNat::TcamHitCountStatus* tcamHitCountStatus() const {
      return tcamHitCountStatus_.ptr();
   }
   EntryIdTable* entryIdTable() const { return entryIdTable_.ptr(); }
   bool hitlessInitPhase() const { return hitlessInitPhase_; }
   void hitlessInitPhaseIs( bool phase ) { hitlessInitPhase_ = phase; }
   bool tcamFlashDownloadReqL3StatusComplete() const {
      return tcamFlashDownloadReqL3StatusComplete_;
   }
   void tcamFlashDownloadReqL3StatusCompleteIs( bool complete ) {
      tcamFlashDownloadReqL3StatusComplete_ = complete;
   }
   Fwk::Seconds tcamCountersPollingInterval() const {
      return tcamCountersPollingInterval_;
   }
   void tcamCountersPollingIntervalIs( Fwk::Seconds interval ) {
      tcamCountersPollingInterval_ = interval;
   }

   CorvaneNat::TrapSm* trapSm() const { return trapSm_.ptr(); }
   // Creates the trap state machine (notifications on) and keeps it.
   void trapSmIs( CorvaneCentral::ModId modId,
                  Oro::NatTrapConfig::PtrConst const& trapConfig,
                  CorvaneTcamGroupManager::Ptr const& tcamGroupManager );
   void trapSmDel();

   NatCapacitySm* capacitySm() const { return capacitySm_.ptr(); }
   // Creates the capacity state machine (notifications on) and keeps it.
   void capacitySmIs( OroCapacity::TableCapacity::Ptr const& tableCapacity,
                      Fwk::Clock::Ptr const& clock,
                      CorvaneCommonSmData::PtrConst const& commonSmData,
                      EntryIdTable::PtrConst const& entryIdTable,
                      CorvaneTcamEntryManager::Ptr const& entryManager );
   void capacitySmDel();

   // The worker's entry-id table, created empty on first call.
   EntryIdTable::Ptr entryIdTableIs();
   void entryIdTableDel() { entryIdTable_ = nullptr; }

   // Lifecycle.
   void doInit();
   void handleFlashDownloadWait();
   void handleFlashDownloadWait( TcamFlashDownloadReq req );
   void handleInitialized() override;
   // Applies a new multicast translation mode to the chip (once initialized).
   void updateMcastTranslationModeStatus();
   void hasNotificationActiveIs( bool active ) override;

   // Transactions and programming.
   void doCommitHwConfig( CorvaneNat::Uid uid ) override;
   // Which transactions and keys the commit programs on this module, step by step:
   // a transaction whose module set holds this module (any, in the hitless-init phase);
   // a key the hardware mode can hold (a dynamic key with an old address 0.0.0.0 is
   // refused in address-only mode, one with an old port outside it); and, for a shadow
   // entry, all of these with a dirty state to program (clean or program-pending) and
   // something to program (a source-side key, or a destination-side key whose data
   // lists a VLAN). The commit follows the steps; doVerify counts the keys without a row.
   bool transactionForThisModule( CorvaneNat::Uid uid ) const;
   bool modeHoldsKey( Oro::NatHwKey const& hwKey ) const;
   bool commitProgramsKey( Oro::NatHwShadowEntry const& entry ) const;
   // Adds or frees the fragment entries of every key after fragmentEnabled changed.
   void handleFragment() override;
   bool doProgram( Oro::NatHwKey const& hwKey, Oro::NatHwKey const& hwKey0,
                   Oro::NatHwData const& data, U16 vlanId );
   // What programming one key's VLANs shares, looked up once per commit: the key's
   // shadow data, its entry-id row (created empty when absent), a working copy of that
   // row which the VLANs change, its opaque id (0 until first needed), the data
   // qualifiers the row's entries held before, and those the programmed entries hold.
   struct ProgramContext {
      ProgramContext( Oro::NatHwData const& data, EntryIdTable::const_iterator at )
          : shadowData( data ),
            row( at ),
            entry( *at ),
            heldQualifiers( at->dataQualifiers() ) {}
      Oro::NatHwData const& shadowData;
      EntryIdTable::const_iterator row;
      EntryIdTableEntry entry;
      U32 opaqueId = 0;
      FpQualifierSet heldQualifiers;
      FpQualifierSet dataQualifiers = 0;
   };
   // doProgram with the key's lookups already made. It changes the context's copy of
   // the row only; storeRow( context ) stores it in the table, once all VLANs are done
   // (the row's data qualifiers become those of the entries programmed: every VLAN of
   // the row is programmed or freed by then). The row stays valid while only this
   // key's row changes.
   bool doProgram( ProgramContext& context, Oro::NatHwKey const& hwKey,
                   Oro::NatHwKey const& hwKey0, Oro::NatHwData const& data, U16 vlanId );
   void storeRow( ProgramContext& context ) {
      context.entry.dataQualifiersIs( context.dataQualifiers );
      entryIdTable()->entryIs( context.row, context.entry );
   }
   // Programs one entry with its recipe (natEntryRecipe). A reprogrammed entry
   // (`reinstall`) first loses those of `heldQualifiers` that the recipe no longer
   // sets. Returns the data qualifiers (natDataQualifiers) the entry now holds.
   FpQualifierSet doProgramEntry( U32 entryId, bool reinstall, bool fragEntry,
                                  Oro::NatHwKey const& hwKey,
                                  Oro::NatHwData const& shadowData,
                                  Oro::NatHwKey const& hwKey0,
                                  Oro::NatHwData const& shadowData0, U16 vlanId,
                                  U32 opaqueId, FpQualifierSet heldQualifiers = 0 );
   void doProgramDynamicNatEntry( U32 entryId, bool reinstall, bool fragEntry,
                                  Oro::NatHwKey const& hwKey,
                                  Oro::NatHwData const& hwData,
                                  Oro::NatHwKey const& hwKey0,
                                  Oro::NatHwData const& shadowData0, U32 uid );
   void doDeleteEntry( Oro::NatHwKey const& hwKey, U16 vlanId );
   std::string generateTcamEntryDescription( Oro::NatHwKey const& hwKey, U16 vlanId,
                                             bool fragEntry, bool multicast ) const;

   // The entry manager of the NAT group.
   CorvaneTcamEntryManager* natEntryManager() const;
   // The mode the recipes read: isAddrOnlyMode() and fragmentEnabled().
   NatWorkerMode mode() const { return { isAddrOnlyMode(), fragmentEnabled() }; }

   // Hardware verification (NatVerify.cpp): read-back checks of one entry's qualifiers,
   // and the check of the whole worker. A broken expectation stops the process.
   void doVerifySrcIp( U32 entryId, Wirel::IpAddrWithFullMask const& ipAddr );
   void doVerifyDstIp( U32 entryId, Wirel::IpAddrWithFullMask const& ipAddr );
   void doVerifySrcL4Port( U32 entryId, U16 l4Port );
   void doVerifyDstL4Port( U32 entryId, U16 l4Port );
   void doVerifyIpProtocol( U32 entryId, U8 protocol );
   void doVerifyL3Ingress( U32 entryId, U16 vlanId );
   void doVerify();

   // TCAM hit counters (NatHitCount.cpp): one polling cycle, and the polling task.
   void updateTcamHitCountStatus();
   Quay::TimerTask* tcamCountersPollingTask() const;
   // Stores the polling task and creates (or replaces) the reactor that runs a cycle at
   // every run of the task.
   void tcamCountersPollingTaskIs( Quay::TimerTask::Ptr const& task );
   void tcamCountersPollingTaskDel();
   Quay::TaskScheduler* scheduler() const { return scheduler_.ptr(); }
   void schedulerIs( Quay::TaskScheduler::Ptr const& scheduler ) {
      scheduler_ = scheduler;
   }

private:
   class ScsdReactor;
   class MountGroupReactor;
   class McastTranslationModeReactor;
   class TrapConfigReactor;

   // Applies a recipe, deleting the `dropped` qualifiers first, then sets the
   // priority and installs or reinstalls the entry.
   void doApplyRecipe( U32 entryId, bool reinstall, NatEntryRecipe const& recipe,
                       FpQualifierSet dropped );
   U32 opaqueIdOf( Oro::NatHwKey const& hwKey, Oro::NatHwData const& data ) const;
   void answer( CorvaneNat::Uid uid, Xact::XactSluiceStatus::Result result, U32 field );

   CorvaneCentral::ModId modId_;
   CorvaneTcamGroupManager::Ptr tcamGroupManager_;
   // The NAT group's entry manager, found on first use: the group manager keeps it for
   // its own life, and every entry asks for it.
   mutable CorvaneTcamEntryManager::Ptr natEntryManager_;
   std::unique_ptr<ScsdReactor> scsd_;
   std::unique_ptr<MountGroupReactor> mountGroup_;
   OroCapacity::TableCapacity::Ptr tableCapacity_;
   std::unique_ptr<McastTranslationModeReactor> mcastTranslationModeStatus_;
   std::unique_ptr<TrapConfigReactor> trapConfig_;
   CorvaneNat::TcamHitCountStatus::Ptr tcamHitCountStatus_;
   EntryIdTable::Ptr entryIdTable_;
   NatCapacitySm::Ptr capacitySm_;
   CorvaneNat::TrapSm::Ptr trapSm_;
   bool hitlessInitPhase_ = false;
   bool tcamFlashDownloadReqL3StatusComplete_ = false;
   Fwk::Seconds tcamCountersPollingInterval_ = 10.0;
   bool notificationActive_ = false;
   Quay::TaskScheduler::Ptr scheduler_;
   class PollingTaskReactor;
   std::unique_ptr<PollingTaskReactor> tcamCountersPollingTask_;
   // At "corvanenat/natWorkerSm/<modId>", withdrawn as the worker goes: "doVerify" for
   // tools, and "hitlessInitPhaseEnd" (hitlessInitPhaseIs( false )), by which the
   // platform ends the hitless-init phase once the shadow has been replayed.
   Fwk::OperationOffer operationOffer_;
};

// Creates a worker.
NatWorkerSm::Ptr NatWorkerSmIs( NatWorkerDeps const& deps );

}  // namespace Corvane
