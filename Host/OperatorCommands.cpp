#include "Host/OperatorCommands.h"

#include <string_view>

namespace Host {

namespace {

constexpr const char* names = "show tech-support, show status [VLAN] [-j], show vlans [-j]";

constexpr const char* techSupportCommand = "show tech-support";

/// What the agent calls the command.
struct AgentCommand {
    std::string_view command;
    const char* callback;
};
constexpr AgentCommand agentCommands[] = {
    {techSupportCommand, "showTechSupport"},
    {"show status", "showStatus"},
    {"show vlans", "showVlans"},
};

bool isCommand(std::string_view line, std::string_view command) {
    return line.starts_with(command) &&
           (line.size() == command.size() || line[command.size()] == ' ');
}

const AgentCommand* agentCommandOf(std::string_view line) {
    for (const AgentCommand& command : agentCommands) {
        if (isCommand(line, command.command)) {
            return &command;
        }
    }
    return nullptr;
}

} // namespace

ControlCommands OperatorCommands::controlCommands() {
    return {[this](const std::string& command) { return refusal(command); },
            [this](const std::string& command, int fd) { answer(command, fd); }};
}

Vela::Ptr<Vela::AgentCommandCallback>
OperatorCommands::callbackOf(const std::string& command) const {
    const AgentCommand* known = agentCommandOf(command);
    return known ? agent_.commandRequestDirSm().callback(known->callback) : nullptr;
}

std::string OperatorCommands::refusal(const std::string& command) const {
    if (command == techSupportCommand) {
        return ""; // there is always something to tell
    }
    if (!agentCommandOf(command) || isCommand(command, techSupportCommand)) {
        return unknownCommand(command, names);
    }
    auto callback = callbackOf(command);
    return callback ? callback->refusal(command)
                    : "the agent still waits for what it mounts, which show tech-support names";
}

void OperatorCommands::answer(const std::string& command, int fd) const {
    if (command == techSupportCommand) {
        techSupport(command, fd);
    } else if (auto callback = callbackOf(command)) {
        callback->handleCommand(fd, command);
    }
}

void OperatorCommands::techSupport(const std::string& command, int fd) const {
    Vela::DumpContext context(fd);
    dumpDaemon_(context);
    if (auto callback = callbackOf(command)) {
        context.flush();
        callback->handleCommand(fd, command);
    } else {
        context.child(0, "agent", &agent_);
    }
}

} // namespace Host
