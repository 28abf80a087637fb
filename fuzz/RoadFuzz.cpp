// The whole road: frames into the trap socket of an agent that knows bindings, through parsing,
// decision, reply and reinjection, and then a dump. The input is a sequence of frames, each behind
// its length in two bytes; the first byte chooses what the switch is like.

#include "ArpSuppression/ArpSuppressionAgent.h"
#include "Platform/Agent/SwitchState.h"
#include "Platform/Base/Assert.h"
#include "Platform/State/DumpContext.h"
#include "Testing/PacketPorts.h"
#include "Testing/SimulatedClock.h"
#include "Testing/SwitchDevices.h"
#include "Testing/TemporaryDirectory.h"

#include <cstdint>
#include <cstdlib>

namespace {

using namespace ArpSuppression;
using Bridging::VlanId;
using Vela::assertThat;
using Zinc::IntfId;

constexpr uint32_t fabric = 100;
constexpr uint32_t arpsnoop = 101;
constexpr uint32_t arpinject = 102;

/// One per process: inputs differ in what they send, and suppression starts anew for each.
class Leaf {
  public:
    Leaf() {
        setenv("SWIFTLOGDIR", directory_.path().c_str(), 1);
        publishBindings();
        publishDevices();
        state_.tablesCompleteIs();
        agent_->platformIs({scheduler_, database_, false});
        agent_->doInit();
        settle();
    }

    void run(uint8_t kind, std::span<const uint8_t> input) {
        bool physical = kind & 1;
        state_.evpnMplsConfig->innerDot1qDefaultIs(kind & 2);
        state_.evpnMplsConfig->controlWordEnabledIs(kind & 4);
        auto rootSm = arpSuppressionRootSmFactory(agent_->mounts(), physical, scheduler_);
        rootSm->runnableForTestIs(true);
        rootSm->handleRunnable();
        settle();
        while (input.size() >= 2) {
            size_t length = std::min<size_t>(input[0] << 8 | input[1], input.size() - 2);
            if (length > 0) { // the ports take an empty frame for their end
                ports_.inject(physical ? fabric : arpsnoop, input.subspan(2, length));
            }
            input = input.subspan(2 + length);
            settle();
            check();
        }
        Vela::DumpContext dump;
        rootSm->dumpState(dump, 0);
        assertThat(!dump.text().empty(), "!dump.text().empty()");
        rootSm->destroy();
        settle();
        ports_.forgetClosed();
    }

  private:
    void settle() {
        for (unsigned turns = 0; scheduler_->turn(Vela::MonotonicTime(0)); ++turns) {
            assertThat(turns < 100'000, "turns < 100'000");
        }
    }
    /// Every reply is one of ours: tagged, of its full length, an answer.
    void check() {
        for (const Testing::Frame& frame : ports_.sent(fabric)) {
            assertThat(frame.size() == 46 && frame[12] == 0x81 && frame[16] == 8 && frame[25] == 2,
                       "frame.size() == 46");
        }
    }
    void publishBindings() {
        state_.bridgingConfig->bridgeMacAddrIs(Zinc::EthAddr("02:00:00:00:0b:0b"));
        state_.fhrpVrMacStatus->varpVirtualMacIs(Zinc::EthAddr("02:00:5e:00:01:01"));
        state_.vrfIdMap->vrfIs(Vrf::VrfId(0), "default");
        auto bindingIs = [&](const char* ip, const char* mac, bool vxlan) {
            state_.remoteBindingConfig->remoteBindingIs(
                {{VlanId(10), Zinc::IpGenAddr(ip)}, Zinc::EthAddr(mac), vxlan, 0});
        };
        bindingIs("10.0.0.2", "02:00:00:00:00:02", false);
        bindingIs("10.0.0.3", "02:00:00:00:00:03", true);
        bindingIs("10.0.0.4", "02:00:00:00:00:04", false);
        auto fdbIs = [&](const char* mac, const char* intf, Bridging::EntryType type) {
            state_.bridgingStatus->quarryFdbStatusIs(
                {{Bridging::Fid(10), Zinc::EthAddr(mac)}, IntfId(intf), type});
        };
        fdbIs("02:00:00:00:00:02", "Vxlan1", Bridging::EntryType::evpnDynamicRemote);
        fdbIs("02:00:00:00:00:04", "Ethernet2", Bridging::EntryType::learnedDynamic);
        fdbIs("02:00:00:00:00:05", "Ethernet1", Bridging::EntryType::learnedDynamic);
        state_.arpStatus->entryIs({{Vrf::VrfId(0), IntfId("Vlan10"), Zinc::IpGenAddr("10.0.0.5")},
                                   Zinc::EthAddr("02:00:00:00:00:05")});
        state_.evpnStatus->imetLabelIs(VlanId(10), Evpn::ImetLabel(100, Evpn::EncapType::mpls));
        state_.evpnStatus->localEsiLabelIs(IntfId("Ethernet2"), Evpn::EsiLabel(500));
        state_.evpnStatus->segmentStatusIs(IntfId("Ethernet2"))
            ->dfTepIs(VlanId(10), IntfId("Vxlan1"));
        state_.intfEncapServiceIntf->parentIs(IntfId("Ethernet1"))
            ->subIntfIs(IntfId("Ethernet1.30"), Brant::IntfEncap({Bridging::VlanTag::dot1q, 30}));
    }
    void publishDevices() {
        Testing::routedVlanIs(state_, VlanId(10), 110);
        state_.evpnStatus->vlanToDot1qIs(VlanId(20), {}); // not routed: nothing is suppressed there
        state_.ipStatus->ipIntfStatus(IntfId("Vlan10"))
            ->activeAddrWithMaskIs({Zinc::IpGenAddr("10.0.0.254"), 24});
        Testing::deviceIs(state_, "fabric", fabric);
        Testing::deviceIs(state_, "arpsnoop", arpsnoop);
        Testing::deviceIs(state_, "arpinject", arpinject);
        Testing::portIs(state_, "Ethernet1", "et1", 11);
        Testing::portIs(state_, "Ethernet2", "et2", 12);
        Testing::deviceIs(state_, "cpu", 1);
    }

    Testing::TemporaryDirectory directory_;
    Testing::PacketPorts ports_;
    Testing::SimulatedClock clock_;
    Vela::Ptr<Vela::TaskScheduler> scheduler_ =
        Vela::make<Vela::TaskScheduler>(clock_, Vela::TaskScheduler::Settings());
    Vela::Ptr<Quarry::TableService> tables_ =
        Vela::make<Quarry::TableService>(scheduler_, directory_.path());
    Vela::Ptr<Vela::EntityManager> database_ = Vela::make<Vela::EntityManager>(scheduler_, tables_);
    Vela::SwitchState state_{database_, std::span<uint8_t>()};
    /// Mounts everything, and rests: each input has a root state machine of its own.
    Vela::Ptr<ArpSuppressionAgent> agent_ = arpSuppressionAgentFactory("RoadFuzz");
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static auto* leaf = new Leaf;
    if (size > 0) {
        leaf->run(data[0], {data + 1, size - 1});
    }
    return 0;
}
