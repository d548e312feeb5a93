#pragma once

// What the chip's NAT hardware can do, as far as the NAT plug-in must know.
//
// One value per process: the platform (or the simulator) sets it when it knows the chip,
// before plug-ins start; plug-ins read it. It is not an entity, so it announces nothing:
// changing it while plug-ins run has no effect on what they already did.

namespace CorvaneNat {

struct NatChipAttr {
   bool noNatTrapFilters = false;         // the chip takes no NAT trap filters
   bool natTcamHitCountSupported = true;  // NAT TCAM entries count their hits
};

// The process's attributes; the defaults until natChipAttrIs() is called.
NatChipAttr const& getNatChipAttr();
void natChipAttrIs( NatChipAttr const& attr );

}  // namespace CorvaneNat
