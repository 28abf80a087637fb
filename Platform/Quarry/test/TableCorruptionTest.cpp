// A table's file that something else has written over: reading ends soon, stays within the file,
// and what cannot be right is reported. What no reader can tell is another payload, an entry left
// out by its neighbour in the same bucket, and the numbers that only count.

#include "Platform/Quarry/AttachedTable.h"
#include "Platform/Quarry/test/QuarryFixture.h"

#include <bit>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <vector>

namespace Quarry {

namespace {

constexpr uint64_t entries = 24;
constexpr uint32_t capacity = 32;

class TableCorruptionTest : public QuarryFixture {
  protected:
    using Attached = AttachedTable<NumberRecord>;

    TableCorruptionTest() {
        group->mount<NumberTable>("numbers", MountType::writer, {{"number", capacity, false}});
        auto table = group->entity<NumberTable>("numbers");
        for (uint64_t number = 0; number < entries + 4; ++number) {
            table->number().set({{number}, number * 1000});
        }
        for (uint64_t number = entries; number < entries + 4; ++number) {
            table->number().del({number});
        }
        // Nobody is at it any more, so that nobody is waited for.
        group->unmount("numbers");
        std::ifstream in(file(), std::ios::binary);
        bytes.assign(std::istreambuf_iterator<char>(in), {});
        size_t used = Format::recordsOffset(std::bit_ceil(capacity)) + capacity * 32;
        EXPECT_LE(used, bytes.size());
        Attached intact(file());
        buckets = wordAt(offsetof(Format::Header, bucketCount));
    }

    uint32_t wordAt(size_t offset) const {
        uint32_t word = 0;
        std::memcpy(&word, bytes.data() + offset, sizeof word);
        return word;
    }
    void put(size_t offset, uint32_t word) const {
        std::fstream out(file(), std::ios::binary | std::ios::in | std::ios::out);
        out.seekp(static_cast<std::streamoff>(offset));
        out.write(static_cast<const char*>(static_cast<void*>(&word)), sizeof word);
    }

    struct Result {
        std::set<uint64_t> missed; ///< by lookup, without trouble at that key
        std::set<uint64_t> unmet;  ///< by the walk, if that ended without trouble
        bool trouble = false;      ///< reported for anything
        bool strange = false;      ///< an entry that was never there, or another value
    };
    Result readAll() const {
        Result result;
        Attached attached(file());
        for (uint64_t number = 0; number < entries + 4; ++number) {
            // A reader of its own for each key, so that trouble is this key's.
            Attached one(file());
            one.fetchRecord(one.fetchBucket({number}));
            auto lookup = one.lookup({number});
            lookup.advance();
            auto found = one.find({number});
            EXPECT_EQ(lookup.find(), found.has_value());
            EXPECT_EQ(lookup.record(), found.value_or(NumberRecord()));
            if (found) {
                result.strange |= found->value != number * 1000;
            } else if (number < entries && one.trouble() == Outcome::absent) {
                result.missed.insert(number);
            }
            result.trouble |= one.trouble() != Outcome::absent;
        }
        for (uint64_t number = 0; number < entries; ++number) {
            result.unmet.insert(number);
        }
        size_t steps = 0;
        for (auto cursor = attached.first(); cursor; ++cursor) {
            result.strange |= cursor.value().value != cursor.key().number * 1000;
            result.unmet.erase(cursor.key().number);
            if (++steps > capacity) {
                ADD_FAILURE() << "the walk meets more records than there are";
                break;
            }
        }
        if (attached.trouble() != Outcome::absent) {
            result.trouble = true;
            result.unmet.clear();
        }
        return result;
    }

