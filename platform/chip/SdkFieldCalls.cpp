// The field-processor calls of the SDK shim: qualifiers, their read-backs and actions.

#include "platform/chip/Sdk.h"

namespace Shim {

using Chip::numberArg;
using Chip::Qualifier;
using Chip::Status;

// Runs `change` on the unit's field processor unless an injected failure is due or the
// unit does not exist; returns the SDK code. The caller holds the lock.
template <class F>
int Sdk::fieldCall( char const* call, int unit, F change ) {
   int rc = injected( call );
   if ( rc != BCM_E_NONE ) {
      return rc;
   }
   Chip::ChipUnit* u = this->unit( unit );
   if ( !u ) {
      return BCM_E_UNIT;
   }
   return code( change( u->fieldProcessor() ) );
}

int Sdk::qualify( char const* call, int unit, U32 entry, Qualifier qualifier, U32 data,
                  U32 mask ) {
   Lock lock( mutex_ );
   int rc = fieldCall( call, unit, [&]( Chip::FieldProcessor& fp ) {
      return fp.qualifierIs( entry, qualifier, data, mask );
   } );
   if ( journaling() ) {
      record( call, unit, entry, { numberArg( data ), numberArg( mask ) }, rc );
   }
   return rc;
}

int Sdk::bcm_field_qualify_MyStationHit( int unit, U32 entry, U8 data, U8 mask ) {
   return qualify( "bcm_field_qualify_MyStationHit", unit, entry, Qualifier::MyStationHit,
                   data, mask );
}

int Sdk::bcm_field_qualify_SrcClassField( int unit, U32 entry, U32 data, U32 mask ) {
   return qualify( "bcm_field_qualify_SrcClassField", unit, entry,
                   Qualifier::SrcClassField, data, mask );
}

int Sdk::bcm_field_qualify_SrcIp( int unit, U32 entry, U32 data, U32 mask ) {
   return qualify( "bcm_field_qualify_SrcIp", unit, entry, Qualifier::SrcIp, data, mask );
}

int Sdk::bcm_field_qualify_DstIp( int unit, U32 entry, U32 data, U32 mask ) {
   return qualify( "bcm_field_qualify_DstIp", unit, entry, Qualifier::DstIp, data, mask );
}

int Sdk::bcm_field_qualify_L4SrcPort( int unit, U32 entry, U16 data, U16 mask ) {
   return qualify( "bcm_field_qualify_L4SrcPort", unit, entry, Qualifier::L4SrcPort, data,
                   mask );
}

int Sdk::bcm_field_qualify_L4DstPort( int unit, U32 entry, U16 data, U16 mask ) {
   return qualify( "bcm_field_qualify_L4DstPort", unit, entry, Qualifier::L4DstPort, data,
                   mask );
}

int Sdk::bcm_field_qualify_IpProtocol( int unit, U32 entry, U8 data, U8 mask ) {
   return qualify( "bcm_field_qualify_IpProtocol", unit, entry, Qualifier::IpProtocol,
                   data, mask );
}

int Sdk::bcm_field_qualify_TcpControl( int unit, U32 entry, U8 data, U8 mask ) {
   return qualify( "bcm_field_qualify_TcpControl", unit, entry, Qualifier::TcpControl,
                   data, mask );
}

int Sdk::bcm_field_qualify_L3Ingress( int unit, U32 entry, U32 data, U32 mask ) {
   return qualify( "bcm_field_qualify_L3Ingress", unit, entry, Qualifier::L3Ingress, data,
                   mask );
}

int Sdk::bcm_field_qualify_OpaqueObject1( int unit, U32 entry, U32 data, U32 mask ) {
   return qualify( "bcm_field_qualify_OpaqueObject1", unit, entry,
                   Qualifier::OpaqueObject1, data, mask );
}

int Sdk::bcm_field_qualify_IpFrag( int unit, U32 entry, int selector ) {
   char const* call = "bcm_field_qualify_IpFrag";
   Lock lock( mutex_ );
   Chip::IpFragSelector const* known = idFind( ipFrags_, selector );
   int rc = fieldCall( call, unit, [&]( Chip::FieldProcessor& fp ) {
      return known ? fp.ipFragIs( entry, *known ) : Status::badParam;
   } );
   if ( journaling() ) {
      Chip::Arg arg = known ? Chip::nameArg( Chip::ipFragSelectorName( *known ) )
                            : numberArg( U32( selector ) );
      record( call, unit, entry, { arg }, rc );
   }
   return rc;
}

int Sdk::bcm_field_qualify_ExactMatch( int unit, U32 entry, U32 instance, int qualifier,
                                       U32 data, U32 mask ) {
   char const* call = "bcm_field_qualify_ExactMatch";
   Lock lock( mutex_ );
   bool const known = qualifier == bcmFieldQualifyExactMatchHitStatus;
   int rc = fieldCall( call, unit, [&]( Chip::FieldProcessor& fp ) {
      return known ? fp.exactMatchIs( entry, instance, Chip::ExactMatchField::HitStatus,
                                      data, mask )
                   : Status::badParam;
   } );
   if ( journaling() ) {
      Chip::Arg field = known ? Chip::nameArg( Chip::exactMatchFieldName(
                                    Chip::ExactMatchField::HitStatus ) )
                              : numberArg( U32( qualifier ) );
      record( call, unit, entry,
              { numberArg( instance ), field, numberArg( data ), numberArg( mask ) },
              rc );
   }
   return rc;
}

int Sdk::bcm_field_qualifier_delete( int unit, U32 entry, int qualifier ) {
   char const* call = "bcm_field_qualifier_delete";
   Lock lock( mutex_ );
   Qualifier const* known = idFind( qualifiers_, qualifier );
   int rc = fieldCall( call, unit, [&]( Chip::FieldProcessor& fp ) {
      return known ? fp.qualifierDel( entry, *known ) : Status::badParam;
   } );
   if ( journaling() ) {
      Chip::Arg arg = known ? Chip::nameArg( Chip::qualifierName( *known ) )
                            : numberArg( U32( qualifier ) );
      record( call, unit, entry, { arg }, rc );
   }
   return rc;
}

// Reads a qualifier's data and mask; `data` null stands for a missing output.
int Sdk::qualifierGet( char const* call, int unit, U32 entry, Qualifier qualifier,
                       U32* data, U32* mask ) {
   Lock lock( mutex_ );
   int rc = fieldCall( call, unit, [&]( Chip::FieldProcessor& fp ) {
      Chip::FpEntry const* e = fp.entry( entry );
      if ( !e || !e->qualifierHas( qualifier ) ) {
         return Status::noEntry;
      }
      if ( !data || !mask ) {
         return Status::badParam;
      }
      *data = e->qualifier( qualifier ).data;
      *mask = e->qualifier( qualifier ).mask;
      return Status::ok;
   } );
   if ( journaling() ) {
      record( call, unit, entry, {}, rc );
   }
   return rc;
}

namespace {

// Copies narrowed read-back values to the caller's outputs on success.
template <class T>
int narrowed( int rc, int ok, U32 data, U32 mask, T* dataOut, T* maskOut ) {
   if ( rc == ok ) {
      *dataOut = T( data );
      *maskOut = T( mask );
   }
   return rc;
}

}  // namespace

int Sdk::bcm_field_qualify_SrcIp_get( int unit, U32 entry, U32* data, U32* mask ) {
   return qualifierGet( "bcm_field_qualify_SrcIp_get", unit, entry, Qualifier::SrcIp,
                        data, mask );
}

int Sdk::bcm_field_qualify_DstIp_get( int unit, U32 entry, U32* data, U32* mask ) {
   return qualifierGet( "bcm_field_qualify_DstIp_get", unit, entry, Qualifier::DstIp,
                        data, mask );
}

int Sdk::bcm_field_qualify_L3Ingress_get( int unit, U32 entry, U32* data, U32* mask ) {
   return qualifierGet( "bcm_field_qualify_L3Ingress_get", unit, entry,
                        Qualifier::L3Ingress, data, mask );
}

int Sdk::bcm_field_qualify_L4SrcPort_get( int unit, U32 entry, U16* data, U16* mask ) {
   U32 d = 0, m = 0;
   int rc = qualifierGet( "bcm_field_qualify_L4SrcPort_get", unit, entry,
                          Qualifier::L4SrcPort, data && mask ? &d : nullptr, &m );
   return narrowed( rc, BCM_E_NONE, d, m, data, mask );
}

int Sdk::bcm_field_qualify_L4DstPort_get( int unit, U32 entry, U16* data, U16* mask ) {
   U32 d = 0, m = 0;
   int rc = qualifierGet( "bcm_field_qualify_L4DstPort_get", unit, entry,
                          Qualifier::L4DstPort, data && mask ? &d : nullptr, &m );
   return narrowed( rc, BCM_E_NONE, d, m, data, mask );
}

int Sdk::bcm_field_qualify_IpProtocol_get( int unit, U32 entry, U8* data, U8* mask ) {
   U32 d = 0, m = 0;
   int rc = qualifierGet( "bcm_field_qualify_IpProtocol_get", unit, entry,
                          Qualifier::IpProtocol, data && mask ? &d : nullptr, &m );
   return narrowed( rc, BCM_E_NONE, d, m, data, mask );
}

int Sdk::bcm_field_action_add( int unit, U32 entry, int action, U32 param0, U32 param1 ) {
   char const* call = "bcm_field_action_add";
   Lock lock( mutex_ );
   Chip::Action const* known = idFind( actions_, action );
   int rc = fieldCall( call, unit, [&]( Chip::FieldProcessor& fp ) {
      return known ? fp.actionAdd( entry, { *known, param0, param1 } ) : Status::badParam;
   } );
   if ( journaling() ) {
      Chip::Arg name = known ? Chip::nameArg( Chip::actionName( *known ) )
                             : numberArg( U32( action ) );
      record( call, unit, entry, { name, numberArg( param0 ), numberArg( param1 ) }, rc );
   }
   return rc;
}

int Sdk::bcm_field_action_remove_all( int unit, U32 entry ) {
   char const* call = "bcm_field_action_remove_all";
   Lock lock( mutex_ );
   int rc = fieldCall(
       call, unit, [&]( Chip::FieldProcessor& fp ) { return fp.actionDelAll( entry ); } );
   if ( journaling() ) {
      record( call, unit, entry, {}, rc );
   }
   return rc;
}

}  // namespace Shim
