// The road of one request: a trapped frame in memory to the reply frame in memory, with all that
// the agent looks up in between; and what memory all of it takes.

#include "Platform/Packet/PacketSockets.h"
#include "benchmarks/LeafSwitch.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <new>
#include <random>
#include <sys/eventfd.h>

namespace {

uint64_t allocations = 0;

} // namespace

void* operator new(size_t bytes) {
    ++allocations;
    if (void* memory = std::malloc(bytes)) {
        return memory;
    }
    throw std::bad_alloc();
}
// Both ends of the pair are replaced here, which g++ 12 does not see.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}

namespace {

/// Takes frames and keeps none.
class CountingSockets final : public Vela::PacketSockets {
  public:
    Vela::UniqueFd open(uint16_t) override { return Vela::UniqueFd(eventfd(0, EFD_CLOEXEC)); }
    int bind(int, uint16_t, uint32_t) override { return 0; }
    bool send(int, uint16_t, uint32_t, std::span<const uint8_t> frame) override {
        ++frames;
        benchmark::DoNotOptimize(frame.data());
        return true;
    }
    uint64_t frames = 0;
};

void trappedToReply(benchmark::State& state) {
    auto hosts = static_cast<uint32_t>(state.range(0));
    CountingSockets sockets;
    Vela::packetSocketsIs(&sockets);
    Benchmarks::LeafSwitch leaf(hosts, 101, 100);
    if (!leaf.everyMachineRuns()) {
        state.SkipWithError("not every machine runs");
        return;
    }
    std::mt19937 random(1);
    std::vector<std::vector<uint8_t>> requests;
    for (unsigned i = 0; i < 65536; ++i) {
        requests.push_back(leaf.requestFor(static_cast<uint32_t>(random() % hosts)));
    }
    size_t next = 0;
    auto trapNext = [&] {
        const auto& request = requests[next++ % requests.size()];
        leaf.trapSm().processMessage(
            ArpSuppression::MessageData(request.data(), static_cast<uint32_t>(request.size())));
    };
    for (size_t i = 0; i < requests.size(); ++i) {
        trapNext(); // what is remembered per address is there from here on
    }
    uint64_t framesBefore = sockets.frames;
    uint64_t allocationsBefore = allocations;
    uint64_t done = 0;
    for (auto _ : state) {
        trapNext();
        ++done;
    }
    state.counters["allocations"] =
        static_cast<double>(allocations - allocationsBefore) / static_cast<double>(done);
    if (sockets.frames - framesBefore != done) {
        state.SkipWithError("not every request was answered");
    }
}
BENCHMARK(trappedToReply)->Arg(1)->Arg(1'000)->Arg(1'000'000);

double heapBytes() {
    auto info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

/// What the whole agent takes for each remote host, every machine having done its part: tables that
/// others write for it, the MAC table's record among them, and all of the heap.
void wholeAgent(benchmark::State& state) {
    auto hosts = static_cast<uint32_t>(state.range(0));
    CountingSockets sockets;
    Vela::packetSocketsIs(&sockets);
    for (auto _ : state) {
        double heapBefore = heapBytes();
        Benchmarks::LeafSwitch leaf(hosts, 101, 100);
        double heap = (heapBytes() - heapBefore) / hosts;
        double tables = leaf.tableBytes() / hosts;
        if (!leaf.everyMachineRuns()) {
            state.SkipWithError("not every machine runs");
        }
        state.counters["heap_bytes"] = heap;
        state.counters["table_bytes"] = tables;
        state.counters["bytes"] = heap + tables;
    }
}
BENCHMARK(wholeAgent)->Arg(10'000)->Arg(1'000'000)->Iterations(1);

} // namespace
