#pragma once

// natsim's server: after its scenario, the simulation goes on running and answers
// requests on a Unix socket (docs/scenario.md, "Serving").
//
// A connection carries one request: a line of at most maxRequest bytes, ended by a
// newline (or by the client shutting its side down). A line whose first non-blank
// character is "{" is a step, read as a scenario's step and played at once; the answer
// is one line, the JSON of the records it made (Simulation::playOne()). Any other line
// is a command for the plug-in's command callback. The command runs in slices from the
// event loop and writes into a spool file; the server forwards the spool to the
// connection as the client takes it, and closes the connection once the command has
// completed and everything is sent. A faulty request is answered with one line,
// {"error":"..."}, and the connection closed.
//
// One thread: a poll() loop waits for the sockets and for the next timer, serves what
// is ready, then takes one turn of the event loop (Fwk::ActivityManager::runTurn()),
// so that a long command's slices alternate with other requests. No client is ever
// waited for: sockets are non-blocking and output waits in the connection's buffer.
//
// Limits keep a hostile or careless client from taking the server over: at most
// connectionsMax connections (more are refused with an error line), a connection that
// moves no byte for the idle time while the server waits on it is dropped, the output
// waiting in spools is at most spoolBytesMax in all (beyond it the command of the
// client with the most waiting is stopped), and a served advance is at most
// advanceSecondsMax seconds.
//
// From listen() on, SIGINT, SIGTERM and SIGHUP never leave the socket file behind:
// while the scenario plays they remove it and end natsim (status 1); while serving they
// stop the server, which removes it. abandon() tells the clients why the agent stopped
// and removes the file, for an assertion that stops the process.

#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "platform/agent/AgentCommand.h"
#include "tools/natsim/Simulation.h"

namespace natsim {

class Server {
public:
   // The longest request line, newline excluded.
   static constexpr std::size_t maxRequest = 1024 * 1024;
   // Connections open at once (fewer when the descriptor limit is low).
   static constexpr std::size_t connectionsMax = 64;
   // Seconds a connection may keep the server waiting on it without moving a byte.
   static constexpr double idleSecondsDefault = 30;
   // Bytes of command output that may wait in the spools of all connections.
   static constexpr std::size_t spoolBytesMax = std::size_t( 64 ) << 20;
   // The longest advance a client may ask for: every timer on the way fires while the
   // other clients wait.
   static constexpr double advanceSecondsMax = 60;

   Server( Simulation& simulation, std::string socketPath,
           double idleSeconds = idleSecondsDefault );
   // Drops every connection (stopping their commands) and removes the socket file.
   ~Server();
   Server( Server const& ) = delete;
   Server& operator=( Server const& ) = delete;

   // Makes the socket, mode 0600, under a temporary name next to the path (the path,
   // "." and the process id), and listens on it; a stale socket file at the path is
   // removed. False, with the reason, when the path is too long, is taken by another
   // kind of file or by a server that still answers, or the socket cannot be made.
   bool listen( std::string* error );
   // Renames the socket to its path, where clients find it, and handles SIGINT and
   // SIGTERM from then on. False, with the reason, when the path was taken meanwhile.
   bool publish( std::string* error );
   // Serves until SIGINT, SIGTERM or SIGHUP. False, with the reason, when poll() fails.
   bool serve( std::string* error );

   // The process is about to end on `reason` (an assertion): every client gets it as an
   // error line, as far as it takes it at once, and the socket file goes. For the
   // server that has listened last; nothing when there is none.
   static void abandon( std::string const& reason );

private:
   struct Connection;
   class StopSignals;

   void acceptAll();
   // Accepts one connection past the limit and refuses it; false when none waits.
   bool refuseConnection();
   // Drops connections that kept the server waiting for too long; returns the
   // milliseconds until the next one would be dropped, or -1.
   int dropIdle();
   // Stops the commands of the clients with most output waiting until the spools hold
   // at most spoolBytesMax.
   void limitSpools();
   void removeSocketFile();
   void receive( Connection& c );
   void handle( Connection& c, std::string line );
   void playStep( Connection& c, std::string const& line );
   void startCommand( Connection& c, std::string const& command );
   void refuse( Connection& c, std::string const& message );
   // Moves a command's new output from its spool to the connection's buffer; once the
   // command has completed and its spool is empty, the connection closes after sending.
   void forward( Connection& c );
   // The command is over (completed, or its client gone): its spool goes, the
   // connection closes once its output is sent.
   void finishCommand( Connection& c );
   // Forwards and sends for as long as the client takes everything at once: poll()
   // waits for a client only when output is left over for it.
   void pump( Connection& c );
   bool spoolPending( Connection const& c ) const;
   void send( Connection& c );
   void drop( Connection& c );
   // Milliseconds poll() may wait: 0 while the loop has work queued, else until the
   // next timer is due, -1 with no timer.
   int pollTimeout();

   Simulation& simulation_;
   std::string path_;
   double idleSeconds_;
   std::size_t connectionsMax_ = connectionsMax;
   // Kept open to be closed when descriptors run out, so that a connection past the
   // limit can still be accepted and refused.
   int reserveFd_ = -1;
   int listener_ = -1;
   int wake_[2] = { -1, -1 };
   std::string temporary_;
   // The socket file's identity, so that only our own file is removed.
   dev_t device_ = 0;
   ino_t inode_ = 0;
   bool bound_ = false;
   // The socket file is at the path (else at the temporary name).
   bool published_ = false;
   std::unique_ptr<StopSignals> signals_;
   bool stopping_ = false;
   std::vector<std::unique_ptr<Connection>> connections_;
};

// The exit status of natsim when an assertion of the plug-in (or an error nothing
// catches) stops the agent.
constexpr int agentStoppedStatus = 3;

// From now on an assertion or an uncaught exception ends natsim with
// agentStoppedStatus after Server::abandon(); the assertion's text is on standard error.
void endOnAgentStop();

}  // namespace natsim
