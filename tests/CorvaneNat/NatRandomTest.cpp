// A randomized, model-based test of the NAT plug-in.
//
// Each seed plays random natsim steps (rules of every kind added, changed and removed;
// trap ACLs published, changed and removed; modules added and removed; mount-group
// readiness lost and regained; fragment handling switched; time; the multicast mode) on
// a chip whose TCAM is small enough to run out, through natsim's own Simulation. Before
// each step the model (NatRandomModel.h) says what the step must do; after it the test
// checks that:
//   1. every entry on the chip has exactly one owner (an entry-id table row, a trap
//      ACL's row, the implicit-deny entry, or a deleted worker, whose entries stay on the
//      chip unchanged for good), and every owned entry is installed;
//   2. the entry manager counts the chip's entries, and each worker owns what the model
//      counts;
//   3. each key's entries carry the qualifiers and actions its shadow data asks for, and
//      every entry a step changed was installed again afterwards;
//   4. doVerify passes, as natsim's verify step runs it, on every worker the model holds
//      verifiable;
//   5. the step's answers are exactly the model's, and a full TCAM raises one
//      CORVANE_NAT_TCAM_RESOURCE_FULL per key and VLAN refused.
// Steps that would stop the agent on one of its assertions are not generated (a
// multicast ingress source-side rule, a multicast rule without multicast uid).
//
// NAT_RANDOM_SEED=<n> plays that seed alone, NAT_RANDOM_STEPS=<n> sets the steps per
// seed (default 1000). A failure prints the seed and the steps played as a natsim
// scenario, also when the plug-in stops on an assertion. A seed stops playing after a
// soft wall-time cap (a safety net, not a test of speed).

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>

#include "CorvaneNat/NatMounter.h"
#include "CorvaneNat/NatWorkerSm.h"
#include "NatRandomModel.h"
#include "platform/chip/ChipModel.h"
#include "platform/chip/FieldProcessor.h"
#include "tools/natsim/Simulation.h"

namespace {

using json = nlohmann::ordered_json;
using namespace NatRandom;

constexpr U64 ciSeeds[] = { 1, 2, 3, 4, 5 };

U64 envNumber( char const* name, U64 fallback ) {
   char const* text = std::getenv( name );
   return text && *text ? std::strtoull( text, nullptr, 10 ) : fallback;
}

// The scenario played so far, also written when the plug-in stops the process.
struct Replay {
   char header[256] = "";
   std::string body;  // "{<config>, \"steps\": [\n  <step>,\n  <step>"
   std::size_t steps = 0;
   void stepAppend( std::string const& step ) {
      body += ( steps++ ? ",\n  " : "\n  " ) + step;
   }
   std::string text() const { return header + body + "\n]}\n"; }
};

Replay* activeReplay = nullptr;

extern "C" void onAbort( int ) {
   if ( Replay const* r = activeReplay ) {
      std::string const text = "\n" + r->text();
      for ( std::size_t done = 0; done < text.size(); ) {
         ssize_t const n =
             ::write( STDERR_FILENO, text.data() + done, text.size() - done );
         if ( n <= 0 ) {
            break;
         }
         done += std::size_t( n );
      }
   }
   ::signal( SIGABRT, SIG_DFL );
}

// --- Random steps ----------------------------------------------------------------------

class Generator {
public:
   explicit Generator( U64 seed ) : rng_( seed ) {}

   json config() {
      json modules = { { "1", 1 } };
      if ( chance( 0.5 ) ) {
         modules["2"] = 2;
      }
      addrOnlyMode_ = chance( 0.3 );
      return { { "chip",
                 { { "modules", modules },
                   { "tcamEntries", pick( 16, 64 ) },
                   { "trapFilters", chance( 0.85 ) } } },
               { "nat",
                 { { "addrOnlyMode", addrOnlyMode_ },
                   { "fragmentEnabled", chance( 0.4 ) } } } };
   }

