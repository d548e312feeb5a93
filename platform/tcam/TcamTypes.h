#pragma once

// Names shared by the TCAM managers and their users.

#include "platform/fwk/Types.h"

namespace Corvane {

// A TCAM group of the field processor, by its assignment number (NAT uses 160, 0xa0).
typedef U32 TcamGroupAssignment;

}  // namespace Corvane

namespace CorvaneTcam {

// What a caller asks of an entry beyond its group; callers pass a default one.
struct RequestKey {
   U32 value = 0;
};

}  // namespace CorvaneTcam
