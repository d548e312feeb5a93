// Static and twice NAT entries as the chip receives them: the exact calls of each entry
// (qualifiers, actions, priority, installation) in the journal, and the entries the chip
// then holds.

#include "NatJournalLines.h"

namespace {

using namespace NatTest;

constexpr U32 uid = caseUid;
constexpr U16 mcastUid = caseMcastUid;

std::vector<Case> sourceCases() {
   Oro::NatHwKey const snat =
       natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) );
   Oro::NatHwKey const snapt =
       natKey( Key::staticSrcNat, at( "10.0.0.1", 1024 ), at( "1.1.1.1", 2048 ) );
   Oro::NatHwKey const snatAcl = natKey( Key::staticSrcNat, at( "10.0.0.1" ),
                                         at( "1.1.1.1" ), {}, {}, 0, /*aclId*/ 9 );
   Oro::NatHwKey const twice =
       natKey( Key::twiceNatSrc, at( "10.0.0.1", 1000 ), at( "1.1.1.1", 2000 ),
               at( "20.0.0.1", 80 ), at( "30.0.0.1", 8080 ) );
   std::string const snatText = "static SNAT  10.0.0.1 -> 1.1.1.1 ";
   std::string const twiceNat = "twice NAT  10.0.0.1 20.0.0.1 -> 1.1.1.1 30.0.0.1 ";
   std::string const twiceNapt =
       "twice NAPT  10.0.0.1:1000 20.0.0.1:80 -> 1.1.1.1:2000 30.0.0.1:8080 ";
   Lines const twiceForward = { action( "CopyToCpuCancel" ), action( "DropCancel" ),
                                l3Switch( 100005 ) };
   return {
       { "StaticSnatMatchesTheOldSourceOnly",
         snat,
         Data(),
         false,
         { { { snatText, Lines{ srcIp( "10.0.0.1" ), extractionCtrl( 20 ),
                                opaqueObject1( uid ) } } } } },
       // The L4 source port is matched, but without a new port the entry stays SNAT
       // and needs no fragment entry.
       { "StaticSnatWithAnOldPortOnly",
         natKey( Key::staticSrcNat, at( "10.0.0.1", 1024 ), at( "1.1.1.1" ) ),
         Data().protocol( 17 ),
         true,
         { { { snatText, Lines{ srcIp( "10.0.0.1" ), l4SrcPort( 1024 ), ipProtocol( 17 ),
                                extractionCtrl( 20 ), opaqueObject1( uid ) } } } } },
       { "StaticSnaptAndItsFragmentEntry",
         snapt,
         Data().protocol( 6 ),
         true,
         { { { "static SNAPT  10.0.0.1:1024 -> 1.1.1.1:2048 ",
               Lines{ srcIp( "10.0.0.1" ), l4SrcPort( 1024 ), ipProtocol( 6 ),
                      extractionCtrl( 21 ), opaqueObject1( uid ) } },
             { snatText, Lines{ srcIp( "10.0.0.1" ), ipFragNotFirst(), ipProtocol( 6 ),
                                extractionCtrl( 20 ), opaqueObject1( uid ) } } } } },
       { "StaticSnaptWithoutFragmentHandling",
         snapt,
         Data(),
         false,
         { { { "static SNAPT  10.0.0.1:1024 -> 1.1.1.1:2048 ",
               Lines{ srcIp( "10.0.0.1" ), l4SrcPort( 1024 ), extractionCtrl( 21 ),
                      opaqueObject1( uid ) } } } } },
       // ACL sharing wins over the filter address.
       { "StaticSnatSharingTheAclMatchesTheAclId",
         snatAcl,
         Data().aclSharing().filter( "192.168.0.0", 16 ),
         false,
         { { { snatText, Lines{ srcIp( "10.0.0.1" ), aclIdQualifier( 9 ),
                                extractionCtrl( 20 ), opaqueObject1( uid ) } } } } },
       { "StaticSnatSharingWithoutAclIdMatchesTheFilter",
         snat,
         Data().aclSharing().filter( "192.168.0.0", 16 ),
         false,
         { { { snatText,
               Lines{ srcIp( "10.0.0.1" ),
                      qualify( "DstIp", hostOrder( "192.168.0.0" ), 0xffff0000u ),
                      extractionCtrl( 20 ), opaqueObject1( uid ) } } } } },
       { "StaticSnatFilterWinsOverTheMulticastRange",
         snatAcl,
         Data().filter( "172.16.0.0", 12 ).multicast( 0 ),
         false,
         { { { "static SNAT (multicast) 10.0.0.1 -> 1.1.1.1 ",
               Lines{ srcIp( "10.0.0.1" ),
                      qualify( "DstIp", hostOrder( "172.16.0.0" ), 0xfff00000u ),
                      extractionCtrl( 24 ), opaqueObject1( mcastUid ) } } } } },
       { "StaticSnatMulticastMatchesTheMulticastRange",
         snapt,
         Data().multicast( 33 ),
         true,
         { { { "static SNAPT (multicast) 10.0.0.1:1024 -> 1.1.1.1:2048 ",
               Lines{ srcIp( "10.0.0.1" ), l4SrcPort( 1024 ), dstIpMulticast(),
                      redirectIpmc( 33 ), extractionCtrl( 24 ),
                      opaqueObject1( mcastUid ) } },
             { "static SNAT (multicast) 10.0.0.1 -> 1.1.1.1 ",
               Lines{ srcIp( "10.0.0.1" ), dstIpMulticast(), ipFragNotFirst(),
                      redirectIpmc( 33 ), extractionCtrl( 24 ),
                      opaqueObject1( mcastUid ) } } } } },
       { "TwiceSourceSideNaptAndItsFragmentEntry",
         twice,
         Data().nextHop( 5 ).protocol( 17 ),
         true,
         { { { twiceNapt, Lines{ srcIp( "10.0.0.1" ), l4SrcPort( 1000 ),
                                 dstIp( "20.0.0.1" ), l4DstPort( 80 ) } +
                              twiceForward +
                              Lines{ ipProtocol( 17 ), extractionCtrl( 23 ),
                                     opaqueObject1( uid ) } },
             { twiceNat, Lines{ srcIp( "10.0.0.1" ), dstIp( "20.0.0.1" ) } +
                             twiceForward +
                             Lines{ ipFragNotFirst(), ipProtocol( 17 ),
                                    extractionCtrl( 22 ), opaqueObject1( uid ) } } } } },
       // The source-side twice key looks at the new destination port: a new source
       // port alone keeps 22.
       { "TwiceSourceSideWithoutNewDestinationPort",
         natKey( Key::twiceNatSrc, at( "10.0.0.1", 1000 ), at( "1.1.1.1", 2000 ),
                 at( "20.0.0.1" ), at( "30.0.0.1" ) ),
         Data(),
         false,
         { { { "twice NAPT  10.0.0.1:1000 20.0.0.1:0 -> 1.1.1.1:2000 30.0.0.1:0 ",
               Lines{ srcIp( "10.0.0.1" ), l4SrcPort( 1000 ), dstIp( "20.0.0.1" ),
                      action( "Drop" ), extractionCtrl( 22 ),
                      opaqueObject1( uid ) } } } } },
       { "TwiceSourceSideWithOnlyANewDestinationPort",
         natKey( Key::twiceNatSrc, at( "10.0.0.1" ), at( "1.1.1.1" ), at( "20.0.0.1" ),
                 at( "30.0.0.1", 8080 ) ),
         Data().nextHop( ~U64( 0 ) ),
         true,
         { { { twiceNat, Lines{ srcIp( "10.0.0.1" ), dstIp( "20.0.0.1" ),
                                extractionCtrl( 23 ), opaqueObject1( uid ) } } } } },
       { "TwiceSourceSideMulticastWithoutNextHop",
         natKey( Key::twiceNatSrc, at( "10.0.0.1" ), at( "1.1.1.1" ), at( "239.1.1.1" ),
                 at( "239.2.2.2" ) ),
         Data().multicast( 12 ),
         false,
         { { { "twice NAT (multicast) 10.0.0.1 239.1.1.1 -> 1.1.1.1 239.2.2.2 ",
               Lines{ srcIp( "10.0.0.1" ), dstIp( "239.1.1.1" ),
                      action( "CopyToCpuCancel" ), action( "DropCancel" ),
                      redirectIpmc( 12 ), extractionCtrl( 24 ),
                      opaqueObject1( mcastUid ) } } } } },
       { "TwiceSourceSideMulticastWithAllOnesNextHop",
         natKey( Key::twiceNatSrc, at( "10.0.0.1" ), at( "1.1.1.1" ), at( "239.1.1.1" ),
                 at( "239.2.2.2" ) ),
         Data().multicast( 0 ).nextHop( ~U64( 0 ) ),
         false,
         { { { "twice NAT (multicast) 10.0.0.1 239.1.1.1 -> 1.1.1.1 239.2.2.2 ",
               Lines{ srcIp( "10.0.0.1" ), dstIp( "239.1.1.1" ),
                      action( "CopyToCpuCancel" ), action( "DropCancel" ),
                      extractionCtrl( 24 ), opaqueObject1( mcastUid ) } } } } },
       { "TwiceSourceSideMultipathNextHop",
         natKey( Key::twiceNatSrc, at( "10.0.0.1" ), at( "1.1.1.1" ), at( "20.0.0.1" ),
                 at( "30.0.0.1" ) ),
         Data().nextHop( 0x08000003 ),
         false,
         { { { twiceNat, Lines{ srcIp( "10.0.0.1" ), dstIp( "20.0.0.1" ),
                                action( "CopyToCpuCancel" ), action( "DropCancel" ),
                                l3Switch( 200003 ), extractionCtrl( 22 ),
                                opaqueObject1( uid ) } } } } },
   };
}

