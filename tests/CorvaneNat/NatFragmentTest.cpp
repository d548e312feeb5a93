// Fragment entries as the configuration switches them: which keys get one per VLAN and
// what the chip holds for it, freeing them all again, and a TCAM too small to hold them.
// (What each fragment entry holds: NatEntryRecipeTest.cpp; switching at random among
// other steps: NatRandomTest.cpp.)

#include "NatJournalLines.h"

#include <algorithm>
#include <map>
#include <sstream>

#include "platform/fwk/Trace.h"
#include "platform/mount/OrreryEntityManager.h"

namespace {

using NatTest::ipPort;
using NatTest::ipValue;
using NatTest::Key;
using NatTest::Lines;
using NatTest::NatFixture;
using NatTest::natKey;
using NatTest::Result;

constexpr U32 natGroup = 160;

// The level-0 lines of handleFragment among the trace lines.
Lines fragmentWarnings( NatTest::TraceCapture const& trace ) {
   std::string const function = "handleFragment";
   Lines out;
   for ( std::string const& line : trace.lines ) {
      if ( line.rfind( function, 0 ) == 0 ) {
         out.push_back( line.substr( function.size() ) );
      }
   }
   return out;
}

Oro::NatHwData vlans( std::vector<U16> ids, U8 protocol = 0, U64 nextHop = 0 ) {
   Oro::NatHwData data;
   for ( U16 id : ids ) {
      data.vlanIdAppend( id );
   }
   data.protocolIs( protocol );
   data.nextHopIdIs( nextHop );
   return data;
}

U32 actionParam( Chip::FpEntry const& e, Chip::Action action ) {
   for ( auto const& a : e.actions() ) {
      if ( a.action == action ) {
         return a.param0;
      }
   }
   return 0;
}

class NatFragment : public NatFixture {
protected:
   void fragmentOn( bool on ) {
      platform->capabilityConfig().fragmentEnabledIs( on );
      loop().runUntilIdle();
   }
   CorvaneNat::CapabilityStatus::PtrConst capabilityStatus() {
      return platform->agent().stateDatabase->lookup<CorvaneNat::CapabilityStatus>(
          "hardware/corvane/nat/capability/status/Corvane" );
   }

   std::vector<Chip::FpEntry const*> natEntries() {
      std::vector<Chip::FpEntry const*> out;
      for ( U32 id : fieldProcessor().entryIds() ) {
         Chip::FpEntry const* e = fieldProcessor().entry( id );
         if ( e->group() == natGroup ) {
            out.push_back( e );
         }
      }
      return out;
   }
   // Everything the chip holds of an entry, install order included.
   static std::string render( Chip::FpEntry const& e ) {
      std::ostringstream os;
      os << e.id() << " '" << e.description() << "' prio " << e.priority()
         << " installed " << e.installed() << " order " << e.installOrder();
      for ( Chip::Qualifier q : e.qualifiers() ) {
         os << " " << Chip::qualifierName( q ) << Chip::json( e.qualifierArgs( q ) );
      }
      for ( auto const& a : e.actions() ) {
         os << " " << Chip::actionName( a.action ) << "(" << a.param0 << "," << a.param1
            << ")";
      }
      return os.str();
   }
   std::map<U32, std::string> snapshot() {
      std::map<U32, std::string> out;
      for ( Chip::FpEntry const* e : natEntries() ) {
         out[e->id()] = render( *e );
      }
      return out;
   }
   // The fragment entries of the chip (non-first fragments only), one line each:
   // the uid it assigns, its VLAN (0 without one), its extraction-control id.
   Lines fragEntries() {
      Lines out;
      for ( Chip::FpEntry const* e : natEntries() ) {
         if ( e->qualifierHas( Chip::Qualifier::IpFrag ) ) {
            out.push_back( fragLine( *e ) );
         }
      }
      std::sort( out.begin(), out.end() );
      return out;
   }
   static std::string fragLine( Chip::FpEntry const& e ) {
      std::ostringstream os;
      os << "uid " << actionParam( e, Chip::Action::AssignOpaqueObject1 ) << " vlan "
         << ( e.qualifierHas( Chip::Qualifier::L3Ingress )
                  ? e.qualifier( Chip::Qualifier::L3Ingress ).data
                  : 0 )
         << " ctrl " << actionParam( e, Chip::Action::AssignExtractionCtrlId );
      return os.str();
   }
   // Journal calls from `from` on, as "<call> <entry id>".
   Lines entryCalls( std::size_t from ) {
      Lines out;
      for ( auto const& r : Chip::journal().recordsFrom( from ) ) {
         out.push_back( r.call + " " + std::to_string( r.entry ) );
      }
      return out;
   }
   U32 lookup( Chip::Packet packet ) {
      packet.myStationHit = true;
      return platform->chip().unit( 1 )->fieldProcessor().lookup( natGroup, packet, 1 );
   }

