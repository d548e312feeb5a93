#pragma once

// Fixed-width integer names used throughout the agent and its plug-ins.

#include <cstdint>

typedef std::uint8_t U8;
typedef std::uint16_t U16;
typedef std::uint32_t U32;
typedef std::uint64_t U64;
typedef std::int32_t S32;
typedef std::int64_t S64;

namespace Fwk {

// Time in seconds, as the agent's clocks and timers count it.
typedef double Seconds;

}  // namespace Fwk
