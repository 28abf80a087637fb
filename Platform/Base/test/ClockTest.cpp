#include "Platform/Base/Clock.h"

#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace Vela;
using namespace std::chrono_literals;

class FixedClock final : public Clock {
  public:
    explicit FixedClock(MonotonicTime now) : now_(now) {}
    MonotonicTime now() const noexcept override { return now_; }

  private:
    MonotonicTime now_;
};

TEST(ClockTest, SecondsAreTheSameTime) {
    EXPECT_DOUBLE_EQ(FixedClock(1500ms).seconds(), 1.5);
    EXPECT_DOUBLE_EQ(FixedClock(1ns).seconds(), 1e-9);
    EXPECT_DOUBLE_EQ(FixedClock(0ns).seconds(), 0);
}

TEST(ClockTest, SystemClockNeverGoesBack) {
    SystemClock clock;
    MonotonicTime last = clock.now();
    for (int i = 0; i < 1000; ++i) {
        MonotonicTime now = clock.now();
        ASSERT_GE(now, last);
        last = now;
    }
}

TEST(ClockTest, WholeNanosecondsStayWhole) {
    EXPECT_EQ(nanosecondsFromSeconds(0), 0ns);
    EXPECT_EQ(nanosecondsFromSeconds(1), 1s);
    EXPECT_EQ(nanosecondsFromSeconds(0.25), 250ms);
    EXPECT_EQ(nanosecondsFromSeconds(86400), 24h);
}

TEST(ClockTest, PartsOfANanosecondAreRoundedUp) {
    EXPECT_EQ(nanosecondsFromSeconds(1e-10), 1ns);
    EXPECT_EQ(nanosecondsFromSeconds(1.25e-9), 2ns);
    EXPECT_EQ(nanosecondsFromSeconds(std::numeric_limits<double>::min()), 1ns);
}

TEST(ClockTest, NegativeIsNoDelay) {
    EXPECT_EQ(nanosecondsFromSeconds(-1), 0ns);
    EXPECT_EQ(nanosecondsFromSeconds(-std::numeric_limits<double>::infinity()), 0ns);
    EXPECT_EQ(nanosecondsFromSeconds(std::numeric_limits<double>::quiet_NaN()), 0ns);
}

TEST(ClockTest, EndlessIsLongerThanAnyUptimeAndCanStillBeAddedToOne) {
    constexpr auto years = 24h * 365;
    for (double seconds : {1e10, 1e300, std::numeric_limits<double>::infinity()}) {
        MonotonicTime delay = nanosecondsFromSeconds(seconds);
        EXPECT_GT(delay, 100 * years);
        EXPECT_LT(delay, MonotonicTime::max() - MonotonicTime(years));
    }
}

} // namespace
