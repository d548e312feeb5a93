#include "CorvaneNat/NatChipConfig.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "CorvaneNat/NatTrace.h"
#include "CorvaneNat/SdkCall.h"
#include "platform/chip/Sdk.h"

namespace Corvane {

namespace {

constexpr U32 l4PortTranslationEnable = 3;
constexpr U32 opaqueStrengthA = 6;
constexpr U32 opaqueStrengthB = 7;
constexpr int opaqueStrengthRows = 8;

// The rows of the L4 port translation memory that NAT uses, by chip family.
constexpr std::size_t l4PortRows = 6;
U32 const l4PortRowsFamily[l4PortRows] = { 30, 31, 32, 33, 40, 41 };
U32 const l4PortRowsOther[l4PortRows] = { 18, 19, 20, 21, 25, 26 };

// Translation types written with their enable field cleared.
bool translationTypeEnabled( U32 type ) {
   return type != 2 && type != 5;
}

void setTranslationType( Shim::Sdk& sdk, U16 unit, U32* val, int position, U32 type ) {
   int const typeField[] = { sdk.TYPE_0f, sdk.TYPE_1f, sdk.TYPE_2f };
   int const enableField[] = { sdk.ENABLE_0f, sdk.ENABLE_1f, sdk.ENABLE_2f };
   sdk.soc_reg_field_set( unit, sdk.MCAST_XLATE_TYPESr, val, typeField[position], type );
   sdk.soc_reg_field_set( unit, sdk.MCAST_XLATE_TYPESr, val, enableField[position],
                          translationTypeEnabled( type ) ? 1 : 0 );
}

void doConfigureMcastTranslationMode( U16 unit, Ip::Nat::McastTranslationMode const* mode,
                                      U32* val ) {
   Shim::Sdk& sdk = *Shim::sdk_;
   U32 const count = mode ? mode->numTranslationTypes() : 0;
   NAT_TRACE( 8, "doConfigureMcastTranslationMode", " numTranslationTypes: " << count );
   if ( count == 3 ) {
      NAT_TRACE( 8, "doConfigureMcastTranslationMode",
                 " updating translationType registers" );
      int position = 0;
      for ( auto const& element : mode->translationType() ) {
         if ( position == 3 ) {
            break;
         }
         U32 const type = static_cast<U32>( element.second );
         NAT_TRACE( 8, "doConfigureMcastTranslationMode", " translationType: " << type );
         setTranslationType( sdk, unit, val, position++, type );
      }
   } else if ( count == 0 ) {
      NAT_TRACE( 8, "doConfigureMcastTranslationMode",
                 " setting default translationType registers" );
      setTranslationType( sdk, unit, val, 0, 1 );
      setTranslationType( sdk, unit, val, 1, 2 );
      setTranslationType( sdk, unit, val, 2, 3 );
   }
}

}  // namespace

void doEnableL4PortTranslation( U16 unit, U32 idx ) {
   Shim::Sdk& sdk = *Shim::sdk_;
   int const mem = sdk.L4_PORT_XLATEm;
   int const MEM_BLOCK_ANY = sdk.MEM_BLOCK_ANY;
   int const MEM_BLOCK_ALL = sdk.MEM_BLOCK_ALL;
   std::vector<U32> words( static_cast<std::size_t>( sdk.SOC_MAX_MEM_WORDS ), 0 );
   U32* const entry = words.data();
   CORVANE_SDK( soc_mem_read, unit, mem, MEM_BLOCK_ANY, idx, entry );
   sdk.soc_mem_field32_set( unit, mem, entry, sdk.XLATE_ENABLEf,
                            l4PortTranslationEnable );
   CORVANE_SDK( soc_mem_write, unit, mem, MEM_BLOCK_ALL, idx, entry );
}

void doConfigureOpaqueObjectStrength( U16 unit ) {
   NAT_TRACE( 8, "doConfigureOpaqueObjectStrength", " unit " << unit );
   Shim::Sdk& sdk = *Shim::sdk_;
   int const MEM_BLOCK_ANY = sdk.MEM_BLOCK_ANY;
   int const MEM_BLOCK_ALL = sdk.MEM_BLOCK_ALL;
   // Row buffers as words: read through the array, written through its address.
   U32 entry[sizeof( Shim::opaque_strength_a_entry_t ) / sizeof( U32 )];
   static_assert( sizeof( entry ) >= sizeof( Shim::opaque_strength_b_entry_t ),
                  "one buffer serves both memories" );
   for ( int index = 0; index < opaqueStrengthRows; ++index ) {
      {
         int const mem = sdk.OPAQUE_STRENGTH_Am;
         std::fill( std::begin( entry ), std::end( entry ), 0u );
         CORVANE_SDK( soc_mem_read, unit, mem, MEM_BLOCK_ANY, index, entry );
         sdk.soc_mem_field32_set( unit, mem, entry, sdk.OPAQUE1_STRENGTHf,
                                  opaqueStrengthA );
         sdk.soc_mem_field32_set( unit, mem, entry, sdk.OPAQUE2_STRENGTHf,
                                  opaqueStrengthA );
         CORVANE_SDK( soc_mem_write, unit, mem, MEM_BLOCK_ALL, index, &entry );
      }
      {
         int const mem = sdk.OPAQUE_STRENGTH_Bm;
         std::fill( std::begin( entry ), std::end( entry ), 0u );
         CORVANE_SDK( soc_mem_read, unit, mem, MEM_BLOCK_ANY, index, entry );
         sdk.soc_mem_field32_set( unit, mem, entry, sdk.OPAQUE_STRENGTHf,
                                  opaqueStrengthB );
         CORVANE_SDK( soc_mem_write, unit, mem, MEM_BLOCK_ALL, index, &entry );
      }
   }
}

void doConfigureHardwareFields( U16 unit, Ip::Nat::McastTranslationMode::PtrConst mode ) {
   Shim::Sdk& sdk = *Shim::sdk_;
   int const reg = sdk.MCAST_XLATE_TYPESr;
   int const REG_PORT_ANY = sdk.REG_PORT_ANY;
   U32 val = 0;
   CORVANE_SDK( soc_reg32_get, unit, reg, REG_PORT_ANY, 0, &val );
   for ( int field : { sdk.FIXED_1f, sdk.FIXED_2f, sdk.FIXED_3f } ) {
      sdk.soc_reg_field_set( unit, reg, &val, field, 3 );
   }
   for ( int field : { sdk.FIXED_4f, sdk.FIXED_5f } ) {
      sdk.soc_reg_field_set( unit, reg, &val, field, 1 );
   }
   doConfigureMcastTranslationMode( unit, mode.ptr(), &val );
   CORVANE_SDK( soc_reg32_set, unit, reg, REG_PORT_ANY, 0, val );

   U32 const* rows = sdk.natChipFamilyTest( unit ) ? l4PortRowsFamily : l4PortRowsOther;
   for ( std::size_t i = 0; i < l4PortRows; ++i ) {
      doEnableL4PortTranslation( unit, rows[i] );
   }
   doConfigureOpaqueObjectStrength( unit );

   int const bcmSwitchL3EgressMode = sdk.bcmSwitchL3EgressMode;
   CORVANE_SDK_TOLERATING( sdk.l3EgressModeTolerableRc, bcm_switch_control_set, unit,
                           bcmSwitchL3EgressMode, true );
}

}  // namespace Corvane
