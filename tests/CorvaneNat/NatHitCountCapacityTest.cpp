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
   void hit( Oro::NatHwKey const& key, U16 vlan, U64 count ) {
      auto const* e =
          chipEntry( worker()->entryIdTable()->entry( key ).defaultEntryId( vlan ) );
      ASSERT_TRUE( e );
      Chip::Packet p;
      p.myStationHit = true;
      p.src = e->qualifier( Chip::Qualifier::SrcIp ).data;
      p.dst = e->qualifier( Chip::Qualifier::DstIp ).data;
      p.srcPort = U16( e->qualifier( Chip::Qualifier::L4SrcPort ).data );
      p.dstPort = U16( e->qualifier( Chip::Qualifier::L4DstPort ).data );
      p.protocol = 6;
      // Dynamic entries of a key's VLANs carry no VLAN qualifier: the first one installed
      // takes the packets of them all, which does not change the key's total.
      EXPECT_NE( platform->chip().lookup( 1, 160, p, count ), 0u );
   }
   std::map<std::string, U64> hitCounts() {
      std::map<std::string, U64> rows;
      for ( auto const& row : *platform->tcamHitCountStatus() ) {
         rows[row.first.stringValue()] = row.second;
      }
      return rows;
   }
};

TEST_F( NatHitCounts, DynamicKeysArePublishedPerKeyAfterEachInterval ) {
   nat.addrOnlyMode = true;  // dynamic keys carry both addresses and their ports
   nat.fragmentEnabled = true;
   start();
   Oro::NatHwKey const source =
       natKey( Key::dynamicSrcNat, at( "10.0.0.1", 1024 ), at( "1.1.1.1", 2000 ),
               at( "8.8.8.8", 53 ), at( "9.9.9.9", 53 ), 6 );
   Oro::NatHwKey const destination =
       natKey( Key::dynamicDstNat, at( "7.7.7.7", 5000 ), at( "7.7.7.7", 5000 ),
               at( "1.1.1.2", 80 ), at( "10.0.0.2", 8080 ), 6 );
   rule( 1, source );
   rule( 2, destination, Data().vlans( { 10, 20 } ).nextHop( 5 ) );
   rule( 3, natKey( Key::staticSrcNat, at( "10.0.0.3" ), at( "1.1.1.3" ) ) );
   rule( 4, natKey( Key::twiceNatSrc, at( "10.0.0.4" ), at( "1.1.1.4" ), at( "8.8.4.4" ),
                    at( "9.9.4.4" ) ) );
   hit( destination, 10, 3 );
   hit( destination, 20, 4 );
   hit( source, 0, 2 );
   // A non-first fragment takes the fragment entry, which is not counted.
   Chip::Packet fragment;
   fragment.myStationHit = true;
   fragment.src = ip( "10.0.0.1" );
   fragment.dst = ip( "8.8.8.8" );
   fragment.protocol = 6;
   fragment.frag = Chip::Frag::notFirst;
   EXPECT_EQ( platform->chip().lookup( 1, 160, fragment, 9 ),
              worker()->entryIdTable()->entry( source ).fragEntryId( 0 ) );
   loop().advance( 9.9 );
   EXPECT_TRUE( hitCounts().empty() ) << "nothing before the first interval";
   loop().advance( 0.1 );
   // Static and twice keys have no row; a destination key's row is under its
   // translated destination.
   std::map<std::string, U64> const expected = {
       { "type: dynamicSrcNat, src: 10.0.0.1:1024, dst: 9.9.9.9:53, proto: 6", 2 },
       { "type: dynamicDstNat, src: 10.0.0.2:8080, dst: 7.7.7.7:5000, proto: 6", 7 } };
   EXPECT_EQ( hitCounts(), expected );
   hit( source, 0, 5 );
   loop().advance( 10.0 );
   EXPECT_EQ( hitCounts().begin()->second + hitCounts().rbegin()->second, 14u )
       << "totals are cumulative and rescheduled every interval";
   removeRule( 1, source );
   EXPECT_EQ( hitCounts().size(), 1u ) << "a removed key loses its row at once";
   // A worker that goes takes its polling (and every other timer of its own) with it.
   platform->moduleDel( 1 );
   loop().runUntilIdle();
   EXPECT_LT( loop().nextTimerDue(), 0.0 );

   TearDown();
   chip.hitCounters = false;
   start();
   EXPECT_FALSE( worker()->tcamCountersPollingTask() );
}

TEST_F( NatHitCounts, CapacityRowsOfEveryKindAndTheWholeGroup ) {
   chip.tcamEntries = 20;
   start();
   auto rows = [this] {
      Hardware::Capacity::CapacityHelperSm::refreshAll();
      std::map<std::string, std::vector<U32>> out;
      for ( auto const& row : platform->tableCapacity() ) {
         EXPECT_EQ(
             row.first.feature() + " " + row.first.table() + " " + row.first.chip(),
             "CorvaneNatCapacity IFP Chip1" );
         EXPECT_EQ( row.second.committed, 0u ) << "nothing is reserved ahead";
         out[row.first.entry()] = { row.second.used, row.second.free, row.second.max };
      }
      return out;
   };
   rule( 1, natKey( Key::staticDstNat, {}, {}, at( "1.1.1.1" ), at( "10.0.0.1" ) ),
         Data().vlans( { 10, 20 } ) );
   rule( 2, natKey( Key::twiceNatSrc, at( "10.0.0.2" ), at( "1.1.1.2" ), at( "8.8.8.8" ),
                    at( "9.9.9.9" ) ) );
   rule( 3, natKey( Key::dynamicSrcNat, at( "10.0.0.3" ), at( "1.1.1.3" ) ) );
   // An entry the group gives to someone else (trap filters share the group).
   worker()->natEntryManager()->getEntry( 1, "other", CorvaneTcam::RequestKey() );
   EXPECT_EQ( rows(), ( std::map<std::string, std::vector<U32>>{
                          { "NAT", { 5, 15, 20 } },
                          { "NAT-Dynamic", { 1, 15, 20 } },
                          { "NAT-Static", { 2, 15, 20 } },
                          { "NAT-Twice", { 1, 15, 20 } } } ) );
   // Refreshed on the helper's clock without being asked.
   rule( 4, natKey( Key::staticSrcNat, at( "10.0.0.4" ), at( "1.1.1.4" ) ) );
   loop().advance( 5.0 );
   EXPECT_EQ( platform->tableCapacity()
                  .entry( OroCapacity::TableCapacityKey( "CorvaneNatCapacity", "IFP",
                                                         "Chip1", "NAT-Static" ) )
                  ->used,
              3u );
}

}  // namespace
