#include "Platform/State/test/StateFixture.h"
#include "Platform/State/test/TableKinds.h"

#include <algorithm>
#include <set>
#include <vector>

namespace Vela {
namespace {

template <class T>
class TableTest : public StateFixture {
  protected:
    using Table = T;
    using Key = typename Table::Key;

    /// Growth by a factor of 100 starts from here; chains of equal hashes want it small.
    static constexpr uint32_t few = 20;

    void insertRange(uint32_t from, uint32_t to) {
        for (uint32_t number = from; number < to; ++number) {
            EXPECT_TRUE(insert(table, number));
        }
    }
    void eraseRange(uint32_t from, uint32_t to) {
        for (uint32_t number = from; number < to; ++number) {
            EXPECT_TRUE(table.erase(Key{number}));
        }
    }

    /// All numbers from the cursor to the end.
    static std::vector<uint32_t> rest(typename Table::Cursor cursor) {
        std::vector<uint32_t> numbers;
        for (; cursor; ++cursor) {
            EXPECT_EQ(numberOf(cursor.value()), cursor.key().number);
            numbers.push_back(cursor.key().number);
        }
        return numbers;
    }
    std::vector<uint32_t> order() const { return rest(table.first()); }

    /// Walks, calling `meanwhile` with each number, and expects to meet every number of [0, few)
    /// once, except for those that `meanwhile` removed.
    template <class Meanwhile>
    std::vector<uint32_t> walk(Meanwhile meanwhile) {
        std::vector<uint32_t> met;
        for (auto cursor = table.first(); cursor; ++cursor) {
            met.push_back(cursor.key().number);
            meanwhile(cursor.key().number);
        }
        std::set<uint32_t> once(met.begin(), met.end());
        EXPECT_EQ(once.size(), met.size()) << "an entry was met twice";
        for (uint32_t number = 0; number < few; ++number) {
            EXPECT_TRUE(once.contains(number) || !table.find(Key{number}))
                << number << " was missed";
        }
        return met;
    }

    Table table;
};

TYPED_TEST_SUITE(TableTest, TableKinds, TableKindNames);

TYPED_TEST(TableTest, IsEmptyAtFirst) {
    EXPECT_EQ(this->table.size(), 0u);
    EXPECT_EQ(this->table.find({1}), nullptr);
    EXPECT_EQ(this->table.erase({1}), std::nullopt);
    EXPECT_FALSE(this->table.first());
    EXPECT_FALSE(this->table.atOrAfter({1}));
}

TYPED_TEST(TableTest, FindsWhatWasInserted) {
    this->insertRange(0, 1000);
    EXPECT_EQ(this->table.size(), 1000u);
    for (uint32_t number = 0; number < 1000; ++number) {
        auto* value = this->table.find({number});
        ASSERT_NE(value, nullptr) << number;
        EXPECT_EQ(numberOf(*value), number);
    }
    EXPECT_EQ(this->table.find({1000}), nullptr);
}

TYPED_TEST(TableTest, WhatIsAskedForAheadIsFoundAsWithoutThat) {
    using K = typename decltype(this->table)::Key;
    if constexpr (requires(K key) { this->table.fetchSlot(key); }) {
        this->table.fetchNode(this->table.fetchSlot(K{1}));
        this->insertRange(0, 1000);
        for (uint32_t number = 0; number < 1010; ++number) {
            this->table.fetchNode(this->table.fetchSlot(K{number}));
            EXPECT_EQ(this->table.find(K{number}) != nullptr, number < 1000);
        }
        auto fetched = this->table.fetchSlot(K{1});
        this->eraseRange(0, 1000); // anything may happen in between
        this->table.fetchNode(fetched);
    }
    EXPECT_EQ(this->table.size(), 0u);
}

TYPED_TEST(TableTest, InsertsAKeyOnce) {
    EXPECT_TRUE(insert(this->table, 1));
    auto* first = this->table.find({1});
    EXPECT_FALSE(insert(this->table, 1));
    EXPECT_EQ(this->table.size(), 1u);
    EXPECT_EQ(this->table.find({1}), first);
}

TYPED_TEST(TableTest, AnEntryStaysInItsPlaceInMemory) {
    insert(this->table, 0);
    auto* value = this->table.find({0});
    this->insertRange(1, 1000);
    EXPECT_EQ(this->table.find({0}), value);
    this->eraseRange(1, 1000);
    EXPECT_EQ(this->table.find({0}), value);
}

TYPED_TEST(TableTest, ErasesOneAndKeepsTheOthers) {
    this->insertRange(0, 100);
    for (uint32_t number = 0; number < 100; number += 2) {
        auto gone = this->table.erase({number});
        ASSERT_TRUE(gone);
        EXPECT_EQ(numberOf(*gone), number);
        EXPECT_FALSE(this->table.erase({number}));
    }
    EXPECT_EQ(this->table.size(), 50u);
    for (uint32_t number = 0; number < 100; ++number) {
        EXPECT_EQ(this->table.find({number}) != nullptr, number % 2 == 1) << number;
    }
}

TYPED_TEST(TableTest, CanBeEmptiedAndFilledAgain) {
    for (int round = 0; round < 3; ++round) {
        this->insertRange(0, 1000);
        EXPECT_EQ(this->order().size(), 1000u);
        this->eraseRange(0, 1000);
        EXPECT_EQ(this->table.size(), 0u);
        EXPECT_FALSE(this->table.first());
        EXPECT_FALSE(this->table.atOrAfter({5}));
        EXPECT_FALSE(this->table.erase({5}));
        EXPECT_EQ(this->table.find({5}), nullptr);
    }
}

TYPED_TEST(TableTest, AWalkMeetsEveryEntryOnceInThePromisedOrder) {
    // Around the sizes at which the slots of a hash table are laid out anew.
    for (uint32_t size :
         {1u, 2u, 3u, 7u, 8u, 9u, 16u, 17u, 511u, 512u, 513u, 1023u, 1025u, 1536u}) {
        this->insertRange(static_cast<uint32_t>(this->table.size()), size);
        auto numbers = this->order();
        EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end(), [](uint32_t a, uint32_t b) {
            return TableOrder<TypeParam>()({a}, {b});
        })) << size;
        std::sort(numbers.begin(), numbers.end());
        ASSERT_EQ(numbers.size(), size);
        EXPECT_EQ(numbers.front(), 0u);
        EXPECT_EQ(numbers.back(), size - 1);
        EXPECT_EQ(std::adjacent_find(numbers.begin(), numbers.end()), numbers.end());
    }
}

