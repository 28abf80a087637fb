#include "Platform/Agent/AgentFactory.h"

#include "Platform/Agent/PlatformAbi.h"

#include <bit>
#include <dlfcn.h>

namespace Vela {

uint64_t platformAbi() {
    return builtPlatformAbi;
}

Ptr<Agent> loadAgent(const std::string& library, const std::string& name) {
    // RTLD_NOW: what is missing shows here, and not at the first request at night.
    void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!handle) {
        throw AgentLibraryError(dlerror());
    }
    void* symbol = dlsym(handle, agentFactoryName);
    if (!symbol) {
        throw AgentLibraryError(library + ": is no agent: it has no " + agentFactoryName);
    }
    Agent* agent = std::bit_cast<AgentFactory>(symbol)(platformAbi(), name.c_str());
    if (!agent) {
        throw AgentLibraryError(library + ": was built against other headers of the platform");
    }
    return Ptr<Agent>(agent, false);
}

} // namespace Vela
