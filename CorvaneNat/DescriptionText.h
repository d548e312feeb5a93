#pragma once

// The text of an entry description, built in place: the same text that printf-style
// formatting of the parts gives, without the formatting machinery and the temporary
// strings (a description is made for every new entry). Like the 256-byte buffer of the
// descriptions' format, it keeps at most 255 characters and drops the rest.

#include <charconv>
#include <cstring>
#include <string>

#include "platform/nat/Wirel.h"

namespace Corvane {

class DescriptionText {
public:
   DescriptionText& operator<<( char const* text ) {
      return append( text, std::strlen( text ) );
   }
   DescriptionText& operator<<( std::string const& text ) {
      return append( text.data(), text.size() );
   }
   DescriptionText& operator<<( unsigned number ) {
      char digits[10];
      char* const end = std::to_chars( digits, digits + sizeof( digits ), number ).ptr;
      return append( digits, std::size_t( end - digits ) );
   }
   // "10.0.0.1"
   DescriptionText& operator<<( Wirel::IpAddr ip ) {
      char dotted[15];
      char* at = dotted;
      for ( int shift = 24; shift >= 0; shift -= 8 ) {
         at = std::to_chars( at, at + 3, ( ip.value() >> shift ) & 0xff ).ptr;
         if ( shift != 0 ) {
            *at++ = '.';
         }
      }
      return append( dotted, std::size_t( at - dotted ) );
   }
   // "10.0.0.1:80", the port always written
   DescriptionText& operator<<( Wirel::IpAndPort ipPort ) {
      return *this << ipPort.ip() << ":" << unsigned( ipPort.port() );
   }
   // "10.0.0.0/8": the address and the number of leading ones of its mask
   DescriptionText& operator<<( Wirel::IpAddrWithFullMask const& addr ) {
      return *this << addr.address() << "/" << unsigned( addr.prefixLength() );
   }

   std::string str() const { return std::string( text_, size_ ); }

private:
   DescriptionText& append( char const* text, std::size_t size ) {
      std::size_t const room = sizeof( text_ ) - 1 - size_;
      std::size_t const n = size < room ? size : room;
      std::memcpy( text_ + size_, text, n );
      size_ += n;
      return *this;
   }

   char text_[256];
   std::size_t size_ = 0;
};

}  // namespace Corvane
