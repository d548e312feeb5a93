#pragma once

// A chip of one unit (1) behind the process's SDK shim, with an empty journal.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/chip/Sdk.h"

class SdkFixture : public ::testing::Test {
protected:
   SdkFixture() {
      chip->unitIs( 1 );
      Chip::journal().clear();
      Chip::journal().enabledIs( true );
      Shim::sdk_ = &sdk;
   }
   ~SdkFixture() override { Shim::sdk_ = nullptr; }

   Chip::FieldProcessor& fp() { return chip->unit( 1 )->fieldProcessor(); }
   U32 newEntry() { return fp().entryIs( 160, "entry" ); }
   Chip::FpEntry const& entry( U32 id ) { return *fp().entry( id ); }
   Chip::Table const& table( Chip::TableId id ) { return chip->unit( 1 )->table( id ); }

   // The journal's records from `first` on, as text.
   static std::vector<std::string> journalText( std::size_t first = 0 ) {
      std::vector<std::string> lines;
      for ( auto const& r : Chip::journal().recordsFrom( first ) ) {
         lines.push_back( r.stringValue() );
      }
      return lines;
   }

   Chip::ChipModel::Ptr chip = Chip::ChipModel::ChipModelIs();
   Shim::Sdk sdk{ chip };
};
