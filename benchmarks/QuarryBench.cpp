#include "Platform/Base/Hash.h"
#include "Platform/Quarry/AttachedTable.h"
#include "Platform/Quarry/TableService.h"

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <limits>
#include <malloc.h>
#include <random>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

using namespace Quarry;
using Vela::make;
using Vela::Ptr;

// Records of 64 bytes under keys of 32, a million of them.

struct Key {
    std::array<uint64_t, 4> words{};

    uint64_t hash(uint64_t seed) const {
        Vela::IncrementalHash hash(seed);
        for (uint64_t word : words) {
            hash.mix(word);
        }
        return hash.result();
    }
    friend bool operator==(const Key&, const Key&) = default;
};

struct Record {
    using Key = ::Key;
    static constexpr const char* recordType = "QuarryBench::Record";
    Key key;
    std::array<uint64_t, 4> value{};
};
static_assert(sizeof(Record) == 64);

struct StdHash {
    size_t operator()(const Key& key) const { return key.hash(seed); }
    uint64_t seed = Vela::processHashSeed();
};
using StdHashMap = std::unordered_map<Key, Record, StdHash>;

constexpr uint64_t entryCount = 1'000'000;

class BenchTable final : public Table {
  public:
    static constexpr const char* tableType = "QuarryBench::BenchTable";
    explicit BenchTable(const TableSite& site)
        : Table(site), records_(*this, "record", static_cast<uint32_t>(entryCount)) {}
    const char* typeName() const noexcept override { return tableType; }
    const TableCollection<Record>& records() const { return records_; }
    TableCollection<Record>& records() { return records_; }

  private:
    TableCollection<Record> records_;
};

/// Tables belong on a tmpfs.
std::string makeDirectory() {
    std::string path =
        (std::filesystem::exists("/dev/shm") ? std::filesystem::path("/dev/shm")
                                             : std::filesystem::temp_directory_path()) /
        "arpsup-bench-XXXXXX";
    if (!mkdtemp(path.data())) {
        throw std::runtime_error("mkdtemp " + path);
    }
    return path;
}

/// One table, mounted for writing, in a directory of its own.
class Mounted {
  public:
    Mounted() { group_->mount<BenchTable>("bench", MountType::writer); }
    ~Mounted() {
        group_->destroy();
        service_->destroy();
        std::filesystem::remove_all(directory_);
    }
    Mounted(const Mounted&) = delete;
    Mounted& operator=(const Mounted&) = delete;

    TableCollection<Record>& records() const {
        return group_->entity<BenchTable>("bench")->records();
    }
    std::string file() const { return directory_ + "/bench/record"; }
    void runUntilIdle() {
        while (scheduler_->turn(Vela::MonotonicTime(0))) {
        }
    }

  private:
    const std::string directory_ = makeDirectory();
    Vela::SystemClock clock_;
    Ptr<Vela::TaskScheduler> scheduler_ =
        make<Vela::TaskScheduler>(clock_, Vela::TaskScheduler::Settings{});
    Ptr<TableService> service_ = make<TableService>(scheduler_, directory_);
    Ptr<MountGroup> group_ = service_->mountGroup();
};

struct Entries {
    Entries() {
        for (uint64_t i = 0; i < entryCount; ++i) {
            records.push_back({{{i % 2, i, 0, 7}}, {i, 1, 2, 3}});
            absent.push_back({{i % 2, entryCount + i, 0, 7}});
        }
        std::mt19937 random(1);
        std::shuffle(records.begin(), records.end(), random);
        for (const Record& record : records) {
            wanted.push_back(record.key);
        }
        std::shuffle(wanted.begin(), wanted.end(), random);
    }
    std::vector<Record> records;
    std::vector<Key> wanted;
    std::vector<Key> absent;
};
const Entries& all() {
    static const Entries entries;
    return entries;
}

void add(StdHashMap& map, const Record& record) {
    map.emplace(record.key, record);
}
void add(TableCollection<Record>& table, const Record& record) {
    table.set(record);
}
template <class To>
void fill(To& to) {
    for (const Record& record : all().records) {
        add(to, record);
    }
}

bool find(const StdHashMap& map, const Key& key, Record& copy) {
    auto found = map.find(key);
    if (found == map.end()) {
        return false;
    }
    copy = found->second;
    return true;
}
template <class Reading>
bool find(const Reading& reading, const Key& key, Record& copy) {
    auto found = reading.find(key);
    if (!found) {
        return false;
    }
    copy = *found;
    return true;
}

