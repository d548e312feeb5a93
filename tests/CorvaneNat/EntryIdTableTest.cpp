// The entry-id table and its rows: value semantics, replace-not-merge, absent keys and
// VLANs, the text form, and the VLAN map against a plain reference.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include "CorvaneNat/EntryIdTable.h"

namespace {

using Corvane::EntryIdTable;
using Corvane::EntryIdTableEntry;
using Corvane::VlanEntryIdMap;
using Oro::NatHwKey;
using Wirel::IpAddr;
using Wirel::IpAndPort;

NatHwKey key( U32 srcOld, U16 port = 0,
              NatHwKey::NatKeyType type = NatHwKey::staticSrcNat ) {
   return NatHwKey( type, IpAndPort( IpAddr( srcOld ), port ),
                    IpAndPort( IpAddr( 0x01010101 ), 0 ), IpAndPort(), IpAndPort(), false,
                    0, 0, Oro::NatAclId() );
}

std::map<U16, U32> asMap( VlanEntryIdMap const& m ) {
   std::map<U16, U32> out;
   for ( auto const& p : m ) {
      out[p.vlanId] = p.entryId;
   }
   return out;
}

TEST( EntryIdTableEntry, RowOperationsOnBothMaps ) {
   EntryIdTableEntry row( key( 0x0a000001 ) );
   row.defaultEntryIdIs( 10, 100 );
   row.defaultEntryIdIs( 20, 200 );
   row.defaultEntryIdIs( 10, 101 );  // overwrites
   row.fragEntryIdIs( 10, 110 );
   EXPECT_EQ( asMap( row.defaultEntryIds() ),
              ( std::map<U16, U32>{ { 10, 101 }, { 20, 200 } } ) );
   EXPECT_EQ( asMap( row.fragEntryIds() ), ( std::map<U16, U32>{ { 10, 110 } } ) );
   EXPECT_TRUE( row.fragEntryIdHas( 10 ) );
   EXPECT_FALSE( row.fragEntryIdHas( 20 ) );
   EXPECT_EQ( row.fragEntryId( 20 ), 0u );

   EXPECT_EQ( row.defaultEntryIdDel( 30 ), 0u ) << "an absent VLAN";
   EXPECT_EQ( row.defaultEntryIds().size(), 2u );
   EXPECT_EQ( row.defaultEntryIdDel( 10 ), 101u );
   EXPECT_FALSE( row.defaultEntryIdHas( 10 ) );
   EXPECT_EQ( row.fragEntryIdDel( 10 ), 110u );
   row.defaultEntryIdDelAll();
   EXPECT_TRUE( row.defaultEntryIds().empty() );
   EXPECT_TRUE( row ) << "a row with a key is not empty even without ids";
   EXPECT_FALSE( EntryIdTableEntry() );
   EXPECT_FALSE( EntryIdTableEntry( NatHwKey() ) );
}

TEST( EntryIdTableEntry, EqualityComparesKeyAndBothMaps ) {
   EntryIdTableEntry a( key( 1 ) ), b( key( 1 ) );
   a.defaultEntryIdIs( 5, 50 );
   b.defaultEntryIdIs( 5, 50 );
   EXPECT_EQ( a, b );
   b.fragEntryIdIs( 5, 51 );
   EXPECT_NE( a, b );
   a.fragEntryIdIs( 5, 52 );
   EXPECT_NE( a, b ) << "same VLANs, other entry ids";
   EXPECT_NE( EntryIdTableEntry( key( 1 ) ), EntryIdTableEntry( key( 2 ) ) );
}

TEST( EntryIdTableEntry, TextFormNamesTheKeyAndNeverTheMaps ) {
   EntryIdTableEntry row( key( 0x0a000001, 80 ) );
   row.defaultEntryIdIs( 7, 9 );
   row.fragEntryIdIs( 7, 10 );
   std::string const expected =
       "Value('Corvane::EntryIdTableEntry', ** {'key': " + row.key().stringValue() +
       ", 'defaultEntryId': None, 'fragEntryId': None})";
   EXPECT_EQ( valueToStrep( row ), expected );
   EXPECT_EQ( valueToStrep( EntryIdTableEntry( row.key() ) ), expected );
   EXPECT_NE( expected.find( "old sip: 10.0.0.1:80," ), std::string::npos );
}

TEST( EntryIdTableEntryDeathTest, CannotBeBuiltFromText ) {
   EXPECT_DEATH( EntryIdTableEntry::fromStrep( "Value('Corvane::EntryIdTableEntry')" ),
                 "!\"No String constructor for EntryIdTableEntry - has collection\"" );
}

TEST( EntryIdTable, RowsAreCopiedOutChangedAndStoredBack ) {
   EntryIdTable::Ptr table( new EntryIdTable );
   EXPECT_FALSE( table->entry( key( 1 ) ) ) << "an unknown key yields an empty row";
   EXPECT_FALSE( table->entryHas( key( 1 ) ) );

   EntryIdTableEntry row( key( 1 ) );
   table->entryIs( row );
   EXPECT_EQ( table->entrys(), 1u ) << "a row without ids is present";
   EXPECT_TRUE( table->entryHas( key( 1 ) ) );

   EntryIdTableEntry copy = table->entry( key( 1 ) );
   copy.defaultEntryIdIs( 10, 100 );
   EXPECT_FALSE( table->entry( key( 1 ) ).defaultEntryIdHas( 10 ) )
       << "changing a copy leaves the table alone";
   table->entryIs( copy );
   EXPECT_EQ( table->entry( key( 1 ) ).defaultEntryId( 10 ), 100u );
   EXPECT_EQ( table->entrys(), 1u );
}

TEST( EntryIdTable, StoringARowReplacesItsMapsRatherThanMerging ) {
   EntryIdTable table;
   EntryIdTableEntry big( key( 1 ) );
   for ( U16 v = 1; v <= 5; ++v ) {
      big.defaultEntryIdIs( v, v * 10u );
      big.fragEntryIdIs( v, v * 11u );
   }
   table.entryIs( big );
   EntryIdTableEntry small( key( 1 ) );
   small.defaultEntryIdIs( 3, 33 );
   table.entryIs( small );
   EXPECT_EQ( table.entry( key( 1 ) ), small );
   EXPECT_TRUE( table.entry( key( 1 ) ).fragEntryIds().empty() );
   // Storing the stored row itself changes nothing.
   table.entryIs( *table.find( key( 1 ) ) );
   EXPECT_EQ( table.entry( key( 1 ) ), small );
}

TEST( EntryIdTable, DeletionReturnsTheRowOrAnEmptyOne ) {
   EntryIdTable table;
   for ( U32 i = 1; i <= 3; ++i ) {
      EntryIdTableEntry row( key( i ) );
      row.defaultEntryIdIs( 1, i );
      row.defaultEntryIdIs( 2, i + 100 );
      table.entryIs( row );
   }
   EntryIdTableEntry removed = table.entryDel( key( 2 ) );
   EXPECT_EQ( removed.key(), key( 2 ) );
   EXPECT_EQ( asMap( removed.defaultEntryIds() ),
              ( std::map<U16, U32>{ { 1, 2 }, { 2, 102 } } ) );
   EXPECT_EQ( table.entrys(), 2u );
   EXPECT_FALSE( table.entryDel( key( 2 ) ) );
   EXPECT_FALSE( table.entryDel( key( 9 ) ) );

   std::vector<U32> seen;
   for ( auto const& row : table ) {
      seen.push_back( row.key().srcIpAndPortOld().ip().value() );
   }
   std::sort( seen.begin(), seen.end() );
   EXPECT_EQ( seen, ( std::vector<U32>{ 1, 3 } ) );
   table.entryDelAll();
   EXPECT_EQ( table.entrys(), 0u );
}

TEST( EntryIdTable, KeysDifferingInAnyFieldAreDifferentRows ) {
   EntryIdTable table;
   std::vector<NatHwKey> keys = {
       key( 1 ), key( 1, 80 ), key( 1, 0, NatHwKey::staticDstNat ),
       NatHwKey( NatHwKey::staticSrcNat, IpAndPort( IpAddr( 1 ), 0 ),
                 IpAndPort( IpAddr( 0x01010101 ), 0 ), IpAndPort(), IpAndPort(), true, 0,
                 0, Oro::NatAclId() ),
       NatHwKey( NatHwKey::staticSrcNat, IpAndPort( IpAddr( 1 ), 0 ),
                 IpAndPort( IpAddr( 0x01010101 ), 0 ), IpAndPort(), IpAndPort(), false, 0,
                 0, Oro::NatAclId( 4 ) ) };
   for ( std::size_t i = 0; i < keys.size(); ++i ) {
      EntryIdTableEntry row( keys[i] );
      row.defaultEntryIdIs( 0, static_cast<U32>( i + 1 ) );
      table.entryIs( row );
   }
   ASSERT_EQ( table.entrys(), keys.size() );
   for ( std::size_t i = 0; i < keys.size(); ++i ) {
      EXPECT_EQ( table.entry( keys[i] ).defaultEntryId( 0 ), i + 1 );
   }
}

TEST( VlanEntryIdMap, MatchesAPlainMapUnderRandomOperations ) {
   std::mt19937 random( 12345 );
   for ( int round = 0; round < 50; ++round ) {
      VlanEntryIdMap map;
      std::map<U16, U32> reference;
      for ( int step = 0; step < 200; ++step ) {
         U16 vlan = static_cast<U16>( random() % 70 );
         switch ( random() % 5 ) {
            case 0:
            case 1:
            case 2: {
               U32 id = static_cast<U32>( random() );
               map.entryIdIs( vlan, id );
               reference[vlan] = id;
               break;
            }
            case 3: {
               auto i = reference.find( vlan );
               U32 expected = i == reference.end() ? 0 : i->second;
               if ( i != reference.end() ) {
                  reference.erase( i );
               }
               ASSERT_EQ( map.entryIdDel( vlan ), expected );
               break;
            }
            default: {
               VlanEntryIdMap copy( map );  // copies must be independent and equal
               VlanEntryIdMap moved( std::move( copy ) );
               ASSERT_EQ( moved, map );
               moved.entryIdIs( 999, 1 );
               ASSERT_NE( moved, map );
               map = moved;
               map.entryIdDel( 999 );
               if ( random() % 10 == 0 ) {
                  map.entryIdDelAll();
                  reference.clear();
               }
            }
         }
         ASSERT_EQ( asMap( map ), reference ) << "round " << round << " step " << step;
         ASSERT_EQ( map.size(), reference.size() );
      }
   }
}

}  // namespace