std::vector<Case> destinationCases() {
   Oro::NatHwKey const dnat =
       natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) );
   Oro::NatHwKey const dnapt =
       natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1", 80 ), at( "10.0.0.1", 8080 ) );
   auto dnatText = []( std::string const& prefix ) {
      return "static DNAT " + prefix + " 1.1.1.1 -> 10.0.0.1 ";
   };
   // A unicast static DNAT entry of one VLAN, forwarded to next hop 100005.
   auto dnatEntry = [&]( U16 vlan ) {
      return Entry{ dnatText( "vlan " + std::to_string( vlan ) ),
                    Lines{ l3Ingress( vlan ), dstIp( "1.1.1.1" ), extractionCtrl( 16 ),
                           opaqueObject1( uid ), action( "CopyToCpuCancel" ),
                           action( "DropCancel" ), l3Switch( 100005 ) } };
   };
   // A multicast egress entry of a DNAT key towards `dst`, group 5, no next hop.
   auto mcastEgress = [&]( char const* dst, bool rangeFilter ) {
      Oro::NatHwKey key =
          natKey( Key::staticDstNat, {}, {}, at( dst ), at( "10.0.0.1" ) );
      Lines calls;
      if ( rangeFilter ) {
         calls.push_back( srcIpMulticast() );
      }
      calls = calls + Lines{ dstIp( dst ),
                             redirectIpmc( 5 ),
                             extractionCtrl( 24 ),
                             opaqueObject1( mcastUid ),
                             action( "CopyToCpuCancel" ),
                             action( "DropCancel" ) };
      return Case{
          std::string( "StaticDnatMulticastEgressTo" ) + ( rangeFilter     ? "Octet31"
                                                           : dst[0] == '3' ? "Octet32"
                                                                           : "Octet239" ),
          key,
          Data().vlans( { 10 } ).multicast( 5 ),
          false,
          { { { "static DNAT vlan 10 " + std::string( dst ) + " -> 10.0.0.1 ",
                calls } } } };
   };
   Oro::NatHwKey const twiceDst =
       natKey( Key::twiceNatDst, at( "10.0.0.1", 1000 ), at( "1.1.1.1" ),
               at( "20.0.0.1", 80 ), at( "30.0.0.1", 8080 ) );
   return {
       { "StaticDnatOneEntryPerVlanInTheDataOrder",
         dnat,
         Data().vlans( { 20, 10 } ).nextHop( 5 ),
         false,
         { { dnatEntry( 20 ) }, { dnatEntry( 10 ) } } },
       { "StaticDnaptAndItsFragmentEntry",
         dnapt,
         Data().vlans( { 10 } ).protocol( 6 ).nextHop( 0x08000003 ),
         true,
         { { { "static DNAPT vlan 10 1.1.1.1:80 -> 10.0.0.1:8080 ",
               Lines{ l3Ingress( 10 ), dstIp( "1.1.1.1" ), l4DstPort( 80 ),
                      ipProtocol( 6 ), extractionCtrl( 17 ), opaqueObject1( uid ),
                      action( "CopyToCpuCancel" ), action( "DropCancel" ),
                      l3Switch( 200003 ) } },
             { dnatText( "vlan 10" ),
               Lines{ l3Ingress( 10 ), dstIp( "1.1.1.1" ), ipFragNotFirst(),
                      ipProtocol( 6 ), extractionCtrl( 16 ), opaqueObject1( uid ),
                      action( "CopyToCpuCancel" ), action( "DropCancel" ),
                      l3Switch( 200003 ) } } } } },
       { "StaticDnatSharingTheAclMatchesTheAclId",
         natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ), 0, 9 ),
         Data().vlans( { 10 } ).aclSharing().filter( "192.168.0.0", 16 ),
         false,
         { { { dnatText( "vlan 10" ),
               Lines{ l3Ingress( 10 ), aclIdQualifier( 9 ), dstIp( "1.1.1.1" ),
                      extractionCtrl( 16 ), opaqueObject1( uid ),
                      action( "CopyToCpuCancel" ), action( "Drop" ) } } } } },
       { "StaticDnatFilterMatchesTheSource",
         dnat,
         Data().vlans( { 10 } ).filter( "192.168.0.0", 16 ).nextHop( ~U64( 0 ) ),
         false,
         { { { dnatText( "vlan 10" ),
               Lines{ l3Ingress( 10 ),
                      qualify( "SrcIp", hostOrder( "192.168.0.0" ), 0xffff0000u ),
                      dstIp( "1.1.1.1" ), extractionCtrl( 16 ), opaqueObject1( uid ),
                      action( "CopyToCpuCancel" ) } } } } },
       mcastEgress( "31.1.1.1", true ),
       mcastEgress( "32.1.1.1", false ),
       mcastEgress( "239.1.1.1", false ),
       // Multicast at ingress matches the VLAN; the VLAN replaces "(multicast)".
       { "StaticDnatMulticastIngress",
         dnat,
         Data().vlans( { 7 } ).multicast( 0, true ).nextHop( ~U64( 0 ) ),
         false,
         { { { dnatText( "vlan 7" ),
               Lines{ l3Ingress( 7 ), srcIpMulticast(), dstIp( "1.1.1.1" ),
                      extractionCtrl( 24 ), opaqueObject1( mcastUid ),
                      action( "CopyToCpuCancel" ), action( "DropCancel" ) } } } } },
       // The destination-side twice key looks at the new source port.
       { "TwiceDestinationSideWithoutNewSourcePort",
         twiceDst,
         Data().vlans( { 10 } ).nextHop( 5 ),
         true,
         { { { "twice NAPT vlan 10 10.0.0.1:1000 20.0.0.1:80 -> 1.1.1.1:0 30.0.0.1:8080 ",
               Lines{ l3Ingress( 10 ), srcIp( "10.0.0.1" ), l4SrcPort( 1000 ),
                      dstIp( "20.0.0.1" ), l4DstPort( 80 ), extractionCtrl( 18 ),
                      opaqueObject1( uid ), action( "CopyToCpuCancel" ),
                      action( "DropCancel" ), l3Switch( 100005 ) } },
             { "twice NAT vlan 10 10.0.0.1 20.0.0.1 -> 1.1.1.1 30.0.0.1 ",
               Lines{ l3Ingress( 10 ), srcIp( "10.0.0.1" ), dstIp( "20.0.0.1" ),
                      ipFragNotFirst(), extractionCtrl( 18 ), opaqueObject1( uid ),
                      action( "CopyToCpuCancel" ), action( "DropCancel" ),
                      l3Switch( 100005 ) } } } } },
       // The next-hop index is the low word of the 64-bit next hop.
       { "StaticDnatNextHopFromTheLowWord",
         dnat,
         Data().vlans( { 10 } ).nextHop( 0x500000007ull ),
         false,
         { { { dnatText( "vlan 10" ),
               Lines{ l3Ingress( 10 ), dstIp( "1.1.1.1" ), extractionCtrl( 16 ),
                      opaqueObject1( uid ), action( "CopyToCpuCancel" ),
                      action( "DropCancel" ), l3Switch( 100007 ) } } } } },
       // A new source port alone asks for a fragment entry; both entries stay DNAT (16).
       { "StaticDnatWithOnlyANewSourcePort",
         natKey( Key::staticDstNat, {}, at( "0.0.0.0", 99 ), at( "1.1.1.1" ),
                 at( "10.0.0.1" ) ),
         Data().vlans( { 10 } ).nextHop( 1 ),
         true,
         { { { "static DNAPT vlan 10 1.1.1.1:0 -> 10.0.0.1:0 ",
               Lines{ l3Ingress( 10 ), dstIp( "1.1.1.1" ), extractionCtrl( 16 ),
                      opaqueObject1( uid ), action( "CopyToCpuCancel" ),
                      action( "DropCancel" ), l3Switch( 100001 ) } },
             { dnatText( "vlan 10" ),
               Lines{ l3Ingress( 10 ), dstIp( "1.1.1.1" ), ipFragNotFirst(),
                      extractionCtrl( 16 ), opaqueObject1( uid ),
                      action( "CopyToCpuCancel" ), action( "DropCancel" ),
                      l3Switch( 100001 ) } } } } },
       // The multicast range filter is for static keys only.
       { "TwiceDestinationSideMulticastEgress",
         natKey( Key::twiceNatDst, at( "10.0.0.1" ), at( "1.1.1.1" ), at( "20.0.0.1" ),
                 at( "239.2.2.2" ) ),
         Data().vlans( { 10 } ).multicast( 6 ),
         false,
         { { { "twice NAT vlan 10 10.0.0.1 20.0.0.1 -> 1.1.1.1 239.2.2.2 ",
               Lines{ srcIp( "10.0.0.1" ), dstIp( "20.0.0.1" ), redirectIpmc( 6 ),
                      extractionCtrl( 24 ), opaqueObject1( mcastUid ),
                      action( "CopyToCpuCancel" ), action( "DropCancel" ) } } } } },
       { "TwiceDestinationSideWithNewSourcePort",
         natKey( Key::twiceNatDst, at( "10.0.0.1" ), at( "1.1.1.1", 2000 ),
                 at( "20.0.0.1" ), at( "30.0.0.1" ) ),
         Data().vlans( { 10 } ).protocol( 6 ),
         false,
         { { { "twice NAT vlan 10 10.0.0.1 20.0.0.1 -> 1.1.1.1 30.0.0.1 ",
               Lines{ l3Ingress( 10 ), srcIp( "10.0.0.1" ), dstIp( "20.0.0.1" ),
                      ipProtocol( 6 ), extractionCtrl( 19 ), opaqueObject1( uid ),
                      action( "CopyToCpuCancel" ), action( "Drop" ) } } } } },
   };
}

