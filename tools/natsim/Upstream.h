#pragma once

// natsim's upstream: the NAT agent that fills the shadow and publishes transactions, and
// the ACL agent that publishes trap ACLs.
//
// It behaves as the real one: a rule is written into the shadow (with its dirty state),
// both uid tables and the module set of its uid, then its transaction request is
// published. Upstream watches the status table of every module; when every module of a
// transaction's module set has answered, the transaction is over: its request is
// withdrawn and the shadow entry of a removed key (dirty 2) leaves the shadow, the uid
// tables and the module sets, while a programmed key's entry becomes clean (dirty 0).
// Each answer is reported through the answer callback as it arrives.
//
// When the agent restarts, upstream replays the shadow (replay()): every shadow entry's
// transaction is published again, with the request field it last had, and is awaited
// from every module of the chip-common module map, since a restarted agent's workers
// answer every transaction while they rebuild. A request still pending at the restart
// is left as it is (the new workers find it), and awaited from every module too.

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <unordered_map>
#include <vector>

#include "platform/nat/HwKeyUidTable.h"
#include "platform/nat/ModSetDir.h"
#include "platform/nat/NatHwShadow.h"
#include "platform/nat/UidHwKeyTable.h"
#include "platform/nat/XactSluiceDir.h"
#include "tools/natsim/Scenario.h"
#include "tools/natsim/SimPlatform.h"

namespace natsim {

struct Answer {
   U16 module;
   U32 uid;
   Xact::XactSluiceStatus::Result result;
   U32 field;
};

class Upstream {
public:
   typedef std::function<void( Answer const& )> AnswerHandler;

   Upstream( SimPlatform& platform, AnswerHandler onAnswer );
   ~Upstream();

   // Starts watching a module's status table (mounting it if nobody has yet).
   void moduleIs( U16 modId );

   void natRule( NatRuleStep const& step );
   // False, with a reason, when the key is not in the shadow.
   bool natRuleRemove( NatRuleRemoveStep const& step, std::string* problem );
   void trapAcl( TrapAclStep const& step );
   // False, with the reason, when the trap config holds no ACL of that key.
   bool trapAclRemove( TrapAclRemoveStep const& step, std::string* problem );
   void mcastMode( McastModeStep const& step );

   // Publishes the transaction of every shadow entry again, in ascending uid order.
   void replay();
   // True once every transaction of the last replay has been answered by every module
   // it awaited (also when nothing was replayed).
   bool replayAnswered() const;

private:
   class AnswerReactor;

   void publish( CorvaneNat::Uid uid, U32 field, CorvaneNat::ModSet modules );
   void handleAnswer( U16 modId, Xact::XactSluiceStatus const& status );
   void finish( CorvaneNat::Uid uid );

   SimPlatform& platform_;
   AnswerHandler onAnswer_;
   Xact::XactSluiceConfigDir::Ptr requests_;
   CorvaneNat::HwKeyUidTable::Ptr hwKeyUidTable_;
   CorvaneNat::UidHwKeyTable::Ptr uidHwKeyTable_;
   Oro::NatHwShadow::Ptr shadow_;
   CorvaneNat::ModSetDir::Ptr modSetDir_;
   std::map<U16, std::unique_ptr<AnswerReactor>> answerReactors_;
   // Transactions in flight: uid -> modules that have not answered yet.
   std::unordered_map<U32, CorvaneNat::ModSet> awaiting_;
   // The request field each uid was last published with.
   std::unordered_map<U32, U32> fields_;
   // The uids of the last replay.
   std::set<U32> replayed_;
};

}  // namespace natsim