   json next( Model const& model ) {
      for ( ;; ) {
         int const roll = int( pick( 0, 99 ) );
         if ( roll < 20 && slots_.size() < maxRules ) {
            return addRule( model );
         }
         if ( roll < 46 && !slots_.empty() ) {
            return changeRule();
         }
         if ( roll < 60 && !slots_.empty() ) {
            return removeRule();
         }
         if ( roll < 70 ) {
            return trapAcl();
         }
         if ( roll < 75 && !acls_.empty() ) {
            auto it = std::next( acls_.begin(), long( pick( 0, acls_.size() - 1 ) ) );
            json step = {
                { "trapAclRemove", { { "name", it->first }, { "vlan", it->second } } } };
            acls_.erase( it );
            return step;
         }
         if ( roll < 80 ) {
            U16 const m = U16( pick( 1, 3 ) );
            return { { "module", { { "modId", m }, { "unit", m } } } };
         }
         if ( roll < 82 && !model.modules.empty() ) {
            auto it = std::next( model.modules.begin(),
                                 long( pick( 0, model.modules.size() - 1 ) ) );
            return { { "moduleRemove", it->first } };
         }
         if ( roll < 85 ) {
            return { { "mountGroupReady", !model.ready } };
         }
         if ( roll < 94 ) {
            return { { "fragmentEnabled", chance( 0.6 ) } };
         }
         if ( roll < 98 ) {
            return { { "advance", double( pick( 1, 24 ) ) / 2 } };
         }
         return { { "mcastMode",
                    { { "types", json::array( { pick( 0, 5 ), pick( 0, 5 ) } ) } } } };
      }
   }

private:
   // Rules in the shadow at once, at most: enough to fill the small TCAMs.
   static constexpr std::size_t maxRules = 14;

   struct Slot {
      U32 uid;
      U16 mcastUid;
      json key, data, modules;
   };

   bool chance( double p ) {
      return std::uniform_real_distribution<double>( 0, 1 )( rng_ ) < p;
   }
   U64 pick( U64 lo, U64 hi ) {
      return std::uniform_int_distribution<U64>( lo, hi )( rng_ );
   }
   template <class T>
   T oneOf( std::vector<T> const& v ) {
      return v[pick( 0, v.size() - 1 )];
   }

   // A unique address per key: a.b.c.d with b and c taken from the key's serial.
   std::string addr( int a, int d ) const {
      return std::to_string( a ) + "." + std::to_string( serial_ / 250 ) + "." +
             std::to_string( serial_ % 250 ) + "." + std::to_string( d );
   }
   std::string withPort( std::string address, double p ) {
      return chance( p ) ? address + ":" + std::to_string( pick( 1, 65535 ) ) : address;
   }

   json key( U32 type ) {
      ++serial_;
      json k = { { "type", type } };
      if ( type == 1 ) {
         k["srcOld"] = withPort( addr( 10, 1 ), 0.4 );
         k["srcNew"] = withPort( addr( 1, 1 ), 0.4 );
      } else if ( type == 2 ) {
         k["dstOld"] = withPort( addr( chance( 0.5 ) ? 20 : 230, 1 ), 0.4 );
         k["dstNew"] = withPort( addr( 11, 2 ), 0.4 );
      } else if ( type <= 4 ) {
         k["srcOld"] = withPort( addr( 12, 1 ), 0.4 );
         k["dstOld"] = withPort( addr( 22, 1 ), 0.4 );
         k["srcNew"] = withPort( addr( 2, 1 ), 0.4 );
         k["dstNew"] = withPort( addr( 3, 1 ), 0.4 );
      } else {
         // Dynamic keys the hardware mode holds; now and then one it does not
         // (answered without programming).
         bool const skipped = chance( 0.15 );
         bool const source = type == 5;
         std::string const own = addr( source ? 13 : 23, 1 );
         char const* ownField = source ? "srcOld" : "dstOld";
         if ( addrOnlyMode_ ) {
            k[ownField] = withPort( own, 0.5 );
            if ( !skipped ) {
               k[source ? "dstOld" : "srcOld"] = addr( source ? 24 : 14, 1 );
            }
         } else {
            k[ownField] = skipped ? own + ":" + std::to_string( pick( 1, 65535 ) ) : own;
         }
         k[source ? "dstNew" : "srcNew"] = addr( 4, 1 );
         k["proto"] = oneOf<int>( { 0, 6, 17 } );
      }
      k["aclId"] = chance( 0.5 ) ? 0 : pick( 1, 5 );
      return k;
   }

