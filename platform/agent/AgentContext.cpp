#include "platform/agent/AgentContext.h"

namespace Agent {

namespace {
AgentContext* current = nullptr;
}  // namespace

AgentContext* currentAgent() {
   return current;
}

void currentAgentIs( AgentContext* agent ) {
   current = agent;
}

}  // namespace Agent
