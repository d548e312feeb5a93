#include "CorvaneNat/EntryIdTable.h"

#include <ostream>
#include <utility>

#include "platform/fwk/Assert.h"

namespace Corvane {

EntryIdTableEntry::EntryIdTableEntry( char const*, char const* ) {
   FWK_ASSERT( !"No String constructor for EntryIdTableEntry - has collection" );
}

EntryIdTableEntry& EntryIdTableEntry::operator=( EntryIdTableEntry const& other ) {
   key_ = other.key_;
   defaultEntryId_ = other.defaultEntryId_;
   fragEntryId_ = other.fragEntryId_;
   dataQualifiers_ = other.dataQualifiers_;
   return *this;
}

EntryIdTableEntry& EntryIdTableEntry::operator=( EntryIdTableEntry&& other ) noexcept {
   key_ = other.key_;
   defaultEntryId_ = std::move( other.defaultEntryId_ );
   fragEntryId_ = std::move( other.fragEntryId_ );
   dataQualifiers_ = other.dataQualifiers_;
   return *this;
}

EntryIdTableEntry EntryIdTableEntry::fromStrep( std::string const& text ) {
   return EntryIdTableEntry( text.data(), text.data() + text.size() );
}

EntryIdTableEntry::operator bool() const {
   return !( key_ == Oro::NatHwKey() && defaultEntryId_.empty() && fragEntryId_.empty() );
}

bool EntryIdTableEntry::operator==( EntryIdTableEntry const& other ) const {
   return key_ == other.key_ && defaultEntryId_ == other.defaultEntryId_ &&
          fragEntryId_ == other.fragEntryId_;
}

std::string valueToStrep( EntryIdTableEntry const& entry ) {
   return "Value('Corvane::EntryIdTableEntry', ** {'key': " + entry.key().stringValue() +
          ", 'defaultEntryId': None, 'fragEntryId': None})";
}

std::ostream& operator<<( std::ostream& os, EntryIdTableEntry const& entry ) {
   return os << valueToStrep( entry );
}

void EntryIdTable::entryIs( EntryIdTableEntry const& entry ) {
   auto found = rows_.find( entry );
   if ( found == rows_.end() ) {
      link( *rows_.insert( entry ).first );
      return;
   }
   FWK_ASSERT_TEXT( found->key() == entry.key(), "fwkKey() == KeyFunktor()( _value )" );
   if ( &*found != &entry ) {
      found->defaultEntryId_ = entry.defaultEntryId_;
      found->fragEntryId_ = entry.fragEntryId_;
      found->dataQualifiers_ = entry.dataQualifiers_;
   }
}

EntryIdTable::const_iterator EntryIdTable::rowIs( Oro::NatHwKey const& key ) {
   auto inserted = rows_.insert( EntryIdTableEntry( key ) );
   if ( inserted.second ) {
      link( *inserted.first );
   }
   return inserted.first;
}

void EntryIdTable::entryIs( const_iterator row, EntryIdTableEntry const& entry ) {
   FWK_ASSERT_TEXT( row->key() == entry.key(), "fwkKey() == KeyFunktor()( _value )" );
   if ( &*row != &entry ) {
      row->defaultEntryId_ = entry.defaultEntryId_;
      row->fragEntryId_ = entry.fragEntryId_;
      row->dataQualifiers_ = entry.dataQualifiers_;
   }
}

EntryIdTableEntry EntryIdTable::entryDel( Oro::NatHwKey const& key ) {
   auto found = rows_.find( EntryIdTableEntry( key ) );
   if ( found == rows_.end() ) {
      return EntryIdTableEntry();
   }
   EntryIdTableEntry removed( found->key() );
   removed.defaultEntryId_ = std::move( found->defaultEntryId_ );
   removed.fragEntryId_ = std::move( found->fragEntryId_ );
   unlink( *found );
   rows_.erase( found );
   return removed;
}

void EntryIdTable::entryDelAll() {
   rows_.clear();
   first_ = last_ = nullptr;
}

EntryIdTableEntry const* EntryIdTable::row( Oro::NatHwKey const& key ) const {
   auto found = rows_.find( EntryIdTableEntry( key ) );
   return found == rows_.end() ? nullptr : &*found;
}

// Rows are nodes of the hash set: they stay where they are across rehashes, so links
// between them stay valid until a row is removed.
void EntryIdTable::link( EntryIdTableEntry const& row ) {
   row.prev_ = last_;
   row.next_ = nullptr;
   if ( last_ ) {
      last_->next_ = &row;
   } else {
      first_ = &row;
   }
   last_ = &row;
}

void EntryIdTable::unlink( EntryIdTableEntry const& row ) {
   ( row.prev_ ? row.prev_->next_ : first_ ) = row.next_;
   ( row.next_ ? row.next_->prev_ : last_ ) = row.prev_;
   row.prev_ = row.next_ = nullptr;
}

EntryIdTableEntry EntryIdTable::entry( Oro::NatHwKey const& key ) const {
   auto found = rows_.find( EntryIdTableEntry( key ) );
   return found == rows_.end() ? EntryIdTableEntry() : *found;
}

bool EntryIdTable::entryHas( Oro::NatHwKey const& key ) const {
   return rows_.find( EntryIdTableEntry( key ) ) != rows_.end();
}

EntryIdTable::const_iterator EntryIdTable::find( Oro::NatHwKey const& key ) const {
   return rows_.find( EntryIdTableEntry( key ) );
}

}  // namespace Corvane