   json vlans( bool perVlan ) {
      json v = json::array();
      for ( std::size_t n = perVlan ? pick( 0, 4 ) : pick( 0, 1 ); n > 0; --n ) {
         U16 const vlan = U16( 10 * pick( 1, 6 ) );
         if ( chance( 0.1 ) || std::find( v.begin(), v.end(), vlan ) == v.end() ) {
            v.push_back( vlan );  // now and then a VLAN is listed twice
         }
      }
      return v;
   }
   json nextHop() {
      switch ( pick( 0, 4 ) ) {
         case 0:
            return 0;
         case 1:
            return "0xffffffffffffffff";
         case 2:
            return pick( 1, 20 );
         case 3:
            return 0x8000000 | pick( 1, 20 );
         default:
            return ( U64( 1 ) << 40 ) | pick( 1, 20 );
      }
   }
   json filter() {
      switch ( pick( 0, 3 ) ) {
         case 2:
            return "100." + std::to_string( pick( 0, 255 ) ) + ".0.0/16";
         case 3:
            return "100.1.2." + std::to_string( pick( 1, 254 ) ) + "/32";
         default:
            return "0.0.0.0/0";
      }
   }
   json ruleStep( Slot& s ) {
      // A source-side static or twice key is programmed without VLAN: never multicast
      // at ingress.
      if ( ( s.key["type"] == 1 || s.key["type"] == 3 ) && s.data["multicast"] == true ) {
         s.data["ingress"] = false;
      }
      return { { "natRule",
                 { { "uid", s.uid },
                   { "mcastUid", s.mcastUid },
                   { "key", s.key },
                   { "data", s.data },
                   { "modules", s.modules },
                   { "field", pick( 0, 3 ) } } } };
   }

   json addRule( Model const& model ) {
      Slot s{ nextUid_++, U16( pick( 1, 65535 ) ), key( U32( pick( 1, 6 ) ) ), {}, {} };
      U32 const type = s.key["type"];
      bool const multicast = chance( 0.2 );
      s.data = { { "protocol", oneOf<int>( { 0, 0, 6, 17 } ) },
                 { "filterAddr", filter() },
                 { "nextHop", nextHop() },
                 { "vlans", vlans( type == 2 || type == 4 || type == 6 ) },
                 { "staticAclSharing", chance( 0.3 ) },
                 { "mcastGroupId", multicast && chance( 0.6 ) ? pick( 1, 100 ) : 0 },
                 { "multicast", multicast },
                 { "ingress", chance( 0.5 ) } };
      s.modules = json::array();
      if ( chance( 0.7 ) ) {
         for ( auto const& m : model.modules ) {
            s.modules.push_back( m.first );
         }
      }
      for ( U16 m = 1; s.modules.empty() && m <= 3; ++m ) {
         if ( chance( 0.5 ) || m == 3 ) {
            s.modules.push_back( m );
         }
      }
      slots_.push_back( s );
      return ruleStep( slots_.back() );
   }

   json changeRule() {
      Slot& s = slots_[pick( 0, slots_.size() - 1 )];
      json& d = s.data;
      for ( U64 n = pick( 1, 3 ); n > 0; --n ) {
         switch ( pick( 0, 7 ) ) {
            case 0:  // VLANs more
               for ( auto const& v : vlans( true ) ) {
                  d["vlans"].push_back( v );
               }
               break;
            case 1:  // a VLAN less
               if ( !d["vlans"].empty() ) {
                  d["vlans"].erase( d["vlans"].begin() +
                                    long( pick( 0, d["vlans"].size() - 1 ) ) );
               }
               break;
            case 2:
               d["nextHop"] = nextHop();
               break;
            case 3:
               d["protocol"] = oneOf<int>( { 0, 6, 17 } );
               break;
            case 4:
               d["filterAddr"] = filter();
               d["staticAclSharing"] = chance( 0.3 );
               break;
            case 5:
               d["multicast"] = !d["multicast"].get<bool>();
               break;
            case 6:
               d["mcastGroupId"] = chance( 0.5 ) ? pick( 1, 100 ) : 0;
               break;
            default:
               d["ingress"] = !d["ingress"].get<bool>();
         }
      }
      return ruleStep( s );
   }

