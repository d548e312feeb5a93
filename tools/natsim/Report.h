#pragma once

// The readable form of a natsim result: the same content as the JSON document, as
// tables for people.

#include <nlohmann/json.hpp>

#include <string>

namespace natsim {

std::string readableReport( nlohmann::ordered_json const& result );

}  // namespace natsim
