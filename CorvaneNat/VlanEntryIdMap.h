#pragma once

// A small map from VLAN id to field-processor entry id, kept sorted by VLAN id.
//
// Most NAT keys are installed on one VLAN, so one pair lives inside the map itself and
// only a second pair moves the pairs to the heap. The map takes 16 bytes in a 64-bit
// build and 12 in a 32-bit one. Entry id 0 means "no entry"; the map stores whatever it
// is given, 0 included.

#include <cstddef>

#include "platform/fwk/Types.h"

namespace Corvane {

class VlanEntryIdMap {
public:
   struct Pair {
      U16 vlanId;
      U32 entryId;
   };

   VlanEntryIdMap() noexcept : inline_{ 0, 0 } {}
   VlanEntryIdMap( VlanEntryIdMap const& other );
   VlanEntryIdMap( VlanEntryIdMap&& other ) noexcept;
   VlanEntryIdMap& operator=( VlanEntryIdMap const& other );
   VlanEntryIdMap& operator=( VlanEntryIdMap&& other ) noexcept;
   ~VlanEntryIdMap() { release(); }

   std::size_t size() const { return size_; }
   bool empty() const { return size_ == 0; }
   bool has( U16 vlanId ) const { return find( vlanId ) != nullptr; }
   // The entry id of a VLAN, 0 when the VLAN is absent.
   U32 entryId( U16 vlanId ) const;

   // Sets or overwrites the entry id of a VLAN.
   void entryIdIs( U16 vlanId, U32 entryId );
   // Removes a VLAN; returns its entry id, or 0 when it was absent.
   U32 entryIdDel( U16 vlanId );
   void entryIdDelAll();

   Pair const* begin() const { return pairs(); }
   Pair const* end() const { return pairs() + size_; }

   bool operator==( VlanEntryIdMap const& other ) const;
   bool operator!=( VlanEntryIdMap const& other ) const { return !( *this == other ); }

private:
   bool onHeap() const { return capacity_ > 1; }
   Pair* pairs() { return onHeap() ? heap_ : &inline_; }
   Pair const* pairs() const { return onHeap() ? heap_ : &inline_; }
   Pair const* find( U16 vlanId ) const;
   void release();
   void grow();

   union {
      Pair inline_;
      Pair* heap_;
   };
   U16 size_ = 0;
   U16 capacity_ = 1;
};

}  // namespace Corvane
