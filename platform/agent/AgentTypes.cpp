// Registers the agent's entity types with the type factory, so that a mount creates them
// by type name with the argument vector { path }.

#include "platform/agent/TableCapacity.h"
#include "platform/fwk/TypeFactory.h"

namespace {

Fwk::TypeRegistration const tableCapacityType(
    "OroCapacity::TableCapacity", Fwk::namedEntityCreator<OroCapacity::TableCapacity>() );

}  // namespace
