#pragma once

// The actions a field-processor entry can carry, each with two parameters.

#include "platform/fwk/Types.h"

namespace Chip {

enum class Action : U8 {
   Drop,
   DropCancel,
   CopyToCpu,
   CopyToCpuCancel,
   CosQCpuNew,
   L3Switch,
   RedirectIpmc,
   AssignExtractionCtrlId,
   AssignOpaqueObject1,
};
constexpr unsigned actionCount = 9;

// The SDK's name of the action ("bcmFieldActionDrop").
char const* actionName( Action action );

// One action as added to an entry.
struct ActionRecord {
   Action action;
   U32 param0;
   U32 param1;
   bool operator==( ActionRecord const& o ) const {
      return action == o.action && param0 == o.param0 && param1 == o.param1;
   }
};

}  // namespace Chip
