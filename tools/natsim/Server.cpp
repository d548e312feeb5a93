#include "tools/natsim/Server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>

#include <chrono>
#include <iostream>

#include <nlohmann/json.hpp>

#include "platform/fwk/Assert.h"
#include "tools/natsim/Scenario.h"

namespace natsim {

namespace {

// A command's output is moved from its spool to the connection only while the
// connection holds less than this; the rest waits in the spool for a slow client.
constexpr std::size_t forwardLimit = 256 * 1024;

// What the signal handler knows of the server: the write end of its wake pipe, whether
// it serves, and its socket file with the file's identity (so that only our own file is
// removed). Set with the signals blocked.
volatile std::sig_atomic_t signalWakeFd = -1;
volatile std::sig_atomic_t signalServing = 0;
char signalSocketFile[sizeof( sockaddr_un::sun_path )] = "";
dev_t signalDevice = 0;
ino_t signalInode = 0;

// Removes `file` if it is still the socket we made; async-signal-safe.
void removeOwnFile( char const* file, dev_t device, ino_t inode ) {
   struct stat st;
   if ( file[0] != '\0' && ::lstat( file, &st ) == 0 && st.st_dev == device &&
        st.st_ino == inode ) {
      ::unlink( file );
   }
}

void onStopSignal( int ) {
   int const saved = errno;
   if ( signalServing && signalWakeFd >= 0 ) {
      char const byte = 's';
      [[maybe_unused]] ssize_t n = ::write( signalWakeFd, &byte, 1 );
      errno = saved;
      return;
   }
   // The scenario is still playing: nothing is served yet, natsim ends at once.
   removeOwnFile( signalSocketFile, signalDevice, signalInode );
   static char const message[] = "natsim: stopped by a signal before serving\n";
   [[maybe_unused]] ssize_t n = ::write( STDERR_FILENO, message, sizeof( message ) - 1 );
   ::_exit( 1 );
}

int const stopSignals[] = { SIGINT, SIGTERM, SIGHUP };

// Blocks the stop signals for the life of the object, so that the handler's view of
// the socket file changes as one.
class SignalsBlocked {
public:
   SignalsBlocked() {
      sigset_t set;
      sigemptyset( &set );
      for ( int signal : stopSignals ) {
         sigaddset( &set, signal );
      }
      ::sigprocmask( SIG_BLOCK, &set, &previous_ );
   }
   ~SignalsBlocked() { ::sigprocmask( SIG_SETMASK, &previous_, nullptr ); }
   SignalsBlocked( SignalsBlocked const& ) = delete;
   SignalsBlocked& operator=( SignalsBlocked const& ) = delete;

private:
   sigset_t previous_;
};

void signalSocketFileIs( std::string const& file, dev_t device, ino_t inode ) {
   SignalsBlocked const blocked;
   std::snprintf( signalSocketFile, sizeof( signalSocketFile ), "%s", file.c_str() );
   signalDevice = device;
   signalInode = inode;
}

// The server abandon() speaks for.
Server* lastServer = nullptr;

using Clock = std::chrono::steady_clock;

bool fillAddress( std::string const& path, sockaddr_un* address ) {
   std::memset( address, 0, sizeof( *address ) );
   address->sun_family = AF_UNIX;
   if ( path.empty() || path.size() >= sizeof( address->sun_path ) ) {
      return false;
   }
   std::memcpy( address->sun_path, path.c_str(), path.size() + 1 );
   return true;
}

// True when a server accepts connections on the socket at `path`.
bool somethingListens( std::string const& path ) {
   sockaddr_un address;
   if ( !fillAddress( path, &address ) ) {
      return false;
   }
   int fd = ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 );
   if ( fd < 0 ) {
      return false;
   }
   bool const listens = ::connect( fd, reinterpret_cast<sockaddr const*>( &address ),
                                   sizeof( address ) ) == 0;
   ::close( fd );
   return listens;
}

// One line of JSON; bytes that are not UTF-8 (a client may send any) become U+FFFD.
template <class Json>
std::string jsonLine( Json const& value ) {
   return value.dump( -1, ' ', false, Json::error_handler_t::replace ) + "\n";
}

std::string errorLine( std::string const& message ) {
   return jsonLine( nlohmann::json{ { "error", message } } );
}

// A request as an error message quotes it: JSON-quoted, long ones cut short.
std::string quotedRequest( std::string const& text ) {
   constexpr std::size_t longest = 80;
   std::string quoted = jsonLine( nlohmann::json( text.substr( 0, longest ) ) );
   quoted.pop_back();
   if ( text.size() > longest ) {
      quoted += "... (" + std::to_string( text.size() ) + " bytes)";
   }
   return quoted;
}

// Seconds as a user writes them: 600, 0.25.
std::string quotedSeconds( double seconds ) {
   if ( seconds == std::trunc( seconds ) && std::fabs( seconds ) < 1e15 ) {
      return std::to_string( static_cast<long long>( seconds ) );
   }
   return nlohmann::json( seconds ).dump();
}

// Sends `line` as far as the client takes it at once and closes the connection. What
// the client has sent is read first: closing a socket with unread input resets the
// connection, and the client might lose the line.
void sayAndClose( int fd, std::string const& line ) {
   ::send( fd, line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT );
   ::shutdown( fd, SHUT_WR );
   char chunk[16 * 1024];
   for ( int i = 0; i < 64 && ::recv( fd, chunk, sizeof( chunk ), MSG_DONTWAIT ) > 0;
         ++i ) {
   }
   ::close( fd );
}

std::string systemError( std::string const& what ) {
   return what + ": " + std::strerror( errno );
}

}  // namespace

