#include "platform/chip/Table.h"

#include <algorithm>

#include "platform/chip/BitField.h"
#include "platform/fwk/Assert.h"

namespace Chip {

Table::Table( TableLayout const& layout )
    : layout_( &layout ), words_( std::size_t( layout.rows ) * layout.words, 0 ) {
   for ( unsigned r = 0; r < layout.rows; ++r ) {
      U32* words = &words_[std::size_t( r ) * layout.words];
      for ( auto const& f : layout.fields ) {
         bitsSet( words, f.firstBit, f.width, f.resetValue );
      }
   }
}

U32 const* Table::row( unsigned row ) const {
   FWK_ASSERT( row < rows() );
   return &words_[std::size_t( row ) * words()];
}

void Table::rowRead( unsigned row, U32* words ) const {
   U32 const* source = this->row( row );
   std::copy( source, source + this->words(), words );
}

void Table::rowWrite( unsigned row, U32 const* words ) {
   FWK_ASSERT( row < rows() );
   std::copy( words, words + this->words(), &words_[std::size_t( row ) * this->words()] );
   rowsWritten_.insert( row );
}

U32 Table::field( unsigned row, std::string const& name ) const {
   FieldLayout const* f = layout_->field( name );
   FWK_ASSERT_TEXT( f, "no such field in the table" );
   return bitsGet( this->row( row ), f->firstBit, f->width );
}

FieldValues reportedFields( TableLayout const& layout, U32 const* words ) {
   FieldValues values;
   for ( auto const& f : layout.fields ) {
      if ( f.reported ) {
         values.emplace_back( f.name, bitsGet( words, f.firstBit, f.width ) );
      }
   }
   return values;
}

FieldValues Table::reportedFields( unsigned row ) const {
   return Chip::reportedFields( *layout_, this->row( row ) );
}

}  // namespace Chip
