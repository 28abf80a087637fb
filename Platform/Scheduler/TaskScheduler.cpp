#include "Platform/Scheduler/TaskScheduler.h"

#include "Platform/Base/Assert.h"
#include "Platform/State/CaughtErrors.h"
#include "Platform/State/DumpContext.h"

#include <algorithm>
#include <exception>

namespace Vela {

TaskScheduler::TaskScheduler(const Clock& clock, Settings settings)
    : clock_(clock), settings_(settings) {}

bool TaskScheduler::mustYield() const noexcept {
    return settings_.alwaysYield || clock_.now() >= sliceEnd_;
}

std::optional<MonotonicTime> TaskScheduler::nextDue() const {
    if (delayed_.empty()) {
        return std::nullopt;
    }
    return delayed_.begin()->first.first;
}

bool TaskScheduler::turn(MonotonicTime longestWait) {
    bool announced = descriptors_.wait(waitFor(longestWait)) > 0;
    bool woken = wakeDelayed();
    if (ready_.empty()) {
        return announced || woken;
    }
    auto first = ready_.begin();
    Ptr<Task> task(first->second.front());
    forget(*task);
    runSlice(*task);
    return true;
}

MonotonicTime TaskScheduler::waitFor(MonotonicTime longestWait) const {
    if (!ready_.empty()) {
        return MonotonicTime(0);
    }
    if (delayed_.empty()) {
        return longestWait;
    }
    return std::clamp(*nextDue() - clock_.now(), MonotonicTime(0), longestWait);
}

bool TaskScheduler::wakeDelayed() {
    if (delayed_.empty()) {
        return false;
    }
    // What becomes due while these are woken waits for the next turn.
    MonotonicTime now = clock_.now();
    bool woken = false;
    while (!delayed_.empty() && *nextDue() <= now) {
        delayed_.begin()->second->schedule();
        woken = true;
    }
    return woken;
}

// The one that runs is not among the ready ones.
MonotonicTime TaskScheduler::budget() const {
    size_t taking = 1;
    for (const auto& [priority, tasks] : ready_) {
        taking += tasks.size();
    }
    return std::min(settings_.sliceBudget, settings_.roundBudget / static_cast<int64_t>(taking));
}

void TaskScheduler::runSlice(Task& task) {
    if (task.owner_ && task.owner_->destroyed()) {
        return;
    }
    Ptr<const Entity> keepOwner(task.owner_);
    MonotonicTime start = clock_.now();
    sliceEnd_ = start + budget();
    SliceResult result;
    try {
        result = task.slice_();
    } catch (const RangeError& error) {
        caughtRangeError(error, keepOwner.get());
    } catch (const std::exception& error) {
        terminateWith(error.what());
    } catch (...) {
        terminateWith("not a std::exception");
    }
    MonotonicTime length = clock_.now() - start;
    ++slices_;
    ++task.statistics_.runs;
    task.statistics_.items += result.items;
    task.statistics_.total += length;
    task.statistics_.longestSlice = std::max(task.statistics_.longestSlice, length);
    if (result.moreWork) {
        task.schedule();
    }
}

void TaskScheduler::enroll(Task& task) {
    task.number_ = ++lastNumber_;
    tasks_.emplace(task.number_, &task);
}

void TaskScheduler::leave(Task& task) noexcept {
    forget(task);
    tasks_.erase(task.number_);
}

void TaskScheduler::makeReady(Task& task) {
    ready_[task.priority_].push_back(&task);
    task.ready_ = true;
}

void TaskScheduler::delay(Task& task, MonotonicTime due) {
    delayed_.insert({{due, task.number_}, &task});
    task.due_ = due;
}

void TaskScheduler::forget(Task& task) noexcept {
    if (task.ready_) {
        auto queue = ready_.find(task.priority_);
        std::erase(queue->second, &task);
        if (queue->second.empty()) {
            ready_.erase(queue);
        }
        task.ready_ = false;
    }
    if (task.due_) {
        delayed_.erase({{*task.due_, task.number_}, &task});
        task.due_.reset();
    }
}

void TaskScheduler::dumpState(DumpContext& context, int indent) const {
    using Microseconds = std::chrono::duration<double, std::micro>;
    context.print(indent, "TaskScheduler\n");
    context.print(indent + 2, "slices=%llu\n", static_cast<unsigned long long>(slices_));
    context.print(indent + 2, "rangeErrors=%llu\n",
                  static_cast<unsigned long long>(caughtRangeErrors()));
    context.print(indent + 2, "task #%zu\n", tasks_.size());
    for (const auto& [number, task] : tasks_) {
        const TaskStatistics& s = task->statistics();
        context.print(
            indent + 4,
            "%s priority=%u scheduled=%s runs=%llu items=%llu longest=%.1fus total=%.1fus\n",
            task->name().c_str(), task->priority(), task->scheduled() ? "yes" : "no",
            static_cast<unsigned long long>(s.runs), static_cast<unsigned long long>(s.items),
            Microseconds(s.longestSlice).count(), Microseconds(s.total).count());
    }
}

} // namespace Vela
