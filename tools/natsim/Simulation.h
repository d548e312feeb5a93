#pragma once

// Plays a scenario: builds the platform, loads the plug-in, creates its mounter and
// starts it, then plays every step, running the event loop until it is idle after each,
// and records what happened (Records.h) for the result document and the readable report.
//
// Every record carries the index of the step that caused it; records made while the
// agent starts, before the first step, carry -1. The SDK journal's records are taken
// from the platform as the calls are made: counted into the step's record, and the ones
// the options keep written to a spool as JSON text, so that memory does not grow with
// the journal.
//
// A restart step destroys the agent as a crash does (every plug-in object, the TCAM
// managers and the chip-common data) and starts it again by a hitless restart on the
// same chip, state database and shared-memory tables: upstream replays the shadow, the
// workers rebuild in their hitless-init phase, and once the agent is ready and the replay
// is answered (at the end of the step, or of a later step when the agent is not ready
// yet) the simulation ends the phase: it invokes the operation "hitlessInitPhaseEnd" of
// each module's worker where the plug-in offers it and has the platform release the old
// entries nobody claimed (SimPlatform::hitlessRestartEnd()).
//
// A server goes on after the scenario: followRealTime() hands the clock over to real
// time, and playOne() plays one step more at a time. From then on records are kept only
// while a step plays, and only until its answer is made; what timers do between steps
// is not recorded.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/agent/AgentCommand.h"
#include "platform/agent/MounterBase.h"
#include "platform/chip/Journal.h"
#include "tools/natsim/JournalSpool.h"
#include "tools/natsim/Records.h"
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
   // The journal calls the result keeps (all of them by default).
   JournalFilter journal;
};

class Simulation {
public:
   Simulation( Scenario scenario, Options options );
   ~Simulation();

   // Builds the platform and starts the plug-in. False, with the reason, when the
   // plug-in cannot be loaded or does not register its mounter type.
   bool start( std::string* error );
   // Plays every step, dropping each once played, then refreshes capacity once more.
   // `progress`, when given, is
   // called after each step with the number of steps played.
   void play( std::function<void( std::size_t )> const& progress = nullptr );

   // What the run recorded, and the journal records it kept (null when it keeps none).
   Records const& records() const { return records_; }
   JournalSpool const* journal() const { return journal_.get(); }

   // The journal calls kept from now on (a server keeps none for the scenario's tables,
   // then what --journal asks for its answers).
   void journalIs( JournalFilter const& filter );
   // After play(): the clock follows real time from where the scenario left it.
   void followRealTime();
   // Plays `step` after the steps played so far, with the next index. Returns what it
   // recorded as one line of JSON (without the newline): {"step": index, "kind": name,
   // "answers": [...], "events": [...], "journal": [...], "show": [...], "packets":
   // [...], "problems": [...]}, each array the result document's array restricted to
   // this step's records (the journal as the options keep it). The records are not
   // kept after that, so that a server's memory stays flat.
   std::string playOne( Step const& step );

   // The scenario's chip (a step read alone takes its defaults from it).
   ChipConfig const& chip() const { return scenario_.chip; }
   Fwk::ActivityManager& loop() { return platform_->loop(); }
   // After start(): the platform and the plug-in's mounter, for tests that check what
   // the plug-in holds.
   SimPlatform& platform() { return *platform_; }
   SimPlatform const& platform() const { return *platform_; }
   CorvaneLib::MounterBase* mounter() const { return mounter_.ptr(); }
   // The plug-in's command callback; null when the plug-in offers none.
   Agent::AgentCommandCallback* commandCallback() const { return callback_.ptr(); }
   std::string const& callbackType() const { return options_.callbackType; }

private:
   struct StepPlayer;
   // Creates the plug-in's mounter and command callback and starts the mounter.
   bool agentStart( std::string* error );
   void restart();
   // Ends the hitless-init phase once the agent is ready and the replay answered.
   void restartEndIfDone();
   void playStep( Step const& step, int index );
   // The journal's sink: counts a call into the current step's record and appends it,
   // when kept, as JSON text to the spool, or to the served step's journal while a
   // served step plays.
   void journalCall( Chip::JournalRecord const& record );
   void problem( std::string message );
   void packet( PacketStep const& step );
   void show( ShowStep const& step );
   void verify( VerifyStep const& step );
   void recordingIs( bool recording );

   Scenario scenario_;
   Options options_;
   std::unique_ptr<SimPlatform> platform_;
   std::unique_ptr<Upstream> upstream_;
   CorvaneLib::MounterBase::Ptr mounter_;
   Agent::AgentCommandCallback::Ptr callback_;
   int step_ = -1;
   // The index the next served step gets.
   std::size_t nextIndex_ = 0;
   // True from a restart step until its hitless-init phase has ended.
   bool restarting_ = false;
   // False: log events, answers and SDK calls are not recorded.
   bool recording_ = true;
   Records records_;
   std::unique_ptr<JournalSpool> journal_;
   // While a served step plays: its kept journal records, separated by commas.
   std::string* servedJournal_ = nullptr;
   // A record's text on its way to the spool (kept to reuse its buffer).
   std::string journalText_;
};

}  // namespace natsim
