#include "Ctl/Rounds.h"

#include <csignal>
#include <gtest/gtest.h>

namespace Ctl {
namespace {

bool isBlocked(int signal) {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

TEST(RoundsTest, AnInterruptionEndsThemAtOnce) {
    for (int signal : {SIGINT, SIGTERM}) {
        Rounds rounds(std::chrono::hours(1));
        raise(signal);
        EXPECT_EQ(rounds.next(), std::nullopt);
    }
}

TEST(RoundsTest, TheTimeIsThatSinceTheLastOne) {
    Rounds rounds(std::chrono::nanoseconds(1));
    for (int i = 0; i < 3; ++i) {
        auto seconds = rounds.next();
        ASSERT_TRUE(seconds);
        EXPECT_GT(*seconds, 0);
        EXPECT_LT(*seconds, 3600);
    }
}

TEST(RoundsTest, OnlyThoseTwoSignalsAndOnlyMeanwhile) {
    EXPECT_FALSE(isBlocked(SIGINT));
    {
        Rounds rounds(std::chrono::hours(1));
        EXPECT_TRUE(isBlocked(SIGINT));
        EXPECT_TRUE(isBlocked(SIGTERM));
        EXPECT_FALSE(isBlocked(SIGQUIT));
        EXPECT_FALSE(isBlocked(SIGPIPE));
    }
    EXPECT_FALSE(isBlocked(SIGINT));
    EXPECT_FALSE(isBlocked(SIGTERM));
}

} // namespace
} // namespace Ctl
