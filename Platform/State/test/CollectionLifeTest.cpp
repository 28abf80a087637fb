#include "Platform/State/test/CollectionFixture.h"

namespace Vela {
namespace {

// Collections, and what stands in them, ending while they are in use.
template <class Items>
class CollectionLifeTest : public CollectionFixture<Items> {};

TYPED_TEST_SUITE(CollectionLifeTest, ItemCollections, CollectionNames);

TYPED_TEST(CollectionLifeTest, TheEndOfAReplacedItemMayEndTheCollection) {
    auto& items = *this->collection;
    this->add({1, 2});
    items.value(this->key(1))->whenDestroyed = [&] { this->collection.reset(); };
    EXPECT_TRUE(items.set(this->key(1), make<Item>(1)));
    EXPECT_FALSE(this->collection);
    EXPECT_EQ(this->announced, (std::vector<uint32_t>{1}));
}

TYPED_TEST(CollectionLifeTest, MayBeDestroyedInTheAnnouncementOfASet) {
    auto& items = *this->collection;
    Reaction reaction = items.react(nullptr, [&](const SpreadKey&) { this->collection.reset(); });
    EXPECT_TRUE(items.set(this->key(1), make<Item>(1)));
    EXPECT_EQ(Entity::liveCount(), 0u);
    EXPECT_FALSE(reaction);
}

TYPED_TEST(CollectionLifeTest, MayBeDestroyedInTheAnnouncementOfFindOrAdd) {
    auto& items = *this->collection;
    Reaction reaction = items.react(nullptr, [&](const SpreadKey&) { this->collection.reset(); });
    auto item = items.findOrAdd(this->key(1), [] { return make<Item>(1); });
    ASSERT_TRUE(item);
    EXPECT_EQ(item->key(), this->key(1));
}

TYPED_TEST(CollectionLifeTest, MayBeDestroyedInTheAnnouncementOfADel) {
    auto& items = *this->collection;
    this->add({1, 2, 3});
    Reaction reaction = items.react(nullptr, [&](const SpreadKey&) { this->collection.reset(); });
    auto gone = items.del(this->key(2));
    ASSERT_TRUE(gone);
    EXPECT_EQ((*gone)->key(), this->key(2));
    EXPECT_EQ(Entity::liveCount(), 1u);
}

TYPED_TEST(CollectionLifeTest, MayBeDestroyedInAnAnnouncementOfDelAll) {
    auto& items = *this->collection;
    this->add({1, 2, 3});
    auto order = this->numbers();
    Reaction reaction = items.react(nullptr, [&](const SpreadKey& key) {
        if (key.number == order[1]) {
            this->collection.reset();
        }
    });
    std::vector<uint32_t> released;
    items.delAll([&](const Ptr<Item>& item) { released.push_back(item->key().number); });
    EXPECT_EQ(this->announced, (std::vector<uint32_t>{order[0], order[1]}));
    EXPECT_EQ(released, this->announced);
    EXPECT_EQ(Entity::liveCount(), 0u);
}

TYPED_TEST(CollectionLifeTest, MayBeDestroyedByWhatDelAllReleases) {
    auto& items = *this->collection;
    this->add({1, 2, 3});
    auto order = this->numbers();
    items.delAll([&](const Ptr<Item>& item) {
        item->destroy();
        this->collection.reset();
    });
    EXPECT_EQ(this->announced, (std::vector<uint32_t>{order[0]}));
    EXPECT_EQ(Entity::liveCount(), 0u);
}

TYPED_TEST(CollectionLifeTest, AtItsEndTheLastPtrsOfItsItemsGo) {
    this->add({1, 2, 3});
    auto held = this->collection->value(this->key(2));
    this->collection.reset();
    EXPECT_EQ(Entity::liveCount(), 1u);
    EXPECT_FALSE(held->destroyed());
    EXPECT_TRUE(this->announced.empty());
}

TYPED_TEST(CollectionLifeTest, AnItemThatEndsWithTheCollectionFindsItEmpty) {
    // Many, so that a table which went on shrinking while it ends would do so.
    for (uint32_t number = 0; number < 100; ++number) {
        this->add({number});
    }
    auto& items = *this->collection;
    int ended = 0;
    for (auto cursor = items.first(); cursor; ++cursor) {
        auto number = cursor.key().number;
        cursor.value()->whenDestroyed = [&, number] {
            ++ended;
            EXPECT_EQ(items.count(), 0u);
            EXPECT_FALSE(items.first());
            EXPECT_FALSE(items.del(this->key(number)));
            EXPECT_FALSE(items.has(this->key(99 - number)));
            EXPECT_FALSE(items.del(this->key(99 - number)));
        };
    }
    this->collection.reset();
    EXPECT_EQ(ended, 100);
    EXPECT_EQ(Entity::liveCount(), 0u);
}

} // namespace
} // namespace Vela
