#pragma once

// The entry-id table: which field-processor entries the worker created for each NAT key.
//
// One row per key (EntryIdTableEntry), holding two maps from VLAN id to entry id: the
// default entry, matching unfragmented and first-fragment packets, and the fragment
// entry, matching non-first fragments. Rows are values: take a copy with entry( key ),
// change it, store it back with entryIs( row ); nothing changes the table in place.
// A row stays in the table until entryDel removes it, also when its maps are empty.
//
// The table is the worker's own memory (not mounted, not shared) and keeps each row once:
// the hash set is keyed by the row's own key, so a single-VLAN key costs one hash node
// of key plus two small maps and two links.
//
// The table's own order is the order in which its rows were inserted: first(), then
// next( row ). It does not depend on how the hash set places its rows, so it survives
// rehashes, and inserting or removing a row leaves the order of the others as it was
// (a new row comes last). A walk that stops after a row and resumes after it later (the
// show command) meets every row present all along exactly once.

#include <cstddef>
#include <iosfwd>
#include <string>
#include <unordered_set>
#include <utility>

#include "CorvaneNat/VlanEntryIdMap.h"
#include "platform/fwk/Hash.h"
#include "platform/fwk/Ptr.h"
#include "platform/nat/NatHwKey.h"

namespace Corvane {

class EntryIdTableEntry {
public:
   // An empty row: the default key and no entry ids.
   EntryIdTableEntry() = default;
   explicit EntryIdTableEntry( Oro::NatHwKey const& key ) : key_( key ) {}
   // Copies are values: the table's links stay with the stored row.
   EntryIdTableEntry( EntryIdTableEntry const& other )
       : key_( other.key_ ),
         defaultEntryId_( other.defaultEntryId_ ),
         fragEntryId_( other.fragEntryId_ ),
         dataQualifiers_( other.dataQualifiers_ ) {}
   EntryIdTableEntry( EntryIdTableEntry&& other ) noexcept
       : key_( other.key_ ),
         defaultEntryId_( std::move( other.defaultEntryId_ ) ),
         fragEntryId_( std::move( other.fragEntryId_ ) ),
         dataQualifiers_( other.dataQualifiers_ ) {}
   EntryIdTableEntry& operator=( EntryIdTableEntry const& other );
   EntryIdTableEntry& operator=( EntryIdTableEntry&& other ) noexcept;
   // Rows have collections and cannot be built from their text; this stops the process.
   EntryIdTableEntry( char const* first, char const* last );
   static EntryIdTableEntry fromStrep( std::string const& text );

   Oro::NatHwKey const& key() const { return key_; }

   VlanEntryIdMap const& defaultEntryIds() const { return defaultEntryId_; }
   bool defaultEntryIdHas( U16 vlanId ) const { return defaultEntryId_.has( vlanId ); }
   U32 defaultEntryId( U16 vlanId ) const { return defaultEntryId_.entryId( vlanId ); }
   void defaultEntryIdIs( U16 vlanId, U32 entryId ) {
      defaultEntryId_.entryIdIs( vlanId, entryId );
   }
   U32 defaultEntryIdDel( U16 vlanId ) { return defaultEntryId_.entryIdDel( vlanId ); }
   void defaultEntryIdDelAll() { defaultEntryId_.entryIdDelAll(); }

   VlanEntryIdMap const& fragEntryIds() const { return fragEntryId_; }
   bool fragEntryIdHas( U16 vlanId ) const { return fragEntryId_.has( vlanId ); }
   U32 fragEntryId( U16 vlanId ) const { return fragEntryId_.entryId( vlanId ); }
   void fragEntryIdIs( U16 vlanId, U32 entryId ) {
      fragEntryId_.entryIdIs( vlanId, entryId );
   }
   U32 fragEntryIdDel( U16 vlanId ) { return fragEntryId_.entryIdDel( vlanId ); }
   void fragEntryIdDelAll() { fragEntryId_.entryIdDelAll(); }

   // The qualifiers that follow the key's data (natDataQualifiers) which some entry of
   // the row may hold, one bit per qualifier call (FpQualifierSet): what a
   // reprogramming takes off an entry when its new recipe no longer sets them.
   U16 dataQualifiers() const { return dataQualifiers_; }
   void dataQualifiersIs( U16 qualifiers ) { dataQualifiers_ = qualifiers; }

