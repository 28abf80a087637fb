#include "Platform/Quarry/TableView.h"

#include <chrono>
#include <cstring>
#include <sched.h>

namespace Quarry {

namespace {

constexpr auto acquire = std::memory_order_acquire;

/// How long a writer may be at one record before it must be dead: far longer than it can be kept
/// from running on a busy machine.
constexpr std::chrono::seconds longestWrite(1);

} // namespace

const char* toString(Outcome outcome) {
    switch (outcome) {
    case Outcome::found:
        return "found";
    case Outcome::absent:
        return "absent";
    case Outcome::writerDead:
        return "writer dead";
    case Outcome::corrupt:
        return "corrupt";
    }
    return "?";
}

// Why a reader may believe what it saw. Every word is stored release and loaded acquire, so a
// reader that has seen a word sees all that the writer did before it stored that word, and loads
// happen in the order in which they stand here. There is one writer, which does things in this
// order:
//   enter a record    write it, link it
//   remove a record   unlink it, count the unlinking; only then may it be written again
//   change a record   odd number, payload, even number
//   enter a bucket    write it, link it, count it among the buckets
//   remove a bucket   the same backwards, with an unlinking counted before it is unlinked and after
// Who strays, from a record that was removed into whatever it became, has seen a word that was
// stored after its unlinking was counted, and finds the count changed. If the count has not
// changed, every node passed was in the list, a link that was followed led to the next node there
// was at that moment, and no bucket that was there at the beginning was missed. A payload that was
// read while it was written has at least one word that was stored after the odd number, and finds
// the number changed.

/// The sequence number once it is even.
inline std::optional<uint32_t> TableView::stableSequence(const Format::Record& record) const {
    uint32_t sequence = record.sequence.load(acquire);
    if (sequence % 2 == 0) [[likely]] {
        return sequence;
    }
    return awaitStableSequence(record);
}

std::optional<uint32_t> TableView::awaitStableSequence(const Format::Record& record) const {
    const auto deadline = std::chrono::steady_clock::now() + longestWrite;
    while (true) {
        // In a closed table nobody will finish the record.
        bool last = mapping_.header().closed.load(acquire) != 0 ||
                    std::chrono::steady_clock::now() > deadline;
        uint32_t sequence = record.sequence.load(acquire);
        if (sequence % 2 == 0) {
            return sequence;
        }
        if (last) {
            return std::nullopt;
        }
        sched_yield();
    }
}

inline Outcome TableView::readRecord(const Format::Record& record, void* payload) const {
    const std::atomic<uint64_t>* words = TableMapping::payload(record);
    while (std::optional<uint32_t> sequence = stableSequence(record)) {
        for (size_t i = 0; i < mapping_.payloadWords(); ++i) {
            uint64_t word = words[i].load(acquire);
            std::memcpy(static_cast<std::byte*>(payload) + i * sizeof word, &word, sizeof word);
        }
        if (record.sequence.load(acquire) == *sequence) [[likely]] {
            return Outcome::found;
        }
    }
    return Outcome::writerDead;
}

/// Less than 0, 0 or more: how the front of `payload` compares with `key` in the table's order.
inline int TableView::compareKeys(const void* payload, const uint64_t* key) const {
    size_t last = mapping_.keyWords() - 1;
    for (size_t i = 0; i <= last; ++i) {
        uint64_t mask = i == last ? mapping_.lastKeyMask() : ~uint64_t{0};
        uint64_t mine;
        std::memcpy(&mine, static_cast<const std::byte*>(payload) + i * sizeof mine, sizeof mine);
        mine &= mask;
        uint64_t other = key[i] & mask;
        if (mine != other) {
            return mine < other ? -1 : 1;
        }
    }
    return 0;
}

/// A walk asks next for what a link leads to, which it would have to wait for.
void TableView::approach(uint32_t link) const {
    uint32_t number = link & ~Format::bucketLink;
    if (link & Format::bucketLink && number < mapping_.bucketCapacity()) {
        link = mapping_.bucket(number).load(acquire);
    }
    if (!(link & Format::bucketLink) && link - 1 < mapping_.capacity()) {
        __builtin_prefetch(&mapping_.record(link - 1));
    }
}

/// Follows the list from the target's bucket. Beside a removal the outcome can be any.
template <TableView::Which which>
TableView::Step TableView::walk(uint32_t targetHash, const uint64_t* key, void* payload) const {
    constexpr Step absent{Outcome::absent, 0};
    constexpr Step corrupt{Outcome::corrupt, 0};
    const Format::Header& header = mapping_.header();
    const uint32_t bucketCount = header.bucketCount.load(acquire);
    if (bucketCount == 0 || bucketCount > mapping_.bucketCapacity()) {
        return corrupt;
    }
    const uint32_t wanted = reversed(targetHash);
    const uint32_t start = bucketOf(targetHash, bucketCount);
    uint32_t link = mapping_.bucket(start).load(acquire);
    uint32_t order = reversed(start); // of the node passed last
    uint32_t bucketOrder = order;     // of the bucket passed last

    // The bucket that a hash is found from, or a later one that was split off it meanwhile, stands
    // in the list before whatever has that hash.
    auto missedBucketOf = [&](uint32_t hash) {
        return bucketOrder < reversed(bucketOf(hash, bucketCount));
    };

    // Nothing that is right takes more steps than there are nodes.
    const uint64_t nodes = uint64_t{mapping_.capacity()} + mapping_.bucketCapacity();
    for (uint64_t steps = 0; link != Format::endLink; ++steps) {
        if (steps > nodes) {
            return corrupt;
        }
        if (link & Format::bucketLink) {
            uint32_t number = link & ~Format::bucketLink;
            // It stands before all records of its order, and may be about to be counted.
            if (number >= mapping_.bucketCapacity() || number > header.bucketCount.load(acquire) ||
                reversed(number) <= order || missedBucketOf(reversed(reversed(number) - 1))) {
                return corrupt;
            }
            order = bucketOrder = reversed(number);
            if (which == Which::same && order > wanted) {
                return absent;
            }
            link = mapping_.bucket(number).load(acquire);
            continue;
        }
        uint32_t number = link - 1;
        if (number >= mapping_.capacity() || number >= header.records.load(acquire)) {
            return corrupt;
        }
        const Format::Record& record = mapping_.record(number);
        uint32_t hash = record.hash.load(acquire);
        if (hash == targetHash && which == Which::same) [[likely]] {
            // What was asked for needs no look at the order, and other keys of its hash are rare.
            Outcome outcome = readRecord(record, payload);
            if (outcome != Outcome::found || compareKeys(payload, key) == 0) {
                return {outcome, hash};
            }
        }
        if (reversed(hash) < order || missedBucketOf(hash)) {
            return corrupt;
        }
        order = reversed(hash);
        if (order > wanted && which == Which::same) {
            return absent;
        }
        if (order >= wanted) {
            Outcome outcome = readRecord(record, payload);
            if (outcome != Outcome::found || order > wanted || which == Which::any) {
                approach(record.next.load(acquire));
                return {outcome, hash};
            }
            int compared = compareKeys(payload, key);
            if (compared > 0) {
                return which == Which::same ? absent : Step{Outcome::found, hash};
            }
            if (compared == 0 && which != Which::above) {
                return {Outcome::found, hash};
            }
        }
        link = record.next.load(acquire);
    }
    return missedBucketOf(~0u) ? corrupt : absent;
}

template <TableView::Which which>
TableView::Step TableView::locate(uint32_t targetHash, const uint64_t* key, void* payload) const {
    const auto& unlinks = mapping_.header().unlinks;
    while (true) {
        uint64_t before = unlinks.load(acquire);
        Step step = walk<which>(targetHash, key, payload);
        if (unlinks.load(acquire) == before) [[likely]] {
            return step;
        }
    }
}

void TableView::fetchBucket(uint32_t hash) const {
    uint32_t bucketCount = mapping_.header().bucketCount.load(acquire);
    if (bucketCount != 0 && bucketCount <= mapping_.bucketCapacity()) {
        __builtin_prefetch(&mapping_.bucket(bucketOf(hash, bucketCount)));
    }
}

void TableView::fetchRecord(uint32_t hash) const {
    uint32_t bucketCount = mapping_.header().bucketCount.load(acquire);
    if (bucketCount == 0 || bucketCount > mapping_.bucketCapacity()) {
        return;
    }
    uint32_t link = mapping_.bucket(bucketOf(hash, bucketCount)).load(acquire);
    if (link != 0 && link <= mapping_.capacity()) { // that of a record
        const Format::Record& record = mapping_.record(link - 1);
        __builtin_prefetch(&record);
        // It may begin near the end of a cache line.
        __builtin_prefetch(TableMapping::payload(record) + mapping_.payloadWords() - 1);
    }
}

Outcome TableView::find(uint32_t hash, const uint64_t* key, void* payload) const {
    return locate<Which::same>(hash, key, payload).outcome;
}

TableView::Step TableView::first(void* payload) const {
    return locate<Which::any>(0, nullptr, payload);
}

TableView::Step TableView::atOrAfter(uint32_t hash, const uint64_t* key, void* payload) const {
    return locate<Which::notBelow>(hash, key, payload);
}

TableView::Step TableView::after(uint32_t hash, const uint64_t* key, void* payload) const {
    return locate<Which::above>(hash, key, payload);
}

} // namespace Quarry
