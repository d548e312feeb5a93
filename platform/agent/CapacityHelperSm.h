#pragma once

// The capacity helper: publishes how much of a hardware table a feature uses and may
// still use, in a table-capacity status, refreshed on a clock.
//
// A subclass registers its features in initCapacityTableFeatureMaps() (with
// initCapacityTableFeature) and writes its rows in updateCapacityTable() (with
// updateCapacityEntry). handleInitialized() sets the features up, refreshes at once and
// then every refreshInterval seconds of the clock, for as long as the helper's
// notifications are on. refresh() refreshes at any other time (a tool, the end of a run).

#include <memory>
#include <string>
#include <vector>

#include "platform/agent/TableCapacity.h"
#include "platform/fwk/ActivityManager.h"
#include "platform/fwk/Quay.h"

namespace Hardware {
namespace Capacity {

class CapacityHelperSm : public Fwk::Entity {
public:
   typedef Fwk::Ptr<CapacityHelperSm> Ptr;
   static constexpr Fwk::Seconds refreshInterval = 5.0;

   struct Feature {
      std::string prefix;
      std::string feature;
      std::string table;
   };

   OroCapacity::TableCapacity* tableCapacity() const { return tableCapacity_.ptr(); }
   Fwk::Clock* clock() const { return clock_.ptr(); }
   std::vector<Feature> const& features() const { return features_; }

   // Sets the features up, refreshes now and starts the periodic refresh.
   virtual void handleInitialized();
   void refresh();
   // Refreshes every helper of the process now (a tool's final reading).
   static void refreshAll();

   // Off: the periodic refresh stops (a helper being removed); on: it goes on.
   virtual void hasNotificationActiveIs( bool active );

protected:
   CapacityHelperSm( OroCapacity::TableCapacity::Ptr tableCapacity,
                     Fwk::Clock::Ptr clock );
   ~CapacityHelperSm() override;

   virtual void initCapacityTableFeatureMaps() = 0;
   virtual void updateCapacityTable() = 0;

   void initCapacityTableFeature( std::string const& prefix, std::string const& feature,
                                  std::string const& table );
   void updateCapacityEntry( OroCapacity::TableCapacityKey const& key, U32 used, U32 free,
                             U32 committed, U32 max );

private:
   class RefreshReactor;

   OroCapacity::TableCapacity::Ptr tableCapacity_;
   Fwk::Clock::Ptr clock_;
   std::vector<Feature> features_;
   Quay::TimerTask::Ptr refreshTask_;
   std::unique_ptr<RefreshReactor> refreshReactor_;
};

}  // namespace Capacity
}  // namespace Hardware
