#include "Platform/Scheduler/Task.h"

#include "Platform/Scheduler/test/TaskFixture.h"

#include <limits>
#include <memory>
#include <sstream>

namespace Vela {
namespace {

using namespace std::chrono_literals;

class TaskTest : public TaskFixture {};

/// Does its work through a task that it owns.
class Worker final : public Entity {
  public:
    Worker(const Ptr<TaskScheduler>& scheduler, std::function<void(Worker&)> work)
        : work_(std::move(work)) {
        task = make<Task>(scheduler, TaskPriority{3}, "Worker", this, [this] {
            work_(*this);
            ++slices;
            return SliceResult{true, 1};
        });
    }
    const char* typeName() const noexcept override { return "Worker"; }

    int slices = 0;
    Owned<Task> task;

  private:
    std::function<void(Worker&)> work_;
};

TEST_F(TaskTest, DoesNotRunUnlessAskedTo) {
    auto a = task("a");
    EXPECT_FALSE(a->scheduled());
    EXPECT_FALSE(turn());
    runFor(1000);
    EXPECT_EQ(ran, "");
}

TEST_F(TaskTest, RunsOnceForSeveralRequests) {
    auto a = task("a");
    a->schedule();
    a->schedule();
    EXPECT_TRUE(a->scheduled());
    EXPECT_TRUE(turn());
    EXPECT_EQ(ran, "a");
    EXPECT_FALSE(a->scheduled());
    EXPECT_FALSE(turn());
    EXPECT_EQ(ran, "a");
}

TEST_F(TaskTest, WithMoreWorkItRunsAgain) {
    auto a = longTask("a", 3);
    a->schedule();
    EXPECT_TRUE(turn());
    EXPECT_TRUE(a->scheduled());
    EXPECT_EQ(runUntilIdle(), 2u);
    EXPECT_EQ(ran, "aaa");
    EXPECT_FALSE(a->scheduled());
}

TEST_F(TaskTest, ADelayIsKeptToTheNanosecond) {
    auto a = task("a");
    a->scheduleAfter(2.5);
    EXPECT_TRUE(a->scheduled());
    EXPECT_EQ(scheduler()->nextDue(), clock().now() + 2500ms);
    clock().advance(2500ms - 1ns);
    EXPECT_FALSE(turn());
    EXPECT_EQ(ran, "");
    clock().advance(1ns);
    EXPECT_TRUE(turn());
    EXPECT_EQ(ran, "a");
    EXPECT_FALSE(a->scheduled());
}

TEST_F(TaskTest, OfSeveralDelaysTheEarliestCounts) {
    auto a = task("a");
    a->scheduleAfter(5);
    a->scheduleAfter(2);
    a->scheduleAfter(9);
    EXPECT_EQ(scheduler()->nextDue(), clock().now() + 2s);
    runFor(1.9);
    EXPECT_EQ(ran, "");
    runFor(0.1);
    EXPECT_EQ(ran, "a");
    runFor(100);
    EXPECT_EQ(ran, "a");
}

TEST_F(TaskTest, ToRunSoonEndsAPendingDelay) {
    auto a = task("a");
    a->scheduleAfter(5);
    a->schedule();
    EXPECT_FALSE(scheduler()->nextDue());
    runUntilIdle();
    EXPECT_EQ(ran, "a");
    runFor(100);
    EXPECT_EQ(ran, "a");
}

TEST_F(TaskTest, ADelayAddsNothingToARunThatIsPending) {
    auto a = task("a");
    a->schedule();
    a->scheduleAfter(5);
    runUntilIdle();
    EXPECT_EQ(ran, "a");
    runFor(100);
    EXPECT_EQ(ran, "a");
}

TEST_F(TaskTest, ADelayOfNothingOrLessIsOverAtOnce) {
    auto a = task("a");
    for (double seconds : {0.0, -5.0, std::numeric_limits<double>::quiet_NaN()}) {
        a->scheduleAfter(seconds);
        EXPECT_EQ(runUntilIdle(), 1u) << seconds;
    }
    a->scheduleAt(clock().now() - 1h);
    EXPECT_EQ(runUntilIdle(), 1u);
    EXPECT_EQ(ran, "aaaa");
}

TEST_F(TaskTest, ADelayTooLongToCountNeverEnds) {
    auto a = task("a");
    for (double seconds : {1e30, std::numeric_limits<double>::infinity()}) {
        a->scheduleAfter(seconds);
        EXPECT_GT(*scheduler()->nextDue(), clock().now() + 24h * 365 * 100) << seconds;
        runFor(1e6);
        EXPECT_TRUE(a->scheduled());
    }
    EXPECT_EQ(ran, "");
}

TEST_F(TaskTest, CancellingEndsWhatIsPending) {
    auto ready = task("a");
    auto delayed = task("b");
    ready->schedule();
    delayed->scheduleAfter(1);
    ready->cancel();
    delayed->cancel();
    EXPECT_FALSE(ready->scheduled());
    EXPECT_FALSE(delayed->scheduled());
    EXPECT_FALSE(scheduler()->hasReadyTask());
    EXPECT_FALSE(scheduler()->nextDue());
    runFor(10);
    EXPECT_EQ(ran, "");

    // And nothing more than that.
    ready->cancel();
    ready->schedule();
    delayed->scheduleAfter(1);
    runFor(1);
    EXPECT_EQ(ran, "ab");
}

TEST_F(TaskTest, CancellingOneOfManyLeavesTheOthersTheirTurns) {
    auto a = task("a");
    auto b = task("b");
    auto c = task("c");
    for (auto& each : {a, b, c}) {
        each->schedule();
    }
    b->cancel();
    runUntilIdle();
    EXPECT_EQ(ran, "ac");
}

TEST_F(TaskTest, WithinItsSliceNothingIsPendingUnlessItIsAskedForAgain) {
    Ptr<Task> a;
    std::string seen;
    a = task("a", 3, [&] {
        seen += a->scheduled() ? 'y' : 'n';
        if (ran.size() < 2) {
            a->schedule();
            seen += a->scheduled() ? 'y' : 'n';
        }
    });
    a->scheduleAfter(1);
    runFor(1);
    EXPECT_EQ(seen, "nyn");
    EXPECT_EQ(ran, "aa");
}

TEST_F(TaskTest, AskedForInItsOwnSliceItRunsAfterTheOthers) {
    Ptr<Task> a;
    a = task("a", 3, [&] {
        if (ran == "a") {
            a->schedule();
        }
    });
    auto b = task("b");
    a->schedule();
    b->schedule();
    EXPECT_EQ(runUntilIdle(), 3u);
    EXPECT_EQ(ran, "aba");
}

TEST_F(TaskTest, MayDelayItselfInItsOwnSlice) {
    Ptr<Task> a;
    a = task("a", 3, [&] {
        a->scheduleAfter(5);
        a->scheduleAfter(3);
    });
    a->schedule();
    EXPECT_EQ(runUntilIdle(), 1u);
    runFor(2.9);
    EXPECT_EQ(ran, "a");
    runFor(0.1);
    EXPECT_EQ(ran, "aa");
    runFor(6);
    EXPECT_EQ(ran, "aaaa");
}

TEST_F(TaskTest, MayTakeItsRequestBackInItsOwnSlice) {
    Ptr<Task> a;
    a = task("a", 3, [&] {
        a->schedule();
        a->cancel();
        a->scheduleAfter(5);
        a->cancel();
    });
    a->schedule();
    runFor(10);
    EXPECT_EQ(ran, "a");
}

TEST_F(TaskTest, MoreWorkComesBeforeADelayOfTheSameSlice) {
    Ptr<Task> a;
    a = make<Task>(scheduler(), TaskPriority{3}, "a", nullptr, [&] {
        ran += 'a';
        a->scheduleAfter(5);
        return SliceResult{ran.size() < 2, 1};
    });
    a->schedule();
    EXPECT_EQ(runUntilIdle(), 2u);
    EXPECT_EQ(scheduler()->nextDue(), clock().now() + 5s);
}

TEST_F(TaskTest, DestroyedInItsOwnSliceItDoesNotRunAgain) {
    Ptr<Task> a;
    auto token = std::make_shared<std::string>("alive");
    std::weak_ptr<std::string> observer = token;
    a = make<Task>(scheduler(), TaskPriority{3}, "a", nullptr, [&, token = std::move(token)] {
        a->schedule();
        a->destroy();
        a.reset();
        ran += *token; // the slice and what it captured last until it returns
        return SliceResult{true, 1};
    });
    a->schedule();
    EXPECT_EQ(runUntilIdle(), 1u);
    runFor(10);
    EXPECT_EQ(ran, "alive");
    EXPECT_TRUE(observer.expired());
}

TEST_F(TaskTest, DestroyedByAnotherTaskItDoesNotRun) {
    auto ready = task("b");
    auto delayed = task("c");
    auto other = task("d");
    auto a = task("a", 3, [&] {
        ready->destroy();
        delayed.reset(); // the last reference does the same
    });
    a->schedule();
    ready->schedule();
    delayed->scheduleAfter(1);
    other->schedule();
    runFor(10);
    EXPECT_EQ(ran, "ad");
}

TEST_F(TaskTest, DestroyedItIgnoresRequests) {
    auto a = task("a");
    a->destroy();
    a->schedule();
    a->scheduleAfter(1);
    a->scheduleAt(clock().now());
    EXPECT_FALSE(a->scheduled());
    EXPECT_FALSE(scheduler()->nextDue());
    EXPECT_FALSE(turn());
    runFor(10);
    EXPECT_EQ(ran, "");
    a->cancel();
}

TEST_F(TaskTest, EndsWithItsOwner) {
    auto worker = make<Worker>(scheduler(), [](Worker&) {});
    auto heldElsewhere = worker->task.ptr();
    worker->task->schedule();
    worker.reset();
    EXPECT_TRUE(heldElsewhere->destroyed());
    EXPECT_FALSE(heldElsewhere->scheduled());
    EXPECT_FALSE(turn());
    EXPECT_EQ(heldElsewhere->statistics().runs, 0u);
}

TEST_F(TaskTest, IsNotRunOnceItsOwnerIsDestroyed) {
    auto worker = make<Worker>(scheduler(), [](Worker&) {});
    worker->task->schedule();
    worker->destroy();
    runUntilIdle();
    EXPECT_EQ(worker->slices, 0);
    EXPECT_EQ(scheduler()->slices(), 0u);
}

TEST_F(TaskTest, ItsOwnerMayBeDestroyedInItsSlice) {
    auto worker = make<Worker>(scheduler(), [](Worker& self) { self.destroy(); });
    worker->task->schedule();
    runUntilIdle();
    EXPECT_EQ(worker->slices, 1);
    EXPECT_EQ(worker->task->statistics().runs, 1u);
}

TEST_F(TaskTest, ItsOwnersMemoryLastsAsLongAsTheSlice) {
    Ptr<Worker> worker;
    uint64_t before = Entity::liveCount();
    worker = make<Worker>(scheduler(), [&](Worker& self) {
        worker.reset();
        EXPECT_FALSE(self.destroyed());
        EXPECT_EQ(Entity::liveCount(), before + 2);
        ran += 'w';
    });
    worker->task->schedule();
    runUntilIdle();
    EXPECT_EQ(ran, "w");
    EXPECT_EQ(Entity::liveCount(), before);
}

TEST_F(TaskTest, NamesNeedNotBeUnique) {
    auto first = task("a");
    auto second = task("a");
    first->schedule();
    second->schedule();
    EXPECT_EQ(runUntilIdle(), 2u);
    EXPECT_EQ(ran, "aa");
    second->schedule();
    first.reset();
    EXPECT_EQ(runUntilIdle(), 1u);
    EXPECT_EQ(second->statistics().runs, 2u);
}

TEST_F(TaskTest, CountsRunsItemsAndTime) {
    int slice = 0;
    auto a = make<Task>(scheduler(), TaskPriority{2}, "a", nullptr, [&] {
        clock().advance(slice == 1 ? 300us : 100us);
        return SliceResult{++slice < 3, 7};
    });
    EXPECT_EQ(a->name(), "a");
    EXPECT_EQ(a->priority(), 2);
    EXPECT_EQ(a->statistics().runs, 0u);
    EXPECT_EQ(a->statistics().longestSlice, 0ns);
    a->schedule();
    clock().advance(1s); // waiting is not running
    runUntilIdle();
    EXPECT_EQ(a->statistics().runs, 3u);
    EXPECT_EQ(a->statistics().items, 21u);
    EXPECT_EQ(a->statistics().longestSlice, 300us);
    EXPECT_EQ(a->statistics().total, 500us);
}

TEST_F(TaskTest, ShowsItsNameInTraces) {
    std::ostringstream text;
    task("Vrf-default")->formatTraceObject(text);
    EXPECT_EQ(text.str(), "Task(Vrf-default)");
}

} // namespace
} // namespace Vela
