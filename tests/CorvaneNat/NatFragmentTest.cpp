// Fragment entries as the configuration switches them: which keys get one per VLAN,
// freeing them all again, and a TCAM too small to hold them. (What each fragment entry
// holds: NatEntryRecipeTest.cpp.)

#include <algorithm>
#include <map>

#include "NatTestFixture.h"

namespace {

using namespace NatTest;

class NatFragment : public NatFixture {
protected:
   void fragmentOn( bool on ) {
      platform->capabilityConfig().fragmentEnabledIs( on );
      loop().runUntilIdle();
   }
   bool statusSaysEnabled() {
      return platform->agent()
          .stateDatabase
          ->lookup<CorvaneNat::CapabilityStatus>(
              "hardware/corvane/nat/capability/status/Corvane" )
          ->fragmentEnabled();
   }
   // Every entry of the chip as its description and whether it matches non-first
   // fragments, by id.
   std::map<U32, std::string> entries() {
      std::map<U32, std::string> out;
      for ( U32 id : fieldProcessor().entryIds() ) {
         Chip::FpEntry const* e = chipEntry( id );
         out[id] = e->description() +
                   ( e->qualifierHas( Chip::Qualifier::IpFrag ) ? " (fragments)" : "" );
      }
      return out;
   }
   Lines fragmentEntries() {
      Lines out;
      for ( auto const& e : entries() ) {
         if ( e.second.find( " (fragments)" ) != std::string::npos ) {
            out.push_back( e.second );
         }
      }
      std::sort( out.begin(), out.end() );
      return out;
   }
};

TEST_F( NatFragment,
        OnGivesEveryKeyThatNeedsOneAFragmentEntryPerVlanAndOffTakesThemBack ) {
   nat.addrOnlyMode = true;
   start();
   rule( 1, natKey( Key::staticSrcNat, at( "10.0.0.1", 1000 ), at( "1.1.1.1", 2000 ) ) );
   rule( 2,
         natKey( Key::staticDstNat, {}, {}, at( "1.1.1.2", 80 ), at( "10.0.0.2", 8080 ) ),
         Data().vlans( { 10, 20 } ) );
   rule( 3, natKey( Key::twiceNatSrc, at( "10.0.0.3", 1003 ), at( "1.1.1.3", 2003 ),
                    at( "2.2.2.3", 53 ), at( "3.3.3.3", 5353 ) ) );
   rule( 4,
         natKey( Key::twiceNatDst, at( "2.2.2.4", 53 ), at( "3.3.3.4", 5353 ),
                 at( "1.1.1.4", 1004 ), at( "10.0.0.4", 2004 ) ),
         Data().vlans( { 30 } ) );
   rule( 5, natKey( Key::dynamicSrcNat, at( "10.0.0.5", 1005 ), at( "1.1.1.5", 2005 ),
                    at( "8.8.8.5", 53 ), at( "8.8.8.5", 53 ), 17 ) );
   rule( 6,
         natKey( Key::dynamicDstNat, at( "9.9.9.6", 1234 ), at( "9.9.9.6", 1234 ),
                 at( "1.1.1.6", 80 ), at( "10.0.0.6", 8080 ), 6 ),
         Data().vlans( { 40 } ).nextHop( 5 ) );
   // No fragment entry: static NAT without new ports (an old port alone does not
   // count), twice keys with ports on one side only.
   rule( 7, natKey( Key::staticSrcNat, at( "10.0.0.7", 7 ), at( "1.1.1.7" ) ) );
   rule( 8, natKey( Key::staticDstNat, {}, {}, at( "1.1.1.8", 80 ), at( "10.0.0.8" ) ),
         Data().vlans( { 10 } ) );
   rule( 9, natKey( Key::twiceNatSrc, at( "10.0.0.9" ), at( "1.1.1.9", 2009 ),
                    at( "2.2.2.9" ), at( "3.3.3.9" ) ) );
   rule( 10,
         natKey( Key::twiceNatDst, at( "2.2.2.10", 53 ), at( "3.3.3.10" ),
                 at( "1.1.1.10" ), at( "10.0.0.10" ) ),
         Data().vlans( { 30 } ) );
   std::map<U32, std::string> const defaults = entries();
   ASSERT_EQ( defaults.size(), 11u );
   ASSERT_TRUE( fragmentEntries().empty() );

   fragmentOn( true );
   Lines const expected = {
       "dynamic DNAPT vlan 40 1.1.1.6 -> 10.0.0.6 (fragments)",
       "dynamic SNAPT 10.0.0.5 -> 1.1.1.5 (fragments)",
       "static DNAT vlan 10 1.1.1.2 -> 10.0.0.2  (fragments)",
       "static DNAT vlan 20 1.1.1.2 -> 10.0.0.2  (fragments)",
       "static SNAT  10.0.0.1 -> 1.1.1.1  (fragments)",
       "twice NAT  10.0.0.3 2.2.2.3 -> 1.1.1.3 3.3.3.3  (fragments)",
       "twice NAT vlan 30 2.2.2.4 1.1.1.4 -> 3.3.3.4 10.0.0.4  (fragments)" };
   EXPECT_EQ( fragmentEntries(), expected );
   EXPECT_EQ( chipEntries(), 18u );
   for ( U32 id : fieldProcessor().entryIds() ) {
      EXPECT_TRUE( chipEntry( id )->installed() ) << id;
   }
   EXPECT_TRUE( worker()->fragmentEnabled() );
   EXPECT_TRUE( statusSaysEnabled() );

   // Off releases exactly the fragment entries, in ascending order.
   std::size_t const from = mark();
   fragmentOn( false );
   EXPECT_EQ( entries(), defaults );
   Lines want;
   for ( U32 id = 12; id <= 18; ++id ) {
      want.push_back( std::to_string( id ) + " releaseEntry []" );
   }
   EXPECT_EQ( idCalls( from ), want );
   EXPECT_FALSE( statusSaysEnabled() );
   // On again gives every key its entries back.
   fragmentOn( true );
   EXPECT_EQ( fragmentEntries(), expected );
}

TEST_F( NatFragment, OneEntryShortAddsNoneTracesAndSwitchesTheFeatureOff ) {
   chip.tcamEntries = 4;
   start();
   // Three default entries, three fragment entries needed, one free.
   Oro::NatHwKey const snapt =
       natKey( Key::staticSrcNat, at( "10.0.0.1", 1000 ), at( "1.1.1.1", 2000 ) );
   Oro::NatHwKey const dnapt =
       natKey( Key::staticDstNat, {}, {}, at( "1.1.1.2", 80 ), at( "10.0.0.2", 8080 ) );
   rule( 1, snapt );
   rule( 2, dnapt, Data().vlans( { 10, 20 } ) );
   std::size_t const from = mark();
   {
      TraceCapture trace( "ApiCorvane/0" );
      fragmentOn( true );
      EXPECT_EQ(
          trace.lines,
          ( Lines{ "handleFragmentNot enough space in TCAM to add fragments entries.",
                   "handleFragmentDisabling fragment feature." } ) );
   }
   EXPECT_EQ( mark(), from ) << "no entry was taken";
   EXPECT_FALSE( worker()->fragmentEnabled() );
   EXPECT_FALSE( statusSaysEnabled() );
   EXPECT_TRUE( platform->capabilityConfig().fragmentEnabled() )
       << "the configuration is the operator's";

   // Off in the worker: a key committed or reprogrammed now gets its default entry only.
   rule( 3, natKey( Key::staticSrcNat, at( "10.0.0.3", 1003 ), at( "1.1.1.3", 2003 ) ) );
   rule( 1, snapt, Data().protocol( 17 ) );
   EXPECT_EQ( chipEntries(), 4u );
   EXPECT_TRUE( fragmentEntries().empty() );
   EXPECT_EQ( answers.back().result, Result::done );

   // With room again, the operator's off and on brings the feature back.
   removeRule(
       3, natKey( Key::staticSrcNat, at( "10.0.0.3", 1003 ), at( "1.1.1.3", 2003 ) ) );
   removeRule( 2, dnapt );
   fragmentOn( false );
   fragmentOn( true );
   EXPECT_TRUE( worker()->fragmentEnabled() );
   EXPECT_TRUE( statusSaysEnabled() );
   EXPECT_EQ( fragmentEntries(),
              ( Lines{ "static SNAT  10.0.0.1 -> 1.1.1.1  (fragments)" } ) );
}

}  // namespace