TEST_P( NatEntryProgramming, JournalAndChipHoldExactlyTheEntriesOfTheKey ) {
   Case const& c = GetParam();
   nat.fragmentEnabled = c.fragments;
   nat.addrOnlyMode = c.addrOnlyMode;
   start();
   std::size_t const from = mark();
   rule( uid, c.key, c.data, { 1 }, mcastUid );

   EXPECT_EQ( entryCalls( from ), expectedJournal( c ) );
   for ( int unit : unitsFrom( from ) ) {
      EXPECT_EQ( unit, 1 );
   }
   ASSERT_EQ( answers.size(), 1u );
   EXPECT_EQ( answers[0].result, Result::done );

   // The chip holds each entry installed, in the NAT group, at the highest priority,
   // with the description and the actions it was given.
   std::vector<U32> const ids = allocated( from );
   std::vector<Entry> entries;
   for ( auto const& group : c.vlans ) {
      entries.insert( entries.end(), group.begin(), group.end() );
   }
   ASSERT_EQ( ids.size(), entries.size() );
   EXPECT_EQ( chipEntries(), entries.size() );
   for ( std::size_t i = 0; i < ids.size(); ++i ) {
      Chip::FpEntry const* e = chipEntry( ids[i] );
      ASSERT_TRUE( e ) << ids[i];
      EXPECT_TRUE( e->installed() );
      EXPECT_EQ( e->group(), 160u );
      EXPECT_EQ( e->priority(), 0x7fffffff );
      EXPECT_EQ( e->description(), entries[i].description );
      EXPECT_EQ( chipActions( ids[i] ), actionsOf( entries[i].calls ) );
   }
}

