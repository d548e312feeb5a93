// What each kind of NAT entry holds and in which order its calls are made, through the
// entry recipes: one line per entry, its description and then its calls ("~" where a
// reprogramming removes the old actions). The values of the qualifiers are also checked
// on the chip by the randomized test; the journal of a whole install and reinstall is
// checked in NatCommitTest.cpp.

#include "NatTestFixture.h"

#include "CorvaneNat/NatEntryRecipe.h"

namespace {

using namespace NatTest;
using Corvane::FpCall;
using Corvane::NatEntryKind;

char const* const callNames[] = {
    "MyStationHit",  "SrcClassField", "SrcIp",      "DstIp",           "L4SrcPort",
    "L4DstPort",     "IpProtocol",    "TcpControl", "L3Ingress",       "IpFrag",
    "OpaqueObject1", "ExactMatch",    "CopyToCpu",  "CopyToCpuCancel", "Drop",
    "DropCancel",    "CosQCpuNew",    "L3Switch",   "RedirectIpmc",    "ExtractionCtrl",
    "AssignOpaque" };

// "SrcIp=10.0.0.1", "DstIp=192.168.0.0/ffff0000", "L4SrcPort=80", "L3Switch(100005)".
std::string stepText( Corvane::FpStep const& s ) {
   std::string text = callNames[unsigned( s.call )];
   if ( s.call == FpCall::qualifyMyStationHit || s.call == FpCall::qualifySrcClassField ||
        s.call == FpCall::qualifyIpFrag ) {
      return text;
   }
   if ( !Corvane::isQualifier( s.call ) ) {
      return s.value ? text + "(" + std::to_string( s.value ) + ")" : text;
   }
   if ( s.call == FpCall::qualifySrcIp || s.call == FpCall::qualifyDstIp ) {
      char mask[16];
      std::snprintf( mask, sizeof( mask ), "/%x", s.mask );
      return text + "=" + Wirel::IpAddr( s.value ).stringValue() +
             ( s.mask == 0xffffffffu ? "" : mask );
   }
   return text + "=" + std::to_string( s.value );
}

// The entries a commit makes for `key`, per VLAN the default entry then the fragment
// entry: "<description>: <calls>".
Lines entries( Oro::NatHwKey const& key, Oro::NatHwData const& data, bool fragments,
               bool addrOnly = false ) {
   Corvane::NatWorkerMode const mode{ addrOnly, fragments };
   std::vector<U16> vlans = { 0 };
   if ( Corvane::natKeySide( key.keyType() ) == Corvane::NatKeySide::destination ) {
      vlans.clear();
      for ( U32 i = 0; i < data.vlanIds(); ++i ) {
         vlans.push_back( data.vlanId( i ) );
      }
   }
   Lines out;
   for ( U16 vlan : vlans ) {
      for ( NatEntryKind kind :
            { NatEntryKind::defaultEntry, NatEntryKind::fragEntry } ) {
         if ( kind == NatEntryKind::fragEntry &&
              !Corvane::natKeyHasFragEntry( key, mode ) ) {
            continue;
         }
         auto const recipe = Corvane::natEntryRecipe( key, data, data, vlan, kind, mode,
                                                      data.multicast() ? 4 : 7 );
         EXPECT_EQ( recipe.priority(), 0x7fffffff );
         EXPECT_EQ( recipe.group(), 160u );
         // Every NAT entry starts with my station hit and "not dropped by an ACL".
         EXPECT_EQ( stepText( recipe.begin()[0] ) + " " + stepText( recipe.begin()[1] ),
                    "MyStationHit SrcClassField" );
         // "~": where a reprogramming removes the old actions.
         std::size_t const removeAll = recipe.removeAllAt();
         std::string line = recipe.description() + ":" + ( removeAll < 2 ? " ~" : "" );
         for ( std::size_t i = 2; i < recipe.size(); ++i ) {
            line += ( i == removeAll ? " ~ " : " " ) + stepText( recipe.begin()[i] );
         }
         line += removeAll == recipe.size() ? " ~" : "";
         out.push_back( line );
      }
   }
   return out;
}

struct RecipeCase {
   char const* name;
   Oro::NatHwKey key;
   Oro::NatHwData data;
   bool fragments;
   Lines expected;
   bool addrOnly = false;
};

void expectRecipes( std::vector<RecipeCase> const& cases ) {
   for ( RecipeCase const& c : cases ) {
      EXPECT_EQ( entries( c.key, c.data, c.fragments, c.addrOnly ), c.expected )
          << c.name;
   }
}

TEST( NatEntryRecipe, StaticAndTwiceSourceSide ) {
   Oro::NatHwKey const snat =
       natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) );
   Oro::NatHwKey const snapt =
       natKey( Key::staticSrcNat, at( "10.0.0.1", 1024 ), at( "1.1.1.1", 2048 ) );
   Oro::NatHwKey const snatAcl =
       natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ), {}, {}, 0, 9 );
   Oro::NatHwKey const twice =
       natKey( Key::twiceNatSrc, at( "10.0.0.1", 1000 ), at( "1.1.1.1", 2000 ),
               at( "20.0.0.1", 80 ), at( "30.0.0.1", 8080 ) );
   auto twiceMcast = natKey( Key::twiceNatSrc, at( "10.0.0.1" ), at( "1.1.1.1" ),
                             at( "239.1.1.1" ), at( "239.2.2.2" ) );
   // clang-format off
   expectRecipes( {
       { "static SNAT", snat, Data(), false, {"static SNAT  10.0.0.1 -> 1.1.1.1 : ~ SrcIp=10.0.0.1 ExtractionCtrl(20) AssignOpaque(7)"} },
       // The L4 source port is matched, but without a new port the entry stays SNAT
       // and needs no fragment entry.
       { "old port only",
         natKey( Key::staticSrcNat, at( "10.0.0.1", 1024 ), at( "1.1.1.1" ) ),
         Data().protocol( 17 ),
         true, {"static SNAT  10.0.0.1 -> 1.1.1.1 : ~ SrcIp=10.0.0.1 L4SrcPort=1024 IpProtocol=17 ExtractionCtrl(20) AssignOpaque(7)"} },
       { "SNAPT and its fragment entry", snapt, Data().protocol( 6 ), true, {"static SNAPT  10.0.0.1:1024 -> 1.1.1.1:2048 : ~ SrcIp=10.0.0.1 L4SrcPort=1024 IpProtocol=6 ExtractionCtrl(21) AssignOpaque(7)", "static SNAT  10.0.0.1 -> 1.1.1.1 : ~ SrcIp=10.0.0.1 IpFrag IpProtocol=6 ExtractionCtrl(20) AssignOpaque(7)"} },
       // ACL sharing wins over the filter address, which wins over the multicast range.
       { "ACL sharing",
         snatAcl,
         Data().aclSharing().filter( "192.168.0.0", 16 ),
         false, {"static SNAT  10.0.0.1 -> 1.1.1.1 : ~ SrcIp=10.0.0.1 OpaqueObject1=9 ExtractionCtrl(20) AssignOpaque(7)"} },
       { "ACL sharing without ACL id",
         snat,
         Data().aclSharing().filter( "192.168.0.0", 16 ),
         false, {"static SNAT  10.0.0.1 -> 1.1.1.1 : ~ SrcIp=10.0.0.1 DstIp=192.168.0.0/ffff0000 ExtractionCtrl(20) AssignOpaque(7)"} },
       { "filter and multicast",
         snatAcl,
         Data().filter( "172.16.0.0", 12 ).multicast( 0 ),
         false, {"static SNAT (multicast) 10.0.0.1 -> 1.1.1.1 : ~ SrcIp=10.0.0.1 DstIp=172.16.0.0/fff00000 ExtractionCtrl(24) AssignOpaque(4)"} },
       { "multicast range", snapt, Data().multicast( 33 ), true, {"static SNAPT (multicast) 10.0.0.1:1024 -> 1.1.1.1:2048 : ~ SrcIp=10.0.0.1 L4SrcPort=1024 DstIp=224.0.0.0/f0000000 RedirectIpmc(33) ExtractionCtrl(24) AssignOpaque(4)", "static SNAT (multicast) 10.0.0.1 -> 1.1.1.1 : ~ SrcIp=10.0.0.1 DstIp=224.0.0.0/f0000000 IpFrag RedirectIpmc(33) ExtractionCtrl(24) AssignOpaque(4)"} },
       { "twice NAPT and its fragment entry",
         twice,
         Data().nextHop( 5 ).protocol( 17 ),
         true, {"twice NAPT  10.0.0.1:1000 20.0.0.1:80 -> 1.1.1.1:2000 30.0.0.1:8080 : ~ SrcIp=10.0.0.1 L4SrcPort=1000 DstIp=20.0.0.1 L4DstPort=80 CopyToCpuCancel DropCancel L3Switch(100005) IpProtocol=17 ExtractionCtrl(23) AssignOpaque(7)", "twice NAT  10.0.0.1 20.0.0.1 -> 1.1.1.1 30.0.0.1 : ~ SrcIp=10.0.0.1 DstIp=20.0.0.1 CopyToCpuCancel DropCancel L3Switch(100005) IpFrag IpProtocol=17 ExtractionCtrl(22) AssignOpaque(7)"} },
       // The source-side twice key looks at the new destination port.
       { "twice without new destination port",
         natKey( Key::twiceNatSrc, at( "10.0.0.1", 1000 ), at( "1.1.1.1", 2000 ),
                 at( "20.0.0.1" ), at( "30.0.0.1" ) ),
         Data(),
         false, {"twice NAPT  10.0.0.1:1000 20.0.0.1:0 -> 1.1.1.1:2000 30.0.0.1:0 : ~ SrcIp=10.0.0.1 L4SrcPort=1000 DstIp=20.0.0.1 Drop ExtractionCtrl(22) AssignOpaque(7)"} },
       { "twice with only a new destination port",
         natKey( Key::twiceNatSrc, at( "10.0.0.1" ), at( "1.1.1.1" ), at( "20.0.0.1" ),
                 at( "30.0.0.1", 8080 ) ),
         Data().nextHop( ~U64( 0 ) ),
         true, {"twice NAT  10.0.0.1 20.0.0.1 -> 1.1.1.1 30.0.0.1 : ~ SrcIp=10.0.0.1 DstIp=20.0.0.1 ExtractionCtrl(23) AssignOpaque(7)"} },
       { "twice multicast without next hop",
         twiceMcast,
         Data().multicast( 12 ),
         false, {"twice NAT (multicast) 10.0.0.1 239.1.1.1 -> 1.1.1.1 239.2.2.2 : ~ SrcIp=10.0.0.1 DstIp=239.1.1.1 CopyToCpuCancel DropCancel RedirectIpmc(12) ExtractionCtrl(24) AssignOpaque(4)"} },
   } );
   // clang-format on
}

