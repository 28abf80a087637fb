#include "Platform/Scheduler/Task.h"

#include "Platform/Scheduler/TaskScheduler.h"

#include <ostream>

namespace Vela {

Task::Task(Ptr<TaskScheduler> scheduler, TaskPriority priority, std::string name,
           const Entity* owner, Slice slice)
    : scheduler_(std::move(scheduler)), name_(std::move(name)), owner_(owner),
      slice_(std::move(slice)), priority_(priority) {
    scheduler_->enroll(*this);
}

Task::~Task() = default;

void Task::handleDestroy() noexcept {
    scheduler_->leave(*this);
}

void Task::formatDerivedType(std::ostream& out) const {
    out << name_;
}

void Task::schedule() {
    if (!destroyed() && !ready_) {
        scheduler_->forget(*this);
        scheduler_->makeReady(*this);
    }
}

void Task::scheduleAfter(double seconds) {
    scheduleAt(scheduler_->clock().now() + nanosecondsFromSeconds(seconds));
}

void Task::scheduleAt(MonotonicTime due) {
    if (!destroyed() && !ready_ && !(due_ && *due_ <= due)) {
        scheduler_->forget(*this);
        scheduler_->delay(*this, due);
    }
}

void Task::cancel() noexcept {
    scheduler_->forget(*this);
}

TimerTask::TimerTask(Ptr<TaskScheduler> scheduler, TaskPriority priority, std::string name) {
    task_ = make<Task>(std::move(scheduler), priority, std::move(name), this, [this] {
        run_.setAlways(run_.get() + 1);
        return SliceResult{false, 1};
    });
}

void TimerTask::formatDerivedType(std::ostream& out) const {
    task_->formatDerivedType(out);
}

} // namespace Vela