/// Copies the record of each key in turn.
template <class Reading>
void lookUp(benchmark::State& state, const Reading& reading, const std::vector<Key>& keys,
            bool there) {
    size_t next = 0;
    size_t wrong = 0;
    Record copy;
    for (auto _ : state) {
        wrong += find(reading, keys[next], copy) != there;
        benchmark::DoNotOptimize(copy);
        next = next + 1 == keys.size() ? 0 : next + 1;
    }
    if (wrong) {
        state.SkipWithError("a lookup went wrong");
    }
}

template <bool there>
void lookupInStdHashMap(benchmark::State& state) {
    StdHashMap map;
    fill(map);
    lookUp(state, map, there ? all().wanted : all().absent, there);
}
template <bool there>
void lookupInTable(benchmark::State& state) {
    Mounted mounted;
    fill(mounted.records());
    lookUp(state, mounted.records(), there ? all().wanted : all().absent, there);
}
template <bool there>
void lookupInAttachedTable(benchmark::State& state) {
    Mounted mounted;
    fill(mounted.records());
    AttachedTable<Record> attached(mounted.file());
    lookUp(state, attached, there ? all().wanted : all().absent, there);
}
BENCHMARK(lookupInStdHashMap<true>);
BENCHMARK(lookupInTable<true>);
BENCHMARK(lookupInAttachedTable<true>);
BENCHMARK(lookupInStdHashMap<false>);
BENCHMARK(lookupInTable<false>);
BENCHMARK(lookupInAttachedTable<false>);

double threadSeconds() {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/// The longest single insertion into what is filled with a million, in processor time; the least
/// of several fillings.
template <class To>
double longestInsertion(To& to) {
    double longest = 0;
    double last = threadSeconds();
    for (const Record& record : all().records) {
        add(to, record);
        const double now = threadSeconds();
        longest = std::max(longest, now - std::exchange(last, now));
    }
    return longest * 1e6;
}
void longestInsertionInStdHashMap(benchmark::State& state) {
    double longest = std::numeric_limits<double>::max();
    for (auto _ : state) {
        malloc_trim(0);
        StdHashMap map;
        longest = std::min(longest, longestInsertion(map));
    }
    state.counters["insertion_us"] = longest;
}
void longestInsertionInTable(benchmark::State& state) {
    double longest = std::numeric_limits<double>::max();
    for (auto _ : state) {
        Mounted mounted;
        longest = std::min(longest, longestInsertion(mounted.records()));
    }
    state.counters["insertion_us"] = longest;
}
BENCHMARK(longestInsertionInStdHashMap)->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK(longestInsertionInTable)->Iterations(3)->Unit(benchmark::kMillisecond);

/// Batches of changes to a thousand entries; with a reaction, from the write through the log to it.
template <bool observed>
void change(benchmark::State& state) {
    Mounted mounted;
    auto& records = mounted.records();
    uint64_t heard = 0;
    Vela::Reaction reaction;
    if (observed) {
        reaction = records.react(nullptr, [&heard](const Key&) { ++heard; });
    }
    uint64_t value = 0;
    for (auto _ : state) {
        ++value;
        for (uint64_t i = 0; i < 1000; ++i) {
            records.set({{{0, i, 0, 7}}, {value}});
        }
        mounted.runUntilIdle();
    }
    if (heard != (observed ? value * 1000 : 0)) {
        state.SkipWithError("a change was not announced");
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(change<false>);
BENCHMARK(change<true>);

/// A writer puts in a million entries, pausing where the log is over half full; a reader hears of
/// each and looks it up.
void firstPopulation(benchmark::State& state) {
    for (auto _ : state) {
        Mounted mounted;
        auto& records = mounted.records();
        uint64_t sum = 0;
        auto reaction =
            records.react(nullptr, [&](const Key& key) { sum += records.value(key).value[0]; });
        uint64_t written = 0;
        for (const Record& record : all().records) {
            records.set(record);
            if (++written % 32768 == 0) {
                mounted.runUntilIdle();
            }
        }
        mounted.runUntilIdle();
        if (sum != entryCount * (entryCount - 1) / 2) {
            state.SkipWithError("an entry was not announced");
        }
    }
}
BENCHMARK(firstPopulation)->Iterations(3)->Unit(benchmark::kMillisecond);

/// The same for a process that attaches when all is there: one walk.
void walkOfAttachedTable(benchmark::State& state) {
    Mounted mounted;
    fill(mounted.records());
    AttachedTable<Record> attached(mounted.file());
    for (auto _ : state) {
        uint64_t met = 0;
        for (auto cursor = attached.first(); cursor; ++cursor) {
            ++met;
        }
        if (met != entryCount) {
            state.SkipWithError("an entry was not met");
        }
    }
}
BENCHMARK(walkOfAttachedTable)->Iterations(3)->Unit(benchmark::kMillisecond);

} // namespace
