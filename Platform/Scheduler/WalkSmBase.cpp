#include "Platform/Scheduler/WalkSmBase.h"

#include "Platform/Base/Assert.h"
#include "Platform/State/CaughtErrors.h"

#include <algorithm>

namespace Vela {

const char* toString(TraceEvent event) {
    switch (event) {
    case TraceEvent::scheduled:
        return "scheduled";
    case TraceEvent::started:
        return "started";
    case TraceEvent::refused:
        return "refused";
    case TraceEvent::yielded:
        return "yielded";
    case TraceEvent::aborted:
        return "aborted";
    case TraceEvent::finished:
        return "finished";
    }
    failAssertion("false");
}

WalkSmBase::WalkSmBase(Ptr<TaskScheduler> scheduler, TaskPriority priority, std::string name)
    : scheduler_(std::move(scheduler)) {
    task_ = make<Task>(scheduler_, priority, std::move(name), this, [this] { return runSlice(); });
}

WalkSmBase::~WalkSmBase() = default;

void WalkSmBase::scheduleWalkDelay(double seconds) {
    if (destroyed()) {
        return;
    }
    // During a walk, what else is pending is no more than its own next slice.
    bool pending = again_ || (!walking_ && walkScheduled());
    MonotonicTime due = scheduler_->clock().now() + nanosecondsFromSeconds(seconds);
    if (walking_) {
        again_ = again_ ? std::min(*again_, due) : due;
    } else {
        runAt(due);
    }
    if (!pending) {
        traceEvent(TraceEvent::scheduled);
        walkScheduledNotification();
    }
}

SliceResult WalkSmBase::runSlice() {
    if (!hasNotificationActive()) {
        held_ = true;
        return {};
    }
    SliceResult slice;
    try {
        if (walking_ && again_ && *again_ <= scheduler_->clock().now() && allowWalkRestarts()) {
            abortWalk();
            task_->cancel(); // the walk that starts now is the one that was asked for
        }
        if (!walking_ && !startWalk()) {
            return slice;
        }
        do {
            WalkRet ret = walk();
            slice.moreWork = ret.moreWork != 0;
            slice.items += ret.count;
        } while (slice.moreWork && reacts() && untilNoMoreWork() && !mustYield());
        if (destroyed()) {
            return slice;
        }
        if (slice.moreWork) {
            traceEvent(TraceEvent::yielded);
        } else {
            endWalk();
            traceEvent(TraceEvent::finished);
            walkFinishedNotification();
        }
    } catch (const RangeError& error) {
        caughtRangeError(error, this);
        slice.moreWork = false;
        if (walking_) {
            abortWalk();
        }
    }
    return slice;
}

bool WalkSmBase::startWalk() {
    if (destroyed()) {
        return false;
    }
    walking_ = true; // a request from here on is for another walk
    bool runs = walkStartedNotification();
    if (destroyed()) {
        return false;
    }
    if (!runs) {
        endWalk();
    }
    traceEvent(runs ? TraceEvent::started : TraceEvent::refused);
    return runs;
}

void WalkSmBase::abortWalk() {
    endWalk();
    traceEvent(TraceEvent::aborted);
    walkAbortedNotification();
}

// Comes before the notifications, which may fail: the request must not be lost with them.
void WalkSmBase::endWalk() {
    walking_ = false;
    if (again_) {
        runAt(*again_);
        again_.reset();
    }
}

void WalkSmBase::runAt(MonotonicTime due) {
    if (due > scheduler_->clock().now()) {
        task_->scheduleAt(due);
    } else {
        task_->schedule();
    }
}

void WalkSmBase::handleNotificationActive() noexcept {
    if (hasNotificationActive() && std::exchange(held_, false)) {
        task_->schedule();
    }
}

void WalkSmBase::reactorsDel() noexcept {
    task_->destroy();
    again_.reset();
    held_ = false;
    if (walking_) {
        try {
            abortWalk();
        } catch (const RangeError& error) {
            caughtRangeError(error, this);
        }
    }
}

} // namespace Vela
