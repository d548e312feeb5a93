#pragma once

// The independent expectation of the randomized NAT test (NatRandomTest.cpp): the steps
// as upstream, the platform and the plug-in are meant to handle them.
//   - Upstream keeps the shadow, each uid's key and module set and the standing requests;
//     a transaction ends when every module of its set has answered (a removed key then
//     leaves the shadow, a programmed one turns clean).
//   - A worker per module of the module map, built by a module step, initialized once the
//     mount group is ready, all deleted when it stops being ready. A worker serves the
//     requests standing when it was built, in order, once initialized, then every new
//     one. A deleted worker frees nothing: its entries keep their room for good.
//   - Per worker, the entries of each key per VLAN and what each holds; per unit, the
//   room
//     left, so that a full TCAM is foreseen.
// (Trap ACLs are not played here: TrapSmTest.cpp states each of their entries.)

#include <array>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <variant>
#include <vector>

#include "platform/chip/Action.h"
#include "platform/chip/Qualifier.h"
#include "platform/nat/XactSluiceDir.h"
#include "tools/natsim/Scenario.h"

namespace NatRandom {

using Chip::Action;
using Chip::Qualifier;
using Result = Xact::XactSluiceStatus::Result;
using HwKey = Oro::NatHwKey;

// Data and mask of each qualifier set (IpFrag: the selector and 0), and the actions.
struct EntryExpect {
   std::map<Qualifier, std::pair<U32, U32>> quals;
   std::vector<Chip::ActionRecord> actions;