TEST( NatEntryRecipe, StaticAndTwiceDestinationSide ) {
   Oro::NatHwKey const dnat =
       natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) );
   Oro::NatHwKey const dnapt =
       natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1", 80 ), at( "10.0.0.1", 8080 ) );
   auto dnatTo = []( char const* dst ) {
      return natKey( Key::staticDstNat, {}, {}, at( dst ), at( "10.0.0.1" ) );
   };
   Oro::NatHwKey const twiceDst =
       natKey( Key::twiceNatDst, at( "10.0.0.1", 1000 ), at( "1.1.1.1" ),
               at( "20.0.0.1", 80 ), at( "30.0.0.1", 8080 ) );
   // clang-format off
   expectRecipes( {
       { "one entry per VLAN in the data's order",
         dnat,
         Data().vlans( { 20, 10 } ).nextHop( 5 ),
         false, {"static DNAT vlan 20 1.1.1.1 -> 10.0.0.1 : L3Ingress=20 DstIp=1.1.1.1 ~ ExtractionCtrl(16) AssignOpaque(7) CopyToCpuCancel DropCancel L3Switch(100005)", "static DNAT vlan 10 1.1.1.1 -> 10.0.0.1 : L3Ingress=10 DstIp=1.1.1.1 ~ ExtractionCtrl(16) AssignOpaque(7) CopyToCpuCancel DropCancel L3Switch(100005)"} },
       { "DNAPT and its fragment entry",
         dnapt,
         Data().vlans( { 10 } ).protocol( 6 ).nextHop( 0x08000003 ),
         true, {"static DNAPT vlan 10 1.1.1.1:80 -> 10.0.0.1:8080 : L3Ingress=10 DstIp=1.1.1.1 L4DstPort=80 IpProtocol=6 ~ ExtractionCtrl(17) AssignOpaque(7) CopyToCpuCancel DropCancel L3Switch(200003)", "static DNAT vlan 10 1.1.1.1 -> 10.0.0.1 : L3Ingress=10 DstIp=1.1.1.1 IpFrag IpProtocol=6 ~ ExtractionCtrl(16) AssignOpaque(7) CopyToCpuCancel DropCancel L3Switch(200003)"} },
       { "ACL sharing",
         natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ), 0, 9 ),
         Data().vlans( { 10 } ).aclSharing().filter( "192.168.0.0", 16 ),
         false, {"static DNAT vlan 10 1.1.1.1 -> 10.0.0.1 : L3Ingress=10 OpaqueObject1=9 DstIp=1.1.1.1 ~ ExtractionCtrl(16) AssignOpaque(7) CopyToCpuCancel Drop"} },
       { "filter",
         dnat,
         Data().vlans( { 10 } ).filter( "192.168.0.0", 16 ).nextHop( ~U64( 0 ) ),
         false, {"static DNAT vlan 10 1.1.1.1 -> 10.0.0.1 : L3Ingress=10 SrcIp=192.168.0.0/ffff0000 DstIp=1.1.1.1 ~ ExtractionCtrl(16) AssignOpaque(7) CopyToCpuCancel"} },
       // Multicast egress: no L3 ingress; the 224/4 source filter for a destination whose
       // first octet is below 32.
       { "multicast egress to 31/8",
         dnatTo( "31.1.1.1" ),
         Data().vlans( { 10 } ).multicast( 5 ),
         false, {"static DNAT vlan 10 31.1.1.1 -> 10.0.0.1 : SrcIp=224.0.0.0/f0000000 DstIp=31.1.1.1 ~ RedirectIpmc(5) ExtractionCtrl(24) AssignOpaque(4) CopyToCpuCancel DropCancel"} },
       { "multicast egress to 32/8",
         dnatTo( "32.1.1.1" ),
         Data().vlans( { 10 } ).multicast( 5 ),
         false, {"static DNAT vlan 10 32.1.1.1 -> 10.0.0.1 : DstIp=32.1.1.1 ~ RedirectIpmc(5) ExtractionCtrl(24) AssignOpaque(4) CopyToCpuCancel DropCancel"} },
       { "multicast ingress",
         dnat,
         Data().vlans( { 7 } ).multicast( 0, true ).nextHop( ~U64( 0 ) ),
         false, {"static DNAT vlan 7 1.1.1.1 -> 10.0.0.1 : L3Ingress=7 SrcIp=224.0.0.0/f0000000 DstIp=1.1.1.1 ~ ExtractionCtrl(24) AssignOpaque(4) CopyToCpuCancel DropCancel"} },
       // The destination-side twice key looks at the new source port.
       { "twice without new source port",
         twiceDst,
         Data().vlans( { 10 } ).nextHop( 5 ),
         true, {"twice NAPT vlan 10 10.0.0.1:1000 20.0.0.1:80 -> 1.1.1.1:0 30.0.0.1:8080 : L3Ingress=10 SrcIp=10.0.0.1 L4SrcPort=1000 DstIp=20.0.0.1 L4DstPort=80 ~ ExtractionCtrl(18) AssignOpaque(7) CopyToCpuCancel DropCancel L3Switch(100005)", "twice NAT vlan 10 10.0.0.1 20.0.0.1 -> 1.1.1.1 30.0.0.1 : L3Ingress=10 SrcIp=10.0.0.1 DstIp=20.0.0.1 IpFrag ~ ExtractionCtrl(18) AssignOpaque(7) CopyToCpuCancel DropCancel L3Switch(100005)"} },
       { "only a new source port",
         natKey( Key::staticDstNat, {}, at( "0.0.0.0", 99 ), at( "1.1.1.1" ),
                 at( "10.0.0.1" ) ),
         Data().vlans( { 10 } ).nextHop( 1 ),
         true, {"static DNAPT vlan 10 1.1.1.1:0 -> 10.0.0.1:0 : L3Ingress=10 DstIp=1.1.1.1 ~ ExtractionCtrl(16) AssignOpaque(7) CopyToCpuCancel DropCancel L3Switch(100001)", "static DNAT vlan 10 1.1.1.1 -> 10.0.0.1 : L3Ingress=10 DstIp=1.1.1.1 IpFrag ~ ExtractionCtrl(16) AssignOpaque(7) CopyToCpuCancel DropCancel L3Switch(100001)"} },
       { "twice multicast egress",
         natKey( Key::twiceNatDst, at( "10.0.0.1" ), at( "1.1.1.1" ), at( "20.0.0.1" ),
                 at( "239.2.2.2" ) ),
         Data().vlans( { 10 } ).multicast( 6 ),
         false, {"twice NAT vlan 10 10.0.0.1 20.0.0.1 -> 1.1.1.1 239.2.2.2 : SrcIp=10.0.0.1 DstIp=20.0.0.1 ~ RedirectIpmc(6) ExtractionCtrl(24) AssignOpaque(4) CopyToCpuCancel DropCancel"} },
   } );
   // clang-format on
}

