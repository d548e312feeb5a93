#pragma once

// Constants shared by the NAT programming of the plug-in.

#include "platform/fwk/Types.h"
#include "platform/tcam/TcamTypes.h"

namespace Corvane {

// Every NAT entry lives in this TCAM group and has this priority.
constexpr TcamGroupAssignment natTcamGroupAssignment = 0xa0;
constexpr S32 natEntryPriority = 0x7fffffff;

// Source-class bit that the VFP stage sets on packets an ACL drops; NAT entries match
// only packets without it.
constexpr U32 classVfpAclDrop_ = 8;

constexpr U8 TCAM_FIELD_IPPROTO_MASK = 0xff;
constexpr U8 IPPROTO_TCP = 6;
constexpr U8 IPPROTO_UDP = 17;

// Extraction-control ids: which rewrite the chip's later stage applies.
constexpr U32 extractionCtrlIdMask = 0x1f;
constexpr U32 extractionCtrlDnat = 16;
constexpr U32 extractionCtrlDnapt = 17;
constexpr U32 extractionCtrlTwiceDstNat = 18;
constexpr U32 extractionCtrlTwiceDstNapt = 19;
constexpr U32 extractionCtrlSnat = 20;
constexpr U32 extractionCtrlSnapt = 21;
constexpr U32 extractionCtrlTwiceSrcNat = 22;
constexpr U32 extractionCtrlTwiceSrcNapt = 23;
constexpr U32 extractionCtrlMulticast = 24;

// Next-hop ids of bcmFieldActionL3Switch: 100000 + index for a plain next hop, 200000 +
// index for a multipath group (bit 27 of the next hop, cleared in the index).
constexpr U32 nextHopEcmpBit = 0x08000000;
constexpr U32 nextHopIdBase = 100000;
constexpr U32 nextHopEcmpIdBase = 200000;

// The L3-switch next-hop id: the multipath test reads `tested`, the index comes from the
// low word of `indexed` (the two are the same record in the common case).
inline U32 nextHopIdOf( U64 tested, U64 indexed ) {
   U32 const index = static_cast<U32>( indexed );
   if ( static_cast<U32>( tested ) & nextHopEcmpBit ) {
      return ( index & ~nextHopEcmpBit ) + nextHopEcmpIdBase;
   }
   return index + nextHopIdBase;
}

}  // namespace Corvane
