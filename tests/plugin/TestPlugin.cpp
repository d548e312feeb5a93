// A small plug-in for testing the host: loading registers its types, and the host
// creates its mounter by type name.

#include "platform/fwk/TypeFactory.h"

namespace {

class TestPluginMounter : public Fwk::Entity {
public:
   explicit TestPluginMounter( std::string name ) : Entity( std::move( name ) ) {}
};

Fwk::TypeRegistration mounterType( "TestPlugin::Mounter",
                                   []( std::vector<std::string> const& args ) {
                                      return Fwk::Entity::Ptr(
                                          new TestPluginMounter( args.at( 0 ) ) );
                                   } );

}  // namespace
