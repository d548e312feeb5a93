// Creating entities by type name, and the typed conversions of references to them.

#include <gtest/gtest.h>

#include "platform/fwk/TypeFactory.h"

namespace {

class Widget : public Fwk::Entity {
public:
   explicit Widget( std::string name, int size )
       : Entity( std::move( name ) ), size( size ) {}
   int const size;
};

class Gadget : public Fwk::Entity {
public:
   explicit Gadget( std::string name ) : Entity( std::move( name ) ) {}
};

Fwk::TypeRegistration widgetType( "Test::Widget",
                                  []( std::vector<std::string> const& args ) {
                                     return Fwk::Entity::Ptr( new Widget(
                                         args.at( 0 ), std::stoi( args.at( 1 ) ) ) );
                                  } );

TEST( TypeFactory, CreatesARegisteredTypeByNameWithItsArguments ) {
   auto& factory = Fwk::TypeFactory::instance();
   EXPECT_TRUE( factory.typeHas( "Test::Widget" ) );
   Fwk::Entity::Ptr made = factory.create( "Test::Widget", { "w1", "7" } );
   ASSERT_TRUE( made );
   EXPECT_EQ( made->name(), "w1" );

   Fwk::Ptr<Widget> widget = Fwk::ptr_cast<Widget>( made );
   ASSERT_TRUE( widget );
   EXPECT_EQ( widget->size, 7 );
   EXPECT_FALSE( Fwk::ptr_cast<Gadget>( made ) )
       << "a conversion to another type is null";
   Fwk::PtrConst<Widget> readOnly = widget;
   EXPECT_EQ( readOnly, widget );
   EXPECT_EQ( made->references(), 3 );

   EXPECT_FALSE( factory.create( "Test::Unknown", {} ) );
   EXPECT_FALSE( factory.typeHas( "Test::Unknown" ) );
}

TEST( TypeFactory, ARegistrationUnderTheSameNameReplacesTheCreator ) {
   auto& factory = Fwk::TypeFactory::instance();
   factory.typeIs( "Test::Replaced", []( std::vector<std::string> const& ) {
      return Fwk::Entity::Ptr( new Gadget( "first" ) );
   } );
   factory.typeIs( "Test::Replaced", []( std::vector<std::string> const& ) {
      return Fwk::Entity::Ptr( new Gadget( "second" ) );
   } );
   EXPECT_EQ( factory.create( "Test::Replaced", {} )->name(), "second" );
}

}  // namespace
