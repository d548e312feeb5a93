#pragma once

// Small maps from SDK ids to what they stand for, searched in order (they hold a
// handful of ids each).

#include <utility>
#include <vector>

namespace Shim {

template <class T>
using IdMap = std::vector<std::pair<int, T>>;

// The value of an id, or null.
template <class T>
T const* idFind( IdMap<T> const& map, int id ) {
   for ( auto const& entry : map ) {
      if ( entry.first == id ) {
         return &entry.second;
      }
   }
   return nullptr;
}

}  // namespace Shim
