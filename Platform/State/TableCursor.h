#pragma once

#include <cstdint>
#include <optional>

namespace Vela {

/// Stands at one entry of a table and steps through the table's order. Anything but its end may
/// happen to the table between two steps: the cursor goes on with the first entry beyond the key it
/// stood at.
/// An entry that stays in the table is met; one that is added behind the cursor is not.
template <class Table>
class TableCursor {
  public:
    using Key = typename Table::Key;
    using Value = typename Table::Value;

    TableCursor(const Table& table, typename Table::Position position) : table_(&table) {
        moveTo(position);
    }

    /// False at the end.
    explicit operator bool() const noexcept { return key_.has_value(); }

    /// The cursor's own copy: valid until the next step, even if the entry goes.
    const Key& key() const noexcept { return *key_; }

    /// Valid while the entry stays in the table.
    const Value& value() const noexcept { return Table::valueAt(position_); }

    TableCursor& operator++() {
        moveTo(removals_ == table_->removals() ? table_->after(position_) : table_->after(*key_));
        return *this;
    }

  private:
    void moveTo(typename Table::Position position) {
        position_ = position;
        removals_ = table_->removals();
        if (table_->isEnd(position)) {
            key_.reset();
        } else {
            key_ = Table::keyAt(position);
        }
    }

    const Table* table_;
    typename Table::Position position_;
    uint64_t removals_;
    std::optional<Key> key_;
};

} // namespace Vela
