#include "Host/ControlSocket.h"

#include "Host/ControlChild.h"
#include "Host/ControlConnection.h"
#include "Host/SignalDescriptor.h"
#include "Host/StartError.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Trace.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <grp.h>
#include <optional>
#include <ostream>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace Host {

namespace {

Vela::TraceHandle socketTrace("ControlSocket");

constexpr int childNiceness = 10;

[[noreturn]] void fail(const std::string& what, int error) {
    throw StartError("control socket " + what + ": " + std::strerror(error));
}

gid_t groupId(const std::string& name) {
    std::vector<char> buffer(4096);
    group entry{};
    group* found = nullptr;
    int error = 0;
    while ((error = getgrnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found)) ==
           ERANGE) {
        buffer.resize(buffer.size() * 2); // a group of many members
    }
    if (!found) {
        throw StartError("control socket: there is no group \"" + name + "\"" +
                         (error ? std::string(": ") + std::strerror(error) : ""));
    }
    return entry.gr_gid;
}

void removeStale(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return;
    }
    if (!S_ISSOCK(status.st_mode)) {
        throw StartError("control socket " + path + ": something else stands there");
    }
    if (unlink(path.c_str()) != 0) {
        fail(path, errno);
    }
}

/// Nobody may connect until owner and mode are right.
int bindPrivately(int fd, const sockaddr_un& address) {
    mode_t before = umask(0177);
    const void* any = &address;
    int result = bind(fd, static_cast<const sockaddr*>(any), sizeof address);
    int error = errno;
    umask(before);
    errno = error;
    return result;
}

Vela::UniqueFd listenAt(const std::string& path, const std::string& group) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw StartError("control socket " + path + ": the path is longer than " +
                         std::to_string(sizeof address.sun_path - 1) + " bytes");
    }
    path.copy(address.sun_path, path.size());
    std::optional<gid_t> gid;
    if (!group.empty()) {
        gid = groupId(group);
    }
    removeStale(path);
    Vela::UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd || bindPrivately(fd.get(), address) != 0 ||
        (gid && chown(path.c_str(), static_cast<uid_t>(-1), *gid) != 0) ||
        chmod(path.c_str(), 0660) != 0 || listen(fd.get(), SOMAXCONN) != 0) {
        fail(path, errno);
    }
    return fd;
}

/// Enough of what a client sent to recognise it.
std::string quoted(const std::string& command) {
    constexpr size_t most = 100;
    return '"' + command.substr(0, most) + (command.size() > most ? "...\"" : "\"");
}

bool writeAll(int fd, std::string_view text) noexcept {
    while (!text.empty()) {
        ssize_t count = write(fd, text.data(), text.size());
        if (count < 0) {
            return false;
        }
        text.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

/// A descriptor that outlives the daemon in a child would keep its directory locked, or a client
/// of somebody else waiting.
void closeAllBut(int fd) noexcept {
    if (fd > STDERR_FILENO + 1) {
        close_range(STDERR_FILENO + 1, static_cast<unsigned>(fd) - 1, 0);
    }
    close_range(static_cast<unsigned>(fd) + 1, ~0u, 0);
}

} // namespace

std::string unknownCommand(const std::string& command, const std::string& names) {
    return "unknown command " + quoted(command) + "; known: " + names;
}

ControlSocket::ControlSocket(Vela::Ptr<Vela::TaskScheduler> scheduler, std::string path,
                             const std::string& group, ControlCommands commands)
    : scheduler_(std::move(scheduler)), path_(std::move(path)), commands_(std::move(commands)) {
    listener_ = Vela::make<Vela::FileDescriptor>(scheduler_, "control", listenAt(path_, group));
    acceptor_ = Vela::make<Vela::Task>(scheduler_, controlPriority, "ControlSocket", this,
                                       [this] { return acceptOne(); });
}

ControlSocket::~ControlSocket() = default;

void ControlSocket::handleInitialized() {
    reaction_ = listener_->readableCountAttribute().react(this, [this] { acceptor_->schedule(); });
    listener_->notifyOnReadableIs(true);
}

void ControlSocket::handleDestroy() noexcept {
    acceptor_.reset();
    listener_.reset();
    unlink(path_.c_str());
    connections_.clear();
    children_.clear();
}

void ControlSocket::formatDerivedType(std::ostream& out) const {
    out << path_;
}

void ControlSocket::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s %s\n", typeName(), path_.c_str());
    context.print(indent + 2, "connections=%zu children=%zu\n", connections_.size(),
                  children_.size());
}

Vela::SliceResult ControlSocket::acceptOne() {
    Vela::UniqueFd fd(accept4(listener_->descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
    if (fd) {
        connectionIs(std::move(fd));
        return {true, 1};
    }
    switch (errno) {
    case EAGAIN:
        listener_->readableDel();
        return {};
    case EINTR:
    case ECONNABORTED:
        return {true, 0};
    default: // no descriptors or no memory: who waits is not announced again
        TRACE(socketTrace, 0, this, "accept: " << std::strerror(errno));
        acceptor_->scheduleAfter(1);
        return {};
    }
}

void ControlSocket::connectionIs(Vela::UniqueFd fd) {
    if (connections_.size() == mostConnections) {
        sendControlError(fd.get(), "busy");
        return;
    }
    uint64_t number = ++lastConnection_;
    ControlConnection::Callbacks callbacks{
        [this](const std::string& command, int connection) { return start(command, connection); },
        [this, number] { connections_.erase(number); }};
    connections_[number] =
        Vela::make<ControlConnection>(scheduler_, std::move(fd), std::move(callbacks));
}

std::string ControlSocket::start(const std::string& command, int fd) {
    if (std::string refusal = commands_.refusal(command); !refusal.empty()) {
        return refusal;
    }
    if (children_.size() == mostChildren) {
        return "busy";
    }
    pid_t pid = fork();
    if (pid == 0) {
        runChild(command, fd);
    }
    if (pid < 0) {
        return std::string("no process for the answer: ") + std::strerror(errno);
    }
    try {
        auto ended = [this, pid] { children_.erase(pid); };
        children_[pid] = Vela::make<ControlChild>(scheduler_, pid, ended);
    } catch (const std::system_error& error) {
        return std::string("no process for the answer: ") + error.what();
    }
    return "";
}

/// No destructor of the daemon's objects may run here: they would change what is shared with it.
void ControlSocket::runChild(const std::string& command, int fd) const noexcept {
    prctl(PR_SET_PDEATHSIG, SIGKILL); // nobody else is left to kill it
    SignalDescriptor::resetForChild();
    closeAllBut(fd);
    nice(childNiceness);
    try {
        if (writeAll(fd, "ok\n")) {
            commands_.handler(command, fd);
        }
    } catch (const std::exception& error) {
        writeAll(STDERR_FILENO, "control command " + quoted(command) + ": " + error.what() + "\n");
        _exit(1);
    }
    _exit(0);
}

} // namespace Host