INSTANTIATE_TEST_SUITE_P( SourceSide, NatEntryProgramming,
                          ::testing::ValuesIn( sourceCases() ),
                          []( ::testing::TestParamInfo<Case> const& info ) {
                             return info.param.name;
                          } );
INSTANTIATE_TEST_SUITE_P( DestinationSide, NatEntryProgramming,
                          ::testing::ValuesIn( destinationCases() ),
                          []( ::testing::TestParamInfo<Case> const& info ) {
                             return info.param.name;
                          } );

}  // namespace

namespace {

// --- Broken expectations and failing SDK calls stop the agent --------------------------
// (FaultsTest.cpp plays more failing calls through natsim: the static source qualifier,
// the action removal of a reinstall, memories, registers and switch controls.)

class NatProgramDeathTest : public NatProgramFixture {
protected:
   void SetUp() override { GTEST_FLAG_SET( death_test_style, "threadsafe" ); }
};

TEST_F( NatProgramDeathTest, AUnicastDestinationEntryWithoutVlanStops ) {
   start();
   EXPECT_DEATH(
       rule( 5, natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) ),
             Data().vlans( { 0 } ) ),
       assertionFailure( "vlanId" ) );
}

// A source-side key is programmed without VLAN, so multicast at ingress cannot be.
TEST_F( NatProgramDeathTest, AMulticastIngressSourceEntryStops ) {
   start();
   EXPECT_DEATH( rule( 5, natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) ),
                       Data().multicast( 3, true ), { 1 }, 4 ),
                 assertionFailure(
                     "vlanId && \"Missing vlanId for multicast ingress SNAT/Twice\"" ) );
}

