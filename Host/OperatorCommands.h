#pragma once

#include "Host/ControlSocket.h"
#include "Host/ForwardingPlaneReport.h"
#include "Platform/Agent/Agent.h"
#include "Platform/State/DumpContext.h"

#include <functional>
#include <string>

namespace Host {

/// What operators can ask the daemon for:
///
///     show tech-support                           the daemon's own state and the agent's
///     show status [VLAN] [-j]                     the agent answers
///     show vlans [-j]                             the agent answers
///     show bindings local [ADDRESS] [VLAN] [-j]   the agent answers
///     explain ADDRESS [VLAN] [-j]                 the agent answers
///     show neighbours [-j]                        what is asked of the kernel, and came of it
///     show forwarding-plane [-j]                  where there is one
class OperatorCommands {
  public:
    struct Sources {
        Vela::Agent& agent; ///< outlives what is made here
        /// Writes the daemon's own state.
        std::function<void(Vela::DumpContext&)> dumpDaemon;
        /// Writes the neighbour entries that are asked for.
        std::function<void(bool json, int fd)> writeNeighbors;
        /// Empty where there is no forwarding plane.
        std::function<ForwardingPlaneReport()> forwardingPlane = {};
    };

    explicit OperatorCommands(Sources sources) : sources_(std::move(sources)) {}

    /// Outlived by this object.
    ControlCommands controlCommands();

    std::string refusal(const std::string& command) const;
    /// Writes the answer to a command that is not refused.
    void answer(const std::string& command, int fd) const;

  private:
    Vela::Ptr<Vela::AgentCommandCallback> callbackOf(const std::string& command) const;
    void techSupport(const std::string& command, int fd) const;

    const Sources sources_;
};

} // namespace Host