    std::string bytes;
    uint32_t buckets = 0;
};

TEST_F(TableCorruptionTest, anIntactFileIsReadRight) {
    Result result = readAll();
    EXPECT_TRUE(result.missed.empty() && result.unmet.empty());
    EXPECT_FALSE(result.trouble || result.strange);
}

TEST_F(TableCorruptionTest, readingEndsWhateverWordIsWrong) {
    std::mt19937 random(1);
    const size_t records = Format::recordsOffset(std::bit_ceil(capacity));
    std::vector<size_t> words;
    for (size_t at = 0; at < sizeof(Format::Header); at += 4) {
        words.push_back(at);
    }
    for (size_t at = 0; at < capacity; ++at) {
        words.push_back(Format::bucketsOffset + at * 4);
    }
    for (size_t at = 0; at < capacity * 32; at += 4) {
        words.push_back(records + at);
    }
    size_t refused = 0;
    size_t troubles = 0;
    for (size_t at : words) {
        for (uint32_t value : {0u, 1u, ~0u, 0x80000000u, static_cast<uint32_t>(random() % 64),
                               static_cast<uint32_t>(random())}) {
            SCOPED_TRACE("word at " + std::to_string(at) + " is " + std::to_string(value));
            put(at, value);
            try {
                Result result = readAll();
                troubles += result.trouble;
                bool payload = at >= records && (at - records) % 32 >= 16;
                EXPECT_TRUE(!result.strange || payload);
            } catch (const TableError&) {
                EXPECT_LT(at, offsetof(Format::Header, closed));
                ++refused;
            }
        }
        put(at, wordAt(at));
    }
    EXPECT_GT(refused, 50u);
    EXPECT_GT(troubles, 500u);
    Result restored = readAll();
    EXPECT_TRUE(restored.missed.empty());
    EXPECT_FALSE(restored.trouble);
}

/// Links: whatever does not lead to another record of the same bucket is noticed by who needs it.
TEST_F(TableCorruptionTest, aWrongLinkIsReportedWhereItLeadsAstray) {
    const size_t records = Format::recordsOffset(std::bit_ceil(capacity));
    Attached intact(file());
    const uint64_t seed = [&] {
        uint64_t value = 0;
        std::memcpy(&value, bytes.data() + offsetof(Format::Header, hashSeed), sizeof value);
        return value;
    }();
    auto bucketFor = [&](uint64_t number) {
        return bucketOf(static_cast<uint32_t>(NumberKey{number}.hash(seed)), buckets);
    };
    std::vector<std::pair<size_t, uint32_t>> links; // offset and the bucket it is in
    for (uint32_t bucket = 0; bucket < buckets; ++bucket) {
        links.emplace_back(Format::bucketsOffset + bucket * 4, bucket);
    }
    for (uint32_t record = 0; record < entries; ++record) {
        uint64_t key = 0;
        std::memcpy(&key, bytes.data() + records + record * 32 + 16, sizeof key);
        if (key < entries) {
            links.emplace_back(records + record * 32 + 4, bucketFor(key));
        }
    }
    ASSERT_EQ(links.size(), buckets + entries);
    std::vector<uint32_t> values{0, 1, ~0u, Format::endLink, Format::bucketLink, 0x7ffffff0};
    for (uint32_t record = 0; record < capacity; ++record) {
        values.push_back(record + 1);
    }
    for (uint32_t bucket = 1; bucket < capacity; ++bucket) {
        values.push_back(Format::bucketLink | bucket);
    }
    size_t troubles = 0;
    for (auto [at, bucket] : links) {
        for (uint32_t value : values) {
            SCOPED_TRACE("link at " + std::to_string(at) + " is " + std::to_string(value));
            put(at, value);
            Result result = readAll();
            EXPECT_FALSE(result.strange && !result.trouble);
            troubles += result.trouble;
            // Without a report, an entry is missed at most in that very bucket.
            for (uint64_t number : result.missed) {
                EXPECT_EQ(bucketFor(number), bucket);
            }
            for (uint64_t number : result.unmet) {
                EXPECT_EQ(bucketFor(number), bucket);
            }
            if (value == 0 || value == ~0u || value == 0x7ffffff0) {
                EXPECT_TRUE(result.trouble);
            }
        }
        put(at, wordAt(at));
    }
    EXPECT_GT(troubles, links.size() * values.size() / 2);
}

TEST_F(TableCorruptionTest, aRecordUnderTheHashOfAnotherDoesNotSendAWalkRound) {
    const size_t records = Format::recordsOffset(std::bit_ceil(capacity));
    Attached intact(file());
    std::vector<uint64_t> order;
    for (auto cursor = intact.first(); cursor; ++cursor) {
        order.push_back(cursor.key().number);
    }
    // The last record has the key of the first: who goes on from it starts over.
    for (uint32_t record = 0; record < entries + 4; ++record) {
        uint64_t key = 0;
        std::memcpy(&key, bytes.data() + records + record * 32 + 16, sizeof key);
        if (key == order.back()) {
            put(records + record * 32 + 16, static_cast<uint32_t>(order.front()));
        }
    }
    Attached attached(file());
    size_t steps = 0;
    for (auto cursor = attached.first(); cursor && steps <= capacity; ++cursor) {
        ++steps;
    }
    EXPECT_EQ(steps, entries - 1);
    EXPECT_EQ(attached.trouble(), Outcome::corrupt);
}

TEST_F(TableCorruptionTest, aHalfWrittenRecordOfAClosedTableIsReportedAtOnce) {
    const size_t records = Format::recordsOffset(std::bit_ceil(capacity));
    put(records, 1); // the first record is number 0's
    Attached attached(file());
    EXPECT_FALSE(attached.find({0}));
    EXPECT_EQ(attached.trouble(), Outcome::writerDead);
    for (uint64_t number = 1; number < entries; ++number) {
        EXPECT_EQ(attached.value({number}).value, number * 1000) << "the others can be read";
    }
    size_t met = 0;
    for (auto cursor = attached.first(); cursor; ++cursor) {
        ++met;
    }
    EXPECT_LT(met, entries);
}

/// The one test that waits: for as long as a writer may take.
TEST_F(TableCorruptionTest, aWriterThatLeavesARecordHalfWrittenIsReportedDead) {
    const size_t records = Format::recordsOffset(std::bit_ceil(capacity));
    put(offsetof(Format::Header, closed), 0);
    put(records, 3);
    Attached attached(file());
    auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(attached.find({0}));
    auto waited = std::chrono::steady_clock::now() - begin;
    EXPECT_EQ(attached.trouble(), Outcome::writerDead);
    EXPECT_GE(waited, std::chrono::seconds(1));
    EXPECT_EQ(attached.value({1}).value, 1000u);
}

} // namespace

} // namespace Quarry
