#include "Platform/Base/Errors.h"
#include "Platform/Base/Hash.h"
#include "Platform/Scheduler/WalkSmBase.h"
#include "Platform/State/Collection.h"
#include "Testing/CoreFixture.h"

#include <algorithm>
#include <compare>
#include <map>
#include <random>
#include <set>
#include <vector>

namespace Vela {
namespace {

using namespace std::chrono_literals;

struct Number {
    uint32_t value = 0;
    uint64_t hash(uint64_t seed) const {
        IncrementalHash hash(seed);
        hash.mix(value);
        return hash.result();
    }
    friend auto operator<=>(Number, Number) = default;
};

/// Of a hundred neighbours all have one hash.
struct Colliding {
    uint32_t value = 0;
    uint64_t hash(uint64_t) const { return value / 100; }
    friend auto operator<=>(Colliding, Colliding) = default;
};

/// 0 means none.
struct NumberOrNone {
    uint32_t value = 0;
    explicit operator bool() const { return value != 0; }
    uint64_t hash(uint64_t seed) const { return Number{value}.hash(seed); }
    friend auto operator<=>(NumberOrNone, NumberOrNone) = default;
};

/// The same numbers for the same seed, everywhere.
class Random {
  public:
    explicit Random(uint32_t seed) : engine_(seed) {}
    uint32_t below(uint32_t bound) { return static_cast<uint32_t>(engine_()) % bound; }

  private:
    std::mt19937 engine_;
};

/// What is walked over, and what lives as long as somebody holds it.
template <class Collection>
class Table final : public Entity {
  public:
    const char* typeName() const noexcept override { return "Table"; }
    Collection entries;
};

template <class Collection, class Bookmark = std::optional<typename Collection::Key>>
class CollectionSm final : public WalkSmBase {
  public:
    using Key = typename Collection::Key;

    CollectionSm(Ptr<TaskScheduler> scheduler, Ptr<Table<Collection>> table)
        : WalkSmBase(std::move(scheduler), 3, "CollectionSm"), table_(std::move(table)) {}
    const char* typeName() const noexcept override { return "CollectionSm"; }

    using WalkSmBase::scheduleWalk;

    Bookmark bookmark;
    std::function<void(const Key&, int)> item = [](const Key&, int) {};
    std::vector<uint32_t> visited;  // in all walks
    std::vector<uint32_t> perSlice; // how many each
    int walks = 0;

  private:
    WalkRet walk() override {
        uint32_t count =
            walkCollection(table_->entries, bookmark, [this](const Key& key, int value) {
                visited.push_back(key.value);
                item(key, value);
            });
        perSlice.push_back(count);
        return {bookmark ? 1u : 0u, count};
    }
    void walkFinishedNotification() override { ++walks; }
    void handleDestroy() noexcept override { table_.reset(); }

    Ptr<Table<Collection>> table_;
};

template <class Collection>
class WalkCollectionTest : public Testing::CoreFixture {
  protected:
    using Key = typename Collection::Key;
    using Sm = CollectionSm<Collection>;

    static Key key(uint32_t value) { return Key{value}; }

    void fill(uint32_t first, uint32_t last) {
        for (uint32_t i = first; i <= last; ++i) {
            entries().set(key(i), static_cast<int>(i));
        }
    }
    Collection& entries() { return table->entries; }

    /// Each item takes a quarter of the slice budget.
    void makeMachine() {
        sm = make<Sm>(scheduler(), table);
        sm->item = [this](const Key&, int) { clock().advance(250us); };
    }
    uint32_t itemsPerSlice() const { return alwaysYield() ? 1 : 4; }

    std::vector<uint32_t> sortedVisits() const {
        std::vector<uint32_t> all = sm->visited;
        std::sort(all.begin(), all.end());
        return all;
    }
    static std::vector<uint32_t> range(uint32_t first, uint32_t last) {
        std::vector<uint32_t> all;
        for (uint32_t i = first; i <= last; ++i) {
            all.push_back(i);
        }
        return all;
    }

