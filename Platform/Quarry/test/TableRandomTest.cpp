#include "Platform/Quarry/test/QuarryFixture.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <random>
#include <vector>

namespace Quarry {

namespace {

using TableRandomTest = QuarryFixture;

std::map<uint64_t, uint64_t> contents(const TableCollection<NumberRecord>& collection) {
    std::map<uint64_t, uint64_t> all;
    for (auto cursor = collection.first(); cursor; ++cursor) {
        EXPECT_TRUE(all.emplace(cursor.key().number, cursor.value().value).second);
    }
    return all;
}

TEST_F(TableRandomTest, holdsWhatAMapHoldsThroughGrowthAndShrinking) {
    auto table = mountWriter();
    std::map<uint64_t, uint64_t> expected;
    std::mt19937_64 random(1);
    for (unsigned i = 0; i < 40'000; ++i) {
        // Up to some 2000 entries, down to a few, up again.
        bool growing = i / 10'000 % 2 == 0;
        uint64_t key = random() % 3000;
        if (random() % 10 < (growing ? 8 : 2)) {
            uint64_t value = random() % 3;
            ASSERT_TRUE(table->number().set({{key}, value}));
            expected[key] = value;
        } else {
            ASSERT_EQ(table->number().del({key}), expected.erase(key) == 1);
        }
        ASSERT_EQ(table->number().count(), expected.size());
        uint64_t probed = random() % 3000;
        auto found = table->number().find({probed});
        auto wanted = expected.find(probed);
        ASSERT_EQ(found.has_value(), wanted != expected.end());
        if (found) {
            ASSERT_EQ(found->value, wanted->second);
        }
        if (i % 1000 == 0) {
            ASSERT_EQ(contents(table->number()), expected);
        }
    }
    EXPECT_EQ(table->number().troubles(), 0u);
    EXPECT_EQ(table->number().refusals(), 0u);
}

TEST_F(TableRandomTest, incrementsOneNumberAndNothingElse) {
    auto table = mountWriter();
    table->number().set({{1}, 5});
    table->number().set({{2}, 7});
    uint64_t changes = table->number().mapping().header().changes;
    std::vector<uint64_t> announced;
    auto reaction = table->number().react(
        nullptr, [&](const NumberKey& key) { announced.push_back(key.number); });
    EXPECT_TRUE(table->number().increment({1}, offsetof(NumberRecord, value)));
    EXPECT_TRUE(table->number().increment({1}, offsetof(NumberRecord, value)));
    EXPECT_FALSE(table->number().increment({3}, offsetof(NumberRecord, value)));
    EXPECT_EQ(table->number().value({1}), (NumberRecord{{1}, 7}));
    EXPECT_EQ(table->number().value({2}), (NumberRecord{{2}, 7}));
    EXPECT_EQ(table->number().count(), 2u);
    EXPECT_EQ(table->number().mapping().header().changes, changes + 2);
    runUntilIdle();
    EXPECT_EQ(announced, (std::vector<uint64_t>{1, 1}));
    EXPECT_DEATH(table->number().increment({1}, 0), "offset \\+ 8 <= sizeof");
}

} // namespace

} // namespace Quarry
