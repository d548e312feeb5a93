// natsim serve as a user runs it: the server is a child process on a socket in a
// temporary folder; steps and commands go through the socket, natsim show is a client.
// Faulty requests and hostile clients get an error line while the server goes on, and
// the socket goes when the server stops. Waits are bounded so that a server that stops
// answering fails the test instead of hanging it; nothing depends on how fast it is.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "NatsimProcess.h"

namespace {

using NatsimProcess::natsimIn;
using NatsimProcess::TempDir;
using nlohmann::json;

// A connection to the server; reads are bounded, so that a server that stops answering
// fails the test instead of hanging it.
int connectTo( std::string const& path ) {
   int const fd = ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 );
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   std::strncpy( address.sun_path, path.c_str(), sizeof( address.sun_path ) - 1 );
   EXPECT_EQ( ::connect( fd, reinterpret_cast<sockaddr*>( &address ), sizeof( address ) ),
              0 );
   timeval bound{ 60, 0 };
   ::setsockopt( fd, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof( bound ) );
   return fd;
}

// Sends `text` on `fd`, reads until the server closes the connection, and closes it.
std::string exchange( int fd, std::string const& text ) {
   ::send( fd, text.data(), text.size(), MSG_NOSIGNAL );
   std::string answer;
   char chunk[65536];
   for ( ssize_t n; ( n = ::recv( fd, chunk, sizeof( chunk ), 0 ) ) != 0; ) {
      if ( n < 0 && errno != EINTR ) {
         ADD_FAILURE() << "the server did not finish its answer";
         break;
      }
      answer.append( chunk, std::size_t( std::max<ssize_t>( n, 0 ) ) );
   }
   ::close( fd );
   return answer;
}

std::string ask( std::string const& path, std::string const& line ) {
   return exchange( connectTo( path ), line + "\n" );
}

// The message of an error line, or "not an error: <answer>".
std::string errorOf( std::string const& answer ) {
   json const value = json::parse( answer, nullptr, false );
   if ( !value.is_object() || value.size() != 1 || !value.contains( "error" ) ) {
      return "not an error: " + answer;
   }
   return value["error"].get<std::string>();
}

// `natsim serve` on the NAT plug-in, on "<dir>/natsim.sock"; ready once the socket is.
class Server {
public:
   Server( TempDir const& dir, std::vector<std::string> options = {} )
       : path( dir.path() + "/natsim.sock" ) {
      std::ofstream( dir.path() + "/serve.json" ) << R"({"steps": [
         {"natRule": {"uid": 4, "key": {"type": 1, "srcOld": "10.0.0.1"}}}]})";
      std::vector<std::string> args = { NATSIM_PATH, "serve", dir.path() + "/serve.json",
                                        "--socket", path };
      args.insert( args.end(), options.begin(), options.end() );
      pid_ = ::fork();
      if ( pid_ == 0 ) {
         std::freopen( ( dir.path() + "/serve.err" ).c_str(), "w", stderr );
         std::vector<char*> argv;
         for ( auto& arg : args ) {
            argv.push_back( arg.data() );
         }
         argv.push_back( nullptr );
         ::execv( argv[0], argv.data() );
         ::_exit( 127 );
      }
      struct stat st;
      for ( int i = 0; i < 12000 && ::lstat( path.c_str(), &st ) != 0; ++i ) {
         std::this_thread::sleep_for( std::chrono::milliseconds( 10 ) );
      }
   }
   ~Server() {
      if ( pid_ > 0 ) {
         stop( SIGKILL );
      }
   }
   // Sends `signal`; the exit status, -1 for another end.
   int stop( int signal ) {
      ::kill( pid_, signal );
      int raw = 0;
      ::waitpid( pid_, &raw, 0 );
      pid_ = -1;
      return WIFEXITED( raw ) ? WEXITSTATUS( raw ) : -1;
   }

   std::string const path;

private:
   pid_t pid_ = -1;
};

TEST( Serve, AnswersStepsAndCommandsRefusesFaultsAndRemovesItsSocket ) {
   TempDir dir;
   Server server( dir );
   std::string const& path = server.path;
   struct stat st;
   ASSERT_EQ( ::lstat( path.c_str(), &st ), 0 );
   EXPECT_EQ( st.st_mode & 07777, 0600u ) << "a private socket";

   std::string const line = ask(
       path, R"({"natRule": {"uid": 5, "key": {"type": 1, "srcOld": "10.0.0.2"}}})" );
   EXPECT_EQ( line.find( '\n' ), line.size() - 1 ) << "one line: " << line;
   json const rule = json::parse( line );
   EXPECT_EQ( rule["step"], 1 ) << "numbered after the scenario's step";
   EXPECT_EQ( rule["answers"][0]["uid"], 5 );
   EXPECT_EQ( rule["answers"][0]["result"], 1 );
   EXPECT_EQ( rule["journal"][0]["call"], "getEntry" );
   EXPECT_EQ( rule["journal"][0]["step"], 1 );

   std::pair<std::string, std::string> const faults[] = {
       { R"({"natRule": )", "line 1, column 13: invalid JSON" },
       { R"({"natRules": {}})", "unknown step \"natRules\"" },
       { R"({"advance": 60.5})", "advance: 60.5 is out of range" },
       { "ShowNothing", "unknown command \"ShowNothing\"" },
       { "", "empty request" },
   };
   for ( auto const& [request, error] : faults ) {
      EXPECT_EQ( errorOf( ask( path, request ) ).rfind( error, 0 ), 0u ) << request;
   }

   auto const shown = natsimIn( dir, "show --socket " + path );
   EXPECT_EQ( shown.status, 0 ) << shown.err;
   EXPECT_NE( shown.out.find( "10.0.0.2" ), std::string::npos ) << shown.out;
   EXPECT_EQ( json::parse( ask( path, R"({"verify": 1})" ) )["step"], 2 )
       << "no faulty request was played";

   EXPECT_EQ( server.stop( SIGTERM ), 0 );
   EXPECT_NE( ::lstat( path.c_str(), &st ), 0 ) << "the socket goes with the server";
   auto const nobody = natsimIn( dir, "show --socket " + path );
   EXPECT_EQ( nobody.status, 1 );
   EXPECT_EQ( nobody.err.rfind( "natsim: no natsim server listens on " + path, 0 ), 0u )
       << nobody.err;
}

TEST( Serve, HoldsAgainstClientsThatHoldConnectionsOrNeverFinishTheirLine ) {
   TempDir dir;
   Server server( dir, { "--idle-timeout", "1.5" } );
   std::string const& path = server.path;
   std::vector<int> held;
   for ( int i = 0; i < 64; ++i ) {
      held.push_back( connectTo( path ) );
      ::send( held.back(), "Show", 4, MSG_NOSIGNAL );  // no newline: the request goes on
   }
   EXPECT_EQ( errorOf( exchange( connectTo( path ), "" ) ),
              "too many connections (at most 64 at once); try again later" );
   EXPECT_EQ( errorOf( exchange( held[0], "" ) ),
              "no complete request within 1.5 seconds" );
   for ( std::size_t i = 1; i < held.size(); ++i ) {
      ::close( held[i] );
   }
   EXPECT_EQ(
       errorOf( exchange( connectTo( path ), std::string( 1024 * 1024 + 1, 'x' ) ) )
           .rfind( "request too long", 0 ),
       0u );
   EXPECT_EQ( json::parse( ask( path, R"({"advance": 60})" ) )["step"], 1 )
       << "served after all";
   EXPECT_EQ( server.stop( SIGINT ), 0 );
}

}  // namespace
