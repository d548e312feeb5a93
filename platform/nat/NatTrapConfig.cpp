#include "platform/nat/NatTrapConfig.h"

#include <ostream>
#include <tuple>

#include "platform/fwk/Hash.h"

namespace Oro {

std::string NatTrapKey::stringValue() const {
   return "aclName: " + aclName_ + ", vlanId: " + std::to_string( vlanId_ );
}

unsigned NatTrapKey::hash( unsigned seed ) const noexcept {
   return Fwk::hashMix( Fwk::hashMixString( seed, aclName_ ), vlanId_ );
}

bool NatTrapKey::operator<( NatTrapKey const& o ) const {
   return std::tie( aclName_, vlanId_ ) < std::tie( o.aclName_, o.vlanId_ );
}

std::ostream& operator<<( std::ostream& os, NatTrapKey const& key ) {
   return os << key.stringValue();
}

std::ostream& operator<<( std::ostream& os, NatTrapRule const& rule ) {
   os << ( rule.permit() ? "permit" : "deny" ) << " src " << rule.srcIp().stringValue()
      << " dst " << rule.dstIp().stringValue();
   if ( rule.pool() ) {
      os << " pool";
   }
   return os;
}

// Defined here so that the type's vtable and type information live in the platform
// library only, and type checks agree between the host and the plug-ins.
NatTrapConfig::~NatTrapConfig() = default;

}  // namespace Oro
