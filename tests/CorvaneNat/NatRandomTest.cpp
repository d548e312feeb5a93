// A randomized, model-based test of the NAT plug-in. Each seed plays random natsim steps
// (rules of every kind added, changed and removed; modules added and removed; mount-group
// readiness lost and regained; fragment handling switched; time) on a chip whose TCAM is
// small enough to run out. Before each step the model (NatRandomModel.h) says what the
// step must do; after it the test checks the answers and CORVANE_NAT_TCAM_RESOURCE_FULL
// events, that every entry on the chip belongs to a row of its worker (or to a deleted
// worker, unchanged) and holds what the model says, installed after its last change, and
// that doVerify passes, reading six qualifiers of each entry back. Steps that would stop
// the agent on one of its assertions are not generated.
//
// NAT_RANDOM_SEED=<n> plays that seed alone, NAT_RANDOM_STEPS=<n> sets the steps per
// seed (default 1000). A failure prints the steps played as a natsim scenario; an
// assertion that stops the plug-in, the configuration and the steps.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
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

// The scenario played so far, written out when an assertion of the plug-in stops the
// process.
std::string played;
extern "C" void onAbort( int ) {
   char const header[] =
       "\nNatRandomTest: the plug-in stopped; configuration and steps:\n";
   [[maybe_unused]] ssize_t n = ::write( STDERR_FILENO, header, sizeof( header ) - 1 );
   n = ::write( STDERR_FILENO, played.data(), played.size() );
}

U64 envNumber( char const* name, U64 fallback ) {
   char const* text = std::getenv( name );
   return text && *text ? std::strtoull( text, nullptr, 10 ) : fallback;
}

// --- Random steps ----------------------------------------------------------------------

class Generator {
public:
   explicit Generator( U64 seed ) : rng_( seed ) {}

