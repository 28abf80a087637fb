#pragma once

#include "Platform/Base/Clock.h"
#include "Platform/Scheduler/DescriptorSet.h"
#include "Platform/Scheduler/Task.h"

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <utility>

namespace Vela {

/// Runs every task of the process on one thread, cooperatively.
///
/// The ready task of the lowest priority number runs next; tasks of one priority take turns, so a
/// task waits at most for one slice of each of them. A slice should end soon after `mustYield`
/// answers yes. Work of a lower number runs before any of a higher one, for as long as there is
/// any: give a low number only to what ends by itself.
///
/// Tasks whose delays end together become ready in the order in which they were created.
class TaskScheduler final : public Entity {
  public:
    struct Settings {
        MonotonicTime sliceBudget = std::chrono::milliseconds(1);
        /// A slice of every ready task together: with many of them each gets less.
        MonotonicTime roundBudget = std::chrono::milliseconds(9);
        /// Answers yes at every check: what survives that survives any scheduling.
        bool alwaysYield = false;
    };

    /// The clock must outlive the scheduler and its tasks.
    TaskScheduler(const Clock& clock, Settings settings);

    const char* typeName() const noexcept override { return "TaskScheduler"; }
    /// A line per task with its statistics.
    void dumpState(DumpContext& context, int indent) const override;

    const Clock& clock() const { return clock_; }
    DescriptorSet& descriptors() { return descriptors_; }

    /// Whether the slice that runs has used its budget; reads the clock. Cheap enough to ask after
    /// each item. A slice does one item before it asks.
    bool mustYield() const noexcept;

    /// Announces descriptors that became ready (waiting up to `longestWait` when nothing else is
    /// to be done), wakes the tasks whose delay has ended, and runs one slice. Returns whether
    /// anything was done.
    bool turn(MonotonicTime longestWait);

    bool hasReadyTask() const noexcept { return !ready_.empty(); }
    /// When the next delayed task is due.
    std::optional<MonotonicTime> nextDue() const;

    /// Slices run since the start.
    uint64_t slices() const { return slices_; }

  private:
    friend class Task;

    using Delayed = std::set<std::pair<std::pair<MonotonicTime, uint64_t>, Task*>>;

    void enroll(Task& task);
    void leave(Task& task) noexcept;
    void makeReady(Task& task);
    void delay(Task& task, MonotonicTime due);
    void forget(Task& task) noexcept;

    MonotonicTime budget() const;
    bool wakeDelayed();
    void runSlice(Task& task);
    MonotonicTime waitFor(MonotonicTime longestWait) const;

    const Clock& clock_;
    const Settings settings_;
    DescriptorSet descriptors_;
    std::map<uint64_t, Task*> tasks_;
    uint64_t lastNumber_ = 0;
    std::map<TaskPriority, std::deque<Task*>> ready_;
    Delayed delayed_;
    MonotonicTime sliceEnd_{0};
    uint64_t slices_ = 0;
};

} // namespace Vela