    Ptr<Table<Collection>> table = make<Table<Collection>>();
    Ptr<Sm> sm;
};

using Collections = testing::Types<Map<Number, int>, HashMap<Number, int>, HashMap<Colliding, int>>;
class CollectionNames {
  public:
    template <class T>
    static std::string GetName(int i) {
        return i == 0 ? "Ordered" : i == 1 ? "Hashed" : "EqualHashes";
    }
};
TYPED_TEST_SUITE(WalkCollectionTest, Collections, CollectionNames);

TYPED_TEST(WalkCollectionTest, AnEmptyOneIsDoneAtOnce) {
    this->makeMachine();
    EXPECT_EQ(this->runUntilIdle(), 1u);
    EXPECT_EQ(this->sm->perSlice, std::vector<uint32_t>{0});
    EXPECT_FALSE(this->sm->bookmark);
    EXPECT_EQ(this->sm->walks, 1);
}

TYPED_TEST(WalkCollectionTest, WithinItsBudgetOneSliceDoesItAll) {
    this->fill(1, 50);
    this->makeMachine();
    this->sm->item = [this](const auto& key, int value) {
        EXPECT_EQ(key.value, static_cast<uint32_t>(value));
        this->clock().advance(10us);
    };
    EXPECT_EQ(this->runUntilIdle(), this->alwaysYield() ? 50u : 1u);
    EXPECT_EQ(this->sortedVisits(), this->range(1, 50));
    EXPECT_FALSE(this->sm->bookmark);
}

TYPED_TEST(WalkCollectionTest, BeyondItsBudgetItTakesManySlices) {
    this->fill(1, 10);
    this->makeMachine();
    this->turn();
    EXPECT_EQ(this->sm->visited.size(), this->itemsPerSlice());
    ASSERT_TRUE(this->sm->bookmark);
    auto next = *this->sm->bookmark;
    EXPECT_FALSE(std::count(this->sm->visited.begin(), this->sm->visited.end(), next.value));
    this->turn();
    EXPECT_EQ(this->sm->visited[this->itemsPerSlice()], next.value);
    this->runUntilIdle();
    EXPECT_EQ(this->sm->perSlice, this->alwaysYield() ? std::vector<uint32_t>(10, 1)
                                                      : (std::vector<uint32_t>{4, 4, 2}));
    EXPECT_EQ(this->sortedVisits(), this->range(1, 10));
    EXPECT_FALSE(this->sm->bookmark);
}

TYPED_TEST(WalkCollectionTest, DoesNotYieldAfterTheLastItem) {
    this->fill(1, 4);
    this->makeMachine();
    this->runUntilIdle();
    EXPECT_EQ(this->sm->perSlice,
              this->alwaysYield() ? std::vector<uint32_t>(4, 1) : std::vector<uint32_t>{4});
}

TYPED_TEST(WalkCollectionTest, ResumesAfterTheKeyOfItsBookmarkIsGone) {
    this->fill(1, 300);
    this->makeMachine();
    std::set<uint32_t> expected;
    for (uint32_t i = 1; i <= 300; ++i) {
        expected.insert(i);
    }
    while (this->turn()) {
        if (this->sm->bookmark) {
            auto gone = *this->sm->bookmark;
            EXPECT_TRUE(this->entries().del(gone));
            EXPECT_EQ(expected.erase(gone.value), 1u);
        }
    }
    std::set<uint32_t> visited(this->sm->visited.begin(), this->sm->visited.end());
    EXPECT_EQ(visited, expected);
    EXPECT_EQ(this->sm->visited.size(), expected.size()); // each once
}

TYPED_TEST(WalkCollectionTest, ResumesAfterGrowth) {
    this->fill(1, 20);
    this->makeMachine();
    this->turn();
    ASSERT_TRUE(this->sm->bookmark);
    this->fill(1001, 6000);
    this->sm->item = [](const auto&, int) {};
    this->runUntilIdle();
    std::map<uint32_t, int> visits;
    for (uint32_t value : this->sm->visited) {
        ++visits[value];
    }
    for (uint32_t i = 1; i <= 20; ++i) {
        EXPECT_EQ(visits[i], 1) << i;
    }
    // And back.
    this->sm->scheduleWalk();
    this->sm->item = [this](const auto&, int) { this->clock().advance(250us); };
    this->sm->visited.clear();
    this->turn();
    for (uint32_t i = 1001; i <= 6000; ++i) {
        this->entries().del(this->key(i));
    }
    this->runUntilIdle();
    std::erase_if(this->sm->visited, [](uint32_t value) { return value > 1000; });
    EXPECT_EQ(this->sortedVisits(), this->range(1, 20));
}

TYPED_TEST(WalkCollectionTest, EmptiedBetweenTwoSlicesTheNextFindsNothing) {
    this->fill(1, 10);
    this->makeMachine();
    this->turn();
    EXPECT_TRUE(this->sm->bookmark);
    this->entries().delAll();
    EXPECT_TRUE(this->turn());
    EXPECT_EQ(this->sm->perSlice, (std::vector<uint32_t>{this->itemsPerSlice(), 0}));
    EXPECT_FALSE(this->sm->bookmark);
    EXPECT_EQ(this->sm->walks, 1);
    EXPECT_FALSE(this->turn());
}

TYPED_TEST(WalkCollectionTest, TheItemMayRemoveItsEntry) {
    this->fill(1, 200);
    this->makeMachine();
    this->sm->item = [this](const auto& key, int) {
        this->clock().advance(250us);
        this->entries().del(key);
        EXPECT_EQ(key.value, this->sm->visited.back()); // the key outlives the entry
    };
    this->runUntilIdle();
    EXPECT_EQ(this->sortedVisits(), this->range(1, 200));
    EXPECT_EQ(this->entries().count(), 0u);
}

TYPED_TEST(WalkCollectionTest, TheItemMayRemoveAnyOther) {
    this->fill(1, 200);
    this->makeMachine();
    Random random(7);
    std::set<uint32_t> left;
    for (uint32_t i = 1; i <= 200; ++i) {
        left.insert(i);
    }
    this->sm->item = [&, this](const auto& key, int) {
        EXPECT_TRUE(left.contains(key.value)); // nothing that is gone is visited
        uint32_t other = random.below(200) + 1;
        this->entries().del(this->key(other));
        left.erase(other);
    };
    this->runUntilIdle();
    for (uint32_t value : left) {
        EXPECT_EQ(std::count(this->sm->visited.begin(), this->sm->visited.end(), value), 1)
            << value;
    }
}

TYPED_TEST(WalkCollectionTest, TheItemMayEmptyTheCollection) {
    this->fill(1, 200);
    this->makeMachine();
    this->sm->item = [this](const auto&, int) { this->entries().delAll(); };
    this->runUntilIdle();
    EXPECT_EQ(this->sm->perSlice, std::vector<uint32_t>{1});
    EXPECT_FALSE(this->sm->bookmark);
}

TYPED_TEST(WalkCollectionTest, WhatStaysIsVisitedOnceWhateverComesAndGoes) {
    for (uint32_t seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        this->entries().delAll();
        this->fill(1, 500); // stay
        this->makeMachine();
        std::set<uint32_t> others;
        auto disturb = [&] {
            for (uint32_t i = random.below(30); i > 0; --i) {
                uint32_t other = 501 + random.below(400);
                if (others.erase(other)) {
                    this->entries().del(this->key(other));
                } else {
                    this->entries().set(this->key(other), static_cast<int>(other));
                    others.insert(other);
                }
            }
        };
        this->sm->item = [&, this](const auto& key, int) {
            this->clock().advance(std::chrono::microseconds(random.below(300)));
            EXPECT_TRUE(key.value <= 500 || others.contains(key.value)) << key.value;
            if (random.below(8) == 0) {
                disturb();
            }
        };
        while (this->turn()) {
            disturb();
        }
        std::map<uint32_t, int> visits;
        for (uint32_t value : this->sm->visited) {
            ++visits[value];
        }
        for (uint32_t i = 1; i <= 500; ++i) {
            EXPECT_EQ(visits[i], 1) << i;
        }
    }
}

TYPED_TEST(WalkCollectionTest, TheItemMayDestroyTheMachineAndWhatItWalksOver) {
    for (uint32_t entries : {1u, 10u}) {
        this->table = make<Table<TypeParam>>();
        this->fill(1, entries);
        this->makeMachine();
        int items = 0;
        this->sm->item = [&, this](const auto&, int) {
            ++items;
            this->table.reset();
            this->sm->destroy(); // drops the last reference to the table
        };
        EXPECT_EQ(this->runUntilIdle(), 1u);
        EXPECT_EQ(items, 1);
        EXPECT_EQ(this->sm->perSlice, std::vector<uint32_t>{1});
        EXPECT_FALSE(this->sm->bookmark);
        EXPECT_EQ(this->sm->walks, 0);
    }
}

TYPED_TEST(WalkCollectionTest, AfterARangeErrorTheNextWalkStartsAtTheBeginning) {
    this->fill(1, 10);
    this->makeMachine();
    this->sm->item = [this](const auto&, int) {
        if (this->sm->visited.size() == 6) {
            throw RangeError("Bridging::VlanId::value < 1 or > 4094 not allowed");
        }
    };
    this->runUntilIdle();
    EXPECT_EQ(this->sm->visited.size(), 6u);
    EXPECT_FALSE(this->sm->bookmark);
    EXPECT_EQ(this->sm->walks, 0);

    this->sm->visited.clear();
    this->sm->item = [](const auto&, int) {};
    this->sm->scheduleWalk();
    this->runUntilIdle();
    EXPECT_EQ(this->sortedVisits(), this->range(1, 10));
    EXPECT_EQ(this->sm->walks, 1);
}

using WalkOrderTest = WalkCollectionTest<Map<Number, int>>;

TEST_F(WalkOrderTest, WhatIsAddedAheadIsVisitedAndBehindIsNot) {
    fill(10, 20);
    makeMachine();
    turn();
    EXPECT_EQ(sm->bookmark, alwaysYield() ? key(11) : key(14));
    fill(1, 1);
    fill(15, 15);
    fill(30, 30);
    entries().del(key(10));
    entries().del(key(20));
    runUntilIdle();
    std::vector<uint32_t> expected = range(10, 19);
    expected.push_back(30);
    EXPECT_EQ(sm->visited, expected);
}

TEST_F(WalkOrderTest, WhatIsAddedJustBeforeTheBookmarkIsLeftOut) {
    fill(10, 12);
    fill(20, 30);
    makeMachine();
    while (!sm->bookmark || *sm->bookmark < key(20)) {
        turn();
    }
    Number bookmark = *sm->bookmark;
    entries().del(bookmark);
    fill(13, 13);
    runUntilIdle();
    EXPECT_FALSE(std::count(sm->visited.begin(), sm->visited.end(), 13));
    EXPECT_FALSE(std::count(sm->visited.begin(), sm->visited.end(), bookmark.value));
    EXPECT_EQ(sm->visited.back(), 30u);
}

// A bookmark that is a plain key has a value that means none, and that may be the key of an entry.
class WalkBookmarkTest : public Testing::CoreFixture {};

TEST_F(WalkBookmarkTest, AKeyThatMeansNoneEndsNoWalk) {
    for (bool yields : {false, true}) {
        auto own = make<TaskScheduler>(
            clock(), TaskScheduler::Settings{.sliceBudget = 1ms, .alwaysYield = yields});
        using Entries = HashMap<NumberOrNone, int>;
        auto table = make<Table<Entries>>();
        for (uint32_t i = 0; i < 100; ++i) {
            table->entries.set(NumberOrNone{i}, 0);
        }
        auto sm = make<CollectionSm<Entries, NumberOrNone>>(own, table);
        sm->item = [&](const NumberOrNone&, int) { clock().advance(1ms); };
        while (own->turn(0ns)) {
        }
        EXPECT_EQ(sm->walks, 1);
        std::set<uint32_t> visited(sm->visited.begin(), sm->visited.end());
        EXPECT_EQ(visited.size(), 100u);
        EXPECT_EQ(sm->visited.size(), 100u);
        EXPECT_GE(sm->perSlice.size(), 99u);
        EXPECT_FALSE(sm->bookmark);
    }
}

} // namespace
} // namespace Vela
