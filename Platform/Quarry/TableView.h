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
        return locate({hash, key, Which::same}, payload).outcome;
    }

    /// A record come upon in the table's order, with the hash it stands under: who knows how keys
    /// are hashed can tell whether that is right.
    struct Step {
        Outcome outcome;
        uint32_t hash;
    };
    /// The first record in the table's order.
    Step first(uint64_t* payload) const { return locate({0, nullptr, Which::any}, payload); }
    /// The first record that is not below the key.
    Step atOrAfter(uint32_t hash, const uint64_t* key, uint64_t* payload) const {
        return locate({hash, key, Which::notBelow}, payload);
    }
    /// The first record above the key.
    Step after(uint32_t hash, const uint64_t* key, uint64_t* payload) const {
        return locate({hash, key, Which::above}, payload);
    }

    uint32_t entries() const { return mapping_.header().entries.load(std::memory_order_acquire); }

  private:
    enum class Which : uint8_t { same, any, notBelow, above };
    struct Target {
        uint32_t hash;
        const uint64_t* key;
        Which which;
    };

    Step locate(const Target& target, uint64_t* payload) const;
    Step walk(const Target& target, uint64_t* payload) const;
    void approach(uint32_t link) const;
    Outcome readRecord(const Format::Record& record, uint64_t* payload) const;
    std::optional<uint32_t> stableSequence(const Format::Record& record) const;
    int compareKeys(const uint64_t* payload, const uint64_t* key) const;

    const TableMapping& mapping_;
};

} // namespace Quarry
