// What discovery costs for a request whose sender is known already, which is nearly every request.

#include "ArpSuppression/BindingDiscoverySm.h"
#include "Platform/Agent/SwitchState.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <malloc.h>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using ArpSuppression::ArpSuppressionCounterStatus;
using Id = ArpSuppression::ArpSuppressionCounterId;

/// Discovery with what it works on, and requests of so many hosts.
class Discovery {
  public:
    explicit Discovery(uint32_t hosts) {
        std::filesystem::create_directories(directory_);
        scheduler_ = Vela::make<Vela::TaskScheduler>(clock_, Vela::TaskScheduler::Settings());
        tables_ = Vela::make<Quarry::TableService>(scheduler_, directory_);
        database_ = Vela::make<Vela::EntityManager>(scheduler_, tables_);
        state_.emplace(database_, std::span<uint8_t>());
        mounts_ = tables_->mountGroup();
        mounts_->mount<ArpSuppressionCounterStatus>(
            "arpSuppression/counter", Quarry::MountType::writer,
            {{"counter", ArpSuppression::arpSuppressionCounters, false}});
        counters_ = mounts_->entity<ArpSuppressionCounterStatus>("arpSuppression/counter");
        vlanIs();
        for (uint32_t host = 0; host < hosts; ++host) {
            requests_.push_back(requestOf(host));
        }
        std::shuffle(requests_.begin(), requests_.end(), std::mt19937(1));
    }
    ~Discovery() {
        requests_.clear();
        smDel();
        trap_->destroy();
        trapV6_->destroy();
        trigger_->destroy();
        record_->destroy();
        remote_->destroy();
        vlanL3InfoStatus_->destroy();
        mounts_->destroy();
        state_.reset();
        database_->destroy();
        tables_->destroy();
        std::filesystem::remove_all(directory_);
    }

    void smIs() {
        sm_ = Vela::make<ArpSuppression::BindingDiscoverySm>(
            scheduler_, trap_, trapV6_, state_->bridgingConfig, state_->bridgingStatus, counters_,
            vlanL3InfoStatus_, remote_, state_->arpStatus, state_->fhrpVrMacStatus,
            state_->arpInputConfig, record_, state_->evpnStatus, trigger_);
    }
    void smDel() {
        if (sm_) {
            sm_->destroy();
            sm_.reset();
        }
    }
    void trapAll() {
        for (const auto& request : requests_) {
            trap_->lastTrappedMessageIs(request);
        }
    }
    void trapNext() { trap_->lastTrappedMessageIs(requests_[next_++ % requests_.size()]); }
    uint64_t refreshed() const { return counters_->count(Id::bindingRefreshed); }
    size_t bindings() const { return record_->bindings(); }

  private:
    void vlanIs() {
        auto vrfInfo = vlanL3InfoStatus_->vrfInfoIs("default");
        vrfInfo->netNsIs("default");
        vrfInfo->netlinkSocketIs(7);
        auto vlanL3Info = vlanL3InfoStatus_->vlanL3InfoIs(vrfInfo, vlanId_);
        vlanL3InfoStatus_->addVrfInterfaceWatch(vlanL3Info);
        vlanL3Info->kniIntfIfIndexIs(1010);
        state_->bridgingConfig->bridgeMacAddrIs(Zinc::EthAddr("02:00:00:00:0b:0b"));
        state_->evpnStatus->segmentStatusIs(Zinc::IntfId("Ethernet2"));
    }
    Vela::Ptr<const ArpSuppression::TrappedMessage> requestOf(uint32_t host) const {
        Zinc::EthAddr macAddress(Zinc::EthAddr::Bytes{
            2, 1, static_cast<uint8_t>(host >> 24), static_cast<uint8_t>(host >> 16),
            static_cast<uint8_t>(host >> 8), static_cast<uint8_t>(host)});
        return ArpSuppression::trappedMessageFactory(
            vlanId_, ArpSuppression::MessageType::request, Zinc::IntfId("Ethernet1"), false,
            Zinc::IpGenAddr(0x0B000000u + host), macAddress, Zinc::IpGenAddr("10.0.0.2"), nullptr);
    }

    const Bridging::VlanId vlanId_{10};
    const std::string directory_ = "/dev/shm/discoveryBench-" + std::to_string(getpid());
    Vela::SystemClock clock_;
    Vela::Ptr<Vela::TaskScheduler> scheduler_;
    Vela::Ptr<Quarry::TableService> tables_;
    Vela::Ptr<Vela::EntityManager> database_;
    std::optional<Vela::SwitchState> state_;
    Vela::Ptr<Quarry::MountGroup> mounts_;
    Vela::Ptr<ArpSuppressionCounterStatus> counters_;
    const Vela::Ptr<ArpSuppression::VlanL3InfoStatus> vlanL3InfoStatus_ =
        Vela::make<ArpSuppression::VlanL3InfoStatus>();
    const Vela::Ptr<ArpSuppression::RemoteBindingStatus> remote_ =
        Vela::make<ArpSuppression::RemoteBindingStatus>(vlanL3InfoStatus_);
    const Vela::Ptr<ArpSuppression::LocalBindingRecord> record_ =
        ArpSuppression::localBindingRecordFactory(vlanL3InfoStatus_);
    const Vela::Ptr<ArpSuppression::ArpInputConfigTrigger> trigger_ =
        ArpSuppression::arpInputConfigTriggerFactory();
    const Vela::Ptr<ArpSuppression::MessageTrap> trap_ = Vela::make<ArpSuppression::MessageTrap>();
    const Vela::Ptr<ArpSuppression::MessageTrap> trapV6_ =
        Vela::make<ArpSuppression::MessageTrap>();
    Vela::Ptr<ArpSuppression::BindingDiscoverySm> sm_;
    std::vector<Vela::Ptr<const ArpSuppression::TrappedMessage>> requests_;
    size_t next_ = 0;
};

/// To be subtracted: the message handed over while nobody is interested.
void trapAlone(benchmark::State& state) {
    Discovery discovery(static_cast<uint32_t>(state.range(0)));
    for (auto _ : state) {
        discovery.trapNext();
    }
}
BENCHMARK(trapAlone)->Arg(1)->Arg(1'000)->Arg(100'000);

void knownBinding(benchmark::State& state) {
    auto hosts = static_cast<uint32_t>(state.range(0));
    Discovery discovery(hosts);
    discovery.smIs();
    size_t heapBefore = mallinfo2().uordblks;
    discovery.trapAll();
    state.counters["bytesPerBinding"] =
        static_cast<double>(mallinfo2().uordblks - heapBefore) / hosts;
    uint64_t before = discovery.refreshed();
    uint64_t done = 0;
    for (auto _ : state) {
        discovery.trapNext();
        ++done;
    }
    if (discovery.bindings() != hosts || discovery.refreshed() - before != done) {
        state.SkipWithError("not every request was that of a known host");
    }
}
BENCHMARK(knownBinding)->Arg(1)->Arg(1'000)->Arg(100'000);

} // namespace
