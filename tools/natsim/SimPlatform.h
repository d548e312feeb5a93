#pragma once

// The platform natsim builds for a scenario: the chip, the SDK shim, the TCAM managers,
// the chip-common data, the state database and the shared-memory tables of one agent,
// made current for the process (event loop on natsim's clock, SDK shim, agent context).
//
// One SimPlatform exists at a time; it installs itself on construction and uninstalls
// on destruction. Everything the plug-in reaches goes through these objects, so the
// simulator reads the outcome (chip, journal, status entities) from them too.

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

private:
   void unitIs( U16 unit );

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
