#include "Platform/State/Collection.h"
#include "Platform/Value/IntfId.h"
#include "Platform/Value/IpGenAddr.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <ctime>
#include <functional>
#include <limits>
#include <malloc.h>
#include <map>
#include <random>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

using namespace Vela;

// Notifying, against calling as many std::functions.

void notify(benchmark::State& state) {
    Notifier notifier;
    int64_t called = 0;
    std::vector<Reaction> reactions;
    for (int64_t i = 0; i < state.range(0); ++i) {
        reactions.push_back(notifier.react(nullptr, [&called] { ++called; }));
    }
    for (auto _ : state) {
        notifier.notify();
        benchmark::ClobberMemory();
    }
    if (called != state.iterations() * state.range(0)) {
        state.SkipWithError("a reaction was not called");
    }
}
BENCHMARK(notify)->Arg(1)->Arg(10);

class Reactor : public Entity {
  public:
    const char* typeName() const noexcept override { return "Reactor"; }
    std::vector<Reaction> reactions;
};

void notifyOwned(benchmark::State& state) {
    Notifier notifier;
    int64_t called = 0;
    auto reactor = make<Reactor>();
    for (int64_t i = 0; i < state.range(0); ++i) {
        reactor->reactions.push_back(notifier.react(reactor.get(), [&called] { ++called; }));
    }
    for (auto _ : state) {
        notifier.notify();
        benchmark::ClobberMemory();
    }
    if (called != state.iterations() * state.range(0)) {
        state.SkipWithError("a reaction was not called");
    }
}
BENCHMARK(notifyOwned)->Arg(1)->Arg(10);

void callFunctions(benchmark::State& state) {
    int64_t called = 0;
    std::vector<std::function<void()>> functions;
    for (int64_t i = 0; i < state.range(0); ++i) {
        functions.emplace_back([&called] { ++called; });
    }
    for (auto _ : state) {
        for (const auto& function : functions) {
            function();
        }
        benchmark::ClobberMemory();
    }
}
BENCHMARK(callFunctions)->Arg(1)->Arg(10);

// Collections of a million entries under keys of 32 bytes, against the standard ones.

class Vrf : public Entity {
  public:
    const char* typeName() const noexcept override { return "Vrf"; }
};

struct Key {
    Ptr<Vrf> vrf;
    Zinc::IpGenAddr address;
    Zinc::IntfId intfId;

    uint64_t hash(uint64_t seed) const {
        IncrementalHash hash(seed);
        hash.mix(reinterpret_cast<uintptr_t>(vrf.get()));
        hash.mix(address.hash(0));
        hash.mix(intfId.hash(0));
        return hash.result();
    }
    friend bool operator==(const Key&, const Key&) = default;
    friend bool operator<(const Key& a, const Key& b) {
        return std::tie(a.vrf, a.address, a.intfId) < std::tie(b.vrf, b.address, b.intfId);
    }
};
static_assert(sizeof(Key) == 32);

class Entry : public Entity {
  public:
    explicit Entry(const Key& key) : key_(key) {}
    const char* typeName() const noexcept override { return "Entry"; }
    const Key& key() const { return key_; }

  private:
    Key key_;
};

struct StdHash {
    size_t operator()(const Key& key) const { return key.hash(seed); }
    uint64_t seed = processHashSeed();
};

using StdHashMap = std::unordered_map<Key, Ptr<Entry>, StdHash>;
using StdMap = std::map<Key, Ptr<Entry>>;
using VelaMap = HashMap<Key, Ptr<Entry>>;
using VelaEntityMap = EntityMap<Entry, &Entry::key>;

constexpr uint32_t entryCount = 1'000'000;

/// The entities that all collections hold, sequential addresses in two VRFs, in an order that tells
/// nothing; and keys that are in no collection.
struct Entries {
    Entries() {
        Ptr<Vrf> vrfs[] = {make<Vrf>(), make<Vrf>()};
        auto key = [&](uint32_t i) {
            return Key{vrfs[i % 2], Zinc::IpGenAddr((10u << 24) + i), Zinc::IntfId()};
        };
        for (uint32_t i = 0; i < entryCount; ++i) {
            entries.push_back(make<Entry>(key(i)));
            absent.push_back(key(entryCount + i));
        }
        std::mt19937 random(1);
        std::shuffle(entries.begin(), entries.end(), random);
        for (const auto& entry : entries) {
            wanted.push_back(entry->key());
        }
        std::shuffle(wanted.begin(), wanted.end(), random);
    }
    std::vector<Ptr<Entry>> entries;
    std::vector<Key> wanted;
    std::vector<Key> absent;
};

const Entries& all() {
    static const Entries entries;
    return entries;
}

void add(VelaMap& map, const Ptr<Entry>& entry) {
    map.set(entry->key(), entry);
}
void add(VelaEntityMap& map, const Ptr<Entry>& entry) {
    map.set(entry->key(), entry);
}
void add(StdHashMap& map, const Ptr<Entry>& entry) {
    map.emplace(entry->key(), entry);
}
void add(StdMap& map, const Ptr<Entry>& entry) {
    map.emplace(entry->key(), entry);
}