TYPED_TEST(TableTest, GrowthAndShrinkKeepTheOrderOfWhatStays) {
    this->insertRange(0, this->few);
    auto before = this->order();
    this->insertRange(this->few, 100 * this->few);
    auto grown = this->order();
    std::erase_if(grown, [&](uint32_t number) { return number >= this->few; });
    EXPECT_EQ(grown, before);
    this->eraseRange(this->few, 100 * this->few);
    EXPECT_EQ(this->order(), before);
}

TYPED_TEST(TableTest, ResumesAtAnyKeyThere) {
    this->insertRange(0, 200);
    auto order = this->order();
    for (size_t i = 0; i < order.size(); ++i) {
        EXPECT_EQ(this->rest(this->table.atOrAfter({order[i]})),
                  std::vector(order.begin() + static_cast<ptrdiff_t>(i), order.end()));
    }
}

TYPED_TEST(TableTest, ResumesBehindARemovedKey) {
    this->insertRange(0, 200);
    auto order = this->order();
    for (size_t i = 0; i < order.size(); ++i) {
        this->eraseRange(order[i], order[i] + 1);
        EXPECT_EQ(this->rest(this->table.atOrAfter({order[i]})),
                  std::vector(order.begin() + static_cast<ptrdiff_t>(i) + 1, order.end()));
    }
    EXPECT_EQ(this->table.size(), 0u);
}

TYPED_TEST(TableTest, ResumesAfterGrowthAndMeetsWhatStays) {
    this->insertRange(0, this->few);
    auto order = this->order();
    for (size_t i = 0; i < order.size(); ++i) {
        for (bool bookmarkRemoved : {false, true}) {
            if (bookmarkRemoved) {
                this->eraseRange(order[i], order[i] + 1);
            }
            this->insertRange(this->few, 100 * this->few);
            auto rest = this->rest(this->table.atOrAfter({order[i]}));
            std::erase_if(rest, [&](uint32_t number) { return number >= this->few; });
            auto from = order.begin() + static_cast<ptrdiff_t>(i) + bookmarkRemoved;
            EXPECT_EQ(rest, std::vector(from, order.end()));
            this->eraseRange(this->few, 100 * this->few);
        }
        insert(this->table, order[i]);
    }
}

TYPED_TEST(TableTest, ResumesAfterShrinkAndMeetsWhatStays) {
    for (size_t i = 0; i < 10; ++i) {
        this->insertRange(0, 100 * this->few);
        auto order = this->order();
        size_t at = i * order.size() / 10;
        uint32_t bookmark = order[at];
        std::vector<uint32_t> expected(order.begin() + static_cast<ptrdiff_t>(at), order.end());
        std::erase_if(expected, [&](uint32_t number) { return number >= this->few; });
        this->eraseRange(this->few, 100 * this->few);
        EXPECT_EQ(this->rest(this->table.atOrAfter({bookmark})), expected);
        this->eraseRange(0, this->few);
        EXPECT_FALSE(this->table.atOrAfter({bookmark}));
    }
}

TYPED_TEST(TableTest, TheCurrentEntryMayGoWhileStepping) {
    this->insertRange(0, this->few);
    auto order = this->order();
    EXPECT_EQ(this->walk([this](uint32_t number) { this->table.erase({number}); }), order);
    EXPECT_EQ(this->table.size(), 0u);
}

TYPED_TEST(TableTest, TheNextEntryMayGoWhileStepping) {
    this->insertRange(0, this->few);
    auto order = this->order();
    auto met = this->walk([&](uint32_t number) {
        auto next = std::find(order.begin(), order.end(), number) + 1;
        this->table.erase({*next});
    });
    std::vector<uint32_t> expected;
    for (size_t i = 0; i < order.size(); i += 2) {
        expected.push_back(order[i]);
    }
    EXPECT_EQ(met, expected);
}

