// What the host finds in the agent's library.

#include "ArpSuppression/ArpSuppressionAgent.h"
#include "Platform/Agent/AgentFactory.h"
#include "Platform/Agent/PlatformAbi.h"

extern "C" [[gnu::visibility("default")]] Vela::Agent* velaAgentFactory(uint64_t abi,
                                                                        const char* name) {
    if (abi != Vela::builtPlatformAbi) {
        return nullptr;
    }
    return ArpSuppression::arpSuppressionAgentFactory(name).detach();
}
