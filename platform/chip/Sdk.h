#pragma once

// The agent's SDK shim: the chip vendor SDK's functions over the chip model.
//
// Functions carry the SDK's names, take the unit first (field-processor calls then the
// entry id) and return an SDK code: BCM_E_NONE (0) on success, a negative code on
// failure, with a text from bcm_errmsg(). A call on a unit that does not exist returns
// BCM_E_UNIT, on an entry that does not exist BCM_E_NOT_FOUND, with an id, block, port
// or index out of range BCM_E_PARAM (a register port other than REG_PORT_ANY:
// BCM_E_PORT). A failing call changes nothing.
//
// The SDK's enumeration values, memory, register and field ids, blocks, ports and error
// codes are not compile-time constants for callers: they are the public members below,
// named as the SDK names them, and their values are deliberately not small or
// consecutive so that code which hardcodes them breaks in tests.
//
// Every call takes the shim's lock (a plain mutex, not re-entrant) for its duration,
// except bcm_errmsg, which reads constants. Every call is recorded in the journal
// (Chip::journal()) with its arguments and return code, except the field setters and
// getters (soc_mem_field32_*, soc_reg_field_*), which only touch the caller's buffer.
//
// Failure injection: failureIs( call, rc, nth ) makes the nth next call of that name
// fail once with `rc`: it changes nothing, returns rc and is journaled with it. Only
// journaled SDK calls can be made to fail this way.

#include <cstddef>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/chip/ChipModel.h"
#include "platform/chip/IdMap.h"
#include "platform/chip/Journal.h"

namespace Shim {

// Entry buffers of the two opaque-object strength memories.
struct opaque_strength_a_entry_t {
   U32 entry_data[2];
};
struct opaque_strength_b_entry_t {
   U32 entry_data[2];
};

class Sdk {
public:
   // Error codes.
   int const BCM_E_NONE = 0;
   int const BCM_E_INTERNAL = -101;
   int const BCM_E_MEMORY = -102;
   int const BCM_E_UNIT = -103;
   int const BCM_E_PARAM = -104;
   int const BCM_E_EMPTY = -105;
   int const BCM_E_FULL = -106;
   int const BCM_E_NOT_FOUND = -107;
   int const BCM_E_EXISTS = -108;
   int const BCM_E_TIMEOUT = -109;
   int const BCM_E_BUSY = -110;
   int const BCM_E_FAIL = -111;
   int const BCM_E_DISABLED = -112;
   int const BCM_E_BADID = -113;
   int const BCM_E_RESOURCE = -114;
   int const BCM_E_CONFIG = -115;
   int const BCM_E_UNAVAIL = -116;
   int const BCM_E_INIT = -117;
   int const BCM_E_PORT = -118;

   // Field-processor actions.
   int const bcmFieldActionCopyToCpu = 213;
   int const bcmFieldActionCopyToCpuCancel = 214;
   int const bcmFieldActionDrop = 227;
   int const bcmFieldActionDropCancel = 228;
   int const bcmFieldActionCosQCpuNew = 241;
   int const bcmFieldActionL3Switch = 256;
   int const bcmFieldActionRedirectIpmc = 263;
   int const bcmFieldActionAssignExtractionCtrlId = 279;
   int const bcmFieldActionAssignOpaqueObject1 = 288;

   // IpFrag selectors.
   int const bcmFieldIpFragNon = 37;
   int const bcmFieldIpFragFirst = 38;
   int const bcmFieldIpFragNonOrFirst = 39;
   int const bcmFieldIpFragNotFirst = 41;
   int const bcmFieldIpFragAny = 43;

   // Exact-match qualifiers.
   int const bcmFieldQualifyExactMatchHitStatus = 571;

   // Qualifier ids, as bcm_field_qualifier_delete takes them.
   int const bcmFieldQualifySrcIp = 602;
   int const bcmFieldQualifyDstIp = 603;
   int const bcmFieldQualifyL4SrcPort = 606;
   int const bcmFieldQualifyL4DstPort = 607;
   int const bcmFieldQualifyIpProtocol = 611;
   int const bcmFieldQualifyTcpControl = 614;
   int const bcmFieldQualifyIpFrag = 617;
   int const bcmFieldQualifyL3Ingress = 629;
   int const bcmFieldQualifySrcClassField = 653;
   int const bcmFieldQualifyMyStationHit = 661;
   int const bcmFieldQualifyOpaqueObject1 = 677;