TEST_F( NatProgramDeathTest, ADynamicDestinationEntryWithoutVlanStops ) {
   start();
   EXPECT_DEATH(
       rule( 5, natKey( Key::dynamicDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) ),
             Data().vlans( { 0 } ) ),
       assertionFailure( "shadowData0.vlanId( 0 )" ) );
}

TEST_F( NatProgramDeathTest, KeyTypesWithoutBranchStop ) {
   start();
   U32 const id =
       platform->tcamManager().unboundedEntryManager( 160 )->getEntry( 1, "test", {} );
   Oro::NatHwData const data = Data().vlans( { 10 } );
   for ( Key::NatKeyType type : { Key::natKeyTypeNone, Key::NatKeyType( 7 ) } ) {
      Oro::NatHwKey const key = natKey( type, at( "10.0.0.1" ), at( "1.1.1.1" ) );
      EXPECT_DEATH(
          worker()->doProgramEntry( id, false, false, key, data, key, data, 10, 5 ),
          assertionFailure( "0 && \"Unsupported NAT configuration\"" ) )
          << "key type " << type;
   }
}

// A multicast entry carries its multicast uid; a row without one is the uid's range
// error, which nothing in the agent catches.
TEST_F( NatProgramDeathTest, AMulticastRowWithoutMulticastUidIsTheUidRangeError ) {
   start();
   auto commit = [this] {
      rule( 5, natKey( Key::staticDstNat, {}, {}, at( "239.1.1.1" ), at( "239.2.2.2" ) ),
            Data().vlans( { 10 } ).multicast( 3 ), { 1 }, 0 );
   };
   EXPECT_DEATH(
       stopOnRangeError( commit ),
       literal( "range error: Uid::value < Uid::min or > Uid::max not allowed" ) );
}

