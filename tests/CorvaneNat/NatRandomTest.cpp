// A randomized, model-based test of the NAT plug-in.
//
// Each seed plays a random sequence of natsim steps (rules of every kind added, changed
// and removed; trap ACLs published, changed and removed; modules added and removed;
// mount-group readiness lost and regained; fragment handling switched; packets; time)
// on a chip whose TCAM is small enough to run out, through natsim's own Simulation.
// Before each step the independent model (NatRandomModel.h) says what the step must
// do; after it the test checks:
//   1. every entry on the chip has exactly one owner: a default or fragment entry of an
//      entry-id table row, a trap ACL's row, the implicit-deny entry, or (see below) a
//      deleted worker; every owned id is on the chip and installed;
//   2. the entry manager's allocated count equals the chip's entries, and the entries
//      owned equal what the model counts;
//   3. each key's entries carry the qualifiers and actions its shadow data asks for;
//   4. doVerify passes, through the operation interface as natsim's verify step runs it,
//      on every worker the model holds verifiable;
//   5. each step's answers are exactly the model's (one per module of the transaction's
//      set that serves it, result 2 exactly when the TCAM ran out), and a full TCAM
//      raises one CORVANE_NAT_TCAM_RESOURCE_FULL per key and VLAN refused.
//
// Where an invariant does not apply:
//   - A deleted worker (module removed, mount group not ready) frees nothing: its
//     entries stay on the chip unchanged for good, owned by nobody. The test keeps them
//     as orphans of their unit and checks that they stay exactly as they were.
//   - doVerify needs a worker that is initialized and that programmed every shadow key it
//     serves. A worker built anew finds keys committed before it existed and has no row
//     for them; it is not verified until they are gone.
//   - A worker answers a transaction each time it serves it: a worker built anew serves
//     every request still standing, also those its module's previous worker answered.
//
// Steps that would stop the agent on one of its assertions are not generated: a
// multicast ingress source-side rule (programmed without VLAN), a dynamic key that the
// hardware mode says must not reach programming, a multicast rule without multicast uid.
//
// Seeds and replay: NAT_RANDOM_SEED=<n> plays that seed alone, NAT_RANDOM_STEPS=<n> sets
// the steps per seed (default 1000). A failure prints the seed and the steps played as a
// natsim scenario, also when the plug-in stops on an assertion. Each seed also stops
// playing after a soft wall-time cap (a safety net; not a test of speed).

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "CorvaneNat/NatMounter.h"
#include "CorvaneNat/NatWorkerSm.h"
#include "NatRandomModel.h"
#include "platform/chip/ChipModel.h"
#include "platform/chip/FieldProcessor.h"
#include "tools/natsim/Simulation.h"

namespace {

using json = nlohmann::ordered_json;
using NatRandom::AnswerExpect;
using NatRandom::EntryExpect;
using NatRandom::Model;

// --- Settings --------------------------------------------------------------------------

constexpr U64 ciSeeds[] = { 1, 2, 3, 4, 5 };
constexpr U32 defaultSteps = 1000;
constexpr double softSecondsPerSeed = 20.0;

U64 envNumber( char const* name, U64 fallback ) {
   char const* text = std::getenv( name );
   return text && *text ? std::strtoull( text, nullptr, 10 ) : fallback;
}

// --- The replay text, also written when the plug-in stops the process ------------------

struct Replay {
   char header[256] = "";
   // The scenario without its closing: "{<config>, \"steps\": [\n  <step>,\n  <step>".
   std::string body;
   std::size_t steps = 0;

   void configIs( std::string const& config ) { body = "{" + config + ", \"steps\": ["; }
   void stepAppend( std::string const& step ) {
      body += ( steps++ ? ",\n  " : "\n  " ) + step;
   }
   // A natsim scenario of the steps played so far.
   std::string text() const { return header + body + "\n]}\n"; }
};

Replay* activeReplay = nullptr;

void writeAll( char const* text, std::size_t size ) {
   while ( size > 0 ) {
      ssize_t n = ::write( STDERR_FILENO, text, size );
      if ( n <= 0 ) {
         return;
      }
      text += n;
      size -= std::size_t( n );
   }
}

// An assertion of the plug-in aborts: print the seed and the steps before dying.
extern "C" void onAbort( int ) {
   if ( Replay const* r = activeReplay ) {
      writeAll( "\n", 1 );
      writeAll( r->header, std::strlen( r->header ) );
      writeAll( r->body.data(), r->body.size() );
      writeAll( "\n]}\n", 4 );
   }
   ::signal( SIGABRT, SIG_DFL );
}

// --- Random steps ----------------------------------------------------------------------

class Generator {
public:
   Generator( U64 seed ) : rng_( seed ) {}

