// The memory, register and switch-control calls of the SDK shim.

#include "platform/chip/BitField.h"
#include "platform/chip/Sdk.h"

namespace Shim {

using Chip::numberArg;

Chip::Args Sdk::memArgs( int mem, int block, int index ) const {
   return { tableArg( mem ), idArg( blockNames_, block ), numberArg( U32( index ) ) };
}

Chip::Args Sdk::regArgs( int reg, int port, int index ) const {
   return { tableArg( reg ), idArg( portNames_, port ), numberArg( U32( index ) ) };
}

int Sdk::memCheck( int unit, int mem, int block, int index, void const* entry ) const {
   if ( !this->unit( unit ) ) {
      return BCM_E_UNIT;
   }
   Chip::TableId const* t = table( mem, false );
   bool const blockKnown = block == MEM_BLOCK_ANY || block == MEM_BLOCK_ALL;
   if ( !t || !blockKnown || !entry || index < 0 ||
        unsigned( index ) >= Chip::tableLayout( *t ).rows ) {
      return BCM_E_PARAM;
   }
   return BCM_E_NONE;
}

int Sdk::soc_mem_read( int unit, int mem, int block, int index, void* entry ) {
   char const* call = "soc_mem_read";
   Lock lock( mutex_ );
   int rc = injected( call );
   if ( rc == BCM_E_NONE ) {
      rc = memCheck( unit, mem, block, index, entry );
   }
   if ( rc == BCM_E_NONE ) {
      this->unit( unit )
          ->table( *table( mem, false ) )
          .rowRead( unsigned( index ), static_cast<U32*>( entry ) );
   }
   if ( journaling() ) {
      record( call, unit, memArgs( mem, block, index ), rc );
   }
   return rc;
}

int Sdk::soc_mem_write( int unit, int mem, int block, int index, void const* entry ) {
   char const* call = "soc_mem_write";
   Lock lock( mutex_ );
   int rc = injected( call );
   if ( rc == BCM_E_NONE ) {
      rc = memCheck( unit, mem, block, index, entry );
   }
   U32 const* words = static_cast<U32 const*>( entry );
   if ( rc == BCM_E_NONE ) {
      this->unit( unit )
          ->table( *table( mem, false ) )
          .rowWrite( unsigned( index ), words );
   }
   if ( journaling() ) {
      Chip::Args args = memArgs( mem, block, index );
      Chip::TableId const* t = table( mem, false );
      Chip::FieldValues fields;
      if ( t && words ) {
         fields = Chip::reportedFields( Chip::tableLayout( *t ), words );
      }
      args.push_back( Chip::fieldsArg( std::move( fields ) ) );
      record( call, unit, std::move( args ), rc );
   }
   return rc;
}

int Sdk::soc_mem_field32_set( int unit, int mem, void* entry, int field, U32 value ) {
   Lock lock( mutex_ );
   if ( !this->unit( unit ) ) {
      return BCM_E_UNIT;
   }
   Chip::TableId const* t = table( mem, false );
   FieldRef const* f = t ? this->field( *t, field ) : nullptr;
   if ( !f || !entry ) {
      return BCM_E_PARAM;
   }
   Chip::bitsSet( static_cast<U32*>( entry ), f->layout->firstBit, f->layout->width,
                  value );
   return BCM_E_NONE;
}

U32 Sdk::soc_mem_field32_get( int unit, int mem, void const* entry, int field ) {
   Lock lock( mutex_ );
   Chip::TableId const* t = table( mem, false );
   FieldRef const* f = t ? this->field( *t, field ) : nullptr;
   if ( !this->unit( unit ) || !f || !entry ) {
      return 0;
   }
   return Chip::bitsGet( static_cast<U32 const*>( entry ), f->layout->firstBit,
                         f->layout->width );
}

int Sdk::regCheck( int unit, int reg, int port, int index ) const {
   if ( !this->unit( unit ) ) {
      return BCM_E_UNIT;
   }
   if ( port != REG_PORT_ANY ) {
      return BCM_E_PORT;
   }
   if ( !table( reg, true ) || index != 0 ) {
      return BCM_E_PARAM;
   }
   return BCM_E_NONE;
}

int Sdk::soc_reg32_get( int unit, int reg, int port, int index, U32* value ) {
   char const* call = "soc_reg32_get";
   Lock lock( mutex_ );
   int rc = injected( call );
   if ( rc == BCM_E_NONE ) {
      rc = value ? regCheck( unit, reg, port, index ) : BCM_E_PARAM;
   }
   if ( rc == BCM_E_NONE ) {
      this->unit( unit )->table( *table( reg, true ) ).rowRead( 0, value );
   }
   if ( journaling() ) {
      record( call, unit, regArgs( reg, port, index ), rc );
   }
   return rc;
}

int Sdk::soc_reg32_set( int unit, int reg, int port, int index, U32 value ) {
   char const* call = "soc_reg32_set";
   Lock lock( mutex_ );
   int rc = injected( call );
   if ( rc == BCM_E_NONE ) {
      rc = regCheck( unit, reg, port, index );
   }
   if ( rc == BCM_E_NONE ) {
      this->unit( unit )->table( *table( reg, true ) ).rowWrite( 0, &value );
   }
   if ( journaling() ) {
      Chip::Args args = regArgs( reg, port, index );
      Chip::TableId const* t = table( reg, true );
      Chip::FieldValues fields;
      if ( t ) {
         fields = Chip::reportedFields( Chip::tableLayout( *t ), &value );
      }
      args.push_back( Chip::fieldsArg( std::move( fields ) ) );
      record( call, unit, std::move( args ), rc );
   }
   return rc;
}

int Sdk::soc_reg_field_set( int unit, int reg, U32* value, int field, U32 fieldValue ) {
   Lock lock( mutex_ );
   if ( !this->unit( unit ) ) {
      return BCM_E_UNIT;
   }
   Chip::TableId const* t = table( reg, true );
   FieldRef const* f = t ? this->field( *t, field ) : nullptr;
   if ( !f || !value ) {
      return BCM_E_PARAM;
   }
   Chip::bitsSet( value, f->layout->firstBit, f->layout->width, fieldValue );
   return BCM_E_NONE;
}

U32 Sdk::soc_reg_field_get( int unit, int reg, U32 value, int field ) {
   Lock lock( mutex_ );
   Chip::TableId const* t = table( reg, true );
   FieldRef const* f = t ? this->field( *t, field ) : nullptr;
   if ( !this->unit( unit ) || !f ) {
      return 0;
   }
   return Chip::bitsGet( &value, f->layout->firstBit, f->layout->width );
}

int Sdk::bcm_switch_control_set( int unit, int control, int value ) {
   char const* call = "bcm_switch_control_set";
   Lock lock( mutex_ );
   bool const known = control == bcmSwitchL3EgressMode;
   int rc = injected( call );
   Chip::ChipUnit* u = this->unit( unit );
   if ( rc == BCM_E_NONE ) {
      rc = !u ? BCM_E_UNIT : !known ? BCM_E_UNAVAIL : BCM_E_NONE;
   }
   if ( rc == BCM_E_NONE ) {
      u->switchControlIs( Chip::SwitchControl::L3EgressMode, value );
   }
   if ( journaling() ) {
      Chip::Arg name = known ? Chip::nameArg( Chip::switchControlName(
                                   Chip::SwitchControl::L3EgressMode ) )
                             : numberArg( U32( control ) );
      record( call, unit, { name, numberArg( U32( value ) ) }, rc );
   }
   return rc;
}

}  // namespace Shim
