#include "tools/natsim/SimPlatform.h"

#include "platform/nat/NatChipAttr.h"

namespace natsim {

namespace {

template <class T>
Fwk::Ptr<T> publish( Orrery::EntityManager& db, std::string const& path,
                     std::string const& typeName ) {
   Fwk::Ptr<T> entity( new T( path ) );
   db.entityIs( path, typeName, entity );
   return entity;
}

}  // namespace

SimPlatform::SimPlatform( std::string const& agentName, ChipConfig const& chip,
                          NatConfig const& nat )
    : config_( chip ),
      clock_( new SimClock ),
      scope_( clock_ ),
      chip_( Chip::ChipModel::ChipModelIs() ),
      sdk_( chip_ ),
      tcamManager_(
          Corvane::CorvaneTcamGroupManager::CorvaneTcamGroupManagerIs( chip_ ) ),
      commonData_( new Corvane::CorvaneCommonSmData( "corvaneCommon" ) ) {
   Shim::sdk_ = &sdk_;
   Chip::journal().clear();
   Chip::journal().enabledIs( true );

   CorvaneNat::NatChipAttr attr;
   attr.noNatTrapFilters = !chip.trapFilters;
   attr.natTcamHitCountSupported = chip.hitCounters;
   CorvaneNat::natChipAttrIs( attr );

   for ( auto const& module : chip.modules ) {
      moduleIs( module.first, module.second );
   }
   commonData_->flashDownloadWaitIs( Corvane::tcamFlashDownloadReqL3Status,
                                     chip.flashDownloadDone );
   commonData_->hitlessRestartIs( chip.hitlessRestart );

   agent_.name = agentName;
   agent_.stateDatabase = new Orrery::EntityManager;
   agent_.sharedMem = new VekSharedMem::EntityManager;
   agent_.sharedMem->connectedIs( chip.mountGroupReady );
   agent_.sharedEntities["tcamManager"] = tcamManager_;
   agent_.sharedEntities["corvaneCommon"] = commonData_;

   Orrery::EntityManager& db = *agent_.stateDatabase;
   auto capabilities = publish<Ip::Nat::HwCapabilities>( db, "ip/nat/hwCapabilities",
                                                         "Ip::Nat::HwCapabilities" );
   capabilities->natSupportedIs( chip.natSupported );
   capabilityConfig_ = publish<CorvaneNat::CapabilityConfig>(
       db, "hardware/corvane/nat/capability/config", "CorvaneNat::CapabilityConfig" );
   capabilityConfig_->addrOnlyModeIs( nat.addrOnlyMode );
   capabilityConfig_->fragmentEnabledIs( nat.fragmentEnabled );
   mcastMode_ = publish<Ip::Nat::McastTranslationMode>(
       db, "ip/nat/mcastTranslationModeStatus", "Ip::Nat::McastTranslationMode" );
   trapConfig_ = publish<Oro::NatTrapConfig>( db, "hardware/oro/nat/trap/config",
                                              "Oro::NatTrapConfig" );
   tableCapacity_ = publish<OroCapacity::TableCapacity>(
       db, "hardware/capacity/status/nat-ifp-" + agentName,
       "OroCapacity::TableCapacity" );

   Agent::currentAgentIs( &agent_ );
}

SimPlatform::~SimPlatform() {
   Agent::currentAgentIs( nullptr );
   if ( Shim::sdk_ == &sdk_ ) {
      Shim::sdk_ = nullptr;
   }
}

CorvaneNat::TcamHitCountStatus::PtrConst SimPlatform::tcamHitCountStatus() const {
   return agent_.stateDatabase->lookup<CorvaneNat::TcamHitCountStatus const>(
       "hardware/corvane/nat/counters/tcam/" + agent_.name );
}

void SimPlatform::unitIs( U16 unit ) {
   if ( chip_->unit( unit ) ) {
      return;
   }
   Chip::ChipUnit& chipUnit = chip_->unitIs( unit );
   chipUnit.natChipFamilyIs( config_.familyTest );
   tcamUnitIs( unit );
   Corvane::ChipInfo info;
   info.name = "Chip" + std::to_string( unit );
   commonData_->chipIs( unit, info );
}

void SimPlatform::tcamUnitIs( U16 unit ) {
   tcamManager_->unboundedEntryManager( natGroup )
       ->capacityIs( unit, config_.tcamEntries );
   tcamManager_->numPipeIs( unit, config_.pipes );
}

void SimPlatform::agentRestart() {
   tcamManager_ = Corvane::CorvaneTcamGroupManager::CorvaneTcamGroupManagerIs( chip_ );
   for ( int unit : chip_->units() ) {
      tcamUnitIs( static_cast<U16>( unit ) );
   }
   Corvane::CorvaneCommonSmData::Ptr old = commonData_;
   commonData_ = new Corvane::CorvaneCommonSmData( old->name() );
   for ( auto const& module : old->modIdToUnit() ) {
      commonData_->modIdToUnitIs( module.first, module.second );
   }
   for ( auto const& chip : old->chip() ) {
      commonData_->chipIs( chip.first, chip.second );
   }
   for ( auto const& wait : old->flashDownloadWait() ) {
      commonData_->flashDownloadWaitIs( wait.first, wait.second );
   }
   commonData_->hitlessRestartIs( true );
   agent_.sharedEntities["tcamManager"] = tcamManager_;
   agent_.sharedEntities["corvaneCommon"] = commonData_;
}

bool SimPlatform::agentReady() const {
   bool const* done =
       commonData_->flashDownloadWait( Corvane::tcamFlashDownloadReqL3Status );
   return agent_.sharedMem->connected() && done && *done;
}

void SimPlatform::hitlessRestartEnd() {
   commonData_->hitlessRestartIs( false );
   tcamManager_->leftoverEntriesRelease();
}

void SimPlatform::moduleIs( U16 modId, U16 unit ) {
   unitIs( unit );
   commonData_->modIdToUnitIs( modId, unit );
}

void SimPlatform::moduleDel( U16 modId ) {
   commonData_->modIdToUnitDel( modId );
}

}  // namespace natsim
