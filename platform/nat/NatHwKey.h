#pragma once

// The NAT hardware key: what upstream translates (kind, old and new source and
// destination, protocol, ACL), as it stands in the shadow table.
//
// A value type. Its four address-and-port fields are stored as two small arrays so that
// a key takes 40 bytes in both 32-bit and 64-bit builds (the worker keeps one per
// programmed rule); the accessors hand out ordinary Wirel::IpAndPort values.

#include <iosfwd>
#include <string>

#include "platform/fwk/Types.h"
#include "platform/nat/Wirel.h"

namespace Oro {

// The id of a NAT ACL; its text form is the number in decimal.
class NatAclId {
public:
   NatAclId() = default;
   explicit NatAclId( U32 value ) : value_( value ) {}
   U32 value() const { return value_; }
   std::string stringValue() const { return std::to_string( value_ ); }
   bool operator==( NatAclId o ) const { return value_ == o.value_; }
   bool operator!=( NatAclId o ) const { return value_ != o.value_; }
   bool operator<( NatAclId o ) const { return value_ < o.value_; }

private:
   U32 value_ = 0;
};

class NatHwKey {
public:
   // The kind of NAT a key encodes. The type holds any 32-bit value; the named ones are
   // those the agent knows.
   enum NatKeyType : U32 {
      natKeyTypeNone = 0,
      staticSrcNat = 1,   // static source NAT (with ports: NAPT)
      staticDstNat = 2,   // static destination NAT (with ports: NAPT)
      twiceNatSrc = 3,    // twice NAT, the source-side key
      twiceNatDst = 4,    // twice NAT, the destination-side key
      dynamicSrcNat = 5,  // dynamic source NAT
      dynamicDstNat = 6,  // dynamic destination NAT
   };

   NatHwKey() = default;
   NatHwKey( NatKeyType keyType, Wirel::IpAndPort srcIpAndPortOld,
             Wirel::IpAndPort srcIpAndPortNew, Wirel::IpAndPort dstIpAndPortOld,
             Wirel::IpAndPort dstIpAndPortNew, bool reverse, U8 dynProto, U32 faId,
             NatAclId aclId );

   NatKeyType keyType() const { return keyType_; }
   Wirel::IpAndPort srcIpAndPortOld() const { return ipAndPort( srcOld ); }
   Wirel::IpAndPort srcIpAndPortNew() const { return ipAndPort( srcNew ); }
   Wirel::IpAndPort dstIpAndPortOld() const { return ipAndPort( dstOld ); }
   Wirel::IpAndPort dstIpAndPortNew() const { return ipAndPort( dstNew ); }
   bool reverse() const { return reverse_; }
   U8 dynProto() const { return dynProto_; }
   U32 faId() const { return faId_; }
   NatAclId aclId() const { return aclId_; }

   // Static NAT (types 1, 2) with a new source or destination port.
   bool isStaticNapt() const;
   // Twice NAT (types 3, 4) with an old port and a new port.
   bool isTwiceNapt() const;
   // Dynamic NAT (types 5, 6).
   bool isDynamicNat() const;
   // A dynamic key whose old source or old destination address is 0.0.0.0. Only the two
   // old addresses are looked at, never ports or new addresses.
   bool isAddrOnlyNat() const;

   std::string stringValue() const;
   unsigned hash( unsigned seed ) const noexcept;

   bool operator==( NatHwKey const& o ) const;
   bool operator!=( NatHwKey const& o ) const { return !( *this == o ); }
   bool operator<( NatHwKey const& o ) const;

private:
   enum Field { srcOld = 0, srcNew = 1, dstOld = 2, dstNew = 3 };
   Wirel::IpAndPort ipAndPort( Field f ) const {
      return Wirel::IpAndPort( Wirel::IpAddr( ip_[f] ), port_[f] );
   }

   NatKeyType keyType_ = natKeyTypeNone;
   U32 ip_[4] = {};
   U16 port_[4] = {};
   U8 dynProto_ = 0;
   bool reverse_ = false;
   U32 faId_ = 0;
   NatAclId aclId_;
};

// Text form of a key type: its name, or the number for a value without one.
std::string valueToStrep( NatHwKey::NatKeyType keyType );

std::ostream& operator<<( std::ostream& os, NatHwKey const& key );

}  // namespace Oro
