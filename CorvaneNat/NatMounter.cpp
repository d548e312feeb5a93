#include "CorvaneNat/NatMounter.h"

#include "CorvaneNat/NatTrace.h"
#include "platform/mount/VekSharedMemMountDescription.h"

namespace Corvane {

namespace {

NatMounter* current = nullptr;

}  // namespace

NatMounter::NatMounter( std::string name ) : MounterBase( std::move( name ) ) {
   current = this;
}

NatMounter::~NatMounter() {
   rootSmDel();
   if ( current == this ) {
      current = nullptr;
   }
}

NatMounter* NatMounter::natMounter() {
   return current;
}

void NatMounter::doInit() {
   NAT_TRACE( 8, "NatMounter::doInit", "" );
   std::string const& agent = agentName();
   Orrery::MountGroup::Ptr group = getMountGroup();
   group->doMount( "hardware/capacity/status/nat-ifp-" + agent,
                   "OroCapacity::TableCapacity", "w" );
   group->doMount( "ip/nat/hwCapabilities", "Ip::Nat::HwCapabilities", "r" );
   group->doMount( "hardware/corvane/nat/capability/config",
                   "CorvaneNat::CapabilityConfig", "r" );
   group->doMount( "hardware/corvane/nat/capability/status/" + agent,
                   "CorvaneNat::CapabilityStatus", "wc" );
   group->doMount( "hardware/corvane/nat/counters/tcam/" + agent,
                   "CorvaneNat::TcamHitCountStatus", "wc" );
   group->doMount( "ip/nat/mcastTranslationModeStatus", "Ip::Nat::McastTranslationMode",
                   "r" );
   group->doMount( "hardware/oro/nat/trap/config", "Oro::NatTrapConfig", "r" );
   group->doClose();
}

void NatMounter::doMountsComplete( Orrery::MountStatus mountStatus,
                                   Orrery::EntityManager::Ptr entityManager ) {
   FWK_ASSERT( mountStatus == Orrery::mountSuccess() );
   auto capabilities =
       entityManager->lookup<Ip::Nat::HwCapabilities const>( "ip/nat/hwCapabilities" );
   bool const natSupported = capabilities && capabilities->natSupported();
   if ( !natSupported ) {
      NAT_TRACE( 0, "NatMounter::doMountsComplete",
                 " natSupported: " << natSupported << ", skip mounting" );
      return;
   }

   VekSharedMem::EntityManager::Ptr sharedMem( sharedMemEntityManager() );
   VekSharedMem::MountGroup::Ptr sharedGroup = sharedMem->mountGroup();
   sharedGroup->doMount( "corvanenat/ingXactSluiceConfigDir", "Xact::XactSluiceConfigDir",
                         VekSharedMem::MountDescription( 1 ) );
   sharedGroup->doMount( "corvanenat/hwKeyUidTable", "CorvaneNat::HwKeyUidTable",
                         VekSharedMem::MountDescription( 2 ) );
   sharedGroup->doMount( "corvanenat/uidHwKeyTable", "CorvaneNat::UidHwKeyTable",
                         VekSharedMem::MountDescription( 2 ) );
   sharedGroup->doMount( "corvanenat/hwShadow", "Oro::NatHwShadow",
                         VekSharedMem::MountDescription( 2 ) );
   sharedGroup->doMount( "corvanenat/ingModSetDir", "CorvaneNat::ModSetDir",
                         VekSharedMem::MountDescription( 2 ) );
   sharedGroup->doClose();

   std::string const& agent = agentName();
   auto tableCapacity = entityManager->lookup<OroCapacity::TableCapacity>(
       "hardware/capacity/status/nat-ifp-" + agent );
   auto capabilityConfig = entityManager->lookup<CorvaneNat::CapabilityConfig const>(
       "hardware/corvane/nat/capability/config" );
   auto capabilityStatus = entityManager->lookup<CorvaneNat::CapabilityStatus>(
       "hardware/corvane/nat/capability/status/" + agent );
   auto tcamHitCountStatus = entityManager->lookup<CorvaneNat::TcamHitCountStatus>(
       "hardware/corvane/nat/counters/tcam/" + agent );
   auto mcastTranslationMode = entityManager->lookup<Ip::Nat::McastTranslationMode const>(
       "ip/nat/mcastTranslationModeStatus" );
   auto trapConfig =
       entityManager->lookup<Oro::NatTrapConfig const>( "hardware/oro/nat/trap/config" );

   auto tcamManager = sharedEntity<CorvaneTcamGroupManager>( "tcamManager" );
   auto commonSmData = sharedEntity<CorvaneCommonSmData const>( "corvaneCommon" );
   rootSmIs( commonSmData, tcamManager, sharedGroup, sharedMem, tableCapacity,
             capabilityConfig, capabilityStatus, tcamHitCountStatus, mcastTranslationMode,
             trapConfig );
}

NatWorkerRootSm::Ptr NatMounter::rootSmIs(
    CorvaneCommonSmData::PtrConst const& commonSmData,
    CorvaneTcamGroupManager::Ptr const& tcamGroupManager,
    VekSharedMem::MountGroup::PtrConst const& mountGroup,
    VekSharedMem::EntityManager::Ptr const& sharedEntityManager,
    OroCapacity::TableCapacity::Ptr const& tableCapacity,
    CorvaneNat::CapabilityConfig::PtrConst const& capabilityConfig,
    CorvaneNat::CapabilityStatus::Ptr const& capabilityStatus,
    CorvaneNat::TcamHitCountStatus::Ptr const& tcamHitCountStatus,
    Ip::Nat::McastTranslationMode::PtrConst const& mcastTranslationMode,
    Oro::NatTrapConfig::PtrConst const& trapConfig ) {
   std::vector<void const*> args = {
       commonSmData.ptr(),        tcamGroupManager.ptr(),   mountGroup.ptr(),
       sharedEntityManager.ptr(), tableCapacity.ptr(),      capabilityConfig.ptr(),
       capabilityStatus.ptr(),    tcamHitCountStatus.ptr(), mcastTranslationMode.ptr(),
       trapConfig.ptr() };
   if ( rootSm_ && args == rootArgs_ ) {
      return rootSm_;
   }
   rootSmDel();
   rootArgs_ = args;
   rootSm_ =
       NatWorkerRootSmIs( commonSmData, tcamGroupManager, mountGroup, sharedEntityManager,
                          tableCapacity, capabilityConfig, capabilityStatus,
                          tcamHitCountStatus, mcastTranslationMode, trapConfig );
   return rootSm_;
}

void NatMounter::rootSmDel() {
   if ( rootSm_ ) {
      rootSm_->hasNotificationActiveIs( false );
      rootSm_->natWorkerSmDelAll();
   }
   rootSm_ = nullptr;
   rootArgs_.clear();
}

}  // namespace Corvane
