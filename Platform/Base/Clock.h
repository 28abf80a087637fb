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
    /// A reading that may be some milliseconds old, never older than one before, for a fraction of
    /// the price: for what ages in seconds and is asked for with each frame.
    virtual MonotonicTime recent() const noexcept { return now(); }

    /// The same time in seconds.
    double seconds() const noexcept { return std::chrono::duration<double>(now()).count(); }
};

/// CLOCK_MONOTONIC.
class SystemClock final : public Clock {
  public:
    MonotonicTime now() const noexcept override;
    MonotonicTime recent() const noexcept override;
};

/// A delay in seconds, rounded up so that what waits for it never wakes early.
MonotonicTime nanosecondsFromSeconds(double seconds) noexcept;

} // namespace Vela
