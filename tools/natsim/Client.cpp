#include "tools/natsim/Client.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include <nlohmann/json.hpp>

namespace natsim {

namespace {

// Closes the descriptor when it goes.
struct Descriptor {
   int fd;
   ~Descriptor() {
      if ( fd >= 0 ) {
         ::close( fd );
      }
   }
};

// The message of a server's error line, or false for any other answer.
bool serverError( std::string const& answer, std::string* message ) {
   if ( answer.empty() || answer.back() != '\n' ||
        answer.find( '\n' ) != answer.size() - 1 ) {
      return false;
   }
   auto const value = nlohmann::json::parse( answer, nullptr, false );
   if ( !value.is_object() || value.size() != 1 || !value.contains( "error" ) ||
        !value["error"].is_string() ) {
      return false;
   }
   *message = value["error"].get<std::string>();
   return true;
}

// Prints a command's output with one row to a line: a newline after an opening "[" and
// after each "}," (the text is the same JSON-like output); the output ends with a
// newline.
class RowPrinter {
public:
   void print( std::string const& piece ) {
      std::string text;
      for ( char c : piece ) {
         text += c;
         if ( ( c == '[' && !started_ ) || ( c == ',' && last_ == '}' ) ) {
            text += '\n';
         }
         started_ = true;
         last_ = c;
      }
      std::cout << text << std::flush;
   }
   void end() {
      if ( started_ && last_ != '\n' ) {
         std::cout << '\n' << std::flush;
      }
   }

private:
   bool started_ = false;
   char last_ = '\n';
};

}  // namespace

bool sendRequest( std::string const& socketPath, std::string const& request,
                  std::function<void( std::string const& )> const& onOutput,
                  std::string* error ) {
   sockaddr_un address;
   std::memset( &address, 0, sizeof( address ) );
   address.sun_family = AF_UNIX;
   if ( socketPath.empty() || socketPath.size() >= sizeof( address.sun_path ) ) {
      *error = socketPath + ": not a usable socket path";
      return false;
   }
   std::memcpy( address.sun_path, socketPath.c_str(), socketPath.size() + 1 );
   Descriptor socket{ ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 ) };
   if ( socket.fd < 0 ||
        ::connect( socket.fd, reinterpret_cast<sockaddr const*>( &address ),
                   sizeof( address ) ) != 0 ) {
      *error = "no natsim server listens on " + socketPath + " (" +
               std::strerror( errno ) + ")";
      return false;
   }
   std::string const line = request + "\n";
   for ( std::size_t sent = 0; sent < line.size(); ) {
      ssize_t const n =
          ::send( socket.fd, line.data() + sent, line.size() - sent, MSG_NOSIGNAL );
      if ( n < 0 && errno == EINTR ) {
         continue;
      }
      if ( n <= 0 ) {
         *error =
             socketPath + ": the request was not sent (" + std::strerror( errno ) + ")";
         return false;
      }
      sent += static_cast<std::size_t>( n );
   }
   char chunk[64 * 1024];
   for ( ;; ) {
      ssize_t const n = ::recv( socket.fd, chunk, sizeof( chunk ), 0 );
      if ( n < 0 && errno == EINTR ) {
         continue;
      }
      if ( n < 0 ) {
         *error = socketPath + ": the answer broke off (" + std::strerror( errno ) + ")";
         return false;
      }
      if ( n == 0 ) {
         return true;
      }
      onOutput( std::string( chunk, static_cast<std::size_t>( n ) ) );
   }
}

int showCommand( std::string const& socketPath, std::string const& command ) {
   // An answer that may still turn out to be the server's error line is held back;
   // anything else is printed as it arrives.
   static std::string const errorStart = "{\"error\":";
   std::string held;
   bool passing = false;
   RowPrinter printer;
   auto onOutput = [&]( std::string const& piece ) {
      if ( passing ) {
         printer.print( piece );
         return;
      }
      held += piece;
      std::size_t const n = std::min( held.size(), errorStart.size() );
      if ( held.compare( 0, n, errorStart, 0, n ) != 0 ) {
         passing = true;
         printer.print( held );
         held.clear();
      }
   };
   std::string error;
   bool const answered = sendRequest( socketPath, command, onOutput, &error );
   std::string message;
   if ( answered && serverError( held, &message ) ) {
      std::cerr << "natsim: " << message << "\n";
      return 1;
   }
   printer.print( held );
   printer.end();
   if ( !answered ) {
      std::cerr << "natsim: " << error << "\n";
      return 1;
   }
   return 0;
}

}  // namespace natsim
