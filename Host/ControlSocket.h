#pragma once

#include "Platform/Scheduler/FileDescriptor.h"
#include "Platform/Scheduler/Task.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace Host {

class ControlChild;
class ControlConnection;

/// What can be asked for through the control socket.
struct ControlCommands {
    /// Why there can be no answer; nothing if there can. Asked in the daemon, so it must be quick.
    std::function<std::string(const std::string& command)> refusal;
    /// Writes the answer. Runs in a forked child, at low priority, with the default signal mask and
    /// no descriptors but standard input, output and error and `fd`, which blocks. It sees the
    /// daemon's state of the moment; what it changes nobody sees, but in memory that is shared with
    /// other processes, where it must change nothing. The child ends when it returns or throws;
    /// what it has buffered it must have written by then.
    std::function<void(const std::string& command, int fd)> handler;
};

/// What a client is told who asks for something else than the commands named, for people:
/// "show tech-support, show status [VLAN]".
std::string unknownCommand(const std::string& command, const std::string& names);

/// The UNIX stream socket through which an operator asks the daemon. The client sends one line of
/// printable ASCII (ControlRequest); the answer is "ok\n" and the output, until the connection
/// closes; or "error: <text>\n". A slow reader or a great dump never stops the daemon.
///
/// At most 16 clients that have not sent their line yet and 4 children at a time: beyond that the
/// answer is "error: busy". Children are killed when the socket is destroyed.
class ControlSocket final : public Vela::Entity {
  public:
    static constexpr size_t mostConnections = 16;
    static constexpr size_t mostChildren = 4;

    /// Listens at `path`, mode 0660, for root and the group, if one is named. A socket that stands
    /// there is replaced: the caller holds the lock of the directory. Throws StartError.
    ControlSocket(Vela::Ptr<Vela::TaskScheduler> scheduler, std::string path,
                  const std::string& group, ControlCommands commands);

    const char* typeName() const noexcept override { return "ControlSocket"; }
    void formatDerivedType(std::ostream& out) const override;
    void dumpState(Vela::DumpContext& context, int indent) const override;

    size_t connections() const { return connections_.size(); }
    size_t children() const { return children_.size(); }

  protected:
    ~ControlSocket() override;
    void handleInitialized() override;
    void handleDestroy() noexcept override;

  private:
    Vela::SliceResult acceptOne();
    void connectionIs(Vela::UniqueFd fd);
    std::string start(const std::string& command, int fd);
    [[noreturn]] void runChild(const std::string& command, int fd) const noexcept;

    Vela::Ptr<Vela::TaskScheduler> scheduler_;
    const std::string path_;
    const ControlCommands commands_;
    Vela::Owned<Vela::FileDescriptor> listener_;
    Vela::Owned<Vela::Task> acceptor_;
    Vela::Reaction reaction_;
    uint64_t lastConnection_ = 0;
    std::map<uint64_t, Vela::Owned<ControlConnection>> connections_;
    std::map<pid_t, Vela::Owned<ControlChild>> children_;
};

} // namespace Host
