#include "platform/nat/HwKeyUidTable.h"

namespace CorvaneNat {

// Defined here so that the type's vtable and type information live in the platform
// library only, and type checks agree between the host and the plug-ins.
HwKeyUidTable::~HwKeyUidTable() = default;

}  // namespace CorvaneNat
