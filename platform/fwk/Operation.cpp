#include "platform/fwk/Operation.h"

#include <map>
#include <utility>

namespace Fwk {

namespace {

std::map<std::pair<std::string, std::string>, Operation>& offered() {
   static std::map<std::pair<std::string, std::string>, Operation> table;
   return table;
}

}  // namespace

void operationIs( std::string const& path, std::string const& name,
                  Operation operation ) {
   offered()[{ path, name }] = std::move( operation );
}

void operationDelAll( std::string const& path ) {
   auto& table = offered();
   auto i = table.lower_bound( { path, std::string() } );
   while ( i != table.end() && i->first.first == path ) {
      i = table.erase( i );
   }
}

bool operationInvoke( std::string const& path, std::string const& name,
                      std::string* error ) {
   auto& table = offered();
   auto i = table.find( { path, name } );
   if ( i == table.end() ) {
      bool known = table.lower_bound( { path, std::string() } ) != table.end() &&
                   table.lower_bound( { path, std::string() } )->first.first == path;
      *error = known ? "no operation \"" + name + "\" at \"" + path + "\""
                     : "no entity offers operations at \"" + path + "\"";
      return false;
   }
   Operation operation = i->second;  // the operation may withdraw itself
   operation();
   return true;
}

std::vector<std::string> operations() {
   std::vector<std::string> names;
   for ( auto const& entry : offered() ) {
      names.push_back( entry.first.first + " " + entry.first.second );
   }
   return names;
}

}  // namespace Fwk
