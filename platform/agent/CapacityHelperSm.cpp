#include "platform/agent/CapacityHelperSm.h"

#include <set>

namespace Hardware {
namespace Capacity {

namespace {
std::set<CapacityHelperSm*>& liveHelpers() {
   static std::set<CapacityHelperSm*> helpers;
   return helpers;
}
}  // namespace

class CapacityHelperSm::RefreshReactor
    : public Fwk::ReactorOn<Quay::TimerTask, CapacityHelperSm> {
public:
   using ReactorOn::ReactorOn;
   void onAttribute( Fwk::AttributeId attr, Fwk::KeyRef ) override {
      if ( attr == Quay::Task::run ) {
         owner()->refresh();
         notifier()->scheduleTaskDelay( refreshInterval );
      }
   }
};

CapacityHelperSm::CapacityHelperSm( OroCapacity::TableCapacity::Ptr tableCapacity,
                                    Fwk::Clock::Ptr clock )
    : Entity( "CapacityHelperSm" ),
      tableCapacity_( std::move( tableCapacity ) ),
      clock_( std::move( clock ) ) {
   liveHelpers().insert( this );
}

CapacityHelperSm::~CapacityHelperSm() {
   liveHelpers().erase( this );
   if ( refreshTask_ ) {
      refreshTask_->cancel();
   }
}

void CapacityHelperSm::handleInitialized() {
   initCapacityTableFeatureMaps();
   refresh();
   refreshTask_ = Quay::TimerTask::TimerTaskIs(
       Quay::TaskSchedulerRoot::findOrCreateScheduler(), "capacityHelper", 1 );
   refreshReactor_ = std::make_unique<RefreshReactor>( refreshTask_, this );
   refreshReactor_->hasNotificationActiveIs( true );
   refreshTask_->enabledIs( true );
   refreshTask_->scheduleTaskDelay( refreshInterval );
}

void CapacityHelperSm::refresh() {
   if ( tableCapacity_ ) {
      updateCapacityTable();
   }
}

void CapacityHelperSm::refreshAll() {
   std::set<CapacityHelperSm*> const helpers = liveHelpers();
   for ( CapacityHelperSm* helper : helpers ) {
      helper->refresh();
   }
}

void CapacityHelperSm::hasNotificationActiveIs( bool active ) {
   if ( refreshReactor_ ) {
      refreshReactor_->hasNotificationActiveIs( active );
      refreshTask_->enabledIs( active );
      if ( active && !refreshTask_->isScheduled() ) {
         refreshTask_->scheduleTaskDelay( refreshInterval );
      }
   }
}

void CapacityHelperSm::initCapacityTableFeature( std::string const& prefix,
                                                 std::string const& feature,
                                                 std::string const& table ) {
   features_.push_back( Feature{ prefix, feature, table } );
}

void CapacityHelperSm::updateCapacityEntry( OroCapacity::TableCapacityKey const& key,
                                            U32 used, U32 free, U32 committed, U32 max ) {
   OroCapacity::TableCapacityEntry entry;
   entry.used = used;
   entry.free = free;
   entry.committed = committed;
   entry.max = max;
   tableCapacity_->entryIs( key, entry );
}

}  // namespace Capacity
}  // namespace Hardware
