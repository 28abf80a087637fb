#pragma once

#include "Platform/Quarry/TableMapping.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace Quarry {

/// What writing an entry came to.
enum class Written : uint8_t {
    unchanged, ///< it stood there already
    added,
    changed,
    full ///< the table's capacity, or the file system's; nothing changed
};

/// The one writer of a table. Readers may be at it all the time: each of them sees an entry as it
/// was or as it is. No change takes long, however many entries there are.
class TableWriter {
  public:
    /// How much of a file is allocated at a time.
    static constexpr size_t allocationStep = size_t{256} << 10;

    /// A new table that has just been created; the mapping must outlive the writer.
    explicit TableWriter(const TableMapping& mapping);
    TableWriter(const TableWriter&) = delete;
    TableWriter& operator=(const TableWriter&) = delete;

    /// `payload` begins with the key; bytes of its last words beyond its end must be zero.
    Written set(uint32_t hash, const uint64_t* payload);
    /// Adds 1 to one word of an entry's payload, behind its key. Returns whether there is one.
    bool increment(uint32_t hash, const uint64_t* key, size_t word);
    /// Where an entry stands, and stays until it is removed.
    std::optional<uint32_t> place(uint32_t hash, const uint64_t* key) const;
    /// The same as `increment`, for the entry that stands there.
    void incrementAt(uint32_t place, size_t word);
    /// Returns whether there was such an entry.
    bool del(uint32_t hash, const uint64_t* key);

    void completeIs(bool complete);
    void closedIs();

  private:
    static constexpr uint32_t noRecord = ~0u;

    std::atomic<uint32_t>& findLink(uint32_t hash, const uint64_t* key, bool& found) const;
    bool differs(uint32_t number, const uint64_t* payload) const;
    bool isBefore(uint32_t number, uint32_t order, const uint64_t* key, bool& same) const;
    void write(uint32_t number, uint32_t hash, uint32_t next, const uint64_t* payload);
    bool newRecord(uint32_t& number);
    bool allocate(size_t& allocated, size_t wanted, size_t limit);
    void addBuckets();
    bool addBucket();
    void removeBuckets();
    void changed();

    const TableMapping& mapping_;
    uint32_t freeRecord_ = noRecord; // the first of a chain through Record::nextFree
    size_t allocatedBuckets_;        // file offset up to which the bucket area is allocated
    size_t allocatedRecords_;        // the same of the records
};

} // namespace Quarry
