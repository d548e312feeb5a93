#pragma once

// The NAT hardware shadow: what the worker holds programmed, or is about to program or
// remove, in the chip's NAT tables, one entry per NAT key.
//
// A NatHwShadowEntry is a value: the key, its hardware data, the rule's uid and whether
// the chip still has to be brought in line with it (dirty). NatHwShadow is an entity
// with one keyed collection, `entry`, keyed by the entry's own key; every write and
// every removal of a present key is announced to its reactors with that key, so the
// programmer can follow the shadow.

#include <iosfwd>
#include <string>
#include <unordered_map>

#include "platform/fwk/Entity.h"
#include "platform/nat/NatHwData.h"
#include "platform/nat/NatHwKey.h"
#include "platform/nat/Uid.h"

namespace Oro {

class NatHwShadowEntry {
public:
   // How the chip differs from the entry. Holds any 32-bit value; the named ones are
   // those the worker sets.
   enum Dirty : U32 {
      clean = 0,           // programmed as it stands
      programPending = 1,  // to be programmed
      deletePending = 2,   // to be removed
   };

   NatHwShadowEntry() = default;
   NatHwShadowEntry( NatHwKey const& key, NatHwData const& data, CorvaneNat::Uid uid,
                     Dirty dirty = clean )
       : key_( key ), data_( data ), uid_( uid ), dirty_( dirty ) {}

   NatHwKey const& key() const { return key_; }
   NatHwData const& data() const { return data_; }
   CorvaneNat::Uid uid() const { return uid_; }
   Dirty dirty() const { return dirty_; }

   void dataIs( NatHwData const& data ) { data_ = data; }
   void uidIs( CorvaneNat::Uid uid ) { uid_ = uid; }
   void dirtyIs( Dirty dirty ) { dirty_ = dirty; }

   bool operator==( NatHwShadowEntry const& o ) const {
      return key_ == o.key_ && data_ == o.data_ && uid_ == o.uid_ && dirty_ == o.dirty_;
   }
   bool operator!=( NatHwShadowEntry const& o ) const { return !( *this == o ); }

private:
   NatHwKey key_;
   NatHwData data_;
   CorvaneNat::Uid uid_;
   Dirty dirty_ = clean;
};

// Text form of a dirty state: its name, or the number for a value without one.
std::string valueToStrep( NatHwShadowEntry::Dirty dirty );

std::ostream& operator<<( std::ostream& os, NatHwShadowEntry const& entry );

class NatHwShadow : public Fwk::Entity {
public:
   typedef Fwk::Ptr<NatHwShadow> Ptr;
   typedef Fwk::PtrConst<NatHwShadow> PtrConst;
   static constexpr Fwk::AttributeId attrEntry = 1;

   typedef Fwk::Collection<NatHwKey, NatHwShadowEntry,
                           std::unordered_map<NatHwKey, NatHwShadowEntry,
                                              Fwk::SaltedHash<NatHwKey, 0x5ad0e7a1u>>>
       EntryCollection;
   typedef EntryCollection::const_iterator const_iterator;

   explicit NatHwShadow( std::string name ) : Entity( std::move( name ) ) {}

   // The entry of `key`, or null.
   NatHwShadowEntry const* entry( NatHwKey const& key ) const {
      return entry_.find( key );
   }
   bool entryHas( NatHwKey const& key ) const { return entry_.has( key ); }
   std::size_t entrys() const { return entry_.size(); }
   // Inserts the entry under its key, or replaces the one there.
   void entryIs( NatHwShadowEntry const& entry ) { entry_.set( entry.key(), entry ); }
   // Removes the entry of `key`; false when there was none.
   bool entryDel( NatHwKey const& key ) { return entry_.del( key ); }

   // (key, entry) pairs, in no particular order.
   const_iterator begin() const { return entry_.begin(); }
   const_iterator end() const { return entry_.end(); }

protected:
   ~NatHwShadow() override;

private:
   EntryCollection entry_{ this, attrEntry };
};

}  // namespace Oro