// Sets the stop signals to the handler for the life of the object.
class Server::StopSignals {
public:
   explicit StopSignals( int wakeFd ) {
      signalWakeFd = wakeFd;
      struct sigaction action;
      std::memset( &action, 0, sizeof( action ) );
      action.sa_handler = onStopSignal;
      sigemptyset( &action.sa_mask );
      for ( std::size_t i = 0; i < std::size( stopSignals ); ++i ) {
         ::sigaction( stopSignals[i], &action, &previous_[i] );
      }
   }
   ~StopSignals() {
      for ( std::size_t i = 0; i < std::size( stopSignals ); ++i ) {
         ::sigaction( stopSignals[i], &previous_[i], nullptr );
      }
      signalServing = 0;
      signalWakeFd = -1;
      signalSocketFileIs( "", 0, 0 );
   }
   StopSignals( StopSignals const& ) = delete;
   StopSignals& operator=( StopSignals const& ) = delete;

private:
   struct sigaction previous_[std::size( stopSignals )];
};

struct Server::Connection {
   int fd = -1;
   // The request as it arrives, until its line is complete.
   std::string request;
   bool requestRead = false;
   // What waits to be sent.
   std::string out;
   // Close once `out` is sent (and no command is running).
   bool closeWhenSent = false;
   bool closed = false;
   // A command in progress and the file its output goes to.
   Agent::AgentAsyncCommandRequestSm::Ptr command;
   std::FILE* spool = nullptr;
   // How much of the spool is forwarded.
   off_t spoolRead = 0;
   // When a byte last moved, or the server last stopped waiting on the client.
   Clock::time_point active = Clock::now();
};

Server::Server( Simulation& simulation, std::string socketPath, double idleSeconds )
    : simulation_( simulation ),
      path_( std::move( socketPath ) ),
      idleSeconds_( idleSeconds ) {}

Server::~Server() {
   if ( lastServer == this ) {
      lastServer = nullptr;
   }
   for ( auto& c : connections_ ) {
      drop( *c );
   }
   connections_.clear();
   if ( listener_ >= 0 ) {
      ::close( listener_ );
   }
   // A stop signal that comes now only wakes the loop, which no longer runs.
   removeSocketFile();
   signals_.reset();  // before the wake pipe closes
   for ( int fd : { wake_[0], wake_[1], reserveFd_ } ) {
      if ( fd >= 0 ) {
         ::close( fd );
      }
   }
}

namespace {

[[noreturn]] void agentStopped( char const* reason ) {
   Server::abandon( reason );
   std::_Exit( agentStoppedStatus );
}

}  // namespace

void endOnAgentStop() {
   Fwk::assertionHookIs( agentStopped );
   std::set_terminate( [] {
      std::string reason = "an error nothing caught";
      try {
         if ( std::exception_ptr const e = std::current_exception() ) {
            std::rethrow_exception( e );
         }
      } catch ( std::exception const& e ) {
         reason = std::string( "an error nothing caught: " ) + e.what();
      } catch ( ... ) {
      }
      std::cerr << "natsim: " << reason << std::endl;
      agentStopped( reason.c_str() );
   } );
}

