#pragma once

#include "Platform/Scheduler/FileDescriptor.h"

#include <csignal>
#include <functional>

namespace Host {

/// Turns signals into calls from the loop: SIGTERM and SIGINT into `onStop`, SIGHUP into
/// `onReload`. They are blocked for its life and SIGPIPE is ignored; destroying it restores mask
/// and disposition. One per process, made before any thread is.
///
/// Signals that arrive while the loop is busy are not lost, but those of one kind may be announced
/// once. The callbacks may destroy the object.
class SignalDescriptor final : public Vela::Entity {
  public:
    SignalDescriptor(Vela::Ptr<Vela::TaskScheduler> scheduler, std::function<void()> onStop,
                     std::function<void()> onReload);

    const char* typeName() const noexcept override { return "SignalDescriptor"; }

    /// For a forked child: none is blocked, and the four above end it. Calls only what is
    /// permitted after fork().
    static void resetForChild() noexcept;

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;

  private:
    void handleReadable();

    std::function<void()> onStop_;
    std::function<void()> onReload_;
    sigset_t maskBefore_;
    struct sigaction pipeBefore_;
    Vela::Owned<Vela::FileDescriptor> descriptor_;
    Vela::Reaction reaction_;
};

} // namespace Host