   void q( Qualifier qualifier, U32 data, U32 mask = 0xffffffffu ) {
      U32 const width = Chip::qualifierWidthMask( qualifier );
      quals[qualifier] = { data & width, mask & width };
   }
   void a( Action action, U32 p0 = 0, U32 p1 = 0 ) {
      actions.push_back( { action, p0, p1 } );
   }
   void nonFirstFragments() {
      quals[Qualifier::IpFrag] = { U32( Chip::IpFragSelector::NotFirst ), 0 };
   }
};

// The entries of one key on one worker, by VLAN (0 for source-side keys).
struct RowExpect {
   std::map<U16, EntryExpect> defaults, frags;
};

struct WorkerExpect {
   bool initialized = false;
   bool fragEnabled = false;
   std::deque<U32> pending;  // requests to serve once initialized
   std::map<HwKey, RowExpect> rows;
};

struct ShadowExpect {
   Oro::NatHwData data;
   U32 uid = 0;
   U16 mcastUid = 0;
   U32 dirty = 1;
};

inline U32 ipOf( Wirel::IpAndPort const& p ) {
   return p.ip().value();
}

inline constexpr U32 ecmpBit = 0x08000000u;
inline constexpr U32 mcastRange = 0xe0000000u, mcastMask = 0xf0000000u;  // 224/4

// Unicast next hops are egress objects from 100000, multipath ones from 200000; 0 drops,
// all ones leaves the forwarding decision alone.
inline bool forwards( U64 nextHop ) {
   return nextHop != 0 && nextHop != ~U64( 0 );
}
inline U32 egressObject( U64 nextHop ) {
   U32 const low = U32( nextHop );
   return ( low & ecmpBit ) ? ( low & ~ecmpBit ) + 200000 : low + 100000;
}

inline bool isSource( HwKey const& key ) {
   auto const t = key.keyType();
   return t == HwKey::staticSrcNat || t == HwKey::twiceNatSrc ||
          t == HwKey::dynamicSrcNat;
}
inline bool isDestination( HwKey const& key ) {
   auto const t = key.keyType();
   return t == HwKey::staticDstNat || t == HwKey::twiceNatDst ||
          t == HwKey::dynamicDstNat;
}
// Keys that translate ports, as the key record itself tells, and dynamic keys.
inline bool needsFrag( HwKey const& key ) {
   return key.isStaticNapt() || key.isTwiceNapt() || key.isDynamicNat();
}

// What the data does with a matched packet: a forwarding next hop or multicast cancels
// the CPU copy and the drop (and a next hop switches to its egress object), next hop 0
// drops. `alwaysCpuCancel`: the CPU copy is cancelled in every case.
inline void forwarding( EntryExpect& e, Oro::NatHwData const& d, bool alwaysCpuCancel ) {
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

class Model {
public:
   // What the last step must have produced.
   std::vector<std::array<U32, 4>> answers;  // module, uid, result, field
   U32 natFullEvents = 0;
   std::set<U16> deletedUnits;  // units whose worker the step deleted

   std::map<U16, WorkerExpect> workers;
   std::map<U16, U16> modules;
   std::map<U16, U32> orphans;  // per unit
   bool ready;

   // `requests`: the standing requests in the platform's order, as a new worker finds
   // them (which decides who gets the last entries of a short TCAM). Then play() each
   // step before it is played (the order is read then).
   Model( natsim::ChipConfig const& chip, natsim::NatConfig const& nat,
          std::function<std::vector<U32>()> requests )
       : ready( chip.mountGroupReady ),
         requests_( std::move( requests ) ),
         capacity_( chip.tcamEntries ),
         addrOnlyMode_( nat.addrOnlyMode ),
         fragConfig_( nat.fragmentEnabled ) {
      for ( auto const& m : chip.modules ) {
         moduleIs( m.first );
      }
   }

   // A dynamic key the hardware mode cannot hold: answered without programming. The
   // address-only mode takes keys with both addresses, the other mode keys without ports.
   bool skipped( HwKey const& key ) const {
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
   EntryExpect entry( HwKey const& key, ShadowExpect const& sh, U16 vlan,
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
      // Static and twice keys: matched on the old address (and port) of their own side,
      // and on the other side's old address (twice) or that side narrowed by the ACL,
      // the filter or the multicast range (for a destination key only when its own
      // address is below 32/8); destination keys also on the ingress VLAN, unless
      // multicast off ingress. Ports only on default entries.
      bool const src = isSource( key );
      bool const twice =
          key.keyType() == HwKey::twiceNatSrc || key.keyType() == HwKey::twiceNatDst;
      auto const own = src ? srcOld : dstOld, other = src ? dstOld : srcOld;
      Qualifier const ownIp = src ? Qualifier::SrcIp : Qualifier::DstIp;
      Qualifier const otherIp = src ? Qualifier::DstIp : Qualifier::SrcIp;
      if ( !src && ( !d.multicast() || d.ingress() ) ) {
         e.q( Qualifier::L3Ingress, vlan );
      }
      e.q( ownIp, ipOf( own ) );
      if ( !frag && own.port() ) {
         e.q( src ? Qualifier::L4SrcPort : Qualifier::L4DstPort, own.port() );
      }
      if ( twice ) {
         e.q( otherIp, ipOf( other ) );
         if ( !frag && other.port() ) {
            e.q( src ? Qualifier::L4DstPort : Qualifier::L4SrcPort, other.port() );
         }
      } else if ( d.staticAclSharing() && key.aclId().value() ) {
         e.q( Qualifier::OpaqueObject1, key.aclId().value() );
      } else if ( d.filterAddr().address().value() ) {
         e.q( otherIp, d.filterAddr().address().value(), d.filterAddr().mask() );
      } else if ( d.multicast() && ( src || ipOf( dstOld ) < 0x20000000u ) ) {
         e.q( otherIp, mcastRange, mcastMask );
      }
      if ( frag ) {
         e.nonFirstFragments();
      }
      // The extraction control: 16, 4 more for source keys, 2 more for twice keys, 1 more
      // on a default entry when the translated side (the source of a static source or
      // twice destination key, else the destination) gets a new port.
      auto const translated =
          src != twice ? key.srcIpAndPortNew() : key.dstIpAndPortNew();
      U32 ext = 16 + ( src ? 4 : 0 ) + ( twice ? 2 : 0 ) + ( !frag && translated.port() );
      if ( src && twice ) {
         forwarding( e, d, false );
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
      if ( !src ) {
         forwarding( e, d, true );
      }
      return e;
   }

   U32 owned( U16 unit ) const {
      auto found = workers.find( unit );
      if ( found == workers.end() ) {
         return 0;
      }
      U32 n = 0;
      for ( auto const& row : found->second.rows ) {
         n += U32( row.second.defaults.size() + row.second.frags.size() );
      }
      return n;
   }

   U32 available( U16 unit ) const {
      auto const orphaned = orphans.find( unit );
      U32 const used =
          owned( unit ) + ( orphaned == orphans.end() ? 0 : orphaned->second );
      return used >= capacity_ ? 0 : capacity_ - used;
   }

   bool verifiable( U16 modId ) const {
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

   void play( natsim::Step const& step ) {
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
      // Time changes no entry.
      finishAnswered();
   }

   void publish( U32 uid, U32 field ) {
      standing_[uid] = Request{ field, modSets_[uid] };
      for ( auto& w : workers ) {
         if ( w.second.initialized ) {
            commit( w.first, uid );
         } else {
            w.second.pending.push_back( uid );
         }
      }
   }

   // Upstream ends every transaction whose modules have all answered.
   void finishAnswered() {
      for ( auto const& [module, uid, result, field] : answers ) {
         auto request = standing_.find( uid );
         if ( request == standing_.end() ) {
            continue;
         }
         request->second.awaiting.erase( U16( module ) );
         if ( !request->second.awaiting.empty() ) {
            continue;
         }
         standing_.erase( request );
         auto key = uidKey_.find( uid );
         auto sh = key == uidKey_.end() ? shadow_.end() : shadow_.find( key->second );
         if ( sh == shadow_.end() ) {
            continue;
         }
         if ( sh->second.dirty == 2 ) {
            shadow_.erase( sh );
            uidKey_.erase( key );
            modSets_.erase( uid );
         } else {
            sh->second.dirty = 0;
         }
      }
   }

   void commit( U16 modId, U32 uid ) {
      auto set = modSets_.find( uid );
      if ( !standing_.count( uid ) || set == modSets_.end() ||
           !set->second.count( modId ) ) {
         return;  // not for this module: no answer
      }
      HwKey const key = uidKey_.at( uid );
      U32 const field = standing_.at( uid ).field;
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
      answers.push_back( { modId, uid, U32( result ), field } );
   }

   // A known VLAN is reprogrammed in place; a new one takes its entries (with its
   // fragment entry, both or none) or the key stays short and a log event is raised.
   bool program( WorkerExpect& w, U16 unit, HwKey const& key, U16 vlan ) {
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
   // its fragment entry, all or none; with too little room the feature switches itself
   // off.
   void handleFragment( U16 modId ) {
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

   void moduleIs( U16 modId ) {
      modules[modId] = modId;
      if ( workers.count( modId ) ) {
         return;
      }
      WorkerExpect& w = workers[modId];
      w.fragEnabled = fragConfig_;
      for ( U32 uid : requests_() ) {
         w.pending.push_back( uid );
      }
      if ( ready ) {
         initialize( modId );
      }
   }

   void workerDel( U16 modId ) {
      if ( workers.count( modId ) ) {
         orphans[modId] += owned( modId );
         workers.erase( modId );
         deletedUnits.insert( modId );
      }
   }

   // Initialization serves the requests that waited.
   void initialize( U16 modId ) {
      WorkerExpect& w = workers.at( modId );
      w.initialized = true;
      std::deque<U32> pending;
      pending.swap( w.pending );
      for ( U32 uid : pending ) {
         commit( modId, uid );
      }
   }

private:
   struct Request {
      U32 field = 0;
      std::set<U16> awaiting;
   };
   std::function<std::vector<U32>()> requests_;
   U32 capacity_;
   bool addrOnlyMode_;
   bool fragConfig_;
   std::map<HwKey, ShadowExpect> shadow_;
   std::map<U32, HwKey> uidKey_;
   std::map<U32, std::set<U16>> modSets_;
   std::map<U32, Request> standing_;
};

}  // namespace NatRandom