void Server::removeSocketFile() {
   if ( bound_ ) {
      removeOwnFile( ( published_ ? path_ : temporary_ ).c_str(), device_, inode_ );
   }
}

void Server::abandon( std::string const& reason ) {
   Server* const server = lastServer;
   if ( !server ) {
      return;
   }
   std::string const line = errorLine( "the agent stopped: " + reason );
   for ( auto& c : server->connections_ ) {
      if ( c->closed ) {
         continue;
      }
      // What was waiting, then the reason, as much as the client takes at once.
      c->out += line;
      ::send( c->fd, c->out.data(), c->out.size(), MSG_NOSIGNAL | MSG_DONTWAIT );
      ::close( c->fd );
      c->closed = true;
   }
   server->removeSocketFile();
}

bool Server::listen( std::string* error ) {
   // Bound under a temporary name and renamed when serving starts, so that the socket
   // file appears only when connections are served, with its mode already 0600.
   temporary_ = path_ + "." + std::to_string( ::getpid() );
   std::string const& temporary = temporary_;
   sockaddr_un address;
   if ( !fillAddress( path_, &address ) || !fillAddress( temporary, &address ) ) {
      *error = path_ + ": not a usable socket path (empty, or too long for a socket)";
      return false;
   }
   struct stat st;
   if ( ::lstat( path_.c_str(), &st ) == 0 ) {
      if ( !S_ISSOCK( st.st_mode ) ) {
         *error = path_ + ": exists and is not a socket";
         return false;
      }
      if ( somethingListens( path_ ) ) {
         *error = path_ + ": another server listens there";
         return false;
      }
      ::unlink( path_.c_str() );  // stale: its server is gone
   }
   // Others who may write the directory may put their own file in the socket's place.
   std::size_t const slash = path_.rfind( '/' );
   std::string const directory = slash == std::string::npos ? "."
                                 : slash == 0               ? "/"
                                                            : path_.substr( 0, slash );
   if ( ::stat( directory.c_str(), &st ) == 0 && ( st.st_mode & ( S_IWGRP | S_IWOTH ) ) &&
        !( st.st_mode & S_ISVTX ) ) {
      std::cerr << "natsim: warning: " << directory
                << " may be written by others, who could replace the socket; prefer a "
                   "private directory\n";
   }
   if ( ::pipe2( wake_, O_CLOEXEC | O_NONBLOCK ) != 0 ) {
      *error = systemError( "pipe" );
      return false;
   }
   reserveFd_ = ::open( "/dev/null", O_RDONLY | O_CLOEXEC );
   // Each connection may hold two descriptors (its socket and a command's spool).
   rlimit files;
   if ( ::getrlimit( RLIMIT_NOFILE, &files ) == 0 && files.rlim_cur != RLIM_INFINITY ) {
      rlim_t const spare = files.rlim_cur > 32 ? ( files.rlim_cur - 32 ) / 2 : 1;
      connectionsMax_ =
          std::max<std::size_t>( 1, std::min<rlim_t>( connectionsMax, spare ) );
   }
   listener_ = ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
   if ( listener_ < 0 ) {
      *error = systemError( "socket" );
      return false;
   }
   // From here on a stop signal removes what is made.
   lastServer = this;
   signals_ = std::make_unique<StopSignals>( wake_[1] );
   // The mask makes the file 0600 as bind() creates it: a chmod() afterwards would
   // follow a symbolic link put in its place meanwhile. A stop signal waits until the
   // handler knows the file.
   int bound = 0;
   int reason = 0;
   {
      SignalsBlocked const blocked;
      mode_t const mask = ::umask( 0177 );
      bound = ::bind( listener_, reinterpret_cast<sockaddr const*>( &address ),
                      sizeof( address ) );
      reason = errno;
      ::umask( mask );
      if ( bound == 0 ) {
         bound_ = ::lstat( temporary.c_str(), &st ) == 0 && S_ISSOCK( st.st_mode );
         device_ = st.st_dev;
         inode_ = st.st_ino;
         signalSocketFileIs( temporary, device_, inode_ );
      }
   }
   errno = reason;
   if ( bound != 0 && reason == EADDRINUSE ) {
      *error = temporary +
               ": exists (natsim makes its socket under this name before "
               "it serves; remove the file or choose another path)";
      return false;
   }
   if ( bound != 0 ) {
      *error = systemError( temporary );
      return false;
   }
   if ( !bound_ || ::listen( listener_, 64 ) != 0 ) {
      *error = systemError( temporary );
      return false;
   }
   return true;
}

