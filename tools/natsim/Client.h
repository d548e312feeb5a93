#pragma once

// natsim's client side: sends one request line to a natsim server and takes what comes
// back until the server closes the connection.

#include <functional>
#include <string>

namespace natsim {

// Connects to the server at `socketPath`, sends `request` and a newline, and passes
// the answer to `onOutput` piece by piece as it arrives. False, with the reason, when
// nothing listens at the path or the connection breaks.
bool sendRequest( std::string const& socketPath, std::string const& request,
                  std::function<void( std::string const& )> const& onOutput,
                  std::string* error );

// `natsim show`: runs `command` on the server and prints its output on standard output
// as it arrives. An error line of the server ({"error":"..."}) and a failure to
// connect are printed on standard error as "natsim: ...". Returns the exit status:
// 0, or 1 after an error.
int showCommand( std::string const& socketPath, std::string const& command );

}  // namespace natsim
