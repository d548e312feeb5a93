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

// One line per step: its kind, its answers, the entries it took and gave back, the log
// events it raised.
void steps( std::ostringstream& out, Json const& result ) {
   Json const& rows = result.at( "steps" );
   heading( out, "Steps", rows.size() );
   for ( auto const& step : rows ) {
      int const index = step.at( "step" ).get<int>();
      std::string line = "  " + std::to_string( index ) + " " + text( step["kind"] );
      for ( auto const& a : result.at( "answers" ) ) {
         if ( a["step"] == index ) {
            line += "  answer uid " + text( a["uid"] ) + " module " +
                    text( a["module"] ) + ": " +
                    ( a["result"] == 2 ? "2 (hardware full)" : text( a["result"] ) );
         }
      }
      std::string taken;
      std::string released;
      std::size_t calls = 0;
      for ( auto const& call : result.at( "journal" ) ) {
         if ( call["step"] != index ) {
            continue;
         }
         ++calls;
         if ( call["call"] == "getEntry" ) {
            taken += " " + ( call["entry"] == 0 ? std::string( "none" )
                                                : text( call["entry"] ) );
         } else if ( call["call"] == "releaseEntry" ) {
            released += " " + text( call["entry"] );
         }
      }
      if ( !taken.empty() ) {
         line += "  entries taken:" + taken;
      }
      if ( !released.empty() ) {
         line += "  released:" + released;
      }
      line += "  (" + std::to_string( calls ) + " calls)";
      for ( auto const& e : result.at( "events" ) ) {
         if ( e["step"] == index ) {
            line += "  %" + text( e["name"] );
         }
      }
      out << line << "\n";
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

// A qualifier as people read it: addresses dotted, a full mask left out.
std::string qualifierText( std::string const& name, Json const& args ) {
   if ( args.size() == 2 && args[0].is_number() && args[1].is_number() ) {
      U64 const data = args[0].get<U64>();
      U64 const mask = args[1].get<U64>();
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
      s += ( i ? "," : "" ) + text( args[i] );
   }
   return s;
}

std::string qualifiersText( Json const& qualifiers ) {
   std::string s;
   for ( auto const& q : qualifiers.items() ) {
      s += ( s.empty() ? "" : " " ) + qualifierText( q.key(), q.value() );
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
   steps( out, result );
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