bool Server::publish( std::string* error ) {
   // The path was free when listen() looked; a server may have come since.
   if ( somethingListens( path_ ) ) {
      *error = path_ + ": another server listens there";
      return false;
   }
   SignalsBlocked const blocked;
   if ( ::rename( temporary_.c_str(), path_.c_str() ) != 0 ) {
      *error = systemError( path_ );
      return false;
   }
   published_ = true;
   signalSocketFileIs( path_, device_, inode_ );
   signalServing = 1;
   return true;
}

bool Server::serve( std::string* error ) {
   std::vector<pollfd> fds;
   while ( !stopping_ ) {
      fds.clear();
      fds.push_back( { wake_[0], POLLIN, 0 } );
      fds.push_back( { listener_, POLLIN, 0 } );
      for ( auto const& c : connections_ ) {
         short events = 0;
         if ( !c->requestRead ) {
            events |= POLLIN;
         }
         if ( !c->out.empty() ) {
            events |= POLLOUT;
         }
         fds.push_back( { c->fd, events, 0 } );
      }
      int timeout = pollTimeout();
      int const idle = dropIdle();
      if ( idle >= 0 && ( timeout < 0 || idle < timeout ) ) {
         timeout = idle;
      }
      int const ready = ::poll( fds.data(), fds.size(), timeout );
      if ( ready < 0 && errno != EINTR ) {
         *error = systemError( "poll" );
         return false;
      }
      if ( ready > 0 ) {
         if ( fds[0].revents ) {
            stopping_ = true;
            break;
         }
         // Connections accepted now come after the ones polled.
         std::size_t const polled = connections_.size();
         if ( fds[1].revents & POLLIN ) {
            acceptAll();
         }
         for ( std::size_t i = 0; i < polled; ++i ) {
            Connection& c = *connections_[i];
            short const revents = fds[i + 2].revents;
            if ( !c.requestRead && ( revents & ( POLLIN | POLLHUP | POLLERR ) ) ) {
               receive( c );
            }
            if ( revents & POLLOUT ) {
               send( c );
            }
            // The client is gone: nothing more can reach it.
            if ( c.requestRead && ( revents & ( POLLHUP | POLLERR ) ) ) {
               drop( c );
            }
         }
      }
      simulation_.loop().runTurn();
      for ( auto& c : connections_ ) {
         pump( *c );
      }
      limitSpools();
      for ( std::size_t i = 0; i < connections_.size(); ) {
         if ( connections_[i]->closed ) {
            connections_.erase( connections_.begin() + static_cast<std::ptrdiff_t>( i ) );
         } else {
            ++i;
         }
      }
   }
   return true;
}

int Server::pollTimeout() {
   Fwk::ActivityManager& loop = simulation_.loop();
   if ( !loop.idle() ) {
      return 0;
   }
   Fwk::Seconds const due = loop.nextTimerDue();
   if ( due < 0 ) {
      return -1;
   }
   Fwk::Seconds const wait = due - loop.clock()->now();
   if ( wait <= 0 ) {
      return 0;
   }
   // Rounded up, so that the timer is due when poll() returns.
   return wait >= 3600 ? 3600 * 1000 : static_cast<int>( std::ceil( wait * 1000 ) );
}

void Server::acceptAll() {
   for ( ;; ) {
      std::size_t open = 0;
      for ( auto const& c : connections_ ) {
         open += c->closed ? 0 : 1;
      }
      if ( open >= connectionsMax_ ) {
         if ( !refuseConnection() ) {
            return;
         }
         continue;
      }
      int fd = ::accept4( listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK );
      if ( fd < 0 && ( errno == EMFILE || errno == ENFILE ) ) {
         if ( !refuseConnection() ) {
            return;
         }
         continue;
      }
      if ( fd < 0 ) {
         return;  // none left (or a client gave up before it was accepted)
      }
      auto c = std::make_unique<Connection>();
      c->fd = fd;
      connections_.push_back( std::move( c ) );
   }
}