   // True unless the row is empty (default key and both maps empty).
   explicit operator bool() const;
   bool operator==( EntryIdTableEntry const& other ) const;
   bool operator!=( EntryIdTableEntry const& other ) const { return !( *this == other ); }

private:
   friend class EntryIdTable;

   Oro::NatHwKey key_;
   // Mutable so that the table can replace the maps of a stored row in place: they are
   // not part of the row's hash.
   mutable VlanEntryIdMap defaultEntryId_;
   mutable VlanEntryIdMap fragEntryId_;
   mutable U16 dataQualifiers_ = 0;
   // The neighbours of a stored row in the table's order.
   mutable EntryIdTableEntry const* prev_ = nullptr;
   mutable EntryIdTableEntry const* next_ = nullptr;
};

// "Value('Corvane::EntryIdTableEntry', ** {'key': <key>, 'defaultEntryId': None,
// 'fragEntryId': None})": the maps are never rendered.
std::string valueToStrep( EntryIdTableEntry const& entry );
std::ostream& operator<<( std::ostream& os, EntryIdTableEntry const& entry );

class EntryIdTable : public Fwk::PtrInterface {
   struct RowHash {
      static std::size_t of( Oro::NatHwKey const& key ) noexcept {
         return key.hash( Fwk::hashSeed() ^ 0xb987056bu );
      }
      std::size_t operator()( EntryIdTableEntry const& row ) const noexcept {
         return of( row.key() );
      }
   };
   struct RowKeyEqual {
      bool operator()( EntryIdTableEntry const& a, EntryIdTableEntry const& b ) const {
         return a.key() == b.key();
      }
   };
   typedef std::unordered_set<EntryIdTableEntry, RowHash, RowKeyEqual> Rows;

public:
   typedef Fwk::Ptr<EntryIdTable> Ptr;
   typedef Fwk::PtrConst<EntryIdTable> PtrConst;
   typedef Rows::const_iterator const_iterator;

   EntryIdTable() = default;
   EntryIdTable( EntryIdTable const& ) = delete;
   EntryIdTable& operator=( EntryIdTable const& ) = delete;

   // Stores a row under its key: a present row's maps are replaced (not merged) by the
   // given row's; an absent row is inserted as a copy.
   void entryIs( EntryIdTableEntry const& entry );
   // The row of a key, inserted with empty maps when absent; the iterator stays valid
   // until the table next gains a row.
   const_iterator rowIs( Oro::NatHwKey const& key );
   // Stores `entry`'s maps into `row` (found with rowIs or find), as entryIs does,
   // without looking the key up again; `entry` must have the row's key.
   void entryIs( const_iterator row, EntryIdTableEntry const& entry );
   // Removes the row of a key and returns it; an empty row when there was none.
   EntryIdTableEntry entryDel( Oro::NatHwKey const& key );
   void entryDelAll();

   // A copy of the row of a key, or an empty row (false as a bool) when absent.
   EntryIdTableEntry entry( Oro::NatHwKey const& key ) const;
   bool entryHas( Oro::NatHwKey const& key ) const;
   std::size_t entrys() const { return rows_.size(); }

   const_iterator begin() const { return rows_.begin(); }
   const_iterator end() const { return rows_.end(); }
   const_iterator find( Oro::NatHwKey const& key ) const;

   // The table's own order (see above): its first row, and the row after a stored one;
   // null after the last. A row stays valid until it is removed.
   EntryIdTableEntry const* first() const { return first_; }
   static EntryIdTableEntry const* next( EntryIdTableEntry const& row ) {
      return row.next_;
   }
   // The stored row of a key, or null.
   EntryIdTableEntry const* row( Oro::NatHwKey const& key ) const;
   // The hash set's bucket count: it grows as the table rehashes.
   std::size_t bucketCount() const { return rows_.bucket_count(); }

private:
   void link( EntryIdTableEntry const& row );
   void unlink( EntryIdTableEntry const& row );

   Rows rows_;
   EntryIdTableEntry const* first_ = nullptr;
   EntryIdTableEntry const* last_ = nullptr;
};

}  // namespace Corvane
