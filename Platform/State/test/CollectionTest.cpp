#include "Platform/Base/Errors.h"
#include "Platform/State/test/CollectionFixture.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace Vela {
namespace {

template <class Items>
class CollectionTest : public CollectionFixture<Items> {};

TYPED_TEST_SUITE(CollectionTest, ItemCollections, CollectionNames);

TYPED_TEST(CollectionTest, IsEmptyAtFirst) {
    auto& items = *this->collection;
    EXPECT_EQ(items.count(), 0u);
    EXPECT_FALSE(items.has(this->key(1)));
    EXPECT_EQ(items.find(this->key(1)), nullptr);
    EXPECT_EQ(items.value(this->key(1)), nullptr);
    EXPECT_FALSE(items.first());
    EXPECT_FALSE(items.atOrAfter(this->key(1)));
    EXPECT_EQ(items.del(this->key(1)), std::nullopt);
    items.delAll();
    EXPECT_TRUE(this->announced.empty());
}

TYPED_TEST(CollectionTest, SetAddsAndAnnounces) {
    auto& items = *this->collection;
    auto item = make<Item>(1);
    EXPECT_TRUE(items.set(this->key(1), item));
    EXPECT_EQ(this->announced, (std::vector<uint32_t>{1}));
    EXPECT_TRUE(items.has(this->key(1)));
    EXPECT_FALSE(items.has(this->key(2)));
    ASSERT_NE(items.find(this->key(1)), nullptr);
    EXPECT_EQ(*items.find(this->key(1)), item);
    EXPECT_EQ(items.value(this->key(1)), item);
    EXPECT_EQ(items.count(), 1u);
}

TYPED_TEST(CollectionTest, SetAnnouncesAReplacementOnlyIfItDiffers) {
    auto& items = *this->collection;
    auto first = make<Item>(1);
    auto second = make<Item>(1);
    items.set(this->key(1), first);
    EXPECT_FALSE(items.set(this->key(1), first));
    EXPECT_EQ(this->announced, (std::vector<uint32_t>{1}));
    EXPECT_TRUE(items.set(this->key(1), second));
    EXPECT_EQ(this->announced, (std::vector<uint32_t>{1, 1}));
    EXPECT_EQ(items.value(this->key(1)), second);
    EXPECT_EQ(items.count(), 1u);
    EXPECT_FALSE(first->destroyed()); // that is the owner's business
}

TYPED_TEST(CollectionTest, AReactionSeesWhatWasSetAndNotWhatWasReplaced) {
    auto& items = *this->collection;
    std::vector<Ptr<Item>> seen;
    Reaction reaction =
        items.react(nullptr, [&](const SpreadKey& key) { seen.push_back(items.value(key)); });
    auto first = make<Item>(1);
    auto second = make<Item>(1);
    items.set(this->key(1), first);
    items.set(this->key(1), second);
    items.del(this->key(1));
    EXPECT_EQ(seen, (std::vector<Ptr<Item>>{first, second, nullptr}));
}

TYPED_TEST(CollectionTest, WhatASetReplacesLastsUntilTheAnnouncementIsOver) {
    auto& items = *this->collection;
    this->add({1});
    std::string order;
    (*items.find(this->key(1)))->whenDestroyed = [&] { order += "old ends;"; };
    Reaction reaction = items.react(nullptr, [&](const SpreadKey&) { order += "announced;"; });
    // The key stands in the item that goes.
    items.set((*items.find(this->key(1)))->key(), make<Item>(1));
    EXPECT_EQ(order, "announced;old ends;");
    EXPECT_EQ(this->announced, (std::vector<uint32_t>{1}));
}

TYPED_TEST(CollectionTest, FindOrAddAddsOnceAndAnnouncesOnce) {
    auto& items = *this->collection;
    int made = 0;
    auto makeItem = [&] {
        ++made;
        return make<Item>(1);
    };
    auto item = items.findOrAdd(this->key(1), makeItem);
    EXPECT_EQ(items.value(this->key(1)), item);
    EXPECT_EQ(items.findOrAdd(this->key(1), makeItem), item);
    EXPECT_EQ(made, 1);
    EXPECT_EQ(this->announced, (std::vector<uint32_t>{1}));
}

TYPED_TEST(CollectionTest, FindOrAddReturnsWhatItAddedThoughAReactionRemovedIt) {
    auto& items = *this->collection;
    Reaction remover = items.react(nullptr, [&](const SpreadKey& key) {
        if (items.has(key)) {
            items.del(key);
        }
    });
    auto item = items.findOrAdd(this->key(1), [] { return make<Item>(1); });
    ASSERT_TRUE(item);
    EXPECT_EQ(item->key(), this->key(1));
    EXPECT_EQ(items.count(), 0u);
    EXPECT_EQ(this->announced, (std::vector<uint32_t>{1, 1}));
}

TYPED_TEST(CollectionTest, WhatMakesAnItemMayChangeTheCollection) {
    auto& items = *this->collection;
    this->add({1, 3, 5, 7, 9});
    items.findOrAdd(this->key(4), [&] {
        for (uint32_t number : {3, 5, 7}) {
            items.del(this->key(number));
        }
        for (uint32_t number = 100; number < 200; ++number) {
            items.set(this->key(number), make<Item>(number));
        }
        return make<Item>(4);
    });
    EXPECT_TRUE(items.has(this->key(4)));
    EXPECT_EQ(this->numbers().size(), 103u);
    EXPECT_EQ(this->announced.back(), 4u);
}

TYPED_TEST(CollectionTest, WhenMakingAnItemFailsNothingIsAdded) {
    auto& items = *this->collection;
    this->add({1});
    EXPECT_THROW(
        items.findOrAdd(this->key(2), []() -> Ptr<Item> { throw std::invalid_argument("no"); }),
        std::invalid_argument);
    EXPECT_EQ(this->numbers(), (std::vector<uint32_t>{1}));
    EXPECT_TRUE(this->announced.empty());
}

TYPED_TEST(CollectionTest, DelReturnsWhatItRemovedAndAnnounces) {
    auto& items = *this->collection;
    auto item = make<Item>(1);
    items.set(this->key(1), item);
    this->announced.clear();
    bool there = true;
    Reaction reaction = items.react(nullptr, [&](const SpreadKey& key) { there = items.has(key); });
    auto gone = items.del(this->key(1));
    ASSERT_TRUE(gone);
    EXPECT_EQ(*gone, item);
    EXPECT_FALSE(there);
    EXPECT_FALSE(item->destroyed()); // that is the owner's business
    EXPECT_EQ(this->announced, (std::vector<uint32_t>{1}));
    EXPECT_EQ(items.del(this->key(1)), std::nullopt);
    EXPECT_EQ(this->announced, (std::vector<uint32_t>{1}));
}

TYPED_TEST(CollectionTest, DelTakesAKeyThatStandsInTheItemThatGoes) {
    auto& items = *this->collection;
    this->add({1, 2});
    items.del((*items.find(this->key(1)))->key());
    EXPECT_EQ(this->announced, (std::vector<uint32_t>{1}));
    EXPECT_EQ(this->numbers(), (std::vector<uint32_t>{2}));
}

TYPED_TEST(CollectionTest, TheAnnouncedKeyOutlastsAnItemThatAReactionRemoves) {
    auto& items = *this->collection;
    this->recorder.clear();
    std::vector<uint32_t> seen;
    Reaction remover = items.react(nullptr, [&](const SpreadKey& key) {
        items.del(key); // frees the item that the key was copied from
        seen.push_back(key.number);
    });
    Reaction later =
        items.react(nullptr, [&](const SpreadKey& key) { seen.push_back(key.number); });
    auto item = make<Item>(1);
    const SpreadKey& inItem = item->key();
    items.set(inItem, std::move(item));
    EXPECT_EQ(items.count(), 0u);
    EXPECT_EQ(seen, (std::vector<uint32_t>{1, 1, 1, 1}));
}

TYPED_TEST(CollectionTest, AReactionMayPutTheRemovedItemBack) {
    auto& items = *this->collection;
    this->add({1});
    Reaction reaction = items.react(nullptr, [&](const SpreadKey& key) {
        if (!items.has(key)) {
            items.set(key, make<Item>(key.number));
        }
    });
    EXPECT_TRUE(items.del(this->key(1)));
    EXPECT_TRUE(items.has(this->key(1)));
    EXPECT_EQ(this->announced, (std::vector<uint32_t>{1, 1}));
}

TYPED_TEST(CollectionTest, DelAllRemovesInOrderAndAnnouncesEach) {
    auto& items = *this->collection;
    this->add({1, 2, 3, 4, 5});
    auto order = this->numbers();
    Reaction reaction =
        items.react(nullptr, [&](const SpreadKey& key) { EXPECT_FALSE(items.has(key)); });
    items.delAll();
    EXPECT_EQ(this->announced, order);
    EXPECT_EQ(items.count(), 0u);
}

TYPED_TEST(CollectionTest, DelAllReleasesEachValueAfterItsAnnouncement) {
    auto& items = *this->collection;
    this->add({1, 2, 3});
    auto order = this->numbers();
    std::vector<uint32_t> released;
    items.delAll([&](const Ptr<Item>& item) {
        EXPECT_EQ(this->announced.back(), item->key().number);
        EXPECT_FALSE(item->destroyed());
        released.push_back(item->key().number);
        item->destroy();
    });
    EXPECT_EQ(released, order);
    EXPECT_EQ(this->announced, order);
}

TYPED_TEST(CollectionTest, DelAllReleasesOnceWhatAReactionRemovesMeanwhile) {
    auto& items = *this->collection;
    this->add({1, 2, 3, 4});
    auto order = this->numbers();
    Reaction reaction = items.react(nullptr, [&](const SpreadKey& key) {
        if (key.number == order[0]) {
            items.del(this->key(order[1])); // the next one
            items.del(this->key(order[3]));
        }
    });
    std::vector<uint32_t> released;
    items.delAll([&](const Ptr<Item>& item) { released.push_back(item->key().number); });
    EXPECT_EQ(released, (std::vector<uint32_t>{order[0], order[2]}));
    auto sorted = this->announced;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, (std::vector<uint32_t>{1, 2, 3, 4}));
    EXPECT_EQ(items.count(), 0u);
}