bool Server::refuseConnection() {
   int fd = ::accept4( listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK );
   if ( fd < 0 && ( errno == EMFILE || errno == ENFILE ) && reserveFd_ >= 0 ) {
      // Out of descriptors: the reserved one makes room for this client's refusal.
      ::close( reserveFd_ );
      fd = ::accept4( listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK );
      reserveFd_ = ::open( "/dev/null", O_RDONLY | O_CLOEXEC );
   }
   if ( fd < 0 ) {
      return false;
   }
   sayAndClose( fd, errorLine( "too many connections (at most " +
                               std::to_string( connectionsMax_ ) +
                               " at once); try again later" ) );
   return true;
}

int Server::dropIdle() {
   Clock::time_point const now = Clock::now();
   auto const limit = std::chrono::duration_cast<Clock::duration>(
       std::chrono::duration<double>( idleSeconds_ ) );
   Clock::duration next = Clock::duration::max();
   for ( auto& c : connections_ ) {
      // The server waits on the client while its request is incomplete or its output
      // is not taken.
      if ( c->closed || ( c->requestRead && c->out.empty() ) ) {
         c->active = now;
         continue;
      }
      if ( now - c->active < limit ) {
         next = std::min( next, c->active + limit - now );
         continue;
      }
      if ( !c->requestRead ) {
         std::string const line = errorLine( "no complete request within " +
                                             quotedSeconds( idleSeconds_ ) + " seconds" );
         ::send( c->fd, line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT );
      }
      drop( *c );
   }
   if ( next == Clock::duration::max() ) {
      return -1;
   }
   auto const ms = std::chrono::ceil<std::chrono::milliseconds>( next ).count();
   return static_cast<int>( std::min<decltype( ms )>( ms, 3600 * 1000 ) );
}

void Server::limitSpools() {
   for ( ;; ) {
      std::size_t total = 0;
      Connection* largest = nullptr;
      std::size_t largestWaiting = 0;
      for ( auto& c : connections_ ) {
         if ( !c->spool || c->closed ) {
            continue;
         }
         off_t const written = ::lseek( fileno( c->spool ), 0, SEEK_CUR );
         std::size_t const waiting =
             written > c->spoolRead ? std::size_t( written - c->spoolRead ) : 0;
         total += waiting;
         if ( waiting > largestWaiting ) {
            largest = c.get();
            largestWaiting = waiting;
         }
      }
      if ( total <= spoolBytesMax || !largest ) {
         return;
      }
      // The output this client has not taken is dropped with its command.
      finishCommand( *largest );
      largest->out +=
          "\n" +
          errorLine( "output dropped: the client took it too slowly (more than " +
                     std::to_string( spoolBytesMax ) + " bytes waited for the clients)" );
   }
}

void Server::receive( Connection& c ) {
   char chunk[64 * 1024];
   while ( !c.requestRead ) {
      ssize_t const n = ::recv( c.fd, chunk, sizeof( chunk ), 0 );
      if ( n < 0 && errno == EINTR ) {
         continue;
      }
      if ( n < 0 && ( errno == EAGAIN || errno == EWOULDBLOCK ) ) {
         return;
      }
      if ( n < 0 ) {
         drop( c );
         return;
      }
      if ( n == 0 ) {  // the client sent all it will: that is the line
         c.requestRead = true;
         handle( c, std::move( c.request ) );
         return;
      }
      std::size_t const from = c.request.size();
      c.request.append( chunk, static_cast<std::size_t>( n ) );
      std::size_t const newline = c.request.find( '\n', from );
      if ( newline != std::string::npos && newline <= maxRequest ) {
         c.requestRead = true;
         c.request.resize( newline );
         handle( c, std::move( c.request ) );
         return;
      }
      if ( c.request.size() > maxRequest ) {
         c.requestRead = true;
         c.request.clear();
         refuse( c, "request too long (more than " + std::to_string( maxRequest ) +
                        " bytes without a newline)" );
         return;
      }
   }
}

void Server::handle( Connection& c, std::string line ) {
   if ( !line.empty() && line.back() == '\r' ) {
      line.pop_back();
   }
   std::size_t const first = line.find_first_not_of( " \t" );
   if ( first == std::string::npos ) {
      refuse( c, "empty request (expected a step as JSON or a command)" );
   } else if ( line[first] == '{' ) {
      playStep( c, line );
   } else {
      std::size_t const last = line.find_last_not_of( " \t" );
      startCommand( c, line.substr( first, last - first + 1 ) );
   }
}

