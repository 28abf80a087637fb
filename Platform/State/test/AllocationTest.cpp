#include "Platform/State/Collection.h"
#include "Platform/State/test/AllocationCount.h"
#include "Platform/State/test/StateFixture.h"
#include "Platform/State/test/TableKeys.h"

#include <algorithm>
#include <memory>

namespace Vela {
namespace {

uint64_t allocationsOf(const std::function<void()>& action) {
    uint64_t before = AllocationCount::now().allocations;
    action();
    return AllocationCount::now().allocations - before;
}

class AllocationTest : public StateFixture {};

TEST_F(AllocationTest, CountsWhatIsAllocated) {
    std::unique_ptr<int> one;
    std::unique_ptr<int[]> many;
    size_t bytesBefore = AllocationCount::now().liveBytes;
    EXPECT_EQ(allocationsOf([&] { one = std::make_unique<int>(); }), 1u);
    EXPECT_EQ(allocationsOf([&] { many = std::make_unique<int[]>(1000); }), 1u);
    EXPECT_GE(AllocationCount::now().liveBytes, bytesBefore + 1001 * sizeof(int));
    one.reset();
    many.reset();
    EXPECT_EQ(AllocationCount::now().liveBytes, bytesBefore);
}

TEST_F(AllocationTest, NotifyingAllocatesNothing) {
    auto owner = make<Thing>();
    Notifier notifier;
    int called = 0;
    Reaction a, b;
    a = notifier.react(owner.get(), [&] {
        if (++called == 1) {
            b.clear();         // removal,
            notifier.notify(); // nesting,
            owner->destroy();  // and the end of a life are part of it
        }
    });
    b = notifier.react(nullptr, [&] { ++called; });
    Reaction c = notifier.react(nullptr, [&] { ++called; });
    EXPECT_EQ(allocationsOf([&] { notifier.notify(); }), 0u);
    EXPECT_EQ(called, 4);
}

TEST_F(AllocationTest, AnnouncingAttributesAndEntriesAllocatesNothing) {
    Attribute<int> level;
    HashMap<SpreadKey, int> entries;
    entries.set(SpreadKey{1}, 1);
    int called = 0;
    Reaction a = level.react(nullptr, [&] { ++called; });
    Reaction b = entries.react(nullptr, [&](SpreadKey) { ++called; });
    EXPECT_EQ(allocationsOf([&] {
                  level.set(1);
                  entries.set(SpreadKey{1}, 2);
                  entries.del(SpreadKey{1});
              }),
              0u);
    EXPECT_EQ(called, 3);
}

TEST_F(AllocationTest, AnAttributeThatNobodyObservesHasNoListOfObservers) {
    EXPECT_EQ(allocationsOf([] { Attribute<int>().set(1); }), 0u);
}

constexpr uint32_t manyEntries = 200'000;

template <class Table>
void fill(Table& table, uint32_t from, uint32_t to) {
    for (uint32_t number = from; number < to; ++number) {
        table.findOrInsert(SpreadKey{number}, [&] { return number; });
    }
}

TEST_F(AllocationTest, NoInsertionAllocatesMuch) {
    HashTable<PairLayout<SpreadKey, uint32_t>> table;
    size_t most = 0;
    for (uint32_t number = 0; number < manyEntries; ++number) {
        size_t before = AllocationCount::now().liveBytes;
        fill(table, number, number + 1);
        // What was allocated and freed again within is a smaller copy of what stays.
        most = std::max(most, AllocationCount::now().liveBytes - before);
    }
    EXPECT_LT(most, 8u * 1024);
}

TEST_F(AllocationTest, AHashTableGivesItsMemoryBackAsItShrinks) {
    size_t before = AllocationCount::now().liveBytes;
    {
        HashTable<PairLayout<SpreadKey, uint32_t>> table;
        fill(table, 0, manyEntries);
        EXPECT_GT(AllocationCount::now().liveBytes - before, manyEntries * 30);
        for (uint32_t number = 10; number < manyEntries; ++number) {
            table.erase(SpreadKey{number});
        }
        ASSERT_EQ(table.size(), 10u);
        // So few slots remain that a walk has next to nothing to pass over; the list of what may
        // come again is all that stays.
        EXPECT_LT(AllocationCount::now().liveBytes - before, 16u * 1024);
    }
    EXPECT_EQ(AllocationCount::now().liveBytes, before);
}

TEST_F(AllocationTest, ASmallHashTableIsSmall) {
    size_t before = AllocationCount::now().liveBytes;
    HashTable<PairLayout<SpreadKey, uint32_t>> table;
    EXPECT_EQ(AllocationCount::now().liveBytes, before);
    fill(table, 0, 1);
    EXPECT_LT(AllocationCount::now().liveBytes - before, 200u);
}

/// Counts what the table asks of keys. No two hashes agree in their lower halves.
struct CountingKey {
    static inline uint64_t hashed = 0;
    static inline uint64_t compared = 0;
    uint32_t number = 0;

    uint64_t hash(uint64_t) const {
        ++hashed;
        return number * 0x9e3779b1u; // odd: no two products are equal
    }
    friend bool operator==(CountingKey a, CountingKey b) {
        ++compared;
        return a.number == b.number;
    }
    friend bool operator<(CountingKey a, CountingKey b) {
        ++compared;
        return a.number < b.number;
    }
};

TEST_F(AllocationTest, GrowingAndShrinkingHashesAndComparesNoKeyAgain) {
    HashTable<PairLayout<CountingKey, uint32_t>> table;
    CountingKey::hashed = CountingKey::compared = 0;
    for (uint32_t number = 0; number < manyEntries; ++number) {
        table.findOrInsert(CountingKey{number}, [&] { return number; });
    }
    EXPECT_EQ(CountingKey::hashed, manyEntries);
    EXPECT_EQ(CountingKey::compared, 0u);
    for (uint32_t number = 0; number < manyEntries; ++number) {
        EXPECT_TRUE(table.erase(CountingKey{number}));
    }
    EXPECT_EQ(CountingKey::hashed, 2 * manyEntries);
    EXPECT_EQ(CountingKey::compared, manyEntries);
}

} // namespace
} // namespace Vela
