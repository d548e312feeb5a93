#pragma once

// The qualifiers of the chip's ingress field processor: what an entry can match on.
//
// Each qualifier has a width in bits; the data and mask an entry stores for it are
// truncated to that width (a mask of all ones on the 13-bit L3Ingress reads back as
// 0x1fff). IpFrag matches with one selector instead of data and mask, and ExactMatch
// matches a field of the exact-match stage (only its hit status is modelled).

#include "platform/fwk/Types.h"

namespace Chip {

enum class Qualifier : U8 {
   MyStationHit,
   SrcClassField,
   SrcIp,
   DstIp,
   L4SrcPort,
   L4DstPort,
   IpProtocol,
   TcpControl,
   L3Ingress,
   IpFrag,
   OpaqueObject1,
   ExactMatch,
};
constexpr unsigned qualifierCount = 12;

// The qualifier's name as the SDK function that sets it names it ("SrcIp").
char const* qualifierName( Qualifier qualifier );
unsigned qualifierWidth( Qualifier qualifier );
// All ones over the qualifier's width.
U32 qualifierWidthMask( Qualifier qualifier );

// Which fragments an IpFrag qualifier matches.
enum class IpFragSelector : U8 { Non, First, NonOrFirst, NotFirst, Any };
constexpr unsigned ipFragSelectorCount = 5;
// The SDK's name of the selector ("bcmFieldIpFragNotFirst").
char const* ipFragSelectorName( IpFragSelector selector );

// The fields of the exact-match stage an ExactMatch qualifier can match (1 bit wide).
enum class ExactMatchField : U8 { HitStatus };
// The SDK's name of the field ("bcmFieldQualifyExactMatchHitStatus").
char const* exactMatchFieldName( ExactMatchField field );

}  // namespace Chip
