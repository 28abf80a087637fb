#include "Platform/Quarry/TableWriter.h"

#include "Platform/Base/Assert.h"

#include <algorithm>
#include <bit>

namespace Quarry {

namespace {

// The writer reads nothing but what it has written itself.
constexpr auto own = std::memory_order_relaxed;
constexpr auto release = std::memory_order_release;

template <class Word>
void add(std::atomic<Word>& number, Word by) {
    number.store(number.load(own) + by, release);
}

} // namespace

TableWriter::TableWriter(const TableMapping& mapping)
    : mapping_(mapping),
      allocatedBuckets_(mapping.allAllocated() ? mapping.recordsOffset()
                                               : Format::bucketsOffset + Format::pageBytes),
      allocatedRecords_(mapping.allAllocated() ? mapping.fileBytes() : mapping.recordsOffset()) {}

Written TableWriter::set(uint32_t hash, const uint64_t* payload) {
    bool found = false;
    std::atomic<uint32_t>& link = findLink(hash, payload, found);
    if (found) {
        uint32_t number = link.load(own) - 1;
        if (!differs(number, payload)) {
            return Written::unchanged;
        }
        write(number, hash, mapping_.record(number).next.load(own), payload);
        changed();
        return Written::changed;
    }
    uint32_t number = 0;
    if (!newRecord(number)) {
        return Written::full;
    }
    write(number, hash, link.load(own), payload);
    link.store(number + 1, release);
    add(mapping_.header().entries, 1u);
    changed();
    addBuckets();
    return Written::added;
}

bool TableWriter::increment(uint32_t hash, const uint64_t* key, size_t word) {
    std::optional<uint32_t> found = place(hash, key);
    if (found) {
        incrementAt(*found, word);
    }
    return found.has_value();
}

std::optional<uint32_t> TableWriter::place(uint32_t hash, const uint64_t* key) const {
    bool found = false;
    std::atomic<uint32_t>& link = findLink(hash, key, found);
    return found ? std::optional(link.load(own) - 1) : std::nullopt;
}

void TableWriter::incrementAt(uint32_t place, size_t word) {
    // A single word is whole at any time: readers need not be kept off.
    add(TableMapping::payload(mapping_.record(place))[word], uint64_t{1});
    changed();
}

bool TableWriter::del(uint32_t hash, const uint64_t* key) {
    bool found = false;
    std::atomic<uint32_t>& link = findLink(hash, key, found);
    if (!found) {
        return false;
    }
    uint32_t number = link.load(own) - 1;
    Format::Record& record = mapping_.record(number);
    link.store(record.next.load(own), release);
    // Before the record can become another one: who stands on it must notice.
    add(mapping_.header().unlinks, uint64_t{1});
    record.nextFree.store(freeRecord_, own);
    freeRecord_ = number;
    add(mapping_.header().entries, ~0u);
    changed();
    removeBuckets();
    return true;
}

void TableWriter::completeIs(bool complete) {
    mapping_.header().complete.store(complete, release);
}

void TableWriter::closedIs() {
    mapping_.header().closed.store(1, release);
}

/// The link that leads to the first node that is not below (hash, key), and whether that is it.
std::atomic<uint32_t>& TableWriter::findLink(uint32_t hash, const uint64_t* key,
                                             bool& found) const {
    uint32_t order = reversed(hash);
    uint32_t bucketCount = mapping_.header().bucketCount.load(own);
    std::atomic<uint32_t>* link = &mapping_.bucket(bucketOf(hash, bucketCount));
    while (true) {
        uint32_t to = link->load(own);
        if (to == Format::endLink) {
            return *link;
        }
        if (to & Format::bucketLink) {
            uint32_t number = to & ~Format::bucketLink;
            if (reversed(number) > order) {
                return *link;
            }
            link = &mapping_.bucket(number);
        } else if (isBefore(to - 1, order, key, found)) {
            link = &mapping_.record(to - 1).next;
        } else {
            return *link;
        }
    }
}

/// Whether a record stands before (order, key); says, too, if it is that one.
bool TableWriter::isBefore(uint32_t number, uint32_t order, const uint64_t* key, bool& same) const {
    Format::Record& record = mapping_.record(number);
    uint32_t recordOrder = reversed(record.hash.load(own));
    if (recordOrder != order) {
        return recordOrder < order;
    }
    const std::atomic<uint64_t>* words = TableMapping::payload(record);
    size_t last = mapping_.keyWords() - 1;
    for (size_t i = 0; i <= last; ++i) {
        uint64_t mask = i == last ? mapping_.lastKeyMask() : ~uint64_t{0};
        uint64_t mine = words[i].load(own) & mask;
        if (mine != (key[i] & mask)) {
            return mine < (key[i] & mask);
        }
    }
    same = true;
    return false;
}

bool TableWriter::differs(uint32_t number, const uint64_t* payload) const {
    const std::atomic<uint64_t>* words = TableMapping::payload(mapping_.record(number));
    for (size_t i = 0; i < mapping_.payloadWords(); ++i) {
        if (words[i].load(own) != payload[i]) {
            return true;
        }
    }
    return false;
}

void TableWriter::write(uint32_t number, uint32_t hash, uint32_t next, const uint64_t* payload) {
    Format::Record& record = mapping_.record(number);
    std::atomic<uint64_t>* words = TableMapping::payload(record);
    add(record.sequence, 1u);
    record.hash.store(hash, release);
    record.next.store(next, release);
    // Released one by one: whoever sees a new word sees the odd number, too.
    for (size_t i = 0; i < mapping_.payloadWords(); ++i) {
        words[i].store(payload[i], release);
    }
    add(record.sequence, 1u);
}

bool TableWriter::newRecord(uint32_t& number) {
    if (freeRecord_ != noRecord) {
        number = freeRecord_;
        freeRecord_ = mapping_.record(number).nextFree.load(own);
        return true;
    }
    number = mapping_.header().records.load(own);
    size_t end = mapping_.recordsOffset() + (size_t{number} + 1) * mapping_.recordBytes();
    size_t limit = mapping_.recordsOffset() + size_t{mapping_.capacity()} * mapping_.recordBytes();
    if (number == mapping_.capacity() || !allocate(allocatedRecords_, end, limit)) {
        return false;
    }
    add(mapping_.header().records, 1u);
    return true;
}

/// Makes sure that the file is allocated up to `wanted`, and in steps: one more is rare.
bool TableWriter::allocate(size_t& allocated, size_t wanted, size_t limit) {
    if (wanted <= allocated) {
        return true;
    }
    size_t end = std::min(std::max(wanted, allocated + allocationStep), limit);
    if (mapping_.allocate(allocated, end) != 0) {
        return false;
    }
    allocated = end;
    return true;
}

/// More buckets where there are more entries than buckets: two at most, so that a table which had
/// no room for buckets catches up. One whose buckets cannot grow is slower, not wrong.
void TableWriter::addBuckets() {
    const Format::Header& header = mapping_.header();
    for (int most = 2; most > 0; --most) {
        if (header.entries.load(own) <= header.bucketCount.load(own) || !addBucket()) {
            return;
        }
    }
}

bool TableWriter::addBucket() {
    Format::Header& header = mapping_.header();
    uint32_t added = header.bucketCount.load(own);
    size_t end = Format::bucketsOffset + (size_t{added} + 1) * sizeof(uint32_t);
    if (added == mapping_.bucketCapacity() ||
        !allocate(allocatedBuckets_, end, mapping_.recordsOffset())) {
        return false;
    }
    uint32_t order = reversed(added);
    std::atomic<uint32_t>* link = &mapping_.bucket(added & (std::bit_ceil(added + 1) / 2 - 1));
    while (true) {
        uint32_t to = link->load(own);
        // No bucket stands between the one that is split and the new one.
        if (to == Format::endLink || to & Format::bucketLink ||
            reversed(mapping_.record(to - 1).hash.load(own)) >= order) {
            break;
        }
        link = &mapping_.record(to - 1).next;
    }
    mapping_.bucket(added).store(link->load(own), release);
    link->store(Format::bucketLink | added, release);
    header.bucketCount.store(added + 1, release);
    return true;
}

/// The opposite, where there are four times as many, for a walk passes every bucket: as many as it
/// takes to keep up with the removals.
void TableWriter::removeBuckets() {
    Format::Header& header = mapping_.header();
    for (int most = 4; most > 0; --most) {
        uint32_t count = header.bucketCount.load(own);
        if (count == 1 || header.entries.load(own) >= count / 4) {
            return;
        }
        uint32_t removed = count - 1;
        std::atomic<uint32_t>* link =
            &mapping_.bucket(removed & (std::bit_ceil(removed + 1) / 2 - 1));
        while (link->load(own) != (Format::bucketLink | removed)) {
            uint32_t to = link->load(own);
            Vela::assertThat(to != Format::endLink && !(to & Format::bucketLink),
                             "to != Format::endLink && !(to & Format::bucketLink)");
            link = &mapping_.record(to - 1).next;
        }
        // Counted twice: who still expects the bucket must notice that it is gone, and who still
        // comes upon it that it is one too many.
        header.bucketCount.store(removed, release);
        add(header.unlinks, uint64_t{1});
        link->store(mapping_.bucket(removed).load(own), release);
        add(header.unlinks, uint64_t{1});
    }
}

void TableWriter::changed() {
    add(mapping_.header().changes, uint64_t{1});
}

} // namespace Quarry
