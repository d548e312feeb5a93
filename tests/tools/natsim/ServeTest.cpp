// natsim serve and natsim show as a user runs them: the server (the built natsim with the
// test plug-in) runs as a child process on a socket in a temporary directory. Steps and
// commands go through the socket; faulty requests are refused while the server goes on;
// a client that does not read holds nobody up; the socket file is private, replaces a
// stale one and goes when the server stops.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "NatsimProcess.h"

namespace {

using nlohmann::json;

using NatsimProcess::natsimIn;
using NatsimProcess::Outcome;
using NatsimProcess::readFile;
using NatsimProcess::TempDir;

sockaddr_un addressOf( std::string const& path ) {
   sockaddr_un address;
   std::memset( &address, 0, sizeof( address ) );
   address.sun_family = AF_UNIX;
   std::strncpy( address.sun_path, path.c_str(), sizeof( address.sun_path ) - 1 );
   return address;
}

// A connection to the server. Waiting on it is bounded, so that a server that stops
// answering fails the test instead of hanging it.
class Client {
public:
   explicit Client( std::string const& path ) {
      fd_ = ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 );
      sockaddr_un address = addressOf( path );
      connected_ = ::connect( fd_, reinterpret_cast<sockaddr*>( &address ),
                              sizeof( address ) ) == 0;
      timeval bound{ 60, 0 };
      ::setsockopt( fd_, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof( bound ) );
   }
   ~Client() { ::close( fd_ ); }
   Client( Client const& ) = delete;
   Client& operator=( Client const& ) = delete;

   bool connected() const { return connected_; }

   // Sends all of `text`; false when the server stopped taking it.
   bool send( std::string const& text ) {
      for ( std::size_t sent = 0; sent < text.size(); ) {
         ssize_t n = ::send( fd_, text.data() + sent, text.size() - sent, MSG_NOSIGNAL );
         if ( n < 0 && errno == EINTR ) {
            continue;
         }
         if ( n <= 0 ) {
            return false;
         }
         sent += std::size_t( n );
      }
      return true;
   }

   // Everything until the server closes the connection.
   std::string receiveAll() {
      std::string text;
      char chunk[65536];
      for ( ;; ) {
         ssize_t n = ::recv( fd_, chunk, sizeof( chunk ), 0 );
         if ( n < 0 && errno == EINTR ) {
            continue;
         }
         if ( n < 0 ) {
            ADD_FAILURE() << "the server did not finish its answer: "
                          << strerror( errno );
            return text;
         }
         if ( n == 0 ) {
            return text;
         }
         text.append( chunk, std::size_t( n ) );
      }
   }

private:
   int fd_ = -1;
   bool connected_ = false;
};

// One request line and its whole answer.
std::string ask( std::string const& path, std::string const& line ) {
   Client client( path );
   EXPECT_TRUE( client.connected() ) << path;
   EXPECT_TRUE( client.send( line + "\n" ) );
   return client.receiveAll();
}

json askStep( std::string const& path, std::string const& step ) {
   std::string answer = ask( path, step );
   EXPECT_EQ( answer.find( '\n' ), answer.size() - 1 ) << "one line: " << answer;
   return json::parse( answer, nullptr, false );
}

// The message of an error line, or "not an error: <answer>".
std::string errorOf( std::string const& answer ) {
   json value = json::parse( answer, nullptr, false );
   if ( answer.find( '\n' ) != answer.size() - 1 || !value.is_object() ||
        value.size() != 1 || !value.contains( "error" ) ) {
      return "not an error: " + answer;
   }
   return value["error"].get<std::string>();
}

bool exists( std::string const& path ) {
   struct stat st;
   return ::lstat( path.c_str(), &st ) == 0;
}

std::vector<std::string> const testPlugin = { "--plugin",   TEST_PLUGIN_PATH,
                                              "--mounter",  "TestPlugin::Mounter",
                                              "--callback", "TestPlugin::CliCallback" };

