#pragma once

#include "Platform/Base/Assert.h"
#include "Platform/Base/Hash.h"
#include "Platform/State/Entity.h"
#include "Platform/State/TableCursor.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace Vela {

/// Elements of a table that keep their key beside their value.
template <class K, class T>
struct PairLayout {
    using Key = K;
    using Value = T;
    struct Element {
        K key;
        T value;
    };
    static Element element(const K& key, T value) { return {key, std::move(value)}; }
    static const K& key(const Element& element) { return element.key; }
    static T& value(Element& element) { return element.value; }
    static bool fits(const K&, const T&) { return true; }
};

/// Elements of a table that are entities, never null; the key is the entity's own, as `keyOf` gives
/// it, and takes no second copy.
template <class E, auto keyOf>
struct EntityLayout {
    using Key = std::remove_cvref_t<std::invoke_result_t<decltype(keyOf), const E&>>;
    using Value = Ptr<E>;
    using Element = Ptr<E>;
    static Element element(const Key&, Value value) { return value; }
    static const Key& key(const Element& element) { return std::invoke(keyOf, *element); }
    static Value& value(Element& element) { return element; }
    static bool fits(const Key& k, const Value& v) { return v && std::invoke(keyOf, *v) == k; }
};

/// A chained hash table that a walk can leave and resume by key.
///
/// Its order is (hash, key), hashes compared from their lowest bit upwards; bucket i holds the
/// hashes whose low bits are i. Splitting a bucket therefore cuts its chain in two and changes no
/// order, and resuming at a key is a lookup: the first entry not below it, whether or not the key
/// is still there and however much the table has grown or shrunk since.
///
/// The lower half of a key's hash counts: more bits would only lengthen the nodes, of which there
/// may be millions. Where the halves agree the keys decide, as between any two of one hash.
///
/// The table grows and shrinks by one bucket at a time, so no insertion or removal stalls.
/// Elements never move in memory while they are in the table.
///
/// Keys provide `uint64_t hash(uint64_t seed) const`, == and a strict <. Layout says where they
/// stand: beside the value (PairLayout) or inside an entity (EntityLayout).
template <class Layout>
class HashTable {
  public:
    using Key = typename Layout::Key;
    using Value = typename Layout::Value;
    struct Node {
        Node* next;
        uint32_t hash;
        typename Layout::Element element;
    };
    using Position = Node*;
    using Cursor = TableCursor<HashTable>;

    HashTable() = default;
    HashTable(const HashTable&) = delete;
    HashTable& operator=(const HashTable&) = delete;
    /// What ends with the table may still ask it, and finds it empty.
    ~HashTable() {
        auto segments = std::exchange(segments_, {});
        size_t buckets = std::exchange(bucketCount_, 0);
        size_ = 0;
        for (size_t i = 0; i < buckets; ++i) {
            Node* node = segments[i / segmentSlots][i % segmentSlots];
            while (node) {
                delete std::exchange(node, node->next);
            }
        }
    }

    size_t size() const noexcept { return size_; }

    Value* find(const Key& key) const noexcept {
        Node* node = findNode(key, hashOf(key));
        return node ? &Layout::value(node->element) : nullptr;
    }

    /// Asks memory for what a lookup of the key reads first; `fetchNode` with what this returns,
    /// once that is there, for what is read second. Neither is needed for a lookup.
    uint32_t fetchSlot(const Key& key) const noexcept {
        uint32_t hash = hashOf(key);
        if (size_ > 0) {
            __builtin_prefetch(&slot(bucketOf(hash)));
        }
        return hash;
    }
    void fetchNode(uint32_t fetched) const noexcept {
        if (size_ > 0) {
            __builtin_prefetch(slot(bucketOf(fetched)));
        }
    }

    /// The value of `key`, made by `make()` where there is none; and whether it was made. `make`
    /// may use the table but must not insert `key`.
    template <class Make>
    std::pair<Value*, bool> findOrInsert(const Key& key, Make&& make) {
        uint32_t hash = hashOf(key);
        if (Node* node = findNode(key, hash)) {
            return {&Layout::value(node->element), false};
        }
        Value value = make();
        assertThat(Layout::fits(key, value), "Layout::fits(key, value)");
        std::unique_ptr<Node> node(new Node{nullptr, hash, Layout::element(key, std::move(value))});
        if (size_ >= bucketCount_) {
            addBucket();
        }
        Node** link = linkNotBelow(hash, key);
        assertThat(!isAt(*link, hash, key), "!isAt(*link, hash, key)");
        node->next = *link;
        *link = node.get();
        ++size_;
        return {&Layout::value(node.release()->element), true};
    }

    /// Puts `value` into `stored`, which is the value of `key`, and takes the old one out.
    static void replace(const Key& key, Value& stored, Value& value) {
        assertThat(Layout::fits(key, value), "Layout::fits(key, value)");
        std::swap(stored, value);
    }

    /// Removes and returns the value of `key`, which may stand in the element that goes.
    std::optional<Value> erase(const Key& key) noexcept {
        if (size_ == 0) {
            return std::nullopt;
        }
        uint32_t hash = hashOf(key);
        for (Node** link = &slot(bucketOf(hash)); *link; link = &(*link)->next) {
            if (isAt(*link, hash, key)) {
                std::unique_ptr<Node> node(std::exchange(*link, (*link)->next));
                --size_;
                ++removals_;
                for (int i = 0; i < 4 && size_ < bucketCount_ / 4; ++i) {
                    removeBucket();
                }
                return std::optional<Value>(std::move(Layout::value(node->element)));
            }
        }
        return std::nullopt;
    }