struct SdkFailureCase {
   char const* name;
   char const* call;  // the SDK function that fails
   U32 nth;           // its nth call of the commit
   int const Shim::Sdk::*rc;
   char const* errorText;
   Oro::NatHwKey key;
   Oro::NatHwData data;
   char const* file;
   char const* callText;
};

std::vector<SdkFailureCase> sdkFailureCases() {
   Oro::NatHwKey const dnat =
       natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) );
   Oro::NatHwKey const dyn =
       natKey( Key::dynamicSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) );
   Oro::NatHwData const vlan = Data().vlans( { 10 } ).nextHop( 5 );
   return {
       { "StaticDestinationAction", "bcm_field_action_add", 4,
         &Shim::Sdk::BCM_E_NOT_FOUND, "Entry not found", dnat, vlan, "NatEntryRecipe.cpp",
         "bcm_field_action_add( unit(), entryId, bcmFieldActionDropCancel, 0, 0 )" },
       { "DynamicTcpControl",
         "bcm_field_qualify_TcpControl",
         1,
         &Shim::Sdk::BCM_E_INTERNAL,
         "Internal error",
         dyn,
         {},
         "NatEntryRecipe.cpp",
         "bcm_field_qualify_TcpControl( unit(), entryId, 0, TCAM_FIELD_TCP_CONTROL_MASK "
         ")" },
       { "DynamicOpaqueObject",
         "bcm_field_action_add",
         1,
         &Shim::Sdk::BCM_E_RESOURCE,
         "No resources for operation",
         dyn,
         {},
         "NatEntryRecipe.cpp",
         "bcm_field_action_add( unit(), entryId, bcmFieldActionAssignOpaqueObject1, uid, "
         "0 "
         ")" },
   };
}

