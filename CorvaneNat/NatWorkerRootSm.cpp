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

NatWorkerRootSm::NatWorkerRootSm( NatWorkerRootDeps const& deps )
    : Entity( "NatWorkerRootSm" ), deps_( deps ) {
   if ( deps.commonSmData ) {
      scsd_ = std::make_unique<ScsdReactor>( deps.commonSmData, this );
      scsd_->hasNotificationActiveIs( true );
   }
   if ( deps.mountGroup ) {
      mountGroup_ = std::make_unique<MountGroupReactor>( deps.mountGroup, this );
      mountGroup_->hasNotificationActiveIs( true );
      // The reactor's first connection to the group; no worker exists yet.
      handleMountGroupReady();
   }
   if ( deps.trapConfig ) {
      trapConfig_ = std::make_unique<TrapConfigReactor>( deps.trapConfig, this );
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
   VekSharedMem::EntityManager& shared = *deps_.entityManager;
   shared.doMount( statusPath, "Xact::XactSluiceStatusDir", description );

   NatWorkerDeps deps;
   deps.xactSluiceConfigDir = shared.getEntity<Xact::XactSluiceConfigDir const>(
       "corvanenat/ingXactSluiceConfigDir" );
   deps.xactSluiceStatusDir = shared.getEntity<Xact::XactSluiceStatusDir>( statusPath );
   deps.shadow = shared.getEntity<Oro::NatHwShadow const>( "corvanenat/hwShadow" );
   deps.uidHwKeyTable =
       shared.getEntity<CorvaneNat::UidHwKeyTable const>( "corvanenat/uidHwKeyTable" );
   deps.hwKeyUidTable =
       shared.getEntity<CorvaneNat::HwKeyUidTable const>( "corvanenat/hwKeyUidTable" );
   deps.modSetDir =
       shared.getEntity<CorvaneNat::ModSetDir const>( "corvanenat/ingModSetDir" );
   deps.capabilityConfig = deps_.capabilityConfig;
   deps.capabilityStatus = deps_.capabilityStatus;
   deps.modId = modId;
   deps.tcamGroupManager = deps_.tcamGroupManager;
   deps.commonSmData = deps_.commonSmData;
   deps.mountGroup = deps_.mountGroup;
   deps.tableCapacity = deps_.tableCapacity;
   deps.mcastTranslationMode = deps_.mcastTranslationMode;
   deps.trapConfig = deps_.trapConfig;
   deps.tcamHitCountStatus = deps_.tcamHitCountStatus;
   natWorkerSmIs( deps );
}

void NatWorkerRootSm::handleMountGroupReady() {
   bool const ready = mountGroup_->notifier()->ready();
   NAT_TRACE( 8, "NatWorkerRootSm::handleMountGroupReady", "mountGroup ready" << ready );
   if ( ready ) {
      for ( auto const& worker : natWorkerSm_ ) {
         worker.second->doInit();
      }
      return;
   }
   natWorkerSmDelAll();
}

NatWorkerSm::Ptr NatWorkerRootSm::natWorkerSmIs( NatWorkerDeps const& deps ) {
   auto existing = natWorkerSm_.find( deps.modId );
   if ( existing != natWorkerSm_.end() ) {
      FWK_ASSERT_TEXT( existing->second->deps() == deps,
                       "natWorkerSm re-instantiated with different arguments" );
      return existing->second;
   }
   NatWorkerSm::Ptr worker = NatWorkerSmIs( deps );
   natWorkerSm_[deps.modId] = worker;
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

NatWorkerRootSm::Ptr NatWorkerRootSmIs( NatWorkerRootDeps const& deps ) {
   return NatWorkerRootSm::Ptr( new NatWorkerRootSm( deps ) );
}

}  // namespace Corvane