// `natsim serve` as a child process, on the socket "<dir>/natsim.sock".
class Server {
public:
   // With `occupied`, a file stands at the socket's temporary name when natsim starts.
   Server( TempDir const& dir, std::string const& scenario,
           std::vector<std::string> const& options = testPlugin,
           std::string const& socket = "", bool occupied = false )
       : dir_( dir.path() ),
         socket_( socket.empty() ? dir_ + "/natsim.sock" : socket ),
         name_( dir_ + "/serve" + std::to_string( ++count_ ) ) {
      std::ofstream( name_ + ".json" ) << scenario;
      std::vector<std::string> args = { NATSIM_PATH, "serve", name_ + ".json", "--socket",
                                        socket_ };
      args.insert( args.end(), options.begin(), options.end() );
      pid_ = ::fork();
      if ( pid_ == 0 ) {
         if ( occupied ) {
            std::ofstream( socket_ + "." + std::to_string( ::getpid() ) ) << "keep";
         }
         std::freopen( ( name_ + ".out" ).c_str(), "w", stdout );
         std::freopen( ( name_ + ".err" ).c_str(), "w", stderr );
         std::vector<char*> argv;
         for ( auto& arg : args ) {
            argv.push_back( const_cast<char*>( arg.c_str() ) );
         }
         argv.push_back( nullptr );
         ::execv( argv[0], argv.data() );
         ::_exit( 127 );
      }
   }
   ~Server() {
      if ( running() ) {
         ::kill( pid_, SIGKILL );
         ::waitpid( pid_, nullptr, 0 );
      }
   }
   Server( Server const& ) = delete;
   Server& operator=( Server const& ) = delete;

   std::string const& socket() const { return socket_; }
   pid_t pid() const { return pid_; }
   std::string output() const { return readFile( name_ + ".out" ); }
   std::string errors() const { return readFile( name_ + ".err" ); }

   // Waits, for a bounded time, until the socket file exists (or, replacing a stale
   // one, until it takes connections); false when the server ended first or never
   // made it.
   bool ready( bool replacing = false ) {
      for ( int i = 0; i < 12000 && running(); ++i ) {
         if ( replacing ? Client( socket_ ).connected() : exists( socket_ ) ) {
            return true;
         }
         std::this_thread::sleep_for( std::chrono::milliseconds( 10 ) );
      }
      return false;
   }

   // Sends the signal and returns the exit status (-1 for another end).
   int stop( int signal = SIGTERM ) {
      ::kill( pid_, signal );
      return waitForExit();
   }

   int waitForExit() {
      int raw = 0;
      ::waitpid( pid_, &raw, 0 );
      exited_ = true;
      return WIFEXITED( raw ) ? WEXITSTATUS( raw ) : -1;
   }

private:
   bool running() {
      if ( exited_ ) {
         return false;
      }
      int raw = 0;
      if ( ::waitpid( pid_, &raw, WNOHANG ) == pid_ ) {
         exited_ = true;
         status_ = raw;
      }
      return !exited_;
   }

   static inline int count_ = 0;
   std::string dir_;
   std::string socket_;
   // Its files: <name>.json (the scenario), <name>.out and <name>.err.
   std::string name_;
   pid_t pid_ = -1;
   bool exited_ = false;
   int status_ = 0;
};

std::string const twoRules = R"({
   "chip": { "modules": { "1": 1 }, "tcamEntries": 2 },
   "steps": [
     { "natRule": { "uid": 4, "key": { "type": 1, "srcOld": "10.0.0.1" } } },
     { "packet": { "src": "10.0.0.1" } }
   ] })";

std::string natRule( int uid, std::string const& srcOld, char const* kind = "natRule" ) {
   return std::string( "{\"" ) + kind + "\": {\"uid\": " + std::to_string( uid ) +
          ", \"key\": {\"type\": 1, \"srcOld\": \"" + srcOld + "\"}}}";
}