   // Switch controls.
   int const bcmSwitchL3EgressMode = 1093;
   // The one code bcm_switch_control_set( unit, bcmSwitchL3EgressMode, 1 ) may return
   // that its caller accepts silently (chips without the mode).
   int const l3EgressModeTolerableRc = BCM_E_UNAVAIL;

   // Memory blocks and register ports.
   int const MEM_BLOCK_ANY = 1021;
   int const MEM_BLOCK_ALL = 1022;
   int const REG_PORT_ANY = 4093;
   // The largest memory entry, in 32-bit words.
   int const SOC_MAX_MEM_WORDS = 24;

   // Memories and their fields (L4_PORT_MODEf, CLASS_STRENGTHf and L3_STRENGTHf are
   // fields the agent never programs).
   int const L4_PORT_XLATEm = 3301;
   int const OPAQUE_STRENGTH_Am = 3307;
   int const OPAQUE_STRENGTH_Bm = 3311;
   int const XLATE_ENABLEf = 6120;
   int const L4_PORT_MODEf = 6121;
   int const OPAQUE1_STRENGTHf = 6133;
   int const OPAQUE2_STRENGTHf = 6134;
   int const CLASS_STRENGTHf = 6135;
   int const OPAQUE_STRENGTHf = 6147;
   int const L3_STRENGTHf = 6148;

   // The multicast translation-type register and its fields.
   int const MCAST_XLATE_TYPESr = 8801;
   int const FIXED_1f = 9201;
   int const FIXED_2f = 9202;
   int const FIXED_3f = 9203;
   int const FIXED_4f = 9204;
   int const FIXED_5f = 9205;
   int const TYPE_0f = 9210;
   int const ENABLE_0f = 9211;
   int const TYPE_1f = 9212;
   int const ENABLE_1f = 9213;
   int const TYPE_2f = 9214;
   int const ENABLE_2f = 9215;

   // The shim holds a reference to the chip.
   explicit Sdk( Chip::ChipModel::Ptr chip );
   Sdk( Sdk const& ) = delete;
   Sdk& operator=( Sdk const& ) = delete;

   Chip::ChipModel* chip() const { return chip_.ptr(); }

   // The text of a code ("Entry not found"); "Unknown error" for a code it does not
   // know.
   char const* bcm_errmsg( int rc ) const;

   // The chip-family test: the unit's family flag; false for a unit that does not exist.
   bool natChipFamilyTest( int unit ) const;

   // Qualifier setters. Data and mask are truncated to the qualifier's width.
   int bcm_field_qualify_MyStationHit( int unit, U32 entry, U8 data, U8 mask );
   int bcm_field_qualify_SrcClassField( int unit, U32 entry, U32 data, U32 mask );
   int bcm_field_qualify_SrcIp( int unit, U32 entry, U32 data, U32 mask );
   int bcm_field_qualify_DstIp( int unit, U32 entry, U32 data, U32 mask );
   int bcm_field_qualify_L4SrcPort( int unit, U32 entry, U16 data, U16 mask );
   int bcm_field_qualify_L4DstPort( int unit, U32 entry, U16 data, U16 mask );
   int bcm_field_qualify_IpProtocol( int unit, U32 entry, U8 data, U8 mask );
   int bcm_field_qualify_TcpControl( int unit, U32 entry, U8 data, U8 mask );
   int bcm_field_qualify_L3Ingress( int unit, U32 entry, U32 data, U32 mask );
   int bcm_field_qualify_IpFrag( int unit, U32 entry, int selector );
   int bcm_field_qualify_OpaqueObject1( int unit, U32 entry, U32 data, U32 mask );
   int bcm_field_qualify_ExactMatch( int unit, U32 entry, U32 instance, int qualifier,
                                     U32 data, U32 mask );
   // Takes a qualifier (one of the bcmFieldQualify ids above) off an entry:
   // BCM_E_NOT_FOUND when the entry does not hold it, BCM_E_PARAM for an unknown id.
   // Journaled with the qualifier's name.
   int bcm_field_qualifier_delete( int unit, U32 entry, int qualifier );

   // Qualifier read-backs: the stored values, or BCM_E_NOT_FOUND when the qualifier was
   // never set on the entry. The outputs are written only on success.
   int bcm_field_qualify_SrcIp_get( int unit, U32 entry, U32* data, U32* mask );
   int bcm_field_qualify_DstIp_get( int unit, U32 entry, U32* data, U32* mask );
   int bcm_field_qualify_L4SrcPort_get( int unit, U32 entry, U16* data, U16* mask );
   int bcm_field_qualify_L4DstPort_get( int unit, U32 entry, U16* data, U16* mask );
   int bcm_field_qualify_IpProtocol_get( int unit, U32 entry, U8* data, U8* mask );
   int bcm_field_qualify_L3Ingress_get( int unit, U32 entry, U32* data, U32* mask );