   json removeRule() {
      std::size_t const i = pick( 0, slots_.size() - 1 );
      json step = { { "natRuleRemove",
                      { { "uid", slots_[i].uid },
                        { "key", slots_[i].key },
                        { "field", pick( 0, 3 ) } } } };
      slots_.erase( slots_.begin() + long( i ) );
      return step;
   }

   json trapAcl() {
      std::string const name = oneOf<std::string>( { "a", "b", "c" } );
      U16 const vlan = oneOf<U16>( { 10, 20 } );
      json rules = json::array();
      for ( U64 n = pick( 0, 3 ), seq = 10; n > 0; --n, seq += 10 ) {
         rules.push_back(
             { { "seq", seq },
               { "permit", chance( 0.6 ) },
               { "src",
                 oneOf<std::string>( { "10.0.0.0/8", "10.1.0.0/16", "0.0.0.0/0" } ) },
               { "dst", oneOf<std::string>( { "0.0.0.0/0", "8.8.0.0/16" } ) },
               { "pool", chance( 0.25 ) } } );
      }
      acls_.insert( { name, vlan } );
      return { { "trapAcl",
                 { { "name", name },
                   { "vlan", vlan },
                   { "implicitDeny", chance( 0.4 ) },
                   { "rules", rules } } } };
   }

   std::mt19937_64 rng_;
   bool addrOnlyMode_ = false;
   U32 serial_ = 0;
   U32 nextUid_ = 1;
   std::vector<Slot> slots_;
   std::set<std::pair<std::string, U16>> acls_;
};

// --- What an entry holds, as text ------------------------------------------------------

std::string entryText( std::map<Qualifier, std::pair<U32, U32>> const& quals,
                       std::vector<Chip::ActionRecord> const& actions, U32 priority,
                       bool installed ) {
   std::ostringstream out;
   for ( auto const& q : quals ) {
      out << Chip::qualifierName( q.first ) << "=" << q.second.first << "/"
          << q.second.second << " ";
   }
   out << "|";
   for ( auto const& a : actions ) {
      out << " " << Chip::actionName( a.action ) << "(" << a.param0 << "," << a.param1
          << ")";
   }
   out << " prio " << priority << ( installed ? " installed" : " NOT installed" );
   return out.str();
}

std::string chipEntryText( Chip::FpEntry const& entry ) {
   std::map<Qualifier, std::pair<U32, U32>> quals;
   for ( Qualifier q : entry.qualifiers() ) {
      quals[q] = q == Qualifier::IpFrag ? std::make_pair( U32( entry.ipFrag() ), 0u )
                                        : std::make_pair( entry.qualifier( q ).data,
                                                          entry.qualifier( q ).mask );
   }
   return entryText( quals, entry.actions(), entry.priority(), entry.installed() );
}

// The path of the plug-in library this test is linked with: loading it again yields
// the library already loaded.
std::string pluginPath() {
   Dl_info info{};
   if ( ::dladdr( reinterpret_cast<void*>( &Corvane::needsFragEntry ), &info ) == 0 ||
        !info.dli_fname ) {
      return "libCorvaneNatSliceWorker.so";
   }
   return info.dli_fname;
}

// --- One seed --------------------------------------------------------------------------

class SeedRun {
public:
   SeedRun( U64 seed, U32 steps ) : seed_( seed ), steps_( steps ), gen_( seed ) {}
   ~SeedRun() { activeReplay = nullptr; }

