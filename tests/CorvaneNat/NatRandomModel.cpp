#include "NatRandomModel.h"

namespace NatRandom {

namespace {

constexpr U32 ecmpBit = 0x08000000u;
constexpr U32 mcastRange = 0xe0000000u, mcastMask = 0xf0000000u;  // 224/4

// Unicast next hops are egress objects from 100000, multipath ones from 200000; 0 drops,
// all ones leaves the forwarding decision alone.
bool forwards( U64 nextHop ) {
   return nextHop != 0 && nextHop != ~U64( 0 );
}
U32 egressObject( U64 nextHop ) {
   U32 const low = U32( nextHop );
   return ( low & ecmpBit ) ? ( low & ~ecmpBit ) + 200000 : low + 100000;
}

bool isSource( HwKey const& key ) {
   auto const t = key.keyType();
   return t == HwKey::staticSrcNat || t == HwKey::twiceNatSrc ||
          t == HwKey::dynamicSrcNat;
}
bool isDestination( HwKey const& key ) {
   auto const t = key.keyType();
   return t == HwKey::staticDstNat || t == HwKey::twiceNatDst ||
          t == HwKey::dynamicDstNat;
}
// Keys that translate ports, as the key record itself tells, and dynamic keys.
bool needsFrag( HwKey const& key ) {
   return key.isStaticNapt() || key.isTwiceNapt() || key.isDynamicNat();
}

// Per rule, entries without and with exact-match hit: a permitting rule's hit entry
// comes with its SYN, FIN and RST entries; a pool rule takes one entry without hit and
// three with.
U32 aclEntries( natsim::TrapAclStep const& s ) {
   U32 n = 0;
   for ( natsim::TrapRule const& rule : s.rules ) {
      n += rule.pool ? 4 : ( rule.permit ? 5 : 2 );
   }
   return n;
}

// What the data does with a matched packet: a forwarding next hop or multicast cancels
// the CPU copy and the drop (and a next hop switches to its egress object), next hop 0
// drops. `alwaysCpuCancel`: the CPU copy is cancelled in every case.
void forwarding( EntryExpect& e, Oro::NatHwData const& d, bool alwaysCpuCancel ) {
   bool const passes = forwards( d.nextHopId() ) || d.multicast();
   if ( passes || alwaysCpuCancel ) {
      e.a( Action::CopyToCpuCancel );
   }
   if ( passes ) {
      e.a( Action::DropCancel );
   }
   if ( forwards( d.nextHopId() ) ) {
      e.a( Action::L3Switch, egressObject( d.nextHopId() ) );
   } else if ( !d.multicast() && d.nextHopId() == 0 ) {
      e.a( Action::Drop );
   }
}

}  // namespace

Model::Model( natsim::ChipConfig const& chip, natsim::NatConfig const& nat,
              Orders orders )
    : ready( chip.mountGroupReady ),
      orders_( std::move( orders ) ),
      capacity_( chip.tcamEntries ),
      trapFilters_( chip.trapFilters ),
      addrOnlyMode_( nat.addrOnlyMode ),
      fragConfig_( nat.fragmentEnabled ) {
   for ( auto const& m : chip.modules ) {
      moduleIs( m.first );
   }
}

// A dynamic key the hardware mode cannot hold: answered without programming. The
// address-only mode takes keys with both addresses, the other mode keys without ports.
bool Model::skipped( HwKey const& key ) const {
   if ( !key.isDynamicNat() ) {
      return false;
   }
   bool const oneAddress =
       ipOf( key.srcIpAndPortOld() ) == 0 || ipOf( key.dstIpAndPortOld() ) == 0;
   bool const ports = key.srcIpAndPortOld().port() || key.dstIpAndPortOld().port();
   return addrOnlyMode_ ? oneAddress : ports;
}

// What one entry of `key` holds: every entry matches packets for this station not
// dropped by an ACL; a fragment entry matches non-first fragments without ports.
EntryExpect Model::entry( HwKey const& key, ShadowExpect const& sh, U16 vlan,
                          bool frag ) const {
   Oro::NatHwData const& d = sh.data;
   U32 const opaque = d.multicast() ? sh.mcastUid : sh.uid;
   auto const srcOld = key.srcIpAndPortOld(), dstOld = key.dstIpAndPortOld();
   EntryExpect e;
   e.q( Qualifier::MyStationHit, 1, 1 );
   e.q( Qualifier::SrcClassField, 0, 8 );
   if ( key.isDynamicNat() ) {
      // Only what the key carries, and a protocol class written last: TCP (without
      // FIN, SYN, RST) for protocol 6 and for one-address keys, else UDP.
      bool const source = key.keyType() == HwKey::dynamicSrcNat;
      bool const bothAddresses = ipOf( srcOld ) && ipOf( dstOld );
      if ( ipOf( srcOld ) ) {
         e.q( Qualifier::SrcIp, ipOf( srcOld ) );
      }
      if ( ipOf( dstOld ) ) {
         e.q( Qualifier::DstIp, ipOf( dstOld ) );
      }
      U16 const ownPort = source ? srcOld.port() : dstOld.port();
      U32 const ext = ( source ? 20 : 16 ) + ( !frag && ownPort ? 1 : 0 );
      if ( frag && bothAddresses ) {
         e.nonFirstFragments();
      }
      if ( !frag && srcOld.port() ) {
         e.q( Qualifier::L4SrcPort, srcOld.port() );
      }
      if ( !frag && dstOld.port() ) {
         e.q( Qualifier::L4DstPort, dstOld.port() );
      }
      if ( key.dynProto() == 6 || ( !bothAddresses && !frag ) ) {
         e.q( Qualifier::IpProtocol, 6, 0xff );
         e.q( Qualifier::TcpControl, 0, 7 );
      } else {
         e.q( Qualifier::IpProtocol, 17, 0xff );
      }
      e.a( Action::AssignOpaqueObject1, opaque );
      e.a( Action::CopyToCpuCancel );
      e.a( Action::AssignExtractionCtrlId, ext, 0x1f );
      if ( source ) {
         e.a( Action::DropCancel );
      } else if ( forwards( d.nextHopId() ) ) {
         e.a( Action::DropCancel );
         e.a( Action::L3Switch, egressObject( d.nextHopId() ) );
      }
      return e;
   }
   bool const twice =
       key.keyType() == HwKey::twiceNatSrc || key.keyType() == HwKey::twiceNatDst;
   bool const aclShared = d.staticAclSharing() && key.aclId().value();
   U32 const filter = d.filterAddr().address().value();
   U32 ext;
   if ( isSource( key ) ) {
      // Matched on the old source (and, twice, the old destination); a static key
      // narrows the destination by ACL, filter or the multicast range.
      e.q( Qualifier::SrcIp, ipOf( srcOld ) );
      if ( !frag && srcOld.port() ) {
         e.q( Qualifier::L4SrcPort, srcOld.port() );
      }
      if ( twice ) {
         e.q( Qualifier::DstIp, ipOf( dstOld ) );
         if ( !frag && dstOld.port() ) {
            e.q( Qualifier::L4DstPort, dstOld.port() );
         }
         forwarding( e, d, false );
         ext = !frag && key.dstIpAndPortNew().port() ? 23 : 22;
      } else {
         if ( aclShared ) {
            e.q( Qualifier::OpaqueObject1, key.aclId().value() );
         } else if ( filter ) {
            e.q( Qualifier::DstIp, filter, d.filterAddr().mask() );
         } else if ( d.multicast() ) {
            e.q( Qualifier::DstIp, mcastRange, mcastMask );
         }
         ext = !frag && key.srcIpAndPortNew().port() ? 21 : 20;
      }
      if ( frag ) {
         e.nonFirstFragments();
      }
   } else {
      // Matched on the ingress VLAN (not for multicast off ingress), the old
      // destination, and the old source (twice) or the source narrowed by ACL, filter
      // or, for a destination below 32/8, the multicast range.
      if ( !d.multicast() || d.ingress() ) {
         e.q( Qualifier::L3Ingress, vlan );
      }
      if ( twice ) {
         e.q( Qualifier::SrcIp, ipOf( srcOld ) );
         if ( !frag && srcOld.port() ) {
            e.q( Qualifier::L4SrcPort, srcOld.port() );
         }
         ext = !frag && key.srcIpAndPortNew().port() ? 19 : 18;
      } else {
         if ( aclShared ) {
            e.q( Qualifier::OpaqueObject1, key.aclId().value() );
         } else if ( filter ) {
            e.q( Qualifier::SrcIp, filter, d.filterAddr().mask() );
         } else if ( d.multicast() && ipOf( dstOld ) < 0x20000000u ) {
            e.q( Qualifier::SrcIp, mcastRange, mcastMask );
         }
         ext = !frag && key.dstIpAndPortNew().port() ? 17 : 16;
      }
      e.q( Qualifier::DstIp, ipOf( dstOld ) );
      if ( frag ) {
         e.nonFirstFragments();
      } else if ( dstOld.port() ) {
         e.q( Qualifier::L4DstPort, dstOld.port() );
      }
   }
   if ( d.protocol() ) {
      e.q( Qualifier::IpProtocol, d.protocol(), 0xff );
   }
   if ( d.multicast() ) {
      if ( d.mcastGroupId() ) {
         e.a( Action::RedirectIpmc, d.mcastGroupId() );
      }
      ext = 24;
   }
   e.a( Action::AssignExtractionCtrlId, ext, 0x1f );
   e.a( Action::AssignOpaqueObject1, opaque );
   if ( isDestination( key ) ) {
      forwarding( e, d, true );
   }
   return e;
}

U32 Model::owned( U16 unit ) const {
   auto found = workers.find( unit );
   if ( found == workers.end() ) {
      return 0;
   }
   WorkerExpect const& w = found->second;
   U32 n = w.implicitDeny ? 1 : 0;
   for ( auto const& row : w.rows ) {
      n += U32( row.second.defaults.size() + row.second.frags.size() );
   }
   for ( auto const& acl : w.trapRows ) {
      n += acl.second;
   }
   return n;
}

U32 Model::available( U16 unit ) const {
   auto const orphaned = orphans.find( unit );
   U32 const used = owned( unit ) + ( orphaned == orphans.end() ? 0 : orphaned->second );
   return used >= capacity_ ? 0 : capacity_ - used;
}

bool Model::verifiable( U16 modId ) const {
   auto found = workers.find( modId );
   if ( found == workers.end() || !found->second.initialized ) {
      return false;
   }
   for ( auto const& [key, sh] : shadow_ ) {
      auto set = modSets_.find( sh.uid );
      bool const programmed = set != modSets_.end() && set->second.count( modId ) &&
                              sh.dirty != 2 && !skipped( key ) &&
                              !( isDestination( key ) && sh.data.vlanIds() == 0 );
      if ( programmed && !found->second.rows.count( key ) ) {
         return false;
      }
   }
   return true;
}

void Model::play( natsim::Step const& step ) {
   answers.clear();
   natFullEvents = 0;
   deletedUnits.clear();
   if ( auto s = std::get_if<natsim::NatRuleStep>( &step ) ) {
      shadow_[s->key] = ShadowExpect{ s->data, s->uid, s->mcastUid, s->dirty };
      uidKey_[s->uid] = s->key;
      modSets_[s->uid] = std::set<U16>( s->modules.begin(), s->modules.end() );
      publish( s->uid, s->field );
   } else if ( auto s = std::get_if<natsim::NatRuleRemoveStep>( &step ) ) {
      auto found = shadow_.find( s->key );
      if ( found != shadow_.end() ) {  // else not published
         found->second.dirty = 2;
         uidKey_[s->uid] = s->key;
         if ( !modSets_.count( s->uid ) ) {
            for ( auto const& m : modules ) {
               modSets_[s->uid].insert( m.first );
            }
         }
         publish( s->uid, s->field );
      }
   } else if ( auto s = std::get_if<natsim::TrapAclStep>( &step ) ) {
      Oro::NatTrapKey const key( s->name, s->vlan );
      acls_[key] = Acl{ s->implicitDeny, aclEntries( *s ) };
      for ( auto& w : workers ) {
         if ( w.second.hasTrapSm ) {
            trapRequest( w.first, key );
         }
      }
   } else if ( auto s = std::get_if<natsim::TrapAclRemoveStep>( &step ) ) {
      Oro::NatTrapKey const key( s->name, s->vlan );
      if ( acls_.erase( key ) ) {  // else nothing changes, nothing is announced
         for ( auto& w : workers ) {
            if ( w.second.hasTrapSm ) {
               trapRequest( w.first, key );
            }
         }
      }
   } else if ( auto s = std::get_if<natsim::ModuleStep>( &step ) ) {
      moduleIs( s->modId );
   } else if ( auto s = std::get_if<natsim::ModuleRemoveStep>( &step ) ) {
      modules.erase( s->modId );
      workerDel( s->modId );
   } else if ( auto s = std::get_if<natsim::MountGroupReadyStep>( &step ) ) {
      if ( s->ready != ready ) {
         ready = s->ready;
         std::vector<U16> ids;
         for ( auto const& w : workers ) {
            ids.push_back( w.first );
         }
         for ( U16 id : ids ) {
            if ( !ready ) {
               workerDel( id );
            } else if ( !workers.at( id ).initialized ) {
               initialize( id );
            }
         }
      }
   } else if ( auto s = std::get_if<natsim::FragmentEnabledStep>( &step ) ) {
      fragConfig_ = s->enabled;
      for ( auto& w : workers ) {
         if ( w.second.fragEnabled != s->enabled ) {
            w.second.fragEnabled = s->enabled;
            if ( w.second.initialized ) {
               handleFragment( w.first );
            }
         }
      }
   }
   // Packets, time and the multicast mode change no entry.
   finishAnswered();
}

void Model::publish( U32 uid, U32 field ) {
   requests_[uid] = Request{ field, modSets_[uid] };
   for ( auto& w : workers ) {
      if ( w.second.initialized ) {
         commit( w.first, uid );
      } else {
         w.second.pending.push_back( uid );
      }
   }
}

// Upstream ends every transaction whose modules have all answered.
void Model::finishAnswered() {
   for ( AnswerExpect const& a : answers ) {
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
      auto sh = key == uidKey_.end() ? shadow_.end() : shadow_.find( key->second );
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

void Model::commit( U16 modId, U32 uid ) {
   auto set = modSets_.find( uid );
   if ( !requests_.count( uid ) || set == modSets_.end() ||
        !set->second.count( modId ) ) {
      return;  // not for this module: no answer
   }
   HwKey const key = uidKey_.at( uid );
   U32 const field = requests_.at( uid ).field;
   WorkerExpect& w = workers.at( modId );
   ShadowExpect const sh = shadow_.at( key );
   Result result = Xact::XactSluiceStatus::done;
   if ( skipped( key ) ) {
   } else if ( sh.dirty == 2 ) {
      w.rows.erase( key );
   } else if ( isSource( key ) ) {
      if ( !program( w, modId, key, 0 ) ) {
         result = Xact::XactSluiceStatus::hwFull;
      }
   } else if ( isDestination( key ) ) {
      std::set<U16> listed;
      for ( U32 i = 0; i < sh.data.vlanIds(); ++i ) {
         listed.insert( sh.data.vlanId( i ) );
         if ( !program( w, modId, key, sh.data.vlanId( i ) ) ) {
            result = Xact::XactSluiceStatus::hwFull;
         }
      }
      // VLANs the data no longer lists give their entries back.
      auto row = w.rows.find( key );
      if ( row != w.rows.end() ) {
         for ( auto it = row->second.defaults.begin();
               it != row->second.defaults.end(); ) {
            if ( listed.count( it->first ) ) {
               ++it;
            } else {
               row->second.frags.erase( it->first );
               it = row->second.defaults.erase( it );
            }
         }
      }
   }
   answers.push_back( { modId, uid, result, field } );
}

// A known VLAN is reprogrammed in place; a new one takes its entries (with its fragment
// entry, both or none) or the key stays short and a log event is raised.
bool Model::program( WorkerExpect& w, U16 unit, HwKey const& key, U16 vlan ) {
   RowExpect& row = w.rows[key];  // the row stays even when the TCAM is full
   ShadowExpect const& sh = shadow_.at( key );
   if ( row.defaults.count( vlan ) ) {
      row.defaults[vlan] = entry( key, sh, vlan, false );
      if ( row.frags.count( vlan ) ) {
         row.frags[vlan] = entry( key, sh, vlan, true );
      }
      return true;
   }
   bool const fragNeeded = needsFrag( key ) && w.fragEnabled;
   if ( available( unit ) < ( fragNeeded ? 2u : 1u ) ) {
      ++natFullEvents;
      return false;
   }
   row.defaults[vlan] = entry( key, sh, vlan, false );
   if ( fragNeeded ) {
      row.frags[vlan] = entry( key, sh, vlan, true );
   }
   return true;
}

// Off: every fragment entry goes. On: every default entry of a key that needs one gets
// its fragment entry, all or none; with too little room the feature switches itself off.
void Model::handleFragment( U16 modId ) {
   WorkerExpect& w = workers.at( modId );
   U32 missing = 0;
   for ( auto& [key, row] : w.rows ) {
      if ( !w.fragEnabled ) {
         row.frags.clear();
         continue;
      }
      for ( auto const& d : row.defaults ) {
         missing += needsFrag( key ) && !row.frags.count( d.first ) ? 1 : 0;
      }
   }
   if ( missing > available( modId ) ) {
      w.fragEnabled = false;
      return;
   }
   for ( auto& [key, row] : w.rows ) {
      for ( auto const& d : row.defaults ) {
         if ( w.fragEnabled && needsFrag( key ) && !row.frags.count( d.first ) ) {
            row.frags[d.first] = entry( key, shadow_.at( key ), d.first, true );
         }
      }
   }
}

// An ACL that changed is released whole and programmed anew; it gets all its entries
// or none. Releasing an ACL's row gives the implicit-deny entry back when no ACL asks for
// it any more; it is taken when an ACL asks for it and one more entry fits.
void Model::trapRequest( U16 modId, Oro::NatTrapKey const& key ) {
   WorkerExpect& w = workers.at( modId );
   auto acl = acls_.find( key );
   if ( acls_.empty() ) {
      w.implicitDeny = false;
   }
   if ( acl == acls_.end() || w.trapRows.count( key ) ) {
      w.trapRows.erase( key );
      bool wanted = false;
      for ( auto const& other : acls_ ) {
         wanted = wanted || other.second.implicitDeny;
      }
      w.implicitDeny = w.implicitDeny && wanted;
   }
   if ( acl == acls_.end() || available( modId ) < acl->second.entries ) {
      return;
   }
   w.trapRows[key] = acl->second.entries;
   if ( acl->second.implicitDeny && available( modId ) >= 1 ) {
      w.implicitDeny = true;
   }
}

void Model::moduleIs( U16 modId ) {
   modules[modId] = modId;
   if ( workers.count( modId ) ) {
      return;
   }
   WorkerExpect& w = workers[modId];
   w.fragEnabled = fragConfig_;
   for ( U32 uid : orders_.requests() ) {
      w.pending.push_back( uid );
   }
   if ( ready ) {
      initialize( modId );
   }
}

void Model::workerDel( U16 modId ) {
   if ( workers.count( modId ) ) {
      orphans[modId] += owned( modId );
      workers.erase( modId );
      deletedUnits.insert( modId );
   }
}

// Initialization: the trap filters first (every ACL, in the configuration's order),
// then the requests that waited.
void Model::initialize( U16 modId ) {
   WorkerExpect& w = workers.at( modId );
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
      commit( modId, uid );
   }
}

}  // namespace NatRandom
