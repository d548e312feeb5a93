// The plug-in's types, registered with the agent's type factory when the library loads.

#include "CorvaneNat/NatMounter.h"
#include "CorvaneNat/NatShowCommand.h"
#include "platform/fwk/TypeFactory.h"

namespace Corvane {

namespace {

Fwk::TypeRegistration const natMounterType(
    "Corvane::NatMounter", []( std::vector<std::string> const& args ) {
       return Fwk::Entity::Ptr( new NatMounter( args.empty() ? "natMounter" : args[0] ) );
    } );

Fwk::TypeRegistration const natCliCallbackType(
    "Corvane::NatCliCallback", []( std::vector<std::string> const& args ) {
       return Fwk::Entity::Ptr( new NatCliCallback( args.empty() ? "natCli" : args[0] ) );
    } );

}  // namespace

}  // namespace Corvane