TEST( Serve, PlaysStepsAfterTheScenarioAnsweringWithTheirRecords ) {
   TempDir dir;
   Server server( dir, twoRules );
   ASSERT_TRUE( server.ready() ) << server.errors();
   std::string const path = server.socket();
   struct stat st;
   ASSERT_EQ( ::lstat( path.c_str(), &st ), 0 );
   EXPECT_TRUE( S_ISSOCK( st.st_mode ) );
   EXPECT_EQ( st.st_mode & 07777, 0600u ) << "a private socket";

   json rule = askStep( path, natRule( 5, "10.0.0.2" ) );
   EXPECT_EQ( rule["step"], 2 ) << "numbered after the scenario's two steps";
   EXPECT_EQ( rule["kind"], "natRule" );
   EXPECT_EQ( rule["answers"], json::parse( R"([
                 {"step": 2, "module": 1, "uid": 5, "result": 1, "field": 0}])" ) );
   EXPECT_TRUE( rule["events"].empty() );
   ASSERT_EQ( rule["journal"].size(), 5u ) << rule.dump();
   EXPECT_EQ( rule["journal"][0]["call"], "getEntry" );
   EXPECT_EQ( rule["journal"][0]["entry"], 2 );
   EXPECT_EQ( rule["journal"][1], json::parse( R"({"step": 2, "call":
      "bcm_field_qualify_SrcIp", "unit": 1, "entry": 2, "args": [167772162, 4294967295],
      "rc": 0})" ) );
   for ( char const* member : { "show", "packets", "problems" } ) {
      EXPECT_TRUE( rule[member].empty() ) << member;
   }

   json packet = askStep( path, R"({"packet": {"src": "10.0.0.2", "count": 3}})" );
   EXPECT_EQ( packet["step"], 3 );
   ASSERT_EQ( packet["packets"].size(), 1u );
   EXPECT_EQ( packet["packets"][0]["entry"], 2 );
   EXPECT_TRUE( packet["journal"].empty() ) << "a lookup calls nothing";

   json full = askStep( path, natRule( 6, "10.0.0.3" ) );
   EXPECT_EQ( full["answers"][0]["result"], 2 ) << "two entries, both taken";
   ASSERT_EQ( full["events"].size(), 1u );
   EXPECT_EQ( full["events"][0]["name"], "TEST_PLUGIN_FULL" );
   EXPECT_EQ( full["events"][0]["step"], 4 );

   json removal = askStep( path, natRule( 4, "10.0.0.1", "natRuleRemove" ) );
   EXPECT_EQ( removal["answers"][0]["uid"], 4 );
   EXPECT_EQ( removal["journal"].back()["call"], "releaseEntry" );
   EXPECT_EQ( removal["journal"].back()["entry"], 1 );

   json verify = askStep( path, R"({"verify": 1})" );
   ASSERT_EQ( verify["events"].size(), 1u );
   EXPECT_EQ( verify["events"][0]["name"], "TEST_PLUGIN_VERIFIED" );
   EXPECT_EQ( verify["events"][0]["step"], 6 );

   json show = askStep( path, R"({"show": "ShowTest"})" );
   EXPECT_EQ( show["show"][0]["output"], "[{\"uid\": 5, \"entry\": 2},]" );

   json room = askStep( path, natRule( 7, "10.0.0.4" ) );
   EXPECT_EQ( room["answers"][0]["result"], 1 ) << "the removal made room";
   EXPECT_EQ( server.stop( SIGTERM ), 0 ) << server.errors();
   EXPECT_FALSE( exists( path ) ) << "the socket goes with the server";
   EXPECT_EQ( server.output().rfind( "natsim: played ", 0 ), 0u )
       << "the scenario's report comes first, as with run";
}

TEST( Serve, RunsCommandsAndNatsimShowPrintsTheirOutput ) {
   TempDir dir;
   Server server( dir, twoRules );
   ASSERT_TRUE( server.ready() ) << server.errors();
   std::string const path = server.socket();

   EXPECT_EQ( ask( path, "ShowTest" ), "[{\"uid\": 4, \"entry\": 1},]" );
   EXPECT_EQ( ask( path, "  ShowTest \r" ), "[{\"uid\": 4, \"entry\": 1},]" )
       << "blanks around the command and a CRLF ending are not part of it";
   askStep( path, natRule( 5, "10.0.0.2" ) );

   Outcome shown = natsimIn( dir, "show --socket " + path + " --command ShowTest" );
   EXPECT_EQ( shown.status, 0 ) << shown.err;
   EXPECT_EQ( shown.out,
              "[\n{\"uid\": 4, \"entry\": 1},\n{\"uid\": 5, \"entry\": 2},\n]\n" )
       << "one row to a line, and a newline at the end";
   EXPECT_EQ( shown.err, "" );

   Outcome unknown = natsimIn( dir, "show --socket " + path );
   EXPECT_EQ( unknown.status, 1 );
   EXPECT_EQ( unknown.out, "" );
   EXPECT_EQ( unknown.err, "natsim: unknown command \"ShowCorvaneNatSlice\"\n" )
       << "show sends ShowCorvaneNatSlice by default";
   EXPECT_EQ( server.stop( SIGINT ), 0 ) << server.errors();
   for ( auto const& entry : std::filesystem::directory_iterator( dir.path() ) ) {
      EXPECT_EQ( entry.path().filename().string().rfind( "natsim.sock", 0 ),
                 std::string::npos )
          << "left behind: " << entry.path();
   }

   Outcome nobody = natsimIn( dir, "show --socket " + path + " --command ShowTest" );
   EXPECT_EQ( nobody.status, 1 );
   EXPECT_EQ( nobody.out, "" );
   EXPECT_EQ( nobody.err.rfind( "natsim: no natsim server listens on " + path, 0 ), 0u )
       << nobody.err;
}

