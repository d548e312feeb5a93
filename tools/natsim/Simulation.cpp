#include "tools/natsim/Simulation.h"

#include <cstdio>
#include <iostream>

#include "platform/agent/CapacityHelperSm.h"
#include "platform/agent/PluginLoader.h"
#include "platform/chip/Journal.h"
#include "platform/chip/Sdk.h"
#include "platform/fwk/LogEvent.h"
#include "platform/fwk/Operation.h"

namespace natsim {

namespace {

Simulation::Json argJson( Chip::Arg const& arg ) {
   switch ( arg.kind ) {
      case Chip::Arg::Kind::number:
         return arg.number;
      case Chip::Arg::Kind::name:
         return arg.name;
      case Chip::Arg::Kind::fields: {
         Simulation::Json fields = Simulation::Json::object();
         for ( auto const& field : arg.fields ) {
            fields[field.first] = field.second;
         }
         return fields;
      }
   }
   return nullptr;
}

Simulation::Json argsJson( Chip::Args const& args ) {
   Simulation::Json out = Simulation::Json::array();
   for ( auto const& arg : args ) {
      out.push_back( argJson( arg ) );
   }
   return out;
}

Simulation::Json actionsJson( std::vector<Chip::ActionRecord> const& actions ) {
   Simulation::Json out = Simulation::Json::array();
   for ( auto const& action : actions ) {
      out.push_back(
          { Chip::actionName( action.action ), action.param0, action.param1 } );
   }
   return out;
}

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
   // The plug-in's objects go before the platform they run on.
   callback_ = nullptr;
   mounter_ = nullptr;
   upstream_.reset();
   platform_.reset();
}

bool Simulation::start( std::string* error ) {
   platform_ =
       std::make_unique<SimPlatform>( scenario_.agent, scenario_.chip, scenario_.nat );
   Fwk::logSinkIs( [this]( Fwk::LogRecord const& record ) {
      if ( !recording_ ) {
         return;
      }
      events_.push_back(
          { { "step", step_ }, { "name", record.name }, { "message", record.message } } );
   } );
   upstream_ = std::make_unique<Upstream>( *platform_, [this]( Answer const& answer ) {
      if ( !recording_ ) {
         return;
      }
      answers_.push_back( { { "step", step_ },
                            { "module", answer.module },
                            { "uid", answer.uid },
                            { "result", answer.result },
                            { "field", answer.field } } );
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

void Simulation::play() {
   for ( std::size_t i = 0; i < scenario_.steps.size(); ++i ) {
      playStep( i );
   }
   Hardware::Capacity::CapacityHelperSm::refreshAll();
   platform_->loop().runUntilIdle();
}

void Simulation::playStep( std::size_t index ) {
   step_ = static_cast<int>( index );
   journalStart_.push_back( Chip::journal().size() );
   std::visit( StepPlayer{ *this }, scenario_.steps[index] );
   platform_->loop().runUntilIdle();
   restartEndIfDone();
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

void Simulation::followRealTime() {
   platform_->clock().followRealTime();
   recordingIs( false );
}

Simulation::Json Simulation::playOne( Step step ) {
   std::size_t const index = scenario_.steps.size();
   scenario_.steps.push_back( std::move( step ) );
   constexpr std::size_t count = 5;
   Json* const arrays[count] = { &answers_, &events_, &show_, &packets_, &problems_ };
   std::size_t before[count];
   for ( std::size_t i = 0; i < count; ++i ) {
      before[i] = arrays[i]->size();
   }
   bool const recording = recording_;
   recordingIs( true );
   playStep( index );
   recordingIs( recording );

   // The records this step appended, in the order of the result document.
   auto fromStep = [&]( std::size_t i ) {
      Json const& all = *arrays[i];
      return Json( all.begin() + static_cast<std::ptrdiff_t>( before[i] ), all.end() );
   };
   Json out = Json::object();
   out["step"] = index;
   out["kind"] = stepKindName( scenario_.steps[index] );
   out["answers"] = fromStep( 0 );
   out["events"] = fromStep( 1 );
   out["journal"] = journalRecords( journalStart_[index], Chip::journal().size(),
                                    static_cast<int>( index ) );
   out["show"] = fromStep( 2 );
   out["packets"] = fromStep( 3 );
   out["problems"] = fromStep( 4 );
   return out;
}

void Simulation::problem( std::string message ) {
   std::cerr << "natsim: step " << step_ << ": " << message << "\n";
   problems_.push_back( { { "step", step_ }, { "message", std::move( message ) } } );
}

void Simulation::packet( PacketStep const& step ) {
   std::vector<int> units = platform_->chip().units();
   int unit = step.unit ? int( *step.unit ) : ( units.empty() ? 0 : units.front() );
   U32 id = platform_->chip().lookup( unit, natGroup, chipPacket( step ), step.count );
   Json record = { { "step", step_ }, { "unit", unit }, { "entry", id } };
   Chip::ChipUnit const* chipUnit = platform_->chip().unit( unit );
   Chip::FpEntry const* entry =
       id && chipUnit ? chipUnit->fieldProcessor().entry( id ) : nullptr;
   record["description"] = entry ? entry->description() : "";
   record["actions"] = entry ? actionsJson( entry->actions() ) : Json::array();
   packets_.push_back( record );
}

void Simulation::show( ShowStep const& step ) {
   Json record = { { "step", step_ }, { "output", "" }, { "slices", 0 } };
   if ( !callback_ ) {
      problem( "the plug-in offers no command callback \"" + options_.callbackType +
               "\"" );
      show_.push_back( record );
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
      record["output"] = readAll( file );
      record["slices"] = sm->slices();
   }
   std::fclose( file );
   show_.push_back( record );
}

void Simulation::verify( VerifyStep const& step ) {
   std::string error;
   std::string path = "corvanenat/natWorkerSm/" + std::to_string( step.modId );
   if ( !Fwk::operationInvoke( path, "doVerify", &error ) ) {
      problem( "verify: " + error );
   }
}

Simulation::Json Simulation::journalResult() const {
   Json out = Json::array();
   // Step k's records run from journalStart_[k] to the next step's start.
   std::size_t first = 0;
   for ( std::size_t k = 0; k <= journalStart_.size(); ++k ) {
      std::size_t const end =
          k < journalStart_.size() ? journalStart_[k] : Chip::journal().size();
      for ( auto& record : journalRecords( first, end, static_cast<int>( k ) - 1 ) ) {
         out.push_back( std::move( record ) );
      }
      first = end;
   }
   return out;
}

Simulation::Json Simulation::journalRecords( std::size_t first, std::size_t end,
                                             int step ) const {
   Json out = Json::array();
   auto const& records = Chip::journal().records();
   for ( std::size_t i = first; i < end; ++i ) {
      Chip::JournalRecord const& r = records[i];
      Json record = { { "step", step }, { "call", r.call }, { "unit", r.unit } };
      if ( r.hasEntry ) {
         record["entry"] = r.entry;
      }
      record["args"] = argsJson( r.args );
      record["rc"] = r.rc;
      out.push_back( record );
   }
   return out;
}

Simulation::Json Simulation::chipResult() const {
   Json out = Json::array();
   for ( int unitNumber : platform_->chip().units() ) {
      Chip::ChipUnit const& unit = *platform_->chip().unit( unitNumber );
      Json entries = Json::array();
      for ( U32 id : unit.fieldProcessor().entryIds() ) {
         Chip::FpEntry const& entry = *unit.fieldProcessor().entry( id );
         Json qualifiers = Json::object();
         for ( Chip::Qualifier q : entry.qualifiers() ) {
            qualifiers[Chip::qualifierName( q )] = argsJson( entry.qualifierArgs( q ) );
         }
         entries.push_back( { { "id", id },
                              { "group", entry.group() },
                              { "priority", entry.priority() },
                              { "installed", entry.installed() },
                              { "hits", entry.hits() },
                              { "description", entry.description() },
                              { "qualifiers", qualifiers },
                              { "actions", actionsJson( entry.actions() ) } } );
      }
      Json memories = Json::object();
      Json registers = Json::object();
      for ( unsigned t = 0; t < Chip::tableCount; ++t ) {
         Chip::Table const& table = unit.table( static_cast<Chip::TableId>( t ) );
         if ( table.rowsWritten().empty() ) {
            continue;
         }
         Json rows = Json::object();
         for ( unsigned row : table.rowsWritten() ) {
            Json fields = Json::object();
            for ( auto const& field : table.reportedFields( row ) ) {
               fields[field.first] = field.second;
            }
            rows[std::to_string( row )] = fields;
         }
         if ( table.layout().isRegister ) {
            registers[table.name()] = rows.begin().value();
         } else {
            memories[table.name()] = rows;
         }
      }
      Json controls = Json::object();
      for ( auto const& control : unit.switchControls() ) {
         controls[Chip::switchControlName( control.first )] = control.second;
      }
      out.push_back( { { "unit", unitNumber },
                       { "entries", entries },
                       { "memories", memories },
                       { "registers", registers },
                       { "switchControls", controls } } );
   }
   return out;
}

Simulation::Json Simulation::capacityResult() const {
   Json out = Json::array();
   for ( auto const& row : platform_->tableCapacity() ) {
      out.push_back( { { "entry", row.first.entry() },
                       { "feature", row.first.feature() },
                       { "table", row.first.table() },
                       { "chip", row.first.chip() },
                       { "used", row.second.used },
                       { "free", row.second.free },
                       { "max", row.second.max } } );
   }
   return out;
}

Simulation::Json Simulation::hitCountResult() const {
   Json out = Json::array();
   auto status = platform_->tcamHitCountStatus();
   if ( !status ) {
      return out;
   }
   for ( auto const& row : *status ) {
      CorvaneNat::TcamHitCountKey const& key = row.first;
      out.push_back( { { "srcAddr", key.srcAddr().stringValue() },
                       { "srcPort", key.srcPort() },
                       { "dstAddr", key.dstAddr().stringValue() },
                       { "dstPort", key.dstPort() },
                       { "proto", key.protocol() },
                       { "keyType", static_cast<U32>( key.keyType() ) },
                       { "hits", row.second } } );
   }
   return out;
}

Simulation::Json Simulation::result() const {
   Json out = Json::object();
   out["answers"] = answers_;
   out["events"] = events_;
   out["journal"] = journalResult();
   out["chip"] = chipResult();
   out["capacity"] = capacityResult();
   out["hitCounts"] = hitCountResult();
   out["show"] = show_;
   out["packets"] = packets_;
   out["problems"] = problems_;
   Json steps = Json::array();
   for ( std::size_t i = 0; i < scenario_.steps.size(); ++i ) {
      steps.push_back(
          { { "step", i }, { "kind", stepKindName( scenario_.steps[i] ) } } );
   }
   out["steps"] = steps;
   return out;
}

}  // namespace natsim
