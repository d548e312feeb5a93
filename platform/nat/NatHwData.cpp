#include "platform/nat/NatHwData.h"

#include <algorithm>
#include <ostream>

#include "platform/fwk/Assert.h"

namespace Oro {

namespace detail {

void throwRange( char const* indexName ) {
   std::string const name( indexName );
   throw Fwk::RangeException( name + "::value < " + name + "::min or > " + name +
                              "::max not allowed" );
}

}  // namespace detail

namespace {

char const* boolText( bool b ) {
   return b ? "true" : "false";
}

// Compares the elements within `count` of two arrays of `capacity`; a count past the
// array compares what is stored.
template <class T>
bool elementsEqual( T const* a, T const* b, U32 count, U32 capacity ) {
   return std::equal( a, a + std::min( count, capacity ), b );
}

}  // namespace

NatHwData::NatHwData( U8 protocol, Wirel::IpAddrWithFullMask filterAddr,
                      U32 numFilterAddrs, U64 const& nextHopId, bool staticAclSharing,
                      U32 mcastGroupId, bool multicast, bool ingress )
    : nextHopId_( nextHopId ),
      filterAddr_( filterAddr ),
      numFilterAddrs_( numFilterAddrs ),
      mcastGroupId_( mcastGroupId ),
      protocol_( protocol ),
      staticAclSharing_( staticAclSharing ),
      multicast_( multicast ),
      ingress_( ingress ) {}

void NatHwData::vlanIdAppend( U16 v ) {
   vlanIdIs( vlanIds_, v );
   ++vlanIds_;
}

void NatHwData::egressIntfAppend( Wirel::IntfId v ) {
   egressIntfIs( egressIntfs_, v );
   ++egressIntfs_;
}

std::string NatHwData::stringValue() const {
   std::string s = "vlan: [ ";
   for ( U32 i = 0; i < vlanIds_; ++i ) {
      s += std::to_string( vlanId( i ) );
      s += " ";
   }
   s += "]";
   if ( protocol_ != 0 ) {
      s += " proto: " + std::to_string( protocol_ );
   }
   if ( !filterAddr_.isZero() ) {
      s += " faddr: " + filterAddr_.stringValue();
   }
   if ( numFilterAddrs_ != 0 ) {
      s += " #faddrs: " + std::to_string( numFilterAddrs_ );
   }
   if ( nextHopId_ != 0 ) {
      s += " nhid: " + std::to_string( nextHopId_ );
   }
   if ( mcastGroupId_ != 0 ) {
      s += " mcastGroupId: " + std::to_string( mcastGroupId_ );
   }
   if ( staticAclSharing_ ) {
      s += " staticAclSharing: ";
      s += boolText( staticAclSharing_ );
   }
   s += " ingress: ";
   s += boolText( ingress_ );
   if ( multicast_ ) {
      s += " multicast: ";
      s += boolText( multicast_ );
      s += " egressIntf: [ ";
      for ( U32 i = 0; i < egressIntfs_; ++i ) {
         s += egressIntf( i ).stringValue();
         s += ", ";
      }
      s += " ] ";
   }
   return s;
}

bool NatHwData::operator==( NatHwData const& o ) const {
   if ( protocol_ != o.protocol_ || filterAddr_ != o.filterAddr_ ||
        numFilterAddrs_ != o.numFilterAddrs_ || nextHopId_ != o.nextHopId_ ||
        vlanIds_ != o.vlanIds_ || staticAclSharing_ != o.staticAclSharing_ ||
        mcastGroupId_ != o.mcastGroupId_ || multicast_ != o.multicast_ ||
        egressIntfs_ != o.egressIntfs_ || ingress_ != o.ingress_ ) {
      return false;
   }
   return elementsEqual( vlanId_, o.vlanId_, vlanIds_, vlanIdCapacity ) &&
          elementsEqual( egressIntf_, o.egressIntf_, egressIntfs_, egressIntfCapacity );
}

std::ostream& operator<<( std::ostream& os, NatHwData const& data ) {
   return os << data.stringValue();
}

}  // namespace Oro