TEST( NatEntryRecipe, Dynamic ) {
   Oro::NatHwKey const src =
       natKey( Key::dynamicSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) );
   Oro::NatHwKey const dst =
       natKey( Key::dynamicDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) );
   Oro::NatHwKey const snapt =
       natKey( Key::dynamicSrcNat, at( "10.0.0.1", 1024 ), at( "1.1.1.1", 2048 ),
               at( "20.0.0.1", 80 ), at( "20.0.0.1", 80 ), 6 );
   Oro::NatHwKey const dnapt =
       natKey( Key::dynamicDstNat, at( "20.0.0.1", 5000 ), at( "20.0.0.1", 5000 ),
               at( "1.1.1.1", 80 ), at( "10.0.0.1", 8080 ), 17 );
   // clang-format off
   expectRecipes( {
       // One address, no port: a TCP entry, and a UDP entry as its second entry.
       { "source without fragments", src, Data(), false, {"dynamic SNAT tcp 10.0.0.1 -> 1.1.1.1: SrcIp=10.0.0.1 IpProtocol=6 TcpControl=0 ~ AssignOpaque(7) CopyToCpuCancel ExtractionCtrl(20) DropCancel"} },
       { "source with fragments", src, Data(), true, {"dynamic SNAT tcp 10.0.0.1 -> 1.1.1.1: SrcIp=10.0.0.1 IpProtocol=6 TcpControl=0 ~ AssignOpaque(7) CopyToCpuCancel ExtractionCtrl(20) DropCancel", "dynamic SNAT udp 10.0.0.1 -> 1.1.1.1: SrcIp=10.0.0.1 IpProtocol=17 ~ AssignOpaque(7) CopyToCpuCancel ExtractionCtrl(20) DropCancel"} },
       { "source of protocol 17",
         natKey( Key::dynamicSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ), {}, {}, 17 ),
         Data(),
         true, {"dynamic SNAT tcp 10.0.0.1 -> 1.1.1.1: SrcIp=10.0.0.1 IpProtocol=17 IpProtocol=6 TcpControl=0 ~ AssignOpaque(7) CopyToCpuCancel ExtractionCtrl(20) DropCancel", "dynamic SNAT udp 10.0.0.1 -> 1.1.1.1: SrcIp=10.0.0.1 IpProtocol=17 IpProtocol=17 ~ AssignOpaque(7) CopyToCpuCancel ExtractionCtrl(20) DropCancel"} },
       { "destination on each VLAN",
         dst,
         Data().vlans( { 3, 4 } ).nextHop( 5 ),
         true, {"dynamic DNAT tcp vlan 3 1.1.1.1 -> 10.0.0.1: DstIp=1.1.1.1 IpProtocol=6 TcpControl=0 ~ AssignOpaque(7) CopyToCpuCancel ExtractionCtrl(16) DropCancel L3Switch(100005)", "dynamic DNAT udp vlan 3 1.1.1.1 -> 10.0.0.1: DstIp=1.1.1.1 IpProtocol=17 ~ AssignOpaque(7) CopyToCpuCancel ExtractionCtrl(16) DropCancel L3Switch(100005)", "dynamic DNAT tcp vlan 4 1.1.1.1 -> 10.0.0.1: DstIp=1.1.1.1 IpProtocol=6 TcpControl=0 ~ AssignOpaque(7) CopyToCpuCancel ExtractionCtrl(16) DropCancel L3Switch(100005)", "dynamic DNAT udp vlan 4 1.1.1.1 -> 10.0.0.1: DstIp=1.1.1.1 IpProtocol=17 ~ AssignOpaque(7) CopyToCpuCancel ExtractionCtrl(16) DropCancel L3Switch(100005)"} },
       { "destination without next hop", dst, Data().vlans( { 3 } ), false, {"dynamic DNAT tcp vlan 3 1.1.1.1 -> 10.0.0.1: DstIp=1.1.1.1 IpProtocol=6 TcpControl=0 ~ AssignOpaque(7) CopyToCpuCancel ExtractionCtrl(16)"} },
       // Address-only mode: both addresses, and ports where the key has them.
       { "address-only SNAPT", snapt, Data(), true, {"dynamic SNAPT 10.0.0.1:1024 -> 1.1.1.1:2048: SrcIp=10.0.0.1 DstIp=20.0.0.1 IpProtocol=6 L4SrcPort=1024 L4DstPort=80 IpProtocol=6 TcpControl=0 ~ AssignOpaque(7) CopyToCpuCancel ExtractionCtrl(21) DropCancel", "dynamic SNAPT 10.0.0.1 -> 1.1.1.1: SrcIp=10.0.0.1 DstIp=20.0.0.1 IpProtocol=6 IpFrag IpProtocol=6 TcpControl=0 ~ AssignOpaque(7) CopyToCpuCancel ExtractionCtrl(20) DropCancel"}, true },
       { "address-only DNAPT",
         dnapt,
         Data().vlans( { 10 } ).nextHop( 7 ),
         true, {"dynamic DNAPT vlan 10 1.1.1.1:80 -> 10.0.0.1:8080: SrcIp=20.0.0.1 DstIp=1.1.1.1 IpProtocol=17 L4SrcPort=5000 L4DstPort=80 IpProtocol=17 ~ AssignOpaque(7) CopyToCpuCancel ExtractionCtrl(17) DropCancel L3Switch(100007)", "dynamic DNAPT vlan 10 1.1.1.1 -> 10.0.0.1: SrcIp=20.0.0.1 DstIp=1.1.1.1 IpProtocol=17 IpFrag IpProtocol=17 ~ AssignOpaque(7) CopyToCpuCancel ExtractionCtrl(16) DropCancel L3Switch(100007)"},
         true },
   } );
   // clang-format on
}