TEST( Serve, RefusesFaultyRequestsWithAnErrorLineAndGoesOnServing ) {
   TempDir dir;
   Server server( dir, twoRules );
   ASSERT_TRUE( server.ready() ) << server.errors();
   std::string const path = server.socket();
   struct Case {
      std::string request;
      std::string error;  // how the message starts
   };
   Case const cases[] = {
       { R"({"natRule": )", "line 1, column 13: invalid JSON" },
       { R"({"natRules": {}})", "unknown step \"natRules\" (known: natRule," },
       { natRule( 0, "10.0.0.9" ), "natRule.uid: 0 is out of range" },
       { R"({"advance": 1, "verify": 1})", "a step has exactly one member, got 2" },
       { "ShowNothing", "unknown command \"ShowNothing\"" },
       { "", "empty request" },
       { "\xff\xfe", "unknown command \"\xef\xbf\xbd\xef\xbf\xbd\"" },
   };
   for ( Case const& c : cases ) {
      std::string const error = errorOf( ask( path, c.request ) );
      EXPECT_EQ( error.rfind( c.error, 0 ), 0u ) << c.request << " -> " << error;
   }

   // A line of the longest length is taken (and is an unknown command); one byte more
   // without a newline is refused unread.
   std::string const longest( 1024 * 1024, 'x' );
   EXPECT_EQ( errorOf( ask( path, longest ) ).rfind( "unknown command \"xxx", 0 ), 0u );
   {
      Client client( path );
      client.send( longest + "x" );  // the server may stop reading: that is the point
      std::string const error = errorOf( client.receiveAll() );
      EXPECT_EQ( error.rfind( "request too long", 0 ), 0u ) << error;
   }
   // A client that connects and goes away without a word.
   { Client gone( path ); }

   json after = askStep( path, natRule( 5, "10.0.0.2" ) );
   EXPECT_EQ( after["step"], 2 ) << "no faulty request was played";
   EXPECT_EQ( after["answers"][0]["result"], 1 );
   EXPECT_EQ( ask( path, "ShowTest" ),
              "[{\"uid\": 4, \"entry\": 1},{\"uid\": 5, \"entry\": 2},]" );
   EXPECT_EQ( server.stop(), 0 );
}

TEST( Serve, ALongCommandWhoseClientDoesNotReadHoldsNobodyUp ) {
   // ShowTest writes one rule per slice; this many rules make more output than a
   // socket holds, so a server that wrote to a client that does not read would stall.
   int const rules = 10000;
   json scenario = {
       { "chip", { { "modules", { { "1", 1 } } }, { "tcamEntries", rules } } },
       { "steps", json::array() } };
   std::string expected = "[";
   for ( int i = 0; i < rules; ++i ) {
      std::string const src =
          "10.0." + std::to_string( i / 256 ) + "." + std::to_string( i % 256 );
      scenario["steps"].push_back( json::parse( natRule( i + 1, src ) ) );
      expected += "{\"uid\": " + std::to_string( i + 1 ) +
                  ", \"entry\": " + std::to_string( i + 1 ) + "},";
   }
   expected += "]";
   TempDir dir;
   std::vector<std::string> options = testPlugin;
   options.push_back( "--json" );  // quicker than the tables for this many rules
   Server server( dir, scenario.dump(), options );
   ASSERT_TRUE( server.ready() ) << server.errors();
   std::string const path = server.socket();

   Client stalled( path );
   ASSERT_TRUE( stalled.send( "ShowTest\n" ) );
   auto abandoned = std::make_unique<Client>( path );
   ASSERT_TRUE( abandoned->send( "ShowTest\n" ) );
   std::string const whole = ask( path, "ShowTest" );
   EXPECT_EQ( whole.size(), expected.size() );
   EXPECT_TRUE( whole == expected ) << "another client's command ran to its end";
   json step = askStep( path, R"({"verify": 1})" );
   EXPECT_EQ( step["events"].size(), 1u ) << "and steps are played";
   abandoned.reset();  // gone before reading a byte

   std::string const late = stalled.receiveAll();
   EXPECT_TRUE( late == expected )
       << "the stalled output is whole: " << late.size() << " bytes, ends "
       << late.substr( late.size() > 60 ? late.size() - 60 : 0 );
   EXPECT_EQ( askStep( path, R"({"verify": 1})" )["step"], rules + 1 );
   EXPECT_EQ( server.stop(), 0 );
}

