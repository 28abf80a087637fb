#include "Host/ControlChild.h"

#include "Host/ControlConnection.h"
#include "Platform/Trace/Trace.h"

#include <cerrno>
#include <csignal>
#include <ostream>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace Host {

namespace {

Vela::TraceHandle childTrace("ControlSocket");

void killAndReap(pid_t pid) noexcept {
    kill(pid, SIGKILL);
    while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
}

} // namespace

ControlChild::ControlChild(Vela::Ptr<Vela::TaskScheduler> scheduler, pid_t pid,
                           std::function<void()> ended)
    : pid_(pid), ended_(std::move(ended)) {
    try {
        // The C library's header of pidfd_open is not meant for C++.
        Vela::UniqueFd fd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
        if (!fd) {
            throw std::system_error(errno, std::generic_category(), "pidfd_open");
        }
        descriptor_ = Vela::make<Vela::FileDescriptor>(scheduler, "control child", std::move(fd));
        descriptor_->notifyOnReadableIs(true);
        timeout_ =
            Vela::make<Vela::Task>(scheduler, controlPriority, "ControlChildTimeout", this, [this] {
                TRACE(childTrace, 0, this, "is killed: not done after 60 seconds");
                kill(pid_, SIGKILL);
                return Vela::SliceResult{false, 1};
            });
    } catch (...) {
        killAndReap(pid);
        throw;
    }
}

void ControlChild::handleInitialized() {
    timeout_->scheduleAfter(patience);
    reaction_ = descriptor_->readableCountAttribute().react(this, [this] { reap(); });
}

void ControlChild::handleDestroy() noexcept {
    timeout_.reset();
    descriptor_.reset();
    if (!reaped_) {
        killAndReap(pid_);
    }
}

void ControlChild::formatDerivedType(std::ostream& out) const {
    out << "pid=" << pid_;
}

void ControlChild::reap() {
    Vela::Ptr<ControlChild> keep(this);
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) != pid_) {
        return;
    }
    // A client that went away ends its child by SIGPIPE.
    if (status != 0 && !(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE)) {
        TRACE(childTrace, 0, this, "ended with wait status " << status);
    }
    reaped_ = true;
    timeout_->cancel();
    ended_();
}

} // namespace Host
