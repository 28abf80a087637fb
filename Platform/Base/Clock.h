#pragma once

#include <chrono>

namespace Vela {

/// Nanoseconds on a clock that never jumps; the zero point means nothing.
using MonotonicTime = std::chrono::nanoseconds;

/// Where everything that waits or ages takes its time from, so that tests can supply it.
class Clock {
  public:
    virtual ~Clock() = default;
    virtual MonotonicTime now() const noexcept = 0;

    /// The same time in seconds.
    double seconds() const noexcept { return std::chrono::duration<double>(now()).count(); }
};

/// CLOCK_MONOTONIC.
class SystemClock final : public Clock {
  public:
    MonotonicTime now() const noexcept override;
};

/// A delay in seconds, rounded up so that what waits for it never wakes early.
MonotonicTime nanosecondsFromSeconds(double seconds) noexcept;

} // namespace Vela
