#pragma once

// The uid of each programmed NAT key, and the 16-bit uid of its multicast group.
//
// An entity with one keyed collection, `entry`, NatHwKey -> HwKeyUidEntry. It is the
// forward half of the worker's key <-> uid bookkeeping (UidHwKeyTable is the reverse);
// the worker keeps the two in step, the tables do not check each other. Every write and
// every removal of a present key is announced to reactors with the key.

#include <string>
#include <unordered_map>

#include "platform/fwk/Entity.h"
#include "platform/nat/NatHwKey.h"
#include "platform/nat/Uid.h"

namespace CorvaneNat {

struct HwKeyUidEntry {
   Uid uid;
   U16 mcastUid = 0;

   bool operator==( HwKeyUidEntry const& o ) const {
      return uid == o.uid && mcastUid == o.mcastUid;
   }
   bool operator!=( HwKeyUidEntry const& o ) const { return !( *this == o ); }
};

class HwKeyUidTable : public Fwk::Entity {
public:
   typedef Fwk::Ptr<HwKeyUidTable> Ptr;
   typedef Fwk::PtrConst<HwKeyUidTable> PtrConst;
   static constexpr Fwk::AttributeId attrEntry = 1;

   typedef Fwk::Collection<
       Oro::NatHwKey, HwKeyUidEntry,
       std::unordered_map<Oro::NatHwKey, HwKeyUidEntry,
                          Fwk::SaltedHash<Oro::NatHwKey, 0x6b75e3c9u>>>
       EntryCollection;
   typedef EntryCollection::const_iterator const_iterator;

   explicit HwKeyUidTable( std::string name ) : Entity( std::move( name ) ) {}

   // The row of `key`, or null.
   HwKeyUidEntry const* entry( Oro::NatHwKey const& key ) const {
      return entry_.find( key );
   }
   bool entryHas( Oro::NatHwKey const& key ) const { return entry_.has( key ); }
   std::size_t entrys() const { return entry_.size(); }
   // Inserts or replaces the row of `key`.
   void entryIs( Oro::NatHwKey const& key, HwKeyUidEntry const& row ) {
      entry_.set( key, row );
   }
   // Removes the row of `key`; false when there was none.
   bool entryDel( Oro::NatHwKey const& key ) { return entry_.del( key ); }

   // (key, row) pairs, in no particular order.
   const_iterator begin() const { return entry_.begin(); }
   const_iterator end() const { return entry_.end(); }

protected:
   ~HwKeyUidTable() override;

private:
   EntryCollection entry_{ this, attrEntry };
};

}  // namespace CorvaneNat
