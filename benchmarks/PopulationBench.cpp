// From the configuration of remote bindings to the tables that requests are looked up in: what the
// first walk over it costs, what a burst of changes does, what all that takes in memory, and how
// long the loop looks at nothing else meanwhile.

#include "ArpSuppression/RemoteBindingStatusSm.h"
#include "Platform/Agent/SwitchState.h"
#include "benchmarks/TableBytes.h"

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

/// A switch with so many hosts behind others, one address to a MAC address, on a hundred routed
/// VLANs: the bindings and the MAC table are there, and nobody has looked at them yet.
class RemoteHosts {
  public:
    static constexpr uint32_t vlans = 100;

    explicit RemoteHosts(uint32_t hosts) : hosts_(hosts) {
        readers_->mount<RemoteBindingConfig>(configPath, Quarry::MountType::reader);
        readers_->close();
        for (uint32_t vlan = 0; vlan < vlans; ++vlan) {
            l3_->addVrfInterfaceWatch(l3_->vlanL3InfoIs(l3_->vrfInfoIs("default"), vlanOf(vlan)));
        }
        for (uint32_t host = 0; host < hosts_; ++host) {
            bindingIs(host, host);
        }
        state_.tablesCompleteIs();
        turnUntilIdle();
    }
    ~RemoteHosts() {
        if (sm_) {
            sm_->destroy();
        }
        status_->destroy();
        l3_->destroy();
        readers_->destroy();
        std::filesystem::remove_all(directory_);
    }

    /// On fresh memory, as in an agent that starts, whatever ran before.
    void machineIs() {
        malloc_trim(0);
        sm_ = make<RemoteBindingStatusSm>(scheduler_, state_.remoteBindingConfig, readers_, l3_,
                                          status_);
    }
    /// The host has the MAC address of that number.
    void bindingIs(uint32_t host, uint32_t mac) {
        Bridging::VlanId vlanId = vlanOf(host);
        state_.remoteBindingConfig->remoteBindingIs({{vlanId, ipOf(host)}, macOf(mac)});
        state_.bridgingStatus->quarryFdbStatusIs({{Bridging::Fid(vlanId.value()), macOf(mac)},
                                                  tunnel_,
                                                  Bridging::EntryType::evpnDynamicRemote});
    }
    void bindingDel(uint32_t host) {
        state_.remoteBindingConfig->remoteBindingDel({vlanOf(host), ipOf(host)});
    }
    bool has(uint32_t host, uint32_t mac) const {
        auto ipToMac = status_->ipToMac({l3_->vrfInfo("default"), ipOf(host)});
        return ipToMac &&
               ipToMac->firstVlanIdMacAddress() == VlanIdMacAddress(vlanOf(host), macOf(mac));
    }
    const RemoteBindingStatus& status() const { return *status_; }

    /// Processor time until there was nothing to do, and that of the longest turn: a socket that
    /// becomes readable waits no longer. The time that others had the processor is not the agent's.
    struct Turns {
        double total = 0;
        double untilComplete = 0;
        double longest = 0;
    };
    Turns turnUntilIdle() {
        Turns turns;
        bool complete = status_->initialPopulationComplete();
        double before = processorSeconds();
        while (scheduler_->turn(MonotonicTime(0))) {
            double after = processorSeconds();
            turns.total += after - before;
            turns.longest = std::max(turns.longest, after - before);
            before = after;
            if (!complete) {
                turns.untilComplete = turns.total;
                complete = status_->initialPopulationComplete();
            }
        }
        return turns;
    }

    double tableBytes() const { return Benchmarks::tableBytes(directory_); }

  private:
    static constexpr const char* configPath = "arpSuppression/remoteBindingConfig/evpn";

    static Bridging::VlanId vlanOf(uint32_t host) { return Bridging::VlanId(10 + host % vlans); }
    static Zinc::IpGenAddr ipOf(uint32_t host) { return Zinc::IpGenAddr(0x0B000000u + host); }
    static Zinc::EthAddr macOf(uint32_t mac) {
        return Zinc::EthAddr(Zinc::EthAddr::Bytes{
            2, 1, static_cast<uint8_t>(mac >> 24), static_cast<uint8_t>(mac >> 16),
            static_cast<uint8_t>(mac >> 8), static_cast<uint8_t>(mac)});
    }

