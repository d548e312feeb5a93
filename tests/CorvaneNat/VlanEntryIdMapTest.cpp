// The VLAN map of the entry-id table's rows (a small sorted container of its own) against
// a plain map under random operations. The rows and the table are seen through what
// the plug-in does with them: verification, the show command and the randomized test.

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "CorvaneNat/EntryIdTable.h"

namespace {

using Corvane::VlanEntryIdMap;

std::map<U16, U32> asMap( VlanEntryIdMap const& m ) {
   std::map<U16, U32> out;
   for ( auto const& p : m ) {
      out[p.vlanId] = p.entryId;
   }
   return out;
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
