#include "Platform/Scheduler/TaskScheduler.h"

#include "Platform/Base/Errors.h"
#include "Platform/Scheduler/FileDescriptor.h"
#include "Platform/Scheduler/test/TaskFixture.h"
#include "Platform/State/CaughtErrors.h"
#include "Platform/State/DumpContext.h"
#include "Testing/TraceCapture.h"

#include <csignal>
#include <stdexcept>
#include <sys/eventfd.h>

namespace Vela {
namespace {

using namespace std::chrono_literals;

class TaskSchedulerTest : public TaskFixture {};

using TaskSchedulerDeathTest = TaskSchedulerTest;

TEST_F(TaskSchedulerTest, TheLowestPriorityNumberRunsFirst) {
    auto low = task("l", 200);
    auto urgent = task("u", 0);
    auto usual = task("n", 3);
    for (auto& each : {low, usual, urgent}) {
        each->schedule();
    }
    runUntilIdle();
    EXPECT_EQ(ran, "unl");
}

TEST_F(TaskSchedulerTest, EqualPrioritiesTakeTurns) {
    auto a = longTask("a", 3);
    auto b = longTask("b", 5);
    auto c = longTask("c", 3);
    for (auto& each : {a, b, c}) {
        each->schedule();
    }
    EXPECT_EQ(runUntilIdle(), 11u);
    EXPECT_EQ(ran, "abcabcabcbb");
}

TEST_F(TaskSchedulerTest, ATaskWaitsForOneSliceOfEachOtherOfItsPriority) {
    auto a = longTask("a", 100);
    auto b = longTask("b", 100);
    auto late = task("L");
    a->schedule();
    b->schedule();
    turn();
    turn();
    late->schedule();
    turn();
    turn();
    turn();
    EXPECT_EQ(ran, "ababL");
    runUntilIdle();
}

TEST_F(TaskSchedulerTest, WhatIsMoreUrgentRunsBetweenTwoSlices) {
    auto a = longTask("a", 4);
    auto urgent = longTask("u", 2, 1);
    a->schedule();
    turn();
    urgent->schedule();
    runUntilIdle();
    EXPECT_EQ(ran, "auuaaa");
}

TEST_F(TaskSchedulerTest, BusyTasksDoNotKeepATimerWaiting) {
    auto busy = make<Task>(scheduler(), TaskPriority{3}, "busy", nullptr, [&] {
        clock().advance(1ms);
        return SliceResult{true, 1};
    });
    MonotonicTime ranAt{0};
    auto due = task("t", 3, [&] { ranAt = clock().now(); });
    busy->schedule();
    MonotonicTime start = clock().now();
    due->scheduleAfter(0.005);
    for (int i = 0; i < 20; ++i) {
        turn();
    }
    EXPECT_EQ(ran, "t");
    EXPECT_GE(ranAt - start, 5ms);
    EXPECT_LE(ranAt - start, 6ms);
    busy->destroy();
}

TEST_F(TaskSchedulerTest, BusyTasksDoNotKeepADescriptorWaiting) {
    auto busy = make<Task>(scheduler(), TaskPriority{0}, "busy", nullptr, [] {
        return SliceResult{true, 1};
    });
    auto event = make<FileDescriptor>(scheduler(), "event", UniqueFd(eventfd(1, EFD_CLOEXEC)));
    event->notifyOnReadableIs(true);
    busy->schedule();
    turn();
    EXPECT_EQ(event->readableCount(), 1u);
    busy->destroy();
}

TEST_F(TaskSchedulerTest, TasksDueTogetherRunInTheOrderOfTheirCreation) {
    auto a = task("a");
    auto b = task("b");
    auto c = task("c");
    for (auto& each : {c, a, b}) {
        each->scheduleAfter(1);
    }
    runFor(1);
    EXPECT_EQ(taken(), "abc");

    // Asked for at different times makes no difference either.
    MonotonicTime due = clock().now() + 10s;
    c->scheduleAt(due);
    runFor(3);
    b->scheduleAfter(7);
    runFor(3);
    a->scheduleAt(due);
    runFor(4);
    EXPECT_EQ(ran, "abc");
}

TEST_F(TaskSchedulerTest, ATaskWhoseDelayHasEndedWaitsBehindThoseThatAreReady) {
    auto due = task("d");
    auto alsoDue = task("e");
    auto ready = longTask("r", 3);
    due->scheduleAfter(1);
    alsoDue->scheduleAfter(1);
    ready->schedule();
    clock().advance(1s);
    runUntilIdle();
    EXPECT_EQ(ran, "rderr");
}

TEST_F(TaskSchedulerTest, ASliceMustYieldOnceItsBudgetIsUsed) {
    auto own = make<TaskScheduler>(
        clock(), TaskScheduler::Settings{.sliceBudget = 2ms, .alwaysYield = false});
    std::string answers;
    auto ask = [&] { answers += own->mustYield() ? 'y' : 'n'; };
    auto a = make<Task>(own, TaskPriority{3}, "a", nullptr, [&] {
        ask();
        clock().advance(2ms - 1ns);
        ask();
        clock().advance(1ns);
        ask();
        clock().advance(1h);
        ask();
        answers += ' ';
        return SliceResult{answers.size() < 10, 1};
    });
    a->schedule();
    own->turn(0ns);
    own->turn(0ns); // the next slice has a budget of its own
    EXPECT_EQ(answers, "nnyy nnyy ");
}

TEST_F(TaskSchedulerTest, ManyReadyTasksShareTheBudgetOfARound) {
    auto own = make<TaskScheduler>(clock(), TaskScheduler::Settings{.alwaysYield = false});
    MonotonicTime used{0};
    std::vector<Ptr<Task>> tasks;
    for (int i = 0; i < 100; ++i) {
        tasks.push_back(make<Task>(own, TaskPriority(i % 2), "t", nullptr, [&] {
            for (; !own->mustYield(); clock().advance(10us)) {
                used += 10us;
            }
            return SliceResult{false, 1};
        }));
        tasks.back()->schedule();
    }
    own->turn(0ns);
    EXPECT_EQ(used, 90us);
    while (tasks.back()->scheduled()) {
        own->turn(0ns);
    }
    used = MonotonicTime(0);
    tasks.back()->schedule();
    own->turn(0ns);
    EXPECT_EQ(used, 1ms) << "alone again, it has a whole budget";
}

TEST_F(TaskSchedulerTest, TheBudgetIsOneMillisecondUnlessSet) {
    EXPECT_EQ(TaskScheduler::Settings{}.sliceBudget, 1ms);
    EXPECT_FALSE(TaskScheduler::Settings{}.alwaysYield);
}

TEST_F(TaskSchedulerTest, AskedToAlwaysYieldItSaysSoAtEveryCheck) {
    auto own = make<TaskScheduler>(clock(),
                                   TaskScheduler::Settings{.sliceBudget = 1h, .alwaysYield = true});
    int yes = 0;
    auto a = make<Task>(own, TaskPriority{3}, "a", nullptr, [&] {
        yes += own->mustYield();
        yes += own->mustYield();
        return SliceResult{false, 1};
    });
    a->schedule();
    own->turn(0ns);
    EXPECT_EQ(yes, 2);
}

TEST_F(TaskSchedulerTest, TheFixturesSchedulerYieldsAsTheEnvironmentSays) {
    bool yields = false;
    auto a = task("a", 3, [&] { yields = scheduler()->mustYield(); });
    a->schedule();
    runUntilIdle();
    EXPECT_EQ(yields, alwaysYield());
}

TEST_F(TaskSchedulerTest, ATurnRunsOneSliceAndSaysWhetherAnythingWasDone) {
    auto a = longTask("a", 2);
    EXPECT_FALSE(turn());
    a->schedule();
    EXPECT_TRUE(scheduler()->hasReadyTask());
    EXPECT_TRUE(turn());
    EXPECT_EQ(scheduler()->slices(), 1u);
    EXPECT_TRUE(turn());
    EXPECT_EQ(scheduler()->slices(), 2u);
    EXPECT_FALSE(scheduler()->hasReadyTask());
    EXPECT_FALSE(turn());
    EXPECT_EQ(scheduler()->slices(), 2u);
}

TEST_F(TaskSchedulerTest, NextDueIsTheEarliestDelay) {
    EXPECT_FALSE(scheduler()->nextDue());
    auto a = task("a");
    auto b = task("b");
    a->scheduleAfter(7);
    b->scheduleAfter(3);
    EXPECT_EQ(scheduler()->nextDue(), clock().now() + 3s);
    b.reset();
    EXPECT_EQ(scheduler()->nextDue(), clock().now() + 7s);
    a->cancel();
    EXPECT_FALSE(scheduler()->nextDue());
}

// These two would wait for an hour.
TEST_F(TaskSchedulerTest, DoesNotWaitWhileATaskIsReady) {
    auto a = task("a");
    a->schedule();
    EXPECT_TRUE(scheduler()->turn(1h));
    EXPECT_EQ(ran, "a");
}

TEST_F(TaskSchedulerTest, WaitsNoLongerThanUntilTheNextDelayEnds) {
    auto a = task("a");
    a->scheduleAfter(1e-6);
    EXPECT_FALSE(scheduler()->turn(1h));
    clock().advance(1us);
    EXPECT_TRUE(scheduler()->turn(1h));
    EXPECT_EQ(ran, "a");
}

TEST_F(TaskSchedulerTest, ARangeErrorEndsTheSliceAndIsCounted) {
    Testing::TraceCapture trace("State=0");
    uint64_t before = caughtRangeErrors();
    auto a = task("a", 3, [&] {
        clock().advance(1ms);
        if (ran == "a") {
            throw RangeError("Bridging::VlanId::value < 1 or > 4094 not allowed");
        }
        ran += '!';
    });
    auto b = task("b");
    a->schedule();
    b->schedule();
    EXPECT_EQ(runUntilIdle(), 2u);
    EXPECT_EQ(ran, "ab");
    EXPECT_FALSE(a->scheduled());
    EXPECT_EQ(caughtRangeErrors(), before + 1);
    EXPECT_EQ(trace.count("range error: Bridging::VlanId::value < 1 or > 4094 not allowed"), 1u);
    EXPECT_EQ(a->statistics().runs, 1u);
    EXPECT_EQ(a->statistics().total, 1ms);

    a->schedule();
    runUntilIdle();
    EXPECT_EQ(ran, "aba!");
    EXPECT_EQ(caughtRangeErrors(), before + 1);
}

TEST_F(TaskSchedulerTest, WhatASliceAskedForBeforeItsRangeErrorStands) {
    Ptr<Task> a;
    a = task("a", 3, [&] {
        if (ran == "a") {
            a->schedule();
            throw RangeError("once");
        }
    });
    a->schedule();
    EXPECT_EQ(runUntilIdle(), 2u);
    EXPECT_EQ(ran, "aa");
}

TEST_F(TaskSchedulerDeathTest, AnyOtherErrorTerminatesWithItsText) {
    auto fails = task("a", 3, [] { throw std::runtime_error("the table is gone"); });
    fails->schedule();
    EXPECT_EXIT(turn(), testing::KilledBySignal(SIGABRT), "unhandled error \"the table is gone\"");
    auto parses = task("a", 3, [] { throw ParseError("no such form"); });
    parses->schedule();
    fails->cancel();
    EXPECT_EXIT(turn(), testing::KilledBySignal(SIGABRT), "unhandled error \"no such form\"");
    auto odd = task("a", 3, [] { throw 42; });
    odd->schedule();
    parses->cancel();
    EXPECT_EXIT(turn(), testing::KilledBySignal(SIGABRT),
                "unhandled error \"not a std::exception\"");
}

TEST_F(TaskSchedulerTest, DumpsItsTasksInOrderOfCreation) {
    auto busy = make<Task>(scheduler(), TaskPriority{3}, "VlanL3InfoSm", nullptr, [&] {
        clock().advance(1500ns);
        return SliceResult{true, 40};
    });
    auto gone = task("gone");
    auto waiting = task("SafeEthDevPam-1", 7);
    busy->schedule();
    turn();
    turn();
    waiting->schedule();
    waiting->cancel();
    gone.reset();
    DumpContext dump;
    dump.child(2, "scheduler", scheduler().get());
    EXPECT_EQ(dump.text(), "  TaskScheduler\n"
                           "    slices=2\n"
                           "    rangeErrors=" +
                               std::to_string(caughtRangeErrors()) +
                               "\n"
                               "    task #2\n"
                               "      VlanL3InfoSm priority=3 scheduled=yes runs=2 items=80 "
                               "longest=1.5us total=3.0us\n"
                               "      SafeEthDevPam-1 priority=7 scheduled=no runs=0 items=0 "
                               "longest=0.0us total=0.0us\n");
    busy->destroy();
}

} // namespace
} // namespace Vela
