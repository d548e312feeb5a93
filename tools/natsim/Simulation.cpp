#include "tools/natsim/Simulation.h"

#include <cstdio>
#include <iostream>

#include "platform/agent/CapacityHelperSm.h"
#include "platform/agent/PluginLoader.h"
#include "platform/chip/Journal.h"
#include "platform/chip/Sdk.h"
#include "platform/fwk/LogEvent.h"
#include "platform/fwk/Operation.h"
#include "tools/natsim/ResultText.h"

namespace natsim {

namespace {

Chip::Packet chipPacket( PacketStep const& step ) {
   Chip::Packet packet;
   packet.src = step.src;
   packet.dst = step.dst;
   packet.protocol = step.proto;
   packet.srcPort = step.sport;
   packet.dstPort = step.dport;
   packet.vlan = step.vlan;
   packet.frag = step.frag == Frag::first      ? Chip::Frag::first
                 : step.frag == Frag::notFirst ? Chip::Frag::notFirst
                                               : Chip::Frag::none;
   packet.tcpFlags = step.tcpFlags;
   packet.exactMatchHit = step.emHit;
   packet.myStationHit = step.myStation;
   packet.srcClass = step.srcClass;
   return packet;
}

std::string readAll( std::FILE* file ) {
   std::string text;
   std::rewind( file );
   char chunk[4096];
   std::size_t n;
   while ( ( n = std::fread( chunk, 1, sizeof( chunk ), file ) ) > 0 ) {
      text.append( chunk, n );
   }
   return text;
}

}  // namespace

// Plays one step of each kind on the simulation.
struct Simulation::StepPlayer {
   Simulation& sim;

   void operator()( NatRuleStep const& s ) { sim.upstream_->natRule( s ); }
   void operator()( NatRuleRemoveStep const& s ) {
      std::string problem;
      if ( !sim.upstream_->natRuleRemove( s, &problem ) ) {
         sim.problem( "natRuleRemove not published: " + problem );
      }
   }
   void operator()( TrapAclStep const& s ) { sim.upstream_->trapAcl( s ); }
   void operator()( TrapAclRemoveStep const& s ) {
      std::string problem;
      if ( !sim.upstream_->trapAclRemove( s, &problem ) ) {
         sim.problem( "trapAclRemove: " + problem );
      }
   }
   void operator()( McastModeStep const& s ) { sim.upstream_->mcastMode( s ); }
   void operator()( ModuleStep const& s ) {
      sim.platform_->moduleIs( s.modId, s.unit );
      sim.upstream_->moduleIs( s.modId );
   }
   void operator()( ModuleRemoveStep const& s ) { sim.platform_->moduleDel( s.modId ); }
   void operator()( MountGroupReadyStep const& s ) {
      sim.platform_->agent().sharedMem->connectedIs( s.ready );
   }
   void operator()( FlashDownloadStep const& s ) {
      sim.platform_->commonData().flashDownloadWaitIs(
          static_cast<Corvane::TcamFlashDownloadReq>( s.req ), s.done );
   }
   void operator()( FragmentEnabledStep const& s ) {
      sim.platform_->capabilityConfig().fragmentEnabledIs( s.enabled );
   }
   void operator()( PacketStep const& s ) { sim.packet( s ); }
   void operator()( AdvanceStep const& s ) { sim.platform_->loop().advance( s.seconds ); }
   void operator()( ShowStep const& s ) { sim.show( s ); }
   void operator()( VerifyStep const& s ) { sim.verify( s ); }
   void operator()( SdkFailureStep const& s ) {
      Shim::sdk_->failureIs( s.call, s.rc, s.nth );
   }