   void play() {
      json const config = gen_.config();
      replay_.body = config.dump();
      replay_.body.pop_back();
      replay_.body += ", \"steps\": [";
      natsim::Scenario scenario;
      natsim::ScenarioError error;
      ASSERT_TRUE( natsim::parseScenario( config.dump(), &scenario, &error ) )
          << error.what();
      chip_ = scenario.chip;
      natsim::Options options;
      options.pluginPath = pluginPath();
      sim_ = std::make_unique<natsim::Simulation>( scenario, options );
      std::string startError;
      ASSERT_TRUE( sim_->start( &startError ) ) << startError;
      model_ = std::make_unique<Model>( scenario.chip, scenario.nat,
                                        Orders{ [this] { return requestOrder(); },
                                                [this] { return trapAclOrder(); } } );
      activeReplay = &replay_;
      ::signal( SIGABRT, onAbort );
      auto const begin = std::chrono::steady_clock::now();
      std::string problem = checkChip();
      for ( generated_ = 0; generated_ < steps_ && problem.empty(); ++generated_ ) {
         if ( std::chrono::steady_clock::now() - begin > std::chrono::seconds( 20 ) ) {
            std::printf( "seed %llu: stopped after %u steps (wall-time cap)\n",
                         ( unsigned long long )seed_, generated_ );
            break;
         }
         problem = playStep( gen_.next( *model_ ) );
      }
      ::signal( SIGABRT, SIG_DFL );
      if ( !problem.empty() ) {
         ADD_FAILURE() << problem << "\n" << replay_.text();
      }
   }

private:
   void append( json const& step ) {
      replay_.stepAppend( step.dump() );
      std::snprintf(
          replay_.header, sizeof( replay_.header ),
          "NatRandomTest: seed %llu, step %zu; replay with NAT_RANDOM_SEED=%llu "
          "NAT_RANDOM_STEPS=%u, or play the scenario below with natsim run:\n",
          ( unsigned long long )seed_, replay_.steps - 1, ( unsigned long long )seed_,
          generated_ + 1 );
   }

   std::string playStep( json const& stepJson ) {
      append( stepJson );
      std::string const where =
          "step " + std::to_string( replay_.steps - 1 ) + " " + stepJson.dump() + ": ";
      natsim::Step step;
      natsim::ScenarioError error;
      if ( !natsim::parseStep( stepJson.dump(), chip_, &step, &error ) ) {
         return where + "natsim refuses the step: " + error.what();
      }
      model_->play( step );
      // The entries of the units whose worker is about to go become orphans.
      for ( U16 unit : model_->deletedUnits ) {
         if ( Chip::ChipUnit const* u = sim_->platform().chip().unit( unit ) ) {
            for ( U32 id : u->fieldProcessor().entryIds() ) {
               orphans_[unit].emplace(
                   id, chipEntryText( *u->fieldProcessor().entry( id ) ) );
            }
         }
      }
      json result;
      try {
         result = json::parse( sim_->playOne( step ) );
      } catch ( std::exception const& e ) {
         return where + "the step raised: " + e.what();
      }
      std::string problem = checkStep( result );
      if ( problem.empty() ) {
         problem = checkChip();
      }
      if ( problem.empty() ) {
         problem = verify();
      }
      return problem.empty() ? "" : where + problem;
   }

   std::vector<U32> requestOrder() {
      std::vector<U32> uids;
      auto dir =
          sim_->platform().agent().sharedMem->getEntity<Xact::XactSluiceConfigDir const>(
              "corvanenat/ingXactSluiceConfigDir" );
      if ( dir ) {
         for ( auto const& request : *dir ) {
            uids.push_back( request.first.uid().value() );
         }
      }
      return uids;
   }
   std::vector<Oro::NatTrapKey> trapAclOrder() {
      std::vector<Oro::NatTrapKey> keys;
      for ( auto const& acl : sim_->platform().trapConfig().trapAcl() ) {
         keys.push_back( acl.first );
      }
      return keys;
   }

