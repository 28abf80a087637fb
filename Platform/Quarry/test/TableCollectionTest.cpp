// Announcements: through the loop, in the order of writing across all tables, none dropped.

#include "Platform/Quarry/test/QuarryFixture.h"

#include <memory>
#include <utility>
#include <vector>

namespace Quarry {

namespace {

using Heard = std::vector<std::pair<char, uint64_t>>;

class TableCollectionTest : public QuarryFixture {
  protected:
    [[nodiscard]] Vela::Reaction listen(const Vela::Ptr<NumberTable>& table, char name) {
        return table->number().react(
            nullptr, [this, name](const NumberKey& key) { heard.emplace_back(name, key.number); });
    }
    const Vela::Ptr<ChangeLog>& log() const { return service->changeLog(); }

    Vela::Ptr<NumberTable> a = mountWriter("a");
    Vela::Ptr<NumberTable> b = mountWriter("b");
    Heard heard;
};

TEST_F(TableCollectionTest, announcesThroughTheLoopInTheOrderOfWritingAcrossTables) {
    auto toA = listen(a, 'a');
    auto toB = listen(b, 'b');
    a->number().set({{1}, 1});
    b->number().set({{2}, 1});
    b->number().set({{1}, 1});
    a->number().set({{3}, 1});
    a->number().del({1});
    b->number().set({{2}, 2});
    EXPECT_TRUE(heard.empty()) << "never from within the write";
    EXPECT_EQ(log()->entries(), 6u);
    runUntilIdle();
    EXPECT_EQ(heard, (Heard{{'a', 1}, {'b', 2}, {'b', 1}, {'a', 3}, {'a', 1}, {'b', 2}}));
    EXPECT_EQ(log()->entries(), 0u);
    EXPECT_FALSE(turn());
}

TEST_F(TableCollectionTest, announcesOnlyWhatDiffers) {
    auto toA = listen(a, 'a');
    a->number().set({{1}, 5});
    runUntilIdle();
    heard.clear();
    EXPECT_TRUE(a->number().set({{1}, 5}));
    EXPECT_FALSE(a->number().del({2}));
    runUntilIdle();
    EXPECT_TRUE(heard.empty());
}

TEST_F(TableCollectionTest, aRefusedEntryIsNotAnnounced) {
    for (uint64_t number = 0; number < NumberTable::capacity; ++number) {
        a->number().set({{number}, 0});
    }
    auto toA = listen(a, 'a');
    EXPECT_FALSE(a->number().set({{NumberTable::capacity}, 0}));
    runUntilIdle();
    EXPECT_TRUE(heard.empty());
}

TEST_F(TableCollectionTest, aReactionFindsTheRecordAsItIsNow) {
    std::vector<uint64_t> values;
    auto reaction = a->number().react(nullptr, [&](const NumberKey& key) {
        auto record = a->number().find(key);
        values.push_back(record ? record->value : 0);
    });
    a->number().set({{1}, 5});
    a->number().set({{1}, 6});
    a->number().set({{2}, 7});
    a->number().del({2});
    runUntilIdle();
    EXPECT_EQ(values, (std::vector<uint64_t>{6, 6, 0, 0}));
}

TEST_F(TableCollectionTest, manyAreAnnouncedInASlice) {
    auto costly = a->number().react(nullptr, [this](const NumberKey&) {
        clock().advance(std::chrono::microseconds(100)); // ten of them are a slice's budget
    });
    auto toA = listen(a, 'a');
    for (uint64_t number = 0; number < 100; ++number) {
        a->number().set({{number}, 1});
    }
    EXPECT_EQ(runUntilIdle(), alwaysYield() ? 100u : 10u);
    EXPECT_EQ(heard.size(), 100u);
}

TEST_F(TableCollectionTest, anUnobservedTableLogsNothing) {
    a->number().set({{1}, 1});
    EXPECT_EQ(log()->entries(), 0u);
    {
        auto toA = listen(a, 'a');
        b->number().set({{1}, 1});
        EXPECT_EQ(log()->entries(), 0u) << "the other one is observed";
    }
    a->number().del({1});
    EXPECT_EQ(log()->entries(), 0u);
    EXPECT_EQ(log()->mostEntries(), 0u);
    EXPECT_FALSE(turn());
}

TEST_F(TableCollectionTest, whatChangedBeforeIsNotAnnounced) {
    a->number().set({{1}, 1});
    auto toA = listen(a, 'a');
    a->number().set({{2}, 1});
    runUntilIdle();
    EXPECT_EQ(heard, (Heard{{'a', 2}}));
}

TEST_F(TableCollectionTest, aRemovedReactionHearsNothingOfWhatWaits) {
    auto toA = listen(a, 'a');
    auto toB = listen(b, 'b');
    a->number().set({{1}, 1});
    b->number().set({{2}, 1});
    a->number().set({{3}, 1});
    toA.clear();
    runUntilIdle();
    EXPECT_EQ(heard, (Heard{{'b', 2}}));
}

TEST_F(TableCollectionTest, aReactionMayRemoveItselfInTheMiddle) {
    Vela::Reaction self;
    self = a->number().react(nullptr, [&](const NumberKey& key) {
        heard.emplace_back('s', key.number);
        if (key.number == 2) {
            self.clear();
        }
    });
    auto toA = listen(a, 'a');
    for (uint64_t number = 1; number <= 3; ++number) {
        a->number().set({{number}, 1});
    }
    runUntilIdle();
    EXPECT_EQ(heard, (Heard{{'s', 1}, {'a', 1}, {'s', 2}, {'a', 2}, {'a', 3}}));
}

TEST_F(TableCollectionTest, aReactionMayWriteAgain) {
    auto toA = listen(a, 'a');
    auto echo = a->number().react(nullptr, [this](const NumberKey& key) {
        if (key.number < 5) {
            a->number().set({{key.number + 1}, 1});
            b->number().set({{key.number}, 1});
        }
    });
    auto toB = listen(b, 'b');
    a->number().set({{3}, 1});
    a->number().set({{9}, 1});
    runUntilIdle();
    EXPECT_EQ(heard, (Heard{{'a', 3}, {'a', 9}, {'a', 4}, {'b', 3}, {'a', 5}, {'b', 4}}));
}

TEST_F(TableCollectionTest, aReactionMayUnmountTheTableThatAnnounces) {
    auto toA = listen(a, 'a');
    auto last = a->number().react(nullptr, [this](const NumberKey&) {
        a = nullptr;
        group->unmount("a");
    });
    auto toB = listen(b, 'b');
    a->number().set({{1}, 1});
    b->number().set({{2}, 1});
    a->number().set({{3}, 1});
    runUntilIdle();
    EXPECT_EQ(heard, (Heard{{'a', 1}, {'b', 2}}));
    EXPECT_FALSE(toA);
}

TEST_F(TableCollectionTest, aReactionMayEndTheService) {
    auto toA = listen(a, 'a');
    auto last = a->number().react(nullptr, [this](const NumberKey&) { service->destroy(); });
    a->number().set({{1}, 1});
    a->number().set({{2}, 1});
    runUntilIdle();
    EXPECT_EQ(heard, (Heard{{'a', 1}}));
}

TEST_F(TableCollectionTest, afterItsEndATableNeitherChangesNorAnnounces) {
    auto toA = listen(a, 'a');
    a->number().set({{1}, 1});
    group->unmount("a");
    EXPECT_FALSE(a->number().set({{2}, 1}));
    EXPECT_FALSE(a->number().del({1}));
    runUntilIdle();
    EXPECT_TRUE(heard.empty());
    EXPECT_EQ(a->number().count(), 1u);
    EXPECT_TRUE(a->number().has({1}));
}

TEST_F(TableCollectionTest, aRecordIsCountedUpAtItsPlaceAsByItsKey) {
    constexpr size_t value = offsetof(NumberRecord, value);
    EXPECT_EQ(a->number().place({1}), std::nullopt);
    for (uint64_t number = 0; number < 100; ++number) {
        a->number().set({{number}, 1000 + number});
    }
    auto place = a->number().place({42});
    ASSERT_TRUE(place);
    EXPECT_EQ(a->number().place({100}), std::nullopt);
    a->number().incrementAt(*place, value); // nobody listens
    auto toA = listen(a, 'a');
    // It stays there whatever becomes of the others.
    for (uint64_t number = 0; number < 42; ++number) {
        a->number().del({number});
    }
    runUntilIdle();
    heard.clear();
    uint64_t changes = a->number().mapping().header().changes;
    a->number().incrementAt(*place, value);
    EXPECT_EQ(a->number().mapping().header().changes, changes + 1);
    runUntilIdle();
    EXPECT_EQ(heard, (Heard{{'a', 42}}));
    EXPECT_EQ(a->number().value({42}).value, 1044u);
    EXPECT_EQ(a->number().value({43}).value, 1043u);
    EXPECT_EQ(a->number().place({42}), place);
    group->unmount("a");
    a->number().incrementAt(*place, value);
    EXPECT_EQ(a->number().value({42}).value, 1044u);
}

TEST_F(TableCollectionTest, aLookupInStepsFindsWhatALookupFinds) {
    // In an empty table there is nothing to be asked for.
    a->number().fetchRecord(a->number().fetchBucket({1}));
    EXPECT_FALSE(a->number().lookup({1}).find());
    for (uint64_t number = 0; number < 1000; ++number) {
        a->number().set({{number}, 1000 + number});
    }
    for (uint64_t number = 0; number < 1010; ++number) {
        a->number().fetchRecord(a->number().fetchBucket({number}));
        auto lookup = a->number().lookup({number});
        EXPECT_EQ(lookup.record(), NumberRecord());
        if (number % 2 == 0) {
            lookup.advance();
        }
        EXPECT_EQ(lookup.find(), number < 1000);
        EXPECT_EQ(lookup.record(), a->number().value({number}));
    }
}

TEST_F(TableCollectionTest, aLookupFindsTheRecordAsItIsAtItsLastStep) {
    a->number().set({{1}, 1});
    auto lookup = a->number().lookup({1});
    lookup.advance();
    a->number().set({{1}, 2});
    EXPECT_TRUE(lookup.find());
    EXPECT_EQ(lookup.record().value, 2u);
    // Once more, with nothing left of the last time.
    a->number().del({1});
    EXPECT_FALSE(lookup.find());
    EXPECT_EQ(lookup.record(), NumberRecord());
    a->number().set({{1}, 3});
    EXPECT_TRUE(lookup.find());
    EXPECT_EQ(lookup.record().value, 3u);
}

TEST_F(TableCollectionTest, nothingIsDroppedWhenFarMoreComesThanTheLogIsMeantFor) {
    auto toA = listen(a, 'a');
    auto toB = listen(b, 'b');
    Heard expected;
    for (uint64_t i = 0; i < 20 * log()->capacity(); ++i) {
        auto& table = i % 3 ? a : b;
        table->number().set({{i % 100}, i + 1});
        expected.emplace_back(i % 3 ? 'a' : 'b', i % 100);
        if (i % 50 == 0) {
            turn();
        }
    }
    runUntilIdle();
    EXPECT_EQ(heard, expected);
}

} // namespace

} // namespace Quarry
