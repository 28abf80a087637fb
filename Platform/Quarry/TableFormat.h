#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>

/// The file of a table, which processes of one machine share by mapping it. Integers are in the
/// machine's order, least significant byte first; everything that changes is an atomic word.
///
///     offset 0        Header
///     offset 4096     buckets, uint32 each, `bucketCapacity` of them
///     next page       records, `recordBytes` each, `capacity` of them
///
/// A file has its full size from the start, is allocated from the front as the table grows, is
/// never truncated, and is replaced by renaming a new one over it, after which `closed` is set in
/// the old one.
///
/// One list runs through all records in the order of (reversed hash, key): the hash with its bits
/// in reverse, keys compared as their 64-bit words, the last one masked to the key's end. A link
/// is n + 1 for record n, 2^31 + n for bucket n (buckets are nodes of the list, too), 2^31 - 1 at
/// the list's end; never 0, so that a page lost is no end of the list. Bucket n stands before all
/// records whose reversed hash is not below n with its bits in reverse, so that looking a key up
/// begins at bucket (hash mod 2^k), or, while there are not that many buckets, (hash mod 2^(k-1)),
/// and 2^k is the number of buckets rounded up. The first bucket is the head of the list.
///
/// A record's sequence number is odd while the writer is at it: a payload is good if the number
/// was even before and is the same after. Hash and link of a record in the list need no such
/// care: the one does not change, the other is a word. A record that is linked never moves.
/// `unlinks` goes up whenever a record or bucket has left the list and before it enters it again,
/// and between the lowering of `bucketCount` and the bucket's leaving: a reader believes what it
/// saw only if the number stayed the same from beginning to end.
namespace Quarry::Format {

constexpr uint64_t magic = 0x31595252'41555121; // "!QUARRY1"
constexpr uint32_t layoutVersion = 1;
constexpr size_t pageBytes = 4096;
constexpr size_t recordTypeBytes = 64;

struct Header {
    uint64_t magic;
    uint32_t layoutVersion;
    uint32_t keyBytes;     ///< the front of the payload
    uint32_t payloadBytes; ///< key and value
    uint32_t recordBytes;
    uint32_t capacity;       ///< records, less than 2^30
    uint32_t bucketCapacity; ///< a power of two
    uint64_t hashSeed;
    uint64_t generation; ///< differs from file to file
    uint32_t writerPid;
    uint32_t unused;
    char recordType[recordTypeBytes]; ///< ended by a zero byte

    std::atomic<uint32_t> closed;      ///< 1: nobody writes here any more
    std::atomic<uint32_t> complete;    ///< 1: the writer has put in what it found at its start
    std::atomic<uint32_t> bucketCount; ///< buckets in the list, at least 1
    std::atomic<uint32_t> records;     ///< records with a lower number have been used
    std::atomic<uint32_t> entries;     ///< records in the list
    std::atomic<uint32_t> unused2;
    std::atomic<uint64_t> unlinks;
    std::atomic<uint64_t> changes; ///< entries added, changed or removed since the beginning
};
static_assert(sizeof(Header) == 160 && sizeof(Header) <= pageBytes);
static_assert(offsetof(Header, recordType) == 56);
static_assert(offsetof(Header, closed) == 120);
static_assert(offsetof(Header, unlinks) == 144);
static_assert(std::atomic<uint64_t>::is_always_lock_free);
static_assert(std::endian::native == std::endian::little, "keys are masked to their first bytes");

struct Record {
    std::atomic<uint32_t> sequence;
    std::atomic<uint32_t> next;
    std::atomic<uint32_t> hash;
    std::atomic<uint32_t> nextFree; ///< the writer's own
    // The payload follows, in 64-bit words; bytes beyond it are zero.
};
static_assert(sizeof(Record) == 16);

constexpr uint32_t bucketLink = 0x80000000;
constexpr uint32_t endLink = bucketLink - 1;
constexpr uint32_t maxCapacity = (1u << 30) - 1;

constexpr size_t wordsFor(size_t bytes) {
    return (bytes + 7) / 8;
}
constexpr size_t roundedToPages(size_t bytes) {
    return (bytes + pageBytes - 1) / pageBytes * pageBytes;
}
constexpr size_t bucketsOffset = pageBytes;
constexpr size_t recordsOffset(uint32_t bucketCapacity) {
    return bucketsOffset + roundedToPages(size_t{bucketCapacity} * sizeof(uint32_t));
}
constexpr size_t fileBytes(uint32_t bucketCapacity, uint32_t capacity, uint32_t recordBytes) {
    return recordsOffset(bucketCapacity) + roundedToPages(size_t{capacity} * recordBytes);
}

} // namespace Quarry::Format
