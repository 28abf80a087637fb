#include "Platform/Quarry/TableView.h"

#include <chrono>
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

int TableView::compareKeys(const TableMapping& mapping, const uint64_t* payload,
                           const uint64_t* key) {
    size_t last = mapping.keyWords() - 1;
    for (size_t i = 0; i <= last; ++i) {
        uint64_t mask = i == last ? mapping.lastKeyMask() : ~uint64_t{0};
        uint64_t a = payload[i] & mask;
        uint64_t b = key[i] & mask;
        if (a != b) {
            return a < b ? -1 : 1;
        }
    }
    return 0;
}

Outcome TableView::locate(const Target& target, uint64_t* payload) const {
    const auto& unlinks = mapping_.header().unlinks;
    while (true) {
        uint64_t before = unlinks.load(acquire);
        Outcome outcome = walk(target, payload);
        // The very record that was asked for is what it is. Anything else may come from having
        // stood on a record that left the list meanwhile.
        if ((outcome == Outcome::found && target.which == Which::same) ||
            unlinks.load(acquire) == before) {
            return outcome;
        }
    }
}

Outcome TableView::walk(const Target& target, uint64_t* payload) const {
    const Format::Header& header = mapping_.header();
    uint32_t bucketCount = header.bucketCount.load(acquire);
    if (bucketCount == 0 || bucketCount > mapping_.bucketCapacity()) {
        return Outcome::corrupt;
    }
    const uint32_t wanted = reversed(target.hash);
    uint32_t position = bucketOf(target.hash, bucketCount);
    uint32_t link = mapping_.bucket(position).load(acquire);
    uint32_t order = reversed(position);

    // Nothing that is right takes more steps than there are nodes. Both numbers may grow meanwhile.
    uint64_t nodes = uint64_t{mapping_.capacity()} + mapping_.bucketCapacity();
    for (uint64_t steps = 0; link != Format::endLink; ++steps) {
        if (steps > nodes) {
            return Outcome::corrupt;
        }
        if (link & Format::bucketLink) {
            uint32_t number = link & ~Format::bucketLink;
            // A bucket stands before all records of its order.
            if (number >= mapping_.bucketCapacity() || reversed(number) <= order) {
                return Outcome::corrupt;
            }
            order = reversed(number);
            if (target.which == Which::same && order > wanted) {
                return Outcome::absent;
            }
            link = mapping_.bucket(number).load(acquire);
            continue;
        }
        uint32_t number = link - 1;
        if (number >= mapping_.capacity() || number >= header.records.load(acquire)) {
            return Outcome::corrupt;
        }
        Format::Record& record = mapping_.record(number);
        std::optional<uint32_t> sequence = stableSequence(record);
        if (!sequence) {
            return Outcome::writerDead;
        }
        uint32_t recordOrder = reversed(record.hash.load(acquire));
        uint32_t next = record.next.load(acquire);
        if (recordOrder < order) {
            return Outcome::corrupt;
        }
        order = recordOrder;
        if (order > wanted && target.which == Which::same) {
            return Outcome::absent;
        }
        if (order >= wanted || target.which == Which::any) {
            Outcome outcome = readRecord(record, *sequence, payload);
            if (outcome != Outcome::found) {
                return outcome;
            }
            if (order > wanted || target.which == Which::any) {
                return Outcome::found;
            }
            int compared = compareKeys(mapping_, payload, target.key);
            if (compared == 0 && target.which != Which::above) {
                return Outcome::found;
            }
            if (compared > 0) {
                return target.which == Which::same ? Outcome::absent : Outcome::found;
            }
        }
        link = next;
    }
    return Outcome::absent;
}

Outcome TableView::readRecord(Format::Record& record, uint32_t sequence, uint64_t* payload) const {
    const std::atomic<uint64_t>* words = TableMapping::payload(record);
    while (true) {
        for (size_t i = 0; i < mapping_.payloadWords(); ++i) {
            payload[i] = words[i].load(acquire);
        }
        if (record.sequence.load(acquire) == sequence) {
            return Outcome::found;
        }
        std::optional<uint32_t> again = stableSequence(record);
        if (!again) {
            return Outcome::writerDead;
        }
        sequence = *again;
    }
}

std::optional<uint32_t> TableView::stableSequence(const Format::Record& record) const {
    uint32_t sequence = record.sequence.load(acquire);
    if (sequence % 2 == 0) [[likely]] {
        return sequence;
    }
    auto deadline = std::chrono::steady_clock::now() + longestWrite;
    while ((sequence = record.sequence.load(acquire)) % 2 != 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            return std::nullopt;
        }
        sched_yield();
    }
    return sequence;
}

} // namespace Quarry
