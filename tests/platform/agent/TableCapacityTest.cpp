// Table capacity rows: their keys, the order reports see them in, the changes reactors
// receive, and creation by type name.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "platform/agent/TableCapacity.h"
#include "platform/fwk/ActivityManager.h"
#include "platform/fwk/TypeFactory.h"

namespace {

using OroCapacity::TableCapacity;
using OroCapacity::TableCapacityEntry;
using OroCapacity::TableCapacityKey;

typedef std::vector<std::string> Log;

class Recorder : public Fwk::ReactorOn<TableCapacity, Log> {
public:
   Recorder( TableCapacity::Ptr const& e, Log* log ) : ReactorOn( e, log ) {
      hasNotificationActiveIs( true );
   }
   void onAttribute( Fwk::AttributeId attr, Fwk::KeyRef key ) override {
      owner()->push_back( std::to_string( attr ) + "[" +
                          ( key.is<TableCapacityKey>()
                                ? key.as<TableCapacityKey>().stringValue()
                                : "?" ) +
                          "]" );
   }
};

TableCapacityKey natKey( std::string chip, std::string entry ) {
   return TableCapacityKey( "CorvaneNatCapacity", "IFP", std::move( chip ),
                            std::move( entry ) );
}

TEST( TableCapacityTest, KeysAreEqualExactlyWhenEveryFieldIs ) {
   TableCapacityKey const base = natKey( "Chip1", "NAT-Static" );
   TableCapacityKey const same( "CorvaneNatCapacity", "IFP", "Chip1", "NAT-Static" );
   EXPECT_EQ( same, base );
   EXPECT_FALSE( same < base || base < same );
   EXPECT_EQ( same.hash( 3 ), base.hash( 3 ) );
   // One field changed each.
   TableCapacityKey const variants[] = {
       TableCapacityKey( "CorvaneAclCapacity", "IFP", "Chip1", "NAT-Static" ),
       TableCapacityKey( "CorvaneNatCapacity", "EFP", "Chip1", "NAT-Static" ),
       TableCapacityKey( "CorvaneNatCapacity", "IFP", "Chip2", "NAT-Static" ),
       TableCapacityKey( "CorvaneNatCapacity", "IFP", "Chip1", "NAT-Dynamic" ),
   };
   for ( TableCapacityKey const& v : variants ) {
      EXPECT_NE( v, base ) << v;
      EXPECT_TRUE( v < base || base < v ) << v;
      EXPECT_NE( v.hash( 3 ), base.hash( 3 ) ) << v;
   }
   // The same text in another field is another key, also next to an empty field.
   TableCapacityKey const tableOnly( "CorvaneNatCapacity", "IFP", "", "NAT-Static" );
   TableCapacityKey const chipOnly( "CorvaneNatCapacity", "", "IFP", "NAT-Static" );
   EXPECT_NE( tableOnly, chipOnly );
   EXPECT_NE( tableOnly.hash( 3 ), chipOnly.hash( 3 ) );
   EXPECT_EQ( base.stringValue(),
              "feature: CorvaneNatCapacity, table: IFP, chip: Chip1, entry: NAT-Static" );
}

TEST( TableCapacityTest, RowsIterateInKeyOrderAndChangesAreAnnouncedWithTheKey ) {
   Fwk::ScopedActivityManager scope{ new Fwk::VirtualClock };
   TableCapacity::Ptr capacity( new TableCapacity( "capacity" ) );
   Log log;
   Recorder recorder( capacity, &log );

   capacity->entryIs( natKey( "Chip2", "NAT-Static" ), { 1, 511, 0, 512 } );
   capacity->entryIs( natKey( "Chip1", "NAT-Twice" ), { 2, 510, 0, 512 } );
   capacity->entryIs( natKey( "Chip1", "NAT-Dynamic" ), { 3, 509, 0, 512 } );
   capacity->entryIs( natKey( "Chip2", "NAT-Static" ), { 4, 508, 64, 512 } );
   std::vector<std::string> rows;
   for ( auto const& [key, entry] : *capacity ) {
      std::ostringstream os;
      os << key.chip() << " " << key.entry() << " " << entry;
      rows.push_back( os.str() );
   }
   EXPECT_EQ( rows,
              ( std::vector<std::string>{
                  "Chip1 NAT-Dynamic used: 3, free: 509, committed: 0, max: 512",
                  "Chip1 NAT-Twice used: 2, free: 510, committed: 0, max: 512",
                  "Chip2 NAT-Static used: 4, free: 508, committed: 64, max: 512" } ) );
   ASSERT_TRUE( capacity->entry( natKey( "Chip2", "NAT-Static" ) ) );
   EXPECT_EQ( *capacity->entry( natKey( "Chip2", "NAT-Static" ) ),
              ( TableCapacityEntry{ 4, 508, 64, 512 } ) );
   EXPECT_EQ( capacity->entry( natKey( "Chip3", "NAT-Static" ) ), nullptr );

   EXPECT_FALSE( capacity->entryDel( natKey( "Chip3", "NAT-Static" ) ) );
   EXPECT_TRUE( capacity->entryDel( natKey( "Chip1", "NAT-Twice" ) ) );
   EXPECT_EQ( capacity->entrys(), 2u );
   scope.manager().runUntilIdle();
   std::string const prefix = std::to_string( TableCapacity::attrEntry ) +
                              "[feature: CorvaneNatCapacity, table: IFP, ";
   EXPECT_EQ( log, ( Log{ prefix + "chip: Chip2, entry: NAT-Static]",
                          prefix + "chip: Chip1, entry: NAT-Twice]",
                          prefix + "chip: Chip1, entry: NAT-Dynamic]",
                          prefix + "chip: Chip2, entry: NAT-Static]",
                          prefix + "chip: Chip1, entry: NAT-Twice]" } ) );
}

TEST( TableCapacityTest, TheTypeNameCreatesATableNamedByThePath ) {
   Fwk::Entity::Ptr e = Fwk::TypeFactory::instance().create( "OroCapacity::TableCapacity",
                                                             { "capacity/nat" } );
   ASSERT_TRUE( Fwk::ptr_cast<TableCapacity>( e ) );
   EXPECT_EQ( e->name(), "capacity/nat" );
}

}  // namespace
