#include "tools/natsim/Report.h"

#include <iomanip>
#include <sstream>

#include "platform/fwk/Types.h"

namespace natsim {

namespace {

typedef nlohmann::ordered_json Json;

// A value as people read it: strings without quotes, numbers and booleans as JSON.
std::string text( Json const& value ) {
   return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string stepText( Json const& record ) {
   int step = record.at( "step" ).get<int>();
   return step < 0 ? "start" : std::to_string( step );
}

void heading( std::ostringstream& out, std::string const& title, std::size_t count ) {
   out << "\n" << title << " (" << count << ")\n";
}

void answers( std::ostringstream& out, Json const& result ) {
   Json const& rows = result.at( "answers" );
   heading( out, "Transaction answers", rows.size() );
   if ( rows.empty() ) {
      return;
   }
   out << "  step   module  uid         result  field\n";
   for ( auto const& r : rows ) {
      out << "  " << std::left << std::setw( 7 ) << stepText( r ) << std::setw( 8 )
          << text( r["module"] ) << std::setw( 12 ) << text( r["uid"] ) << std::setw( 8 )
          << text( r["result"] ) << text( r["field"] ) << "\n";
   }
}

std::string qualifiersText( Json const& qualifiers ) {
   std::string s;
   for ( auto const& q : qualifiers.items() ) {
      s += ( s.empty() ? "" : " " ) + q.key() + q.value().dump();
   }
   return s.empty() ? "(none)" : s;
}

std::string actionsText( Json const& actions ) {
   std::string s;
   for ( auto const& a : actions ) {
      std::string name = a[0].get<std::string>();
      if ( name.rfind( "bcmFieldAction", 0 ) == 0 ) {
         name = name.substr( 14 );
      }
      s +=
          ( s.empty() ? "" : " " ) + name + "(" + text( a[1] ) + "," + text( a[2] ) + ")";
   }
   return s.empty() ? "(none)" : s;
}

void chip( std::ostringstream& out, Json const& result ) {
   for ( auto const& unit : result.at( "chip" ) ) {
      Json const& entries = unit.at( "entries" );
      heading( out, "Chip unit " + text( unit["unit"] ) + ": field-processor entries",
               entries.size() );
      for ( auto const& e : entries ) {
         out << "  entry " << text( e["id"] ) << "  group " << text( e["group"] )
             << "  priority " << text( e["priority"] )
             << ( e["installed"].get<bool>() ? "  installed" : "  not installed" )
             << "  hits " << text( e["hits"] ) << "\n"
             << "    \"" << text( e["description"] ) << "\"\n"
             << "    match:   " << qualifiersText( e["qualifiers"] ) << "\n"
             << "    actions: " << actionsText( e["actions"] ) << "\n";
      }
      for ( auto const& memory : unit.at( "memories" ).items() ) {
         out << "  memory " << memory.key() << ":\n";
         for ( auto const& row : memory.value().items() ) {
            out << "    row " << row.key() << " " << row.value().dump() << "\n";
         }
      }
      for ( auto const& reg : unit.at( "registers" ).items() ) {
         out << "  register " << reg.key() << " " << reg.value().dump() << "\n";
      }
      for ( auto const& control : unit.at( "switchControls" ).items() ) {
         out << "  switch control " << control.key() << " = " << text( control.value() )
             << "\n";
      }
   }
}

void capacity( std::ostringstream& out, Json const& result ) {
   Json const& rows = result.at( "capacity" );
   heading( out, "Capacity", rows.size() );
   for ( auto const& r : rows ) {
      out << "  " << std::left << std::setw( 12 ) << text( r["entry"] ) << " "
          << text( r["feature"] ) << "/" << text( r["table"] ) << " " << text( r["chip"] )
          << "  used " << text( r["used"] ) << "  free " << text( r["free"] ) << "  max "
          << text( r["max"] ) << "\n";
   }
}

void hitCounts( std::ostringstream& out, Json const& result ) {
   Json const& rows = result.at( "hitCounts" );
   heading( out, "Hit counts", rows.size() );
   for ( auto const& r : rows ) {
      out << "  " << text( r["srcAddr"] ) << ":" << text( r["srcPort"] ) << " -> "
          << text( r["dstAddr"] ) << ":" << text( r["dstPort"] ) << "  proto "
          << text( r["proto"] ) << "  keyType " << text( r["keyType"] ) << "  hits "
          << text( r["hits"] ) << "\n";
   }
}

void packets( std::ostringstream& out, Json const& result ) {
   Json const& rows = result.at( "packets" );
   heading( out, "Packets", rows.size() );
   for ( auto const& r : rows ) {
      out << "  step " << stepText( r ) << " unit " << text( r["unit"] ) << ": ";
      if ( r["entry"].get<U32>() == 0 ) {
         out << "no entry matched\n";
         continue;
      }
      out << "entry " << text( r["entry"] ) << " \"" << text( r["description"] ) << "\"  "
          << actionsText( r["actions"] ) << "\n";
   }
}

void shows( std::ostringstream& out, Json const& result ) {
   Json const& rows = result.at( "show" );
   heading( out, "Show commands", rows.size() );
   for ( auto const& r : rows ) {
      out << "  step " << stepText( r ) << " (" << text( r["slices"] )
          << " slices): " << text( r["output"] ) << "\n";
   }
}

void events( std::ostringstream& out, Json const& result ) {
   Json const& rows = result.at( "events" );
   heading( out, "Log events", rows.size() );
   for ( auto const& r : rows ) {
      out << "  step " << stepText( r ) << " %" << text( r["name"] ) << ": "
          << text( r["message"] ) << "\n";
   }
}

void problems( std::ostringstream& out, Json const& result ) {
   Json const& rows = result.at( "problems" );
   if ( rows.empty() ) {
      return;
   }
   heading( out, "Problems", rows.size() );
   for ( auto const& r : rows ) {
      out << "  step " << stepText( r ) << ": " << text( r["message"] ) << "\n";
   }
}

}  // namespace

std::string readableReport( Json const& result ) {
   std::ostringstream out;
   out << "natsim: " << result.at( "journal" ).size()
       << " SDK and entry-manager calls (--json lists them)\n";
   answers( out, result );
   chip( out, result );
   capacity( out, result );
   hitCounts( out, result );
   packets( out, result );
   shows( out, result );
   events( out, result );
   problems( out, result );
   return out.str();
}

}  // namespace natsim
