#pragma once
// natsim run as a user runs it: a child process whose exit status and output streams the
// tests read. A fault that stops the agent stops only the child.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace NatsimProcess {

inline std::string readFile( std::string const& path ) {
   std::ifstream in( path );
   return std::string( std::istreambuf_iterator<char>( in ), {} );
}

// A temporary folder, removed with everything in it when the object goes.
class TempDir {
public:
   TempDir() {
      char dir[] = "/tmp/natsimtestXXXXXX";
      EXPECT_TRUE( ::mkdtemp( dir ) );
      path_ = dir;
   }
   ~TempDir() { std::system( ( "rm -rf " + path_ ).c_str() ); }
   TempDir( TempDir const& ) = delete;
   TempDir& operator=( TempDir const& ) = delete;
   std::string const& path() const { return path_; }

private:
   std::string path_;
};

struct Outcome {
   int status = -1;  // exit status; -1 when natsim did not exit normally
   std::string out;
   std::string err;
};

// Runs `natsim ARGS` (a shell word list) to its end; its output streams are kept in
// `dir` while it runs.
inline Outcome natsimIn( TempDir const& dir, std::string const& args ) {
   std::string const command = std::string( NATSIM_PATH ) + " " + args + " >" +
                               dir.path() + "/run.out 2>" + dir.path() + "/run.err";
   int const raw = std::system( command.c_str() );
   return { WIFEXITED( raw ) ? WEXITSTATUS( raw ) : -1,
            readFile( dir.path() + "/run.out" ), readFile( dir.path() + "/run.err" ) };
}

// Runs `natsim run FILE ARGS` on a scenario text written to a temporary file.
inline Outcome natsimRun( std::string const& scenario, std::string const& args = "" ) {
   TempDir const dir;
   std::ofstream( dir.path() + "/scenario.json" ) << scenario;
   return natsimIn( dir, "run " + dir.path() + "/scenario.json " + args );
}

}  // namespace NatsimProcess
