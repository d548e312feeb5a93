#include "platform/agent/TableCapacity.h"

#include <ostream>
#include <tuple>

#include "platform/fwk/Hash.h"

namespace OroCapacity {

std::string TableCapacityKey::stringValue() const {
   return "feature: " + feature_ + ", table: " + table_ + ", chip: " + chip_ +
          ", entry: " + entry_;
}

unsigned TableCapacityKey::hash( unsigned seed ) const noexcept {
   U32 h = seed;
   h = Fwk::hashMixString( h, feature_ );
   h = Fwk::hashMixString( h, table_ );
   h = Fwk::hashMixString( h, chip_ );
   h = Fwk::hashMixString( h, entry_ );
   return h;
}

bool TableCapacityKey::operator==( TableCapacityKey const& o ) const {
   return feature_ == o.feature_ && table_ == o.table_ && chip_ == o.chip_ &&
          entry_ == o.entry_;
}

bool TableCapacityKey::operator<( TableCapacityKey const& o ) const {
   return std::tie( feature_, table_, chip_, entry_ ) <
          std::tie( o.feature_, o.table_, o.chip_, o.entry_ );
}

std::ostream& operator<<( std::ostream& os, TableCapacityKey const& key ) {
   return os << key.stringValue();
}

std::ostream& operator<<( std::ostream& os, TableCapacityEntry const& entry ) {
   return os << "used: " << entry.used << ", free: " << entry.free
             << ", committed: " << entry.committed << ", max: " << entry.max;
}

// Defined here so that the type's vtable and type information live in the platform
// library only, and type checks agree between the host and the plug-ins.
TableCapacity::~TableCapacity() = default;

}  // namespace OroCapacity