TYPED_TEST(TableTest, CurrentAndNextMayGoWhileStepping) {
    this->insertRange(0, this->few);
    auto order = this->order();
    auto met = this->walk([&](uint32_t number) {
        auto current = std::find(order.begin(), order.end(), number);
        this->table.erase({*current});
        this->table.erase({*(current + 1)});
    });
    EXPECT_EQ(met.size(), this->few / 2);
    EXPECT_EQ(this->table.size(), 0u);
}

TYPED_TEST(TableTest, AllEntriesMayGoWhileStepping) {
    this->insertRange(0, this->few);
    auto order = this->order();
    auto met = this->walk([&](uint32_t number) {
        if (number == order[5]) {
            this->eraseRange(0, this->few);
        }
    });
    EXPECT_EQ(met, std::vector(order.begin(), order.begin() + 6));
}

TYPED_TEST(TableTest, TheCurrentEntryMayGoAndComeBackWhileStepping) {
    this->insertRange(0, this->few);
    auto order = this->order();
    EXPECT_EQ(this->walk([this](uint32_t number) {
        this->table.erase({number});
        insert(this->table, number);
    }),
              order);
}

TYPED_TEST(TableTest, AllEntriesMayBeReplacedWhileStepping) {
    this->insertRange(0, this->few);
    auto order = this->order();
    EXPECT_EQ(this->walk([this](uint32_t) {
        this->eraseRange(0, this->few);
        this->insertRange(0, this->few);
    }),
              order);
}

TYPED_TEST(TableTest, ACursorKeepsItsKeyWhenTheEntryGoes) {
    this->insertRange(0, this->few);
    auto cursor = this->table.first();
    auto key = cursor.key();
    this->eraseRange(0, this->few);
    EXPECT_EQ(cursor.key(), key);
    ++cursor;
    EXPECT_FALSE(cursor);
}

TYPED_TEST(TableTest, TheTableMayGrowWhileStepping) {
    for (uint32_t when = 0; when < this->few; ++when) {
        this->insertRange(0, this->few);
        auto order = this->order();
        auto met = this->walk([&](uint32_t number) {
            if (number == order[when]) {
                this->insertRange(this->few, 100 * this->few);
            }
        });
        // Of the new ones, those ahead are met.
        EXPECT_EQ(std::vector(met.begin() + when, met.end()),
                  this->rest(this->table.atOrAfter({order[when]})));
        this->eraseRange(0, 100 * this->few);
    }
}

TYPED_TEST(TableTest, TheTableMayGrowABitWithEachStep) {
    this->insertRange(0, this->few);
    uint32_t added = this->few;
    this->walk([&](uint32_t number) {
        if (number < this->few) {
            this->insertRange(added, added + 100);
            added += 100;
        }
    });
    EXPECT_EQ(this->table.size(), 101 * this->few);
}

TYPED_TEST(TableTest, TheTableMayShrinkWhileStepping) {
    for (uint32_t when = 0; when < 10; ++when) {
        this->insertRange(0, 100 * this->few);
        uint32_t steps = 0;
        this->walk([&](uint32_t) {
            if (++steps == when * 150 + 1) {
                this->eraseRange(this->few, 100 * this->few);
            }
        });
        this->eraseRange(0, this->few);
    }
}

TYPED_TEST(TableTest, TheTableMayShrinkABitWithEachStep) {
    this->insertRange(0, 100 * this->few);
    uint32_t last = 100 * this->few;
    uint32_t steps = 0;
    this->walk([&](uint32_t) {
        if (++steps; last > this->few) {
            last -= 10;
            this->eraseRange(last, last + 10);
        }
    });
    EXPECT_LT(steps, 20 * this->few);
    EXPECT_LT(this->table.size(), 20 * this->few);
}

TYPED_TEST(TableTest, SeveralCursorsStepIndependently) {
    this->insertRange(0, this->few);
    auto order = this->order();
    auto slow = this->table.first();
    auto met = this->walk([&](uint32_t number) {
        if (number == order[10]) {
            this->table.erase({order[0]});
            ++slow;
        }
    });
    EXPECT_EQ(met, order);
    EXPECT_EQ(slow.key().number, order[1]);
}

/// Tells which seed it was hashed with.
struct SeedKey {
    static inline std::set<uint64_t> seeds;
    uint32_t number = 0;

    uint64_t hash(uint64_t seed) const {
        seeds.insert(seed);
        return SpreadKey{number}.hash(seed);
    }
    friend auto operator<=>(SeedKey, SeedKey) = default;
};

TEST(HashTableTest, HashesWithTheSeedOfTheProcess) {
    HashTable<PairLayout<SeedKey, uint32_t>> table;
    insert(table, 1);
    EXPECT_TRUE(table.find({1}));
    EXPECT_TRUE(table.atOrAfter({1}));
    EXPECT_TRUE(table.erase({1}));
    EXPECT_EQ(SeedKey::seeds, std::set{processHashSeed()});
}

} // namespace
} // namespace Vela