   // One rule of every kind; the ones with a fragment entry are listed in
   // expectedFragEntries. Dynamic keys with ports need the address-only mode.
   void everyKind() {
      // Static SNAPT, source side: one entry, no VLAN.
      rule( 1,
            natKey( Key::staticSrcNat, ipPort( "10.0.0.1", 1000 ),
                    ipPort( "1.1.1.1", 2000 ) ),
            vlans( {}, 6 ) );
      // Static DNAPT on two VLANs.
      rule( 2,
            natKey( Key::staticDstNat, {}, {}, ipPort( "1.1.1.2", 80 ),
                    ipPort( "10.0.0.2", 8080 ) ),
            vlans( { 10, 20 }, 6 ) );
      // Twice NAPT, both sides.
      rule( 3, natKey( Key::twiceNatSrc, ipPort( "10.0.0.3", 1003 ),
                       ipPort( "1.1.1.3", 2003 ), ipPort( "2.2.2.3", 53 ),
                       ipPort( "3.3.3.3", 5353 ) ) );
      rule( 4,
            natKey( Key::twiceNatDst, ipPort( "2.2.2.4", 53 ), ipPort( "3.3.3.4", 5353 ),
                    ipPort( "1.1.1.4", 1004 ), ipPort( "10.0.0.4", 2004 ) ),
            vlans( { 30 } ) );
      // Dynamic NAPT, both sides.
      rule( 5, natKey( Key::dynamicSrcNat, ipPort( "10.0.0.5", 1005 ),
                       ipPort( "1.1.1.5", 2005 ), ipPort( "8.8.8.5", 53 ),
                       ipPort( "8.8.8.5", 53 ), 17 ) );
      rule( 6,
            natKey( Key::dynamicDstNat, ipPort( "9.9.9.6", 1234 ),
                    ipPort( "9.9.9.6", 1234 ), ipPort( "1.1.1.6", 80 ),
                    ipPort( "10.0.0.6", 8080 ), 6 ),
            vlans( { 40 }, 0, 5 ) );
      // No fragment entry: static NAT without new ports (an old port alone does not
      // count), twice keys with ports on one side only.
      rule( 7, natKey( Key::staticSrcNat, ipPort( "10.0.0.7" ), ipPort( "1.1.1.7" ) ) );
      rule( 8,
            natKey( Key::staticDstNat, {}, {}, ipPort( "1.1.1.8", 80 ),
                    ipPort( "10.0.0.8" ) ),
            vlans( { 10 } ) );
      rule( 9, natKey( Key::twiceNatSrc, ipPort( "10.0.0.9" ), ipPort( "1.1.1.9", 2009 ),
                       ipPort( "2.2.2.9" ), ipPort( "3.3.3.9" ) ) );
      rule( 10,
            natKey( Key::twiceNatDst, ipPort( "2.2.2.10", 53 ), ipPort( "3.3.3.10" ),
                    ipPort( "1.1.1.10" ), ipPort( "10.0.0.10" ) ),
            vlans( { 30 } ) );
      // A dynamic key the address-only mode cannot hold: answered, never programmed.
      rule( 11,
            natKey( Key::dynamicSrcNat, ipPort( "10.0.0.11" ), ipPort( "1.1.1.11" ) ) );
   }
   static Lines expectedFragEntries() {
      return { "uid 1 vlan 0 ctrl 20", "uid 2 vlan 10 ctrl 16", "uid 2 vlan 20 ctrl 16",
               "uid 3 vlan 0 ctrl 22", "uid 4 vlan 30 ctrl 18", "uid 5 vlan 0 ctrl 20",
               "uid 6 vlan 0 ctrl 16" };  // dynamic entries carry no VLAN qualifier
   }
};

// --- Turning the feature on and off ---------------------------------------------------

TEST_F( NatFragment,
        OnGivesEveryKeyThatNeedsOneAFragmentEntryPerVlanAndOffTakesThemBack ) {
   nat.addrOnlyMode = true;
   start();
   everyKind();
   ASSERT_EQ( answers.size(), 11u );
   std::map<U32, std::string> const defaults = snapshot();
   ASSERT_EQ( defaults.size(), 11u ) << "uid 11 has no entry";
   ASSERT_TRUE( fragEntries().empty() );
   Chip::Packet snapt;  // a non-first fragment of uid 1's flow: no ports
   snapt.src = ipValue( "10.0.0.1" );
   snapt.dst = ipValue( "5.5.5.5" );
   snapt.protocol = 6;
   snapt.frag = Chip::Frag::notFirst;
   Chip::Packet dnapt = snapt;  // and of uid 2's on VLAN 20
   dnapt.src = ipValue( "5.5.5.5" );
   dnapt.dst = ipValue( "1.1.1.2" );
   dnapt.vlan = 20;
   EXPECT_EQ( lookup( snapt ), 0u );
   EXPECT_EQ( lookup( dnapt ), 0u );

   fragmentOn( true );
   EXPECT_EQ( fragEntries(), expectedFragEntries() );
   EXPECT_EQ( chipEntries(), defaults.size() + 7 );
   EXPECT_TRUE( worker()->fragmentEnabled() );
   EXPECT_TRUE( capabilityStatus()->fragmentEnabled() );
   std::map<std::string, Chip::FpEntry const*> byLine;
   std::vector<U32> fragIds;
   for ( Chip::FpEntry const* e : natEntries() ) {
      if ( defaults.count( e->id() ) ) {
         EXPECT_EQ( render( *e ), defaults.at( e->id() ) )
             << "default entries are not touched";
         continue;
      }
      SCOPED_TRACE( render( *e ) );
      EXPECT_EQ( e->ipFrag(), Chip::IpFragSelector::NotFirst );
      EXPECT_FALSE( e->qualifierHas( Chip::Qualifier::L4SrcPort ) );
      EXPECT_FALSE( e->qualifierHas( Chip::Qualifier::L4DstPort ) );
      EXPECT_TRUE( e->installed() );
      EXPECT_EQ( e->priority(), 0x7fffffff );
      byLine[fragLine( *e )] = e;
      fragIds.push_back( e->id() );
   }
   ASSERT_EQ( byLine.size(), 7u );
   // Static SNAPT: the old source address, the data's protocol, the address form of
   // the description (its empty prefix leaves two blanks).
   Chip::FpEntry const& snaptFrag = *byLine.at( "uid 1 vlan 0 ctrl 20" );
   EXPECT_EQ( snaptFrag.qualifier( Chip::Qualifier::SrcIp ).data, ipValue( "10.0.0.1" ) );
   EXPECT_EQ( snaptFrag.qualifier( Chip::Qualifier::IpProtocol ).data, 6u );
   EXPECT_EQ( snaptFrag.description(), "static SNAT  10.0.0.1 -> 1.1.1.1 " );
   // Static DNAPT: one per VLAN, each on its own VLAN, the old destination address.
   Chip::FpEntry const& dnapt20 = *byLine.at( "uid 2 vlan 20 ctrl 16" );
   EXPECT_EQ( dnapt20.qualifier( Chip::Qualifier::DstIp ).data, ipValue( "1.1.1.2" ) );
   EXPECT_EQ( dnapt20.description(), "static DNAT vlan 20 1.1.1.2 -> 10.0.0.2 " );
   // Dynamic destination NAPT: its protocol and next hop.
   Chip::FpEntry const& dyn = *byLine.at( "uid 6 vlan 0 ctrl 16" );
   EXPECT_EQ( dyn.qualifier( Chip::Qualifier::IpProtocol ).data, 6u );
   EXPECT_EQ( actionParam( dyn, Chip::Action::L3Switch ), 100005u );
   EXPECT_EQ( dyn.description(), "dynamic DNAPT vlan 40 1.1.1.6 -> 10.0.0.6" );

   // Non-first fragments now hit the fragment entries; the first fragment still takes
   // the port-qualified default entry.
   EXPECT_EQ( lookup( snapt ), snaptFrag.id() );
   EXPECT_EQ( lookup( dnapt ), dnapt20.id() );
   Chip::Packet first = snapt;
   first.frag = Chip::Frag::first;
   first.srcPort = 1000;
   EXPECT_TRUE( defaults.count( lookup( first ) ) );

   // Off releases exactly the fragment entries, in ascending order.
   std::size_t from = mark();
   fragmentOn( false );
   EXPECT_EQ( snapshot(), defaults ) << "only the fragment entries left the chip";
   Lines want;
   for ( U32 id : fragIds ) {
      want.push_back( "releaseEntry " + std::to_string( id ) );
   }
   EXPECT_EQ( entryCalls( from ), want );
   EXPECT_FALSE( capabilityStatus()->fragmentEnabled() );
   // The rows no longer hold them: on again gives every key its entries back.
   fragmentOn( true );
   EXPECT_EQ( fragEntries(), expectedFragEntries() );
   fragmentOn( false );
   EXPECT_EQ( snapshot(), defaults );
}

// --- Not enough room ------------------------------------------------------------------

TEST_F( NatFragment, OneEntryShortAddsNoneTracesAndSwitchesTheFeatureOff ) {
   chip.tcamEntries = 4;
   start();
   // Three default entries, three fragment entries needed, one free.
   rule( 1, natKey( Key::staticSrcNat, ipPort( "10.0.0.1", 1000 ),
                    ipPort( "1.1.1.1", 2000 ) ) );
   rule( 2,
         natKey( Key::staticDstNat, {}, {}, ipPort( "1.1.1.2", 80 ),
                 ipPort( "10.0.0.2", 8080 ) ),
         vlans( { 10, 20 } ) );
   std::map<U32, std::string> const defaults = snapshot();
   ASSERT_EQ( defaults.size(), 3u );

   std::size_t from = mark();
   Lines lines;
   {
      NatTest::TraceCapture warnings( "ApiCorvane/0" );
      fragmentOn( true );
      lines = fragmentWarnings( warnings );
   }
   EXPECT_EQ( lines, ( Lines{ "Not enough space in TCAM to add fragments entries.",
                              "Disabling fragment feature." } ) );
   EXPECT_EQ( snapshot(), defaults ) << "no fragment entry is left in the chip";
   for ( std::string const& call : entryCalls( from ) ) {
      EXPECT_EQ( call.rfind( "getEntry ", 0 ), std::string::npos )
          << "no entry was taken: " << call;
   }
   EXPECT_EQ( worker()->natEntryManager()->entriesAvailable( 1 ), 1u );
   EXPECT_FALSE( worker()->fragmentEnabled() );
   EXPECT_FALSE( capabilityStatus()->fragmentEnabled() );
   EXPECT_TRUE( platform->capabilityConfig().fragmentEnabled() )
       << "the configuration is the operator's";

   // Off in the worker: a key committed now gets its default entry only, and a key
   // reprogrammed does not expect a fragment entry.
   rule( 3, natKey( Key::staticSrcNat, ipPort( "10.0.0.3", 1003 ),
                    ipPort( "1.1.1.3", 2003 ) ) );
   rule(
       1,
       natKey( Key::staticSrcNat, ipPort( "10.0.0.1", 1000 ), ipPort( "1.1.1.1", 2000 ) ),
       vlans( {}, 17 ) );
   EXPECT_EQ( chipEntries(), 4u );
   EXPECT_TRUE( fragEntries().empty() );
   ASSERT_EQ( answers.size(), 4u );
   EXPECT_EQ( answers.back().result, Result::done );

   // With room again, the operator's off and on brings the feature back.
   removeRule( 3, natKey( Key::staticSrcNat, ipPort( "10.0.0.3", 1003 ),
                          ipPort( "1.1.1.3", 2003 ) ) );
   removeRule( 2, natKey( Key::staticDstNat, {}, {}, ipPort( "1.1.1.2", 80 ),
                          ipPort( "10.0.0.2", 8080 ) ) );
   fragmentOn( false );
   fragmentOn( true );
   EXPECT_TRUE( worker()->fragmentEnabled() );
   EXPECT_TRUE( capabilityStatus()->fragmentEnabled() );
   EXPECT_EQ( fragEntries(), ( Lines{ "uid 1 vlan 0 ctrl 20" } ) );
}

}  // namespace
