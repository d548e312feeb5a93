#include "tools/natsim/Report.h"

#include <iomanip>

#include "platform/chip/ChipModel.h"
#include "platform/fwk/Types.h"
#include "tools/natsim/ResultText.h"
#include "tools/natsim/Simulation.h"

namespace natsim {

namespace {

std::string stepText( int step ) {
   return step < 0 ? "start" : std::to_string( step );
}

void heading( std::ostream& out, std::string const& title, std::size_t count ) {
   out << "\n" << title << " (" << count << ")\n";
}

// The records of `list` from `*next` on that belong to `step` (lists are in step order);
// moves `*next` past them.
template <class Record, class Fn>
void eachOfStep( std::vector<Record> const& list, std::size_t* next, int step, Fn fn ) {
   while ( *next < list.size() && list[*next].step < step ) {
      ++*next;
   }
   for ( ; *next < list.size() && list[*next].step == step; ++*next ) {
      fn( list[*next] );
   }
}

// One line per step: its kind, its answers, the entries it took and gave back, the log
// events it raised. A rule answered without taking an entry or making a call says
// "no entry": the plug-in accepted it without hardware.
void steps( std::ostream& out, Records const& records ) {
   heading( out, "Steps", records.steps.size() );
   std::size_t answer = 0;
   std::size_t event = 0;
   std::string line;
   for ( std::size_t i = 0; i < records.steps.size(); ++i ) {
      StepRecord const& step = records.steps[i];
      int const index = static_cast<int>( i );
      line = "  " + std::to_string( index ) + " " + step.kind;
      bool accepted = false;
      eachOfStep( records.answers, &answer, index, [&]( AnswerRecord const& a ) {
         line += "  answer uid " + std::to_string( a.uid ) + " module " +
                 std::to_string( a.module ) + ": " +
                 ( a.result == 2 ? "2 (hardware full)" : std::to_string( a.result ) );
         accepted = accepted || a.result == 1;
      } );
      if ( accepted && step.calls == 0 && std::string( step.kind ) == "natRule" ) {
         line += "  no entry";
      }
      if ( !step.taken.empty() ) {
         line += "  entries taken:";
         for ( U32 id : step.taken ) {
            line += " " + ( id == 0 ? std::string( "none" ) : std::to_string( id ) );
         }
      }
      if ( !step.released.empty() ) {
         line += "  released:";
         for ( U32 id : step.released ) {
            line += " " + std::to_string( id );
         }
      }
      line += "  (" + std::to_string( step.calls ) + " calls)";
      eachOfStep( records.events, &event, index,
                  [&]( EventRecord const& e ) { line += "  %" + e.name; } );
      line += '\n';
      out << line;
   }
}

std::string dotted( U64 value ) {
   return std::to_string( ( value >> 24 ) & 0xff ) + "." +
          std::to_string( ( value >> 16 ) & 0xff ) + "." +
          std::to_string( ( value >> 8 ) & 0xff ) + "." + std::to_string( value & 0xff );
}

// An address with its mask: "10.0.0.0/8", or "10.0.0.0/255.0.255.0" for a mask that is
// not a prefix.
std::string addressText( U64 address, U64 mask ) {
   unsigned length = 0;
   while ( length < 32 && ( mask & ( 0x80000000u >> length ) ) ) {
      ++length;
   }
   U64 const prefix =
       length == 0 ? 0 : ( 0xffffffffull << ( 32 - length ) ) & 0xffffffffull;
   return dotted( address ) + "/" +
          ( mask == prefix ? std::to_string( length ) : dotted( mask ) );
}

// An argument as people read it: names without quotes.
std::string argText( Chip::Arg const& arg ) {
   return arg.kind == Chip::Arg::Kind::name ? arg.name : arg.json();
}

bool isNumber( Chip::Arg const& arg ) {
   return arg.kind == Chip::Arg::Kind::number;
}

// A qualifier as people read it: addresses dotted, a full mask left out.
std::string qualifierText( std::string const& name, Chip::Args const& args ) {
   if ( args.size() == 2 && isNumber( args[0] ) && isNumber( args[1] ) ) {
      U64 const data = args[0].number;
      U64 const mask = args[1].number;
      if ( name == "SrcIp" || name == "DstIp" ) {
         return name + "=" + addressText( data, mask );
      }
      bool const full = mask == 0xffffffffull || mask == 0xffff || mask == 0xff ||
                        ( name == "L3Ingress" && mask == 0x1fff ) || mask == 1;
      return name + "=" + std::to_string( data ) +
             ( full ? "" : "/" + std::to_string( mask ) );
   }
   std::string s = name + "=";
   for ( std::size_t i = 0; i < args.size(); ++i ) {
      s += ( i ? "," : "" ) + argText( args[i] );
   }
   return s;
}

std::string qualifiersText( Chip::FpEntry const& entry ) {
   std::string s;
   for ( Chip::Qualifier q : entry.qualifiers() ) {
      s += ( s.empty() ? "" : " " ) +
           qualifierText( Chip::qualifierName( q ), entry.qualifierArgs( q ) );
   }
   return s.empty() ? "(none)" : s;
}

std::string actionsText( std::vector<Chip::ActionRecord> const& actions ) {
   std::string s;
   for ( auto const& a : actions ) {
      std::string name = Chip::actionName( a.action );
      if ( name.rfind( "bcmFieldAction", 0 ) == 0 ) {
         name = name.substr( 14 );
      }
      s += ( s.empty() ? "" : " " ) + name + "(" + std::to_string( a.param0 ) + "," +
           std::to_string( a.param1 ) + ")";
   }
   return s.empty() ? "(none)" : s;
}

// A table row's fields as JSON text, as the result document writes them.
std::string rowText( Chip::Table const& table, unsigned row ) {
   std::string text;
   appendJsonRow( text, table, row );
   return text;
}

void chip( std::ostream& out, Chip::ChipModel const& model ) {
   for ( int number : model.units() ) {
      Chip::ChipUnit const& unit = *model.unit( number );
      Chip::FieldProcessor const& fp = unit.fieldProcessor();
      std::vector<U32> const ids = fp.entryIds();
      heading( out, "Chip unit " + std::to_string( number ) + ": field-processor entries",
               ids.size() );
      for ( U32 id : ids ) {
         Chip::FpEntry const& e = *fp.entry( id );
         out << "  entry " << id << "  group " << e.group() << "  priority "
             << e.priority() << ( e.installed() ? "  installed" : "  not installed" )
             << "  hits " << e.hits() << "\n"
             << "    \"" << e.description() << "\"\n"
             << "    match:   " << qualifiersText( e ) << "\n"
             << "    actions: " << actionsText( e.actions() ) << "\n";
      }
      for ( bool registers : { false, true } ) {
         for ( unsigned t = 0; t < Chip::tableCount; ++t ) {
            Chip::Table const& table = unit.table( static_cast<Chip::TableId>( t ) );
            if ( table.rowsWritten().empty() || table.layout().isRegister != registers ) {
               continue;
            }
            if ( registers ) {
               out << "  register " << table.name() << " "
                   << rowText( table, *table.rowsWritten().begin() ) << "\n";
               continue;
            }
            out << "  memory " << table.name() << ":\n";
            for ( unsigned row : table.rowsWritten() ) {
               out << "    row " << row << " " << rowText( table, row ) << "\n";
            }
         }
      }
      for ( auto const& control : unit.switchControls() ) {
         out << "  switch control " << Chip::switchControlName( control.first ) << " = "
             << control.second << "\n";
      }
   }
}

void capacity( std::ostream& out, SimPlatform const& platform ) {
   OroCapacity::TableCapacity const& rows = platform.tableCapacity();
   heading( out, "Capacity", rows.entrys() );
   for ( auto const& r : rows ) {
      out << "  " << std::left << std::setw( 12 ) << r.first.entry() << std::right << " "
          << r.first.feature() << "/" << r.first.table() << " " << r.first.chip()
          << "  used " << r.second.used << "  free " << r.second.free << "  max "
          << r.second.max << "\n";
   }
}

void hitCounts( std::ostream& out, SimPlatform const& platform ) {
   auto status = platform.tcamHitCountStatus();
   heading( out, "Hit counts", status ? status->entrys() : 0 );
   if ( !status ) {
      return;
   }
   for ( auto const& row : *status ) {
      CorvaneNat::TcamHitCountKey const& key = row.first;
      out << "  " << key.srcAddr().stringValue() << ":" << key.srcPort() << " -> "
          << key.dstAddr().stringValue() << ":" << key.dstPort() << "  proto "
          << U32( key.protocol() ) << "  keyType " << static_cast<U32>( key.keyType() )
          << "  hits " << row.second << "\n";
   }
}

void packets( std::ostream& out, Records const& records ) {
   heading( out, "Packets", records.packets.size() );
   for ( auto const& r : records.packets ) {
      out << "  step " << stepText( r.step ) << " unit " << r.unit << ": ";
      if ( r.entry == 0 ) {
         out << "no entry matched\n";
         continue;
      }
      out << "entry " << r.entry << " \"" << r.description << "\"  "
          << actionsText( r.actions ) << "\n";
   }
}

void shows( std::ostream& out, Records const& records ) {
   heading( out, "Show commands", records.shows.size() );
   for ( auto const& r : records.shows ) {
      out << "  step " << stepText( r.step ) << " (" << r.slices
          << " slices): " << r.output << "\n";
   }
}

void events( std::ostream& out, Records const& records ) {
   heading( out, "Log events", records.events.size() );
   for ( auto const& r : records.events ) {
      out << "  step " << stepText( r.step ) << " %" << r.name << ": " << r.message
          << "\n";
   }
}

void problems( std::ostream& out, Records const& records ) {
   if ( records.problems.empty() ) {
      return;
   }
   heading( out, "Problems", records.problems.size() );
   for ( auto const& r : records.problems ) {
      out << "  step " << stepText( r.step ) << ": " << r.message << "\n";
   }
}

}  // namespace

void writeReport( std::ostream& out, Simulation const& simulation ) {
   Records const& records = simulation.records();
   out << "natsim: " << records.calls
       << " SDK and entry-manager calls (--json lists them)\n";
   steps( out, records );
   chip( out, simulation.platform().chip() );
   capacity( out, simulation.platform() );
   hitCounts( out, simulation.platform() );
   packets( out, records );
   shows( out, records );
   events( out, records );
   problems( out, records );
}

}  // namespace natsim
