#pragma once

// The platform natsim builds for a scenario: the chip, the SDK shim, the TCAM managers,
// the chip-common data, the state database and the shared-memory tables of one agent,
// made current for the process (event loop on natsim's clock, SDK shim, agent context).
//
// One SimPlatform exists at a time; it installs itself on construction and uninstalls
// on destruction. Everything the plug-in reaches goes through these objects, so the
// simulator reads the outcome (chip, journal, status entities) from them too.
//
// Agent restart. The chip, the state database and the shared-memory tables are not part
// of the agent's process and survive it; the TCAM managers and the chip-common data are
// the agent's own. agentRestart() makes them anew, as a restarted agent does: the
// common data takes over the module map, chips and flash-download state and has its
// hitless-restart flag set; the new TCAM group manager finds the chip's entries still
// installed (traffic keeps flowing) and holds them as leftover entries, which take room
// but belong to nobody. hitlessRestartEnd() ends the restart: the flag goes off and every
// leftover entry that nobody claimed is released, so the chip ends with exactly the
// entries of the restarted agent. Their hit counters go with them.

#include <string>

#include "platform/agent/AgentContext.h"
#include "platform/agent/TableCapacity.h"
#include "platform/chip/ChipModel.h"
#include "platform/chip/Sdk.h"
#include "platform/fwk/ActivityManager.h"
#include "platform/nat/CorvaneCommonSmData.h"
#include "platform/nat/McastTranslationMode.h"
#include "platform/nat/NatCapability.h"
#include "platform/nat/NatTrapConfig.h"
#include "platform/nat/TcamHitCountStatus.h"
#include "platform/tcam/CorvaneTcamGroupManager.h"
#include "tools/natsim/Scenario.h"
#include "tools/natsim/SimClock.h"

namespace natsim {

// The NAT group of the field processor.
constexpr Corvane::TcamGroupAssignment natGroup = 160;

class SimPlatform {
public:
   SimPlatform( std::string const& agentName, ChipConfig const& chip,
                NatConfig const& nat );
   ~SimPlatform();
   SimPlatform( SimPlatform const& ) = delete;
   SimPlatform& operator=( SimPlatform const& ) = delete;

   Fwk::ActivityManager& loop() { return scope_.manager(); }
   // The loop's clock: virtual until it is handed over to real time.
   SimClock& clock() { return *clock_; }
   Agent::AgentContext& agent() { return agent_; }
   Chip::ChipModel& chip() { return *chip_; }
   Chip::ChipModel const& chip() const { return *chip_; }
   Corvane::CorvaneTcamGroupManager& tcamManager() { return *tcamManager_; }
   Corvane::CorvaneCommonSmData& commonData() { return *commonData_; }
   CorvaneNat::CapabilityConfig& capabilityConfig() { return *capabilityConfig_; }
   Ip::Nat::McastTranslationMode& mcastTranslationMode() { return *mcastMode_; }
   Oro::NatTrapConfig& trapConfig() { return *trapConfig_; }
   OroCapacity::TableCapacity const& tableCapacity() const { return *tableCapacity_; }
   // Created by the plug-in's mount; null until then.
   CorvaneNat::TcamHitCountStatus::PtrConst tcamHitCountStatus() const;

   // Adds a module on a unit (the chip gains the unit if it is new).
   void moduleIs( U16 modId, U16 unit );
   void moduleDel( U16 modId );

   // The agent's own platform objects are made anew over the same chip (see above).
   // Call it after the plug-in's objects of the old agent are gone, before the new
   // agent's mounter is built.
   void agentRestart();
   // Whether the agent's workers can come up: the mount group is connected and the
   // L3-status flash download is done.
   bool agentReady() const;
   // Ends a hitless restart: hitless-restart flag off, leftover entries released.
   void hitlessRestartEnd();

private:
   void unitIs( U16 unit );
   // Sizes the unit's NAT group and pipes in the TCAM managers.
   void tcamUnitIs( U16 unit );

   ChipConfig config_;
   SimClock::Ptr clock_;
   Fwk::ScopedActivityManager scope_;
   Chip::ChipModel::Ptr chip_;
   Shim::Sdk sdk_;
   Corvane::CorvaneTcamGroupManager::Ptr tcamManager_;
   Corvane::CorvaneCommonSmData::Ptr commonData_;
   CorvaneNat::CapabilityConfig::Ptr capabilityConfig_;
   Ip::Nat::McastTranslationMode::Ptr mcastMode_;
   Oro::NatTrapConfig::Ptr trapConfig_;
   OroCapacity::TableCapacity::Ptr tableCapacity_;
   Agent::AgentContext agent_;
};

}  // namespace natsim
