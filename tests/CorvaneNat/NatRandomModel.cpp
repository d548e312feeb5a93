#include "NatRandomModel.h"

#include <variant>

namespace NatRandom {

namespace {

using Chip::Action;
using Chip::Qualifier;

constexpr U32 allOnes32 = 0xffffffffu;
constexpr U64 allOnes64 = ~U64( 0 );
constexpr U32 ecmpBit = 0x08000000u;

void qualify( EntryExpect& e, Qualifier q, U32 data, U32 mask ) {
   U32 const width = Chip::qualifierWidthMask( q );
   e.quals[q] = { data & width, mask & width };
}

void act( EntryExpect& e, Action a, U32 p0 = 0, U32 p1 = 0 ) {
   e.actions.push_back( { a, p0, p1 } );
}

U32 nextHopId( U64 nextHop ) {
   U32 const low = static_cast<U32>( nextHop );
   return ( low & ecmpBit ) ? ( low & ~ecmpBit ) + 200000 : low + 100000;
}

bool validNextHop( U64 nextHop ) {
   return nextHop != 0 && nextHop != allOnes64;
}

U32 ip( Wirel::IpAndPort const& p ) {
   return p.ip().value();
}

bool isAddrOnlyNat( Oro::NatHwKey const& key ) {
   return key.isDynamicNat() &&
          ( ip( key.srcIpAndPortOld() ) == 0 || ip( key.dstIpAndPortOld() ) == 0 );
}

// Static and twice keys: the source branch (types 1 and 3).
void sourceEntry( EntryExpect& e, Oro::NatHwKey const& key, Oro::NatHwData const& d,
                  U32 opaque, bool frag ) {
   bool const twice = key.keyType() == Oro::NatHwKey::twiceNatSrc;
   qualify( e, Qualifier::SrcIp, ip( key.srcIpAndPortOld() ), allOnes32 );
   if ( !frag && key.srcIpAndPortOld().port() ) {
      qualify( e, Qualifier::L4SrcPort, key.srcIpAndPortOld().port(), allOnes32 );
   }
   U32 ext;
   if ( twice ) {
      qualify( e, Qualifier::DstIp, ip( key.dstIpAndPortOld() ), allOnes32 );
      if ( !frag && key.dstIpAndPortOld().port() ) {
         qualify( e, Qualifier::L4DstPort, key.dstIpAndPortOld().port(), allOnes32 );
      }
      U64 const nh = d.nextHopId();
      if ( validNextHop( nh ) ) {
         act( e, Action::CopyToCpuCancel );
         act( e, Action::DropCancel );
         act( e, Action::L3Switch, nextHopId( nh ) );
      } else if ( d.multicast() ) {
         act( e, Action::CopyToCpuCancel );
         act( e, Action::DropCancel );
      } else if ( nh == 0 ) {
         act( e, Action::Drop );
      }
      ext = !frag && key.dstIpAndPortNew().port() ? 23 : 22;
   } else {
      if ( d.staticAclSharing() && key.aclId().value() ) {
         qualify( e, Qualifier::OpaqueObject1, key.aclId().value(), allOnes32 );
      } else if ( d.filterAddr().address().value() ) {
         qualify( e, Qualifier::DstIp, d.filterAddr().address().value(),
                  d.filterAddr().mask() );
      } else if ( d.multicast() ) {
         qualify( e, Qualifier::DstIp, 0xe0000000u, 0xf0000000u );
      }
      ext = !frag && key.srcIpAndPortNew().port() ? 21 : 20;
   }
   if ( frag ) {
      e.quals[Qualifier::IpFrag] = { U32( Chip::IpFragSelector::NotFirst ), 0 };
   }
   if ( d.protocol() ) {
      qualify( e, Qualifier::IpProtocol, d.protocol(), 0xff );
   }
   if ( d.multicast() ) {
      if ( d.mcastGroupId() ) {
         act( e, Action::RedirectIpmc, d.mcastGroupId() );
      }
      ext = 24;
   }
   act( e, Action::AssignExtractionCtrlId, ext, 0x1f );
   act( e, Action::AssignOpaqueObject1, opaque );
}

// Static and twice keys: the destination branch (types 2 and 4).
void destinationEntry( EntryExpect& e, Oro::NatHwKey const& key, Oro::NatHwData const& d,
                       U32 opaque, U16 vlan, bool frag ) {
   bool const twice = key.keyType() == Oro::NatHwKey::twiceNatDst;
   if ( !( d.multicast() && !d.ingress() ) ) {
      qualify( e, Qualifier::L3Ingress, vlan, allOnes32 );
   }
   U32 ext;
   if ( twice ) {
      qualify( e, Qualifier::SrcIp, ip( key.srcIpAndPortOld() ), allOnes32 );
      if ( !frag && key.srcIpAndPortOld().port() ) {
         qualify( e, Qualifier::L4SrcPort, key.srcIpAndPortOld().port(), allOnes32 );
      }
      ext = !frag && key.srcIpAndPortNew().port() ? 19 : 18;
   } else {
      if ( d.staticAclSharing() && key.aclId().value() ) {
         qualify( e, Qualifier::OpaqueObject1, key.aclId().value(), allOnes32 );
      } else if ( d.filterAddr().address().value() ) {
         qualify( e, Qualifier::SrcIp, d.filterAddr().address().value(),
                  d.filterAddr().mask() );
      } else if ( d.multicast() &&
                  ( ( ip( key.dstIpAndPortOld() ) >> 24 ) & 0xe0 ) == 0 ) {
         qualify( e, Qualifier::SrcIp, 0xe0000000u, 0xf0000000u );
      }
      ext = !frag && key.dstIpAndPortNew().port() ? 17 : 16;
   }
   qualify( e, Qualifier::DstIp, ip( key.dstIpAndPortOld() ), allOnes32 );
   if ( frag ) {
      e.quals[Qualifier::IpFrag] = { U32( Chip::IpFragSelector::NotFirst ), 0 };
   } else if ( key.dstIpAndPortOld().port() ) {
      qualify( e, Qualifier::L4DstPort, key.dstIpAndPortOld().port(), allOnes32 );
   }
   if ( d.protocol() ) {
      qualify( e, Qualifier::IpProtocol, d.protocol(), 0xff );
   }
   if ( d.multicast() ) {
      if ( d.mcastGroupId() ) {
         act( e, Action::RedirectIpmc, d.mcastGroupId() );
      }
      ext = 24;
   }
   act( e, Action::AssignExtractionCtrlId, ext, 0x1f );
   act( e, Action::AssignOpaqueObject1, opaque );
   act( e, Action::CopyToCpuCancel );
   U64 const nh = d.nextHopId();
   if ( validNextHop( nh ) ) {
      act( e, Action::DropCancel );
      act( e, Action::L3Switch, nextHopId( nh ) );
   } else if ( d.multicast() ) {
      act( e, Action::DropCancel );
   } else if ( nh == 0 ) {
      act( e, Action::Drop );
   }
}

// Dynamic keys (types 5 and 6): only what the key carries, always a protocol class.
void dynamicEntry( EntryExpect& e, Oro::NatHwKey const& key, Oro::NatHwData const& d,
                   U32 opaque, bool frag ) {
   bool const source = key.keyType() == Oro::NatHwKey::dynamicSrcNat;
   U32 const srcIp = ip( key.srcIpAndPortOld() );
   U32 const dstIp = ip( key.dstIpAndPortOld() );
   U16 const srcPort = key.srcIpAndPortOld().port();
   U16 const dstPort = key.dstIpAndPortOld().port();
   if ( srcIp ) {
      qualify( e, Qualifier::SrcIp, srcIp, allOnes32 );
   }
   if ( dstIp ) {
      qualify( e, Qualifier::DstIp, dstIp, allOnes32 );
   }
   U32 ext;
   if ( frag ) {
      ext = source ? 20 : 16;
      if ( !isAddrOnlyNat( key ) ) {
         e.quals[Qualifier::IpFrag] = { U32( Chip::IpFragSelector::NotFirst ), 0 };
      }
   } else {
      if ( srcPort ) {
         qualify( e, Qualifier::L4SrcPort, srcPort, allOnes32 );
      }
      if ( dstPort ) {
         qualify( e, Qualifier::L4DstPort, dstPort, allOnes32 );
      }
      ext = source ? ( srcPort ? 21 : 20 ) : ( dstPort ? 17 : 16 );
   }
   // The protocol class is written last, over the key's own protocol.
   bool const tcp = key.dynProto() == 6 || ( !( srcIp && dstIp ) && !frag );
   if ( tcp ) {
      qualify( e, Qualifier::IpProtocol, 6, 0xff );
      qualify( e, Qualifier::TcpControl, 0, 7 );
   } else {
      qualify( e, Qualifier::IpProtocol, 17, 0xff );
   }
   act( e, Action::AssignOpaqueObject1, opaque );
   act( e, Action::CopyToCpuCancel );
   act( e, Action::AssignExtractionCtrlId, ext, 0x1f );
   if ( source ) {
      act( e, Action::DropCancel );
   } else if ( validNextHop( d.nextHopId() ) ) {
      act( e, Action::DropCancel );
      act( e, Action::L3Switch, nextHopId( d.nextHopId() ) );
   }
}

// Reprogramming: the entry holds what the new data asks, nothing of the old.
void reprogram( EntryExpect& e, EntryExpect const& fresh ) {
   e = fresh;
}

// Entries an ACL takes: per rule without and with exact-match hit; a permitting rule's
// hit entry comes with its SYN, FIN and RST entries; a pool rule takes one entry
// without hit and three with.
U32 aclEntries( natsim::TrapAclStep const& s ) {
   U32 n = 0;
   for ( natsim::TrapRule const& rule : s.rules ) {
      n += rule.pool ? 4 : ( rule.permit ? 5 : 2 );
   }
   return n;
}

}  // namespace

Model::Model( natsim::ChipConfig const& chip, natsim::NatConfig const& nat,
              Orders orders )
    : orders_( std::move( orders ) ),
      capacity_( chip.tcamEntries ),
      trapFilters_( chip.trapFilters ),
      ready_( chip.mountGroupReady ),
      addrOnlyMode_( nat.addrOnlyMode ),
      fragConfig_( nat.fragmentEnabled ) {
   for ( auto const& m : chip.modules ) {
      moduleIs( m.first );
   }
}

// Keys that translate ports, as the key record itself tells, and dynamic keys.
bool Model::needsFrag( Oro::NatHwKey const& key ) {
   return key.isStaticNapt() || key.isTwiceNapt() || key.isDynamicNat();
}

bool Model::sourceSide( Oro::NatHwKey const& key ) {
   return key.keyType() == Oro::NatHwKey::staticSrcNat ||
          key.keyType() == Oro::NatHwKey::twiceNatSrc ||
          key.keyType() == Oro::NatHwKey::dynamicSrcNat;
}

bool Model::destinationSide( Oro::NatHwKey const& key ) {
   return key.keyType() == Oro::NatHwKey::staticDstNat ||
          key.keyType() == Oro::NatHwKey::twiceNatDst ||
          key.keyType() == Oro::NatHwKey::dynamicDstNat;
}

bool Model::dynamicSkipped( Oro::NatHwKey const& key ) const {
   if ( !key.isDynamicNat() ) {
      return false;
   }
   bool const zero = ip( key.srcIpAndPortOld() ) == 0 || ip( key.dstIpAndPortOld() ) == 0;
   bool const port = key.srcIpAndPortOld().port() || key.dstIpAndPortOld().port();
   return ( zero && addrOnlyMode_ ) || ( port && !addrOnlyMode_ );
}

EntryExpect Model::freshEntry( Oro::NatHwKey const& key, Oro::NatHwData const& data,
                               U32 opaque, U16 vlan, bool frag ) const {
   EntryExpect e;
   qualify( e, Qualifier::MyStationHit, 1, 1 );
   qualify( e, Qualifier::SrcClassField, 0, 8 );
   if ( key.isDynamicNat() ) {
      dynamicEntry( e, key, data, opaque, frag );
   } else if ( sourceSide( key ) ) {
      sourceEntry( e, key, data, opaque, frag );
   } else {
      destinationEntry( e, key, data, opaque, vlan, frag );
   }
   return e;
}

U32 Model::orphans( U16 unit ) const {
   auto found = orphans_.find( unit );
   return found == orphans_.end() ? 0 : found->second;
}

U32 Model::owned( U16 unit ) const {
   auto found = workers_.find( unit );
   if ( found == workers_.end() ) {
      return 0;
   }
   WorkerExpect const& w = found->second;
   U32 n = w.trap.implicitDeny ? 1 : 0;
   for ( auto const& row : w.rows ) {
      n += U32( row.second.defaults.size() + row.second.frags.size() );
   }
   for ( auto const& acl : w.trap.rows ) {
      n += acl.second;
   }
   return n;
}

U32 Model::available( U16 unit ) const {
   U32 const used = orphans( unit ) + owned( unit );
   return used >= capacity_ ? 0 : capacity_ - used;
}

U32 Model::opaqueId( Oro::NatHwKey const& key ) const {
   ShadowExpect const& sh = shadow_.at( key );
   return sh.data.multicast() ? sh.mcastUid : sh.uid;
}

bool Model::verifiable( U16 modId ) const {
   auto found = workers_.find( modId );
   if ( found == workers_.end() || !found->second.initialized ) {
      return false;
   }
   WorkerExpect const& w = found->second;
   for ( auto const& entry : shadow_ ) {
      Oro::NatHwKey const& key = entry.first;
      ShadowExpect const& sh = entry.second;
      auto set = modSets_.find( sh.uid );
      bool const forModule = set != modSets_.end() && set->second.count( modId );
      bool const programmed = forModule && sh.dirty != 2 && !dynamicSkipped( key ) &&
                              !( destinationSide( key ) && sh.data.vlanIds() == 0 );
      if ( programmed && !w.rows.count( key ) ) {
         return false;
      }
   }
   return true;
}

// --- Steps ---------------------------------------------------------------------------

void Model::play( natsim::Step const& step ) {
   stepAnswers_.clear();
   stepNatFull_ = 0;
   stepDeleted_.clear();
   if ( auto s = std::get_if<natsim::NatRuleStep>( &step ) ) {
      natRule( *s );
   } else if ( auto s = std::get_if<natsim::NatRuleRemoveStep>( &step ) ) {
      natRuleRemove( *s );
   } else if ( auto s = std::get_if<natsim::TrapAclStep>( &step ) ) {
      trapAcl( *s );
   } else if ( auto s = std::get_if<natsim::TrapAclRemoveStep>( &step ) ) {
      trapAclRemove( *s );
   } else if ( auto s = std::get_if<natsim::ModuleStep>( &step ) ) {
      moduleIs( s->modId );
   } else if ( auto s = std::get_if<natsim::ModuleRemoveStep>( &step ) ) {
      moduleDel( s->modId );
   } else if ( auto s = std::get_if<natsim::MountGroupReadyStep>( &step ) ) {
      readyIs( s->ready );
   } else if ( auto s = std::get_if<natsim::FragmentEnabledStep>( &step ) ) {
      fragmentIs( s->enabled );
   }
   // Packets, time, the multicast mode, show and verify change no entry.
   finishAnswered();
}

void Model::natRule( natsim::NatRuleStep const& s ) {
   ShadowExpect& sh = shadow_[s.key];
   sh.data = s.data;
   sh.uid = s.uid;
   sh.mcastUid = s.mcastUid;
   sh.dirty = s.dirty;
   uidKey_[s.uid] = s.key;
   modSets_[s.uid] = std::set<U16>( s.modules.begin(), s.modules.end() );
   publish( s.uid, s.field, modSets_[s.uid] );
}

void Model::natRuleRemove( natsim::NatRuleRemoveStep const& s ) {
   auto found = shadow_.find( s.key );
   if ( found == shadow_.end() ) {
      return;  // not published
   }
   found->second.dirty = 2;
   uidKey_[s.uid] = s.key;
   if ( !modSets_.count( s.uid ) ) {
      std::set<U16> all;
      for ( auto const& m : modules_ ) {
         all.insert( m.first );
      }
      modSets_[s.uid] = all;
   }
   publish( s.uid, s.field, modSets_[s.uid] );
}

void Model::publish( U32 uid, U32 field, std::set<U16> const& modules ) {
   requests_[uid] = Request{ field, modules };
   for ( auto& w : workers_ ) {
      if ( w.second.initialized ) {
         serve( w.first, uid );
      } else {
         w.second.pending.push_back( uid );
      }
   }
}

// Upstream ends every transaction whose modules have all answered.
void Model::finishAnswered() {
   for ( AnswerExpect const& a : stepAnswers_ ) {
      auto request = requests_.find( a.uid );
      if ( request == requests_.end() ) {
         continue;
      }
      request->second.awaiting.erase( a.module );
      if ( !request->second.awaiting.empty() ) {
         continue;
      }
      requests_.erase( request );
      auto key = uidKey_.find( a.uid );
      if ( key == uidKey_.end() ) {
         continue;
      }
      auto sh = shadow_.find( key->second );
      if ( sh == shadow_.end() ) {
         continue;
      }
      if ( sh->second.dirty == 2 ) {
         shadow_.erase( sh );
         uidKey_.erase( key );
         modSets_.erase( a.uid );
      } else {
         sh->second.dirty = 0;
      }
   }
}

void Model::serve( U16 modId, U32 uid ) {
   if ( requests_.count( uid ) ) {
      commit( modId, uid );
   }
}

void Model::commit( U16 modId, U32 uid ) {
   auto set = modSets_.find( uid );
   if ( set == modSets_.end() || !set->second.count( modId ) ) {
      return;  // not for this module: no answer
   }
   Oro::NatHwKey const key = uidKey_.at( uid );
   U32 const field = requests_.at( uid ).field;
   WorkerExpect& w = workers_.at( modId );
   if ( dynamicSkipped( key ) ) {
      stepAnswers_.push_back( { modId, uid, Xact::XactSluiceStatus::done, field } );
      return;
   }
   ShadowExpect const sh = shadow_.at( key );
   if ( sh.dirty == 2 ) {
      w.rows.erase( key );
      stepAnswers_.push_back( { modId, uid, Xact::XactSluiceStatus::done, field } );
      return;
   }
   Xact::XactSluiceStatus::Result result = Xact::XactSluiceStatus::done;
   if ( sourceSide( key ) ) {
      if ( !program( modId, key, sh, 0 ) ) {
         result = Xact::XactSluiceStatus::hwFull;
      }
   } else if ( destinationSide( key ) ) {
      std::set<U16> listed;
      for ( U32 i = 0; i < sh.data.vlanIds(); ++i ) {
         listed.insert( sh.data.vlanId( i ) );
         if ( !program( modId, key, sh, sh.data.vlanId( i ) ) ) {
            result = Xact::XactSluiceStatus::hwFull;
         }
      }
      auto row = w.rows.find( key );
      if ( row != w.rows.end() ) {
         for ( auto it = row->second.defaults.begin();
               it != row->second.defaults.end(); ) {
            if ( listed.count( it->first ) ) {
               ++it;
               continue;
            }
            row->second.frags.erase( it->first );
            it = row->second.defaults.erase( it );
         }
      }
   }
   stepAnswers_.push_back( { modId, uid, result, field } );
}

bool Model::program( U16 modId, Oro::NatHwKey const& key, ShadowExpect const& sh,
                     U16 vlan ) {
   WorkerExpect& w = workers_.at( modId );
   RowExpect& row = w.rows[key];  // the row stays even when the TCAM is full
   U32 const opaque = opaqueId( key );
   auto found = row.defaults.find( vlan );
   if ( found != row.defaults.end() ) {
      reprogram( found->second, freshEntry( key, sh.data, opaque, vlan, false ) );
      auto frag = row.frags.find( vlan );
      if ( frag != row.frags.end() ) {
         reprogram( frag->second, freshEntry( key, sh.data, opaque, vlan, true ) );
      }
      return true;
   }
   bool const fragNeeded = needsFrag( key ) && w.fragEnabled;
   if ( available( modId ) < ( fragNeeded ? 2u : 1u ) ) {
      ++stepNatFull_;
      return false;
   }
   row.defaults[vlan] = freshEntry( key, sh.data, opaque, vlan, false );
   if ( fragNeeded ) {
      row.frags[vlan] = freshEntry( key, sh.data, opaque, vlan, true );
   }
   return true;
}

// --- Trap filters --------------------------------------------------------------------

void Model::trapAcl( natsim::TrapAclStep const& s ) {
   Oro::NatTrapKey const key( s.name, s.vlan );
   acls_[key] = Acl{ s.implicitDeny, aclEntries( s ) };
   for ( auto& w : workers_ ) {
      if ( w.second.hasTrapSm ) {
         trapRequest( w.first, key );
      }
   }
}

void Model::trapAclRemove( natsim::TrapAclRemoveStep const& s ) {
   Oro::NatTrapKey const key( s.name, s.vlan );
   if ( !acls_.erase( key ) ) {
      return;  // nothing changes, nothing is announced
   }
   for ( auto& w : workers_ ) {
      if ( w.second.hasTrapSm ) {
         trapRequest( w.first, key );
      }
   }
}

bool Model::implicitDenyWanted() const {
   for ( auto const& acl : acls_ ) {
      if ( acl.second.implicitDeny ) {
         return true;
      }
   }
   return false;
}

void Model::trapDelete( WorkerExpect& w, Oro::NatTrapKey const& key ) {
   w.trap.rows.erase( key );
   if ( w.trap.implicitDeny && !implicitDenyWanted() ) {
      w.trap.implicitDeny = false;
   }
}

// An ACL that changed is released whole and programmed anew; it gets all its entries
// or none. The implicit-deny entry is replaced only when a new one could be taken.
void Model::trapRequest( U16 modId, Oro::NatTrapKey const& key ) {
   WorkerExpect& w = workers_.at( modId );
   if ( acls_.empty() ) {
      w.trap.implicitDeny = false;
   }
   auto acl = acls_.find( key );
   if ( acl == acls_.end() ) {
      trapDelete( w, key );
      return;
   }
   if ( w.trap.rows.count( key ) ) {
      trapDelete( w, key );
   }
   if ( available( modId ) < acl->second.entries ) {
      return;
   }
   w.trap.rows[key] = acl->second.entries;
   if ( acl->second.implicitDeny && available( modId ) >= 1 ) {
      w.trap.implicitDeny = true;
   }
}

// --- Modules, readiness, fragments ---------------------------------------------------

void Model::moduleIs( U16 modId ) {
   modules_[modId] = modId;
   if ( workers_.count( modId ) ) {
      return;
   }
   WorkerExpect& w = workers_[modId];
   w.fragEnabled = fragConfig_;
   for ( U32 uid : orders_.requests() ) {
      w.pending.push_back( uid );
   }
   if ( ready_ ) {
      initialize( modId );
   }
}

void Model::moduleDel( U16 modId ) {
   modules_.erase( modId );
   workerDel( modId );
}

void Model::workerDel( U16 modId ) {
   auto found = workers_.find( modId );
   if ( found == workers_.end() ) {
      return;
   }
   orphans_[modId] += owned( modId );
   workers_.erase( found );
   stepDeleted_.insert( modId );
}

void Model::readyIs( bool ready ) {
   if ( ready == ready_ ) {
      return;
   }
   ready_ = ready;
   if ( !ready ) {
      std::vector<U16> ids;
      for ( auto const& w : workers_ ) {
         ids.push_back( w.first );
      }
      for ( U16 id : ids ) {
         workerDel( id );
      }
      return;
   }
   for ( auto& w : workers_ ) {
      if ( !w.second.initialized ) {
         initialize( w.first );
      }
   }
}

// Initialization: the trap filters first (every ACL, in the configuration's order),
// then the requests that waited.
void Model::initialize( U16 modId ) {
   WorkerExpect& w = workers_.at( modId );
   w.initialized = true;
   if ( trapFilters_ ) {
      w.hasTrapSm = true;
      for ( Oro::NatTrapKey const& key : orders_.trapAcls() ) {
         trapRequest( modId, key );
      }
   }
   std::deque<U32> pending;
   pending.swap( w.pending );
   for ( U32 uid : pending ) {
      serve( modId, uid );
   }
}

void Model::fragmentIs( bool enabled ) {
   fragConfig_ = enabled;
   for ( auto& w : workers_ ) {
      if ( w.second.fragEnabled == enabled ) {
         continue;
      }
      w.second.fragEnabled = enabled;
      if ( w.second.initialized ) {
         handleFragment( w.first );
      }
   }
}

// Off: every fragment entry goes. On: every default entry of a key that needs one gets
// its fragment entry, all or none; with too little room the feature switches itself off.
void Model::handleFragment( U16 modId ) {
   WorkerExpect& w = workers_.at( modId );
   if ( !w.fragEnabled ) {
      for ( auto& row : w.rows ) {
         row.second.frags.clear();
      }
      return;
   }
   U32 missing = 0;
   for ( auto const& row : w.rows ) {
      if ( !needsFrag( row.first ) ) {
         continue;
      }
      for ( auto const& d : row.second.defaults ) {
         missing += row.second.frags.count( d.first ) ? 0 : 1;
      }
   }
   if ( missing == 0 ) {
      return;
   }
   if ( missing > available( modId ) ) {
      w.fragEnabled = false;
      return;
   }
   for ( auto& row : w.rows ) {
      if ( !needsFrag( row.first ) ) {
         continue;
      }
      ShadowExpect const& sh = shadow_.at( row.first );
      for ( auto const& d : row.second.defaults ) {
         if ( !row.second.frags.count( d.first ) ) {
            row.second.frags[d.first] =
                freshEntry( row.first, sh.data, opaqueId( row.first ), d.first, true );
         }
      }
   }
}

}  // namespace NatRandom
