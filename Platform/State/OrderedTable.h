#pragma once

#include "Platform/Base/Assert.h"
#include "Platform/State/TableCursor.h"

#include <cstdint>
#include <map>
#include <optional>
#include <utility>

namespace Vela {

/// A small table in the order of its keys, so that people find an entry in a dump. The operations
/// are those of HashTable.
template <class K, class T>
class OrderedTable {
  public:
    using Key = K;
    using Value = T;
    using Position = typename std::map<K, T>::const_iterator;
    using Cursor = TableCursor<OrderedTable>;

    OrderedTable() = default;
    OrderedTable(const OrderedTable&) = delete;
    OrderedTable& operator=(const OrderedTable&) = delete;
    /// What ends with the table may still ask it, and finds it empty.
    ~OrderedTable() {
        std::map<K, T> ending;
        ending.swap(entries_);
    }

    size_t size() const noexcept { return entries_.size(); }

    T* find(const K& key) const noexcept {
        auto it = entries_.find(key);
        return it == entries_.end() ? nullptr : const_cast<T*>(&it->second);
    }

    template <class Make>
    std::pair<T*, bool> findOrInsert(const K& key, Make&& make) {
        if (T* value = find(key)) {
            return {value, false};
        }
        T value = make();
        auto [it, inserted] = entries_.emplace(key, std::move(value));
        assertThat(inserted, "inserted");
        return {&it->second, true};
    }

    static void replace(const K&, T& stored, T& value) { std::swap(stored, value); }

    std::optional<T> erase(const K& key) noexcept {
        auto node = entries_.extract(key);
        if (node.empty()) {
            return std::nullopt;
        }
        ++removals_;
        return std::optional<T>(std::move(node.mapped()));
    }

    Cursor first() const { return Cursor(*this, entries_.begin()); }
    Cursor atOrAfter(const K& key) const { return Cursor(*this, entries_.lower_bound(key)); }

    uint64_t removals() const noexcept { return removals_; }
    Position after(Position position) const noexcept { return ++position; }
    Position after(const K& key) const noexcept { return entries_.upper_bound(key); }
    bool isEnd(Position position) const noexcept { return position == entries_.end(); }
    static const K& keyAt(Position position) { return position->first; }
    static const T& valueAt(Position position) { return position->second; }

  private:
    std::map<K, T> entries_;
    uint64_t removals_ = 0;
};

} // namespace Vela
