// From remote bindings to the neighbour entries that the kernel is to have: what the walk over them
// costs, what each announced change costs, what it takes in memory, how long the loop looks at
// nothing else meanwhile, and how long a stop takes, which withdraws everything in one reaction.

#include "ArpSuppression/ArpInputConfigSm.h"
#include "Platform/Agent/SwitchState.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <malloc.h>
#include <string>
#include <unistd.h>

namespace {

using namespace ArpSuppression;
using Vela::make;
using Vela::MonotonicTime;

double processorSeconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

double heapBytes() {
    auto info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

/// A switch that knows so many hosts behind others, on a hundred VLANs of one VRF, and nobody has
/// asked for an entry yet.
class KnownHosts {
  public:
    static constexpr uint32_t vlans = 100;

    explicit KnownHosts(uint32_t hosts) {
        writers_->mount<ArpSuppressionCounterStatus>(counterPath, Quarry::MountType::writer);
        writers_->close();
        counters_ = writers_->entity<ArpSuppressionCounterStatus>(counterPath);
        state_.arpInputConfig->sourceIs(Arp::ArpSource::arpSuppression);
        for (uint32_t vlan = 0; vlan < vlans; ++vlan) {
            l3_->addVrfInterfaceWatch(l3_->vlanL3InfoIs(l3_->vrfInfoIs("default"), vlanOf(vlan)));
        }
        for (uint32_t host = 0; host < hosts; ++host) {
            remote_->ipToMacIs(addressOf(host))
                ->vlanIdMacAddressIs({vlanOf(host), macOf(host)}, false);
            remote_->referenceVrf(l3_->vrfInfo("default"));
        }
        l3_->initialArpSuppressionStatusSyncIs(true);
        remote_->initialPopulationCompleteIs(true);
    }
    ~KnownHosts() {
        machineDel();
        trigger_->destroy();
        remote_->destroy();
        local_->destroy();
        l3_->destroy();
        counters_.reset();
        writers_->destroy();
        std::filesystem::remove_all(directory_);
    }

    /// On fresh memory, as in an agent that starts, whatever ran before.
    void machineIs() {
        malloc_trim(0);
        sm_ = make<ArpInputConfigSm>(scheduler_, state_.l2VpnConfig, local_, remote_, trigger_, l3_,
                                     state_.arpStatus, state_.arpInputConfig, counters_);
    }
    void machineDel() {
        if (sm_) {
            sm_->destroy();
            sm_.reset();
        }
    }
    void changed(uint32_t host) { remote_->lastVrfIpAddressChangeIs(addressOf(host)); }

    size_t entries() const {
        auto vrf = state_.arpInputConfig->vrf("default");
        return vrf ? vrf->ipv4Entries() : 0;
    }
    uint64_t count(ArpSuppressionCounterId id) const { return counters_->count(id); }

    /// Processor time until there was nothing to do, and that of the longest turn.
    struct Turns {
        double total = 0;
        double longest = 0;
    };
    Turns turnUntilIdle() {
        Turns turns;
        double before = processorSeconds();
        while (scheduler_->turn(MonotonicTime(0))) {
            double after = processorSeconds();
            turns.total += after - before;
            turns.longest = std::max(turns.longest, after - before);
            before = after;
        }
        return turns;
    }

  private:
    static constexpr const char* counterPath = "arpSuppression/counter";

    static Bridging::VlanId vlanOf(uint32_t host) { return Bridging::VlanId(10 + host % vlans); }
    static Zinc::EthAddr macOf(uint32_t mac) {
        return Zinc::EthAddr(Zinc::EthAddr::Bytes{
            2, 1, static_cast<uint8_t>(mac >> 24), static_cast<uint8_t>(mac >> 16),
            static_cast<uint8_t>(mac >> 8), static_cast<uint8_t>(mac)});
    }
    VrfIpAddress addressOf(uint32_t host) const {
        return {l3_->vrfInfo("default"), Zinc::IpGenAddr(0x0B000000u + host)};
    }

    const std::string directory_ = "/dev/shm/inputConfigBench-" + std::to_string(getpid());
    Vela::SystemClock clock_;
    const Vela::Ptr<Vela::TaskScheduler> scheduler_ =
        make<Vela::TaskScheduler>(clock_, Vela::TaskScheduler::Settings());
    const Vela::Ptr<Quarry::TableService> tables_ =
        make<Quarry::TableService>(scheduler_, directory_);
    const Vela::Ptr<Vela::EntityManager> database_ = make<Vela::EntityManager>(scheduler_, tables_);
    Vela::SwitchState state_{database_, {}};
    const Vela::Ptr<Quarry::MountGroup> writers_ = tables_->mountGroup();
    const Vela::Ptr<VlanL3InfoStatus> l3_ = make<VlanL3InfoStatus>();
    const Vela::Ptr<LocalBindingRecord> local_ = localBindingRecordFactory(l3_);
    const Vela::Ptr<RemoteBindingStatus> remote_ = make<RemoteBindingStatus>(l3_);
    const Vela::Ptr<ArpInputConfigTrigger> trigger_ = arpInputConfigTriggerFactory();
    Vela::Ptr<ArpSuppressionCounterStatus> counters_;
    Vela::Ptr<ArpInputConfigSm> sm_;
};

/// The walk: an entry for each remote binding, and then each entry confirmed once. The time of a
/// stop, with the memory given back, is a counter of its own.
void inputConfig(benchmark::State& state) {
    auto hosts = static_cast<uint32_t>(state.range(0));
    double total = 0;
    double longest = 0;
    double stop = 0;
    for (auto _ : state) {
        KnownHosts leaf(hosts);
        double heapBefore = heapBytes();
        leaf.machineIs();
        auto turns = leaf.turnUntilIdle();
        state.SetIterationTime(turns.total);
        total += turns.total;
        longest = std::max(longest, turns.longest);
        state.counters["heap_bytes"] = (heapBytes() - heapBefore) / hosts;
        if (leaf.entries() != hosts ||
            leaf.count(ArpSuppressionCounterId::inputPermanentAdded) != hosts ||
            leaf.count(ArpSuppressionCounterId::inputPermanentRewritten) != hosts) {
            state.SkipWithError("not every entry is there");
        }
        double before = processorSeconds();
        leaf.machineDel();
        stop = std::max(stop, processorSeconds() - before);
        if (leaf.entries() != 0) {
            state.SkipWithError("not every entry was withdrawn");
        }
    }
    state.counters["per_binding"] = total / static_cast<double>(state.iterations()) / hosts;
    state.counters["longest_turn"] = longest;
    state.counters["stop"] = stop;
}
BENCHMARK(inputConfig)->Arg(10'000)->Iterations(20)->UseManualTime();
BENCHMARK(inputConfig)->Arg(1'000'000)->Iterations(1)->UseManualTime();

/// What the announcement of one address costs, all entries being there and none changing.
void announcedChange(benchmark::State& state) {
    auto hosts = static_cast<uint32_t>(state.range(0));
    KnownHosts leaf(hosts);
    leaf.machineIs();
    leaf.turnUntilIdle();
    uint32_t host = 0;
    for (auto _ : state) {
        leaf.changed(host);
        host = (host + 7919) % hosts;
    }
    if (leaf.entries() != hosts) {
        state.SkipWithError("not every entry is there");
    }
}
BENCHMARK(announcedChange)->Arg(10'000);
BENCHMARK(announcedChange)->Arg(1'000'000);

} // namespace
