#pragma once

// The worker root: exactly one NAT worker for every module of the chip-common data's
// module map, and none for any other.
//
// For a module that appears (or changes) it mounts the module's transaction status table
// "corvanenat/ingXactSluiceStatusDir/<modId>", gathers the shared NAT tables and creates
// the worker; a module that leaves the map loses its worker at once. When the
// shared-memory mount group stops being ready every worker is deleted; when it is ready
// again, only the workers that exist then run doInit() (a module gets a worker back only
// when its map entry changes again). Workers are silenced before they are dropped.

#include <map>
#include <memory>

#include "CorvaneNat/NatWorkerSm.h"

namespace Corvane {

class NatWorkerRootSm : public Fwk::Entity {
public:
   typedef Fwk::Ptr<NatWorkerRootSm> Ptr;
   typedef std::map<CorvaneCentral::ModId, NatWorkerSm::Ptr> WorkerCollection;

   explicit NatWorkerRootSm( NatWorkerRootDeps const& deps );
   ~NatWorkerRootSm() override;

   void handleModule();
   void handleModule( CorvaneCentral::ModId modId );
   void handleMountGroupReady();

   // The worker of a module; an existing worker is returned when built from the very
   // same values, any other difference stops the process.
   NatWorkerSm::Ptr natWorkerSmIs( NatWorkerDeps const& deps );
   void natWorkerSmDel( CorvaneCentral::ModId modId );
   void natWorkerSmDelAll();
   NatWorkerSm::Ptr natWorkerSm( CorvaneCentral::ModId modId ) const;
   std::size_t natWorkerSms() const { return natWorkerSm_.size(); }
   WorkerCollection const& natWorkerSm() const { return natWorkerSm_; }

   void hasNotificationActiveIs( bool active );

private:
   class ScsdReactor;
   class MountGroupReactor;
   class TrapConfigReactor;

   // What every worker is given (its watched entities also through the reactors).
   NatWorkerRootDeps deps_;
   std::unique_ptr<ScsdReactor> scsd_;
   std::unique_ptr<MountGroupReactor> mountGroup_;
   std::unique_ptr<TrapConfigReactor> trapConfig_;
   WorkerCollection natWorkerSm_;
};

NatWorkerRootSm::Ptr NatWorkerRootSmIs( NatWorkerRootDeps const& deps );

}  // namespace Corvane
