#pragma once

#include "Platform/Base/UniqueFd.h"
#include "Platform/Quarry/TableFormat.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace Quarry {

/// A table's file cannot be used: the text names it and says why.
class TableError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What a table's records are.
struct TableShape {
    std::string recordType; ///< shorter than Format::recordTypeBytes
    uint32_t keyBytes = 0;
    uint32_t payloadBytes = 0; ///< the key included, which comes first
    uint32_t capacity = 0;
    bool allocateAll = false; ///< room for all records at once, and no table without it
};

/// A table's file in memory, until the object goes. The parts that never change have been checked.
class TableMapping {
  public:
    /// A new, empty, writable table at `path`, in the place of a file that is there, which is
    /// marked closed. Whoever has that one mapped keeps it. Throws TableError, and then leaves what
    /// is there as it is.
    static TableMapping create(const std::string& path, const TableShape& shape);

    /// An existing table, read-only. Throws TableError if there is none, if it is not sound, or
    /// if its records are not `shape`'s (its capacity does not matter).
    static TableMapping attach(const std::string& path, TableShape shape);

    TableMapping(TableMapping&& other) noexcept;
    TableMapping& operator=(TableMapping&&) = delete;
    ~TableMapping();

    const std::string& path() const { return path_; }
    /// Where the table is writable: makes sure that the file has memory from one offset to another.
    /// Touching a hole of a full file system would kill the process. Returns errno's number or 0.
    int allocate(size_t begin, size_t end) const;
    /// Whether that has been done for all of the file.
    bool allAllocated() const { return allAllocated_; }

    Format::Header& header() const { return *static_cast<Format::Header*>(base_); }
    std::atomic<uint32_t>& bucket(uint32_t number) const {
        return static_cast<std::atomic<uint32_t>*>(at(Format::bucketsOffset))[number];
    }
    Format::Record& record(uint32_t number) const {
        return *static_cast<Format::Record*>(at(records_ + size_t{number} * recordBytes_));
    }
    static std::atomic<uint64_t>* payload(Format::Record& record) {
        return static_cast<std::atomic<uint64_t>*>(static_cast<void*>(&record + 1));
    }
    static const std::atomic<uint64_t>* payload(const Format::Record& record) {
        return static_cast<const std::atomic<uint64_t>*>(static_cast<const void*>(&record + 1));
    }

    size_t keyWords() const { return keyWords_; }
    size_t payloadWords() const { return payloadWords_; }
    /// Which bits of a key's last word belong to it.
    uint64_t lastKeyMask() const { return lastKeyMask_; }
    uint32_t capacity() const { return capacity_; }
    uint32_t bucketCapacity() const { return bucketCapacity_; }
    size_t recordsOffset() const { return records_; }
    size_t recordBytes() const { return recordBytes_; }
    size_t fileBytes() const { return bytes_; }

  private:
    TableMapping(std::string path, Vela::UniqueFd fd, void* base, size_t bytes,
                 const TableShape& shape);
    void* at(size_t offset) const { return static_cast<std::byte*>(base_) + offset; }

    std::string path_;
    Vela::UniqueFd fd_;
    void* base_;
    size_t bytes_;
    // Not read from the header again: the writer's process may be another one, and mistaken.
    bool allAllocated_;
    uint32_t capacity_;
    uint32_t bucketCapacity_;
    size_t keyWords_;
    size_t payloadWords_;
    size_t recordBytes_;
    size_t records_;
    uint64_t lastKeyMask_;
};

/// `value` with its 32 bits in reverse.
constexpr uint32_t reversed(uint32_t value) {
    value = (value >> 1 & 0x55555555) | (value & 0x55555555) << 1;
    value = (value >> 2 & 0x33333333) | (value & 0x33333333) << 2;
    value = (value >> 4 & 0x0f0f0f0f) | (value & 0x0f0f0f0f) << 4;
    return __builtin_bswap32(value);
}

/// The bucket that a hash is found from.
constexpr uint32_t bucketOf(uint32_t hash, uint32_t bucketCount) {
    uint32_t mask = std::bit_ceil(bucketCount) - 1;
    uint32_t bucket = hash & mask;
    return bucket < bucketCount ? bucket : bucket & mask >> 1;
}

} // namespace Quarry
