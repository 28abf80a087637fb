#pragma once

#include "Platform/State/HashTable.h"

#include <cstdint>

namespace Linux {

/// What the kernel has, as far as the current dump and the events beside it have told: what lacks a
/// mark when the dump is complete is to be swept. A dump is read piece by piece, and an event that
/// overtakes its piece is the newer of the two: it outranks the dump.
///
/// A new dump begins without a look at the marks of the one before, however many they are; who
/// owns this object takes them out in slices when no dump is under way.
template <class Key>
class ResyncMarks {
    struct Mark {
        uint32_t dump = 0; ///< the number of the dump that it belongs to
        bool byEvent = false;
        bool present = false;
    };

  public:
    using Table = Vela::HashTable<Vela::PairLayout<Key, Mark>>;

    void start() { ++dump_; }

    /// The dump shows this entry. False if an event has said better.
    bool shown(const Key& key, bool present) {
        Mark& mark = at(key);
        if (mark.dump == dump_ && mark.byEvent) {
            return false;
        }
        mark = {dump_, false, present};
        return true;
    }
    void happened(const Key& key, bool present) { at(key) = {dump_, true, present}; }

    /// Whether the kernel has the entry.
    bool has(const Key& key) const {
        const Mark* mark = table_.find(key);
        return mark && mark->dump == dump_ && mark->present;
    }

    /// All marks, those of earlier dumps included.
    const Table& table() const { return table_; }
    void forget(const Key& key) { table_.erase(key); }

  private:
    Mark& at(const Key& key) {
        return *table_.findOrInsert(key, [] { return Mark(); }).first;
    }

    Table table_;
    uint32_t dump_ = 0;
};

/// How far a resync has come.
enum class ResyncStage : uint8_t {
    none,
    dumping,
    dumped,  ///< complete, the sweep has not begun
    sweeping ///< by a walk that began when the dump was complete
};

} // namespace Linux
