#pragma once

// A packet as the field processor sees it: the header fields and lookup results that
// the qualifiers match against.

#include "platform/fwk/Types.h"

namespace Chip {

// The fragment state of an IP packet.
enum class Frag : U8 { none, first, notFirst };

// TCP flag bits as the TcpControl qualifier sees them.
enum TcpFlag : U8 { tcpFin = 1, tcpSyn = 2, tcpRst = 4 };

struct Packet {
   U32 src = 0;  // addresses in host order
   U32 dst = 0;
   U8 protocol = 0;
   U16 srcPort = 0;
   U16 dstPort = 0;
   U16 vlan = 0;  // matched by L3Ingress
   Frag frag = Frag::none;
   U8 tcpFlags = 0;
   bool exactMatchHit = false;
   bool myStationHit = false;
   U32 srcClass = 0;
   U32 opaqueObject1 = 0;
};

}  // namespace Chip
