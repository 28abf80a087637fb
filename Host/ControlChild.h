#pragma once

#include "Platform/Scheduler/FileDescriptor.h"
#include "Platform/Scheduler/Task.h"

#include <functional>
#include <sys/types.h>

namespace Host {

/// A forked child that answers a command: reaped when it has ended, killed if that takes longer
/// than 60 s or when the object is destroyed before.
class ControlChild final : public Vela::Entity {
  public:
    static constexpr double patience = 60; // seconds

    /// Takes over the child, also if it throws std::system_error. `ended` is called once it is
    /// reaped and may destroy the object.
    ControlChild(Vela::Ptr<Vela::TaskScheduler> scheduler, pid_t pid, std::function<void()> ended);

    const char* typeName() const noexcept override { return "ControlChild"; }
    void formatDerivedType(std::ostream& out) const override;

    pid_t pid() const { return pid_; }

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;

  private:
    void reap();

    const pid_t pid_;
    bool reaped_ = false;
    std::function<void()> ended_;
    Vela::Owned<Vela::FileDescriptor> descriptor_;
    Vela::Owned<Vela::Task> timeout_;
    Vela::Reaction reaction_;
};

} // namespace Host
