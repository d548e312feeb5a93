#pragma once

// Hashing of keys in the framework's collections.
//
// Every collection type hashes with the per-process seed XOR a salt of its own, so that
// two collections of the same keys do not share a bucket layout. The seed is fixed unless
// FWK_HASH_SEED is set in the environment (a number), which keeps iteration orders, and
// so the agent's output, the same from run to run.

#include <cstddef>
#include <string>
#include <type_traits>

#include "platform/fwk/Types.h"

namespace Fwk {

U32 hashSeed();

// Mixes a 32-bit value into a running hash (a multiply-xorshift finaliser).
inline U32 hashMix( U32 h, U32 v ) noexcept {
   h ^= v + 0x9e3779b9u + ( h << 6 ) + ( h >> 2 );
   h ^= h >> 16;
   h *= 0x85ebca6bu;
   h ^= h >> 13;
   return h;
}

// Mixes a 64-bit value into a running 64-bit hash with one multiply; for keys of many
// fields, packed into words, where hashing is on every access.
inline U64 hashMix64( U64 h, U64 v ) noexcept {
   h = ( h ^ v ) * 0x9e3779b97f4a7c15ull;
   return h ^ ( h >> 29 );
}

// Mixes a string into a running hash: its length, then its bytes four at a time (the
// length keeps "ab" + "c" and "a" + "bc" apart when strings are mixed one after another).
U32 hashMixString( U32 h, std::string const& s ) noexcept;

namespace detail {
template <class K, class = void>
struct HasHashMember : std::false_type {};
template <class K>
struct HasHashMember<K, std::void_t<decltype( std::declval<K const&>().hash( 0u ) )>>
    : std::true_type {};
}  // namespace detail

// Hash functor of a collection with the given salt. Keys either have a member
// hash( unsigned seed ) or are integers or enumerations.
template <class K, U32 Salt>
struct SaltedHash {
   std::size_t operator()( K const& k ) const noexcept {
      if constexpr ( detail::HasHashMember<K>::value ) {
         return k.hash( hashSeed() ^ Salt );
      } else {
         U64 v = static_cast<U64>( k );
         return hashMix( hashMix( hashSeed() ^ Salt, static_cast<U32>( v ) ),
                         static_cast<U32>( v >> 32 ) );
      }
   }
};

}  // namespace Fwk
