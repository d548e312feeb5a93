#pragma once

// The id of a module (a line card or fabric card) of the chassis, as the central
// control plane numbers them.

#include "platform/fwk/Types.h"

namespace CorvaneCentral {

typedef U16 ModId;

}  // namespace CorvaneCentral
