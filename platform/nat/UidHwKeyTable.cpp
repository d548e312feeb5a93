#include "platform/nat/UidHwKeyTable.h"

namespace CorvaneNat {

// Defined here so that the type's vtable and type information live in the platform
// library only, and type checks agree between the host and the plug-ins.
UidHwKeyTable::~UidHwKeyTable() = default;

}  // namespace CorvaneNat
