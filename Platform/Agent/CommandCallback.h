#pragma once

#include "Platform/State/Collection.h"

#include <string>

namespace Vela {

/// A command that operators can run against an agent. It runs in a forked child of the agent's
/// process: it sees the state of that moment, changes nothing that lasts, and may take its time.
class AgentCommandCallback : public Entity {
  public:
    virtual const char* commandName() const = 0;
    /// Why there can be no answer to this line, as for arguments that make no sense; nothing if
    /// there can. Asked in the agent's process, so it must be quick.
    virtual std::string refusal(const std::string& /*command*/) const { return {}; }
    /// Writes the command's output to `fd`, which stays the caller's. `command` is the line as it
    /// was typed.
    virtual void handleCommand(int fd, const std::string& command) = 0;
};

/// The commands of an agent by name.
class CommandRequestDirSm final : public Entity {
  public:
    using CallbackCollection = Map<std::string, Ptr<AgentCommandCallback>>;

    const char* typeName() const noexcept override { return "CommandRequestDirSm"; }
    void dumpState(DumpContext& context, int indent) const override;

    /// Registers a callback in the place of one of the same name.
    void callbackIs(const Ptr<AgentCommandCallback>& callback) {
        callback_.set(callback->commandName(), callback);
    }
    void callbackDel(const std::string& commandName) { callback_.del(commandName); }
    void callbackDelAll() { callback_.delAll(); }
    Ptr<AgentCommandCallback> callback(const std::string& commandName) const {
        return callback_.value(commandName);
    }
    const CallbackCollection& callbackCollection() const { return callback_; }

  private:
    CallbackCollection callback_;
};

} // namespace Vela
