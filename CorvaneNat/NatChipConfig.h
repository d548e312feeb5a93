#pragma once

// Chip-wide NAT configuration: the chip memories, register and switch control that hold
// for every NAT entry of a chip. Applied at the worker's initialization and again on
// every usable change of the multicast translation mode.

#include "platform/fwk/Types.h"
#include "platform/nat/McastTranslationMode.h"

namespace Corvane {

// Switches L4 port translation on for one row of the L4 port translation memory.
void doEnableL4PortTranslation( U16 unit, U32 idx );
// Sets the opaque-object strengths (rows 0 to 7 of both strength memories, interleaved).
void doConfigureOpaqueObjectStrength( U16 unit );
// Writes the translation-type register from the mode (count 0: the defaults; count 3:
// the mode's first three types; any other count leaves the translation fields alone),
// then the L4 port translation rows of the chip's family, the strengths, and the L3
// egress-object mode.
void doConfigureHardwareFields( U16 unit, Ip::Nat::McastTranslationMode::PtrConst mode );

}  // namespace Corvane
