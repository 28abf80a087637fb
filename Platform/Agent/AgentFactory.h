#pragma once

#include "Platform/Agent/Agent.h"

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Vela {

/// A number that differs whenever a header of the platform does. Host and agent must have been
/// built against the same headers: they share objects of their classes.
uint64_t platformAbi();

/// What an agent's library exports, under this name and nothing else: makes an agent of the given
/// name. The caller owns the one reference that comes with it. Null if `abi` is not the library's
/// own; then nothing has been done.
using AgentFactory = Agent* (*)(uint64_t abi, const char* name);
inline constexpr const char* agentFactoryName = "velaAgentFactory";

/// An agent's library cannot be used: the text names it and says why.
class AgentLibraryError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Loads the library, which is never unloaded, and makes its agent. Throws AgentLibraryError.
Ptr<Agent> loadAgent(const std::string& library, const std::string& name);

} // namespace Vela
