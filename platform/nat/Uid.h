#pragma once

// The uid of a NAT rule: the number the worker hands to the chip's control plane and
// to the other modules to name one programmed rule.
//
// A bounded unsigned 32-bit value, 1 to 0xffffffff; 0 means "no rule" on the wire, so
// no Uid ever holds it: building one from 0 throws Fwk::RangeException. A
// default-constructed Uid holds the lowest value, 1.

#include <iosfwd>

#include "platform/fwk/Types.h"

namespace CorvaneNat {

class Uid {
public:
   static constexpr U32 min = 1;
   static constexpr U32 max = 0xffffffffu;

   Uid() = default;
   // Throws Fwk::RangeException when `value` is outside [min, max].
   explicit Uid( U32 value );

   U32 value() const { return value_; }
   unsigned hash( unsigned seed ) const noexcept;

   bool operator==( Uid o ) const { return value_ == o.value_; }
   bool operator!=( Uid o ) const { return value_ != o.value_; }
   bool operator<( Uid o ) const { return value_ < o.value_; }

private:
   U32 value_ = min;
};

std::ostream& operator<<( std::ostream& os, Uid uid );

}  // namespace CorvaneNat
