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
   NatWorkerRootDeps deps;
   deps.commonSmData = commonSmData;
   deps.tcamGroupManager = tcamManager;
   deps.mountGroup = sharedGroup;
   deps.entityManager = sharedMem;
   deps.tableCapacity = tableCapacity;
   deps.capabilityConfig = capabilityConfig;
   deps.capabilityStatus = capabilityStatus;
   deps.tcamHitCountStatus = tcamHitCountStatus;
   deps.mcastTranslationMode = mcastTranslationMode;
   deps.trapConfig = trapConfig;
   rootSmIs( deps );
}

NatWorkerRootSm::Ptr NatMounter::rootSmIs( NatWorkerRootDeps const& deps ) {
   if ( rootSm_ && deps == rootDeps_ ) {
      return rootSm_;
   }
   rootSmDel();
   rootDeps_ = deps;
   rootSm_ = NatWorkerRootSmIs( deps );
   return rootSm_;
}

void NatMounter::rootSmDel() {
   if ( rootSm_ ) {
      rootSm_->hasNotificationActiveIs( false );
      rootSm_->natWorkerSmDelAll();
   }
   rootSm_ = nullptr;
   rootDeps_ = NatWorkerRootDeps();
}

}  // namespace Corvane
