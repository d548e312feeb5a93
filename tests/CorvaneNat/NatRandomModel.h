#pragma once

// The independent expectation of the randomized NAT test (NatRandomTest.cpp).
//
// The model follows the scenario's steps as upstream, the platform and the plug-in are
// meant to handle them, without using any of the plug-in's code:
//   - upstream: the shadow, the uid of each key, the module sets, the standing requests
//     and what each module still owes; a transaction ends when every module of its set
//     has answered (a removed key then leaves the shadow, a programmed one turns clean);
//   - the workers: one per module of the module map, built by a module step whatever the
//     mount group's readiness, initialized once the mount group is ready, all deleted
//     when it stops being ready and not rebuilt when it is ready again (only a later
//     module step rebuilds one). A worker serves the requests standing when it was built
//     and those published later, in order, once initialized, and then every new one;
//   - per worker, which keys hold entries for which VLANs, with the qualifiers and
//     actions each entry must carry (static, twice and dynamic programming), fragment
//     entries, and the trap filters' entries counted per ACL;
//   - per unit, the entries allocated, so that a full TCAM is foreseen: a commit that
//     finds no room answers 2, fragment handling that finds too little room switches
//     itself off, an ACL that finds too little room gets no entry at all.
//
// Entries of a deleted worker stay on the chip (a worker frees nothing as it goes); the
// model counts them per unit as orphans, which keep their room for good.
//
// Reprogramming leaves an entry holding exactly what the new data asks: a qualifier the
// new data no longer asks for is taken off.

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <tuple>
#include <vector>

#include "platform/chip/Action.h"
#include "platform/chip/Qualifier.h"
#include "platform/nat/NatTrapConfig.h"
#include "platform/nat/XactSluiceDir.h"
#include "tools/natsim/Scenario.h"

namespace NatRandom {

// Data and mask of each qualifier set (IpFrag: the selector and 0).
typedef std::map<Chip::Qualifier, std::pair<U32, U32>> QualMap;

struct EntryExpect {
   QualMap quals;
   std::vector<Chip::ActionRecord> actions;
};

// The entries of one key on one worker, by VLAN (0 for source-side keys).
struct RowExpect {
   std::map<U16, EntryExpect> defaults;
   std::map<U16, EntryExpect> frags;
};

struct TrapExpect {
   // Entries of each ACL that holds them.
   std::map<Oro::NatTrapKey, U32> rows;
   bool implicitDeny = false;
};

struct WorkerExpect {
   bool initialized = false;
   bool fragEnabled = false;
   // Requests to serve once initialized (uids; a uid published twice is there twice).
   std::deque<U32> pending;
   std::map<Oro::NatHwKey, RowExpect> rows;
   bool hasTrapSm = false;
   TrapExpect trap;
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
   Xact::XactSluiceStatus::Result result;
   U32 field;
   bool operator<( AnswerExpect const& o ) const {
      return std::tie( module, uid, result, field ) <
             std::tie( o.module, o.uid, o.result, o.field );
   }
   bool operator==( AnswerExpect const& o ) const {
      return !( *this < o ) && !( o < *this );
   }
};

// The platform's iteration orders, which decide who gets the last entries of a short
// TCAM: the standing requests (as a new worker finds them) and the trap ACLs (as a new
// trap state machine programs them).
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
   std::vector<AnswerExpect> const& stepAnswers() const { return stepAnswers_; }
   U32 stepNatFullEvents() const { return stepNatFull_; }
   // Units whose worker the last step deleted (their entries became orphans).
   std::set<U16> const& stepDeletedUnits() const { return stepDeleted_; }

   std::map<U16, WorkerExpect> const& workers() const { return workers_; }
   std::map<U16, U16> const& modules() const { return modules_; }
   std::map<Oro::NatHwKey, ShadowExpect> const& shadow() const { return shadow_; }
   U32 orphans( U16 unit ) const;
   U32 capacity() const { return capacity_; }
   bool mountReady() const { return ready_; }
   bool addrOnlyMode() const { return addrOnlyMode_; }

   // Entries the unit's worker owns (NAT and trap).
   U32 owned( U16 unit ) const;
   // Whether doVerify of the module's worker must pass: the worker is initialized, has a
   // row for every shadow key it would have programmed (a worker built anew after its
   // keys were committed has none) and no entry keeps a qualifier of earlier data.
   bool verifiable( U16 modId ) const;

   // The entry that programming `key` with `data` on `vlan` writes from scratch.
   EntryExpect freshEntry( Oro::NatHwKey const& key, Oro::NatHwData const& data,
                           U32 opaqueId, U16 vlan, bool frag ) const;
   static bool needsFrag( Oro::NatHwKey const& key );
   static bool sourceSide( Oro::NatHwKey const& key );
   static bool destinationSide( Oro::NatHwKey const& key );
   // A dynamic key the hardware mode cannot hold: answered without programming.
   bool dynamicSkipped( Oro::NatHwKey const& key ) const;

private:
   struct Request {
      U32 field = 0;
      std::set<U16> awaiting;
   };
   struct Acl {
      bool implicitDeny = false;
      U32 entries = 0;
   };

   void natRule( natsim::NatRuleStep const& s );
   void natRuleRemove( natsim::NatRuleRemoveStep const& s );
   void publish( U32 uid, U32 field, std::set<U16> const& modules );
   void finishAnswered();
   void trapAcl( natsim::TrapAclStep const& s );
   void trapAclRemove( natsim::TrapAclRemoveStep const& s );
   void moduleIs( U16 modId );
   void moduleDel( U16 modId );
   void readyIs( bool ready );
   void fragmentIs( bool enabled );

   void workerDel( U16 modId );
   void initialize( U16 modId );
   void serve( U16 modId, U32 uid );
   void commit( U16 modId, U32 uid );
   bool program( U16 modId, Oro::NatHwKey const& key, ShadowExpect const& sh, U16 vlan );
   void handleFragment( U16 modId );
   void trapRequest( U16 modId, Oro::NatTrapKey const& key );
   void trapDelete( WorkerExpect& w, Oro::NatTrapKey const& key );
   bool implicitDenyWanted() const;
   U32 available( U16 unit ) const;
   U32 opaqueId( Oro::NatHwKey const& key ) const;

   Orders orders_;
   U32 capacity_;
   bool trapFilters_;
   bool ready_;
   bool addrOnlyMode_;
   bool fragConfig_;
   std::map<U16, U16> modules_;
   std::map<U16, WorkerExpect> workers_;
   std::map<U16, U32> orphans_;
   std::map<Oro::NatHwKey, ShadowExpect> shadow_;
   std::map<U32, Oro::NatHwKey> uidKey_;
   std::map<U32, std::set<U16>> modSets_;
   std::map<U32, Request> requests_;
   std::map<Oro::NatTrapKey, Acl> acls_;

   std::vector<AnswerExpect> stepAnswers_;
   U32 stepNatFull_ = 0;
   std::set<U16> stepDeleted_;
};

}  // namespace NatRandom
