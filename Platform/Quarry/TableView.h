#pragma once

#include "Platform/Quarry/TableMapping.h"

#include <cstdint>
#include <optional>

namespace Quarry {

/// What reading a table came to.
enum class Outcome : uint8_t {
    found,
    absent,
    writerDead, ///< a record has been half-written for a second
    corrupt     ///< a link or an order that no writer leaves behind; it was not followed
};

/// "found" and so on.
const char* toString(Outcome outcome);

/// Reads a table beside its writer, be that in another thread or process, without a lock or a
/// system call. Keys and payloads are 64-bit words, as many as the mapping says; bits beyond a
/// key's end do not matter. Does not change; one object may serve several threads.
class TableView {
  public:
    /// The mapping must outlive the view.
    explicit TableView(const TableMapping& mapping) : mapping_(mapping) {}

    /// Copies the payload of the record with this key.
    Outcome find(uint32_t hash, const uint64_t* key, uint64_t* payload) const {
        return locate({hash, key, Which::same}, payload);
    }
    /// Of the first record in the table's order.
    Outcome first(uint64_t* payload) const { return locate({0, nullptr, Which::any}, payload); }
    /// Of the first record that is not below the key.
    Outcome atOrAfter(uint32_t hash, const uint64_t* key, uint64_t* payload) const {
        return locate({hash, key, Which::notBelow}, payload);
    }
    /// Of the first record above the key.
    Outcome after(uint32_t hash, const uint64_t* key, uint64_t* payload) const {
        return locate({hash, key, Which::above}, payload);
    }

    uint32_t entries() const { return mapping_.header().entries.load(std::memory_order_acquire); }

    /// Less than 0, 0 or more: how the front of `payload` compares with `key` in a table's order.
    static int compareKeys(const TableMapping& mapping, const uint64_t* payload,
                           const uint64_t* key);

  private:
    enum class Which : uint8_t { same, any, notBelow, above };
    struct Target {
        uint32_t hash;
        const uint64_t* key;
        Which which;
    };

    Outcome locate(const Target& target, uint64_t* payload) const;
    Outcome walk(const Target& target, uint64_t* payload) const;
    Outcome readRecord(Format::Record& record, uint32_t sequence, uint64_t* payload) const;
    std::optional<uint32_t> stableSequence(const Format::Record& record) const;

    const TableMapping& mapping_;
};

} // namespace Quarry
