// The NAT entity types, created by name through the type factory as a mount does.

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "platform/fwk/TypeFactory.h"
#include "platform/nat/CorvaneCommonSmData.h"
#include "platform/nat/HwKeyUidTable.h"
#include "platform/nat/McastTranslationMode.h"
#include "platform/nat/ModSetDir.h"
#include "platform/nat/NatCapability.h"
#include "platform/nat/NatHwShadow.h"
#include "platform/nat/NatTrapConfig.h"
#include "platform/nat/TcamHitCountStatus.h"
#include "platform/nat/UidHwKeyTable.h"
#include "platform/nat/XactSluiceDir.h"

namespace {

// Whether `e` is of type T.
template <class T>
bool isA( Fwk::Entity::Ptr const& e ) {
   return Fwk::ptr_cast<T>( e ) != nullptr;
}

TEST( NatTypesTest, EachTypeNameCreatesItsTypeNamedByThePath ) {
   struct Case {
      char const* typeName;
      std::function<bool( Fwk::Entity::Ptr const& )> isRightType;
   } const cases[] = {
       { "Oro::NatHwShadow", isA<Oro::NatHwShadow> },
       { "CorvaneNat::HwKeyUidTable", isA<CorvaneNat::HwKeyUidTable> },
       { "CorvaneNat::UidHwKeyTable", isA<CorvaneNat::UidHwKeyTable> },
       { "Xact::XactSluiceConfigDir", isA<Xact::XactSluiceConfigDir> },
       { "Xact::XactSluiceStatusDir", isA<Xact::XactSluiceStatusDir> },
       { "CorvaneNat::ModSetDir", isA<CorvaneNat::ModSetDir> },
       { "Ip::Nat::HwCapabilities", isA<Ip::Nat::HwCapabilities> },
       { "CorvaneNat::CapabilityConfig", isA<CorvaneNat::CapabilityConfig> },
       { "CorvaneNat::CapabilityStatus", isA<CorvaneNat::CapabilityStatus> },
       { "Ip::Nat::McastTranslationMode", isA<Ip::Nat::McastTranslationMode> },
       { "Oro::NatTrapConfig", isA<Oro::NatTrapConfig> },
       { "CorvaneNat::TcamHitCountStatus", isA<CorvaneNat::TcamHitCountStatus> },
       { "Corvane::CorvaneCommonSmData", isA<Corvane::CorvaneCommonSmData> },
   };
   Fwk::TypeFactory const& factory = Fwk::TypeFactory::instance();
   for ( auto const& c : cases ) {
      std::string const path = std::string( "test/" ) + c.typeName;
      Fwk::Entity::Ptr e = factory.create( c.typeName, { path } );
      ASSERT_TRUE( e ) << c.typeName;
      EXPECT_TRUE( c.isRightType( e ) ) << c.typeName;
      EXPECT_EQ( e->name(), path );
   }
   EXPECT_FALSE( factory.create( "Oro::NatHwShadow", {} ) ) << "no path, no entity";
   EXPECT_FALSE( factory.create( "Oro::NoSuchType", { "x" } ) );
}

}  // namespace