   Corvane::NatWorkerSm* worker( U16 modId ) const {
      auto mounter = dynamic_cast<Corvane::NatMounter*>( sim_->mounter() );
      auto root = mounter ? mounter->rootSm() : nullptr;
      return root ? root->natWorkerSm( modId ).ptr() : nullptr;
   }

   std::string checkStep( json const& result ) {
      std::vector<AnswerExpect> actual, expected = model_->answers;
      for ( auto const& a : result["answers"] ) {
         actual.push_back( { a["module"].get<U16>(), a["uid"].get<U32>(),
                             Result( a["result"].get<U32>() ), a["field"].get<U32>() } );
      }
      std::sort( actual.begin(), actual.end() );
      std::sort( expected.begin(), expected.end() );
      if ( actual != expected ) {
         auto list = []( std::vector<AnswerExpect> const& v ) {
            std::string out;
            for ( auto const& a : v ) {
               out += " (mod " + std::to_string( a.module ) + " uid " +
                      std::to_string( a.uid ) + " result " + std::to_string( a.result ) +
                      " field " + std::to_string( a.field ) + ")";
            }
            return out.empty() ? " none" : out;
         };
         return "answers:" + list( actual ) + "; expected:" + list( expected );
      }
      U32 full = 0;
      for ( auto const& e : result["events"] ) {
         full += e["name"] == "CORVANE_NAT_TCAM_RESOURCE_FULL" ? 1 : 0;
      }
      if ( full != model_->natFullEvents ) {
         return "CORVANE_NAT_TCAM_RESOURCE_FULL raised " + std::to_string( full ) +
                " times, expected " + std::to_string( model_->natFullEvents );
      }
      if ( !result["problems"].empty() ) {
         return "natsim reports " + result["problems"].dump();
      }
      // The chip model applies a change to an installed entry at once, the hardware only
      // when it is installed again: every entry a step changed must be installed or
      // reinstalled after its last change (or released).
      std::map<std::pair<int, U32>, std::string> changed;
      for ( auto const& r : result["journal"] ) {
         if ( !r.contains( "entry" ) ) {
            continue;
         }
         std::string const call = r["call"];
         std::pair<int, U32> const entry{ r["unit"].get<int>(), r["entry"].get<U32>() };
         if ( call == "installEntry" || call == "reinstallEntry" ||
              call == "releaseEntry" ) {
            changed.erase( entry );
         } else if ( call.find( "_get" ) == std::string::npos &&
                     ( call.rfind( "bcm_field_qualify_", 0 ) == 0 ||
                       call.rfind( "bcm_field_action_", 0 ) == 0 ) ) {
            changed[entry] = call;
         }
      }
      return changed.empty()
                 ? ""
                 : "entry " + std::to_string( changed.begin()->first.second ) +
                       " changed by " + changed.begin()->second +
                       " and not installed again";
   }

   std::string checkChip() {
      for ( U16 modId = 1; modId <= 3; ++modId ) {
         auto expected = model_->workers.find( modId );
         Corvane::NatWorkerSm* w = worker( modId );
         if ( bool( w ) != ( expected != model_->workers.end() ) ) {
            return "module " + std::to_string( modId ) + ( w ? " has a" : " has no" ) +
                   " worker";
         }
         if ( w && w->initialized() != expected->second.initialized ) {
            return "worker " + std::to_string( modId ) + " initialized " +
                   std::to_string( w->initialized() );
         }
      }
      for ( int unit : sim_->platform().chip().units() ) {
         std::string problem = checkUnit( U16( unit ) );
         if ( !problem.empty() ) {
            return "unit " + std::to_string( unit ) + ": " + problem;
         }
      }
      return "";
   }

