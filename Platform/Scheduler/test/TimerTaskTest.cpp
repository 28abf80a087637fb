#include "Platform/Scheduler/Task.h"

#include "Platform/Scheduler/TaskScheduler.h"
#include "Testing/CoreFixture.h"

#include <optional>
#include <sstream>

namespace Vela {
namespace {

using namespace std::chrono_literals;

class TimerTaskTest : public Testing::CoreFixture {
  protected:
    Ptr<TimerTask> timer(std::string name = "SafeEthDevPam-1") {
        return make<TimerTask>(scheduler(), TaskPriority{3}, std::move(name));
    }
};

TEST_F(TimerTaskTest, AnnouncesEachRun) {
    auto enable = timer();
    uint32_t announced = 0;
    auto reaction = enable->runAttribute().react(nullptr, [&] { announced = enable->run(); });
    EXPECT_FALSE(enable->scheduled());
    enable->scheduleAfter(5);
    EXPECT_TRUE(enable->scheduled());
    runFor(4.999);
    EXPECT_EQ(announced, 0u);
    runFor(0.001);
    EXPECT_EQ(announced, 1u);
    EXPECT_FALSE(enable->scheduled());
    enable->schedule();
    runUntilIdle();
    EXPECT_EQ(announced, 2u);
    runFor(100);
    EXPECT_EQ(enable->run(), 2u);
}

TEST_F(TimerTaskTest, CancelledItDoesNotRun) {
    auto enable = timer();
    enable->scheduleAfter(5);
    enable->cancel();
    EXPECT_FALSE(enable->scheduled());
    runFor(10);
    EXPECT_EQ(enable->run(), 0u);
}

TEST_F(TimerTaskTest, MayBeArmedAgainByItsReaction) {
    auto enable = timer();
    auto reaction = enable->runAttribute().react(nullptr, [&] {
        if (enable->run() < 3) {
            enable->scheduleAfter(5);
        }
    });
    enable->schedule();
    runFor(9.9);
    EXPECT_EQ(enable->run(), 2u);
    runFor(0.1);
    EXPECT_EQ(enable->run(), 3u);
    runFor(100);
    EXPECT_EQ(enable->run(), 3u);
}

TEST_F(TimerTaskTest, OfTimersDueTogetherTheOldestFiresFirst) {
    std::vector<Ptr<TimerTask>> timers;
    std::vector<Reaction> reactions;
    std::string fired;
    for (int i = 0; i < 5; ++i) {
        timers.push_back(timer("t" + std::to_string(i)));
        reactions.push_back(timers.back()->runAttribute().react(
            nullptr, [&fired, i] { fired += static_cast<char>('0' + i); }));
    }
    for (int i = 4; i >= 0; --i) {
        timers[static_cast<size_t>(i)]->scheduleAfter(1);
    }
    runFor(1);
    EXPECT_EQ(fired, "01234");
    for (auto& each : timers) {
        each->scheduleAfter(1);
    }
    runFor(1);
    EXPECT_EQ(fired, "0123401234");
}

TEST_F(TimerTaskTest, OneThatIsDueEarlierFiresBeforeOlderOnesHoweverLateTheLoopIs) {
    auto older = timer();
    auto younger = timer();
    std::string fired;
    auto first = older->runAttribute().react(nullptr, [&] { fired += 'o'; });
    auto second = younger->runAttribute().react(nullptr, [&] { fired += 'y'; });
    older->scheduleAfter(2);
    younger->scheduleAfter(1);
    clock().advance(10s);
    runUntilIdle();
    EXPECT_EQ(fired, "yo");
}

TEST_F(TimerTaskTest, DestroyedItDoesNotFireAndIgnoresRequests) {
    auto enable = timer();
    uint32_t announced = 0;
    auto reaction = enable->runAttribute().react(nullptr, [&] { ++announced; });
    enable->scheduleAfter(1);
    enable->destroy();
    EXPECT_FALSE(enable->scheduled());
    enable->schedule();
    enable->scheduleAfter(1);
    enable->cancel();
    EXPECT_FALSE(enable->scheduled());
    runFor(10);
    EXPECT_EQ(announced, 0u);
    std::ostringstream text;
    enable->formatTraceObject(text);
    EXPECT_EQ(text.str(), "TimerTask(SafeEthDevPam-1)");
}

TEST_F(TimerTaskTest, MayBeDestroyedByItsReaction) {
    auto enable = timer();
    uint32_t announced = 0;
    auto reaction = enable->runAttribute().react(nullptr, [&] {
        ++announced;
        enable->scheduleAfter(1);
        enable.reset();
    });
    enable->schedule();
    runFor(10);
    EXPECT_EQ(announced, 1u);
}

} // namespace
} // namespace Vela