TEST( Serve, ReplacesAStaleSocketFileAndKeepsOffOtherFiles ) {
   TempDir dir;
   std::string const path = dir.path() + "/natsim.sock";
   // A socket file whose server is gone.
   int fd = ::socket( AF_UNIX, SOCK_STREAM, 0 );
   sockaddr_un address = addressOf( path );
   ASSERT_EQ( ::bind( fd, reinterpret_cast<sockaddr*>( &address ), sizeof( address ) ),
              0 );
   ::close( fd );
   ASSERT_TRUE( exists( path ) );
   {
      Server server( dir, twoRules );
      ASSERT_TRUE( server.ready( true ) ) << server.errors();
      EXPECT_EQ( ask( path, "ShowTest" ), "[{\"uid\": 4, \"entry\": 1},]" );

      // A second server on the same path: refused, the first goes on.
      Server second( dir, "{}", testPlugin, path );
      EXPECT_EQ( second.waitForExit(), 1 );
      EXPECT_NE( second.errors().find( path + ": another server listens there" ),
                 std::string::npos )
          << second.errors();
      EXPECT_EQ( ask( path, "ShowTest" ), "[{\"uid\": 4, \"entry\": 1},]" );
      EXPECT_EQ( server.stop(), 0 );
   }

   std::string const file = dir.path() + "/plain";
   std::ofstream( file ) << "keep";
   Server onAFile( dir, "{}", testPlugin, file );
   EXPECT_EQ( onAFile.waitForExit(), 1 );
   EXPECT_NE( onAFile.errors().find( file + ": exists and is not a socket" ),
              std::string::npos )
       << onAFile.errors();
   EXPECT_EQ( readFile( file ), "keep" );
}

// Clients that hold connections, never finish their line or ask for hours of work get
// an error line; the server goes on.
TEST( Serve, HoldsAgainstHostileClients ) {
   TempDir dir;
   std::vector<std::string> options = testPlugin;
   options.insert( options.end(), { "--idle-timeout", "1.5" } );
   Server server( dir, twoRules, options );
   ASSERT_TRUE( server.ready() ) << server.errors();
   std::string const path = server.socket();
   {
      std::vector<std::unique_ptr<Client>> held;
      for ( int i = 0; i < 64; ++i ) {
         held.push_back( std::make_unique<Client>( path ) );
         held.back()->send( "Show" );  // no newline: the request goes on
      }
      Client past( path );
      EXPECT_EQ( errorOf( past.receiveAll() ),
                 "too many connections (at most 64 at once); try again later" );
      EXPECT_EQ( errorOf( held[0]->receiveAll() ),
                 "no complete request within 1.5 seconds" );
   }
   struct Case {
      std::string request;
      std::string error;
   };
   Case const cases[] = {
       { R"({"advance": 60.5})",
         "advance: 60.5 is out of range (a served advance is at most 60 seconds; send "
         "several)" },
       { R"({"advance": 1e6})",
         "advance: 1000000 is out of range (a served advance is at most 60 seconds; "
         "send several)" },
   };
   for ( Case const& c : cases ) {
      EXPECT_EQ( errorOf( ask( path, c.request ) ), c.error ) << c.request;
   }
   EXPECT_EQ( askStep( path, R"({"advance": 60})" )["step"], 2 ) << "served after all";
   EXPECT_EQ( server.stop(), 0 ) << server.errors();
}