TYPED_TEST(CollectionTest, DelAllWithinDelAllLeavesNothing) {
    auto& items = *this->collection;
    this->add({1, 2, 3, 4});
    Reaction reaction = items.react(nullptr, [&](const SpreadKey&) { items.delAll(); });
    items.delAll();
    EXPECT_EQ(items.count(), 0u);
    EXPECT_EQ(this->announced.size(), 4u);
}

TYPED_TEST(CollectionTest, WhatIsAddedBackDuringDelAllBehindItsPlaceStays) {
    auto& items = *this->collection;
    this->add({1, 2, 3, 4, 5});
    auto order = this->numbers();
    Reaction reaction = items.react(nullptr, [&](const SpreadKey& key) {
        if (key.number == order[2] && !items.has(key)) {
            items.set(key, make<Item>(key.number));               // the one just removed
            items.set(this->key(order[0]), make<Item>(order[0])); // one removed before
        }
    });
    items.delAll();
    EXPECT_EQ(this->numbers(), (std::vector<uint32_t>{order[0], order[2]}));
    EXPECT_EQ(this->announced.size(), 7u);
}

TYPED_TEST(CollectionTest, WhatIsAddedDuringDelAllAheadOfItsPlaceGoesAsWell) {
    auto& items = *this->collection;
    this->add({1, 2, 3});
    auto order = this->numbers();
    items.del(this->key(order[2]));
    this->announced.clear();
    Reaction reaction = items.react(nullptr, [&](const SpreadKey& key) {
        if (key.number == order[0]) {
            items.set(this->key(order[2]), make<Item>(order[2]));
        }
    });
    items.delAll();
    EXPECT_EQ(items.count(), 0u);
    EXPECT_EQ(this->announced, (std::vector<uint32_t>{order[0], order[2], order[1], order[2]}));
}

