#pragma once

#include "ArpSuppression/ArpSuppressionAgent.h"
#include "Platform/Agent/SwitchState.h"
#include "Testing/SwitchDevices.h"
#include "Testing/TrapFrame.h"
#include "benchmarks/TableBytes.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <unistd.h>
#include <vector>

namespace Benchmarks {

/// A switch with so many hosts behind another one, and the agent on it.
class LeafSwitch {
  public:
    /// The kernel indexes are those of the trap device and of "fabric".
    LeafSwitch(uint32_t hosts, uint32_t arpsnoop, uint32_t fabric) : hosts_(hosts) {
        std::filesystem::create_directories(directory_);
        setenv("SWIFTLOGDIR", directory_.c_str(), 1);
        scheduler_ = Vela::make<Vela::TaskScheduler>(clock_, Vela::TaskScheduler::Settings());
        tables_ = Vela::make<Quarry::TableService>(scheduler_, directory_);
        database_ = Vela::make<Vela::EntityManager>(scheduler_, tables_);
        state_.emplace(database_, std::span<uint8_t>());
        publish();
        publishDevices(arpsnoop, fabric);
        agent_ = ArpSuppression::arpSuppressionAgentFactory("RoadBench");
        agent_->platformIs({scheduler_, database_, false});
        agent_->doInit();
        turnUntilIdle();
    }
    ~LeafSwitch() {
        agent_->destroy();
        state_.reset();
        database_->destroy();
        tables_->destroy();
        std::filesystem::remove_all(directory_);
    }

    /// Where a process has its tables; one that is killed leaves them there.
    static std::string directoryOf(pid_t process) {
        return "/dev/shm/roadBench-" + std::to_string(process);
    }

    std::vector<uint8_t> requestFor(uint32_t host) const {
        Testing::TrapFrame frame;
        frame.targetIp = ipOf(host);
        return frame.bytes();
    }
    ArpSuppression::MessageTrapSm& trapSm() { return *agent_->rootSm()->messageTrapSm(); }

    /// Whether all of the agent's machines are there and done with every host: its remote binding
    /// is known and its neighbour entry is asked for.
    bool everyMachineRuns() const {
        const auto& sm = agent_->rootSm();
        auto vrf = state_->arpInputConfig->vrf("default");
        return sm->root() && sm->root()->remoteBindingStatus()->ipToMacs() == hosts_ &&
               sm->root()->remoteBindingStatus()->macToIps() == hosts_ && vrf &&
               vrf->ipv4Entries() == hosts_ && sm->arpSuppressionStatusSm() && sm->vlanL3InfoSm() &&
               sm->localRequestRecordSm() && sm->remoteBindingStatusSm() &&
               sm->arpInputConfigSm() && sm->arpSuppressionSm() && sm->bindingDiscoverySm() &&
               sm->messageReinjectSm() && sm->messageTrapSm() &&
               sm->arpInputConfigSm()->ipv4VlanIntfIdShadowCollection().size() == hosts_ &&
               sm->arpInputConfigSm()->walkStage() ==
                   ArpSuppression::ArpInputConfigSm::WalkStage::walkComplete;
    }

    double tableBytes() const { return Benchmarks::tableBytes(directory_); }

    const Vela::Ptr<Vela::TaskScheduler>& scheduler() { return scheduler_; }

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
            state_->remoteBindingConfig->remoteBindingIs(
                {{Bridging::VlanId(10), ipOf(host)}, macOf(host)});
            state_->bridgingStatus->quarryFdbStatusIs(
                {{Bridging::Fid(10), macOf(host)}, tunnel, Bridging::EntryType::evpnDynamicRemote});
        }
        state_->bridgingConfig->bridgeMacAddrIs(Zinc::EthAddr("02:00:00:00:0b:0b"));
        state_->fhrpVrMacStatus->varpVirtualMacIs(Zinc::EthAddr("02:00:5e:00:01:01"));
        state_->vrfIdMap->vrfIs(Vrf::VrfId(0), "default");
        state_->tablesCompleteIs();
        state_->evpnStatus->mplsConfiguredIs(true);
    }
    void publishDevices(uint32_t arpsnoop, uint32_t fabric) {
        Testing::routedVlanIs(*state_, Bridging::VlanId(10), 1010);
        Testing::deviceIs(*state_, "arpsnoop", arpsnoop);
        Testing::deviceIs(*state_, "fabric", fabric);
        Testing::portIs(*state_, "Ethernet1", "et1", Testing::TrapFrame().srcIfIndex);
    }
    void turnUntilIdle() {
        while (scheduler_->turn(Vela::MonotonicTime(0))) {
        }
    }

    const uint32_t hosts_;
    const std::string directory_ = directoryOf(getpid());
    Vela::SystemClock clock_;
    Vela::Ptr<Vela::TaskScheduler> scheduler_;
    Vela::Ptr<Quarry::TableService> tables_;
    Vela::Ptr<Vela::EntityManager> database_;
    std::optional<Vela::SwitchState> state_;
    Vela::Ptr<ArpSuppression::ArpSuppressionAgent> agent_;
};

} // namespace Benchmarks
