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
    constexpr double longest = 9.0e9; // some 285 years: far from overflow, longer than any uptime
    double bounded = seconds > 0 ? (seconds < longest ? seconds : longest) : 0;
    return MonotonicTime(static_cast<int64_t>(std::ceil(bounded * 1e9)));
}

} // namespace Vela
