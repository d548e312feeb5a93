#include "platform/nat/Wirel.h"

#include <cstdio>

namespace Wirel {

std::string IpAddr::stringValue() const {
   char text[16];
   std::snprintf( text, sizeof( text ), "%u.%u.%u.%u", ( value_ >> 24 ) & 0xff,
                  ( value_ >> 16 ) & 0xff, ( value_ >> 8 ) & 0xff, value_ & 0xff );
   return text;
}

bool IpAddr::fromString( std::string const& text, IpAddr& out ) {
   U32 value = 0;
   unsigned octets = 0;
   std::size_t i = 0;
   while ( octets < 4 ) {
      std::size_t start = i;
      U32 octet = 0;
      while ( i < text.size() && text[i] >= '0' && text[i] <= '9' && i - start < 3 ) {
         octet = octet * 10 + static_cast<U32>( text[i] - '0' );
         ++i;
      }
      // "010" is refused, as inet_pton() does: elsewhere a leading 0 means octal.
      bool const leadingZero = i - start > 1 && text[start] == '0';
      if ( i == start || octet > 255 || leadingZero ) {
         return false;
      }
      value = ( value << 8 ) | octet;
      ++octets;
      if ( octets < 4 ) {
         if ( i >= text.size() || text[i] != '.' ) {
            return false;
         }
         ++i;
      }
   }
   if ( i != text.size() ) {
      return false;
   }
   out = IpAddr( value );
   return true;
}

std::string IpAndPort::stringValue() const {
   return ip_.stringValue() + ":" + std::to_string( port_ );
}

U32 prefixMask( unsigned length ) {
   return length == 0    ? 0
          : length >= 32 ? 0xffffffffu
                         : ~( ( 1u << ( 32 - length ) ) - 1 );
}

unsigned IpAddrWithFullMask::prefixLength() const {
   // The leading ones of the mask are the leading zeros of its complement.
   return mask_ == 0xffffffffu ? 32u : unsigned( __builtin_clz( ~mask_ ) );
}

bool IpAddrWithFullMask::maskIsContiguous() const {
   return mask_ == prefixMask( prefixLength() );
}

std::string IpAddrWithFullMask::stringValue() const {
   if ( maskIsContiguous() ) {
      return address_.stringValue() + "/" + std::to_string( prefixLength() );
   }
   return address_.stringValue() + "/" + IpAddr( mask_ ).stringValue();
}

std::string IntfId::stringValue() const {
   return std::to_string( value_ );
}

}  // namespace Wirel
