#pragma once

// The NAT key of each uid in use: the reverse half of the worker's key <-> uid
// bookkeeping (HwKeyUidTable is the forward half).
//
// An entity with one keyed collection, `entry`, Uid -> NatHwKey. Every write and every
// removal of a present uid is announced to reactors with the uid.

#include <string>
#include <unordered_map>

#include "platform/fwk/Entity.h"
#include "platform/nat/NatHwKey.h"
#include "platform/nat/Uid.h"

namespace CorvaneNat {

class UidHwKeyTable : public Fwk::Entity {
public:
   typedef Fwk::Ptr<UidHwKeyTable> Ptr;
   typedef Fwk::PtrConst<UidHwKeyTable> PtrConst;
   static constexpr Fwk::AttributeId attrEntry = 1;

   typedef Fwk::Collection<
       Uid, Oro::NatHwKey,
       std::unordered_map<Uid, Oro::NatHwKey, Fwk::SaltedHash<Uid, 0x1c93a52fu>>>
       EntryCollection;
   typedef EntryCollection::const_iterator const_iterator;

   explicit UidHwKeyTable( std::string name ) : Entity( std::move( name ) ) {}

   // The key of `uid`, or null.
   Oro::NatHwKey const* entry( Uid uid ) const { return entry_.find( uid ); }
   bool entryHas( Uid uid ) const { return entry_.has( uid ); }
   std::size_t entrys() const { return entry_.size(); }
   // Inserts or replaces the key of `uid`.
   void entryIs( Uid uid, Oro::NatHwKey const& key ) { entry_.set( uid, key ); }
   // Removes the key of `uid`; false when there was none.
   bool entryDel( Uid uid ) { return entry_.del( uid ); }

   // (uid, key) pairs, in no particular order.
   const_iterator begin() const { return entry_.begin(); }
   const_iterator end() const { return entry_.end(); }

protected:
   ~UidHwKeyTable() override;

private:
   EntryCollection entry_{ this, attrEntry };
};

}  // namespace CorvaneNat
