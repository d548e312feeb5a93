#include "tools/natsim/ResultText.h"

#include <charconv>
#include <cstring>

#include "platform/chip/ChipModel.h"
#include "tools/natsim/JsonText.h"
#include "tools/natsim/Simulation.h"

namespace natsim {

namespace {

void appendActions( std::string& out, std::vector<Chip::ActionRecord> const& actions ) {
   out += '[';
   for ( std::size_t i = 0; i < actions.size(); ++i ) {
      out += i ? ",[" : "[";
      appendJsonString( out, Chip::actionName( actions[i].action ) );
      out += ',';
      appendJsonNumber( out, actions[i].param0 );
      out += ',';
      appendJsonNumber( out, actions[i].param1 );
      out += ']';
   }
   out += ']';
}

void append( std::string& out, AnswerRecord const& r ) {
   ObjectText( out )
       .number( "step", r.step )
       .number( "module", r.module )
       .number( "uid", r.uid )
       .number( "result", r.result )
       .number( "field", r.field );
}

void append( std::string& out, EventRecord const& r ) {
   ObjectText( out )
       .number( "step", r.step )
       .text( "name", r.name )
       .text( "message", r.message );
}

void append( std::string& out, ShowRecord const& r ) {
   ObjectText( out )
       .number( "step", r.step )
       .text( "output", r.output )
       .number( "slices", r.slices );
}

void append( std::string& out, PacketRecord const& r ) {
   ObjectText record( out );
   record.number( "step", r.step )
       .number( "unit", r.unit )
       .number( "entry", r.entry )
       .text( "description", r.description );
   appendActions( record.key( "actions" ), r.actions );
}

void append( std::string& out, ProblemRecord const& r ) {
   ObjectText( out ).number( "step", r.step ).text( "message", r.message );
}

// Writes text to the stream once a good amount has gathered.
class Buffered {
public:
   explicit Buffered( std::ostream& out ) : out_( out ) {}
   ~Buffered() { flush(); }
   std::string& text() { return text_; }
   void maybeFlush() {
      if ( text_.size() >= ( 1u << 16 ) ) {
         flush();
      }
   }
   void flush() {
      out_.write( text_.data(), std::streamsize( text_.size() ) );
      text_.clear();
   }

private:
   std::ostream& out_;
   std::string text_;
};

// "name": [ one element per line ], with `appendOne( text, index )` writing element
// `index`.
template <class AppendOne>
void writeList( Buffered& out, char const* name, std::size_t count, AppendOne appendOne,
                bool last = false ) {
   std::string& text = out.text();
   appendJsonString( text, name );
   text += ": [";
   for ( std::size_t i = 0; i < count; ++i ) {
      text += i ? ",\n" : "\n";
      appendOne( text, i );
      out.maybeFlush();
   }
   text += count ? "\n]" : "]";
   text += last ? "\n" : ",\n";
}

template <class Record>
void writeRecords( Buffered& out, char const* name, std::vector<Record> const& records ) {
   writeList( out, name, records.size(),
              [&]( std::string& text, std::size_t i ) { append( text, records[i] ); } );
}

void appendEntry( std::string& out, Chip::FpEntry const& entry ) {
   ObjectText record( out );
   record.number( "id", entry.id() )
       .number( "group", entry.group() )
       .number( "priority", entry.priority() )
       .boolean( "installed", entry.installed() )
       .number( "hits", entry.hits() )
       .text( "description", entry.description() );
   {
      ObjectText qualifiers( record.key( "qualifiers" ) );
      for ( Chip::Qualifier q : entry.qualifiers() ) {
         std::string& value = qualifiers.key( Chip::qualifierName( q ) );
         if ( q == Chip::Qualifier::IpFrag || q == Chip::Qualifier::ExactMatch ) {
            appendJsonArgs( value, entry.qualifierArgs( q ) );
            continue;
         }
         // [data, mask], as qualifierArgs gives them, written without building them.
         Chip::Masked const masked = entry.qualifier( q );
         value += '[';
         appendJsonNumber( value, masked.data );
         value += ',';
         appendJsonNumber( value, masked.mask );
         value += ']';
      }
   }
   appendActions( record.key( "actions" ), entry.actions() );
}

// The memories or the registers of a unit: {"NAME": {"row": {fields}}} for memories,
// {"NAME": {fields}} for registers (their one row).
void appendTables( std::string& out, Chip::ChipUnit const& unit, bool registers ) {
   ObjectText tables( out );
   for ( unsigned t = 0; t < Chip::tableCount; ++t ) {
      Chip::Table const& table = unit.table( static_cast<Chip::TableId>( t ) );
      if ( table.rowsWritten().empty() || table.layout().isRegister != registers ) {
         continue;
      }
      std::string& value = tables.key( table.name() );
      if ( registers ) {
         appendJsonRow( value, table, *table.rowsWritten().begin() );
         continue;
      }
      ObjectText rows( value );
      for ( unsigned row : table.rowsWritten() ) {
         appendJsonRow( rows.key( std::to_string( row ) ), table, row );
      }
   }
}

void writeUnit( Buffered& out, int unitNumber, Chip::ChipUnit const& unit ) {
   std::string& text = out.text();
   text += "{\"unit\":";
   appendJsonNumber( text, unitNumber );
   text += ",\n";
   std::vector<U32> const ids = unit.fieldProcessor().entryIds();
   writeList( out, "entries", ids.size(), [&]( std::string& line, std::size_t i ) {
      appendEntry( line, *unit.fieldProcessor().entry( ids[i] ) );
   } );
   text += "\"memories\":";
   appendTables( text, unit, false );
   text += ",\n\"registers\":";
   appendTables( text, unit, true );
   text += ",\n\"switchControls\":";
   {
      ObjectText controls( text );
      for ( auto const& control : unit.switchControls() ) {
         controls.number( Chip::switchControlName( control.first ), control.second );
      }
   }
   text += "}";
}

void writeChip( Buffered& out, SimPlatform const& platform ) {
   Chip::ChipModel const& chip = platform.chip();
   std::vector<int> const units = chip.units();
   out.text() += "\"chip\": [";
   for ( std::size_t i = 0; i < units.size(); ++i ) {
      out.text() += i ? ",\n" : "\n";
      writeUnit( out, units[i], *chip.unit( units[i] ) );
   }
   out.text() += units.empty() ? "],\n" : "\n],\n";
}

void writeCapacity( Buffered& out, SimPlatform const& platform ) {
   std::vector<std::string> rows;
   for ( auto const& row : platform.tableCapacity() ) {
      std::string line;
      ObjectText( line )
          .text( "entry", row.first.entry() )
          .text( "feature", row.first.feature() )
          .text( "table", row.first.table() )
          .text( "chip", row.first.chip() )
          .number( "used", row.second.used )
          .number( "free", row.second.free )
          .number( "max", row.second.max );
      rows.push_back( std::move( line ) );
   }
   writeList( out, "capacity", rows.size(),
              [&]( std::string& text, std::size_t i ) { text += rows[i]; } );
}

void writeHitCounts( Buffered& out, SimPlatform const& platform ) {
   std::vector<std::string> rows;
   if ( auto status = platform.tcamHitCountStatus() ) {
      for ( auto const& row : *status ) {
         CorvaneNat::TcamHitCountKey const& key = row.first;
         std::string line;
         ObjectText( line )
             .text( "srcAddr", key.srcAddr().stringValue() )
             .number( "srcPort", key.srcPort() )
             .text( "dstAddr", key.dstAddr().stringValue() )
             .number( "dstPort", key.dstPort() )
             .number( "proto", key.protocol() )
             .number( "keyType", static_cast<U32>( key.keyType() ) )
             .number( "hits", row.second );
         rows.push_back( std::move( line ) );
      }
   }
   writeList( out, "hitCounts", rows.size(),
              [&]( std::string& text, std::size_t i ) { text += rows[i]; } );
}

}  // namespace

void appendJsonRow( std::string& out, Chip::Table const& table, unsigned row ) {
   ObjectText fields( out );
   for ( auto const& field : table.reportedFields( row ) ) {
      fields.number( field.first.c_str(), field.second );
   }
}

namespace {

// A journal record's text written into a fixed buffer and appended at once: a run
// writes a record for every SDK call, and almost every one holds only numbers and
// plain names. Each writer returns false when the part does not fit or needs escaping;
// the caller then writes the record the general way.
class RecordBuffer {
public:
   bool literal( std::string_view text ) {
      if ( std::size_t( end_ - at_ ) < text.size() ) {
         return false;
      }
      std::memcpy( at_, text.data(), text.size() );
      at_ += text.size();
      return true;
   }
   template <class Int>
   bool number( Int value ) {
      std::to_chars_result const r = std::to_chars( at_, end_, value );
      at_ = r.ptr;
      return r.ec == std::errc();
   }
   bool string( std::string_view text ) {
      return jsonPlain( text ) && literal( "\"" ) && literal( text ) && literal( "\"" );
   }
   bool args( Chip::Args const& args ) {
      if ( !literal( "[" ) ) {
         return false;
      }
      for ( std::size_t i = 0; i < args.size(); ++i ) {
         Chip::Arg const& arg = args[i];
         bool const written = ( i == 0 || literal( "," ) ) &&
                              ( arg.kind == Chip::Arg::Kind::number ? number( arg.number )
                                : arg.kind == Chip::Arg::Kind::name ? string( arg.name )
                                                                    : false );
         if ( !written ) {
            return false;
         }
      }
      return literal( "]" );
   }
   void appendTo( std::string& out ) const {
      out.append( text_, std::size_t( at_ - text_ ) );
   }

private:
   char text_[400];
   char* at_ = text_;
   char* const end_ = text_ + sizeof( text_ );
};

bool appendPlainJournalRecord( std::string& out, int step,
                               Chip::JournalRecord const& r ) {
   RecordBuffer text;
   bool const written =
       text.literal( "{\"step\":" ) && text.number( step ) &&
       text.literal( ",\"call\":" ) && text.string( r.call ) &&
       text.literal( ",\"unit\":" ) && text.number( r.unit ) &&
       ( !r.hasEntry || ( text.literal( ",\"entry\":" ) && text.number( r.entry ) ) ) &&
       text.literal( ",\"args\":" ) && text.args( r.args ) &&
       text.literal( ",\"rc\":" ) && text.number( r.rc ) && text.literal( "}" );
   if ( written ) {
      text.appendTo( out );
   }
   return written;
}

}  // namespace

void appendJournalRecord( std::string& out, int step, Chip::JournalRecord const& r ) {
   if ( appendPlainJournalRecord( out, step, r ) ) {
      return;
   }
   ObjectText record( out );
   record.number( "step", step ).text( "call", r.call ).number( "unit", r.unit );
   if ( r.hasEntry ) {
      record.number( "entry", r.entry );
   }
   appendJsonArgs( record.key( "args" ), r.args );
   record.number( "rc", r.rc );
}

std::string stepAnswer( int step, Records const& records, Records::Marks const& marks,
                        std::string const& journal ) {
   std::string out;
   auto list = [&out]( char const* name, auto const& all, std::size_t from ) {
      out += ',';
      appendJsonString( out, name );
      out += ":[";
      for ( std::size_t i = from; i < all.size(); ++i ) {
         if ( i > from ) {
            out += ',';
         }
         append( out, all[i] );
      }
      out += ']';
   };
   out += "{\"step\":";
   appendJsonNumber( out, step );
   out += ",\"kind\":";
   appendJsonString( out, records.steps.back().kind );
   list( "answers", records.answers, marks.answers );
   list( "events", records.events, marks.events );
   out += ",\"journal\":[" + journal + "]";
   list( "show", records.shows, marks.shows );
   list( "packets", records.packets, marks.packets );
   list( "problems", records.problems, marks.problems );
   out += '}';
   return out;
}

void writeResult( std::ostream& stream, Simulation const& simulation, bool withJournal ) {
   Records const& records = simulation.records();
   Buffered out( stream );
   out.text() += "{\n";
   writeRecords( out, "answers", records.answers );
   writeRecords( out, "events", records.events );
   out.text() += "\"journal\": [";
   JournalSpool const* journal = simulation.journal();
   if ( withJournal && journal && journal->records() ) {
      out.text() += "\n";
      out.flush();
      journal->copyTo( stream );
      out.text() += "\n";
   }
   out.text() += "],\n";
   writeChip( out, simulation.platform() );
   writeCapacity( out, simulation.platform() );
   writeHitCounts( out, simulation.platform() );
   writeRecords( out, "show", records.shows );
   writeRecords( out, "packets", records.packets );
   writeRecords( out, "problems", records.problems );
   writeList(
       out, "steps", records.steps.size(),
       [&]( std::string& text, std::size_t i ) {
          ObjectText( text ).number( "step", i ).text( "kind", records.steps[i].kind );
       },
       true );
   out.text() += "}\n";
}

void writeJournal( std::ostream& stream, Simulation const& simulation ) {
   JournalSpool const* journal = simulation.journal();
   if ( !journal || !journal->records() ) {
      stream << "[]\n";
      return;
   }
   stream << "[\n";
   journal->copyTo( stream );
   stream << "\n]\n";
}

}  // namespace natsim
