#pragma once

// The readable form of a natsim result: the same content as the JSON document, as
// tables for people, written as a stream in one pass over the records.

#include <ostream>

namespace natsim {

class Simulation;

void writeReport( std::ostream& out, Simulation const& simulation );

}  // namespace natsim