void PrintTo( SdkFailureCase const& c, std::ostream* os ) {
   *os << c.name;
}

class NatSdkFailureDeathTest : public NatProgramFixture,
                               public ::testing::WithParamInterface<SdkFailureCase> {
protected:
   void SetUp() override { GTEST_FLAG_SET( death_test_style, "threadsafe" ); }
};

TEST_P( NatSdkFailureDeathTest, ANegativeCodeIsReportedWithTheCallTextAndStops ) {
   SdkFailureCase const& c = GetParam();
   start();
   int const rc = Shim::sdk_->*c.rc;
   ASSERT_STREQ( Shim::sdk_->bcm_errmsg( rc ), c.errorText );
   Shim::sdk_->failureIs( c.call, rc, c.nth );
   std::string const report =
       "(^|[ /\n])" + literal( c.file ) + ":[0-9]+ " + literal( c.callText ) +
       " API ERROR:" + literal( c.errorText ) + literal( " (rc:" ) +
       std::to_string( rc ) + "\\)\n.*" + assertionFailure( "0" );
   EXPECT_DEATH( rule( 5, c.key, c.data ), report );
}

INSTANTIATE_TEST_SUITE_P( Calls, NatSdkFailureDeathTest,
                          ::testing::ValuesIn( sdkFailureCases() ),
                          []( ::testing::TestParamInfo<SdkFailureCase> const& info ) {
                             return std::string( info.param.name );
                          } );

}  // namespace

namespace {

class NatSdkTrace : public NatProgramFixture {};

// Every successful SDK call leaves a level-4 line: its text and its code.
TEST_F( NatSdkTrace, SuccessfulCallsAreTracedWithTheirTextAndCode ) {
   start();
   TraceCapture trace( "ApiCorvane/4" );
   rule( 5, natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) ) );
   Lines const texts = {
       "bcm_field_qualify_MyStationHit( unit(), entryId, 1, 1 ) (rc:0",
       "bcm_field_qualify_SrcClassField( unit(), entryId, 0, classVfpAclDrop_ ) (rc:0",
       "bcm_field_qualify_SrcIp( unit(), entryId, hwKey.srcIpAndPortOld().ip().value(), "
       "-1 "
       ") (rc:0",
       "bcm_field_action_add( unit(), entryId, bcmFieldActionAssignExtractionCtrlId, "
       "extractionCtrlId, 0x1f ) (rc:0",
       "bcm_field_action_add( unit(), entryId, bcmFieldActionAssignOpaqueObject1, "
       "opaqueId, "
       "0 ) (rc:0" };
   ASSERT_EQ( trace.lines.size(), texts.size() );
   for ( std::size_t i = 0; i < texts.size(); ++i ) {
      EXPECT_NE( trace.lines[i].find( texts[i] ), std::string::npos ) << trace.lines[i];
      // Traced by doProgram or by one of the do* steps it is split into.
      EXPECT_EQ( trace.lines[i].rfind( "do", 0 ), 0u ) << trace.lines[i];
   }
}

}  // namespace
