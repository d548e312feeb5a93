#include "tools/natsim/Server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstring>

#include <nlohmann/json.hpp>

#include "tools/natsim/Scenario.h"

namespace natsim {

namespace {

// A command's output is moved from its spool to the connection only while the
// connection holds less than this; the rest waits in the spool for a slow client.
constexpr std::size_t forwardLimit = 256 * 1024;

// The write end of the running server's wake pipe, for the signal handler.
volatile std::sig_atomic_t signalWakeFd = -1;

void onStopSignal( int ) {
   int const saved = errno;
   if ( signalWakeFd >= 0 ) {
      char const byte = 's';
      [[maybe_unused]] ssize_t n = ::write( signalWakeFd, &byte, 1 );
   }
   errno = saved;
}

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

std::string systemError( std::string const& what ) {
   return what + ": " + std::strerror( errno );
}

}  // namespace

// Sets SIGINT and SIGTERM to stop the server for the life of the object.
class Server::StopSignals {
public:
   explicit StopSignals( int wakeFd ) {
      signalWakeFd = wakeFd;
      struct sigaction action;
      std::memset( &action, 0, sizeof( action ) );
      action.sa_handler = onStopSignal;
      sigemptyset( &action.sa_mask );
      ::sigaction( SIGINT, &action, &previousInt_ );
      ::sigaction( SIGTERM, &action, &previousTerm_ );
   }
   ~StopSignals() {
      ::sigaction( SIGINT, &previousInt_, nullptr );
      ::sigaction( SIGTERM, &previousTerm_, nullptr );
      signalWakeFd = -1;
   }
   StopSignals( StopSignals const& ) = delete;
   StopSignals& operator=( StopSignals const& ) = delete;

private:
   struct sigaction previousInt_;
   struct sigaction previousTerm_;
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
};

Server::Server( Simulation& simulation, std::string socketPath )
    : simulation_( simulation ), path_( std::move( socketPath ) ) {}

Server::~Server() {
   signals_.reset();  // before the wake pipe closes
   for ( auto& c : connections_ ) {
      drop( *c );
   }
   connections_.clear();
   if ( listener_ >= 0 ) {
      ::close( listener_ );
   }
   std::string const& file = published_ ? path_ : temporary_;
   struct stat st;
   if ( bound_ && ::lstat( file.c_str(), &st ) == 0 && st.st_dev == device_ &&
        st.st_ino == inode_ ) {
      ::unlink( file.c_str() );
   }
   for ( int fd : wake_ ) {
      if ( fd >= 0 ) {
         ::close( fd );
      }
   }
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
   if ( ::pipe2( wake_, O_CLOEXEC | O_NONBLOCK ) != 0 ) {
      *error = systemError( "pipe" );
      return false;
   }
   listener_ = ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
   if ( listener_ < 0 ) {
      *error = systemError( "socket" );
      return false;
   }
   ::unlink( temporary.c_str() );
   mode_t const mask = ::umask( 0177 );
   int const bound = ::bind( listener_, reinterpret_cast<sockaddr const*>( &address ),
                             sizeof( address ) );
   ::umask( mask );
   if ( bound != 0 ) {
      *error = systemError( temporary );
      return false;
   }
   bound_ = ::lstat( temporary.c_str(), &st ) == 0;
   device_ = st.st_dev;
   inode_ = st.st_ino;
   if ( !bound_ || ::chmod( temporary.c_str(), 0600 ) != 0 ||
        ::listen( listener_, 64 ) != 0 ) {
      *error = systemError( temporary );
      return false;
   }
   return true;
}

bool Server::publish( std::string* error ) {
   signals_ = std::make_unique<StopSignals>( wake_[1] );
   // The path was free when listen() looked; a server may have come since.
   if ( somethingListens( path_ ) ) {
      *error = path_ + ": another server listens there";
      return false;
   }
   if ( ::rename( temporary_.c_str(), path_.c_str() ) != 0 ) {
      *error = systemError( path_ );
      return false;
   }
   published_ = true;
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
      int const ready = ::poll( fds.data(), fds.size(), pollTimeout() );
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
      int fd = ::accept4( listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK );
      if ( fd < 0 ) {
         return;  // none left (or a client gave up before it was accepted)
      }
      auto c = std::make_unique<Connection>();
      c->fd = fd;
      connections_.push_back( std::move( c ) );
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
