#include "Platform/Base/Clock.h"

#include <cmath>
#include <time.h>

namespace Vela {

MonotonicTime SystemClock::now() const noexcept {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return std::chrono::seconds(t.tv_sec) + std::chrono::nanoseconds(t.tv_nsec);
}

MonotonicTime nanosecondsFromSeconds(double seconds) noexcept {
    constexpr double longest = 4.0e9; // some 126 years: leaves as much again before an overflow
    double bounded = seconds > 0 ? (seconds < longest ? seconds : longest) : 0;
    return MonotonicTime(static_cast<int64_t>(std::ceil(bounded * 1e9)));
}

} // namespace Vela
