#pragma once

#include "Platform/State/HashTable.h"
#include "Platform/State/Notifier.h"
#include "Platform/State/OrderedTable.h"

#include <optional>
#include <type_traits>
#include <utility>

namespace Vela {

/// A keyed collection that announces the key of every entry that is added, replaced by a different
/// value, or removed. Announcing copies the key and allocates nothing else. What stands in a
/// removed entry leaves the collection before the announcement and its life is the owner's
/// business. A reaction may change or destroy the collection.
template <class Table>
class Collection {
  public:
    using Key = typename Table::Key;
    using Value = typename Table::Value;
    using Cursor = typename Table::Cursor;

    size_t count() const noexcept { return table_.size(); }
    bool has(const Key& key) const noexcept { return table_.find(key) != nullptr; }

    /// Null when absent; valid while the entry stays and is not replaced.
    const Value* find(const Key& key) const noexcept { return table_.find(key); }

    /// See HashTable; other tables have no such thing.
    uint32_t fetchSlot(const Key& key) const noexcept { return table_.fetchSlot(key); }
    void fetchNode(uint32_t fetched) const noexcept { table_.fetchNode(fetched); }

    /// A copy of the value; a default-constructed one when absent (for entities: null).
    Value value(const Key& key) const {
        const Value* found = find(key);
        return found ? *found : Value();
    }

    /// Adds or overwrites; announces unless an equal value stood there. Returns whether it did.
    /// What is overwritten lasts until the announcement is over.
    bool set(const Key& key, Value value) {
        auto [stored, inserted] = table_.findOrInsert(key, [&] { return std::move(value); });
        if (!inserted) {
            if (*stored == value) {
                return false;
            }
            Table::replace(key, *stored, value);
        }
        announce(key);
        return true;
    }

    /// Finds the entry, or adds and announces what `make()` returns; that may change the collection
    /// but not add `key`. Returns the value as it stood before the announcement: a reaction may
    /// already have removed it again.
    template <class Make>
    Value findOrAdd(const Key& key, Make&& make) {
        auto [stored, inserted] = table_.findOrInsert(key, std::forward<Make>(make));
        Value value = *stored;
        if (inserted) {
            announce(key);
        }
        return value;
    }

    /// Removes and returns the value; announces if there was one.
    std::optional<Value> del(const Key& key) {
        Key gone = key; // it may stand in the entry
        std::optional<Value> value = table_.erase(gone);
        if (value) {
            notifier_.notify(gone);
        }
        return value;
    }

    /// Removes everything, entry by entry in the table's order, each announced. What a reaction
    /// adds meanwhile goes as well if its turn is still to come, and stays otherwise.
    void delAll() {
        delAll([](const Value&) {});
    }

    /// The same; `release` gets each value after its announcement, and may destroy the collection.
    template <class Release>
    void delAll(Release&& release) {
        NotifierBase::Watch watch(notifier_);
        Cursor cursor = first();
        while (cursor) {
            if (std::optional<Value> value = del(cursor.key())) {
                release(*value);
            }
            if (watch.notifierGone()) {
                return;
            }
            ++cursor;
        }
    }

    Cursor first() const { return table_.first(); }
    Cursor atOrAfter(const Key& key) const { return table_.atOrAfter(key); }

    /// See NotifierBase. The callable takes the key.
    template <class Callable>
    [[nodiscard]] Reaction react(const Entity* owner, Callable callable) const {
        return notifier_.react(owner, std::move(callable));
    }

  private:
    void announce(const Key& key) {
        if (notifier_.observed()) {
            Key copy = key; // a reaction may remove the entry it stands in
            notifier_.notify(copy);
        }
    }

    Table table_;
    KeyNotifier<Key> notifier_;
};

/// In the order of its keys; for what stays small.
template <class K, class T>
using Map = Collection<OrderedTable<K, T>>;

/// For what grows large.
template <class K, class T>
using HashMap = Collection<HashTable<PairLayout<K, T>>>;

/// Entities that carry their own key; for what grows large.
template <class E, auto keyOf>
using EntityMap = Collection<HashTable<EntityLayout<E, keyOf>>>;

/// The value of a map that is a set.
struct Present {
    friend bool operator==(Present, Present) { return true; }
};

template <class K>
using Set = Map<K, Present>;

} // namespace Vela
