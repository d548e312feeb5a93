#pragma once

// The NAT plug-in's entry point into the agent.
//
// The agent creates the mounter by name ("Corvane::NatMounter") and calls doInit(): it
// mounts, from the state database, every entity the NAT workers read or write. When those
// mounts complete and the chip supports NAT, it mounts the shared-memory NAT tables and
// creates the worker root; on a chip without NAT it stays idle for good. The mounter
// owns the root; dropping the mounter drops the root and with it every worker.

#include "CorvaneNat/NatWorkerRootSm.h"
#include "platform/agent/MounterBase.h"

namespace Corvane {

class NatMounter : public CorvaneLib::MounterBase {
public:
   typedef Fwk::Ptr<NatMounter> Ptr;

   explicit NatMounter( std::string name );
   ~NatMounter() override;

   void doInit() override;
   void doMountsComplete( Orrery::MountStatus mountStatus,
                          Orrery::EntityManager::Ptr entityManager ) override;

   NatWorkerRootSm* rootSm() const { return rootSm_.ptr(); }
   // The root, built anew unless the present one was built from an equal value.
   NatWorkerRootSm::Ptr rootSmIs( NatWorkerRootDeps const& deps );
   void rootSmDel();

   // The process's NAT mounter (the one most recently built and not yet gone), or null;
   // the show command reaches the worker through it.
   static NatMounter* natMounter();

private:
   NatWorkerRootSm::Ptr rootSm_;
   // The root's arguments, to keep a root built from the very same values.
   NatWorkerRootDeps rootDeps_;
};

}  // namespace Corvane