   // The chip and NAT configuration of a seed.
   json config() {
      json modules = json::object();
      modules["1"] = 1;
      if ( chance( 0.5 ) ) {
         modules["2"] = 2;
      }
      json chip = { { "modules", modules },
                    { "tcamEntries", pick( 16, 64 ) },
                    { "trapFilters", chance( 0.85 ) } };
      addrOnlyMode_ = chance( 0.3 );
      json nat = { { "addrOnlyMode", addrOnlyMode_ },
                   { "fragmentEnabled", chance( 0.4 ) } };
      for ( auto const& m : modules.items() ) {
         units_.push_back( U16( std::stoi( m.key() ) ) );
      }
      return { { "chip", chip }, { "nat", nat } };
   }

   json next( Model const& model ) {
      for ( ;; ) {
         int const roll = int( pick( 0, 99 ) );
         if ( roll < 16 && slots_.size() < maxRules ) {
            return addRule( model );
         }
         if ( roll < 38 && !slots_.empty() ) {
            return changeRule();
         }
         if ( roll < 50 && !slots_.empty() ) {
            return removeRule();
         }
         if ( roll < 58 ) {
            return trapAcl();
         }
         if ( roll < 62 && !acls_.empty() ) {
            return trapAclRemove();
         }
         if ( roll < 66 ) {
            U16 const m = U16( pick( 1, 3 ) );
            if ( std::find( units_.begin(), units_.end(), m ) == units_.end() ) {
               units_.push_back( m );
            }
            return { { "module", { { "modId", m }, { "unit", m } } } };
         }
         if ( roll < 68 && !model.modules().empty() ) {
            auto it = model.modules().begin();
            std::advance( it, pick( 0, model.modules().size() - 1 ) );
            return { { "moduleRemove", it->first } };
         }
         if ( roll < 70 ) {
            return { { "mountGroupReady", !model.mountReady() } };
         }
         if ( roll < 78 ) {
            return { { "fragmentEnabled", chance( 0.6 ) } };
         }
         if ( roll < 92 ) {
            return packet();
         }
         if ( roll < 97 ) {
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
      json key;
      json data;
      json modules;
   };

   bool chance( double p ) {
      return std::uniform_real_distribution<double>( 0, 1 )( rng_ ) < p;
   }
   U64 pick( U64 lo, U64 hi ) {
      return std::uniform_int_distribution<U64>( lo, hi )( rng_ );
   }
   template <class T>
   T const& oneOf( std::vector<T> const& v ) {
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
      switch ( type ) {
         case 1:
            k["srcOld"] = withPort( addr( 10, 1 ), 0.4 );
            k["srcNew"] = withPort( addr( 1, 1 ), 0.4 );
            break;
         case 2:
            k["dstOld"] = withPort( addr( chance( 0.5 ) ? 20 : 230, 1 ), 0.4 );
            k["dstNew"] = withPort( addr( 11, 2 ), 0.4 );
            break;
         case 3:
         case 4:
            k["srcOld"] = withPort( addr( 12, 1 ), 0.4 );
            k["dstOld"] = withPort( addr( 22, 1 ), 0.4 );
            k["srcNew"] = withPort( addr( 2, 1 ), 0.4 );
            k["dstNew"] = withPort( addr( 3, 1 ), 0.4 );
            break;
         default: {
            // Dynamic keys the hardware mode holds; now and then one it does not
            // (answered without programming).
            bool const skipped = chance( 0.15 );
            bool const source = type == 5;
            std::string const own = addr( source ? 13 : 23, 1 );
            std::string const other = addr( source ? 24 : 14, 1 );
            char const* ownField = source ? "srcOld" : "dstOld";
            char const* otherField = source ? "dstOld" : "srcOld";
            if ( addrOnlyMode_ ) {
               k[ownField] = withPort( own, 0.5 );
               if ( !skipped ) {
                  k[otherField] = other;
               }
            } else {
               k[ownField] =
                   skipped ? own + ":" + std::to_string( pick( 1, 65535 ) ) : own;
            }
            k[source ? "dstNew" : "srcNew"] = addr( 4, 1 );
            k["proto"] = oneOf<int>( { 0, 6, 17 } );
         }
      }
      k["aclId"] = chance( 0.5 ) ? 0 : pick( 1, 5 );
      return k;
   }

   static bool sourceStatic( json const& key ) {
      return key["type"] == 1 || key["type"] == 3;
   }
   static bool destination( json const& key ) {
      U32 t = key["type"];
      return t == 2 || t == 4 || t == 6;
   }

   json vlans( bool perVlan ) {
      static std::vector<U16> const pool = { 10, 20, 30, 40, 50, 60 };
      json v = json::array();
      std::size_t n = perVlan ? pick( 0, 4 ) : pick( 0, 1 );
      for ( std::size_t i = 0; i < n; ++i ) {
         U16 vlan = oneOf( pool );
         if ( chance( 0.9 ) && std::find( v.begin(), v.end(), vlan ) != v.end() ) {
            continue;  // now and then a VLAN is listed twice
         }
         v.push_back( vlan );
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
         case 0:
         case 1:
            return "0.0.0.0/0";
         case 2:
            return "100." + std::to_string( pick( 0, 255 ) ) + ".0.0/16";
         default:
            return "100.1.2." + std::to_string( pick( 1, 254 ) ) + "/32";
      }
   }
   // Multicast ingress data is programmed per VLAN: never on a source-side static or
   // twice key, which is programmed once without VLAN.
   void fixIngress( Slot& s ) {
      if ( sourceStatic( s.key ) && s.data["multicast"] == true ) {
         s.data["ingress"] = false;
      }
   }
   json data( json const& key ) {
      bool const multicast = chance( 0.2 );
      return { { "protocol", oneOf<int>( { 0, 0, 6, 17 } ) },
               { "filterAddr", filter() },
               { "nextHop", nextHop() },
               { "vlans", vlans( destination( key ) ) },
               { "staticAclSharing", chance( 0.3 ) },
               { "mcastGroupId", multicast && chance( 0.6 ) ? pick( 1, 100 ) : 0 },
               { "multicast", multicast },
               { "ingress", chance( 0.5 ) } };
   }

   json ruleStep( Slot const& s ) {
      return { { "natRule",
                 { { "uid", s.uid },
                   { "mcastUid", s.mcastUid },
                   { "key", s.key },
                   { "data", s.data },
                   { "modules", s.modules },
                   { "field", pick( 0, 3 ) } } } };
   }

   json addRule( Model const& model ) {
      Slot s;
      s.uid = nextUid_++;
      s.mcastUid = U16( pick( 1, 65535 ) );
      s.key = key( U32( pick( 1, 6 ) ) );
      s.data = data( s.key );
      fixIngress( s );
      s.modules = json::array();
      if ( chance( 0.7 ) ) {
         for ( auto const& m : model.modules() ) {
            s.modules.push_back( m.first );
         }
      }
      if ( s.modules.empty() ) {
         for ( U16 m = 1; m <= 3; ++m ) {
            if ( chance( 0.5 ) || ( m == 3 && s.modules.empty() ) ) {
               s.modules.push_back( m );
            }
         }
      }
      slots_.push_back( s );
      return ruleStep( s );
   }

   json changeRule() {
      Slot& s = slots_[pick( 0, slots_.size() - 1 )];
      json& d = s.data;
      for ( U64 n = pick( 1, 3 ); n > 0; --n ) {
         switch ( pick( 0, 7 ) ) {
            case 0: {  // a VLAN more
               json more = vlans( true );
               for ( auto const& v : more ) {
                  d["vlans"].push_back( v );
               }
               break;
            }
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
      fixIngress( s );
      return ruleStep( s );
   }

   json removeRule() {
      std::size_t const i = pick( 0, slots_.size() - 1 );
      Slot const s = slots_[i];
      slots_.erase( slots_.begin() + long( i ) );
      return { { "natRuleRemove",
                 { { "uid", s.uid }, { "key", s.key }, { "field", pick( 0, 3 ) } } } };
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

   json trapAclRemove() {
      auto it = acls_.begin();
      std::advance( it, pick( 0, acls_.size() - 1 ) );
      json step = {
          { "trapAclRemove", { { "name", it->first }, { "vlan", it->second } } } };
      acls_.erase( it );
      return step;
   }

   json packet() {
      json p = {
          { "unit", oneOf( units_ ) },
          { "proto", oneOf<int>( { 6, 17, 1 } ) },
          { "sport", pick( 1, 65535 ) },
          { "dport", oneOf<U64>( { 80, 443, pick( 1, 65535 ) } ) },
          { "vlan", oneOf<int>( { 10, 20, 30, 40 } ) },
          { "frag", oneOf<std::string>( { "none", "none", "first", "notFirst" } ) },
          { "emHit", chance( 0.5 ) },
          { "count", pick( 1, 3 ) } };
      if ( chance( 0.5 ) ) {
         p["tcp"] =
             json::array( { oneOf<std::string>( { "SYN", "FIN", "ACK", "RST" } ) } );
      }
      if ( !slots_.empty() && chance( 0.7 ) ) {
         // Aim at a rule: its old addresses, without ports.
         json const& key = slots_[pick( 0, slots_.size() - 1 )].key;
         auto address = []( json const& v ) {
            std::string text = v.get<std::string>();
            return text.substr( 0, text.find( ':' ) );
         };
         if ( key.contains( "srcOld" ) ) {
            p["src"] = address( key["srcOld"] );
         }
         if ( key.contains( "dstOld" ) ) {
            p["dst"] = address( key["dstOld"] );
         }
      }
      return { { "packet", p } };
   }

   std::mt19937_64 rng_;
   bool addrOnlyMode_ = false;
   U32 serial_ = 0;
   U32 nextUid_ = 1;
   std::vector<U16> units_;
   std::vector<Slot> slots_;
   std::set<std::pair<std::string, U16>> acls_;
};

// --- What the chip holds, as text ------------------------------------------------------

std::string entryText( NatRandom::QualMap const& quals,
                       std::vector<Chip::ActionRecord> const& actions ) {
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
   return out.str();
}

std::string chipEntryText( Chip::FpEntry const& entry ) {
   NatRandom::QualMap quals;
   for ( Chip::Qualifier q : entry.qualifiers() ) {
      if ( q == Chip::Qualifier::IpFrag ) {
         quals[q] = { U32( entry.ipFrag() ), 0 };
      } else {
         quals[q] = { entry.qualifier( q ).data, entry.qualifier( q ).mask };
      }
   }
   return entryText( quals, entry.actions() ) + " prio " +
          std::to_string( entry.priority() ) +
          ( entry.installed() ? " installed" : " NOT installed" );
}

std::string expectText( EntryExpect const& e ) {
   return entryText( e.quals, e.actions ) + " prio 2147483647 installed";
}

// --- One seed --------------------------------------------------------------------------

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

class SeedRun {
public:
   SeedRun( U64 seed, U32 steps ) : seed_( seed ), steps_( steps ), gen_( seed ) {}
   ~SeedRun() { activeReplay = nullptr; }

   void play() {
      json const config = gen_.config();
      replay_.configIs( config.dump().substr( 1, config.dump().size() - 2 ) );
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

      NatRandom::Orders orders;
      orders.requests = [this] { return requestOrder(); };
      orders.trapAcls = [this] { return trapAclOrder(); };
      model_ = std::make_unique<Model>( scenario.chip, scenario.nat, orders );
      activeReplay = &replay_;
      ::signal( SIGABRT, onAbort );

      auto const begin = std::chrono::steady_clock::now();
      std::string problem = checkChip();
      for ( generated_ = 0; generated_ < steps_ && problem.empty(); ++generated_ ) {
         if ( std::chrono::duration<double>( std::chrono::steady_clock::now() - begin )
                  .count() > softSecondsPerSeed ) {
            std::printf( "seed %llu: stopped after %u steps (wall-time cap)\n",
                         ( unsigned long long )seed_, generated_ );
            break;
         }
         problem = playStep( gen_.next( *model_ ) );
      }
      ::signal( SIGABRT, SIG_DFL );
      std::printf(
          "seed %llu: %zu steps, %u answers (%u of them 2), %u verified, %u orphaned "
          "entries\n",
          ( unsigned long long )seed_, replay_.steps, stats_.answers, stats_.full,
          stats_.verified, stats_.orphans );
      if ( !problem.empty() ) {
         ADD_FAILURE() << problem << "\n" << replay_.text();
      }
   }

private:
   void headerIs( std::size_t index ) {
      std::snprintf(
          replay_.header, sizeof( replay_.header ),
          "NatRandomTest: seed %llu, step %zu; replay with NAT_RANDOM_SEED=%llu "
          "NAT_RANDOM_STEPS=%u, or play the scenario below with natsim run:\n",
          ( unsigned long long )seed_, index, ( unsigned long long )seed_,
          generated_ + 1 );
   }

   std::string playStep( json const& stepJson ) {
      std::size_t const index = replay_.steps;
      std::string const text = stepJson.dump();
      replay_.stepAppend( text );
      headerIs( index );
      natsim::Step step;
      natsim::ScenarioError error;
      if ( !natsim::parseStep( text, chip_, &step, &error ) ) {
         return "the generator made a step natsim refuses: " + error.what();
      }
      model_->play( step );
      snapshotOrphans();
      json result;
      try {
         result = json::parse( sim_->playOne( step ) );
      } catch ( std::exception const& e ) {
         return std::string( "the step raised: " ) + e.what();
      }
      std::string problem = checkStep( result );
      if ( problem.empty() ) {
         problem = checkChip();
      }
      if ( problem.empty() ) {
         problem = verify();
      }
      return problem.empty()
                 ? ""
                 : "step " + std::to_string( index ) + " " + text + ": " + problem;
   }

   // --- Orders of the platform's tables ---

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

   // --- Checks ---

   Corvane::NatWorkerSm* worker( U16 modId ) const {
      auto mounter = dynamic_cast<Corvane::NatMounter*>( sim_->mounter() );
      auto root = mounter ? mounter->rootSm() : nullptr;
      return root ? root->natWorkerSm( modId ).ptr() : nullptr;
   }

   // The entries of the units whose worker is about to go become orphans.
   void snapshotOrphans() {
      for ( U16 unit : model_->stepDeletedUnits() ) {
         Chip::ChipUnit const* chipUnit = sim_->platform().chip().unit( unit );
         if ( !chipUnit ) {
            continue;
         }
         for ( U32 id : chipUnit->fieldProcessor().entryIds() ) {
            if ( orphans_[unit]
                     .emplace( id,
                               chipEntryText( *chipUnit->fieldProcessor().entry( id ) ) )
                     .second ) {
               ++stats_.orphans;
            }
         }
      }
   }

   std::string checkStep( json const& result ) {
      std::vector<AnswerExpect> actual;
      for ( auto const& a : result["answers"] ) {
         actual.push_back( { a["module"].get<U16>(), a["uid"].get<U32>(),
                             Xact::XactSluiceStatus::Result( a["result"].get<U32>() ),
                             a["field"].get<U32>() } );
      }
      std::vector<AnswerExpect> expected = model_->stepAnswers();
      stats_.answers += U32( actual.size() );
      for ( auto const& a : actual ) {
         stats_.full += a.result == Xact::XactSluiceStatus::hwFull ? 1 : 0;
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
      if ( full != model_->stepNatFullEvents() ) {
         return "CORVANE_NAT_TCAM_RESOURCE_FULL raised " + std::to_string( full ) +
                " times, expected " + std::to_string( model_->stepNatFullEvents() );
      }
      if ( !result["problems"].empty() ) {
         return "natsim reports " + result["problems"].dump();
      }
      return checkInstalledAfterChange( result["journal"] );
   }

   // The chip model applies a change to an installed entry at once; the hardware only
   // when the entry is installed again. So every entry whose qualifiers or actions a
   // step changed must be installed or reinstalled after its last change (or released).
   static std::string checkInstalledAfterChange( json const& journal ) {
      std::map<std::pair<int, U32>, std::string> changed;
      for ( auto const& record : journal ) {
         if ( !record.contains( "entry" ) ) {
            continue;
         }
         std::string const call = record["call"];
         std::pair<int, U32> const entry{ record["unit"].get<int>(),
                                          record["entry"].get<U32>() };
         bool const read =
             call.size() > 4 && call.compare( call.size() - 4, 4, "_get" ) == 0;
         if ( call == "installEntry" || call == "reinstallEntry" ||
              call == "releaseEntry" ) {
            changed.erase( entry );
         } else if ( !read && ( call.rfind( "bcm_field_qualify_", 0 ) == 0 ||
                                call.rfind( "bcm_field_action_", 0 ) == 0 ) ) {
            changed[entry] = call;
         }
      }
      if ( changed.empty() ) {
         return "";
      }
      auto const& first = *changed.begin();
      return "entry " + std::to_string( first.first.second ) + " of unit " +
             std::to_string( first.first.first ) + " changed by " + first.second +
             " and not installed again";
   }

   std::string checkChip() {
      for ( U16 modId = 1; modId <= 3; ++modId ) {
         bool const expected = model_->workers().count( modId ) != 0;
         Corvane::NatWorkerSm* w = worker( modId );
         if ( bool( w ) != expected ) {
            return "module " + std::to_string( modId ) +
                   ( expected ? " has no worker" : " has a worker" );
         }
         if ( w && w->initialized() != model_->workers().at( modId ).initialized ) {
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
      if ( !problem.empty() ) {
         return problem;
      }
      auto const& orphans = orphans_[unit];
      for ( auto const& o : owner ) {
         Chip::FpEntry const* entry = fp.entry( o.first );
         if ( !entry || !entry->installed() ) {
            return "entry " + std::to_string( o.first ) + " of " + o.second +
                   ( entry ? " is not installed" : " is not on the chip" );
         }
         if ( orphans.count( o.first ) ) {
            return "entry " + std::to_string( o.first ) + " of " + o.second +
                   " is a deleted worker's";
         }
      }
      for ( U32 id : fp.entryIds() ) {
         if ( !owner.count( id ) && !orphans.count( id ) ) {
            return "entry " + std::to_string( id ) + " (" +
                   fp.entry( id )->description() + ") has no owner";
         }
      }
      for ( auto const& o : orphans ) {
         Chip::FpEntry const* entry = fp.entry( o.first );
         if ( !entry || chipEntryText( *entry ) != o.second ) {
            return "entry " + std::to_string( o.first ) + " of a deleted worker changed";
         }
      }
      auto manager =
          sim_->platform().tcamManager().unboundedEntryManager( natsim::natGroup );
      if ( manager->entriesAllocated( unit ) != fp.entries() ) {
         return "entries allocated " +
                std::to_string( manager->entriesAllocated( unit ) ) + ", on the chip " +
                std::to_string( fp.entries() );
      }
      if ( orphans.size() != model_->orphans( unit ) ||
           owner.size() != model_->owned( unit ) ) {
         return "entries owned " + std::to_string( owner.size() ) + " and orphaned " +
                std::to_string( orphans.size() ) + ", expected " +
                std::to_string( model_->owned( unit ) ) + " and " +
                std::to_string( model_->orphans( unit ) );
      }
      auto expected = model_->workers().find( unit );
      if ( expected != model_->workers().end() && expected->second.initialized ) {
         problem = checkRows( *w, expected->second, fp );
         if ( problem.empty() ) {
            problem = checkTrap( *w, expected->second );
         }
      }
      return problem;
   }

   // Each key's entries, VLAN by VLAN, against the model's.
   std::string checkRows( Corvane::NatWorkerSm& w,
                          NatRandom::WorkerExpect const& expected,
                          Chip::FieldProcessor const& fp ) {
      Corvane::EntryIdTable const& table = *w.entryIdTable();
      if ( table.entrys() != expected.rows.size() ) {
         return "entry-id table has " + std::to_string( table.entrys() ) +
                " rows, expected " + std::to_string( expected.rows.size() );
      }
      for ( auto const& row : expected.rows ) {
         std::string const name = row.first.stringValue();
         if ( !table.entryHas( row.first ) ) {
            return "no row for " + name;
         }
         Corvane::EntryIdTableEntry const actual = table.entry( row.first );
         for ( bool frag : { false, true } ) {
            auto const& vlans = frag ? row.second.frags : row.second.defaults;
            Corvane::VlanEntryIdMap const& ids =
                frag ? actual.fragEntryIds() : actual.defaultEntryIds();
            char const* kind = frag ? "fragment" : "default";
            if ( ids.size() != vlans.size() ) {
               return name + ": " + std::to_string( ids.size() ) + " " + kind +
                      " entries, expected " + std::to_string( vlans.size() );
            }
            for ( auto const& v : vlans ) {
               if ( !ids.has( v.first ) ) {
                  return name + ": no " + kind + " entry for VLAN " +
                         std::to_string( v.first );
               }
               std::string const have =
                   chipEntryText( *fp.entry( ids.entryId( v.first ) ) );
               std::string const want = expectText( v.second );
               if ( have != want ) {
                  return name + ": " + kind + " entry " +
                         std::to_string( ids.entryId( v.first ) ) + " VLAN " +
                         std::to_string( v.first ) + "\n   holds " + have +
                         "\n expected " + want;
               }
            }
         }
      }
      return "";
   }

   std::string checkTrap( Corvane::NatWorkerSm& w,
                          NatRandom::WorkerExpect const& expected ) {
      if ( !expected.hasTrapSm ) {
         return w.trapSm() ? "a trap state machine on a chip without trap filters" : "";
      }
      if ( !w.trapSm() ) {
         return "no trap state machine";
      }
      auto const& rows = w.trapSm()->tcamEntryMap();
      if ( rows.size() != expected.trap.rows.size() ) {
         return "trap rows " + std::to_string( rows.size() ) + ", expected " +
                std::to_string( expected.trap.rows.size() );
      }
      for ( auto const& row : expected.trap.rows ) {
         auto found = rows.find( row.first );
         if ( found == rows.end() || found->second.entryId().size() != row.second ) {
            return "trap ACL " + row.first.stringValue() + " holds " +
                   ( found == rows.end()
                         ? std::string( "no row" )
                         : std::to_string( found->second.entryId().size() ) ) +
                   ", expected " + std::to_string( row.second ) + " entries";
         }
      }
      if ( ( w.trapSm()->implicitDenyEntryId() != 0 ) != expected.trap.implicitDeny ) {
         return expected.trap.implicitDeny ? "no implicit-deny entry"
                                           : "an implicit-deny entry";
      }
      return "";
   }

   // doVerify, as natsim's verify step runs it, on every worker that must pass it.
   std::string verify() {
      for ( auto const& w : model_->workers() ) {
         if ( !model_->verifiable( w.first ) ) {
            continue;
         }
         json const step = { { "verify", w.first } };
         replay_.stepAppend( step.dump() );
         headerIs( replay_.steps - 1 );
         json const result =
             json::parse( sim_->playOne( natsim::VerifyStep{ w.first } ) );
         ++stats_.verified;
         if ( !result["problems"].empty() ) {
            return "verify: " + result["problems"].dump();
         }
      }
      return "";
   }

   U64 seed_;
   U32 steps_;
   // Steps the generator has made so far (the replay also holds the verify steps).
   U32 generated_ = 0;
   Generator gen_;
   Replay replay_;
   natsim::ChipConfig chip_;
   std::unique_ptr<natsim::Simulation> sim_;
   std::unique_ptr<Model> model_;
   struct Stats {
      U32 answers = 0;
      U32 full = 0;
      U32 verified = 0;
      U32 orphans = 0;
   } stats_;
   // Per unit, the entries of deleted workers and what they held.
   std::map<U16, std::map<U32, std::string>> orphans_;
};

class NatRandomSteps : public ::testing::TestWithParam<std::size_t> {};

TEST_P( NatRandomSteps, RandomStepsKeepTheInvariants ) {
   U64 const replaySeed = envNumber( "NAT_RANDOM_SEED", 0 );
   if ( replaySeed && GetParam() != 0 ) {
      GTEST_SKIP() << "NAT_RANDOM_SEED plays one seed";
   }
   U64 const seed = replaySeed ? replaySeed : ciSeeds[GetParam()];
   SeedRun run( seed, U32( envNumber( "NAT_RANDOM_STEPS", defaultSteps ) ) );
   run.play();
}

INSTANTIATE_TEST_SUITE_P( Seeds, NatRandomSteps,
                          ::testing::Range( std::size_t( 0 ), std::size( ciSeeds ) ) );

}  // namespace
