// Dynamic NAT entries as the chip receives them: only what the key carries is matched,
// always an IP protocol (TCP entries with FIN, SYN and RST clear), the translation is
// handed over in opaque object 1 and an extraction-control id, and destination entries
// forward to their next hop.

#include "NatJournalLines.h"

namespace {

using namespace NatTest;

constexpr U32 uid = caseUid;

Lines const tcp = { ipProtocol( 6 ), tcpControlClear() };
Lines const udp = { ipProtocol( 17 ) };

// The actions of a source entry with extraction-control id `id`.
Lines sourceActions( U32 id ) {
   return { opaqueObject1( uid ), action( "CopyToCpuCancel" ), extractionCtrl( id ),
            action( "DropCancel" ) };
}

// The actions of a destination entry; a next-hop id of 0 leaves forwarding out.
Lines destinationActions( U32 id, U32 nextHopId ) {
   Lines out = { opaqueObject1( uid ), action( "CopyToCpuCancel" ),
                 extractionCtrl( id ) };
   if ( nextHopId ) {
      out.push_back( action( "DropCancel" ) );
      out.push_back( l3Switch( nextHopId ) );
   }
   return out;
}

// Without address-only mode, the keys that reach the chip are those with one address
// and no port.
std::vector<Case> oneAddressCases() {
   Oro::NatHwKey const snat =
       natKey( Key::dynamicSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) );
   Oro::NatHwKey const snatTcp =
       natKey( Key::dynamicSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ), {}, {}, 6 );
   Oro::NatHwKey const snatUdp =
       natKey( Key::dynamicSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ), {}, {}, 17 );
   std::string const tcpText = "dynamic SNAT tcp 10.0.0.1 -> 1.1.1.1";
   std::string const udpText = "dynamic SNAT udp 10.0.0.1 -> 1.1.1.1";
   Lines const src = Lines{ srcIp( "10.0.0.1" ) };
   return {
       { "SourceWithoutFragmentHandlingHasOneTcpEntry",
         snat,
         Data(),
         false,
         { { { tcpText, src + tcp + sourceActions( 20 ) } } } },
       // The second entry of an address-only key matches UDP and carries no IpFrag.
       { "SourceTcpEntryAndUdpSecondEntry",
         snat,
         Data(),
         true,
         { { { tcpText, src + tcp + sourceActions( 20 ) },
             { udpText, src + udp + sourceActions( 20 ) } } } },
       // Protocol 6 is written twice, then TCP control; also on the second entry.
       { "SourceOfProtocol6",
         snatTcp,
         Data(),
         true,
         { { { tcpText, src + Lines{ ipProtocol( 6 ) } + tcp + sourceActions( 20 ) },
             { udpText,
               src + Lines{ ipProtocol( 6 ) } + tcp + sourceActions( 20 ) } } } },
       // Protocol 17 with one address still gets TCP on its first entry.
       { "SourceOfProtocol17WithOneAddress",
         snatUdp,
         Data(),
         true,
         { { { tcpText, src + Lines{ ipProtocol( 17 ) } + tcp + sourceActions( 20 ) },
             { udpText,
               src + Lines{ ipProtocol( 17 ) } + udp + sourceActions( 20 ) } } } },
       // No L3Ingress: the VLAN only names the entry.
       { "DestinationOnEachVlan",
         natKey( Key::dynamicDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) ),
         Data().vlans( { 3, 4 } ).nextHop( 5 ),
         true,
         { { { "dynamic DNAT tcp vlan 3 1.1.1.1 -> 10.0.0.1",
               Lines{ dstIp( "1.1.1.1" ) } + tcp + destinationActions( 16, 100005 ) },
             { "dynamic DNAT udp vlan 3 1.1.1.1 -> 10.0.0.1",
               Lines{ dstIp( "1.1.1.1" ) } + udp + destinationActions( 16, 100005 ) } },
           { { "dynamic DNAT tcp vlan 4 1.1.1.1 -> 10.0.0.1",
               Lines{ dstIp( "1.1.1.1" ) } + tcp + destinationActions( 16, 100005 ) },
             { "dynamic DNAT udp vlan 4 1.1.1.1 -> 10.0.0.1",
               Lines{ dstIp( "1.1.1.1" ) } + udp +
                   destinationActions( 16, 100005 ) } } } },
   };
}

Case addrOnly( Case c ) {
   c.addrOnlyMode = true;
   return c;
}

