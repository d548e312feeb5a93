#pragma once

// Address values of the platform: IPv4 addresses, address-and-port pairs, addresses with
// a full 32-bit mask, and interface ids, with their text forms.
//
// Addresses are kept as host-order numbers; value() hands them out in that order, as the
// SDK wants them.

#include <string>

#include "platform/fwk/Types.h"

namespace Wirel {

class IpAddr {
public:
   IpAddr() = default;
   explicit IpAddr( U32 hostOrder ) : value_( hostOrder ) {}

   U32 value() const { return value_; }
   bool isZero() const { return value_ == 0; }
   // Dotted form, "10.0.0.1".
   std::string stringValue() const;
   // Parses the dotted form; false when `text` is not one ("010.0.0.1" is not).
   static bool fromString( std::string const& text, IpAddr& out );

   bool operator==( IpAddr o ) const { return value_ == o.value_; }
   bool operator!=( IpAddr o ) const { return value_ != o.value_; }
   bool operator<( IpAddr o ) const { return value_ < o.value_; }

private:
   U32 value_ = 0;
};

class IpAndPort {
public:
   IpAndPort() = default;
   IpAndPort( IpAddr ip, U16 port ) : ip_( ip ), port_( port ) {}

   IpAddr ip() const { return ip_; }
   U16 port() const { return port_; }
   // Address 0.0.0.0 with port 0.
   bool isUnset() const { return ip_.isZero() && port_ == 0; }
   // "10.0.0.1:80"; the port is always printed, also when it is 0.
   std::string stringValue() const;

   bool operator==( IpAndPort const& o ) const {
      return ip_ == o.ip_ && port_ == o.port_;
   }
   bool operator!=( IpAndPort const& o ) const { return !( *this == o ); }

private:
   IpAddr ip_;
   U16 port_ = 0;
};

class IpAddrWithFullMask {
public:
   IpAddrWithFullMask() = default;
   IpAddrWithFullMask( IpAddr address, U32 mask ) : address_( address ), mask_( mask ) {}

   IpAddr address() const { return address_; }
   U32 mask() const { return mask_; }
   bool isZero() const { return address_.isZero() && mask_ == 0; }
   // Number of leading one bits of the mask.
   unsigned prefixLength() const;
   bool maskIsContiguous() const;
   // "10.0.0.0/8"; a mask that is not a prefix prints as "10.0.0.0/255.0.255.0".
   std::string stringValue() const;

   bool operator==( IpAddrWithFullMask const& o ) const {
      return address_ == o.address_ && mask_ == o.mask_;
   }
   bool operator!=( IpAddrWithFullMask const& o ) const { return !( *this == o ); }

private:
   IpAddr address_;
   U32 mask_ = 0;
};

// Mask of a prefix length (0 to 32).
U32 prefixMask( unsigned length );

// A 64-bit interface id; its text form is the number in decimal.
class IntfId {
public:
   IntfId() = default;
   explicit IntfId( U64 value ) : value_( value ) {}
   U64 value() const { return value_; }
   std::string stringValue() const;
   bool operator==( IntfId o ) const { return value_ == o.value_; }
   bool operator!=( IntfId o ) const { return value_ != o.value_; }

private:
   U64 value_ = 0;
};

}  // namespace Wirel