void Server::playStep( Connection& c, std::string const& line ) {
   Step step;
   ScenarioError error;
   if ( !parseStep( line, simulation_.chip(), &step, &error ) ) {
      refuse( c, error.what() );
      return;
   }
   if ( auto const* advance = std::get_if<AdvanceStep>( &step );
        advance && advance->seconds > advanceSecondsMax ) {
      refuse( c, "advance: " + quotedSeconds( advance->seconds ) +
                     " is out of range (a served advance is at most " +
                     quotedSeconds( advanceSecondsMax ) + " seconds; send several)" );
      return;
   }
   c.out += simulation_.playOne( step ) + "\n";
   c.closeWhenSent = true;
}

void Server::startCommand( Connection& c, std::string const& command ) {
   Agent::AgentCommandCallback* callback = simulation_.commandCallback();
   if ( !callback ) {
      refuse( c, "the plug-in offers no command callback \"" +
                     simulation_.callbackType() + "\"" );
      return;
   }
   c.spool = std::tmpfile();
   if ( !c.spool ) {
      refuse( c, systemError( "no spool file for the command" ) );
      return;
   }
   Agent::AgentCommandRequest request;
   request.command = command;
   request.socket = fileno( c.spool );
   c.command = Agent::runAgentCommand( *callback, request );
   if ( !c.command ) {
      std::fclose( c.spool );
      c.spool = nullptr;
      refuse( c, "unknown command " + quotedRequest( command ) );
   }
}

void Server::refuse( Connection& c, std::string const& message ) {
   c.out += errorLine( message );
   c.closeWhenSent = true;
}

void Server::forward( Connection& c ) {
   if ( !c.command || c.closed ) {
      return;
   }
   // The command writes at the spool's file offset; what is forwarded is read behind it.
   int const fd = fileno( c.spool );
   off_t const written = ::lseek( fd, 0, SEEK_CUR );
   char chunk[64 * 1024];
   while ( c.spoolRead < written && c.out.size() < forwardLimit ) {
      ssize_t const n = ::pread( fd, chunk, sizeof( chunk ), c.spoolRead );
      if ( n <= 0 ) {
         break;
      }
      c.out.append( chunk, static_cast<std::size_t>( n ) );
      c.spoolRead += n;
   }
   bool const allForwarded = c.spoolRead == written;
   if ( allForwarded && written > 0 ) {
      // The spool starts over, so that it holds only what the client has not taken.
      if ( ::ftruncate( fd, 0 ) != 0 || ::lseek( fd, 0, SEEK_SET ) != 0 ) {
         c.out += "\n" + errorLine( systemError( "the command's spool failed" ) );
         finishCommand( c );
         return;
      }
      c.spoolRead = 0;
   }
   if ( allForwarded && c.command->executionCompleted() ) {
      finishCommand( c );
   }
}

bool Server::spoolPending( Connection const& c ) const {
   return c.spool && c.spoolRead < ::lseek( fileno( c.spool ), 0, SEEK_CUR );
}

void Server::pump( Connection& c ) {
   do {
      forward( c );
      send( c );
   } while ( !c.closed && c.out.empty() && spoolPending( c ) );
}

void Server::finishCommand( Connection& c ) {
   c.command->hasNotificationActiveIs( false );  // a command not completed stops
   c.command = nullptr;
   std::fclose( c.spool );
   c.spool = nullptr;
   c.spoolRead = 0;
   c.closeWhenSent = true;
}

void Server::send( Connection& c ) {
   while ( !c.closed && !c.out.empty() ) {
      ssize_t const n =
          ::send( c.fd, c.out.data(), c.out.size(), MSG_NOSIGNAL | MSG_DONTWAIT );
      if ( n < 0 && errno == EINTR ) {
         continue;
      }
      if ( n < 0 && ( errno == EAGAIN || errno == EWOULDBLOCK ) ) {
         return;
      }
      if ( n <= 0 ) {
         drop( c );  // the client is gone
         return;
      }
      c.out.erase( 0, static_cast<std::size_t>( n ) );
   }
   if ( !c.closed && c.out.empty() && c.closeWhenSent && !c.command ) {
      drop( c );
   }
}

void Server::drop( Connection& c ) {
   if ( c.closed ) {
      return;
   }
   if ( c.command ) {
      finishCommand( c );  // its next slice does not run
   }
   ::close( c.fd );
   c.closed = true;
}

}  // namespace natsim
