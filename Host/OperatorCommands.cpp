#include "Host/OperatorCommands.h"

#include <string_view>

namespace Host {

namespace {

constexpr const char* names =
    "show tech-support, show status [VLAN] [-j], show vlans [-j], "
    "show bindings local [ADDRESS] [VLAN] [-j], explain ADDRESS [VLAN] [-j], "
    "show neighbours [-j], show forwarding-plane [-j]";

constexpr std::string_view techSupportCommand = "show tech-support";
constexpr std::string_view neighboursCommand = "show neighbours";
constexpr std::string_view neighboursJsonCommand = "show neighbours -j";
constexpr std::string_view forwardingPlaneCommand = "show forwarding-plane";
constexpr std::string_view forwardingPlaneJsonCommand = "show forwarding-plane -j";

/// What the agent calls the command; null if it is none of the agent's.
const char* callbackName(std::string_view line) {
    auto is = [&](std::string_view command) {
        return line == command || (line.starts_with(command) && line[command.size()] == ' ');
    };
    return line == techSupportCommand  ? "showTechSupport"
           : is("show status")         ? "showStatus"
           : is("show vlans")          ? "showVlans"
           : is("show bindings local") ? "showBindingsLocal"
           : is("explain")             ? "explain"
                                       : nullptr;
}

} // namespace

ControlCommands OperatorCommands::controlCommands() {
    return {[this](const std::string& command) { return refusal(command); },
            [this](const std::string& command, int fd) { answer(command, fd); }};
}

/// Null if the command is none of the agent's, or the agent does not have it yet.
Vela::Ptr<Vela::AgentCommandCallback>
OperatorCommands::callbackOf(const std::string& command) const {
    const char* name = callbackName(command);
    return name ? sources_.agent.commandRequestDirSm().callback(name) : nullptr;
}

std::string OperatorCommands::refusal(const std::string& command) const {
    if (command == techSupportCommand || command == neighboursCommand ||
        command == neighboursJsonCommand) {
        return ""; // there is always something to tell
    }
    if (command == forwardingPlaneCommand || command == forwardingPlaneJsonCommand) {
        return sources_.forwardingPlane ? "" : "this arpsupd has no forwarding plane";
    }
    if (!callbackName(command)) {
        return unknownCommand(command, names);
    }
    auto callback = callbackOf(command);
    return callback ? callback->refusal(command)
                    : "the agent still waits for what it mounts; show tech-support says for what";
}

void OperatorCommands::answer(const std::string& command, int fd) const {
    if (command == techSupportCommand) {
        techSupport(command, fd);
    } else if (command == neighboursCommand || command == neighboursJsonCommand) {
        sources_.writeNeighbors(command == neighboursJsonCommand, fd);
    } else if (command == forwardingPlaneCommand || command == forwardingPlaneJsonCommand) {
        writeForwardingPlane(sources_.forwardingPlane(), command == forwardingPlaneJsonCommand, fd);
    } else if (auto callback = callbackOf(command)) {
        callback->handleCommand(fd, command);
    }
}

void OperatorCommands::techSupport(const std::string& command, int fd) const {
    Vela::DumpContext context(fd);
    sources_.dumpDaemon(context);
    if (auto callback = callbackOf(command)) {
        context.flush();
        callback->handleCommand(fd, command);
    } else {
        context.child(0, "agent", &sources_.agent);
    }
}

} // namespace Host
