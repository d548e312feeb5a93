#include "platform/nat/WorkerSm.h"

namespace CorvaneNat {

class WorkerSm::RequestReactor
    : public Fwk::ReactorOn<Xact::XactSluiceConfigDir const, WorkerSm> {
public:
   using ReactorOn::ReactorOn;
   void onAttribute( Fwk::AttributeId attr, Fwk::KeyRef key ) override {
      if ( attr == Xact::XactSluiceConfigDir::attrXactConfig && !key.isNull() &&
           !key.removed() ) {
         owner()->handleXactRequest( key.as<Xact::XactSluiceKey>() );
      }
   }
};

class WorkerSm::ConfigReactor : public Fwk::ReactorOn<CapabilityConfig const, WorkerSm> {
public:
   using ReactorOn::ReactorOn;
   void onAttribute( Fwk::AttributeId attr, Fwk::KeyRef ) override {
      owner()->handleCapabilityConfig( attr );
   }
};

// Watches the worker itself without holding it (the worker owns this reactor).
class WorkerSm::SelfReactor : public Fwk::Reactor {
public:
   explicit SelfReactor( WorkerSm* worker ) : Reactor( worker ), worker_( worker ) {}
   void onAttribute( Fwk::AttributeId attr, Fwk::KeyRef ) override {
      if ( attr == attrInitialized ) {
         worker_->handleInitialized();
      }
   }

private:
   WorkerSm* worker_;
};

WorkerSm::WorkerSm( Xact::XactSluiceConfigDir::PtrConst const& xactSluiceConfigDir,
                    Xact::XactSluiceStatusDir::Ptr const& xactSluiceStatusDir,
                    Oro::NatHwShadow::PtrConst const& shadow,
                    UidHwKeyTable::PtrConst const& uidHwKeyTable,
                    HwKeyUidTable::PtrConst const& hwKeyUidTable,
                    ModSetDir::PtrConst const& modSetDir,
                    CapabilityConfig::PtrConst const& capabilityConfig,
                    CapabilityStatus::Ptr const& capabilityStatus )
    : Entity( "WorkerSm" ),
      xactSluiceConfigDir_( xactSluiceConfigDir ),
      xactSluiceStatusDir_( xactSluiceStatusDir ),
      shadow_( shadow ),
      uidHwKeyTable_( uidHwKeyTable ),
      hwKeyUidTable_( hwKeyUidTable ),
      modSetDir_( modSetDir ),
      capabilityConfig_( capabilityConfig ),
      capabilityStatus_( capabilityStatus ) {
   if ( xactSluiceConfigDir_ ) {
      // Requests present now are pending; the reactor sees only later ones.
      for ( auto const& request : *xactSluiceConfigDir_ ) {
         pending_.push_back( request.first );
      }
      requestReactor_ = std::make_unique<RequestReactor>( xactSluiceConfigDir_, this );
   }
   if ( capabilityConfig_ ) {
      fragmentEnabled_ = capabilityConfig_->fragmentEnabled();
      configReactor_ = std::make_unique<ConfigReactor>( capabilityConfig_, this );
   }
   selfReactor_ = std::make_unique<SelfReactor>( this );
}

WorkerSm::~WorkerSm() {
   // Rest the reactors before the entities they watch are dropped.
   reactorsDel();
}

void WorkerSm::reactorsDel() {
   selfReactor_.reset();
   configReactor_.reset();
   requestReactor_.reset();
}

void WorkerSm::initializedIs( bool initialized ) {
   if ( initialized_ == initialized ) {
      return;
   }
   initialized_ = initialized;
   notify( attrInitialized );
}

void WorkerSm::handleInitialized() {
   serving_ = initialized_;
   while ( serving_ && !pending_.empty() ) {
      Xact::XactSluiceKey key = pending_.front();
      pending_.pop_front();
      if ( xactSluiceConfigDir_->xactConfigHas( key ) ) {
         doCommitHwConfig( key.uid() );
      }
   }
}

void WorkerSm::handleXactRequest( Xact::XactSluiceKey const& key ) {
   if ( !xactSluiceConfigDir_->xactConfigHas( key ) ) {
      return;  // withdrawn before it was delivered
   }
   if ( serving_ ) {
      doCommitHwConfig( key.uid() );
   } else {
      pending_.push_back( key );
   }
}

bool WorkerSm::isAddrOnlyMode() const {
   return capabilityConfig_ && capabilityConfig_->addrOnlyMode();
}

void WorkerSm::fragmentEnabledIs( bool fragmentEnabled ) {
   if ( fragmentEnabled_ == fragmentEnabled ) {
      return;
   }
   fragmentEnabled_ = fragmentEnabled;
   if ( capabilityStatus_ ) {
      capabilityStatus_->fragmentEnabledIs( fragmentEnabled );
   }
   notify( attrFragmentEnabled );
   handleFragment();
}

void WorkerSm::handleProfileChange( ResourceProfile profile ) {
   if ( capabilityStatus_ ) {
      capabilityStatus_->resourceProfileIs( profile );
   }
}

void WorkerSm::handleCapabilityConfig( Fwk::AttributeId attr ) {
   if ( attr == CapabilityConfig::attrFragmentEnabled ) {
      fragmentEnabledIs( capabilityConfig_->fragmentEnabled() );
   } else if ( attr == CapabilityConfig::attrResourceProfile ) {
      handleProfileChange( capabilityConfig_->resourceProfile() );
   }
}

void WorkerSm::hasNotificationActiveIs( bool active ) {
   notificationActive_ = active;
   if ( requestReactor_ ) {
      requestReactor_->hasNotificationActiveIs( active );
   }
   if ( configReactor_ ) {
      configReactor_->hasNotificationActiveIs( active );
   }
   if ( selfReactor_ ) {
      selfReactor_->hasNotificationActiveIs( active );
   }
}

}  // namespace CorvaneNat
