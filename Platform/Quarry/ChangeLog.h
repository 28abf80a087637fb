#pragma once

#include "Platform/Scheduler/Task.h"
#include "Platform/Scheduler/TaskScheduler.h"
#include "Platform/State/Attribute.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <unordered_map>
#include <vector>

namespace Quarry {

/// Who is told of the changes of one collection.
class ChangeListener {
  public:
    /// The words of the key, valid for the call. May change any table and destroy the listener.
    virtual void handleChange(const uint64_t* key) = 0;

  protected:
    ~ChangeListener() = default;
};

/// The one log of a process: which keys changed, in the order in which they were written, across
/// all tables. A task drains it, so reactions to tables always come through the loop, many in one
/// slice. Nothing is ever dropped. Who can wait stops writing while the log is over half full and
/// goes on when it is told that it is not any more; the log takes what comes all the same.
class ChangeLog final : public Vela::Entity {
  public:
    static constexpr size_t defaultCapacity = 65536;

    ChangeLog(Vela::Ptr<Vela::TaskScheduler> scheduler, size_t capacity);

    const char* typeName() const noexcept override { return "Quarry::ChangeLog"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// The number that changes are recorded under; no two listeners ever have the same.
    uint64_t listenerIs(ChangeListener& listener);
    /// What is in the log for it is passed over.
    void listenerDel(uint64_t number);

    void record(uint64_t number, std::span<const uint64_t> key);

    /// Changes waiting.
    size_t entries() const { return entries_; }
    size_t mostEntries() const { return mostEntries_; }
    size_t capacity() const { return capacity_; }
    /// True from more than half the capacity on until a quarter is left. Announces a change, from
    /// within the write that makes it true.
    bool overHalfFull() const { return overHalfFull_.get(); }
    const Vela::Attribute<bool>& overHalfFullAttribute() const { return overHalfFull_; }

  protected:
    void handleDestroy() noexcept override { task_.reset(); }

  private:
    Vela::SliceResult drain();
    void announceOldest();

    Vela::Ptr<Vela::TaskScheduler> scheduler_;
    const size_t capacity_;
    std::unordered_map<uint64_t, ChangeListener*> listeners_;
    uint64_t lastNumber_ = 0;
    std::deque<uint64_t> words_; // listener, number of key words, key, listener, …
    std::vector<uint64_t> key_;  // being announced
    size_t entries_ = 0;
    size_t mostEntries_ = 0;
    uint64_t announced_ = 0;
    Vela::Attribute<bool> overHalfFull_;
    Vela::Owned<Vela::Task> task_;
};

} // namespace Quarry
