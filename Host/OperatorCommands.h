#pragma once

#include "Host/ControlSocket.h"
#include "Platform/Agent/Agent.h"
#include "Platform/State/DumpContext.h"

#include <functional>
#include <string>

namespace Host {

/// What operators can ask the daemon for:
///
///     show tech-support         the daemon's own state and the agent's
///     show status [VLAN] [-j]   the agent answers
///     show vlans [-j]           the agent answers
class OperatorCommands {
  public:
    /// `agent` outlives what is made here; `dumpDaemon` writes the daemon's own state.
    OperatorCommands(Vela::Agent& agent, std::function<void(Vela::DumpContext&)> dumpDaemon)
        : agent_(agent), dumpDaemon_(std::move(dumpDaemon)) {}

    /// Outlived by this object.
    ControlCommands controlCommands();

    std::string refusal(const std::string& command) const;
    /// Writes the answer to a command that is not refused.
    void answer(const std::string& command, int fd) const;

  private:
    Vela::Ptr<Vela::AgentCommandCallback> callbackOf(const std::string& command) const;
    void techSupport(const std::string& command, int fd) const;

    Vela::Agent& agent_;
    const std::function<void(Vela::DumpContext&)> dumpDaemon_;
};

} // namespace Host
