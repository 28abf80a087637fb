#include "Platform/Trace/Swiftlog.h"
#include "Platform/Trace/SwiftlogType.h"
#include "Platform/Trace/Trace.h"

#include <array>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace Vela {
namespace {

TraceHandle traceHandle("TraceBench");

struct Payload {
    std::array<uint64_t, 8> words;
};
static_assert(sizeof(Payload) == 64);

/// The ring-buffer file of the benchmarks below, in memory where there is such a file system.
class RingFile {
  public:
    RingFile() {
        std::filesystem::path memory = "/dev/shm";
        directory_ = (is_directory(memory) ? memory : std::filesystem::temp_directory_path()) /
                     ("swiftlog" + std::string(6, 'X'));
        if (!mkdtemp(directory_.data())) {
            std::abort();
        }
        setenv("SWIFTLOGDIR", directory_.c_str(), 1);
        Swiftlog::initialize({.fileName = "bench.sl", .levelKiB = {8, 32, 256, 128, 512, 512}});
    }
    ~RingFile() {
        Swiftlog::close();
        std::filesystem::remove_all(directory_);
    }

  private:
    std::string directory_;
};

void emptyLoop(benchmark::State& state) {
    uint64_t n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(++n);
    }
}
BENCHMARK(emptyLoop);

void traceLineSwitchedOff(benchmark::State& state) {
    traceHandle.levelsIs(0);
    uint64_t n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(++n);
        TRACE(traceHandle, 8, nullptr, "n=" << n << " state=" << static_cast<void*>(&state));
        benchmark::ClobberMemory(); // the levels are loaded anew each time
    }
}
BENCHMARK(traceLineSwitchedOff);

void traceLineSwitchedOn(benchmark::State& state) {
    traceHandle.levelsIs(traceLevelsUpTo(9));
    size_t bytes = 0;
    TraceSink previous = traceSinkIs([&bytes](std::string_view line) { bytes += line.size(); });
    uint64_t n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(++n);
        TRACE(traceHandle, 8, nullptr, "n=" << n << " state=" << static_cast<void*>(&state));
    }
    traceSinkIs(previous);
    traceHandle.levelsIs(0);
    benchmark::DoNotOptimize(bytes);
}
BENCHMARK(traceLineSwitchedOn);

/// The same bytes into a ring of the same size, without anything else.
void memcpyOf64Bytes(benchmark::State& state) {
    std::vector<uint8_t> ring(524288);
    Payload payload{};
    size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(payload);
        std::memcpy(ring.data() + at, &payload, sizeof payload);
        at = (at + sizeof payload) % ring.size();
        benchmark::ClobberMemory();
    }
}
BENCHMARK(memcpyOf64Bytes);

#if defined(__x86_64__)
void timeStampCounter(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(__builtin_ia32_rdtsc());
    }
}
BENCHMARK(timeStampCounter);
#endif

const SwiftlogType<Payload>& payloadRecord() {
    static const SwiftlogType<Payload> record{"benchmarks/TraceBench", "payload", 4, {}};
    return record;
}

void ringRecordOf64Bytes(benchmark::State& state) {
    RingFile file;
    const SwiftlogType<Payload>& record = payloadRecord();
    Payload payload{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(payload);
        record.write(payload);
    }
}
BENCHMARK(ringRecordOf64Bytes);

void ringRecordWithoutFile(benchmark::State& state) {
    const SwiftlogType<Payload>& record = payloadRecord();
    Payload payload{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(payload);
        record.write(payload);
    }
}
BENCHMARK(ringRecordWithoutFile);

} // namespace
} // namespace Vela
