// Packet lookup in the field processor against a plain linear reference over random
// entries: which installed entry of a group wins (priority, then install order through
// install, reinstall, uninstall and release), fragments, qualifier widths, the
// exact-match stage's hit and hit counting.

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <vector>

#include "platform/chip/ChipModel.h"

namespace {

using Chip::Frag;
using Chip::IpFragSelector;
using Chip::Packet;
using Chip::Qualifier;

U32 const natGroup = 160;

class LookupTest : public ::testing::Test {
protected:
   Chip::ChipModel::Ptr chip = Chip::ChipModel::ChipModelIs();
   Chip::FieldProcessor& fp = chip->unitIs( 1 ).fieldProcessor();
};

// The reference: entries as the test set them, matched field by field and searched
// linearly for the best priority, then the smallest install sequence.
struct RefEntry {
   U32 group = 0;
   S32 priority = 0;
   bool installed = false;
   U64 order = 0;
   std::map<Qualifier, std::pair<U32, U32>> masked;
   bool hasFrag = false;
   IpFragSelector frag = IpFragSelector::Any;
   U64 hits = 0;
};

// The packet's value for `q` and the width of the qualifier.
std::pair<U32, U32> refField( Qualifier q, Packet const& p ) {
   std::map<Qualifier, std::pair<U32, U32>> const fields = {
       { Qualifier::SrcIp, { p.src, ~0u } },
       { Qualifier::DstIp, { p.dst, ~0u } },
       { Qualifier::L4SrcPort, { p.srcPort, 0xffff } },
       { Qualifier::L4DstPort, { p.dstPort, 0xffff } },
       { Qualifier::IpProtocol, { p.protocol, 0xff } },
       { Qualifier::TcpControl, { p.tcpFlags, 0xff } },
       { Qualifier::L3Ingress, { p.vlan, 0x1fff } },
       { Qualifier::MyStationHit, { p.myStationHit, 1 } },
       { Qualifier::ExactMatch, { p.exactMatchHit, 1 } } };
   return fields.at( q );
}

bool refMatches( RefEntry const& e, Packet const& p ) {
   for ( auto const& [q, dataAndMask] : e.masked ) {
      bool port = q == Qualifier::L4SrcPort || q == Qualifier::L4DstPort;
      auto const [value, width] = refField( q, p );
      U32 const mask = dataAndMask.second & width;
      if ( ( port && p.frag == Frag::notFirst ) ||
           ( value & mask ) != ( dataAndMask.first & mask ) ) {
         return false;
      }
   }
   return !e.hasFrag || e.frag == IpFragSelector::Any ||
          ( e.frag == IpFragSelector::Non && p.frag == Frag::none ) ||
          ( e.frag == IpFragSelector::First && p.frag == Frag::first ) ||
          ( e.frag == IpFragSelector::NonOrFirst && p.frag != Frag::notFirst ) ||
          ( e.frag == IpFragSelector::NotFirst && p.frag == Frag::notFirst );
}

U32 refLookup( std::map<U32, RefEntry>& entries, U32 group, Packet const& p ) {
   RefEntry* best = nullptr;
   U32 bestId = 0;
   for ( auto& e : entries ) {
      RefEntry& r = e.second;
      if ( r.group != group || !r.installed || !refMatches( r, p ) ) {
         continue;
      }
      if ( !best || r.priority > best->priority ||
           ( r.priority == best->priority && r.order < best->order ) ) {
         best = &r;
         bestId = e.first;
      }
   }
   if ( best ) {
      ++best->hits;
   }
   return bestId;
}

TEST_F( LookupTest, AgreesWithLinearReferenceOnRandomEntries ) {
   std::mt19937 rng( 20240611 );
   auto pick = [&rng]( auto const& values ) {
      return values[std::uniform_int_distribution<std::size_t>(
          0, values.size() - 1 )( rng )];
   };
   std::vector<U32> const addrs = { 0x0a000001, 0x0a000002, 0x0a000101 };
   std::vector<U32> const masks = { 0xffffffff, 0xffffff00, 0, 0xffff0000 };
   std::vector<U32> const small = { 0, 6, 17, 80, 0x200a, 10 };
   std::vector<Qualifier> const qualifiers = {
       Qualifier::SrcIp,     Qualifier::DstIp,        Qualifier::L4SrcPort,
       Qualifier::L4DstPort, Qualifier::IpProtocol,   Qualifier::TcpControl,
       Qualifier::L3Ingress, Qualifier::MyStationHit, Qualifier::ExactMatch };
   std::vector<IpFragSelector> const frags = {
       IpFragSelector::Non, IpFragSelector::First, IpFragSelector::NonOrFirst,
       IpFragSelector::NotFirst, IpFragSelector::Any };
   std::vector<U32> const groups = { natGroup, 7 };
   std::vector<S32> const priorities = { 0, 1, 1, 5, 0x7fffffff, -3 };

   std::map<U32, RefEntry> ref;
   U64 sequence = 0;
   int matched = 0;
   for ( int op = 0; op < 3000; ++op ) {
      int what = std::uniform_int_distribution<int>( 0, 9 )( rng );
      if ( ref.empty() || what < 3 ) {
         RefEntry r;
         r.group = pick( groups );
         U32 id = fp.entryIs( r.group, "r" );
         for ( int q = std::uniform_int_distribution<int>( 0, 3 )( rng ); q > 0; --q ) {
            Qualifier qualifier = pick( qualifiers );
            bool addr = qualifier == Qualifier::SrcIp || qualifier == Qualifier::DstIp;
            U32 data = addr ? pick( addrs ) : pick( small );
            U32 mask = addr ? pick( masks ) : pick( std::vector<U32>{ 0xffffffff, 0xf } );
            if ( qualifier == Qualifier::ExactMatch ) {
               fp.exactMatchIs( id, 0, Chip::ExactMatchField::HitStatus, data, mask );
            } else {
               fp.qualifierIs( id, qualifier, data, mask );
            }
            r.masked[qualifier] = { data, mask };
         }
         if ( what == 0 ) {
            r.hasFrag = true;
            r.frag = pick( frags );
            fp.ipFragIs( id, r.frag );
         }
         ref[id] = r;
         continue;
      }
      auto it = ref.begin();
      std::advance(
          it, std::uniform_int_distribution<std::size_t>( 0, ref.size() - 1 )( rng ) );
      U32 id = it->first;
      RefEntry& r = it->second;
      if ( what == 3 ) {
         r.priority = pick( priorities );
         fp.priorityIs( id, r.priority );
      } else if ( what <= 5 ) {
         r.installed = true;
         r.order = ++sequence;
         fp.install( id );
      } else if ( what == 6 ) {
         if ( r.order == 0 ) {
            r.order = ++sequence;
         }
         r.installed = true;
         fp.reinstall( id );
      } else if ( what == 7 ) {
         r.installed = false;
         fp.uninstall( id );
      } else if ( what == 8 ) {
         fp.entryDel( id );
         ref.erase( it );
      } else {
         Packet p;
         p.src = pick( addrs );
         p.dst = pick( addrs );
         p.srcPort = U16( pick( small ) );
         p.dstPort = U16( pick( small ) );
         p.protocol = U8( pick( small ) );
         p.tcpFlags = U8( pick( small ) );
         p.vlan = U16( pick( small ) & 0xfff );
         p.myStationHit = pick( small ) % 2;
         p.exactMatchHit = pick( small ) % 2;
         p.frag = Frag( std::uniform_int_distribution<int>( 0, 2 )( rng ) );
         U32 group = pick( groups );
         U32 expected = refLookup( ref, group, p );
         ASSERT_EQ( chip->lookup( 1, group, p, 1 ), expected ) << "operation " << op;
         matched += expected != 0;
      }
   }
   EXPECT_GT( matched, 100 );  // the data is dense enough for lookups to find entries
   for ( auto const& e : ref ) {
      EXPECT_EQ( fp.entry( e.first )->hits(), e.second.hits ) << "entry " << e.first;
   }
}

}  // namespace
