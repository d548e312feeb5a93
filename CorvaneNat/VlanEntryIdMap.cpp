#include "CorvaneNat/VlanEntryIdMap.h"

#include <algorithm>
#include <cstring>

namespace Corvane {

VlanEntryIdMap::VlanEntryIdMap( VlanEntryIdMap const& other ) : inline_{ 0, 0 } {
   *this = other;
}

VlanEntryIdMap::VlanEntryIdMap( VlanEntryIdMap&& other ) noexcept : inline_{ 0, 0 } {
   *this = std::move( other );
}

VlanEntryIdMap& VlanEntryIdMap::operator=( VlanEntryIdMap const& other ) {
   if ( this == &other ) {
      return *this;
   }
   if ( other.size_ > capacity_ ) {
      release();
      heap_ = new Pair[other.size_];
      capacity_ = other.size_;
   }
   std::copy( other.begin(), other.end(), pairs() );
   size_ = other.size_;
   return *this;
}

VlanEntryIdMap& VlanEntryIdMap::operator=( VlanEntryIdMap&& other ) noexcept {
   if ( this == &other ) {
      return *this;
   }
   release();
   if ( other.onHeap() ) {
      heap_ = other.heap_;
   } else {
      inline_ = other.inline_;
   }
   size_ = other.size_;
   capacity_ = other.capacity_;
   other.size_ = 0;
   other.capacity_ = 1;
   return *this;
}

void VlanEntryIdMap::release() {
   if ( onHeap() ) {
      delete[] heap_;
      capacity_ = 1;
   }
   size_ = 0;
}

VlanEntryIdMap::Pair const* VlanEntryIdMap::find( U16 vlanId ) const {
   Pair const* first = begin();
   Pair const* last = end();
   Pair const* i = std::lower_bound(
       first, last, vlanId, []( Pair const& p, U16 v ) { return p.vlanId < v; } );
   return i != last && i->vlanId == vlanId ? i : nullptr;
}

U32 VlanEntryIdMap::entryId( U16 vlanId ) const {
   Pair const* p = find( vlanId );
   return p ? p->entryId : 0;
}

void VlanEntryIdMap::grow() {
   U16 capacity = capacity_ < 4 ? 4 : static_cast<U16>( capacity_ * 2 );
   Pair* heap = new Pair[capacity];
   std::copy( begin(), end(), heap );
   U16 size = size_;
   release();
   heap_ = heap;
   size_ = size;
   capacity_ = capacity;
}

void VlanEntryIdMap::entryIdIs( U16 vlanId, U32 entryId ) {
   Pair* first = pairs();
   Pair* i = std::lower_bound( first, first + size_, vlanId,
                               []( Pair const& p, U16 v ) { return p.vlanId < v; } );
   if ( i != first + size_ && i->vlanId == vlanId ) {
      i->entryId = entryId;
      return;
   }
   std::size_t at = static_cast<std::size_t>( i - first );
   if ( size_ == capacity_ ) {
      grow();
      first = pairs();
   }
   std::copy_backward( first + at, first + size_, first + size_ + 1 );
   first[at] = Pair{ vlanId, entryId };
   ++size_;
}

U32 VlanEntryIdMap::entryIdDel( U16 vlanId ) {
   Pair const* p = find( vlanId );
   if ( !p ) {
      return 0;
   }
   U32 entryId = p->entryId;
   Pair* first = pairs();
   std::size_t at = static_cast<std::size_t>( p - first );
   std::copy( first + at + 1, first + size_, first + at );
   --size_;
   return entryId;
}

void VlanEntryIdMap::entryIdDelAll() {
   size_ = 0;
}

bool VlanEntryIdMap::operator==( VlanEntryIdMap const& other ) const {
   if ( size_ != other.size_ ) {
      return false;
   }
   return std::equal( begin(), end(), other.begin(), []( Pair const& a, Pair const& b ) {
      return a.vlanId == b.vlanId && a.entryId == b.entryId;
   } );
}

}  // namespace Corvane
