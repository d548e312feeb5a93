// Fuzz target of natsim's scenario reader: any bytes, read as a whole scenario and as
// one step (as the server reads a request). The reader must never crash, throw or
// hang; a refused input gets one line of UTF-8 text naming the fault.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <nlohmann/json.hpp>

#include "tools/natsim/Scenario.h"

namespace {

// A fault's text is one line of valid UTF-8: dump() throws on anything else, which
// the fuzzer reports as a crash.
void checkFault( natsim::ScenarioError const& error ) {
   std::string const text = error.what();
   if ( error.message.empty() || text.find( '\n' ) != std::string::npos ) {
      std::abort();
   }
   ( void )nlohmann::json( text ).dump();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput( std::uint8_t const* data, std::size_t size ) {
   std::string const text( reinterpret_cast<char const*>( data ), size );
   natsim::Scenario scenario;
   natsim::ScenarioError error;
   if ( !natsim::parseScenario( text, &scenario, &error ) ) {
      checkFault( error );
   }
   natsim::Step step;
   if ( !natsim::parseStep( text, scenario.chip, &step, &error ) ) {
      checkFault( error );
   }
   return 0;
}