   std::string checkUnit( U16 unit ) {
      Chip::FieldProcessor const& fp =
          sim_->platform().chip().unit( unit )->fieldProcessor();
      Corvane::NatWorkerSm* w = worker( unit );
      std::map<U32, std::string> owner;
      std::string problem;
      auto own = [&]( U32 id, std::string who ) {
         if ( !owner.emplace( id, who ).second && problem.empty() ) {
            problem = "entry " + std::to_string( id ) + " owned twice: " + owner[id] +
                      " and " + who;
         }
      };
      if ( w && w->entryIdTable() ) {
         for ( auto const& row : *w->entryIdTable() ) {
            for ( auto const& p : row.defaultEntryIds() ) {
               own( p.entryId, "default entry of " + row.key().stringValue() );
            }
            for ( auto const& p : row.fragEntryIds() ) {
               own( p.entryId, "fragment entry of " + row.key().stringValue() );
            }
         }
      }
      if ( w && w->trapSm() ) {
         for ( auto const& row : w->trapSm()->tcamEntryMap() ) {
            for ( U32 id : row.second.entryId() ) {
               own( id, "trap ACL " + row.first.stringValue() );
            }
         }
         if ( w->trapSm()->implicitDenyEntryId() ) {
            own( w->trapSm()->implicitDenyEntryId(), "implicit deny" );
         }
      }
      auto const& orphans = orphans_[unit];
      for ( auto const& o : owner ) {
         Chip::FpEntry const* entry = fp.entry( o.first );
         if ( problem.empty() &&
              ( !entry || !entry->installed() || orphans.count( o.first ) ) ) {
            problem = "entry " + std::to_string( o.first ) + " of " + o.second +
                      ( !entry                ? " is not on the chip"
                        : !entry->installed() ? " is not installed"
                                              : " is a deleted worker's" );
         }
      }
      for ( U32 id : fp.entryIds() ) {
         if ( problem.empty() && !owner.count( id ) && !orphans.count( id ) ) {
            problem = "entry " + std::to_string( id ) + " (" +
                      fp.entry( id )->description() + ") has no owner";
         }
      }
      for ( auto const& o : orphans ) {
         if ( problem.empty() && ( !fp.entry( o.first ) ||
                                   chipEntryText( *fp.entry( o.first ) ) != o.second ) ) {
            problem =
                "entry " + std::to_string( o.first ) + " of a deleted worker changed";
         }
      }
      if ( !problem.empty() ) {
         return problem;
      }
      auto manager =
          sim_->platform().tcamManager().unboundedEntryManager( natsim::natGroup );
      if ( manager->entriesAllocated( unit ) != fp.entries() ) {
         return "entries allocated " +
                std::to_string( manager->entriesAllocated( unit ) ) + ", on the chip " +
                std::to_string( fp.entries() );
      }
      U32 const orphaned = model_->orphans.count( unit ) ? model_->orphans.at( unit ) : 0;
      if ( orphans.size() != orphaned || owner.size() != model_->owned( unit ) ) {
         return "entries owned " + std::to_string( owner.size() ) + " and orphaned " +
                std::to_string( orphans.size() ) + ", expected " +
                std::to_string( model_->owned( unit ) ) + " and " +
                std::to_string( orphaned );
      }
      auto expected = model_->workers.find( unit );
      if ( expected == model_->workers.end() || !expected->second.initialized ) {
         return "";
      }
      problem = checkRows( *w, expected->second, fp );
      return problem.empty() ? checkTrap( *w, expected->second ) : problem;
   }

