#include "platform/chip/Sdk.h"

#include "platform/chip/IdMap.h"

#include "platform/fwk/Assert.h"

namespace Shim {

Sdk* sdk_ = nullptr;

Sdk::Sdk( Chip::ChipModel::Ptr chip ) : chip_( std::move( chip ) ) {
   FWK_ASSERT( chip_ );
   idMapsIs();
   using Chip::TableId;
   FWK_ASSERT( sizeof( opaque_strength_a_entry_t ) / sizeof( U32 ) >=
               Chip::tableLayout( TableId::OpaqueStrengthA ).words );
   FWK_ASSERT( sizeof( opaque_strength_b_entry_t ) / sizeof( U32 ) >=
               Chip::tableLayout( TableId::OpaqueStrengthB ).words );
   for ( unsigned t = 0; t < Chip::tableCount; ++t ) {
      FWK_ASSERT( Chip::tableLayout( TableId( t ) ).words <=
                  unsigned( SOC_MAX_MEM_WORDS ) );
   }
}

void Sdk::idMapsIs() {
   using Chip::Action;
   actions_ = { { bcmFieldActionDrop, Action::Drop },
                { bcmFieldActionDropCancel, Action::DropCancel },
                { bcmFieldActionCopyToCpu, Action::CopyToCpu },
                { bcmFieldActionCopyToCpuCancel, Action::CopyToCpuCancel },
                { bcmFieldActionCosQCpuNew, Action::CosQCpuNew },
                { bcmFieldActionL3Switch, Action::L3Switch },
                { bcmFieldActionRedirectIpmc, Action::RedirectIpmc },
                { bcmFieldActionAssignExtractionCtrlId, Action::AssignExtractionCtrlId },
                { bcmFieldActionAssignOpaqueObject1, Action::AssignOpaqueObject1 } };
   using Chip::IpFragSelector;
   ipFrags_ = { { bcmFieldIpFragNon, IpFragSelector::Non },
                { bcmFieldIpFragFirst, IpFragSelector::First },
                { bcmFieldIpFragNonOrFirst, IpFragSelector::NonOrFirst },
                { bcmFieldIpFragNotFirst, IpFragSelector::NotFirst },
                { bcmFieldIpFragAny, IpFragSelector::Any } };
   using Chip::Qualifier;
   qualifiers_ = { { bcmFieldQualifySrcIp, Qualifier::SrcIp },
                   { bcmFieldQualifyDstIp, Qualifier::DstIp },
                   { bcmFieldQualifyL4SrcPort, Qualifier::L4SrcPort },
                   { bcmFieldQualifyL4DstPort, Qualifier::L4DstPort },
                   { bcmFieldQualifyIpProtocol, Qualifier::IpProtocol },
                   { bcmFieldQualifyTcpControl, Qualifier::TcpControl },
                   { bcmFieldQualifyIpFrag, Qualifier::IpFrag },
                   { bcmFieldQualifyL3Ingress, Qualifier::L3Ingress },
                   { bcmFieldQualifySrcClassField, Qualifier::SrcClassField },
                   { bcmFieldQualifyMyStationHit, Qualifier::MyStationHit },
                   { bcmFieldQualifyOpaqueObject1, Qualifier::OpaqueObject1 },
                   { bcmFieldQualifyExactMatchHitStatus, Qualifier::ExactMatch } };
   using Chip::TableId;
   tables_ = { { L4_PORT_XLATEm, TableId::L4PortXlate },
               { OPAQUE_STRENGTH_Am, TableId::OpaqueStrengthA },
               { OPAQUE_STRENGTH_Bm, TableId::OpaqueStrengthB },
               { MCAST_XLATE_TYPESr, TableId::McastXlateTypes } };
   fieldMapIs();
   blockNames_ = { { MEM_BLOCK_ANY, "MEM_BLOCK_ANY" },
                   { MEM_BLOCK_ALL, "MEM_BLOCK_ALL" } };
   portNames_ = { { REG_PORT_ANY, "REG_PORT_ANY" } };
   errorTexts_ = { { BCM_E_NONE, "No error" },
                   { BCM_E_INTERNAL, "Internal error" },
                   { BCM_E_MEMORY, "Out of memory" },
                   { BCM_E_UNIT, "Invalid unit" },
                   { BCM_E_PARAM, "Invalid parameter" },
                   { BCM_E_EMPTY, "Table empty" },
                   { BCM_E_FULL, "Table full" },
                   { BCM_E_NOT_FOUND, "Entry not found" },
                   { BCM_E_EXISTS, "Entry exists" },
                   { BCM_E_TIMEOUT, "Operation timed out" },
                   { BCM_E_BUSY, "Operation still running" },
                   { BCM_E_FAIL, "Operation failed" },
                   { BCM_E_DISABLED, "Operation disabled" },
                   { BCM_E_BADID, "Invalid identifier" },
                   { BCM_E_RESOURCE, "No resources for operation" },
                   { BCM_E_CONFIG, "Invalid configuration" },
                   { BCM_E_UNAVAIL, "Feature unavailable" },
                   { BCM_E_INIT, "Feature not initialized" },
                   { BCM_E_PORT, "Invalid port" } };
}

void Sdk::fieldMapIs() {
   using Chip::TableId;
   struct FieldId {
      int id;
      TableId table;
      char const* name;
   };
   TableId const l4 = TableId::L4PortXlate, a = TableId::OpaqueStrengthA,
                 b = TableId::OpaqueStrengthB, mcast = TableId::McastXlateTypes;
   std::vector<FieldId> const ids = { { XLATE_ENABLEf, l4, "XLATE_ENABLE" },
                                      { L4_PORT_MODEf, l4, "L4_PORT_MODE" },
                                      { OPAQUE1_STRENGTHf, a, "OPAQUE1_STRENGTH" },
                                      { OPAQUE2_STRENGTHf, a, "OPAQUE2_STRENGTH" },
                                      { CLASS_STRENGTHf, a, "CLASS_STRENGTH" },
                                      { OPAQUE_STRENGTHf, b, "OPAQUE_STRENGTH" },
                                      { L3_STRENGTHf, b, "L3_STRENGTH" },
                                      { FIXED_1f, mcast, "FIXED_1" },
                                      { FIXED_2f, mcast, "FIXED_2" },
                                      { FIXED_3f, mcast, "FIXED_3" },
                                      { FIXED_4f, mcast, "FIXED_4" },
                                      { FIXED_5f, mcast, "FIXED_5" },
                                      { TYPE_0f, mcast, "TYPE_0" },
                                      { ENABLE_0f, mcast, "ENABLE_0" },
                                      { TYPE_1f, mcast, "TYPE_1" },
                                      { ENABLE_1f, mcast, "ENABLE_1" },
                                      { TYPE_2f, mcast, "TYPE_2" },
                                      { ENABLE_2f, mcast, "ENABLE_2" } };
   for ( auto const& f : ids ) {
      auto const* layout = Chip::tableLayout( f.table ).field( f.name );
      FWK_ASSERT( layout );
      fields_.push_back( { f.id, FieldRef{ f.table, layout } } );
   }
}

char const* Sdk::bcm_errmsg( int rc ) const {
   char const* const* text = idFind( errorTexts_, rc );
   return text ? *text : "Unknown error";
}

bool Sdk::natChipFamilyTest( int unit ) const {
   Lock lock( mutex_ );
   Chip::ChipUnit const* u = this->unit( unit );
   return u && u->natChipFamily();
}

void Sdk::failureIs( std::string const& call, int rc, U32 nth ) {
   FWK_ASSERT( rc < 0 );
   FWK_ASSERT( nth >= 1 );
   Lock lock( mutex_ );
   failures_.push_back( { call, nth, rc } );
}

std::size_t Sdk::failuresPending() const {
   Lock lock( mutex_ );
   return failures_.size();
}

void Sdk::failuresDelAll() {
   Lock lock( mutex_ );
   failures_.clear();
}

// The code of an injected failure due at this call of `call`, or BCM_E_NONE. Each
// pending failure of the call counts the call; the first that is due fires, once.
int Sdk::injected( char const* call ) {
   if ( failures_.empty() ) {
      return BCM_E_NONE;
   }
   for ( auto i = failures_.begin(); i != failures_.end(); ++i ) {
      if ( i->call != call ) {
         continue;
      }
      if ( i->remaining > 1 ) {
         --i->remaining;
         continue;
      }
      int rc = i->rc;
      failures_.erase( i );
      return rc;
   }
   return BCM_E_NONE;
}

int Sdk::code( Chip::Status status ) const {
   switch ( status ) {
      case Chip::Status::ok:
         return BCM_E_NONE;
      case Chip::Status::noEntry:
         return BCM_E_NOT_FOUND;
      case Chip::Status::badParam:
         return BCM_E_PARAM;
   }
   return BCM_E_INTERNAL;
}

void Sdk::record( char const* call, int unit, Chip::Args args, int rc ) const {
   Chip::JournalRecord r;
   r.call = call;
   r.unit = unit;
   r.args = std::move( args );
   r.rc = rc;
   Chip::journal().recordIs( std::move( r ) );
}

void Sdk::record( char const* call, int unit, U32 entry, Chip::Args args, int rc ) const {
   Chip::JournalRecord r;
   r.call = call;
   r.unit = unit;
   r.hasEntry = true;
   r.entry = entry;
   r.args = std::move( args );
   r.rc = rc;
   Chip::journal().recordIs( std::move( r ) );
}

Chip::Arg Sdk::idArg( IdMap<char const*> const& names, int id ) const {
   char const* const* name = idFind( names, id );
   return name ? Chip::nameArg( *name ) : Chip::numberArg( U32( id ) );
}

Chip::Arg Sdk::tableArg( int id ) const {
   Chip::TableId const* t = idFind( tables_, id );
   return t ? Chip::nameArg( Chip::tableLayout( *t ).name )
            : Chip::numberArg( U32( id ) );
}

Chip::TableId const* Sdk::table( int id, bool isRegister ) const {
   Chip::TableId const* t = idFind( tables_, id );
   if ( !t || Chip::tableLayout( *t ).isRegister != isRegister ) {
      return nullptr;
   }
   return t;
}

Sdk::FieldRef const* Sdk::field( Chip::TableId table, int field ) const {
   FieldRef const* f = idFind( fields_, field );
   return f && f->table == table ? f : nullptr;
}

}  // namespace Shim
