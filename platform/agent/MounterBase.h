#pragma once

// The base of a plug-in's mounter: the object through which a plug-in enters the agent.
//
// The host creates the mounter by type name with its name as the one argument, then calls
// doInit(). The base supplies the agent's name, the state database and its mount group
// for this mounter, the shared-memory table service, and the entities the agent shares
// with its plug-ins. It takes all of them from the current agent context, which must be
// set when the mounter is built; the mounter holds references to them from then on.
// doMountsComplete() (from Orrery::Mounter) is called from the event loop once the
// mounter's state-database mount group has been closed.

#include <string>

#include "platform/agent/AgentContext.h"

namespace CorvaneLib {

class MounterBase : public Fwk::Entity, public Orrery::Mounter {
public:
   typedef Fwk::Ptr<MounterBase> Ptr;

   std::string const& agentName() const { return agentName_; }
   Orrery::EntityManager* entityManager() const { return stateDatabase_.ptr(); }
   VekSharedMem::EntityManager* sharedMemEntityManager() const {
      return sharedMem_.ptr();
   }
   // A state-database mount group whose completion is reported to this mounter.
   Orrery::MountGroup::Ptr getMountGroup();
   // An entity the agent shares with its plug-ins; null when there is none by that name.
   Fwk::Entity::Ptr sharedEntity( std::string const& name ) const;
   template <class T>
   Fwk::Ptr<T> sharedEntity( std::string const& name ) const {
      return Fwk::ptr_cast<T>( sharedEntity( name ) );
   }

   // Starts the plug-in: called by the host once, after construction.
   virtual void doInit() = 0;

protected:
   explicit MounterBase( std::string name );
   ~MounterBase() override;

private:
   std::string agentName_;
   Orrery::EntityManager::Ptr stateDatabase_;
   VekSharedMem::EntityManager::Ptr sharedMem_;
   std::map<std::string, Fwk::Entity::Ptr> sharedEntities_;
};

}  // namespace CorvaneLib
