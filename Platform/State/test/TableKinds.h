#pragma once

#include "Platform/State/HashTable.h"
#include "Platform/State/OrderedTable.h"
#include "Platform/State/test/TableKeys.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

namespace Vela {

/// An entity that carries its key.
template <class K>
class KeyedEntity : public Entity {
  public:
    explicit KeyedEntity(uint32_t number) : key_{number} {}
    const char* typeName() const noexcept override { return "KeyedEntity"; }
    const K& key() const { return key_; }

  private:
    K key_;
};

template <class K>
using EntityTable = HashTable<EntityLayout<KeyedEntity<K>, &KeyedEntity<K>::key>>;

/// The tables that tests run over, with keys of the three sorts.
using TableKinds = ::testing::Types<
    HashTable<PairLayout<SpreadKey, uint32_t>>, HashTable<PairLayout<FewHashesKey, uint32_t>>,
    HashTable<PairLayout<OneHashKey, uint32_t>>, EntityTable<SpreadKey>, EntityTable<FewHashesKey>,
    EntityTable<OneHashKey>, OrderedTable<SpreadKey, uint32_t>>;

struct TableKindNames {
    template <class Table>
    static std::string GetName(int i) {
        constexpr const char* names[] = {"Spread",       "FewHashes",       "OneHash",
                                         "EntitySpread", "EntityFewHashes", "EntityOneHash",
                                         "Ordered"};
        return names[i];
    }
};

/// Inserts `number`, as key and as value; returns whether it was new.
template <class Table>
bool insert(Table& table, uint32_t number) {
    return table
        .findOrInsert(typename Table::Key{number},
                      [&]() -> typename Table::Value {
                          if constexpr (std::is_same_v<typename Table::Value, uint32_t>) {
                              return number;
                          } else {
                              return make<KeyedEntity<typename Table::Key>>(number);
                          }
                      })
        .second;
}

inline uint32_t numberOf(uint32_t value) {
    return value;
}

template <class K>
uint32_t numberOf(const Ptr<KeyedEntity<K>>& value) {
    return value->key().number;
}

/// The order that a table promises.
template <class Table>
struct TableOrder {
    using Key = typename Table::Key;

    bool operator()(const Key& a, const Key& b) const {
        if constexpr (requires { typename Table::Node; }) {
            uint64_t hashA = a.hash(0);
            uint64_t hashB = b.hash(0);
            for (int bit = 0; bit < 32; ++bit) {
                if ((hashA ^ hashB) >> bit & 1) {
                    return hashB >> bit & 1;
                }
            }
        }
        return a < b;
    }
};

} // namespace Vela
