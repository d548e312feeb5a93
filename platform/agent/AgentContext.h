#pragma once

// The agent a plug-in runs in: its name, its state database, its shared-memory tables
// and the entities it shares with all its plug-ins ("tcamManager", "corvaneCommon", ...).
//
// The host fills one context and makes it current before it creates a plug-in's mounter;
// the mounter base reads it at construction. The context must outlive every mounter.

#include <map>
#include <string>

#include "platform/fwk/Entity.h"
#include "platform/mount/OrreryEntityManager.h"
#include "platform/mount/VekSharedMemEntityManager.h"

namespace Agent {

struct AgentContext {
   std::string name;
   Orrery::EntityManager::Ptr stateDatabase;
   VekSharedMem::EntityManager::Ptr sharedMem;
   std::map<std::string, Fwk::Entity::Ptr> sharedEntities;
};

// The current agent, or null.
AgentContext* currentAgent();
void currentAgentIs( AgentContext* agent );

}  // namespace Agent