// The description forms the recipes above do not reach.
TEST( NatEntryRecipe, DescriptionsOfOtherForms ) {
   auto text = []( Key::NatKeyType type, Wirel::IpAndPort srcOld, Wirel::IpAndPort srcNew,
                   Wirel::IpAndPort dstOld, Wirel::IpAndPort dstNew, U16 vlan,
                   bool multicast ) {
      return Corvane::natEntryDescription( natKey( type, srcOld, srcNew, dstOld, dstNew ),
                                           vlan, NatEntryKind::defaultEntry, multicast,
                                           { false, false } );
   };
   auto const a = at( "10.0.0.1" ), b = at( "1.1.1.1" ), c = at( "20.0.0.1" ),
              d = at( "30.0.0.1" );
   // Static and twice forms end in a blank; a VLAN replaces the multicast mark.
   EXPECT_EQ( text( Key::staticSrcNat, a, b, {}, {}, 5, true ),
              "static SNAT vlan 5 10.0.0.1 -> 1.1.1.1 " );
   EXPECT_EQ( text( Key::staticSrcNat, a, b, {}, at( "0.0.0.0", 99 ), 0, false ),
              "static SNAPT  10.0.0.1:0 -> 1.1.1.1:0 " );
   EXPECT_EQ(
       text( Key::twiceNatSrc, at( "10.0.0.1", 1000 ), at( "1.1.1.1", 2000 ), c, d, 0,
             true ),
       "twice NAPT (multicast) 10.0.0.1:1000 20.0.0.1:0 -> 1.1.1.1:2000 30.0.0.1:0 " );
   EXPECT_EQ( text( Key::twiceNatDst, a, at( "1.1.1.1", 2000 ), c, at( "30.0.0.1", 3000 ),
                    9, false ),
              "twice NAT vlan 9 10.0.0.1 20.0.0.1 -> 1.1.1.1 30.0.0.1 " );
   EXPECT_EQ( text( Key::NatKeyType( 7 ), a, b, {}, {}, 5, true ), "" )
       << "a type without a form";
}

}  // namespace
