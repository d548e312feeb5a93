#include "platform/nat/XactSluiceDir.h"

#include <ostream>

namespace Xact {

std::ostream& operator<<( std::ostream& os, XactSluiceKey const& key ) {
   return os << key.uid();
}

// Defined here so that the types' vtables and type information live in the platform
// library only, and type checks agree between the host and the plug-ins.
XactSluiceConfigDir::~XactSluiceConfigDir() = default;
XactSluiceStatusDir::~XactSluiceStatusDir() = default;

}  // namespace Xact
