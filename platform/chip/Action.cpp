#include "platform/chip/Action.h"

#include "platform/fwk/Assert.h"

namespace Chip {

namespace {

// In the order of the enumeration.
char const* const actionNames[actionCount] = {
    "bcmFieldActionDrop",
    "bcmFieldActionDropCancel",
    "bcmFieldActionCopyToCpu",
    "bcmFieldActionCopyToCpuCancel",
    "bcmFieldActionCosQCpuNew",
    "bcmFieldActionL3Switch",
    "bcmFieldActionRedirectIpmc",
    "bcmFieldActionAssignExtractionCtrlId",
    "bcmFieldActionAssignOpaqueObject1",
};

}  // namespace

char const* actionName( Action action ) {
   auto index = static_cast<unsigned>( action );
   FWK_ASSERT( index < actionCount );
   return actionNames[index];
}

}  // namespace Chip
