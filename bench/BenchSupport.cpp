#include "bench/BenchSupport.h"

#include <cstdio>
#include <cstdlib>
#include <unordered_map>

#include "platform/fwk/ActivityLock.h"

namespace Bench {

NatBench::NatBench( natsim::NatConfig const& nat, bool journal,
                    natsim::ChipConfig chip ) {
   platform_ = std::make_unique<natsim::SimPlatform>( "Corvane", chip, nat );
   Chip::journal().enabledIs( journal );
   upstream_ = std::make_unique<natsim::Upstream>(
       *platform_, [this]( natsim::Answer const& ) { ++answers_; } );
   mounter_ = new Corvane::NatMounter( "natMounter" );
   mounter_->doInit();
   loop().runUntilIdle();
   if ( !worker() || !worker()->initialized() ) {
      std::fprintf( stderr, "bench: the NAT worker did not initialize\n" );
      std::abort();
   }
}

NatBench::~NatBench() {
   mounter_ = nullptr;
   upstream_.reset();
   platform_.reset();
   Chip::journal().clear();
   Chip::journal().enabledIs( true );
}

natsim::ChipConfig NatBench::chipConfig() {
   natsim::ChipConfig chip;
   chip.tcamEntries = benchTcamEntries;
   return chip;
}

Corvane::NatWorkerSm* NatBench::worker() const {
   auto root = mounter_->rootSm();
   return root ? root->natWorkerSm( 1 ).ptr() : nullptr;
}

void NatBench::commit( natsim::NatRuleStep const& step ) {
   upstream_->natRule( step );
   loop().runUntilIdle();
}

void NatBench::remove( natsim::NatRuleRemoveStep const& step ) {
   std::string problem;
   if ( !upstream_->natRuleRemove( step, &problem ) ) {
      std::fprintf( stderr, "bench: %s\n", problem.c_str() );
      std::abort();
   }
   loop().runUntilIdle();
}

namespace {

Wirel::IpAndPort ipPort( U32 ip, U16 port = 0 ) {
   return Wirel::IpAndPort( Wirel::IpAddr( ip ), port );
}

// A distinct host part for each index, in a /8.
U32 host( U32 net, U32 index ) {
   return ( net << 24 ) | ( ( index + 1 ) & 0xffffff );
}

Oro::NatHwKey key( Oro::NatHwKey::NatKeyType type, Wirel::IpAndPort srcOld,
                   Wirel::IpAndPort srcNew, Wirel::IpAndPort dstOld,
                   Wirel::IpAndPort dstNew, U8 proto = 0 ) {
   return Oro::NatHwKey( type, srcOld, srcNew, dstOld, dstNew, false, proto, 0,
                         Oro::NatAclId( 0 ) );
}

natsim::NatRuleStep step( U32 index, Oro::NatHwKey const& key,
                          Oro::NatHwData const& data ) {
   natsim::NatRuleStep s;
   s.uid = index + 1;
   s.key = key;
   s.data = data;
   s.modules = { 1 };
   return s;
}

}  // namespace

natsim::NatRuleStep snatRule( U32 index ) {
   return step( index,
                key( Oro::NatHwKey::staticSrcNat, ipPort( host( 10, index ) ),
                     ipPort( host( 100, index ) ), {}, {} ),
                Oro::NatHwData() );
}

natsim::NatRuleStep dnaptRule( U32 index ) {
   Oro::NatHwData data;
   for ( U16 vlan : { 10, 20, 30, 40 } ) {
      data.vlanIdAppend( vlan );
   }
   data.nextHopIdIs( 5 );
   return step( index,
                key( Oro::NatHwKey::staticDstNat, {}, {}, ipPort( host( 20, index ), 80 ),
                     ipPort( host( 30, index ), 8080 ) ),
                data );
}

natsim::NatRuleStep dynamicRule( U32 index ) {
   return step( index,
                key( Oro::NatHwKey::dynamicSrcNat, ipPort( host( 40, index ), 1024 ),
                     ipPort( host( 50, index ), 2000 ), ipPort( 0x08080808, 53 ),
                     ipPort( 0x08080808, 53 ), 6 ),
                Oro::NatHwData() );
}

natsim::NatRuleRemoveStep removal( natsim::NatRuleStep const& rule ) {
   natsim::NatRuleRemoveStep r;
   r.uid = rule.uid;
   r.key = rule.key;
   return r;
}

std::vector<Chip::JournalRecord> journalFrom( std::size_t first ) {
   return Chip::journal().recordsFrom( first );
}

namespace {

enum Kind : U8 {
   qMyStationHit,
   qSrcClassField,
   qSrcIp,
   qDstIp,
   qL4SrcPort,
   qL4DstPort,
   qIpProtocol,
   qTcpControl,
   qL3Ingress,
   qOpaqueObject1,
   qIpFrag,
   qExactMatch,
   actionAdd,
   actionRemoveAll,
   getEntry,
   setPriority,
   install,
   reinstall,
   release,
   hits,
};

[[noreturn]] void undecodable( Chip::JournalRecord const& r, char const* why ) {
   std::fprintf( stderr, "bench: cannot replay %s: %s\n", r.stringValue().c_str(), why );
   std::abort();
}

}  // namespace

Replay::Replay( std::vector<Chip::JournalRecord> const& records, Shim::Sdk const& sdk ) {
   std::unordered_map<std::string, Kind> const kinds = {
       { "bcm_field_qualify_MyStationHit", qMyStationHit },
       { "bcm_field_qualify_SrcClassField", qSrcClassField },
       { "bcm_field_qualify_SrcIp", qSrcIp },
       { "bcm_field_qualify_DstIp", qDstIp },
       { "bcm_field_qualify_L4SrcPort", qL4SrcPort },
       { "bcm_field_qualify_L4DstPort", qL4DstPort },
       { "bcm_field_qualify_IpProtocol", qIpProtocol },
       { "bcm_field_qualify_TcpControl", qTcpControl },
       { "bcm_field_qualify_L3Ingress", qL3Ingress },
       { "bcm_field_qualify_OpaqueObject1", qOpaqueObject1 },
       { "bcm_field_qualify_IpFrag", qIpFrag },
       { "bcm_field_qualify_ExactMatch", qExactMatch },
       { "bcm_field_action_add", actionAdd },
       { "bcm_field_action_remove_all", actionRemoveAll },
       { "getEntry", getEntry },
       { "setPriorityForEntry", setPriority },
       { "installEntry", install },
       { "reinstallEntry", reinstall },
       { "releaseEntry", release },
       { "hitsForEntry", hits } };
   // The SDK's enumeration values by their names, as the journal writes them.
   std::unordered_map<std::string, int> const values = {
       { "bcmFieldActionCopyToCpu", sdk.bcmFieldActionCopyToCpu },
       { "bcmFieldActionCopyToCpuCancel", sdk.bcmFieldActionCopyToCpuCancel },
       { "bcmFieldActionDrop", sdk.bcmFieldActionDrop },
       { "bcmFieldActionDropCancel", sdk.bcmFieldActionDropCancel },
       { "bcmFieldActionCosQCpuNew", sdk.bcmFieldActionCosQCpuNew },
       { "bcmFieldActionL3Switch", sdk.bcmFieldActionL3Switch },
       { "bcmFieldActionRedirectIpmc", sdk.bcmFieldActionRedirectIpmc },
       { "bcmFieldActionAssignExtractionCtrlId",
         sdk.bcmFieldActionAssignExtractionCtrlId },
       { "bcmFieldActionAssignOpaqueObject1", sdk.bcmFieldActionAssignOpaqueObject1 },
       { "bcmFieldIpFragNon", sdk.bcmFieldIpFragNon },
       { "bcmFieldIpFragFirst", sdk.bcmFieldIpFragFirst },
       { "bcmFieldIpFragNonOrFirst", sdk.bcmFieldIpFragNonOrFirst },
       { "bcmFieldIpFragNotFirst", sdk.bcmFieldIpFragNotFirst },
       { "bcmFieldIpFragAny", sdk.bcmFieldIpFragAny },
       { "bcmFieldQualifyExactMatchHitStatus", sdk.bcmFieldQualifyExactMatchHitStatus } };

   std::unordered_map<U32, U32> slotOf;  // recorded entry id -> its current slot
   ops_.reserve( records.size() );
   for ( Chip::JournalRecord const& r : records ) {
      auto kind = kinds.find( r.call );
      if ( kind == kinds.end() ) {
         undecodable( r, "not a field-processor or entry-manager call" );
      }
      Op op{};
      op.kind = kind->second;
      op.unit = U16( r.unit );
      op.slot = ~0u;
      op.entry = r.entry;
      auto number = [&]( std::size_t i ) -> U64 {
         if ( i >= r.args.size() || r.args[i].kind != Chip::Arg::Kind::number ) {
            undecodable( r, "argument is not a number" );
         }
         return r.args[i].number;
      };
      auto value = [&]( std::size_t i ) -> int {
         if ( i >= r.args.size() || r.args[i].kind != Chip::Arg::Kind::name ) {
            undecodable( r, "argument is not a name" );
         }
         auto v = values.find( r.args[i].name );
         if ( v == values.end() ) {
            undecodable( r, "unknown name" );
         }
         return v->second;
      };
      if ( op.kind == getEntry ) {
         if ( r.args.size() != 1 || r.args[0].kind != Chip::Arg::Kind::name ) {
            undecodable( r, "getEntry without a description" );
         }
         op.text = U32( texts_.size() );
         texts_.push_back( r.args[0].name );
         ++getEntries_;
         if ( r.entry != 0 ) {
            op.slot = U32( ids_.size() );
            ids_.push_back( 0 );
            held_.push_back( false );
            slotOf[r.entry] = op.slot;
         }
      } else {
         auto slot = slotOf.find( r.entry );
         if ( slot != slotOf.end() ) {
            op.slot = slot->second;
         }
      }
      switch ( op.kind ) {
         case qIpFrag:
            op.a = U32( value( 0 ) );
            break;
         case qExactMatch:
            op.a = U32( number( 0 ) );
            op.c = value( 1 );
            op.b = U32( number( 2 ) );
            op.text = U32( number( 3 ) );
            break;
         case actionAdd:
            op.c = value( 0 );
            op.a = U32( number( 1 ) );
            op.b = U32( number( 2 ) );
            break;
         case setPriority:
            op.c = S32( number( 0 ) );
            break;
         case actionRemoveAll:
         case getEntry:
         case install:
         case reinstall:
         case release:
         case hits:
            break;
         default:
            op.a = U32( number( 0 ) );
            op.b = U32( number( 1 ) );
            break;
      }
      if ( op.kind == release ) {
         slotOf.erase( r.entry );
      }
      ops_.push_back( op );
   }
}

int Replay::sdkCall( Op const& op, U32 e, Shim::Sdk& sdk ) {
   switch ( op.kind ) {
      case qMyStationHit:
         return sdk.bcm_field_qualify_MyStationHit( op.unit, e, U8( op.a ), U8( op.b ) );
      case qSrcClassField:
         return sdk.bcm_field_qualify_SrcClassField( op.unit, e, op.a, op.b );
      case qSrcIp:
         return sdk.bcm_field_qualify_SrcIp( op.unit, e, op.a, op.b );
      case qDstIp:
         return sdk.bcm_field_qualify_DstIp( op.unit, e, op.a, op.b );
      case qL4SrcPort:
         return sdk.bcm_field_qualify_L4SrcPort( op.unit, e, U16( op.a ), U16( op.b ) );
      case qL4DstPort:
         return sdk.bcm_field_qualify_L4DstPort( op.unit, e, U16( op.a ), U16( op.b ) );
      case qIpProtocol:
         return sdk.bcm_field_qualify_IpProtocol( op.unit, e, U8( op.a ), U8( op.b ) );
      case qTcpControl:
         return sdk.bcm_field_qualify_TcpControl( op.unit, e, U8( op.a ), U8( op.b ) );
      case qL3Ingress:
         return sdk.bcm_field_qualify_L3Ingress( op.unit, e, op.a, op.b );
      case qOpaqueObject1:
         return sdk.bcm_field_qualify_OpaqueObject1( op.unit, e, op.a, op.b );
      case qIpFrag:
         return sdk.bcm_field_qualify_IpFrag( op.unit, e, int( op.a ) );
      case qExactMatch:
         return sdk.bcm_field_qualify_ExactMatch( op.unit, e, op.a, op.c, op.b, op.text );
      case actionAdd:
         return sdk.bcm_field_action_add( op.unit, e, op.c, op.a, op.b );
      case actionRemoveAll:
         return sdk.bcm_field_action_remove_all( op.unit, e );
      default:
         return 0;
   }
}

void Replay::entryManagerCall( Op const& op, U32 e,
                               Corvane::CorvaneTcamEntryManager& em ) {
   switch ( op.kind ) {
      case getEntry: {
         U32 const id =
             em.getEntry( op.unit, texts_[op.text], CorvaneTcam::RequestKey() );
         if ( op.slot != ~0u ) {
            ids_[op.slot] = id;
            held_[op.slot] = id != 0;
         }
         break;
      }
      case setPriority:
         em.setPriorityForEntry( op.unit, e, op.c );
         break;
      case install:
         em.installEntry( op.unit, e );
         break;
      case reinstall:
         em.reinstallEntry( op.unit, e );
         break;
      case release:
         em.releaseEntry( op.unit, e );
         if ( op.slot != ~0u ) {
            held_[op.slot] = false;
         }
         break;
      case hits:
         em.hitsForEntry( op.unit, e );
         break;
      default:
         break;
   }
}

void Replay::run( std::size_t first, std::size_t last, Shim::Sdk& sdk,
                  Corvane::CorvaneTcamEntryManager& em ) {
   // The calls are made as a reaction makes them: under the activity lock, which the
   // plug-in gives up around every SDK call.
   Fwk::ActivityLock& lock = Fwk::ActivityLock::instance();
   bool const taken = !lock.held();
   if ( taken ) {
      lock.take();
   }
   int failed = 0;
   for ( std::size_t i = first; i < last; ++i ) {
      Op const& op = ops_[i];
      U32 const e = entry( op );
      if ( op.kind < getEntry ) {
         Fwk::ActivityLockRelease release;
         failed += sdkCall( op, e, sdk ) < 0;
      } else {
         entryManagerCall( op, e, em );
      }
   }
   if ( taken ) {
      lock.give();
   }
   if ( failed ) {
      std::fprintf( stderr, "bench: %d replayed SDK calls failed\n", failed );
      std::abort();
   }
}

std::vector<U32> Replay::getEntrySlots( std::size_t first, std::size_t last ) const {
   std::vector<U32> slots;
   for ( std::size_t i = first; i < last; ++i ) {
      if ( ops_[i].kind == getEntry && ops_[i].slot != ~0u ) {
         slots.push_back( ops_[i].slot );
      }
   }
   return slots;
}

void Replay::slotsCarry( std::vector<U32> const& from, std::vector<U32> const& to ) {
   if ( from.size() != to.size() ) {
      std::fprintf( stderr, "bench: rounds of entries differ (%zu, %zu)\n", from.size(),
                    to.size() );
      std::abort();
   }
   for ( std::size_t i = 0; i < from.size(); ++i ) {
      ids_[to[i]] = ids_[from[i]];
      held_[to[i]] = held_[from[i]];
      held_[from[i]] = false;
   }
}

void Replay::releaseAll( Corvane::CorvaneTcamEntryManager& em ) {
   for ( std::size_t slot = 0; slot < ids_.size(); ++slot ) {
      if ( held_[slot] ) {
         em.releaseEntry( 1, ids_[slot] );
         held_[slot] = false;
      }
   }
}

}  // namespace Bench