   void operator()( RestartStep const& ) { sim.restart(); }
};

Simulation::Simulation( Scenario scenario, Options options )
    : scenario_( std::move( scenario ) ), options_( std::move( options ) ) {}

Simulation::~Simulation() {
   Fwk::logSinkIs( nullptr );
   Chip::journal().sinkIs( nullptr );
   // The plug-in's objects go before the platform they run on.
   callback_ = nullptr;
   mounter_ = nullptr;
   upstream_.reset();
   platform_.reset();
}

bool Simulation::start( std::string* error ) {
   platform_ =
       std::make_unique<SimPlatform>( scenario_.agent, scenario_.chip, scenario_.nat );
   Chip::journal().sinkIs(
       [this]( Chip::JournalRecord const& record ) { journalCall( record ); } );
   Fwk::logSinkIs( [this]( Fwk::LogRecord const& record ) {
      if ( recording_ ) {
         records_.events.push_back( { step_, record.name, record.message } );
      }
   } );
   upstream_ = std::make_unique<Upstream>( *platform_, [this]( Answer const& answer ) {
      if ( recording_ ) {
         records_.answers.push_back(
             { step_, answer.module, answer.uid, U32( answer.result ), answer.field } );
      }
   } );

   Agent::Plugin plugin;
   if ( !Agent::pluginLoad( options_.pluginPath, &plugin, error ) ) {
      return false;
   }
   return agentStart( error );
}

bool Simulation::agentStart( std::string* error ) {
   mounter_ = Fwk::ptr_cast<CorvaneLib::MounterBase>(
       Agent::entityFromType( options_.mounterType, "natMounter" ) );
   if ( !mounter_ ) {
      *error = options_.pluginPath + " registers no mounter type \"" +
               options_.mounterType + "\"";
      return false;
   }
   callback_ = Fwk::ptr_cast<Agent::AgentCommandCallback>(
       Agent::entityFromType( options_.callbackType, "natCli" ) );
   mounter_->doInit();
   platform_->loop().runUntilIdle();
   return true;
}

void Simulation::play( std::function<void( std::size_t )> const& progress ) {
   records_.steps.reserve( scenario_.steps.size() );
   // A step played goes: what the report needs of it is in its record.
   for ( ; !scenario_.steps.empty(); scenario_.steps.pop_front() ) {
      playStep( scenario_.steps.front(), static_cast<int>( nextIndex_++ ) );
      if ( progress ) {
         progress( nextIndex_ );
      }
   }
   Hardware::Capacity::CapacityHelperSm::refreshAll();
   platform_->loop().runUntilIdle();
}

void Simulation::playStep( Step const& step, int index ) {
   step_ = index;
   records_.steps.emplace_back( stepKindName( step ) );
   std::visit( StepPlayer{ *this }, step );
   platform_->loop().runUntilIdle();
   restartEndIfDone();
}

void Simulation::journalCall( Chip::JournalRecord const& record ) {
   StepRecord* const step = step_ < 0 ? nullptr : &records_.steps.back();
   ++records_.calls;
   if ( step ) {
      ++step->calls;
      if ( record.call == "getEntry" ) {
         step->taken.push_back( record.entry );
      } else if ( record.call == "releaseEntry" ) {
         step->released.push_back( record.entry );
      }
   }
   if ( !options_.journal.keeps( record.call ) ) {
      return;
   }
   if ( servedJournal_ ) {
      if ( !servedJournal_->empty() ) {
         servedJournal_->push_back( ',' );
      }
      appendJournalRecord( *servedJournal_, step_, record );
      return;
   }
   if ( !journal_ ) {
      journal_ = std::make_unique<JournalSpool>();
   }
   journalText_.clear();
   appendJournalRecord( journalText_, step_, record );
   journal_->append( journalText_ );
}

void Simulation::restart() {
   // The old agent goes at once, as in a crash: the plug-in's objects, then the
   // platform's own. Nothing is queued on the loop, which ran until idle.
   callback_ = nullptr;
   mounter_ = nullptr;
   platform_->agentRestart();
   upstream_->replay();
   std::string error;
   // The plug-in is loaded and registered its types already, so this cannot fail.
   agentStart( &error );
   restarting_ = true;
}

void Simulation::restartEndIfDone() {
   if ( !restarting_ || !platform_->agentReady() || !upstream_->replayAnswered() ) {
      return;
   }
   restarting_ = false;
   for ( auto const& module : platform_->commonData().modIdToUnit() ) {
      std::string error;
      // A plug-in without the operation keeps its phase; nothing else to do then.
      Fwk::operationInvoke( "corvanenat/natWorkerSm/" + std::to_string( module.first ),
                            "hitlessInitPhaseEnd", &error );
   }
   platform_->hitlessRestartEnd();
   platform_->loop().runUntilIdle();
}

void Simulation::recordingIs( bool recording ) {
   recording_ = recording;
   Chip::journal().enabledIs( recording );
}

void Simulation::journalIs( JournalFilter const& filter ) {
   options_.journal = filter;
}

void Simulation::followRealTime() {
   platform_->clock().followRealTime();
   recordingIs( false );
}

std::string Simulation::playOne( Step const& step ) {
   int const index = static_cast<int>( nextIndex_++ );
   Records::Marks const marks = records_.marks();
   bool const recording = recording_;
   recordingIs( true );
   std::string journal;
   servedJournal_ = &journal;
   playStep( step, index );
   servedJournal_ = nullptr;
   recordingIs( recording );

   std::string line = stepAnswer( index, records_, marks, journal );
   records_.truncate( marks );
   records_.steps.pop_back();
   return line;
}

void Simulation::problem( std::string message ) {
   std::cerr << "natsim: step " << step_ << ": " << message << "\n";
   records_.problems.push_back( { step_, std::move( message ) } );
}

void Simulation::packet( PacketStep const& step ) {
   std::vector<int> units = platform_->chip().units();
   int unit = step.unit ? int( *step.unit ) : ( units.empty() ? 0 : units.front() );
   U32 id = platform_->chip().lookup( unit, natGroup, chipPacket( step ), step.count );
   Chip::ChipUnit const* chipUnit = platform_->chip().unit( unit );
   Chip::FpEntry const* entry =
       id && chipUnit ? chipUnit->fieldProcessor().entry( id ) : nullptr;
   PacketRecord record{ step_, unit, id, std::string(), {} };
   if ( entry ) {
      record.description = entry->description();
      record.actions = entry->actions();
   }
   records_.packets.push_back( std::move( record ) );
}

void Simulation::show( ShowStep const& step ) {
   ShowRecord record{ step_, std::string(), 0 };
   if ( !callback_ ) {
      problem( "the plug-in offers no command callback \"" + options_.callbackType +
               "\"" );
      records_.shows.push_back( std::move( record ) );
      return;
   }
   std::FILE* file = std::tmpfile();
   Agent::AgentCommandRequest request;
   request.command = step.command;
   request.socket = fileno( file );
   auto sm = Agent::runAgentCommand( *callback_, request );
   platform_->loop().runUntilIdle();
   if ( sm ) {
      if ( !sm->executionCompleted() ) {
         problem( "the command \"" + step.command + "\" did not complete" );
      }
      sm->hasNotificationActiveIs( false );
      record.output = readAll( file );
      record.slices = sm->slices();
   }
   std::fclose( file );
   records_.shows.push_back( std::move( record ) );
}

void Simulation::verify( VerifyStep const& step ) {
   std::string error;
   std::string path = "corvanenat/natWorkerSm/" + std::to_string( step.modId );
   if ( !Fwk::operationInvoke( path, "doVerify", &error ) ) {
      problem( "verify: " + error );
   }
}

}  // namespace natsim
