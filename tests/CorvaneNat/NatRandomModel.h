#pragma once

// The independent expectation of the randomized NAT test (NatRandomTest.cpp): the
// scenario's steps as upstream, the platform and the plug-in are meant to handle them,
// written without the plug-in's code.
//   - Upstream keeps the shadow, each uid's key and module set and the standing
//     requests; a transaction ends when every module of its set has answered (a removed
//     key then leaves the shadow, a programmed one turns clean).
//   - There is a worker per module of the module map, built by a module step, initialized
//     once the mount group is ready, all deleted when it stops being ready (a later
//     module step rebuilds one). A worker serves the requests standing when it was built,
//     in order, once initialized, and then every new one. A deleted worker frees nothing:
//     its entries stay on the chip as orphans, which keep their room for good.
//   - Per worker: which keys hold entries on which VLANs and what each entry holds; a
//     reprogrammed entry holds exactly what the new data asks. Fragment entries, and
//     the trap ACLs' entries counted per ACL.
//   - Per unit, the entries taken, so that a full TCAM is foreseen: a commit that finds
//     no room answers 2, fragment handling short of room switches itself off, an ACL
//     short of room gets no entry at all.

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <tuple>
#include <variant>
#include <vector>

#include "platform/chip/Action.h"
#include "platform/chip/Qualifier.h"
#include "platform/nat/NatTrapConfig.h"
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
   bool hasTrapSm = false;
   std::map<Oro::NatTrapKey, U32> trapRows;  // entries of each ACL that holds them
   bool implicitDeny = false;
};

struct ShadowExpect {
   Oro::NatHwData data;
   U32 uid = 0;
   U16 mcastUid = 0;
   U32 dirty = 1;
};

struct AnswerExpect {
   U16 module;
   U32 uid;
   Result result;
   U32 field;
   auto tie() const { return std::tie( module, uid, result, field ); }
   bool operator<( AnswerExpect const& o ) const { return tie() < o.tie(); }
   bool operator==( AnswerExpect const& o ) const { return tie() == o.tie(); }
};

inline U32 ipOf( Wirel::IpAndPort const& p ) {
   return p.ip().value();
}

// Who gets the last entries of a short TCAM follows the platform's iteration orders:
// the standing requests (as a new worker finds them) and the trap ACLs.
struct Orders {
   std::function<std::vector<U32>()> requests;
   std::function<std::vector<Oro::NatTrapKey>()> trapAcls;
};

class Model {
public:
   Model( natsim::ChipConfig const& chip, natsim::NatConfig const& nat, Orders orders );

   // Applies one step; call before the step is played (the orders are read then).
   void play( natsim::Step const& step );

   // What the last step must have produced.
   std::vector<AnswerExpect> answers;
   U32 natFullEvents = 0;
   std::set<U16> deletedUnits;  // units whose worker the step deleted

   std::map<U16, WorkerExpect> workers;
   std::map<U16, U16> modules;
   std::map<U16, U32> orphans;  // per unit
   bool ready;

   // Entries the unit's worker owns (NAT and trap).
   U32 owned( U16 unit ) const;
   // Whether doVerify of the module's worker must pass: it is initialized and has a row
   // for every shadow key it would have programmed (a worker built anew after its keys
   // were committed has none).
   bool verifiable( U16 modId ) const;

private:
   struct Request {
      U32 field = 0;
      std::set<U16> awaiting;
   };
   struct Acl {
      bool implicitDeny = false;
      U32 entries = 0;
   };

   EntryExpect entry( HwKey const& key, ShadowExpect const& sh, U16 vlan,
                      bool frag ) const;
   bool skipped( HwKey const& key ) const;
   void publish( U32 uid, U32 field );
   void finishAnswered();
   void moduleIs( U16 modId );
   void workerDel( U16 modId );
   void initialize( U16 modId );
   void commit( U16 modId, U32 uid );
   bool program( WorkerExpect& w, U16 unit, HwKey const& key, U16 vlan );
   void handleFragment( U16 modId );
   void trapRequest( U16 modId, Oro::NatTrapKey const& key );
   U32 available( U16 unit ) const;

   Orders orders_;
   U32 capacity_;
   bool trapFilters_;
   bool addrOnlyMode_;
   bool fragConfig_;
   std::map<HwKey, ShadowExpect> shadow_;
   std::map<U32, HwKey> uidKey_;
   std::map<U32, std::set<U16>> modSets_;
   std::map<U32, Request> requests_;
   std::map<Oro::NatTrapKey, Acl> acls_;
};

}  // namespace NatRandom