   json config() {
      json const modules =
          chance( 0.5 ) ? json{ { "1", 1 } } : json{ { "1", 1 }, { "2", 2 } };
      addrOnlyMode_ = chance( 0.3 );
      return { { "chip",
                 { { "modules", modules },
                   { "tcamEntries", pick( 16, 64 ) },
                   { "trapFilters", chance( 0.5 ) } } },
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
            std::size_t const i = pick( 0, slots_.size() - 1 );
            json step = { { "natRuleRemove",
                            { { "uid", slots_[i].uid },
                              { "key", slots_[i].key },
                              { "field", pick( 0, 3 ) } } } };
            slots_.erase( slots_.begin() + long( i ) );
            return step;
         }
         if ( roll < 70 ) {
            U16 const m = U16( pick( 1, 3 ) );
            return { { "module", { { "modId", m }, { "unit", m } } } };
         }
         if ( roll < 73 && !model.modules.empty() ) {
            auto it = std::next( model.modules.begin(),
                                 long( pick( 0, model.modules.size() - 1 ) ) );
            return { { "moduleRemove", it->first } };
         }
         if ( roll < 77 ) {
            return { { "mountGroupReady", !model.ready } };
         }
         if ( roll < 92 ) {
            return { { "fragmentEnabled", chance( 0.6 ) } };
         }
         return { { "advance", double( pick( 1, 24 ) ) / 2 } };
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

   // A unique address per key: a.b.c.d with b and c taken from the key's serial, now
   // and then with a port.
   std::string addr( int a, int d, double portChance = 0.0 ) {
      std::string text = std::to_string( a ) + "." + std::to_string( serial_ / 250 ) +
                         "." + std::to_string( serial_ % 250 ) + "." +
                         std::to_string( d );
      return chance( portChance ) ? text + ":" + std::to_string( pick( 1, 65535 ) )
                                  : text;
   }

   // Static keys translate one side, twice keys both (some destinations multicast);
   // dynamic keys are those the hardware mode holds, now and then one it does not
   // (answered without programming).
   json key( U32 type ) {
      ++serial_;
      json k = { { "type", type }, { "aclId", chance( 0.5 ) ? 0 : pick( 1, 5 ) } };
      if ( type <= 4 ) {
         if ( type != 2 ) {
            k["srcOld"] = addr( 12, 1, 0.4 );
            k["srcNew"] = addr( 2, 1, 0.4 );
         }
         if ( type != 1 ) {
            k["dstOld"] = addr( type == 2 && chance( 0.5 ) ? 230 : 22, 1, 0.4 );
            k["dstNew"] = addr( 3, 1, 0.4 );
         }
         return k;
      }
      bool const skipped = chance( 0.15 ), source = type == 5;
      char const* own = source ? "srcOld" : "dstOld";
      if ( addrOnlyMode_ ) {
         k[own] = addr( source ? 13 : 23, 1, 0.5 );
         if ( !skipped ) {
            k[source ? "dstOld" : "srcOld"] = addr( source ? 24 : 14, 1 );
         }
      } else {
         k[own] = addr( source ? 13 : 23, 1, skipped ? 1.0 : 0.0 );
      }
      k[source ? "dstNew" : "srcNew"] = addr( 4, 1 );
      k["proto"] = oneOf<int>( { 0, 6, 17 } );
      return k;
   }

   json vlans( U32 n ) {
      json v = json::array();
      for ( ; n > 0; --n ) {
         U16 const vlan = U16( 10 * pick( 1, 6 ) );
         if ( chance( 0.1 ) || std::find( v.begin(), v.end(), vlan ) == v.end() ) {
            v.push_back( vlan );  // now and then a VLAN is listed twice
         }
      }
      return v;
   }
   // Data of every field: next hops that drop, leave alone, are unicast, multipath or
   // have high bits set; filters of every length.
   json data( U32 type ) {
      bool const multicast = chance( 0.2 );
      bool const perVlan = type == 2 || type == 4 || type == 6;
      return {
          { "protocol", oneOf<int>( { 0, 0, 6, 17 } ) },
          { "filterAddr",
            oneOf<json>( { "0.0.0.0/0", "0.0.0.0/0",
                           "100." + std::to_string( pick( 0, 255 ) ) + ".0.0/16",
                           "100.1.2." + std::to_string( pick( 1, 254 ) ) + "/32" } ) },
          { "nextHop", oneOf<json>( { 0, "0xffffffffffffffff", pick( 1, 20 ),
                                      0x8000000 | pick( 1, 20 ),
                                      ( U64( 1 ) << 40 ) | pick( 1, 20 ) } ) },
          { "vlans", vlans( U32( perVlan ? pick( 0, 4 ) : pick( 0, 1 ) ) ) },
          { "staticAclSharing", chance( 0.3 ) },
          { "mcastGroupId", multicast && chance( 0.6 ) ? pick( 1, 100 ) : 0 },
          { "multicast", multicast },
          { "ingress", chance( 0.5 ) } };
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

   // On modules of the map, or on others too.
   json addRule( Model const& model ) {
      Slot s{ nextUid_++, U16( pick( 1, 65535 ) ), key( U32( pick( 1, 6 ) ) ), {}, {} };
      s.data = data( s.key["type"] );
      s.modules = json::array();
      for ( U16 m = 1; m <= 3; ++m ) {
         if ( chance( model.modules.count( m ) ? 0.8 : 0.3 ) ) {
            s.modules.push_back( m );
         }
      }
      if ( s.modules.empty() ) {
         s.modules.push_back( 1 );
      }
      slots_.push_back( s );
      return ruleStep( slots_.back() );
   }

   // One to three fields of the data change: a flag flips, VLANs come or go, another
   // field takes a new value.
   json changeRule() {
      Slot& s = slots_[pick( 0, slots_.size() - 1 )];
      json& d = s.data;
      json const fresh = data( s.key["type"] );
      for ( U64 n = pick( 1, 3 ); n > 0; --n ) {
         auto field = std::next( fresh.begin(), long( pick( 0, fresh.size() - 1 ) ) );
         json& old = d[field.key()];
         if ( old.is_boolean() ) {
            old = !old.get<bool>();
         } else if ( field.key() != "vlans" ) {
            old = field.value();
         } else if ( chance( 0.5 ) && !old.empty() ) {
            old.erase( old.begin() + long( pick( 0, old.size() - 1 ) ) );
         } else {
            for ( auto const& v : vlans( U32( pick( 1, 4 ) ) ) ) {
               old.push_back( v );
            }
         }
      }
      return ruleStep( s );
   }

   std::mt19937_64 rng_;
   bool addrOnlyMode_ = false;
   U32 serial_ = 0;
   U32 nextUid_ = 1;
   std::vector<Slot> slots_;
};

// --- One seed --------------------------------------------------------------------------

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

class SeedRun {
public:
   SeedRun( U64 seed, U32 steps ) : seed_( seed ), steps_( steps ), gen_( seed ) {}

   void play() {
      scenario_ = gen_.config();
      natsim::Scenario scenario;
      natsim::ScenarioError error;
      ASSERT_TRUE( natsim::parseScenario( scenario_.dump(), &scenario, &error ) );
      scenario_["steps"] = json::array();
      chip_ = scenario.chip;
      natsim::Options options;
      // The library this test is linked with: loading it again yields the one loaded.
      options.pluginPath = NAT_PLUGIN_PATH;
      sim_ = std::make_unique<natsim::Simulation>( scenario, options );
      std::string why;
      ASSERT_TRUE( sim_->start( &why ) ) << why;
      model_ = std::make_unique<Model>( scenario.chip, scenario.nat,
                                        [this] { return requestOrder(); } );
      played = scenario_.dump() + "\n";  // the configuration, then a step a line
      ::signal( SIGABRT, onAbort );
      std::string problem = checkChip();
      for ( generated_ = 0; generated_ < steps_ && problem.empty(); ++generated_ ) {
         problem = playStep( gen_.next( *model_ ) );
      }
      ::signal( SIGABRT, SIG_DFL );
      if ( !problem.empty() ) {
         ADD_FAILURE() << problem << "\nReplay with NAT_RANDOM_SEED=" << seed_
                       << " NAT_RANDOM_STEPS=" << generated_ + 1
                       << ", or play this scenario with natsim run:\n"
                       << scenario_.dump( 1 );
      }
   }

private:
   std::string playStep( json const& stepJson ) {
      scenario_["steps"].push_back( stepJson );
      played += stepJson.dump() + "\n";
      std::string const where = "step " +
                                std::to_string( scenario_["steps"].size() - 1 ) + " " +
                                stepJson.dump() + ": ";
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
      problem = problem.empty() ? checkChip() : problem;
      problem = problem.empty() ? verify() : problem;
      return problem.empty() ? "" : where + problem;
   }

   std::vector<U32> requestOrder() {
      std::vector<U32> uids;
      for ( auto const& request :
            *sim_->platform()
                 .agent()
                 .sharedMem->getEntity<Xact::XactSluiceConfigDir const>(
                     "corvanenat/ingXactSluiceConfigDir" ) ) {
         uids.push_back( request.first.uid().value() );
      }
      return uids;
   }

   Corvane::NatWorkerSm* worker( U16 modId ) const {
      auto mounter = dynamic_cast<Corvane::NatMounter*>( sim_->mounter() );
      auto root = mounter ? mounter->rootSm() : nullptr;
      return root ? root->natWorkerSm( modId ).ptr() : nullptr;
   }

   std::string checkStep( json const& result ) {
      std::vector<std::array<U32, 4>> actual, expected = model_->answers;
      for ( auto const& a : result["answers"] ) {
         actual.push_back( { a["module"], a["uid"], a["result"], a["field"] } );
      }
      std::sort( actual.begin(), actual.end() );
      std::sort( expected.begin(), expected.end() );
      if ( actual != expected ) {
         return "answers (module, uid, result, field) " + json( actual ).dump() +
                ", expected " + json( expected ).dump();
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
         if ( bool( w ) != ( expected != model_->workers.end() ) ||
              ( w && w->initialized() != expected->second.initialized ) ) {
            return "worker of module " + std::to_string( modId ) + ": " +
                   ( w ? w->initialized() ? "initialized" : "not initialized" : "none" );
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

   // What each entry of the unit holds, against the worker's rows (the model's entries)
   // and the deleted workers' entries as they were.
   std::string checkUnit( U16 unit ) {
      Chip::FieldProcessor const& fp =
          sim_->platform().chip().unit( unit )->fieldProcessor();
      Corvane::NatWorkerSm* w = worker( unit );
      std::map<U32, std::string> want = orphans_[unit];
      if ( w && w->entryIdTable() ) {
         auto const& rows = model_->workers.at( unit ).rows;
         if ( w->entryIdTable()->entrys() != rows.size() ) {
            return "entry-id table has " + std::to_string( w->entryIdTable()->entrys() ) +
                   " rows, expected " + std::to_string( rows.size() );
         }
         for ( auto const& row : *w->entryIdTable() ) {
            auto const model = rows.find( row.key() );
            if ( model == rows.end() ) {
               return "a row for " + row.key().stringValue();
            }
            for ( bool frag : { false, true } ) {
               auto const& ids = frag ? row.fragEntryIds() : row.defaultEntryIds();
               auto const& vlans = frag ? model->second.frags : model->second.defaults;
               for ( auto const& [vlan, e] : vlans ) {
                  if ( ids.size() != vlans.size() || !ids.has( vlan ) ) {
                     return row.key().stringValue() +
                            ( frag ? ": fragment" : ": default" ) +
                            " entries on other VLANs than expected";
                  }
                  if ( !want.emplace( ids.entryId( vlan ),
                                      entryText( e.quals, e.actions, 0x7fffffff, true ) )
                            .second ) {
                     return "entry " + std::to_string( ids.entryId( vlan ) ) +
                            " owned twice";
                  }
               }
               if ( vlans.empty() && ids.size() ) {
                  return row.key().stringValue() + " has entries it should not";
               }
            }
         }
      }
      U32 const orphaned = U32( orphans_[unit].size() );
      if ( want.size() - orphaned != model_->owned( unit ) ||
           orphaned != model_->orphans[unit] || fp.entryIds().size() != want.size() ||
           sim_->platform()
                   .tcamManager()
                   .unboundedEntryManager( natsim::natGroup )
                   ->entriesAllocated( unit ) != want.size() ) {
         return "entries on the chip " + std::to_string( fp.entryIds().size() ) +
                ", owned " + std::to_string( want.size() - orphaned ) + ", expected " +
                std::to_string( model_->owned( unit ) ) + " and " +
                std::to_string( orphaned ) + " of deleted workers";
      }
      for ( auto const& [id, text] : want ) {
         Chip::FpEntry const* entry = fp.entry( id );
         std::string const have = entry ? chipEntryText( *entry ) : "nothing";
         if ( have != text ) {
            return "entry " + std::to_string( id ) + "\n   holds " + have +
                   "\n expected " + text;
         }
      }
      return "";
   }

   // doVerify, as natsim's verify step runs it, on every worker that must pass it.
   std::string verify() {
      for ( auto const& w : model_->workers ) {
         if ( !model_->verifiable( w.first ) ) {
            continue;
         }
         scenario_["steps"].push_back( { { "verify", w.first } } );
         json const result =
             json::parse( sim_->playOne( natsim::VerifyStep{ w.first } ) );
         if ( !result["problems"].empty() ) {
            return "verify: " + result["problems"].dump();
         }
         std::size_t reads = 0;
         for ( auto const& r : result["journal"] ) {
            reads += r["call"].get<std::string>().find( "_get" ) != std::string::npos;
         }
         if ( reads != 6 * model_->owned( w.first ) ) {
            return "verify read " + std::to_string( reads ) + " qualifiers";
         }
      }
      return "";
   }

   U64 seed_;
   U32 steps_;
   U32 generated_ = 0;  // steps the generator has made
   Generator gen_;
   json scenario_;  // the steps played, the verify steps among them
   natsim::ChipConfig chip_;
   std::unique_ptr<natsim::Simulation> sim_;
   std::unique_ptr<Model> model_;
   // Per unit, the entries of deleted workers and what they held.
   std::map<U16, std::map<U32, std::string>> orphans_;
};

class NatRandomSteps : public ::testing::TestWithParam<U64> {};

TEST_P( NatRandomSteps, RandomStepsKeepTheInvariants ) {
   U64 const replaySeed = envNumber( "NAT_RANDOM_SEED", 0 );
   if ( replaySeed && GetParam() != 1 ) {
      GTEST_SKIP() << "NAT_RANDOM_SEED plays one seed";
   }
   SeedRun run( replaySeed ? replaySeed : GetParam(),
                U32( envNumber( "NAT_RANDOM_STEPS", 1000 ) ) );
   run.play();
}

INSTANTIATE_TEST_SUITE_P( Seeds, NatRandomSteps, ::testing::Values( 1, 2, 3, 4, 5 ) );

}  // namespace
