#include "Platform/Base/Clock.h"

#include <cmath>
#include <time.h>

namespace Vela {

namespace {
MonotonicTime reading(clockid_t clock) noexcept {
    timespec t;
    clock_gettime(clock, &t);
    return std::chrono::seconds(t.tv_sec) + std::chrono::nanoseconds(t.tv_nsec);
}
} // namespace

MonotonicTime SystemClock::now() const noexcept {
    return reading(CLOCK_MONOTONIC);
}

MonotonicTime SystemClock::recent() const noexcept {
    return reading(CLOCK_MONOTONIC_COARSE);
}

MonotonicTime nanosecondsFromSeconds(double seconds) noexcept {
    constexpr double longest = 4.0e9; // some 126 years: leaves as much again before an overflow
    double bounded = seconds > 0 ? (seconds < longest ? seconds : longest) : 0;
    return MonotonicTime(static_cast<int64_t>(std::ceil(bounded * 1e9)));
}

} // namespace Vela