    Cursor first() const { return Cursor(*this, firstFrom(0)); }
    Cursor atOrAfter(const Key& key) const { return Cursor(*this, seek(key, false)); }

    // What a cursor asks of a table.
    uint64_t removals() const noexcept { return removals_; }
    Position after(Position node) const noexcept {
        return node->next ? node->next : firstFrom(bucketAfter(bucketOf(node->hash)));
    }
    Position after(const Key& key) const noexcept { return seek(key, true); }
    bool isEnd(Position node) const noexcept { return !node; }
    static const Key& keyAt(Position node) { return Layout::key(node->element); }
    static const Value& valueAt(Position node) { return Layout::value(node->element); }

  private:
    static constexpr size_t segmentSlots = 512;
    static constexpr size_t firstSlots = 8;
    static constexpr size_t noBucket = ~size_t{0};

    uint32_t hashOf(const Key& key) const noexcept {
        return static_cast<uint32_t>(key.hash(seed_));
    }

    static bool isAt(const Node* node, uint32_t hash, const Key& key) {
        return node && node->hash == hash && Layout::key(node->element) == key;
    }

    static bool below(uint32_t hash, const Key& key, uint32_t otherHash, const Key& otherKey) {
        uint32_t differing = hash ^ otherHash;
        return differing ? !(hash & (differing & -differing)) : key < otherKey;
    }

    // The highest power of two that is no more than the number of buckets; 0 for none.
    size_t wholeLevel() const noexcept { return std::bit_floor(bucketCount_); }

    size_t bucketOf(uint32_t hash) const noexcept {
        size_t level = wholeLevel();
        size_t bucket = hash & (2 * level - 1);
        return bucket < bucketCount_ ? bucket : bucket ^ level;
    }

    Node*& slot(size_t bucket) const noexcept {
        return segments_[bucket / segmentSlots][bucket % segmentSlots];
    }

    Node* findNode(const Key& key, uint32_t hash) const noexcept {
        if (size_ == 0) {
            return nullptr;
        }
        for (Node* node = slot(bucketOf(hash)); node; node = node->next) {
            if (isAt(node, hash, key)) {
                return node;
            }
        }
        return nullptr;
    }

    Node** linkNotBelow(uint32_t hash, const Key& key) const noexcept {
        Node** link = &slot(bucketOf(hash));
        while (*link && below((*link)->hash, Layout::key((*link)->element), hash, key)) {
            link = &(*link)->next;
        }
        return link;
    }

    Node* seek(const Key& key, bool beyond) const noexcept {
        if (size_ == 0) {
            return nullptr;
        }
        uint32_t hash = hashOf(key);
        Node* node = *linkNotBelow(hash, key);
        if (beyond && isAt(node, hash, key)) {
            node = node->next;
        }
        return node ? node : firstFrom(bucketAfter(bucketOf(hash)));
    }

    // The bucket that follows in the table's order: counting with the highest bit as the unit.
    size_t bucketAfter(size_t bucket) const noexcept {
        size_t level = wholeLevel();
        bool split = (bucket & (level - 1)) + level < bucketCount_;
        for (size_t bit = split ? level : level / 2; bit; bit /= 2) {
            bucket ^= bit;
            if (bucket & bit) {
                return bucket;
            }
        }
        return noBucket;
    }

    Node* firstFrom(size_t bucket) const noexcept {
        for (; size_ > 0 && bucket != noBucket; bucket = bucketAfter(bucket)) {
            if (Node* node = slot(bucket)) {
                return node;
            }
        }
        return nullptr;
    }

    void addBucket() {
        makeRoom();
        size_t added = bucketCount_;
        slot(added) = nullptr;
        ++bucketCount_;
        if (added == 0) {
            return;
        }
        // In the chain that splits, what belongs into the new bucket stands at the end.
        size_t bit = std::bit_floor(added);
        Node** link = &slot(added ^ bit);
        while (*link && !((*link)->hash & bit)) {
            link = &(*link)->next;
        }
        slot(added) = std::exchange(*link, nullptr);
        // The next insertion splits this one: outside the caches it would have to wait for it.
        __builtin_prefetch(slot((added + 1) ^ std::bit_floor(added + 1)));
    }

    void removeBucket() noexcept {
        size_t removed = bucketCount_ - 1;
        if (removed == 0) {
            return;
        }
        Node** link = &slot(removed ^ std::bit_floor(removed));
        while (*link) {
            link = &(*link)->next;
        }
        *link = slot(removed);
        bucketCount_ = removed;
        if (removed % segmentSlots == 0) {
            segments_.pop_back();
        }
    }

    // The first segment starts small, for the many tables that stay small.
    void makeRoom() {
        size_t used = bucketCount_ % segmentSlots;
        if (used == 0) {
            if (segments_.size() * segmentSlots <= bucketCount_) {
                size_t slots = bucketCount_ == 0 ? firstSlots : segmentSlots;
                segments_.push_back(std::make_unique<Node*[]>(slots));
            }
        } else if (bucketCount_ < segmentSlots && used >= firstSlots && std::has_single_bit(used)) {
            auto larger = std::make_unique<Node*[]>(2 * used);
            std::copy_n(segments_[0].get(), used, larger.get());
            segments_[0] = std::move(larger);
        }
    }

    std::vector<std::unique_ptr<Node*[]>> segments_;
    size_t bucketCount_ = 0;
    size_t size_ = 0;
    uint64_t removals_ = 0;
    uint64_t seed_ = processHashSeed();
};

} // namespace Vela
