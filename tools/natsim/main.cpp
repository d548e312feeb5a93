// natsim: plays upstream software and the agent's platform from a scenario, so that a
// user sees exactly what the NAT plug-in does to the chip.

#include <unistd.h>
#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>

#include "platform/fwk/Trace.h"
#include "tools/natsim/Client.h"
#include "tools/natsim/Progress.h"
#include "tools/natsim/Report.h"
#include "tools/natsim/ResultText.h"
#include "tools/natsim/Scenario.h"
#include "tools/natsim/Server.h"
#include "tools/natsim/Simulation.h"

namespace natsim {
extern char const demoScenario[];
}  // namespace natsim

namespace {

// The plug-in next to the tool: <build>/bin/natsim and <build>/lib/<library>.
std::string defaultPluginPath() {
   char path[4096];
   ssize_t n = ::readlink( "/proc/self/exe", path, sizeof( path ) - 1 );
   std::string exe = n > 0 ? std::string( path, std::size_t( n ) ) : std::string( "." );
   std::string dir = exe.substr( 0, exe.rfind( '/' ) );
   return dir + "/../lib/libCorvaneNatSliceWorker.so";
}

}  // namespace

int main( int argc, char** argv ) {
   CLI::App app{
       "natsim: plays a NAT scenario against the plug-in and shows what it did to "
       "the chip.\nWithout a command it plays the built-in demo scenario.\n"
       "The scenario and result formats are described in docs/scenario.md." };
   bool json = false;
   std::string trace;
   natsim::Options options;
   options.pluginPath = defaultPluginPath();
   app.add_flag( "--json", json, "print the result as a JSON document" );
   std::string journal = "all";
   app.add_option( "--journal", journal,
                   "the SDK and entry-manager calls the result's journal keeps: all, "
                   "none, or call names separated by commas (a name ending in * keeps "
                   "every call it starts); the step table counts every call" )
       ->capture_default_str();
   std::string journalFile;
   app.add_option( "--journal-file", journalFile,
                   "write the journal to this file (a JSON array) instead of into the "
                   "result; without --json the journal is written only with this "
                   "option" );
   app.add_option( "--trace", trace, "trace setting, e.g. ApiCorvane/0,4,8 (to stderr)" );
   app.add_option( "--plugin", options.pluginPath, "the plug-in library to load" )
       ->capture_default_str();
   app.add_option( "--mounter", options.mounterType, "the plug-in's mounter type" )
       ->capture_default_str();
   app.add_option( "--callback", options.callbackType,
                   "the plug-in's command callback type" )
       ->capture_default_str();
   std::string file;
   std::string socket;
   CLI::App* run = app.add_subcommand( "run", "play the scenario in FILE" );
   run->add_option( "FILE", file, "the scenario (JSON)" )->required();
   run->fallthrough();  // the options above may follow the command
   CLI::App* serve = app.add_subcommand(
       "serve",
       "play the scenario in FILE as run does (natsim's --plugin, --mounter, "
       "--callback, --trace and --json apply), then keep the agent running, its clock "
       "now following real time, and answer requests on a Unix socket until SIGINT or "
       "SIGTERM. A request is one line: a step as JSON (played at once, answered with "
       "one line, the JSON of the records it made) or a command for the plug-in "
       "(answered with its output). A faulty request gets {\"error\":\"...\"}. See "
       "docs/scenario.md, \"Serving\"." );
   serve->add_option( "FILE", file, "the scenario (JSON)" )->required();
   serve->add_option( "--socket", socket, "the socket file to create (mode 0600)" )
       ->required();
   double idleSeconds = natsim::Server::idleSecondsDefault;
   serve
       ->add_option(
           "--idle-timeout", idleSeconds,
           "seconds a client may keep the server waiting without moving a byte" )
       ->capture_default_str()
       ->check( CLI::Range( 0.001, 86400.0 ) );
   serve->fallthrough();
   std::string command = "ShowCorvaneNatSlice";
   CLI::App* show = app.add_subcommand(
       "show",
       "run a command on a natsim server (natsim serve) and print its output as it "
       "comes; exits 1, with the reason on stderr, when nothing listens on the socket "
       "or the server refuses the command" );
   show->add_option( "--socket", socket, "the server's socket file" )->required();
   show->add_option( "--command", command, "the command to run" )->capture_default_str();
   try {
      app.parse( argc, argv );
   } catch ( CLI::ParseError const& e ) {
      // --help is not an error; a usage error is a refused input, as a bad scenario.
      return app.exit( e ) == 0 ? 0 : 2;
   }

   if ( show->parsed() ) {
      return natsim::showCommand( socket, command );
   }
   std::string text;
   std::string name = "demo";
   if ( run->parsed() || serve->parsed() ) {
      name = file;
      natsim::ScenarioError error;
      if ( !natsim::readScenarioFile( file, &text, &error ) ) {
         std::cerr << "natsim: " << file << ": " << error.what() << "\n";
         return 2;
      }
   } else {
      text = natsim::demoScenario;
   }
   natsim::Scenario scenario;
   natsim::ScenarioError error;
   if ( !natsim::parseScenario( text, &scenario, &error ) ) {
      std::cerr << "natsim: " << name << ": " << error.what() << "\n";
      return 2;
   }
   if ( !trace.empty() ) {
      Fwk::traceSettingIs( trace );
   }
   std::string problem;
   if ( !natsim::JournalFilter::parse( journal, &options.journal, &problem ) ) {
      std::cerr << "natsim: --journal: " << problem << "\n";
      return 2;
   }
   // The tables show no journal: keep it only for a file (a server's answers get it
   // after the scenario).
   natsim::JournalFilter const answersJournal = options.journal;
   if ( !json && journalFile.empty() ) {
      options.journal = natsim::JournalFilter::none();
   }
   std::ofstream journalOut;
   if ( !journalFile.empty() ) {
      journalOut.open( journalFile );
      if ( !journalOut ) {
         std::cerr << "natsim: --journal-file: cannot write " << journalFile << " ("
                   << std::strerror( errno ) << ")\n";
         return 1;
      }
   }
   std::size_t const stepCount = scenario.steps.size();

   natsim::endOnAgentStop();
   natsim::Simulation simulation( std::move( scenario ), options );
   if ( !simulation.start( &problem ) ) {
      std::cerr << "natsim: " << problem << "\n";
      return 1;
   }
   // The plug-in's trace handles exist once it is loaded.
   if ( std::string const fault = Fwk::traceSettingFault( trace );
        !trace.empty() && !fault.empty() ) {
      std::cerr << "natsim: --trace: " << fault << "\n";
      return 2;
   }
   // The socket is made before the scenario plays, so that a path that cannot serve
   // is reported at once; it takes its path when serving starts.
   std::unique_ptr<natsim::Server> server;
   if ( serve->parsed() ) {
      server = std::make_unique<natsim::Server>( simulation, socket, idleSeconds );
      if ( !server->listen( &problem ) ) {
         std::cerr << "natsim: " << problem << "\n";
         return 1;
      }
   }
   {
      natsim::Progress progress( stepCount );
      simulation.play( [&progress]( std::size_t played ) { progress.played( played ); } );
   }
   if ( simulation.journal() && !simulation.journal()->ok() ) {
      std::cerr << "natsim: the journal could not be written to a temporary file in "
                   "/tmp (is the disk full?); --journal none or a shorter list of "
                   "calls needs less\n";
      return 1;
   }
   if ( journalOut.is_open() ) {
      natsim::writeJournal( journalOut, simulation );
      journalOut.close();
      if ( !journalOut ) {
         std::cerr << "natsim: --journal-file: cannot write " << journalFile << "\n";
         return 1;
      }
   }
   if ( json ) {
      natsim::writeResult( std::cout, simulation, journalFile.empty() );
   } else {
      std::cout << "natsim: played " << name << "\n";
      natsim::writeReport( std::cout, simulation );
   }
   if ( !( std::cout << std::flush ) ) {
      std::cerr << "natsim: the result could not be written to standard output\n";
      return 1;
   }
   if ( !server ) {
      return 0;
   }
   simulation.journalIs( answersJournal );
   simulation.followRealTime();
   if ( !server->publish( &problem ) ) {
      std::cerr << "natsim: " << problem << "\n";
      return 1;
   }
   std::cerr << "natsim: serving on " << socket << " (SIGINT or SIGTERM stops)\n";
   if ( !server->serve( &problem ) ) {
      std::cerr << "natsim: " << problem << "\n";
      return 1;
   }
   return 0;
}
