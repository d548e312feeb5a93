#pragma once

// Plays a scenario: builds the platform, loads the plug-in, creates its mounter and
// starts it, then plays every step, running the event loop until it is idle after each,
// and collects what happened into the result document.
//
// Every record carries the index of the step that caused it; records made while the
// agent starts, before the first step, carry -1.

#include <nlohmann/json.hpp>

#include <memory>
#include <string>
#include <vector>

#include "platform/agent/AgentCommand.h"
#include "platform/agent/MounterBase.h"
#include "tools/natsim/Scenario.h"
#include "tools/natsim/SimPlatform.h"
#include "tools/natsim/Upstream.h"

namespace natsim {

struct Options {
   // The plug-in library.
   std::string pluginPath;
   // The type names of the plug-in's mounter and command callback.
   std::string mounterType = "Corvane::NatMounter";
   std::string callbackType = "Corvane::NatCliCallback";
};

class Simulation {
public:
   typedef nlohmann::ordered_json Json;

   Simulation( Scenario scenario, Options options );
   ~Simulation();

   // Builds the platform and starts the plug-in. False, with the reason, when the
   // plug-in cannot be loaded or does not register its mounter type.
   bool start( std::string* error );
   // Plays every step, then refreshes capacity once more.
   void play();
   Json result() const;

private:
   struct StepPlayer;
   void playStep( std::size_t index );
   void problem( std::string message );
   void packet( PacketStep const& step );
   void show( ShowStep const& step );
   void verify( VerifyStep const& step );
   Json chipResult() const;
   Json capacityResult() const;
   Json hitCountResult() const;
   Json journalResult() const;

   Scenario scenario_;
   Options options_;
   std::unique_ptr<SimPlatform> platform_;
   std::unique_ptr<Upstream> upstream_;
   CorvaneLib::MounterBase::Ptr mounter_;
   Agent::AgentCommandCallback::Ptr callback_;
   int step_ = -1;
   Json answers_ = Json::array();
   Json events_ = Json::array();
   Json show_ = Json::array();
   Json packets_ = Json::array();
   Json problems_ = Json::array();
   // Journal position where each step's calls begin (index 0 for step 0, ...).
   std::vector<std::size_t> journalStart_;
};

}  // namespace natsim
