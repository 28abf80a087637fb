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

    /// Ask memory for what `find` will read first, and, once that is there, for what it leads to.
    void fetchBucket(uint32_t hash) const;
    void fetchRecord(uint32_t hash) const;
    /// Copies the payload of the record with this key. Otherwise nothing of what is left there
    /// means anything.
    Outcome find(uint32_t hash, const uint64_t* key, void* payload) const;

    /// A record come upon in the table's order, with the hash it stands under: who knows how keys
    /// are hashed can tell whether that is right.
    struct Step {
        Outcome outcome;
        uint32_t hash;
    };
    /// The first record in the table's order.
    Step first(void* payload) const;
    /// The first record that is not below the key.
    Step atOrAfter(uint32_t hash, const uint64_t* key, void* payload) const;
    /// The first record above the key.
    Step after(uint32_t hash, const uint64_t* key, void* payload) const;

    uint32_t entries() const { return mapping_.header().entries.load(std::memory_order_acquire); }

  private:
    enum class Which : uint8_t { same, any, notBelow, above };

    // Compiled once per kind: the looking up of a key is not to pay for the others.
    template <Which which>
    Step locate(uint32_t targetHash, const uint64_t* key, void* payload) const;
    template <Which which>
    Step walk(uint32_t targetHash, const uint64_t* key, void* payload) const;
    void approach(uint32_t link) const;
    Outcome readRecord(const Format::Record& record, void* payload) const;
    std::optional<uint32_t> stableSequence(const Format::Record& record) const;
    std::optional<uint32_t> awaitStableSequence(const Format::Record& record) const;
    int compareKeys(const void* payload, const uint64_t* key) const;

    const TableMapping& mapping_;
};

} // namespace Quarry
