// Invoking an entity's operation by name.

#include <gtest/gtest.h>

#include <memory>

#include "platform/fwk/Operation.h"

namespace {

TEST( Operation, OfferedOperationsRunByNameUntilWithdrawn ) {
   int verified = 0;
   std::string error;
   {
      Fwk::OperationOffer offer( "test/worker/1" );
      offer.operationIs( "doVerify", [&] { ++verified; } );
      EXPECT_TRUE( Fwk::operationInvoke( "test/worker/1", "doVerify", &error ) );
      EXPECT_EQ( verified, 1 );
      EXPECT_EQ( Fwk::operations(),
                 std::vector<std::string>{ "test/worker/1 doVerify" } );

      EXPECT_FALSE( Fwk::operationInvoke( "test/worker/1", "doRepair", &error ) );
      EXPECT_EQ( error, "no operation \"doRepair\" at \"test/worker/1\"" );
      EXPECT_FALSE( Fwk::operationInvoke( "test/worker/10", "doVerify", &error ) );
      EXPECT_EQ( error, "no entity offers operations at \"test/worker/10\"" );
   }
   EXPECT_FALSE( Fwk::operationInvoke( "test/worker/1", "doVerify", &error ) );
   EXPECT_EQ( verified, 1 );
   EXPECT_TRUE( Fwk::operations().empty() );
}

}  // namespace
