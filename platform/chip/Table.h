#pragma once

// The contents of one memory or register of a unit (layouts in TableLayout.h).
//
// Rows start at the layout's reset values. The table remembers which rows were ever
// written, so that a report can list them with their reported fields.

#include <set>
#include <string>
#include <vector>

#include "platform/chip/Arg.h"
#include "platform/chip/TableLayout.h"

namespace Chip {

// The reported fields of a row of a table of `layout` held in a caller's buffer, in
// layout order.
FieldValues reportedFields( TableLayout const& layout, U32 const* words );

class Table {
public:
   explicit Table( TableLayout const& layout );

   TableLayout const& layout() const { return *layout_; }
   char const* name() const { return layout_->name; }
   unsigned rows() const { return layout_->rows; }
   unsigned words() const { return layout_->words; }

   // Copies a row into or out of a buffer of at least words() words; row < rows().
   void rowRead( unsigned row, U32* words ) const;
   void rowWrite( unsigned row, U32 const* words );

   // Any field of a row by name (reported or not); the field must exist.
   U32 field( unsigned row, std::string const& name ) const;
   // The reported fields of a row, in layout order.
   FieldValues reportedFields( unsigned row ) const;
   std::set<unsigned> const& rowsWritten() const { return rowsWritten_; }

private:
   U32 const* row( unsigned row ) const;

   TableLayout const* layout_;
   std::vector<U32> words_;
   std::set<unsigned> rowsWritten_;
};

}  // namespace Chip