TYPED_TEST(CollectionTest, AReadOnlyViewCanBeObserved) {
    const TypeParam& view = *this->collection;
    size_t seen = 0;
    Reaction reaction = view.react(nullptr, [&](const SpreadKey&) { seen = view.count(); });
    this->add({1});
    EXPECT_EQ(seen, 1u);
}

TYPED_TEST(CollectionTest, AnInactiveOwnerMissesWhatHappensMeanwhile) {
    auto& items = *this->collection;
    auto owner = make<Thing>();
    std::vector<uint32_t> seen;
    owner->reaction =
        items.react(owner.get(), [&](const SpreadKey& key) { seen.push_back(key.number); });
    owner->hasNotificationActiveIs(false);
    items.set(this->key(1), make<Item>(1));
    owner->hasNotificationActiveIs(true);
    items.set(this->key(2), make<Item>(2));
    EXPECT_EQ(seen, (std::vector<uint32_t>{2}));
}

TYPED_TEST(CollectionTest, CursorsStartAtTheBeginningOrAtAKey) {
    auto& items = *this->collection;
    this->add({1, 2, 3, 4, 5});
    auto order = this->numbers();
    auto cursor = items.atOrAfter(this->key(order[3]));
    ASSERT_TRUE(cursor);
    EXPECT_EQ(cursor.key().number, order[3]);
    ++cursor;
    ASSERT_TRUE(cursor);
    EXPECT_EQ(cursor.key().number, order[4]);
    ++cursor;
    EXPECT_FALSE(cursor);
}

