// The worker's lifecycle: construction, the flash-download wait, initialization, the
// switching of its reactors and its teardown.

#include "CorvaneNat/NatWorkerSm.h"

#include "CorvaneNat/NatChipConfig.h"
#include "CorvaneNat/NatConstants.h"
#include "CorvaneNat/NatTrace.h"
#include "platform/nat/NatChipAttr.h"

namespace Corvane {

class NatWorkerSm::ScsdReactor
    : public Fwk::ReactorOn<CorvaneCommonSmData const, NatWorkerSm> {
public:
   using ReactorOn::ReactorOn;
   void onAttribute( Fwk::AttributeId attr, Fwk::KeyRef key ) override {
      if ( attr == CorvaneCommonSmData::attrFlashDownloadWait && !key.isNull() ) {
         owner()->handleFlashDownloadWait( key.as<TcamFlashDownloadReq>() );
      }
   }
};

// Holds the shared-memory mount group, whose readiness doInit() reads; the root reacts
// to its changes.
class NatWorkerSm::MountGroupReactor
    : public Fwk::ReactorOn<VekSharedMem::MountGroup const, NatWorkerSm> {
public:
   using ReactorOn::ReactorOn;
   void onAttribute( Fwk::AttributeId, Fwk::KeyRef ) override {}
};

// Applies each new multicast translation mode. Publishers write the types first and
// the count last, so the count's change announces a complete mode.
class NatWorkerSm::McastTranslationModeReactor
    : public Fwk::ReactorOn<Ip::Nat::McastTranslationMode const, NatWorkerSm> {
public:
   using ReactorOn::ReactorOn;
   void onAttribute( Fwk::AttributeId attr, Fwk::KeyRef ) override {
      if ( attr == Ip::Nat::McastTranslationMode::attrNumTranslationTypes ) {
         owner()->updateMcastTranslationModeStatus();
      }
   }
};

// Holds the trap configuration.
class NatWorkerSm::TrapConfigReactor
    : public Fwk::ReactorOn<Oro::NatTrapConfig const, NatWorkerSm> {
public:
   using ReactorOn::ReactorOn;
   void onAttribute( Fwk::AttributeId, Fwk::KeyRef ) override {}
};

// Runs a hit-counter polling cycle at every run of the polling task.
class NatWorkerSm::PollingTaskReactor
    : public Fwk::ReactorOn<Quay::TimerTask, NatWorkerSm> {
public:
   using ReactorOn::ReactorOn;
   void onAttribute( Fwk::AttributeId attr, Fwk::KeyRef ) override {
      if ( attr == Quay::Task::run ) {
         owner()->updateTcamHitCountStatus();
      }
   }
};

namespace {

template <class R, class E>
std::unique_ptr<R> reactorOn( Fwk::Ptr<E> const& entity, NatWorkerSm* worker ) {
   if ( !entity ) {
      return nullptr;
   }
   auto reactor = std::make_unique<R>( entity, worker );
   reactor->hasNotificationActiveIs( true );
   return reactor;
}

}  // namespace

NatWorkerSm::NatWorkerSm( NatWorkerDeps const& deps )
    : WorkerSm( deps.xactSluiceConfigDir, deps.xactSluiceStatusDir, deps.shadow,
                deps.uidHwKeyTable, deps.hwKeyUidTable, deps.modSetDir,
                deps.capabilityConfig, deps.capabilityStatus ),
      modId_( deps.modId ),
      tcamGroupManager_( deps.tcamGroupManager ),
      scsd_( reactorOn<ScsdReactor>( deps.commonSmData, this ) ),
      mountGroup_( reactorOn<MountGroupReactor>( deps.mountGroup, this ) ),
      tableCapacity_( deps.tableCapacity ),
      mcastTranslationModeStatus_(
          reactorOn<McastTranslationModeReactor>( deps.mcastTranslationMode, this ) ),
      trapConfig_( reactorOn<TrapConfigReactor>( deps.trapConfig, this ) ),
      tcamHitCountStatus_( deps.tcamHitCountStatus ),
      hitlessInitPhase_( deps.commonSmData ? deps.commonSmData->hitlessRestart()
                                           : false ),
      operationOffer_( "corvanenat/natWorkerSm/" + std::to_string( deps.modId ) ) {
   operationOffer_.operationIs( "doVerify", [this] { doVerify(); } );
   operationOffer_.operationIs( "hitlessInitPhaseEnd",
                                [this] { hitlessInitPhaseIs( false ); } );
   // A worker made after the flash download finished starts at once.
   handleFlashDownloadWait();
}

NatWorkerSm::~NatWorkerSm() {
   // Reactors rest first, in declaration order, then the base's; then the owned state.
   scsd_.reset();
   mountGroup_.reset();
   mcastTranslationModeStatus_.reset();
   trapConfig_.reset();
   reactorsDel();
   tcamCountersPollingTaskDel();
   entryIdTableDel();
   capacitySmDel();
   trapSmDel();
}

CorvaneCommonSmData const* NatWorkerSm::commonSmData() const {
   return scsd_ ? scsd_->notifier() : nullptr;
}

VekSharedMem::MountGroup const* NatWorkerSm::mountGroup() const {
   return mountGroup_ ? mountGroup_->notifier() : nullptr;
}

Ip::Nat::McastTranslationMode const* NatWorkerSm::mcastTranslationModeStatus() const {
   return mcastTranslationModeStatus_ ? mcastTranslationModeStatus_->notifier() : nullptr;
}

Oro::NatTrapConfig const* NatWorkerSm::trapConfig() const {
   return trapConfig_ ? trapConfig_->notifier() : nullptr;
}

CorvaneTcamEntryManager* NatWorkerSm::natEntryManager() const {
   if ( !natEntryManager_ ) {
      natEntryManager_ =
          tcamGroupManager_->unboundedEntryManager( natTcamGroupAssignment );
   }
   return natEntryManager_.ptr();
}

Quay::TimerTask* NatWorkerSm::tcamCountersPollingTask() const {
   return tcamCountersPollingTask_ ? tcamCountersPollingTask_->notifier() : nullptr;
}

void NatWorkerSm::tcamCountersPollingTaskIs( Quay::TimerTask::Ptr const& task ) {
   tcamCountersPollingTask_ = std::make_unique<PollingTaskReactor>( task, this );
   tcamCountersPollingTask_->hasNotificationActiveIs( true );
}

void NatWorkerSm::tcamCountersPollingTaskDel() {
   if ( tcamCountersPollingTask_ ) {
      tcamCountersPollingTask_->notifier()->cancel();
   }
   tcamCountersPollingTask_.reset();
}

void NatWorkerSm::capacitySmIs( OroCapacity::TableCapacity::Ptr const& tableCapacity,
                                Fwk::Clock::Ptr const& clock,
                                CorvaneCommonSmData::PtrConst const& commonSmData,
                                EntryIdTable::PtrConst const& entryIdTable,
                                CorvaneTcamEntryManager::Ptr const& entryManager ) {
   capacitySm_ =
       NatCapacitySmIs( tableCapacity, clock, commonSmData, entryIdTable, entryManager );
}

void NatWorkerSm::trapSmIs( CorvaneCentral::ModId modId,
                            Oro::NatTrapConfig::PtrConst const& trapConfig,
                            CorvaneTcamGroupManager::Ptr const& tcamGroupManager ) {
   trapSm_ = CorvaneNat::TrapSmIs( modId, trapConfig, tcamGroupManager );
}

void NatWorkerSm::trapSmDel() {
   if ( trapSm_ ) {
      trapSm_->hasNotificationActiveIs( false );
   }
   trapSm_ = nullptr;
}

void NatWorkerSm::capacitySmDel() {
   if ( capacitySm_ ) {
      capacitySm_->hasNotificationActiveIs( false );
   }
   capacitySm_ = nullptr;
}

EntryIdTable::Ptr NatWorkerSm::entryIdTableIs() {
   if ( !entryIdTable_ ) {
      entryIdTable_ = new EntryIdTable;
   }
   return entryIdTable_;
}

void NatWorkerSm::handleFlashDownloadWait() {
   FWK_ASSERT( commonSmData() );
   for ( auto const& wait : commonSmData()->flashDownloadWait() ) {
      handleFlashDownloadWait( wait.first );
   }
}

void NatWorkerSm::handleFlashDownloadWait( TcamFlashDownloadReq req ) {
   FWK_ASSERT( commonSmData() );
   bool const* done = commonSmData()->flashDownloadWait( req );
   if ( done && *done && req == tcamFlashDownloadReqL3Status ) {
      tcamFlashDownloadReqL3StatusCompleteIs( true );
      doInit();
   }
}

void NatWorkerSm::doInit() {
   FWK_ASSERT( mountGroup() );
   NAT_TRACE( 8, "doInit",
              " flash download " << tcamFlashDownloadReqL3StatusComplete()
                                 << " mountGroup ready " << mountGroup()->ready() );
   if ( mountGroup()->ready() && tcamFlashDownloadReqL3StatusComplete() ) {
      initializedIs( true );
   }
}

void NatWorkerSm::handleInitialized() {
   NAT_TRACE( 8, "NatWorkerSm::handleInitialized",
              " initialized: " << initialized()
                               << " hitlessInitPhase(): " << hitlessInitPhase() );
   if ( !initialized() ) {
      WorkerSm::handleInitialized();
      return;
   }
   doConfigureHardwareFields( modId(), mcastTranslationModeStatus() );
   if ( !CorvaneNat::getNatChipAttr().noNatTrapFilters ) {
      trapSmIs( modId(), trapConfig(), tcamGroupManager_ );
   }
   entryIdTableIs();
   CorvaneTcamEntryManager::Ptr entryManager =
       tcamGroupManager()->unboundedEntryManager( natTcamGroupAssignment );
   capacitySmIs( tableCapacity_, Fwk::activityManager().clockPtr(), commonSmData(),
                 entryIdTable_, entryManager );
   if ( CorvaneNat::getNatChipAttr().natTcamHitCountSupported ) {
      schedulerIs( Quay::TaskSchedulerRoot::findOrCreateScheduler() );
      Quay::TimerTask::Ptr task =
          Quay::TimerTask::TimerTaskIs( scheduler_, "tcamCountersNat", 3 );
      task->enabledIs( true );
      tcamCountersPollingTaskIs( task );
      task->scheduleTaskDelay( tcamCountersPollingInterval() );
   }
   WorkerSm::handleInitialized();
}

void NatWorkerSm::updateMcastTranslationModeStatus() {
   Ip::Nat::McastTranslationMode const* mode = mcastTranslationModeStatus();
   U32 const count = mode ? mode->numTranslationTypes() : 0;
   NAT_TRACE( 8, "updateMcastTranslationModeStatus", " numTranslationTypes: " << count );
   if ( !initialized() ) {
      NAT_TRACE( 8, "updateMcastTranslationModeStatus",
                 "not initialized. Skipping the update." );
      return;
   }
   if ( count != 3 && count != 0 ) {
      return;
   }
   doConfigureHardwareFields( unit(), mode );
}

void NatWorkerSm::hasNotificationActiveIs( bool active ) {
   if ( active == notificationActive_ ) {
      return;
   }
   notificationActive_ = active;
   WorkerSm::hasNotificationActiveIs( active );
   for ( Fwk::Reactor* reactor :
         { static_cast<Fwk::Reactor*>( scsd_.get() ),
           static_cast<Fwk::Reactor*>( mountGroup_.get() ),
           static_cast<Fwk::Reactor*>( mcastTranslationModeStatus_.get() ),
           static_cast<Fwk::Reactor*>( trapConfig_.get() ) } ) {
      if ( reactor ) {
         reactor->hasNotificationActiveIs( active );
      }
   }
   if ( capacitySm_ ) {
      capacitySm_->hasNotificationActiveIs( active );
   }
   if ( trapSm_ ) {
      trapSm_->hasNotificationActiveIs( active );
   }
}

NatWorkerDeps NatWorkerSm::deps() const {
   NatWorkerDeps deps;
   deps.xactSluiceConfigDir = xactSluiceConfigDir();
   deps.xactSluiceStatusDir = xactSluiceStatusDir();
   deps.shadow = shadow();
   deps.uidHwKeyTable = uidHwKeyTable();
   deps.hwKeyUidTable = hwKeyUidTable();
   deps.modSetDir = modSetDir();
   deps.capabilityConfig = capabilityConfig();
   deps.capabilityStatus = capabilityStatus();
   deps.modId = modId();
   deps.tcamGroupManager = tcamGroupManager_;
   deps.commonSmData = commonSmData();
   deps.mountGroup = mountGroup();
   deps.tableCapacity = tableCapacity_;
   deps.mcastTranslationMode = mcastTranslationModeStatus();
   deps.trapConfig = trapConfig();
   deps.tcamHitCountStatus = tcamHitCountStatus_;
   return deps;
}

NatWorkerSm::Ptr NatWorkerSmIs( NatWorkerDeps const& deps ) {
   return NatWorkerSm::Ptr( new NatWorkerSm( deps ) );
}

}  // namespace Corvane