    const uint32_t hosts_;
    const Zinc::IntfId tunnel_{"Vxlan1"};
    const std::string directory_ = "/dev/shm/populationBench-" + std::to_string(getpid());
    Vela::SystemClock clock_;
    const Vela::Ptr<Vela::TaskScheduler> scheduler_ =
        make<Vela::TaskScheduler>(clock_, Vela::TaskScheduler::Settings());
    const Vela::Ptr<Quarry::TableService> tables_ =
        make<Quarry::TableService>(scheduler_, directory_);
    const Vela::Ptr<Vela::EntityManager> database_ = make<Vela::EntityManager>(scheduler_, tables_);
    Vela::SwitchState state_{database_, {}};
    const Vela::Ptr<Quarry::MountGroup> readers_ = tables_->mountGroup();
    const Vela::Ptr<VlanL3InfoStatus> l3_ = make<VlanL3InfoStatus>();
    const Vela::Ptr<RemoteBindingStatus> status_ = make<RemoteBindingStatus>(l3_);
    Vela::Ptr<RemoteBindingStatusSm> sm_;
};

/// From a configuration that is there to tables that say the same. The walk's second stage, which
/// finds nothing to do, is in it.
void firstPopulation(benchmark::State& state) {
    auto hosts = static_cast<uint32_t>(state.range(0));
    double total = 0;
    double complete = 0;
    double longest = 0;
    for (auto _ : state) {
        RemoteHosts leaf(hosts);
        double heapBefore = heapBytes();
        leaf.machineIs();
        auto turns = leaf.turnUntilIdle();
        state.SetIterationTime(turns.total);
        total += turns.total;
        complete += turns.untilComplete;
        longest = std::max(longest, turns.longest);
        state.counters["heap_bytes"] = (heapBytes() - heapBefore) / hosts;
        state.counters["table_bytes"] = leaf.tableBytes() / hosts;
        if (leaf.status().ipToMacs() != hosts || !leaf.status().initialPopulationComplete() ||
            !leaf.has(hosts - 1, hosts - 1)) {
            state.SkipWithError("not every binding is there");
        }
    }
    state.counters["per_binding"] = total / static_cast<double>(state.iterations()) / hosts;
    state.counters["complete"] = complete / static_cast<double>(state.iterations()) / hosts;
    state.counters["longest_turn"] = longest;
}
BENCHMARK(firstPopulation)->Arg(1)->Iterations(1000)->UseManualTime();
BENCHMARK(firstPopulation)->Arg(10'000)->Iterations(20)->UseManualTime();
BENCHMARK(firstPopulation)->Arg(1'000'000)->Iterations(1)->UseManualTime();

/// A hundred thousand changes of a million bindings at once: a third of them move to other MAC
/// addresses, a third go and a third are new.
void burst(benchmark::State& state) {
    constexpr uint32_t hosts = 1'000'000;
    constexpr uint32_t changes = 100'000;
    RemoteHosts leaf(hosts);
    leaf.machineIs();
    leaf.turnUntilIdle();
    uint32_t round = 0;
    for (auto _ : state) {
        uint32_t newMacs = hosts * (++round + 1);
        for (uint32_t i = 0; i < changes; ++i) {
            uint32_t host = i * 9;
            switch (i % 3) {
            case 0:
                leaf.bindingIs(host, newMacs + i);
                break;
            case 1:
                leaf.bindingDel(host);
                break;
            default:
                leaf.bindingIs(hosts * round + i, newMacs + i);
            }
        }
        auto turns = leaf.turnUntilIdle();
        state.SetIterationTime(turns.total);
        state.counters["per_change"] = turns.total / changes;
        state.counters["longest_turn"] = turns.longest;
        if (!leaf.has(0, newMacs) || leaf.has(9, 9)) {
            state.SkipWithError("not every change was followed");
        }
    }
}
BENCHMARK(burst)->Iterations(1)->UseManualTime();

} // namespace
