#pragma once

// What each NAT entry holds, stated once: which entries a key gets, and for one entry
// its description, group, priority, qualifiers and actions in call order. Programming
// (NatProgram.cpp, NatFragment.cpp) applies these recipes and verification
// (NatVerify.cpp) reads back what they list; no other place decides a qualifier, an
// action, a priority or a description of a NAT entry.

#include <string>

#include "CorvaneNat/FpEntryRecipe.h"
#include "platform/nat/NatHwData.h"
#include "platform/nat/NatHwKey.h"

namespace Corvane {

// The two entries a key may have per VLAN: the default one, and the one matching
// non-first IP fragments (which carry no L4 ports).
enum class NatEntryKind : U8 { defaultEntry, fragEntry };

// The worker's mode as the recipes read it.
struct NatWorkerMode {
   bool addrOnly;     // the chip translates addresses only (isAddrOnlyMode())
   bool fragmentsOn;  // fragment entries are made (fragmentEnabled())
};

// Source-side kinds (1, 3, 5) are programmed once, under VLAN 0; destination-side kinds
// (2, 4, 6) once per VLAN of the data; other kinds not at all.
enum class NatKeySide : U8 { source, destination, none };
NatKeySide natKeySide( Oro::NatHwKey::NatKeyType type );

// Whether a key needs a fragment entry beside each default entry (when fragment handling
// is on): static keys with a new port, twice keys with an old and a new port, dynamic
// keys always.
bool needsFragEntry( Oro::NatHwKey const& hwKey );
inline bool natKeyHasFragEntry( Oro::NatHwKey const& hwKey, NatWorkerMode mode ) {
   return mode.fragmentsOn && needsFragEntry( hwKey );
}

// The description of an entry, as handed to the entry manager with the request for it.
// Stops the process for key type 0, and for a dynamic key whose ports disagree with
// `mode.addrOnly`; a key type above 6 gives "".
std::string natEntryDescription( Oro::NatHwKey const& hwKey, U16 vlanId,
                                 NatEntryKind kind, bool multicast, NatWorkerMode mode );

// The qualifiers whose presence follows the data rather than the key (protocol,
// filters, ACL sharing, multicast ingress): the ones a reprogramming can drop.
constexpr FpQualifierSet natDataQualifiers =
    fpQualifierBit( FpCall::qualifyL3Ingress ) | fpQualifierBit( FpCall::qualifySrcIp ) |
    fpQualifierBit( FpCall::qualifyDstIp ) | fpQualifierBit( FpCall::qualifyIpProtocol ) |
    fpQualifierBit( FpCall::qualifyOpaqueObject1 );

// One NAT entry. The recipe refers to the key it was built from, which must outlive it.
class NatEntryRecipe : public FpEntryRecipe {
public:
   NatEntryRecipe( Oro::NatHwKey const& hwKey, U16 vlanId, NatEntryKind kind,
                   bool multicast, NatWorkerMode mode );
   // natEntryDescription of the entry.
   std::string description() const;

private:
   Oro::NatHwKey const* hwKey_;
   U16 vlanId_;
   NatEntryKind kind_;
   bool multicast_;
   NatWorkerMode mode_;
};

// The entry of `hwKey` for `vlanId` (0 for a source-side key) of the given kind.
// `shadowData` is the key's shadow data and `shadowData0` the paired key's (the same
// record when the key is its own pair); `opaqueId` goes to opaque object 1 (the key's
// uid, or its multicast uid). Pure: no SDK call, nothing written. Stops the process on
// a key type outside 1..6, and on a VLAN 0 where the entry matches its VLAN.
NatEntryRecipe natEntryRecipe( Oro::NatHwKey const& hwKey,
                               Oro::NatHwData const& shadowData,
                               Oro::NatHwData const& shadowData0, U16 vlanId,
                               NatEntryKind kind, NatWorkerMode mode, U32 opaqueId );

}  // namespace Corvane
