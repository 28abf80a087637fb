#pragma once

#include "Platform/State/Collection.h"
#include "Platform/State/test/StateFixture.h"
#include "Platform/State/test/TableKeys.h"

#include <array>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

namespace Vela {

/// An entity that carries its key.
class Item : public Thing {
  public:
    explicit Item(uint32_t number) : key_{number} {}
    const SpreadKey& key() const { return key_; }

  private:
    SpreadKey key_;
};

/// The three kinds of collections, each of items.
template <class Items>
class CollectionFixture : public StateFixture {
  protected:
    CollectionFixture() {
        recorder = collection->react(nullptr, [this](const SpreadKey& key) {
            if (recording) {
                announced.push_back(key.number);
            }
        });
    }

    static SpreadKey key(uint32_t number) { return SpreadKey{number}; }

    void add(std::initializer_list<uint32_t> numbers) {
        recording = false;
        for (uint32_t number : numbers) {
            collection->set(key(number), make<Item>(number));
        }
        recording = true;
    }

    std::vector<uint32_t> numbers() const {
        std::vector<uint32_t> all;
        for (auto cursor = collection->first(); cursor; ++cursor) {
            EXPECT_EQ(cursor.key(), cursor.value()->key());
            all.push_back(cursor.key().number);
        }
        EXPECT_EQ(all.size(), collection->count());
        return all;
    }

    bool recording = true;
    std::unique_ptr<Items> collection = std::make_unique<Items>();
    std::vector<uint32_t> announced;
    Reaction recorder;
};

using ItemCollections = ::testing::Types<Map<SpreadKey, Ptr<Item>>, HashMap<SpreadKey, Ptr<Item>>,
                                         EntityMap<Item, &Item::key>>;

struct CollectionNames {
    template <class Items>
    static std::string GetName(int i) {
        return std::array{"Map", "HashMap", "EntityMap"}[static_cast<size_t>(i)];
    }
};

} // namespace Vela