// An assertion of the plug-in, a signal while the scenario plays, a file in the way or
// a directory others may write: natsim says what happened and leaves no file behind.
TEST( Serve, StopsWithoutLeavingFilesAndSaysWhy ) {
   TempDir dir;
   auto leftBehind = [&dir]( std::string const& name ) {
      std::vector<std::string> files;
      for ( auto const& entry : std::filesystem::directory_iterator( dir.path() ) ) {
         if ( entry.path().filename().string().rfind( name, 0 ) == 0 ) {
            files.push_back( entry.path().string() );
         }
      }
      return files;
   };
   {
      Server agent( dir, "{}", {}, dir.path() + "/agent.sock" );  // the NAT plug-in
      ASSERT_TRUE( agent.ready() ) << agent.errors();
      std::string const error = errorOf( ask(
          agent.socket(),
          R"({"natRule": {"uid": 1, "key": {"type": 2}, "data": {"vlans": [0]}}})" ) );
      EXPECT_EQ( error.rfind( "the agent stopped: ", 0 ), 0u ) << error;
      EXPECT_NE( error.find( "Assertion `vlanId' failed." ), std::string::npos ) << error;
      EXPECT_EQ( agent.waitForExit(), 3 );
      EXPECT_NE( agent.errors().find( "Assertion `vlanId' failed." ), std::string::npos );
      EXPECT_EQ( leftBehind( "agent.sock" ), std::vector<std::string>() );
   }
   {
      // Enough rules that the scenario still plays when the signal comes.
      std::string scenario = R"({"chip": {"tcamEntries": 20000}, "steps": [)";
      for ( int i = 0; i < 20000; ++i ) {
         scenario +=
             ( i ? "," : "" ) + natRule( i + 1, "10." + std::to_string( i / 256 ) +
                                                    ".0." + std::to_string( i % 256 ) );
      }
      scenario += "]}";
      std::vector<std::string> options = testPlugin;
      options.push_back( "--json" );
      Server playing( dir, scenario, options, dir.path() + "/playing.sock" );
      std::string const temporary =
          playing.socket() + "." + std::to_string( playing.pid() );
      for ( int i = 0; i < 10000 && !exists( temporary ); ++i ) {
         std::this_thread::sleep_for( std::chrono::milliseconds( 1 ) );
      }
      ASSERT_TRUE( exists( temporary ) ) << playing.errors();
      EXPECT_EQ( playing.stop( SIGTERM ), 1 ) << "stopped before serving";
      EXPECT_EQ( playing.errors(), "natsim: stopped by a signal before serving\n" );
      EXPECT_EQ( leftBehind( "playing.sock" ), std::vector<std::string>() );
   }
   {
      Server occupied( dir, "{}", testPlugin, dir.path() + "/occupied.sock", true );
      std::string const temporary =
          occupied.socket() + "." + std::to_string( occupied.pid() );
      EXPECT_EQ( occupied.waitForExit(), 1 );
      EXPECT_NE( occupied.errors().find( temporary + ": exists" ), std::string::npos )
          << occupied.errors();
      EXPECT_EQ( readFile( temporary ), "keep" ) << "not deleted without a word";
   }
   {
      std::string const open = dir.path() + "/open";
      ASSERT_EQ( ::mkdir( open.c_str(), 0777 ), 0 );
      ::chmod( open.c_str(), 0777 );
      Server exposed( dir, "{}", testPlugin, open + "/natsim.sock" );
      ASSERT_TRUE( exposed.ready() ) << exposed.errors();
      EXPECT_NE( exposed.errors().find( "natsim: warning: " + open +
                                        " may be written by others" ),
                 std::string::npos )
          << exposed.errors();
      EXPECT_EQ( exposed.stop(), 0 );
   }
}

TEST( Serve, ExplainsAPlugInWithoutACommandCallback ) {
   TempDir dir;
   Server server( dir, twoRules,
                  { "--plugin", TEST_PLUGIN_PATH, "--mounter", "TestPlugin::Mounter",
                    "--callback", "TestPlugin::None" } );
   ASSERT_TRUE( server.ready() ) << server.errors();
   EXPECT_EQ( errorOf( ask( server.socket(), "ShowTest" ) ),
              "the plug-in offers no command callback \"TestPlugin::None\"" );
   EXPECT_EQ( askStep( server.socket(), R"({"verify": 1})" )["step"], 2 )
       << "steps are played all the same";
   EXPECT_EQ( server.stop(), 0 );
}

}  // namespace
