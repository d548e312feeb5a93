#include "platform/chip/FpEntry.h"

namespace Chip {

bool FpEntry::qualifierHas( Qualifier qualifier ) const {
   return ( qualifiersSet_ & bit( qualifier ) ) != 0;
}

Masked FpEntry::qualifier( Qualifier qualifier ) const {
   return qualifiers_[unsigned( qualifier )];
}

std::vector<Qualifier> FpEntry::qualifiers() const {
   std::vector<Qualifier> set;
   for ( unsigned i = 0; i < qualifierCount; ++i ) {
      if ( qualifierHas( Qualifier( i ) ) ) {
         set.push_back( Qualifier( i ) );
      }
   }
   return set;
}

Args FpEntry::qualifierArgs( Qualifier qualifier ) const {
   if ( !qualifierHas( qualifier ) ) {
      return Args();
   }
   Masked value = this->qualifier( qualifier );
   if ( qualifier == Qualifier::IpFrag ) {
      return { nameArg( ipFragSelectorName( ipFrag_ ) ) };
   }
   if ( qualifier == Qualifier::ExactMatch ) {
      return { numberArg( exactMatchInstance_ ),
               nameArg( exactMatchFieldName( exactMatchField_ ) ),
               numberArg( value.data ), numberArg( value.mask ) };
   }
   return { numberArg( value.data ), numberArg( value.mask ) };
}

bool FpEntry::masked( Qualifier qualifier, U32 value ) const {
   if ( !qualifierHas( qualifier ) ) {
      return true;
   }
   Masked const& q = qualifiers_[unsigned( qualifier )];
   return ( value & q.mask ) == ( q.data & q.mask );
}

bool FpEntry::ipFragMatches( Frag frag ) const {
   if ( !qualifierHas( Qualifier::IpFrag ) ) {
      return true;
   }
   switch ( ipFrag_ ) {
      case IpFragSelector::Non:
         return frag == Frag::none;
      case IpFragSelector::First:
         return frag == Frag::first;
      case IpFragSelector::NonOrFirst:
         return frag != Frag::notFirst;
      case IpFragSelector::NotFirst:
         return frag == Frag::notFirst;
      case IpFragSelector::Any:
         return true;
   }
   return false;
}

bool FpEntry::matches( Packet const& p ) const {
   if ( qualifiersSet_ == 0 ) {
      return true;
   }
   bool const portsPresent = p.frag != Frag::notFirst;
   bool const portQualified =
       qualifierHas( Qualifier::L4SrcPort ) || qualifierHas( Qualifier::L4DstPort );
   if ( portQualified && !portsPresent ) {
      return false;
   }
   return masked( Qualifier::SrcIp, p.src ) && masked( Qualifier::DstIp, p.dst ) &&
          masked( Qualifier::L4SrcPort, p.srcPort ) &&
          masked( Qualifier::L4DstPort, p.dstPort ) &&
          masked( Qualifier::IpProtocol, p.protocol ) &&
          masked( Qualifier::TcpControl, p.tcpFlags ) &&
          masked( Qualifier::MyStationHit, p.myStationHit ? 1 : 0 ) &&
          masked( Qualifier::SrcClassField, p.srcClass ) &&
          masked( Qualifier::L3Ingress, p.vlan ) &&
          masked( Qualifier::OpaqueObject1, p.opaqueObject1 ) &&
          masked( Qualifier::ExactMatch, p.exactMatchHit ? 1 : 0 ) &&
          ipFragMatches( p.frag );
}

}  // namespace Chip