   // Actions are kept in the order they were added.
   int bcm_field_action_add( int unit, U32 entry, int action, U32 param0, U32 param1 );
   int bcm_field_action_remove_all( int unit, U32 entry );

   int bcm_switch_control_set( int unit, int control, int value );

   // Memory rows move between the chip and a caller's buffer of 32-bit words (at least
   // the memory's row size: SOC_MAX_MEM_WORDS words, or the memory's entry type).
   // Reads and writes take MEM_BLOCK_ANY or MEM_BLOCK_ALL; another block, an unknown
   // memory or an index outside the memory's rows is BCM_E_PARAM.
   int soc_mem_read( int unit, int mem, int block, int index, void* entry );
   int soc_mem_write( int unit, int mem, int block, int index, void const* entry );
   // Sets a field of a memory in a caller's buffer (the value truncated to the field's
   // width); BCM_E_PARAM when the field is not one of the memory's.
   int soc_mem_field32_set( int unit, int mem, void* entry, int field, U32 value );
   // A field of a memory from a caller's buffer; 0 when the field is not the memory's.
   U32 soc_mem_field32_get( int unit, int mem, void const* entry, int field );

   // The register is read and written whole with REG_PORT_ANY and index 0.
   int soc_reg32_get( int unit, int reg, int port, int index, U32* value );
   int soc_reg32_set( int unit, int reg, int port, int index, U32 value );
   int soc_reg_field_set( int unit, int reg, U32* value, int field, U32 fieldValue );
   U32 soc_reg_field_get( int unit, int reg, U32 value, int field );

   // The nth next call named `call` (1: the very next) fails once with `rc` (< 0).
   void failureIs( std::string const& call, int rc, U32 nth = 1 );
   std::size_t failuresPending() const;
   void failuresDelAll();

private:
   typedef std::lock_guard<std::mutex> Lock;
   struct Failure {
      std::string call;
      U32 remaining;
      int rc;
   };
   struct FieldRef {
      Chip::TableId table;
      Chip::FieldLayout const* layout;
   };

   void idMapsIs();
   void fieldMapIs();
   int injected( char const* call );
   int code( Chip::Status status ) const;
   Chip::ChipUnit* unit( int unit ) const { return chip_->unit( unit ); }
   void record( char const* call, int unit, Chip::Args args, int rc ) const;
   void record( char const* call, int unit, U32 entry, Chip::Args args, int rc ) const;
   bool journaling() const { return Chip::journal().enabled(); }

   template <class F>
   int fieldCall( char const* call, int unit, F change );
   int qualify( char const* call, int unit, U32 entry, Chip::Qualifier qualifier,
                U32 data, U32 mask );
   int qualifierGet( char const* call, int unit, U32 entry, Chip::Qualifier qualifier,
                     U32* data, U32* mask );

   // Names of ids for the journal, or the number when the id is not known.
   Chip::Arg idArg( IdMap<char const*> const& names, int id ) const;
   Chip::Arg tableArg( int id ) const;
   Chip::Args memArgs( int mem, int block, int index ) const;
   Chip::Args regArgs( int reg, int port, int index ) const;
   // The table of a memory (or register) id, or null.
   Chip::TableId const* table( int id, bool isRegister ) const;
   FieldRef const* field( Chip::TableId table, int field ) const;
   int memCheck( int unit, int mem, int block, int index, void const* entry ) const;
   int regCheck( int unit, int reg, int port, int index ) const;

   Chip::ChipModel::Ptr chip_;
   mutable std::mutex mutex_;
   std::vector<Failure> failures_;
   IdMap<Chip::Action> actions_;
   IdMap<Chip::IpFragSelector> ipFrags_;
   IdMap<Chip::Qualifier> qualifiers_;
   IdMap<Chip::TableId> tables_;
   IdMap<FieldRef> fields_;
   IdMap<char const*> blockNames_;
   IdMap<char const*> portNames_;
   IdMap<char const*> errorTexts_;
};

// The process's shim, set by the host before the plug-in runs.
extern Sdk* sdk_;

}  // namespace Shim
