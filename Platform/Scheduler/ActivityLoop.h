#pragma once

#include "Platform/Scheduler/TaskScheduler.h"
#include "Platform/State/Attribute.h"

#include <cstdint>

namespace Vela {

/// Runs a scheduler turn after turn. Wakes at least every 500 ms.
class ActivityLoop {
  public:
    static constexpr MonotonicTime longestSleep = std::chrono::milliseconds(500);

    explicit ActivityLoop(Ptr<TaskScheduler> scheduler) : scheduler_(std::move(scheduler)) {}

    /// Returns after the turn in which `stop` was called.
    void run();
    /// To be called from within a turn.
    void stop() { stopped_ = true; }

    /// Turns completed; every one is announced. A heartbeat taken from here says that work gets
    /// done, not merely that a timer fires.
    uint64_t turns() const { return turns_.get(); }
    const Attribute<uint64_t>& turnsAttribute() const { return turns_; }

  private:
    Ptr<TaskScheduler> scheduler_;
    Attribute<uint64_t> turns_;
    bool stopped_ = false;
};

} // namespace Vela