template <class Map>
void fill(Map& map) {
    for (const auto& entry : all().entries) {
        add(map, entry);
    }
}

template <class Table>
const Ptr<Entry>* find(const Collection<Table>& map, const Key& key) {
    return map.find(key);
}
template <class Map>
const Ptr<Entry>* find(const Map& map, const Key& key) {
    auto it = map.find(key);
    return it == map.end() ? nullptr : &it->second;
}

/// Finds the entries in an order of their own; with `read`, reads something of the entity as well,
/// as who looks it up does.
template <class Map, bool read>
void lookup(benchmark::State& state) {
    Map map;
    fill(map);
    const auto& wanted = all().wanted;
    size_t next = 0;
    size_t missed = 0;
    for (auto _ : state) {
        const Ptr<Entry>* found = find(map, wanted[next]);
        if (!found || (read && (*found)->destroyed())) {
            ++missed;
        }
        benchmark::DoNotOptimize(found);
        next = next + 1 == wanted.size() ? 0 : next + 1;
    }
    if (missed) {
        state.SkipWithError("an entry was not found");
    }
}
BENCHMARK(lookup<VelaMap, false>);
BENCHMARK(lookup<VelaEntityMap, false>);
BENCHMARK(lookup<StdHashMap, false>);
BENCHMARK(lookup<StdMap, false>);
BENCHMARK(lookup<VelaMap, true>);
BENCHMARK(lookup<VelaEntityMap, true>);
BENCHMARK(lookup<StdHashMap, true>);
BENCHMARK(lookup<StdMap, true>);

/// What the allocator has handed out, its own overhead included.
size_t allocatedBytes() {
    auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

double threadSeconds() {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

template <class Table>
void remove(Collection<Table>& map, const Key& key) {
    map.del(key);
}
template <class Map>
void remove(Map& map, const Key& key) {
    map.erase(key);
}

/// The longest of many steps, in processor time so that other processes do not count.
class Longest {
  public:
    void step() {
        double now = threadSeconds();
        longest_ = std::max(longest_, now - std::exchange(last_, now));
    }
    double microseconds() const { return longest_ * 1e6; }

  private:
    double last_ = threadSeconds();
    double longest_ = 0;
};

/// Each iteration fills a collection and empties it again. A stall that the collection itself
/// causes comes in each of them, so the least of the longest is what it has to answer for.
template <class Map>
void longestChange(benchmark::State& state) {
    const auto& entries = all().entries;
    double insertion = std::numeric_limits<double>::max();
    double removal = insertion;
    size_t bytes = 0;
    for (auto _ : state) {
        // What was freed before is sorted out by the allocator now, not by the first to ask it.
        malloc_trim(0);
        size_t before = allocatedBytes();
        Map map;
        Longest filling;
        for (const auto& entry : entries) {
            add(map, entry);
            filling.step();
        }
        insertion = std::min(insertion, filling.microseconds());
        bytes = allocatedBytes() - before;
        Longest emptying;
        for (const auto& entry : entries) {
            remove(map, entry->key());
            emptying.step();
        }
        removal = std::min(removal, emptying.microseconds());
    }
    state.counters["insertion_us"] = insertion;
    state.counters["removal_us"] = removal;
    state.counters["bytes_per_entry"] = static_cast<double>(bytes) / entryCount;
}
BENCHMARK(longestChange<VelaMap>)->Iterations(5)->Unit(benchmark::kMillisecond);
BENCHMARK(longestChange<VelaEntityMap>)->Iterations(5)->Unit(benchmark::kMillisecond);
BENCHMARK(longestChange<StdHashMap>)->Iterations(5)->Unit(benchmark::kMillisecond);
BENCHMARK(longestChange<StdMap>)->Iterations(5)->Unit(benchmark::kMillisecond);

template <class Table>
bool resume(const Collection<Table>& map, const Key& bookmark) {
    return static_cast<bool>(map.atOrAfter(bookmark));
}
bool resume(const StdMap& map, const Key& bookmark) {
    return map.lower_bound(bookmark) != map.end();
}

/// Resumes at keys that are there, or at such as have been removed meanwhile.
template <class Map, bool removed>
void resumeAtBookmark(benchmark::State& state) {
    Map map;
    fill(map);
    const auto& bookmarks = removed ? all().absent : all().wanted;
    size_t next = 0;
    size_t ends = 0;
    for (auto _ : state) {
        if (!resume(map, bookmarks[next])) {
            ++ends;
        }
        next = next + 1 == bookmarks.size() ? 0 : next + 1;
    }
    if (!removed && ends) {
        state.SkipWithError("an entry was not found");
    }
}
BENCHMARK(resumeAtBookmark<VelaMap, false>);
BENCHMARK(resumeAtBookmark<VelaEntityMap, false>);
BENCHMARK(resumeAtBookmark<StdMap, false>);
BENCHMARK(resumeAtBookmark<VelaMap, true>);
BENCHMARK(resumeAtBookmark<VelaEntityMap, true>);

} // namespace
