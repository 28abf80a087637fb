#include "Testing/CoreFixture.h"

#include "Platform/Scheduler/Task.h"

#include <gtest/gtest-spi.h>
#include <vector>

namespace Testing {
namespace {

using namespace std::chrono_literals;
using Vela::make;
using Vela::MonotonicTime;
using Vela::SliceResult;
using Vela::Task;
using Vela::TaskPriority;

class CoreFixtureTest : public CoreFixture {
  protected:
    Vela::Ptr<Task> task(std::function<SliceResult()> slice) {
        return make<Task>(scheduler(), TaskPriority{3}, "task", nullptr, std::move(slice));
    }
};

/// A test within the test.
class Inner final : public CoreFixture {
  public:
    using CoreFixture::scheduler;
    void TestBody() override {}
};

TEST_F(CoreFixtureTest, RunsUntilNothingIsReadyAndCountsTheSlices) {
    EXPECT_EQ(runUntilIdle(), 0u);
    int slices = 0;
    auto busy = task([&] { return SliceResult{++slices < 7, 1}; });
    busy->schedule();
    auto delayed = task([] { return SliceResult{false, 1}; });
    delayed->scheduleAfter(1);
    EXPECT_EQ(runUntilIdle(), 7u);
    EXPECT_TRUE(delayed->scheduled());
}

TEST_F(CoreFixtureTest, WhatNeverEndsFailsWithADump) {
    auto endless = task([] { return SliceResult{true, 1}; });
    endless->schedule();
    EXPECT_NONFATAL_FAILURE(runUntilIdle(100), "still busy after 100 turns\nTaskScheduler\n");
    endless->cancel();
    int slices = 0;
    auto busy = task([&] { return SliceResult{++slices < 100, 1}; });
    busy->schedule();
    EXPECT_EQ(runUntilIdle(100), 100u);
}

TEST_F(CoreFixtureTest, StopsAtEachDelayOnTheWay) {
    MonotonicTime start = clock().now();
    std::vector<MonotonicTime> ran;
    Vela::Ptr<Task> periodic;
    periodic = task([&] {
        ran.push_back(clock().now() - start);
        periodic->scheduleAfter(2);
        return SliceResult{false, 1};
    });
    periodic->schedule();
    runFor(5);
    EXPECT_EQ(ran, (std::vector<MonotonicTime>{0s, 2s, 4s}));
    EXPECT_EQ(clock().now(), start + 5s);
    runFor(1);
    EXPECT_EQ(ran.size(), 4u);
    EXPECT_EQ(clock().now(), start + 6s);
}

TEST_F(CoreFixtureTest, TimeThatSlicesTakeNeverTurnsTheClockBack) {
    MonotonicTime latest = clock().now();
    MonotonicTime start = latest;
    Vela::Ptr<Task> slow;
    slow = task([&] {
        EXPECT_GE(clock().now(), latest);
        clock().advance(3s);
        latest = clock().now();
        slow->scheduleAfter(1);
        return SliceResult{false, 1};
    });
    auto impatient = task([&] {
        EXPECT_GE(clock().now(), latest);
        return SliceResult{false, 1};
    });
    slow->schedule();
    impatient->scheduleAfter(1.5);
    runFor(5);
    EXPECT_GE(clock().now(), latest);
    EXPECT_EQ(clock().now(), start + 7s); // at 0 and at 4, for three seconds each
}

TEST_F(CoreFixtureTest, WhatOutlivesTheTestIsAnError) {
    Vela::Ptr<Task> kept;
    EXPECT_NONFATAL_FAILURE(
        {
            Inner inner;
            kept = make<Task>(inner.scheduler(), TaskPriority{3}, "kept", nullptr,
                              [] { return SliceResult{}; });
        },
        "the test left entities behind");
    kept.reset();
    { Inner inner; } // and silence otherwise
}

} // namespace
} // namespace Testing
