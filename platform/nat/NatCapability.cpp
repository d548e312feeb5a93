#include "platform/nat/NatCapability.h"

namespace Ip {
namespace Nat {

HwCapabilities::~HwCapabilities() = default;

void HwCapabilities::natSupportedIs( bool natSupported ) {
   natSupported_ = natSupported;
   notify( attrNatSupported );
}

}  // namespace Nat
}  // namespace Ip

namespace CorvaneNat {

CapabilityConfig::~CapabilityConfig() = default;

void CapabilityConfig::addrOnlyModeIs( bool addrOnlyMode ) {
   addrOnlyMode_ = addrOnlyMode;
   notify( attrAddrOnlyMode );
}

void CapabilityConfig::fragmentEnabledIs( bool fragmentEnabled ) {
   fragmentEnabled_ = fragmentEnabled;
   notify( attrFragmentEnabled );
}

void CapabilityConfig::resourceProfileIs( ResourceProfile profile ) {
   resourceProfile_ = profile;
   notify( attrResourceProfile );
}

CapabilityStatus::~CapabilityStatus() = default;

void CapabilityStatus::fragmentEnabledIs( bool fragmentEnabled ) {
   fragmentEnabled_ = fragmentEnabled;
   notify( attrFragmentEnabled );
}

void CapabilityStatus::resourceProfileIs( ResourceProfile profile ) {
   resourceProfile_ = profile;
   notify( attrResourceProfile );
}

}  // namespace CorvaneNat
