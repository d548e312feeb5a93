#include "platform/agent/MounterBase.h"

namespace CorvaneLib {

MounterBase::MounterBase( std::string name ) : Entity( std::move( name ) ) {
   Agent::AgentContext* agent = Agent::currentAgent();
   FWK_ASSERT_TEXT( agent, "a mounter is built inside an agent" );
   agentName_ = agent->name;
   stateDatabase_ = agent->stateDatabase;
   sharedMem_ = agent->sharedMem;
   sharedEntities_ = agent->sharedEntities;
}

MounterBase::~MounterBase() = default;

Orrery::MountGroup::Ptr MounterBase::getMountGroup() {
   return stateDatabase_->getMountGroup( this );
}

Fwk::Entity::Ptr MounterBase::sharedEntity( std::string const& name ) const {
   auto i = sharedEntities_.find( name );
   return i == sharedEntities_.end() ? nullptr : i->second;
}

}  // namespace CorvaneLib
