// The one-line descriptions that entries carry in the TCAM entry manager (the programming
// tables check them as getEntry receives them; here every form and its checks).

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
   Oro::NatHwKey const snat = natKey( 1, at( "10.0.0.1" ), at( "1.1.1.1" ) );
   Oro::NatHwKey const snapt = natKey( 1, at( "10.0.0.1", 1024 ), at( "1.1.1.1", 2048 ) );
   Oro::NatHwKey const dnapt =
       natKey( 2, {}, {}, at( "1.1.1.1", 80 ), at( "10.0.0.1", 8080 ) );
   Oro::NatHwKey const twiceNapt =
       natKey( 3, at( "10.0.0.1", 1000 ), at( "1.1.1.1", 2000 ), at( "20.0.0.1" ),
               at( "30.0.0.1" ) );
   Oro::NatHwKey const dynSnat = natKey( 5, at( "10.0.0.1" ), at( "1.1.1.1" ) );
   Oro::NatHwKey const dynDnat = natKey( 6, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) );
   Oro::NatHwKey const dynSnapt =
       natKey( 5, at( "10.0.0.1", 1024 ), at( "1.1.1.1", 2048 ), at( "8.8.8.8", 53 ),
               at( "8.8.8.8", 53 ) );
   Oro::NatHwKey const dynDnapt = natKey( 6, at( "20.0.0.1" ), at( "20.0.0.1" ),
                                          at( "1.1.1.1", 80 ), at( "10.0.0.1", 8080 ) );
   return {
       // Static and twice forms end in a blank (the empty suffix).
       { "StaticSnatOnAVlan", false, snat, 5, false, false,
         "static SNAT vlan 5 10.0.0.1 -> 1.1.1.1 " },
       { "StaticSnatWithoutPrefix", false, snat, 0, false, false,
         "static SNAT  10.0.0.1 -> 1.1.1.1 " },
       { "StaticSnapt", false, snapt, 0, false, false,
         "static SNAPT  10.0.0.1:1024 -> 1.1.1.1:2048 " },
       { "StaticSnaptFragmentIsSnat", false, snapt, 0, true, false,
         "static SNAT  10.0.0.1 -> 1.1.1.1 " },
       { "StaticSnatWithANewDestinationPortIsSnapt", false,
         natKey( 1, at( "10.0.0.1" ), at( "1.1.1.1" ), {}, at( "0.0.0.0", 99 ) ), 0,
         false, false, "static SNAPT  10.0.0.1:0 -> 1.1.1.1:0 " },
       { "StaticSnatWithAnOldPortOnlyIsSnat", false,
         natKey( 1, at( "10.0.0.1", 1024 ), at( "1.1.1.1" ) ), 0, false, false,
         "static SNAT  10.0.0.1 -> 1.1.1.1 " },
       { "MulticastWithoutVlan", false, snat, 0, false, true,
         "static SNAT (multicast) 10.0.0.1 -> 1.1.1.1 " },
       { "MulticastVlanReplacesTheMulticastMark", false, snat, 7, false, true,
         "static SNAT vlan 7 10.0.0.1 -> 1.1.1.1 " },
       { "StaticDnapt", false, dnapt, 10, false, false,
         "static DNAPT vlan 10 1.1.1.1:80 -> 10.0.0.1:8080 " },
       { "StaticDnaptFragmentIsDnat", false, dnapt, 10, true, false,
         "static DNAT vlan 10 1.1.1.1 -> 10.0.0.1 " },
       { "StaticDnatWithANewSourcePortIsDnapt", false,
         natKey( 2, {}, at( "0.0.0.0", 99 ), at( "1.1.1.1" ), at( "10.0.0.1" ) ), 10,
         false, false, "static DNAPT vlan 10 1.1.1.1:0 -> 10.0.0.1:0 " },
       { "TwiceNapt", false, twiceNapt, 0, false, true,
         "twice NAPT (multicast) 10.0.0.1:1000 20.0.0.1:0 -> 1.1.1.1:2000 30.0.0.1:0 " },
       { "TwiceNaptFragmentIsNat", false, twiceNapt, 0, true, false,
         "twice NAT  10.0.0.1 20.0.0.1 -> 1.1.1.1 30.0.0.1 " },
       { "TwiceWithNewPortsOnlyIsNat", false,
         natKey( 4, at( "10.0.0.1" ), at( "1.1.1.1", 2000 ), at( "20.0.0.1" ),
                 at( "30.0.0.1", 3000 ) ),
         9, false, false, "twice NAT vlan 9 10.0.0.1 20.0.0.1 -> 1.1.1.1 30.0.0.1 " },
       // Dynamic forms have no prefix and no trailing blank.
       { "DynamicSnatTcp", false, dynSnat, 5, false, true,
         "dynamic SNAT tcp 10.0.0.1 -> 1.1.1.1" },
       { "DynamicSnatUdp", false, dynSnat, 0, true, false,
         "dynamic SNAT udp 10.0.0.1 -> 1.1.1.1" },
       { "DynamicDnatTcp", false, dynDnat, 3, false, true,
         "dynamic DNAT tcp vlan 3 1.1.1.1 -> 10.0.0.1" },
       { "DynamicDnatUdp", false, dynDnat, 3, true, false,
         "dynamic DNAT udp vlan 3 1.1.1.1 -> 10.0.0.1" },
       { "DynamicSnapt", true, dynSnapt, 0, false, false,
         "dynamic SNAPT 10.0.0.1:1024 -> 1.1.1.1:2048" },
       { "DynamicSnaptFragment", true, dynSnapt, 0, true, false,
         "dynamic SNAPT 10.0.0.1 -> 1.1.1.1" },
       { "DynamicDnapt", true, dynDnapt, 10, false, false,
         "dynamic DNAPT vlan 10 1.1.1.1:80 -> 10.0.0.1:8080" },
       { "DynamicDnaptFragment", true, dynDnapt, 10, true, true,
         "dynamic DNAPT vlan 10 1.1.1.1 -> 10.0.0.1" },
       { "KeyTypeAbove6", false, natKey( 7, at( "10.0.0.1" ), at( "1.1.1.1" ) ), 5, false,
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
                     natKey( 0, at( "10.0.0.1" ), at( "1.1.1.1" ) ), 0, false, false ),
                 assertionFailure( "false" ) );
}

TEST_F( NatDescriptionDeathTest, AnAddressOnlyKeyInAddressOnlyModeStops ) {
   nat.addrOnlyMode = true;
   start();
   EXPECT_DEATH( worker()->generateTcamEntryDescription(
                     natKey( 5, at( "10.0.0.1" ), at( "1.1.1.1" ) ), 0, false, false ),
                 assertionFailure( "!isAddrOnlyMode()" ) );
}

// Such a key passes the commit's mode tests (no zero address, no port), so the
// description's check is what stops it.
TEST_F( NatDescriptionDeathTest,
        ADynamicKeyWithBothAddressesOutsideAddressOnlyModeStops ) {
   start();
   EXPECT_DEATH( rule( 5, natKey( 5, at( "10.0.0.1" ), at( "1.1.1.1" ), at( "8.8.8.8" ),
                                  at( "8.8.8.8" ) ) ),
                 assertionFailure( "isAddrOnlyMode()" ) );
}

}  // namespace
