#pragma once

#include "Platform/Base/Hash.h"
#include "Platform/Quarry/TableCollection.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

/// A writer that changes a table without a pause, and readers that know what must hold meanwhile:
/// - keys below `staying` are always there, and their versions never go back;
/// - keys from `absent` on are never there;
/// - the words of a record belong together;
/// - a walk meets every key that stays, and each key once.
namespace Storm {

struct Key {
    uint64_t number = 0;
    uint64_t hash(uint64_t seed) const {
        Vela::IncrementalHash hash(seed);
        hash.mix(number);
        return hash.result();
    }
};

constexpr uint64_t staying = 100;
constexpr uint64_t busy = 3;      // of these, change all the time
constexpr uint64_t coming = 1000; // these come and go, many at a time
constexpr uint64_t fickle = 20;   // and these, from `absent` down, each on its own
constexpr uint64_t absent = 1'000'000;

struct Record {
    using Key = Storm::Key;
    static constexpr const char* recordType = "Storm::Record";

    Key key;
    uint64_t version = 0;
    std::array<uint64_t, 30> derived{}; // many, so that copying them takes its time

    static Record of(uint64_t number, uint64_t version) {
        Record record{{number}, version, {}};
        for (uint64_t i = 0; i < record.derived.size(); ++i) {
            record.derived[i] = number * 1'000'003 + version * (i + 7);
        }
        return record;
    }
    bool sound() const { return derived == of(key.number, version).derived; }
};
static_assert(sizeof(Record) == 256);

class Writer {
  public:
    explicit Writer(const std::string& file, uint32_t capacity = 4096, bool allocateAll = false)
        : mapping_(Quarry::TableMapping::create(
              file, {Record::recordType, sizeof(Key), sizeof(Record), capacity, allocateAll})),
          writer_(mapping_) {
        for (uint64_t number = 0; number < staying; ++number) {
            set(number);
        }
        writer_.completeIs(true);
    }

    const Quarry::TableMapping& mapping() const { return mapping_; }
    void closedIs() { writer_.closedIs(); }

    Quarry::Written set(uint64_t number) {
        Record record = Record::of(number, ++version_);
        return writer_.set(hashOf(number), Quarry::Words<Record>::from(record).data());
    }
    bool del(uint64_t number) { return writer_.del(hashOf(number), &number); }

    /// Some hundred changes: what comes grows, by turns, to a few and to many, and goes again;
    /// what stays is changed beside it. The fickle keys have the records that are removed used
    /// again at once, at other places of the list.
    void blow() {
        const uint64_t most = random_() % 4 == 0 ? 2000 : 16;
        if (growing_) {
            for (uint64_t i = 0; i < 200 && there_ < most; ++i, ++there_) {
                set(coming + there_);
                change();
            }
        } else {
            for (uint64_t i = 0; i < 200 && there_ > 0; ++i) {
                del(coming + --there_);
                change();
            }
        }
        for (int i = 0; i < 200; ++i) {
            const uint64_t number = absent - 1 - random_() % fickle;
            if (!del(number)) {
                set(number);
            }
        }
        growing_ = there_ == 0 || (growing_ && there_ < most);
    }

  private:
    uint32_t hashOf(uint64_t number) const {
        return static_cast<uint32_t>(Key{number}.hash(mapping_.header().hashSeed));
    }
    void change() {
        if (random_() % 4 == 0) {
            set(random_() % staying);
        }
        set(random_() % busy);
    }

    const Quarry::TableMapping mapping_;
    Quarry::TableWriter writer_;
    std::mt19937_64 random_{1};
    uint64_t version_ = 0;
    uint64_t there_ = 0;
    bool growing_ = true;
};

/// Checks what `Reading`, a table or something attached to one, says.
template <class Reading>
class Reader {
  public:
    Reader(const Reading& reading, uint64_t seed) : reading_(reading), random_(seed) {}

    /// The first thing that was wrong; empty if nothing was.
    const std::string& fault() const { return fault_; }
    uint64_t lookups() const { return lookups_; }
    uint64_t walks() const { return walks_; }

    void round() {
        for (int i = 0; i < 50; ++i) {
            look(random_() % staying);
            look(random_() % busy);
            look(coming + random_() % 20);
            look(absent - 1 - random_() % fickle);
            look(absent + random_() % 1000);
        }
        walk();
    }

    void look(uint64_t number) {
        ++lookups_;
        auto found = reading_.find({number});
        if (found) {
            check(*found);
            expect(found->key.number == number, "another key than asked for", number);
            expect(number < absent, "a key that never was", number);
        } else {
            expect(number >= staying, "missed what stays", number);
        }
    }

    void walk() {
        ++walks_;
        std::vector<uint64_t> met;
        for (auto cursor = reading_.first(); cursor; ++cursor) {
            check(cursor.value());
            expect(cursor.key().number < absent, "met a key that never was", cursor.key().number);
            met.push_back(cursor.key().number);
        }
        std::sort(met.begin(), met.end());
        expect(std::adjacent_find(met.begin(), met.end()) == met.end(), "met a key twice", 0);
        for (uint64_t number = 0; number < staying; ++number) {
            expect(number < met.size() && met[number] == number, "did not meet", number);
        }
    }

  private:
    void check(const Record& record) {
        const uint64_t number = record.key.number;
        expect(record.sound(), "a torn record", number);
        if (number < staying) {
            expect(record.version >= versions_[number], "an older version", number);
            versions_[number] = record.version;
        }
    }
    void expect(bool holds, const char* what, uint64_t number) {
        if (!holds && fault_.empty()) {
            fault_ = std::string(what) + ": key " + std::to_string(number) + " in lookup " +
                     std::to_string(lookups_) + ", walk " + std::to_string(walks_);
        }
    }

    const Reading& reading_;
    std::mt19937_64 random_;
    std::array<uint64_t, staying> versions_{};
    uint64_t lookups_ = 0;
    uint64_t walks_ = 0;
    std::string fault_;
};

} // namespace Storm
