#include "Host/SignalDescriptor.h"

#include <cerrno>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace Host {

namespace {

sigset_t handledSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGHUP);
    return set;
}

} // namespace

SignalDescriptor::SignalDescriptor(Vela::Ptr<Vela::TaskScheduler> scheduler,
                                   std::function<void()> onStop, std::function<void()> onReload)
    : onStop_(std::move(onStop)), onReload_(std::move(onReload)) {
    const sigset_t handled = handledSignals();
    Vela::UniqueFd fd(signalfd(-1, &handled, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!fd) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    descriptor_ = Vela::make<Vela::FileDescriptor>(std::move(scheduler), "signals", std::move(fd));
    descriptor_->notifyOnReadableIs(true);
    pthread_sigmask(SIG_BLOCK, &handled, &maskBefore_);
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &pipeBefore_);
}

void SignalDescriptor::handleInitialized() {
    reaction_ = descriptor_->readableCountAttribute().react(this, [this] { handleReadable(); });
}

void SignalDescriptor::handleDestroy() noexcept {
    descriptor_.reset();
    sigaction(SIGPIPE, &pipeBefore_, nullptr);
    pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
}

void SignalDescriptor::handleReadable() {
    Vela::Ptr<SignalDescriptor> keep(this);
    signalfd_siginfo signal;
    while (!destroyed() && read(descriptor_->descriptor(), &signal, sizeof signal) ==
                               static_cast<ssize_t>(sizeof signal)) {
        (signal.ssi_signo == SIGHUP ? onReload_ : onStop_)();
    }
    if (!destroyed()) {
        descriptor_->readableDel();
    }
}

void SignalDescriptor::resetForChild() noexcept {
    // Dispositions first: what is pending must meet the default once it is let through.
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGPIPE}) {
        sigaction(signal, &standard, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

} // namespace Host