   // Each key's entries, VLAN by VLAN, against the model's.
   std::string checkRows( Corvane::NatWorkerSm& w, WorkerExpect const& expected,
                          Chip::FieldProcessor const& fp ) {
      Corvane::EntryIdTable const& table = *w.entryIdTable();
      if ( table.entrys() != expected.rows.size() ) {
         return "entry-id table has " + std::to_string( table.entrys() ) +
                " rows, expected " + std::to_string( expected.rows.size() );
      }
      for ( auto const& [key, row] : expected.rows ) {
         if ( !table.entryHas( key ) ) {
            return "no row for " + key.stringValue();
         }
         Corvane::EntryIdTableEntry const actual = table.entry( key );
         for ( bool frag : { false, true } ) {
            auto const& vlans = frag ? row.frags : row.defaults;
            auto const& ids = frag ? actual.fragEntryIds() : actual.defaultEntryIds();
            std::string const what =
                key.stringValue() + ( frag ? ": fragment" : ": default" );
            if ( ids.size() != vlans.size() ) {
               return what + " entries " + std::to_string( ids.size() ) + ", expected " +
                      std::to_string( vlans.size() );
            }
            for ( auto const& [vlan, e] : vlans ) {
               if ( !ids.has( vlan ) ) {
                  return what + " entry missing on VLAN " + std::to_string( vlan );
               }
               std::string const have = chipEntryText( *fp.entry( ids.entryId( vlan ) ) );
               std::string const want = entryText( e.quals, e.actions, 0x7fffffff, true );
               if ( have != want ) {
                  return what + " entry on VLAN " + std::to_string( vlan ) +
                         "\n   holds " + have + "\n expected " + want;
               }
            }
         }
      }
      return "";
   }

   std::string checkTrap( Corvane::NatWorkerSm& w, WorkerExpect const& expected ) {
      if ( !expected.hasTrapSm || !w.trapSm() ) {
         return expected.hasTrapSm == bool( w.trapSm() ) ? ""
                                                         : "trap state machine wrong";
      }
      std::map<Oro::NatTrapKey, U32> rows;
      for ( auto const& row : w.trapSm()->tcamEntryMap() ) {
         rows[row.first] = U32( row.second.entryId().size() );
      }
      if ( rows != expected.trapRows ) {
         return "trap ACLs hold other entries than expected";
      }
      if ( ( w.trapSm()->implicitDenyEntryId() != 0 ) != expected.implicitDeny ) {
         return expected.implicitDeny ? "no implicit-deny entry"
                                      : "an implicit-deny entry";
      }
      return "";
   }

   // doVerify, as natsim's verify step runs it, on every worker that must pass it.
   std::string verify() {
      for ( auto const& w : model_->workers ) {
         if ( model_->verifiable( w.first ) ) {
            append( { { "verify", w.first } } );
            json const result =
                json::parse( sim_->playOne( natsim::VerifyStep{ w.first } ) );
            if ( !result["problems"].empty() ) {
               return "verify: " + result["problems"].dump();
            }
            // Six qualifiers of every NAT entry are read back.
            std::size_t reads = 0, entries = 0;
            for ( auto const& r : result["journal"] ) {
               reads += r["call"].get<std::string>().find( "_get" ) != std::string::npos;
            }
            for ( auto const& row : *worker( w.first )->entryIdTable() ) {
               entries += row.defaultEntryIds().size() + row.fragEntryIds().size();
            }
            if ( reads != 6 * entries ) {
               return "verify read " + std::to_string( reads ) + " qualifiers of " +
                      std::to_string( entries ) + " entries";
            }
         }
      }
      return "";
   }

   U64 seed_;
   U32 steps_;
   U32 generated_ = 0;  // steps the generator has made (the replay also has verify steps)
   Generator gen_;
   Replay replay_;
   natsim::ChipConfig chip_;
   std::unique_ptr<natsim::Simulation> sim_;
   std::unique_ptr<Model> model_;
   // Per unit, the entries of deleted workers and what they held.
   std::map<U16, std::map<U32, std::string>> orphans_;
};

class NatRandomSteps : public ::testing::TestWithParam<std::size_t> {};

TEST_P( NatRandomSteps, RandomStepsKeepTheInvariants ) {
   U64 const replaySeed = envNumber( "NAT_RANDOM_SEED", 0 );
   if ( replaySeed && GetParam() != 0 ) {
      GTEST_SKIP() << "NAT_RANDOM_SEED plays one seed";
   }
   SeedRun run( replaySeed ? replaySeed : ciSeeds[GetParam()],
                U32( envNumber( "NAT_RANDOM_STEPS", 1000 ) ) );
   run.play();
}

INSTANTIATE_TEST_SUITE_P( Seeds, NatRandomSteps,
                          ::testing::Range( std::size_t( 0 ), std::size( ciSeeds ) ) );

}  // namespace
