#pragma once

#include "Platform/Scheduler/TaskScheduler.h"

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace Vela {

/// What one call of WalkSmBase::walk did.
struct WalkRet {
    uint32_t moreWork = 0; ///< 1: call me again; 0: the walk is complete
    uint32_t count = 0;    ///< items processed in this call
};

/// What happens to a walk, for WalkSmBase::traceEvent.
enum class TraceEvent : uint8_t { scheduled, started, refused, yielded, aborted, finished };

/// "scheduled" and so on.
const char* toString(TraceEvent event);

/// Base of the machines that process large tables, or sockets, in slices under the scheduler.
///
/// A reactor that sees a change records what changed and calls `scheduleWalk`; the walk does the
/// work, asking `mustYield` after each item. Slices of one walk may lie far apart and anything may
/// change in between, so a walk remembers keys, never references.
///
/// Asked for a walk while one is under way (between its slices or from within one), the base starts
/// over at the next slice where `allowWalkRestarts`; otherwise another walk follows the current
/// one. A machine that allows restarts empties its bookmarks in `walkStartedNotification`, and may
/// never finish while requests come faster than it walks. A request is never lost. Destruction ends
/// a walk and cancels what is pending.
class WalkSmBase : public Entity {
  public:
    /// Whether a run is pending.
    bool walkScheduled() const noexcept { return task_->scheduled() || again_ || held_; }

  protected:
    WalkSmBase(Ptr<TaskScheduler> scheduler, TaskPriority priority, std::string name);
    ~WalkSmBase() override;

    /// Seconds from creation to the first walk.
    virtual double initialScheduleDelay() const { return 0; }
    /// Whether a slice goes on calling `walk` while there is more work and budget left, instead of
    /// giving the next task its turn after each call.
    virtual bool untilNoMoreWork() const { return false; }
    /// Whether a request during a walk starts it over.
    virtual bool allowWalkRestarts() const { return false; }
    virtual void walkScheduledNotification() {}
    /// A walk ended before it was complete: by a restart, a range error or destruction.
    virtual void walkAbortedNotification() {}
    /// A walk is about to begin; false keeps it from running.
    virtual bool walkStartedNotification() { return true; }
    /// One slice. A range error that leaves it aborts the walk.
    virtual WalkRet walk() = 0;
    virtual void walkFinishedNotification() {}
    virtual void traceEvent(TraceEvent) {}

    /// Creation schedules the first walk. A machine that has to wait for an input overrides this
    /// and schedules when the input is ready.
    void handleInitialized() override { scheduleWalkDelay(initialScheduleDelay()); }

    /// Runs `walk` soon.
    void scheduleWalk() { scheduleWalkDelay(0); }
    /// The same after a delay; the earliest of several requests counts.
    void scheduleWalkDelay(double seconds);
    bool mustYield() const noexcept { return scheduler_->mustYield(); }

    /// Goes through `collection` from `bookmark` (from its beginning when that is empty), giving
    /// each key and value to `item`, until the end or until the slice must yield. At the end the
    /// bookmark is empty; otherwise it is the key to go on with. Returns how many there were.
    /// Entries may come and go meanwhile, the current one included, and the item may destroy this
    /// machine. A range error leaves the bookmark empty.
    ///
    /// A bookmark is an optional key, or a key of which one value means none, or for VLAN ids a
    /// Bridging::VlanIdOrNone, whose value is checked again when the walk resumes.
    template <class Collection, class Bookmark, class Item>
    uint32_t walkCollection(const Collection& collection, Bookmark& bookmark, Item&& item) {
        Bookmark start = std::exchange(bookmark, Bookmark());
        auto cursor =
            start ? collection.atOrAfter(bookmarkedKey<Collection>(start)) : collection.first();
        uint32_t count = 0;
        while (cursor) {
            item(cursor.key(), cursor.value());
            ++count;
            if (destroyed()) {
                break; // and the collection may be gone, too
            }
            ++cursor;
            if (cursor && mustYield()) {
                bookmark = cursor.key();
                // At the key that means none nobody could resume: it is still of this slice.
                if (bookmark) {
                    break;
                }
            }
        }
        return count;
    }

    const Ptr<TaskScheduler>& scheduler() const { return scheduler_; }

  private:
    void handleNotificationActive() noexcept final;
    void reactorsDel() noexcept final;

    SliceResult runSlice();
    bool startWalk();
    void abortWalk();
    void endWalk();
    void runAt(MonotonicTime due);

    template <class Collection, class Bookmark>
    static typename Collection::Key bookmarkedKey(const Bookmark& bookmark) {
        if constexpr (requires { *bookmark; }) {
            return *bookmark;
        } else if constexpr (std::is_same_v<Bookmark, typename Collection::Key>) {
            return bookmark;
        } else {
            return bookmark.vlanId();
        }
    }

    Ptr<TaskScheduler> scheduler_;
    Owned<Task> task_;
    bool walking_ = false;
    bool held_ = false;                  // a slice came while notification was inactive
    std::optional<MonotonicTime> again_; // when another walk is wanted, asked for during one
};

} // namespace Vela
