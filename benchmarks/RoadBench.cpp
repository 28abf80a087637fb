// The road of one request: a trapped frame in memory to the reply frame in memory, with all that
// the agent looks up in between.

#include "ArpSuppression/ArpSuppressionAgent.h"
#include "Platform/Agent/SwitchState.h"
#include "Platform/Packet/PacketSockets.h"
#include "Testing/TrapFrame.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <optional>
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

using namespace ArpSuppression;
using Bridging::VlanId;

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

/// A switch with so many hosts behind another one, and the agent on it.
class Switch {
  public:
    explicit Switch(uint32_t hosts) : hosts_(hosts) {
        std::filesystem::create_directories(directory_);
        setenv("SWIFTLOGDIR", directory_.c_str(), 1);
        Vela::packetSocketsIs(&sockets);
        scheduler_ = Vela::make<Vela::TaskScheduler>(clock_, Vela::TaskScheduler::Settings());
        tables_ = Vela::make<Quarry::TableService>(scheduler_, directory_);
        database_ = Vela::make<Vela::EntityManager>(scheduler_, tables_);
        state_.emplace(database_, std::span<uint8_t>());
        publish();
        agent_ = arpSuppressionAgentFactory("RoadBench");
        agent_->platformIs({scheduler_, database_, false});
        agent_->doInit();
        while (scheduler_->turn(Vela::MonotonicTime(0))) {
        }
        wire();
    }
    ~Switch() {
        state_->arpSuppressionStatus->vlanIdDelAll();
        agent_->destroy();
        state_.reset();
        database_->destroy();
        tables_->destroy();
        Vela::packetSocketsIs(nullptr);
        std::filesystem::remove_all(directory_);
    }

    std::vector<uint8_t> requestFor(uint32_t host) const {
        Testing::TrapFrame frame;
        frame.targetIp = ipOf(host);
        return frame.bytes();
    }
    MessageTrapSm& trapSm() { return *agent_->rootSm()->messageTrapSm(); }

    CountingSockets sockets;

  private:
    static Zinc::IpGenAddr ipOf(uint32_t host) { return Zinc::IpGenAddr(0x0B000000u + host); }
    static Zinc::EthAddr macOf(uint32_t host) {
        return Zinc::EthAddr(Zinc::EthAddr::Bytes{
            2, 1, static_cast<uint8_t>(host >> 24), static_cast<uint8_t>(host >> 16),
            static_cast<uint8_t>(host >> 8), static_cast<uint8_t>(host)});
    }
    void publish() {
        Zinc::IntfId tunnel("Vxlan1");
        for (uint32_t host = 0; host < hosts_; ++host) {
            state_->remoteBindingConfig->remoteBindingIs({{VlanId(10), ipOf(host)}, macOf(host)});
            state_->bridgingStatus->quarryFdbStatusIs(
                {{Bridging::Fid(10), macOf(host)}, tunnel, Bridging::EntryType::evpnDynamicRemote});
        }
        state_->bridgingConfig->bridgeMacAddrIs(Zinc::EthAddr("02:00:00:00:0b:0b"));
        state_->fhrpVrMacStatus->varpVirtualMacIs(Zinc::EthAddr("02:00:5e:00:01:01"));
        state_->vrfIdMap->vrfIs(Vrf::VrfId(0), "default");
        state_->tablesCompleteIs();
        state_->evpnStatus->mplsConfiguredIs(true);
    }
    void wire() {
        ArpSuppressionRoot& root = *agent_->rootSm()->root();
        state_->arpSuppressionStatus->vlanIdIs(VlanId(10), true);
        auto& l3 = *root.vlanL3InfoStatus();
        auto vrfInfo = l3.vrfInfo("default");
        vrfInfo->vrfIdIs(Vrf::VrfId(0));
        vrfInfo->netNsIs("default");
        vrfInfo->netlinkSocketIs(7);
        l3.addVrfInterfaceWatch(l3.vlanL3InfoIs(vrfInfo, VlanId(10)));
        l3.vrfInterfaceWatch("fabric")->kniIntfIfIndexIs(100);
        root.deviceIntfStatusDir()->deviceIntfStatusIs(11, {Zinc::IntfId("Ethernet1"), "et1"});
    }

    const uint32_t hosts_;
    const std::string directory_ = "/dev/shm/roadBench";
    Vela::SystemClock clock_;
    Vela::Ptr<Vela::TaskScheduler> scheduler_;
    Vela::Ptr<Quarry::TableService> tables_;
    Vela::Ptr<Vela::EntityManager> database_;
    std::optional<Vela::SwitchState> state_;
    Vela::Ptr<ArpSuppressionAgent> agent_;
};

void trappedToReply(benchmark::State& state) {
    auto hosts = static_cast<uint32_t>(state.range(0));
    Switch leaf(hosts);
    std::mt19937 random(1);
    std::vector<std::vector<uint8_t>> requests;
    for (unsigned i = 0; i < 65536; ++i) {
        requests.push_back(leaf.requestFor(static_cast<uint32_t>(random() % hosts)));
    }
    size_t next = 0;
    auto trapNext = [&] {
        const auto& request = requests[next++ % requests.size()];
        leaf.trapSm().processMessage(
            MessageData(request.data(), static_cast<uint32_t>(request.size())));
    };
    for (size_t i = 0; i < requests.size(); ++i) {
        trapNext(); // what is remembered per address is there from here on
    }
    uint64_t framesBefore = leaf.sockets.frames;
    uint64_t allocationsBefore = allocations;
    uint64_t done = 0;
    for (auto _ : state) {
        trapNext();
        ++done;
    }
    state.counters["allocations"] =
        static_cast<double>(allocations - allocationsBefore) / static_cast<double>(done);
    if (leaf.sockets.frames - framesBefore != done) {
        state.SkipWithError("not every request was answered");
    }
}
BENCHMARK(trappedToReply)->Arg(1)->Arg(1'000)->Arg(1'000'000);

} // namespace
