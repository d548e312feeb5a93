#include "CorvaneNat/NatWorkerRootSm.h"

#include "CorvaneNat/NatTrace.h"
#include "platform/mount/VekSharedMemMountDescription.h"

namespace Corvane {

class NatWorkerRootSm::ScsdReactor
    : public Fwk::ReactorOn<CorvaneCommonSmData const, NatWorkerRootSm> {
public:
   using ReactorOn::ReactorOn;
   void onAttribute( Fwk::AttributeId attr, Fwk::KeyRef key ) override {
      if ( attr == CorvaneCommonSmData::attrModIdToUnit && !key.isNull() ) {
         owner()->handleModule( key.as<CorvaneCentral::ModId>() );
      }
   }
};

class NatWorkerRootSm::MountGroupReactor
    : public Fwk::ReactorOn<VekSharedMem::MountGroup const, NatWorkerRootSm> {
public:
   using ReactorOn::ReactorOn;
   void onAttribute( Fwk::AttributeId attr, Fwk::KeyRef ) override {
      if ( attr == VekSharedMem::MountGroup::attrReady ) {
         owner()->handleMountGroupReady();
      }
   }
};

// Holds the trap configuration that every worker is given.
class NatWorkerRootSm::TrapConfigReactor
    : public Fwk::ReactorOn<Oro::NatTrapConfig const, NatWorkerRootSm> {
public:
   using ReactorOn::ReactorOn;
   void onAttribute( Fwk::AttributeId, Fwk::KeyRef ) override {}
};

NatWorkerRootSm::NatWorkerRootSm(
    CorvaneCommonSmData::PtrConst const& commonSmData,
    CorvaneTcamGroupManager::Ptr const& tcamGroupManager,
    VekSharedMem::MountGroup::PtrConst const& mountGroup,
    VekSharedMem::EntityManager::Ptr const& entityManager,
    OroCapacity::TableCapacity::Ptr const& tableCapacity,
    CorvaneNat::CapabilityConfig::PtrConst const& capabilityConfig,
    CorvaneNat::CapabilityStatus::Ptr const& capabilityStatus,
    CorvaneNat::TcamHitCountStatus::Ptr const& tcamHitCountStatus,
    Ip::Nat::McastTranslationMode::PtrConst const& mcastTranslationMode,
    Oro::NatTrapConfig::PtrConst const& trapConfig )
    : Entity( "NatWorkerRootSm" ),
      tcamGroupManager_( tcamGroupManager ),
      entityManager_( entityManager ),
      tableCapacity_( tableCapacity ),
      capabilityConfig_( capabilityConfig ),
      capabilityStatus_( capabilityStatus ),
      tcamHitCountStatus_( tcamHitCountStatus ),
      mcastTranslationMode_( mcastTranslationMode ) {
   if ( commonSmData ) {
      scsd_ = std::make_unique<ScsdReactor>( commonSmData, this );
      scsd_->hasNotificationActiveIs( true );
   }
   if ( mountGroup ) {
      mountGroup_ = std::make_unique<MountGroupReactor>( mountGroup, this );
      mountGroup_->hasNotificationActiveIs( true );
      // The reactor's first connection to the group; no worker exists yet.
      handleMountGroupReady();
   }
   if ( trapConfig ) {
      trapConfig_ = std::make_unique<TrapConfigReactor>( trapConfig, this );
      trapConfig_->hasNotificationActiveIs( true );
   }
   handleModule();
}

NatWorkerRootSm::~NatWorkerRootSm() {
   scsd_.reset();
   mountGroup_.reset();
   trapConfig_.reset();
   natWorkerSmDelAll();
}

void NatWorkerRootSm::handleModule() {
   if ( !scsd_ ) {
      return;
   }
   std::vector<CorvaneCentral::ModId> modules;
   for ( auto const& module : scsd_->notifier()->modIdToUnit() ) {
      modules.push_back( module.first );
   }
   for ( CorvaneCentral::ModId modId : modules ) {
      handleModule( modId );
   }
}

void NatWorkerRootSm::handleModule( CorvaneCentral::ModId modId ) {
   NAT_TRACE( 8, "NatWorkerRootSm::handleModule", " modId " << modId );
   CorvaneCommonSmData const* commonSmData = scsd_->notifier();
   if ( !commonSmData->modIdToUnit( modId ) ) {
      natWorkerSmDel( modId );
      return;
   }
   std::string const statusPath =
       "corvanenat/ingXactSluiceStatusDir/" + std::to_string( modId );
   VekSharedMem::MountDescription description( 0 );
   description.collectionSizeIs( "xactStatus", 0x4000 );
   entityManager_->doMount( statusPath, "Xact::XactSluiceStatusDir", description );

   auto modSetDir = entityManager_->getEntity<CorvaneNat::ModSetDir const>(
       "corvanenat/ingModSetDir" );
   auto hwKeyUidTable = entityManager_->getEntity<CorvaneNat::HwKeyUidTable const>(
       "corvanenat/hwKeyUidTable" );
   auto uidHwKeyTable = entityManager_->getEntity<CorvaneNat::UidHwKeyTable const>(
       "corvanenat/uidHwKeyTable" );
   auto shadow =
       entityManager_->getEntity<Oro::NatHwShadow const>( "corvanenat/hwShadow" );
   auto statusDir = entityManager_->getEntity<Xact::XactSluiceStatusDir>( statusPath );
   auto configDir = entityManager_->getEntity<Xact::XactSluiceConfigDir const>(
       "corvanenat/ingXactSluiceConfigDir" );
   natWorkerSmIs( configDir, statusDir, shadow, uidHwKeyTable, hwKeyUidTable, modSetDir,
                  capabilityConfig_, capabilityStatus_, modId, tcamGroupManager_,
                  scsd_->notifier(), mountGroup_ ? mountGroup_->notifier() : nullptr,
                  tableCapacity_, mcastTranslationMode_,
                  trapConfig_ ? trapConfig_->notifier() : nullptr, tcamHitCountStatus_ );
}

void NatWorkerRootSm::handleMountGroupReady() {
   bool const ready = mountGroup_->notifier()->ready();
   NAT_TRACE( 8, "NatWorkerRootSm::handleMountGroupReady",
              " mountGroup ready " << ready );
   if ( ready ) {
      for ( auto const& worker : natWorkerSm_ ) {
         worker.second->doInit();
      }
      return;
   }
   natWorkerSmDelAll();
}

NatWorkerSm::Ptr NatWorkerRootSm::natWorkerSmIs(
    Xact::XactSluiceConfigDir::PtrConst const& xactSluiceConfigDir,
    Xact::XactSluiceStatusDir::Ptr const& xactSluiceStatusDir,
    Oro::NatHwShadow::PtrConst const& shadow,
    CorvaneNat::UidHwKeyTable::PtrConst const& uidHwKeyTable,
    CorvaneNat::HwKeyUidTable::PtrConst const& hwKeyUidTable,
    CorvaneNat::ModSetDir::PtrConst const& modSetDir,
    CorvaneNat::CapabilityConfig::PtrConst const& capabilityConfig,
    CorvaneNat::CapabilityStatus::Ptr const& capabilityStatus,
    CorvaneCentral::ModId modId, CorvaneTcamGroupManager::Ptr const& tcamGroupManager,
    CorvaneCommonSmData::PtrConst const& commonSmData,
    VekSharedMem::MountGroup::PtrConst const& mountGroup,
    OroCapacity::TableCapacity::Ptr const& tableCapacity,
    Ip::Nat::McastTranslationMode::PtrConst const& mcastTranslationMode,
    Oro::NatTrapConfig::PtrConst const& trapConfig,
    CorvaneNat::TcamHitCountStatus::Ptr const& tcamHitCountStatus ) {
   auto existing = natWorkerSm_.find( modId );
   if ( existing != natWorkerSm_.end() ) {
      NatWorkerSm const& w = *existing->second;
      bool const same =
          w.xactSluiceConfigDir() == xactSluiceConfigDir.ptr() &&
          w.xactSluiceStatusDir() == xactSluiceStatusDir.ptr() &&
          w.shadow() == shadow.ptr() && w.uidHwKeyTable() == uidHwKeyTable.ptr() &&
          w.hwKeyUidTable() == hwKeyUidTable.ptr() && w.modSetDir() == modSetDir.ptr() &&
          w.capabilityConfig() == capabilityConfig.ptr() &&
          w.capabilityStatus() == capabilityStatus.ptr() &&
          w.tcamGroupManager() == tcamGroupManager.ptr() &&
          w.commonSmData() == commonSmData.ptr() && w.mountGroup() == mountGroup.ptr() &&
          w.tableCapacity() == tableCapacity.ptr() &&
          w.mcastTranslationModeStatus() == mcastTranslationMode.ptr() &&
          w.trapConfig() == trapConfig.ptr() &&
          w.tcamHitCountStatus() == tcamHitCountStatus.ptr();
      FWK_ASSERT_TEXT( same, "natWorkerSm re-instantiated with different arguments" );
      return existing->second;
   }
   NatWorkerSm::Ptr worker =
       NatWorkerSmIs( xactSluiceConfigDir, xactSluiceStatusDir, shadow, uidHwKeyTable,
                      hwKeyUidTable, modSetDir, capabilityConfig, capabilityStatus, modId,
                      tcamGroupManager, commonSmData, mountGroup, tableCapacity,
                      mcastTranslationMode, trapConfig, tcamHitCountStatus );
   natWorkerSm_[modId] = worker;
   worker->hasNotificationActiveIs( true );
   return worker;
}

void NatWorkerRootSm::natWorkerSmDel( CorvaneCentral::ModId modId ) {
   auto worker = natWorkerSm_.find( modId );
   if ( worker == natWorkerSm_.end() ) {
      return;
   }
   worker->second->hasNotificationActiveIs( false );
   natWorkerSm_.erase( worker );
}

void NatWorkerRootSm::natWorkerSmDelAll() {
   while ( !natWorkerSm_.empty() ) {
      natWorkerSmDel( natWorkerSm_.begin()->first );
   }
}

NatWorkerSm::Ptr NatWorkerRootSm::natWorkerSm( CorvaneCentral::ModId modId ) const {
   auto worker = natWorkerSm_.find( modId );
   return worker == natWorkerSm_.end() ? nullptr : worker->second;
}

void NatWorkerRootSm::hasNotificationActiveIs( bool active ) {
   for ( Fwk::Reactor* reactor : { static_cast<Fwk::Reactor*>( scsd_.get() ),
                                   static_cast<Fwk::Reactor*>( mountGroup_.get() ),
                                   static_cast<Fwk::Reactor*>( trapConfig_.get() ) } ) {
      if ( reactor ) {
         reactor->hasNotificationActiveIs( active );
      }
   }
}

NatWorkerRootSm::Ptr NatWorkerRootSmIs(
    CorvaneCommonSmData::PtrConst const& commonSmData,
    CorvaneTcamGroupManager::Ptr const& tcamGroupManager,
    VekSharedMem::MountGroup::PtrConst const& mountGroup,
    VekSharedMem::EntityManager::Ptr const& entityManager,
    OroCapacity::TableCapacity::Ptr const& tableCapacity,
    CorvaneNat::CapabilityConfig::PtrConst const& capabilityConfig,
    CorvaneNat::CapabilityStatus::Ptr const& capabilityStatus,
    CorvaneNat::TcamHitCountStatus::Ptr const& tcamHitCountStatus,
    Ip::Nat::McastTranslationMode::PtrConst const& mcastTranslationMode,
    Oro::NatTrapConfig::PtrConst const& trapConfig ) {
   return NatWorkerRootSm::Ptr(
       new NatWorkerRootSm( commonSmData, tcamGroupManager, mountGroup, entityManager,
                            tableCapacity, capabilityConfig, capabilityStatus,
                            tcamHitCountStatus, mcastTranslationMode, trapConfig ) );
}

}  // namespace Corvane
