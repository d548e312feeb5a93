// Hit counters of dynamic NAT keys published per key after each polling interval, and
// the NAT capacity rows, as the status entities show them.

#include "NatTestFixture.h"

#include "platform/agent/CapacityHelperSm.h"
#include "platform/chip/Packet.h"

namespace {

using namespace NatTest;

class NatHitCounts : public NatFixture {
protected:
   // Sends `count` packets built from an entry's own qualifiers, so that it matches them.
   void hit( U32 entryId, U64 count ) {
      Chip::FpEntry const* entry = fieldProcessor().entry( entryId );
      ASSERT_TRUE( entry );
      Chip::Packet packet;
      packet.myStationHit = true;
      packet.src = entry->qualifier( Chip::Qualifier::SrcIp ).data;
      packet.dst = entry->qualifier( Chip::Qualifier::DstIp ).data;
      packet.srcPort = U16( entry->qualifier( Chip::Qualifier::L4SrcPort ).data );
      packet.dstPort = U16( entry->qualifier( Chip::Qualifier::L4DstPort ).data );
      packet.protocol = 6;
      packet.vlan = U16( entry->qualifier( Chip::Qualifier::L3Ingress ).data );
      U32 const matched = platform->chip().lookup( 1, 160, packet, count );
      // Dynamic entries of a key's VLANs carry no VLAN qualifier: the first one installed
      // takes the packets of them all, which does not change the key's total.
      EXPECT_NE( matched, 0u );
      EXPECT_EQ( fieldProcessor().entry( matched )->description().substr( 0, 7 ),
                 entry->description().substr( 0, 7 ) );
   }
   std::map<std::string, U64> hitCounts() {
      std::map<std::string, U64> rows;
      for ( auto const& row : *platform->tcamHitCountStatus() ) {
         rows[row.first.stringValue()] = row.second;
      }
      return rows;
   }
   U32 defaultEntry( Oro::NatHwKey const& key, U16 vlan ) {
      return worker()->entryIdTable()->entry( key ).defaultEntryId( vlan );
   }
};

TEST_F( NatHitCounts, DynamicKeysArePublishedPerKeyAfterEachInterval ) {
   nat.addrOnlyMode = true;  // dynamic keys carry both addresses and their ports
   start();
   Oro::NatHwKey const source =
       natKey( Key::dynamicSrcNat, at( "10.0.0.1", 1024 ), at( "1.1.1.1", 2000 ),
               at( "8.8.8.8", 53 ), at( "9.9.9.9", 53 ), 6 );
   Oro::NatHwKey const destination =
       natKey( Key::dynamicDstNat, at( "7.7.7.7", 5000 ), at( "7.7.7.7", 5000 ),
               at( "1.1.1.2", 80 ), at( "10.0.0.2", 8080 ), 6 );
   Oro::NatHwData perVlan;
   perVlan.vlanIdAppend( 10 );
   perVlan.vlanIdAppend( 20 );
   perVlan.nextHopIdIs( 5 );
   rule( 1, source );
   rule( 2, destination, perVlan );
   rule( 3, natKey( Key::staticSrcNat, at( "10.0.0.3" ),
                    at( "1.1.1.3" ) ) );  // static: no row
   rule( 4, natKey( Key::twiceNatSrc, at( "10.0.0.4" ), at( "1.1.1.4" ), at( "8.8.4.4" ),
                    at( "9.9.4.4" ) ) );  // twice: no row

   hit( defaultEntry( destination, 10 ), 3 );
   hit( defaultEntry( destination, 20 ), 4 );
   hit( defaultEntry( source, 0 ), 2 );
   loop().advance( 9.9 );
   EXPECT_TRUE( hitCounts().empty() ) << "nothing before the first interval";
   loop().advance( 0.1 );
   std::map<std::string, U64> const expected = {
       { "type: dynamicSrcNat, src: 10.0.0.1:1024, dst: 9.9.9.9:53, proto: 6", 2 },
       // The translated destination is the source of a destination key's row.
       { "type: dynamicDstNat, src: 10.0.0.2:8080, dst: 7.7.7.7:5000, proto: 6", 7 } };
   EXPECT_EQ( hitCounts(), expected );

   hit( defaultEntry( source, 0 ), 5 );
   loop().advance( 10.0 );
   EXPECT_EQ( hitCounts().at( "type: dynamicSrcNat, src: 10.0.0.1:1024, dst: 9.9.9.9:53, "
                              "proto: 6" ),
              7u )
       << "totals are cumulative and rescheduled every interval";

   removeRule( 1, source );
   EXPECT_EQ( hitCounts().size(), 1u ) << "a removed key loses its row at once";
   loop().advance( 10.0 );
   EXPECT_EQ( hitCounts().size(), 1u );
}

TEST_F( NatHitCounts, FragmentEntriesDoNotCountAndChipsWithoutCountersDoNotPoll ) {
   nat.fragmentEnabled = true;
   start();
   Oro::NatHwKey const source =
       natKey( Key::dynamicSrcNat, at( "10.0.0.1" ), at( "1.1.1.1" ) );
   rule( 1, source );
   Corvane::EntryIdTableEntry const row = worker()->entryIdTable()->entry( source );
   ASSERT_TRUE( row.fragEntryIdHas( 0 ) );
   Chip::Packet fragment;
   fragment.myStationHit = true;
   fragment.src = ip( "10.0.0.1" );
   fragment.protocol = 17;
   fragment.frag = Chip::Frag::notFirst;
   EXPECT_EQ( platform->chip().lookup( 1, 160, fragment, 9 ), row.fragEntryId( 0 ) );
   loop().advance( 10.0 );
   ASSERT_EQ( hitCounts().size(), 1u );
   EXPECT_EQ( hitCounts().begin()->second, 0u );
   // A worker that goes takes its polling (and every other timer of its own) with it.
   platform->moduleDel( 1 );
   loop().runUntilIdle();
   EXPECT_LT( loop().nextTimerDue(), 0.0 );

   TearDown();
   chip.hitCounters = false;
   start();
   EXPECT_FALSE( worker()->tcamCountersPollingTask() );
   EXPECT_FALSE( worker()->scheduler() );
   EXPECT_EQ( worker()->tcamCountersPollingInterval(), 10.0 );
}

class NatCapacity : public NatFixture {
protected:
   std::map<std::string, std::vector<U32>> rows() {
      Hardware::Capacity::CapacityHelperSm::refreshAll();
      std::map<std::string, std::vector<U32>> out;
      for ( auto const& row : platform->tableCapacity() ) {
         EXPECT_EQ( row.first.feature(), "CorvaneNatCapacity" );
         EXPECT_EQ( row.first.table(), "IFP" );
         EXPECT_EQ( row.first.chip(), "Chip1" );
         EXPECT_EQ( row.second.committed, 0u ) << "nothing is reserved ahead";
         out[row.first.entry()] = { row.second.used, row.second.free, row.second.max };
      }
      return out;
   }
};

TEST_F( NatCapacity, PublishesTheFourRowsWithEveryKindAndTheWholeGroup ) {
   chip.tcamEntries = 20;
   start();
   // The one feature it registers, as capacity tools list features.
   auto const& features = worker()->capacitySm()->features();
   ASSERT_EQ( features.size(), 1u );
   EXPECT_EQ( features[0].feature + " " + features[0].table, "CorvaneNatCapacity IFP" );
   EXPECT_EQ( rows(), ( std::map<std::string, std::vector<U32>>{
                          { "NAT", { 0, 20, 20 } },
                          { "NAT-Dynamic", { 0, 20, 20 } },
                          { "NAT-Static", { 0, 20, 20 } },
                          { "NAT-Twice", { 0, 20, 20 } } } ) );
   Oro::NatHwData twoVlans;
   twoVlans.vlanIdAppend( 10 );
   twoVlans.vlanIdAppend( 20 );
   rule( 1, natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) ),
         twoVlans );
   rule( 2, natKey( Key::twiceNatSrc, at( "10.0.0.2" ), at( "1.1.1.2" ), at( "8.8.8.8" ),
                    at( "9.9.9.9" ) ) );
   rule( 3, natKey( Key::dynamicSrcNat, at( "10.0.0.3" ), at( "1.1.1.3" ) ) );
   // An entry the group gives to someone else (trap filters share the group).
   worker()->natEntryManager()->getEntry( 1, "other", CorvaneTcam::RequestKey() );
   EXPECT_EQ( rows(), ( std::map<std::string, std::vector<U32>>{
                          { "NAT", { 5, 15, 20 } },
                          { "NAT-Dynamic", { 1, 15, 20 } },
                          { "NAT-Static", { 2, 15, 20 } },
                          { "NAT-Twice", { 1, 15, 20 } } } ) )
       << "the three kinds sum below NAT";

   // Refreshed on the helper's clock without being asked.
   rule( 4, natKey( Key::staticSrcNat, at( "10.0.0.4" ), at( "1.1.1.4" ) ) );
   loop().advance( 5.0 );
   auto const& table = platform->tableCapacity();
   OroCapacity::TableCapacityKey const natStatic( "CorvaneNatCapacity", "IFP", "Chip1",
                                                  "NAT-Static" );
   EXPECT_EQ( table.entry( natStatic )->used, 3u );
}

}  // namespace
