// The one-line descriptions that entries carry in the TCAM entry manager: the forms that
// the programming tables (which check each description as getEntry receives it) do not
// reach, and the checks that stop the agent.

#include "NatJournalLines.h"

namespace {

using namespace NatTest;

struct DescriptionCase {
   char const* name;
   bool addrOnlyMode;
   Oro::NatHwKey key;
   U16 vlanId;
   bool fragEntry;
   bool multicast;
   char const* description;
};

void PrintTo( DescriptionCase const& c, std::ostream* os ) {
   *os << c.name;
}

std::vector<DescriptionCase> descriptionCases() {
   Oro::NatHwKey const snat =
       natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) );
   Oro::NatHwKey const twiceNapt =
       natKey( Key::twiceNatSrc, at( "10.0.0.1", 1000 ), at( "1.1.1.1", 2000 ),
               at( "20.0.0.1" ), at( "30.0.0.1" ) );
   return {
       // Static and twice forms end in a blank (the empty suffix).
       { "StaticSnatOnAVlan", false, snat, 5, false, false,
         "static SNAT vlan 5 10.0.0.1 -> 1.1.1.1 " },
       { "StaticSnatWithANewDestinationPortIsSnapt", false,
         natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ), {},
                 at( "0.0.0.0", 99 ) ),
         0, false, false, "static SNAPT  10.0.0.1:0 -> 1.1.1.1:0 " },
       { "MulticastVlanReplacesTheMulticastMark", false, snat, 7, false, true,
         "static SNAT vlan 7 10.0.0.1 -> 1.1.1.1 " },
       { "TwiceNapt", false, twiceNapt, 0, false, true,
         "twice NAPT (multicast) 10.0.0.1:1000 20.0.0.1:0 -> 1.1.1.1:2000 30.0.0.1:0 " },
       { "TwiceWithNewPortsOnlyIsNat", false,
         natKey( Key::twiceNatDst, at( "10.0.0.1" ), at( "1.1.1.1", 2000 ),
                 at( "20.0.0.1" ), at( "30.0.0.1", 3000 ) ),
         9, false, false, "twice NAT vlan 9 10.0.0.1 20.0.0.1 -> 1.1.1.1 30.0.0.1 " },
       // A type without a form has no description.
       { "KeyTypeAbove6", false,
         natKey( Key::NatKeyType( 7 ), at( "10.0.0.1" ), at( "1.1.1.1" ) ), 5, false,
         true, "" },
   };
}

class NatDescription : public NatProgramFixture,
                       public ::testing::WithParamInterface<DescriptionCase> {};

TEST_P( NatDescription, TextOfTheEntry ) {
   DescriptionCase const& c = GetParam();
   nat.addrOnlyMode = c.addrOnlyMode;
   start();
   EXPECT_EQ( worker()->generateTcamEntryDescription( c.key, c.vlanId, c.fragEntry,
                                                      c.multicast ),
              c.description );
}

INSTANTIATE_TEST_SUITE_P( Forms, NatDescription,
                          ::testing::ValuesIn( descriptionCases() ),
                          []( ::testing::TestParamInfo<DescriptionCase> const& info ) {
                             return std::string( info.param.name );
                          } );

class NatDescriptionDeathTest : public NatProgramFixture {
protected:
   void SetUp() override { GTEST_FLAG_SET( death_test_style, "threadsafe" ); }
};

TEST_F( NatDescriptionDeathTest, AKeyWithoutTypeStops ) {
   start();
   EXPECT_DEATH( worker()->generateTcamEntryDescription(
                     natKey( Key::natKeyTypeNone, at( "10.0.0.1" ), at( "1.1.1.1" ) ), 0,
                     false, false ),
                 assertionFailure( "false" ) );
}

TEST_F( NatDescriptionDeathTest, AnAddressOnlyKeyInAddressOnlyModeStops ) {
   nat.addrOnlyMode = true;
   start();
   EXPECT_DEATH( worker()->generateTcamEntryDescription(
                     natKey( Key::dynamicSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) ), 0,
                     false, false ),
                 assertionFailure( "!isAddrOnlyMode()" ) );
}

// Such a key passes the commit's mode tests (no zero address, no port), so the
// description's check is what stops it.
TEST_F( NatDescriptionDeathTest,
        ADynamicKeyWithBothAddressesOutsideAddressOnlyModeStops ) {
   start();
   EXPECT_DEATH( rule( 5, natKey( Key::dynamicSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ),
                                  at( "8.8.8.8" ), at( "8.8.8.8" ) ) ),
                 assertionFailure( "isAddrOnlyMode()" ) );
}

}  // namespace
