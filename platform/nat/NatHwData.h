#pragma once

// The NAT hardware data: what the chip is to do with packets that match a NAT key
// (protocol, filter address, next hop, VLANs, multicast group and egress interfaces).
//
// A value type, stored next to its key in the shadow table. The VLAN ids and the egress
// interfaces are fixed arrays of 64 with a count. The counts are stored as given, so a
// record may claim more than 64 entries (upstream sometimes hands such records over);
// every index is checked instead: an index above 63, read or written, throws
// Fwk::RangeException, and so does printing a record whose count reaches past the
// array. Equality compares every field; an array compares by its count and the
// elements within it.
//
// Members are laid out widest first, so the record has no holes in 32-bit or 64-bit
// builds.

#include <iosfwd>
#include <string>

#include "platform/fwk/Types.h"
#include "platform/nat/Wirel.h"

namespace Oro {

namespace detail {

// Throws the range error of the index type `indexName`.
[[noreturn]] void throwRange( char const* indexName );

// An index into one of the record's fixed arrays, 0 to 63. Name is the index type's
// name as its range error reports it.
template <class Name>
class NatArrayIndex {
public:
   static constexpr U32 min = 0;
   static constexpr U32 max = 63;

   NatArrayIndex() = default;
   // Throws Fwk::RangeException when `value` is above max.
   explicit NatArrayIndex( U32 value ) : value_( static_cast<U8>( value ) ) {
      if ( value > max ) {
         throwRange( Name::text );
      }
   }
   U32 value() const { return value_; }

private:
   U8 value_ = min;
};

struct NatVlanIdIndexName {
   static constexpr char const* text = "NatVlanIdIndex";
};
struct NatEgressIntfIndexName {
   static constexpr char const* text = "NatEgressIntfIndex";
};

}  // namespace detail

typedef detail::NatArrayIndex<detail::NatVlanIdIndexName> NatVlanIdIndex;
typedef detail::NatArrayIndex<detail::NatEgressIntfIndexName> NatEgressIntfIndex;

class NatHwData {
public:
   static constexpr U32 vlanIdCapacity = NatVlanIdIndex::max + 1;
   static constexpr U32 egressIntfCapacity = NatEgressIntfIndex::max + 1;

   NatHwData() = default;
   NatHwData( U8 protocol, Wirel::IpAddrWithFullMask filterAddr, U32 numFilterAddrs,
              U64 const& nextHopId, bool staticAclSharing, U32 mcastGroupId,
              bool multicast, bool ingress );

   U8 protocol() const { return protocol_; }
   Wirel::IpAddrWithFullMask filterAddr() const { return filterAddr_; }
   U32 numFilterAddrs() const { return numFilterAddrs_; }
   U64 nextHopId() const { return nextHopId_; }
   bool staticAclSharing() const { return staticAclSharing_; }
   U32 mcastGroupId() const { return mcastGroupId_; }
   bool multicast() const { return multicast_; }
   bool ingress() const { return ingress_; }

   void protocolIs( U8 v ) { protocol_ = v; }
   void filterAddrIs( Wirel::IpAddrWithFullMask v ) { filterAddr_ = v; }
   void numFilterAddrsIs( U32 v ) { numFilterAddrs_ = v; }
   void nextHopIdIs( U64 v ) { nextHopId_ = v; }
   void staticAclSharingIs( bool v ) { staticAclSharing_ = v; }
   void mcastGroupIdIs( U32 v ) { mcastGroupId_ = v; }
   void multicastIs( bool v ) { multicast_ = v; }
   void ingressIs( bool v ) { ingress_ = v; }

   // VLAN ids. vlanIds() is the count; the index functions throw for an index above 63,
   // vlanIdAppend() when the count has reached 64.
   U32 vlanIds() const { return vlanIds_; }
   U16 vlanId( U32 i ) const { return vlanId_[NatVlanIdIndex( i ).value()]; }
   void vlanIdIs( U32 i, U16 v ) { vlanId_[NatVlanIdIndex( i ).value()] = v; }
   void vlanIdAppend( U16 v );
   void vlanIdsIs( U32 count ) { vlanIds_ = count; }

   // Egress interfaces, indexed as the VLAN ids are.
   U32 egressIntfs() const { return egressIntfs_; }
   Wirel::IntfId egressIntf( U32 i ) const {
      return egressIntf_[NatEgressIntfIndex( i ).value()];
   }
   void egressIntfIs( U32 i, Wirel::IntfId v ) {
      egressIntf_[NatEgressIntfIndex( i ).value()] = v;
   }
   void egressIntfAppend( Wirel::IntfId v );
   void egressIntfsIs( U32 count ) { egressIntfs_ = count; }

   // "vlan: [ 10 20 ]", then the fields that are set, " ingress: ", and the egress
   // interfaces of a multicast record. Throws Fwk::RangeException when a count reaches
   // past its array.
   std::string stringValue() const;

   bool operator==( NatHwData const& o ) const;
   bool operator!=( NatHwData const& o ) const { return !( *this == o ); }

private:
   U64 nextHopId_ = 0;
   Wirel::IntfId egressIntf_[egressIntfCapacity] = {};
   Wirel::IpAddrWithFullMask filterAddr_;
   U32 numFilterAddrs_ = 0;
   U32 mcastGroupId_ = 0;
   U32 vlanIds_ = 0;
   U32 egressIntfs_ = 0;
   U16 vlanId_[vlanIdCapacity] = {};
   U8 protocol_ = 0;
   bool staticAclSharing_ = false;
   bool multicast_ = false;
   bool ingress_ = false;
};

std::ostream& operator<<( std::ostream& os, NatHwData const& data );

}  // namespace Oro
