#include "Platform/Quarry/test/QuarryFixture.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

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

} // namespace

} // namespace Quarry
