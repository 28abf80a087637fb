#include "Platform/Scheduler/ActivityLoop.h"

#include "Platform/Scheduler/FileDescriptor.h"
#include "Testing/CoreFixture.h"

#include <sys/eventfd.h>
#include <sys/timerfd.h>

namespace Vela {
namespace {

using namespace std::chrono_literals;

class ActivityLoopTest : public Testing::CoreFixture {
  protected:
    ActivityLoop loop{scheduler()};
};

TEST_F(ActivityLoopTest, RunsUntilATaskStopsIt) {
    int slices = 0;
    auto task = make<Task>(scheduler(), TaskPriority{3}, "stopper", nullptr, [&] {
        if (++slices == 5) {
            loop.stop();
        }
        return SliceResult{true, 1};
    });
    task->schedule();
    loop.run();
    EXPECT_EQ(slices, 5);
    EXPECT_EQ(loop.turns(), 5u);

    // It may be run again.
    slices = 3;
    loop.run();
    EXPECT_EQ(slices, 5);
    EXPECT_EQ(loop.turns(), 7u);
}

TEST_F(ActivityLoopTest, AnnouncesEveryTurnOnceItIsComplete) {
    std::string seen;
    auto task = make<Task>(scheduler(), TaskPriority{3}, "worker", nullptr, [&] {
        seen += 's';
        return SliceResult{true, 1};
    });
    auto reaction = loop.turnsAttribute().react(nullptr, [&] {
        seen += static_cast<char>('0' + loop.turns());
        if (loop.turns() == 3) {
            loop.stop();
        }
    });
    task->schedule();
    loop.run();
    EXPECT_EQ(seen, "s1s2s3");
}

TEST_F(ActivityLoopTest, SleepsUntilADescriptorWakesIt) {
    auto idle = make<FileDescriptor>(scheduler(), "idle", UniqueFd(eventfd(0, EFD_CLOEXEC)));
    auto alarm = make<FileDescriptor>(scheduler(), "alarm",
                                      UniqueFd(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC)));
    auto ring = alarm->readableCountAttribute().react(nullptr, [&] { loop.stop(); });
    auto arm = idle->writableCountAttribute().react(nullptr, [&] {
        itimerspec soon{};
        soon.it_value.tv_nsec = 3'000'000;
        EXPECT_EQ(timerfd_settime(alarm->descriptor(), 0, &soon, nullptr), 0);
    });
    alarm->notifyOnReadableIs(true);
    idle->notifyOnWritableIs(true);
    loop.run();
    EXPECT_EQ(alarm->readableCount(), 1u);
    EXPECT_EQ(loop.turns(), 2u); // an idle writable descriptor and time that passes cost no turn
}

// The one test that lets real time pass: without the limit it would not end for an hour.
TEST_F(ActivityLoopTest, WithNothingToDoItWakesAfterHalfASecond) {
    static_assert(ActivityLoop::longestSleep == 500ms);
    auto idle = make<FileDescriptor>(scheduler(), "idle", UniqueFd(eventfd(0, EFD_CLOEXEC)));
    idle->notifyOnReadableIs(true);
    auto later = make<Task>(scheduler(), TaskPriority{3}, "later", nullptr, [] {
        return SliceResult{false, 1};
    });
    later->scheduleAfter(3600);
    auto reaction = loop.turnsAttribute().react(nullptr, [&] { loop.stop(); });
    loop.run();
    EXPECT_EQ(loop.turns(), 1u);
    EXPECT_EQ(scheduler()->slices(), 0u);
    EXPECT_EQ(idle->readableCount(), 0u);
}

} // namespace
} // namespace Vela