class ValueCollectionTest : public StateFixture {};

TEST_F(ValueCollectionTest, AnAbsentValueIsADefaultOne) {
    Map<SpreadKey, int> map;
    HashMap<SpreadKey, std::string> hashMap;
    EXPECT_EQ(map.value(SpreadKey{1}), 0);
    EXPECT_EQ(hashMap.value(SpreadKey{1}), "");
    map.set(SpreadKey{1}, 7);
    hashMap.set(SpreadKey{1}, "seven");
    EXPECT_EQ(map.value(SpreadKey{1}), 7);
    EXPECT_EQ(hashMap.value(SpreadKey{1}), "seven");
}

TEST_F(ValueCollectionTest, EqualValuesAreNotAnnouncedAgain) {
    HashMap<SpreadKey, std::string> texts;
    int announced = 0;
    Reaction reaction = texts.react(nullptr, [&](SpreadKey) { ++announced; });
    EXPECT_TRUE(texts.set(SpreadKey{1}, "a"));
    EXPECT_FALSE(texts.set(SpreadKey{1}, "a"));
    EXPECT_TRUE(texts.set(SpreadKey{1}, "b"));
    EXPECT_EQ(announced, 2);
}

TEST_F(ValueCollectionTest, AMapIsInTheOrderOfItsKeys) {
    Map<std::string, int> map;
    for (const char* name : {"b", "c", "a"}) {
        map.set(name, 1);
    }
    std::string order;
    for (auto cursor = map.first(); cursor; ++cursor) {
        order += cursor.key();
    }
    EXPECT_EQ(order, "abc");
}

TEST_F(ValueCollectionTest, ASetAnnouncesAMemberOnce) {
    Set<int> set;
    std::vector<int> announced;
    Reaction reaction = set.react(nullptr, [&](int member) { announced.push_back(member); });
    EXPECT_TRUE(set.set(1, {}));
    EXPECT_FALSE(set.set(1, {}));
    EXPECT_TRUE(set.has(1));
    EXPECT_TRUE(set.del(1));
    EXPECT_FALSE(set.del(1));
    EXPECT_EQ(announced, (std::vector<int>{1, 1}));
}

TEST_F(ValueCollectionTest, ARangeErrorOfAReactionDoesNotUndoTheChange) {
    HashMap<SpreadKey, int> map;
    Reaction reaction = map.react(nullptr, [](SpreadKey) { throw RangeError("too far"); });
    EXPECT_TRUE(map.set(SpreadKey{1}, 7));
    EXPECT_EQ(map.value(SpreadKey{1}), 7);
    EXPECT_EQ(map.del(SpreadKey{1}), 7);
    EXPECT_EQ(map.count(), 0u);
}

template <class Items>
void addTwiceAtOnce() {
    Items items;
    items.findOrAdd(SpreadKey{1}, [&] {
        items.set(SpreadKey{1}, make<Item>(1));
        return make<Item>(1);
    });
}

TEST(CollectionDeathTest, WhatMakesAnItemMustNotAddItsKey) {
    EXPECT_DEATH((addTwiceAtOnce<Map<SpreadKey, Ptr<Item>>>()), "assertion failed");
    EXPECT_DEATH((addTwiceAtOnce<HashMap<SpreadKey, Ptr<Item>>>()), "assertion failed");
    EXPECT_DEATH((addTwiceAtOnce<EntityMap<Item, &Item::key>>()), "assertion failed");
}

TEST(CollectionDeathTest, AnEntityStandsUnderItsOwnKey) {
    EntityMap<Item, &Item::key> items;
    EXPECT_DEATH(items.set(SpreadKey{1}, make<Item>(2)), "assertion failed");
    EXPECT_DEATH(items.set(SpreadKey{1}, nullptr), "assertion failed");
    items.set(SpreadKey{1}, make<Item>(1));
    EXPECT_DEATH(items.set(SpreadKey{1}, make<Item>(2)), "assertion failed");
    EXPECT_DEATH(items.set(SpreadKey{1}, nullptr), "assertion failed");
}

} // namespace
} // namespace Vela
