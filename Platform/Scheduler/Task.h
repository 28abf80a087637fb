#pragma once

#include "Platform/Base/Clock.h"
#include "Platform/State/Attribute.h"
#include "Platform/State/Entity.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace Vela {

class TaskScheduler;

/// 0 runs before everything else; the agent's machines all run at 3.
using TaskPriority = unsigned;

/// What one slice of a task did.
struct SliceResult {
    bool moreWork = false; ///< run me again, after the others of my priority had their turn
    uint32_t items = 0;
};

/// How often and how long a task ran.
struct TaskStatistics {
    uint64_t runs = 0;
    uint64_t items = 0;
    MonotonicTime longestSlice{0};
    MonotonicTime total{0};
};

/// Something that the scheduler runs in slices. Owned by whoever does the work; destroying it
/// cancels a pending run, also from within its own slice.
class Task final : public Entity {
  public:
    using Slice = std::function<SliceResult()>;

    /// Names need not be unique. `owner` is kept in memory while its slice runs and is not run any
    /// more once it is destroyed; may be null.
    Task(Ptr<TaskScheduler> scheduler, TaskPriority priority, std::string name, const Entity* owner,
         Slice slice);

    const char* typeName() const noexcept override { return "Task"; }
    void formatDerivedType(std::ostream& out) const override;

    /// Runs soon; a pending delay ends.
    void schedule();
    /// Runs once the delay has passed, unless it is due earlier already.
    void scheduleAfter(double seconds);
    void scheduleAt(MonotonicTime due);
    void cancel() noexcept;

    /// Is a run pending, delayed or not. False within the slice, unless it was asked for again.
    bool scheduled() const noexcept { return ready_ || due_; }

    const std::string& name() const { return name_; }
    TaskPriority priority() const { return priority_; }
    const TaskStatistics& statistics() const { return statistics_; }

  protected:
    ~Task() override;
    void handleDestroy() noexcept override;

  private:
    friend class TaskScheduler;

    Ptr<TaskScheduler> scheduler_;
    const std::string name_;
    const Entity* owner_;
    Slice slice_;
    uint64_t number_ = 0; // in order of creation
    std::optional<MonotonicTime> due_;
    bool ready_ = false;
    const TaskPriority priority_;
    TaskStatistics statistics_;
};

/// A task that announces that its time has come, instead of calling somebody.
class TimerTask final : public Entity {
  public:
    TimerTask(Ptr<TaskScheduler> scheduler, TaskPriority priority, std::string name);

    const char* typeName() const noexcept override { return "TimerTask"; }
    void formatDerivedType(std::ostream& out) const override;

    void schedule() { task_->schedule(); }
    void scheduleAfter(double seconds) { task_->scheduleAfter(seconds); }
    void cancel() noexcept { task_->cancel(); }
    bool scheduled() const noexcept { return task_->scheduled(); }

    /// How often it ran; every run is announced.
    uint32_t run() const { return run_.get(); }
    const Attribute<uint32_t>& runAttribute() const { return run_; }

  protected:
    void handleDestroy() noexcept override { task_->destroy(); }

  private:
    Attribute<uint32_t> run_;
    Owned<Task> task_;
};

} // namespace Vela
