#pragma once

#include "Platform/Base/Clock.h"

#include <algorithm>

namespace Testing {

/// Stands still until it is told to advance.
class SimulatedClock final : public Vela::Clock {
  public:
    Vela::MonotonicTime now() const noexcept override { return now_; }
    void advance(Vela::MonotonicTime by) { now_ += by; }
    /// Does nothing when it is later already.
    void advanceTo(Vela::MonotonicTime time) { now_ = std::max(now_, time); }

  private:
    // Not zero: a time that was never set must not pass for the present.
    Vela::MonotonicTime now_ = std::chrono::hours(1000);
};

} // namespace Testing