// In address-only mode, the keys that reach the chip carry both addresses.
std::vector<Case> twoAddressCases() {
   Oro::NatHwKey const snapt =
       natKey( Key::dynamicSrcNat, at( "10.0.0.1", 1024 ), at( "1.1.1.1", 2048 ),
               at( "8.8.8.8", 53 ), at( "8.8.8.8", 53 ), 17 );
   Oro::NatHwKey const dnapt =
       natKey( Key::dynamicDstNat, at( "20.0.0.1" ), at( "20.0.0.1" ),
               at( "1.1.1.1", 80 ), at( "10.0.0.1", 8080 ) );
   Lines const dnaptQualifiers = Lines{ srcIp( "20.0.0.1" ), dstIp( "1.1.1.1" ) };
   auto dnaptCase = []( std::string name, U64 nextHop, U32 nextHopId,
                        Lines const& qualifiers ) {
      return addrOnly( { name,
                         natKey( Key::dynamicDstNat, at( "20.0.0.1" ), at( "20.0.0.1" ),
                                 at( "1.1.1.1", 80 ), at( "10.0.0.1", 8080 ) ),
                         Data().vlans( { 10 } ).nextHop( nextHop ),
                         false,
                         { { { "dynamic DNAPT vlan 10 1.1.1.1:80 -> 10.0.0.1:8080",
                               qualifiers + Lines{ l4DstPort( 80 ) } + udp +
                                   destinationActions( 17, nextHopId ) } } } } );
   };
   return {
       // The key's protocol comes before the ports; both addresses make it UDP.
       addrOnly( { "SourceWithPortsAndItsFragmentEntry",
                   snapt,
                   Data(),
                   true,
                   { { { "dynamic SNAPT 10.0.0.1:1024 -> 1.1.1.1:2048",
                         Lines{ srcIp( "10.0.0.1" ), dstIp( "8.8.8.8" ), ipProtocol( 17 ),
                                l4SrcPort( 1024 ), l4DstPort( 53 ) } +
                             udp + sourceActions( 21 ) },
                       { "dynamic SNAPT 10.0.0.1 -> 1.1.1.1",
                         Lines{ srcIp( "10.0.0.1" ), dstIp( "8.8.8.8" ), ipProtocol( 17 ),
                                ipFragNotFirst() } +
                             udp + sourceActions( 20 ) } } } } ),
       addrOnly( { "SourceWithoutSourcePort",
                   natKey( Key::dynamicSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ),
                           at( "8.8.8.8", 53 ), at( "8.8.8.8", 53 ), 6 ),
                   Data(),
                   false,
                   { { { "dynamic SNAPT 10.0.0.1:0 -> 1.1.1.1:0",
                         Lines{ srcIp( "10.0.0.1" ), dstIp( "8.8.8.8" ), ipProtocol( 6 ),
                                l4DstPort( 53 ) } +
                             tcp + sourceActions( 20 ) } } } } ),
       addrOnly( { "DestinationWithPortAndItsFragmentEntry",
                   dnapt,
                   Data().vlans( { 10 } ).nextHop( 5 ),
                   true,
                   { { { "dynamic DNAPT vlan 10 1.1.1.1:80 -> 10.0.0.1:8080",
                         dnaptQualifiers + Lines{ l4DstPort( 80 ) } + udp +
                             destinationActions( 17, 100005 ) },
                       { "dynamic DNAPT vlan 10 1.1.1.1 -> 10.0.0.1",
                         dnaptQualifiers + Lines{ ipFragNotFirst() } + udp +
                             destinationActions( 16, 100005 ) } } } } ),
       dnaptCase( "DestinationToAMultipathNextHop", 0x08000003, 200003, dnaptQualifiers ),
       dnaptCase( "DestinationWithoutNextHop", 0, 0, dnaptQualifiers ),
       dnaptCase( "DestinationWithAllOnesNextHop", ~U64( 0 ), 0, dnaptQualifiers ),
       addrOnly( { "DestinationWithOnlyASourcePort",
                   natKey( Key::dynamicDstNat, at( "20.0.0.1", 5000 ),
                           at( "20.0.0.1", 5000 ), at( "1.1.1.1" ), at( "10.0.0.1" ) ),
                   Data().vlans( { 10 } ).nextHop( 7 ),
                   false,
                   { { { "dynamic DNAPT vlan 10 1.1.1.1:0 -> 10.0.0.1:0",
                         dnaptQualifiers + Lines{ l4SrcPort( 5000 ) } + udp +
                             destinationActions( 16, 100007 ) } } } } ),
   };
}

auto const caseName = []( ::testing::TestParamInfo<Case> const& info ) {
   return info.param.name;
};

INSTANTIATE_TEST_SUITE_P( DynamicOneAddress, NatEntryProgramming,
                          ::testing::ValuesIn( oneAddressCases() ), caseName );
INSTANTIATE_TEST_SUITE_P( DynamicTwoAddresses, NatEntryProgramming,
                          ::testing::ValuesIn( twoAddressCases() ), caseName );

class NatDynamicProgram : public NatProgramFixture {};

TEST_F( NatDynamicProgram, Protocol17WithOneAddressEndsUpMatchingTcpInTheChip ) {
   start();
   std::size_t const from = mark();
   rule( uid,
         natKey( Key::dynamicSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ), {}, {}, 17 ) );
   std::vector<U32> const ids = allocated( from );
   ASSERT_EQ( ids.size(), 1u );
   Chip::FpEntry const* e = chipEntry( ids[0] );
   ASSERT_TRUE( e );
   EXPECT_EQ( e->qualifier( Chip::Qualifier::IpProtocol ).data, 6u );
   EXPECT_EQ( e->qualifier( Chip::Qualifier::TcpControl ).mask, 7u );
   EXPECT_EQ( chipQualifiers( ids[0] ), ( Lines{ "MyStationHit", "SrcClassField", "SrcIp",
                                                 "IpProtocol", "TcpControl" } ) );
}

}  // namespace
