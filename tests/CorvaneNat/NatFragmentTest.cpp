// Fragment entries as the configuration switches them (what each holds: the recipe test).

#include <algorithm>

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
   // The descriptions of the entries that match non-first fragments.
   Lines fragmentEntries() {
      Lines out;
      for ( U32 id : fieldProcessor().entryIds() ) {
         if ( chipEntry( id )->qualifierHas( Chip::Qualifier::IpFrag ) ) {
            out.push_back( chipEntry( id )->description() );
         }
      }
      std::sort( out.begin(), out.end() );
      return out;
   }
};

// Keys that translate ports get a fragment entry per VLAN; an old port alone, or ports
// on one side of a twice key, do not count. With too little room for all of them, none
// is added and the feature switches itself off until the operator switches it again.
TEST_F( NatFragment, OnGivesEveryKeyThatNeedsOneAFragmentEntryPerVlanOrNone ) {
   start();
   rule( 1, natKey( Key::staticSrcNat, at( "10.0.0.1", 1000 ), at( "1.1.1.1", 2000 ) ) );
   rule( 2,
         natKey( Key::staticDstNat, {}, {}, at( "1.1.1.2", 80 ), at( "10.0.0.2", 8080 ) ),
         Data().vlans( { 10, 20 } ) );
   rule( 3, natKey( Key::twiceNatSrc, at( "10.0.0.3", 1003 ), at( "1.1.1.3", 2003 ),
                    at( "2.2.2.3", 53 ), at( "3.3.3.3", 5353 ) ) );
   rule( 4, natKey( Key::staticSrcNat, at( "10.0.0.7", 7 ), at( "1.1.1.7" ) ) );
   rule( 5, natKey( Key::twiceNatSrc, at( "10.0.0.9" ), at( "1.1.1.9", 2009 ),
                    at( "2.2.2.9" ), at( "3.3.3.9" ) ) );
   ASSERT_EQ( chipEntries(), 6u );
   fragmentOn( true );
   Lines const expected = { "static DNAT vlan 10 1.1.1.2 -> 10.0.0.2 ",
                            "static DNAT vlan 20 1.1.1.2 -> 10.0.0.2 ",
                            "static SNAT  10.0.0.1 -> 1.1.1.1 ",
                            "twice NAT  10.0.0.3 2.2.2.3 -> 1.1.1.3 3.3.3.3 " };
   EXPECT_EQ( fragmentEntries(), expected );
   // Off releases exactly the fragment entries, in ascending order.
   std::size_t from = mark();
   fragmentOn( false );
   EXPECT_EQ( fieldProcessor().entryIds(), ( std::vector<U32>{ 1, 2, 3, 4, 5, 6 } ) );
   EXPECT_EQ( idCalls( from ), ( Lines{ "7 releaseEntry []", "8 releaseEntry []",
                                        "9 releaseEntry []", "10 releaseEntry []" } ) );
   EXPECT_FALSE( statusSaysEnabled() );

   // One entry short.
   worker()->natEntryManager()->capacityIs( 1, 9 );
   from = mark();
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
   // Off in the worker: a key reprogrammed or committed now gets its default entry only.
   rule( 1, natKey( Key::staticSrcNat, at( "10.0.0.1", 1000 ), at( "1.1.1.1", 2000 ) ),
         Data().protocol( 17 ) );
   rule( 6, natKey( Key::staticSrcNat, at( "10.0.0.6", 1006 ), at( "1.1.1.6", 2006 ) ) );
   EXPECT_EQ( chipEntries(), 7u );
   // With room again, the operator's off and on brings the feature back.
   worker()->natEntryManager()->capacityIs( 1, 20 );
   fragmentOn( false );
   fragmentOn( true );
   EXPECT_TRUE( worker()->fragmentEnabled() );
   EXPECT_TRUE( statusSaysEnabled() );
   EXPECT_EQ( fragmentEntries().size(), 5u );
}

}  // namespace
