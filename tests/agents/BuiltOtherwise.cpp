// A library with an agent's factory that knows no host.

#include "Platform/Agent/AgentFactory.h"

extern "C" Vela::Agent* velaAgentFactory(uint64_t, const char*) {
    return nullptr;
}
