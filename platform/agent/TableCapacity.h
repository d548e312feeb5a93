#pragma once

// Capacity of the chip's tables as features use them, for the agent's capacity reports.
//
// A TableCapacityKey names one row: the feature that publishes it, the hardware table,
// the chip and the kind of entry, for example ("CorvaneNatCapacity", "IFP", "Chip1",
// "NAT-Static"). A TableCapacityEntry is the row's counts. TableCapacity is an entity
// with one ordered collection, `entry`, iterated in key order (feature, table, chip,
// entry) so that reports come out sorted; every write and every removal of a present
// key is announced to reactors with the key.

#include <cstddef>
#include <iosfwd>
#include <map>
#include <string>

#include "platform/fwk/Entity.h"

namespace OroCapacity {

class TableCapacityKey {
public:
   TableCapacityKey() = default;
   TableCapacityKey( std::string feature, std::string table, std::string chip,
                     std::string entry )
       : feature_( std::move( feature ) ),
         table_( std::move( table ) ),
         chip_( std::move( chip ) ),
         entry_( std::move( entry ) ) {}

   std::string const& feature() const { return feature_; }
   std::string const& table() const { return table_; }
   std::string const& chip() const { return chip_; }
   std::string const& entry() const { return entry_; }

   // "feature: CorvaneNatCapacity, table: IFP, chip: Chip1, entry: NAT-Static".
   std::string stringValue() const;
   unsigned hash( unsigned seed ) const noexcept;

   bool operator==( TableCapacityKey const& o ) const;
   bool operator!=( TableCapacityKey const& o ) const { return !( *this == o ); }
   // By feature, table, chip, then entry.
   bool operator<( TableCapacityKey const& o ) const;

private:
   std::string feature_;
   std::string table_;
   std::string chip_;
   std::string entry_;
};

std::ostream& operator<<( std::ostream& os, TableCapacityKey const& key );

struct TableCapacityEntry {
   U32 used = 0;       // entries in use
   U32 free = 0;       // entries still available
   U32 committed = 0;  // entries reserved for the feature, used or not
   U32 max = 0;        // the most the feature can have

   bool operator==( TableCapacityEntry const& o ) const {
      return used == o.used && free == o.free && committed == o.committed && max == o.max;
   }
   bool operator!=( TableCapacityEntry const& o ) const { return !( *this == o ); }
};

// "used: 3, free: 509, committed: 0, max: 512".
std::ostream& operator<<( std::ostream& os, TableCapacityEntry const& entry );

class TableCapacity : public Fwk::Entity {
public:
   typedef Fwk::Ptr<TableCapacity> Ptr;
   typedef Fwk::PtrConst<TableCapacity> PtrConst;
   static constexpr Fwk::AttributeId attrEntry = 1;

   typedef Fwk::OrderedCollection<TableCapacityKey, TableCapacityEntry> EntryCollection;
   typedef EntryCollection::const_iterator const_iterator;

   explicit TableCapacity( std::string name ) : Entity( std::move( name ) ) {}

   // The counts of `key`, or null.
   TableCapacityEntry const* entry( TableCapacityKey const& key ) const {
      return entry_.find( key );
   }
   bool entryHas( TableCapacityKey const& key ) const { return entry_.has( key ); }
   std::size_t entrys() const { return entry_.size(); }
   // Inserts or replaces the counts of `key`.
   void entryIs( TableCapacityKey const& key, TableCapacityEntry const& value ) {
      entry_.set( key, value );
   }
   // Removes the counts of `key`; false when there were none.
   bool entryDel( TableCapacityKey const& key ) { return entry_.del( key ); }

   // (key, counts) pairs, in key order.
   EntryCollection const& entry() const { return entry_; }
   const_iterator begin() const { return entry_.begin(); }
   const_iterator end() const { return entry_.end(); }

protected:
   ~TableCapacity() override;

private:
   EntryCollection entry_{ this, attrEntry };
};

}  // namespace OroCapacity
