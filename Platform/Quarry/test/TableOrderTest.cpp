// Reading and writing: which records there are, and the order in which a walk meets them.

#include "Platform/Quarry/test/QuarryFixture.h"

#include <array>
#include <set>
#include <vector>

namespace Quarry {

namespace {

/// Only three hashes, for any number of keys.
struct CrowdedKey {
    uint64_t number = 0;
    uint64_t hash(uint64_t) const { return number % 3; }
};
struct CrowdedRecord {
    using Key = CrowdedKey;
    static constexpr const char* recordType = "Quarry::CrowdedRecord";
    static constexpr const char* tableType = "Quarry::CrowdedTable";
    static constexpr const char* name = "crowded";
    CrowdedKey key;
    uint64_t value = 0;
};

/// Neither the key nor the record fills its words; the key's last word has a part of the value.
struct OddKey {
    std::array<uint8_t, 11> bytes{};
    uint64_t hash(uint64_t seed) const {
        Vela::IncrementalHash hash(seed);
        hash.mixBytes(bytes);
        return hash.result();
    }
    friend auto operator<=>(const OddKey&, const OddKey&) = default;
};
struct OddRecord {
    using Key = OddKey;
    static constexpr const char* recordType = "Quarry::OddRecord";
    static constexpr const char* tableType = "Quarry::OddTable";
    static constexpr const char* name = "odd";
    OddKey key;
    std::array<uint8_t, 2> value{};
};
static_assert(sizeof(OddRecord) == 13);

class TableOrderTest : public QuarryFixture {
  protected:
    template <class R>
    Vela::Ptr<TableOf<R>> mount() {
        group->mount<TableOf<R>>(R::name, MountType::writer);
        return group->entity<TableOf<R>>(R::name);
    }
};

using Collection = TableCollection<NumberRecord>;

uint32_t orderOf(const Collection& collection, const NumberKey& key) {
    return reversed(static_cast<uint32_t>(key.hash(collection.mapping().header().hashSeed)));
}

void fill(Collection& collection, uint64_t from, uint64_t to) {
    for (uint64_t number = from; number < to; ++number) {
        ASSERT_TRUE(collection.set({{number}, number * 7}));
    }
}

std::vector<uint64_t> keysFrom(Collection::Cursor cursor) {
    std::vector<uint64_t> keys;
    for (; cursor; ++cursor) {
        keys.push_back(cursor.key().number);
    }
    return keys;
}

TEST_F(TableOrderTest, anEmptyTableHasNothing) {
    auto table = mountWriter();
    EXPECT_EQ(table->number().count(), 0u);
    EXPECT_FALSE(table->number().first());
    EXPECT_FALSE(table->number().atOrAfter({5}));
    EXPECT_FALSE(table->number().has({0}));
    EXPECT_FALSE(table->number().find({5}));
    EXPECT_EQ(table->number().value({5}), NumberRecord());
    EXPECT_FALSE(table->number().del({5}));
    EXPECT_EQ(table->number().troubles(), 0u);
}

TEST_F(TableOrderTest, whatIsSetIsFoundUntilItIsRemoved) {
    auto table = mountWriter();
    Collection& numbers = table->number();
    EXPECT_TRUE(numbers.set({{1}, 10}));
    EXPECT_TRUE(numbers.set({{2}, 20}));
    EXPECT_EQ(numbers.value({1}).value, 10u);
    EXPECT_TRUE(numbers.set({{1}, 11}));
    EXPECT_EQ(numbers.value({1}), (NumberRecord{{1}, 11}));
    EXPECT_EQ(numbers.value({2}).value, 20u);
    EXPECT_EQ(numbers.count(), 2u);
    EXPECT_TRUE(numbers.del({1}));
    EXPECT_FALSE(numbers.del({1}));
    EXPECT_FALSE(numbers.has({1}));
    EXPECT_TRUE(numbers.has({2}));
    EXPECT_EQ(numbers.count(), 1u);
}

TEST_F(TableOrderTest, aWalkGoesByReversedHash) {
    auto table = mountWriter();
    fill(table->number(), 0, 500);
    std::vector<uint64_t> keys = keysFrom(table->number().first());
    ASSERT_EQ(keys.size(), 500u);
    for (size_t i = 1; i < keys.size(); ++i) {
        EXPECT_LT(orderOf(table->number(), {keys[i - 1]}), orderOf(table->number(), {keys[i]}));
    }
}

TEST_F(TableOrderTest, aWalkResumesAtAKeyThatWasRemoved) {
    auto table = mountWriter();
    fill(table->number(), 0, 100);
    const std::vector<uint64_t> keys = keysFrom(table->number().first());
    for (size_t i = 0; i < keys.size(); ++i) {
        EXPECT_EQ(table->number().atOrAfter({keys[i]}).key().number, keys[i]);
        table->number().del({keys[i]});
        auto cursor = table->number().atOrAfter({keys[i]});
        ASSERT_EQ(static_cast<bool>(cursor), i + 1 < keys.size());
        if (cursor) {
            EXPECT_EQ(cursor.key().number, keys[i + 1]);
        }
    }
}

TEST_F(TableOrderTest, aWalkResumesThroughGrowthAndShrinking) {
    auto table = mountWriter();
    fill(table->number(), 0, 100);
    const std::vector<uint64_t> keys = keysFrom(table->number().first());
    const NumberKey bookmark{keys[50]};
    const std::set<uint64_t> expected(keys.begin() + 50, keys.end());

    auto missing = [&] {
        std::set<uint64_t> rest = expected;
        for (uint64_t key : keysFrom(table->number().atOrAfter(bookmark))) {
            EXPECT_GE(orderOf(table->number(), {key}), orderOf(table->number(), bookmark));
            rest.erase(key);
        }
        return rest.size();
    };
    fill(table->number(), 1000, 4000);
    EXPECT_EQ(table->number().count(), 3100u);
    EXPECT_EQ(missing(), 0u);
    for (uint64_t number = 1000; number < 4000; ++number) {
        table->number().del({number});
    }
    EXPECT_LE(table->number().mapping().header().bucketCount, 4 * table->number().count() + 4);
    EXPECT_EQ(missing(), 0u);
    EXPECT_EQ(keysFrom(table->number().first()), keys) << "the order is the same as before";
}

TEST_F(TableOrderTest, aCursorStepsBesideAnyChange) {
    auto table = mountWriter();
    Collection& numbers = table->number();
    fill(numbers, 0, 300);
    const std::vector<uint64_t> before = keysFrom(numbers.first());
    std::set<uint64_t> staying;
    for (uint64_t number = 0; number < 300; number += 3) {
        staying.insert(number);
    }
    uint64_t added = 1000;
    for (auto cursor = numbers.first(); cursor; ++cursor) {
        const uint64_t met = cursor.key().number;
        staying.erase(met);
        if (met < 300 && met % 3 == 1) {
            EXPECT_TRUE(numbers.del({met})) << "the one it stands at";
            EXPECT_EQ(cursor.value().value, met * 7) << "of which it has a copy";
        }
        if (auto next = numbers.recordAfter(cursor.key()); next && next->key.number % 3 == 2) {
            numbers.del(next->key);
        }
        if (added < 2000) {
            fill(numbers, added, added + 5);
            added += 5;
        }
    }
    EXPECT_TRUE(staying.empty());
    EXPECT_EQ(numbers.troubles(), 0u);
}

TEST_F(TableOrderTest, aRemovedRecordIsUsedAgain) {
    auto table = mountWriter();
    fill(table->number(), 0, 100);
    for (uint64_t round = 1; round < 20; ++round) {
        for (uint64_t number = 0; number < 100; ++number) {
            ASSERT_TRUE(table->number().del({(round - 1) * 100 + number}));
        }
        fill(table->number(), round * 100, round * 100 + 100);
    }
    EXPECT_EQ(table->number().mapping().header().records, 100u);
    EXPECT_EQ(table->number().count(), 100u);
}

TEST_F(TableOrderTest, keysOfOneHashAreToldApart) {
    auto table = mount<CrowdedRecord>();
    for (uint64_t number = 0; number < 300; ++number) {
        ASSERT_TRUE(table->number().set({{number}, number + 1}));
    }
    for (uint64_t number = 0; number < 300; ++number) {
        EXPECT_EQ(table->number().value({number}).value, number + 1);
    }
    EXPECT_FALSE(table->number().has({300}));
    for (uint64_t number = 0; number < 300; number += 2) {
        EXPECT_TRUE(table->number().del({number}));
    }
    std::set<uint64_t> met;
    const uint64_t third = table->number().first().key().number % 3;
    uint64_t groups = 1;
    uint64_t last = third;
    for (auto cursor = table->number().first(); cursor; ++cursor) {
        groups += cursor.key().number % 3 != last;
        last = cursor.key().number % 3;
        EXPECT_TRUE(met.insert(cursor.key().number).second);
        EXPECT_EQ(cursor.key().number % 2, 1u);
    }
    EXPECT_EQ(met.size(), 150u);
    EXPECT_EQ(groups, 3u) << "keys of one hash stand together";
    EXPECT_EQ(table->number().troubles(), 0u);
}

TEST_F(TableOrderTest, aWalkThroughKeysOfOneHashResumesAtAnyOfThem) {
    auto table = mount<CrowdedRecord>();
    for (uint64_t number = 0; number < 90; ++number) {
        ASSERT_TRUE(table->number().set({{number}, 0}));
    }
    std::vector<uint64_t> keys;
    for (auto cursor = table->number().first(); cursor; ++cursor) {
        keys.push_back(cursor.key().number);
    }
    ASSERT_EQ(keys.size(), 90u);
    for (size_t i = 0; i + 1 < keys.size(); ++i) {
        table->number().del({keys[i]});
        EXPECT_EQ(table->number().atOrAfter({keys[i]}).key().number, keys[i + 1]);
        table->number().set({{keys[i]}, 0});
        EXPECT_EQ(table->number().atOrAfter({keys[i]}).key().number, keys[i]);
        EXPECT_EQ(table->number().recordAfter({keys[i]})->key.number, keys[i + 1]);
    }
}

TEST_F(TableOrderTest, aKeyNeedNotFillItsWords) {
    auto table = mount<OddRecord>();
    auto key = [](unsigned number) {
        OddKey odd;
        odd.bytes[number % 11] = static_cast<uint8_t>(1 + number / 11);
        return odd;
    };
    for (unsigned round = 0; round < 3; ++round) {
        for (unsigned number = 0; number < 200; ++number) {
            uint8_t value = static_cast<uint8_t>(number + round);
            ASSERT_TRUE(table->number().set({key(number), {value, value}}));
        }
        // The value shares a word with the key and must not be taken for a part of it.
        EXPECT_EQ(table->number().count(), 200u);
    }
    for (unsigned number = 0; number < 200; ++number) {
        auto found = table->number().find(key(number));
        ASSERT_TRUE(found);
        EXPECT_EQ(found->key, key(number));
        EXPECT_EQ(found->value[1], static_cast<uint8_t>(number + 2));
    }
    EXPECT_FALSE(table->number().has(key(200)));
    std::set<OddKey> met;
    for (auto cursor = table->number().first(); cursor; ++cursor) {
        EXPECT_TRUE(met.insert(cursor.key()).second);
    }
    EXPECT_EQ(met.size(), 200u);
    EXPECT_TRUE(table->number().del(key(7)));
    EXPECT_FALSE(table->number().has(key(7)));
    EXPECT_EQ(table->number().troubles(), 0u);
}

TEST_F(TableOrderTest, capacityIsWhereItEnds) {
    auto table = mountWriter();
    fill(table->number(), 0, NumberTable::capacity);
    EXPECT_FALSE(table->number().set({{1'000'000}, 1}));
    EXPECT_FALSE(table->number().has({1'000'000}));
    EXPECT_EQ(table->number().refusals(), 1u);
    EXPECT_EQ(table->number().count(), NumberTable::capacity);
    EXPECT_TRUE(table->number().set({{0}, 12})) << "what is there can still change";
    EXPECT_TRUE(table->number().del({1}));
    EXPECT_TRUE(table->number().set({{1'000'000}, 1}));
    EXPECT_EQ(table->number().value({1'000'000}).value, 1u);
    EXPECT_EQ(table->number().refusals(), 1u);
}

} // namespace

} // namespace Quarry
