#pragma once

#include "ArpSuppression/ArpSuppressionAgent.h"
#include "Platform/Trace/Swiftlog.h"
#include "Testing/PacketPorts.h"
#include "Testing/SwitchDevices.h"
#include "Testing/SwitchFixture.h"
#include "Testing/TrapFrame.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace ArpSuppression {

using Id = ArpSuppressionCounterId;

/// A switch whose agent runs: EVPN is configured, suppression is active on VLAN 10, which is routed
/// in the default VRF, the trap devices are there, and Ethernet1 (11) and Ethernet2 (12) are its
/// ports.
class RoadFixture : public Testing::SwitchFixture {
  protected:
    static constexpr uint32_t fabric = 100;
    static constexpr uint32_t arpsnoop = 101;
    static constexpr uint32_t arpinject = 102;

    RoadFixture() { Vela::Swiftlog::defaultDirectoryIs(directory() + "/log"); }
    ~RoadFixture() override {
        stop();
        agent->destroy();
        Vela::Swiftlog::close();
    }

    void stop() {
        state().evpnStatus->mplsConfiguredIs(false);
        runUntilIdle();
    }

    void startRoad(bool physicalHardware = false) {
        state().tablesCompleteIs();
        state().bridgingConfig->bridgeMacAddrIs(bridgeMac);
        state().fhrpVrMacStatus->varpVirtualMacIs(varpMac);
        state().vrfIdMap->vrfIs(Vrf::VrfId(0), "default");
        state().evpnStatus->mplsConfiguredIs(true);
        start(*agent, physicalHardware);
        Testing::routedVlanIs(state(), Bridging::VlanId(10), 1010);
        Testing::deviceIs(state(), "fabric", fabric);
        Testing::deviceIs(state(), "arpsnoop", arpsnoop);
        Testing::deviceIs(state(), "arpinject", arpinject);
        Testing::portIs(state(), "Ethernet1", "et1", 11);
        Testing::portIs(state(), "Ethernet2", "et2", 12);
        runUntilIdle();
        countersMoved();
    }

    ArpSuppressionRootSm& rootSm() { return *agent->rootSm(); }
    ArpSuppressionRoot& root() { return *agent->rootSm()->root(); }
    VlanL3InfoStatus& vlanL3InfoStatus() { return *root().vlanL3InfoStatus(); }

    void remoteBindingIs(const std::string& ip, const std::string& mac, bool vxlan = false,
                         unsigned vlan = 10) {
        state().remoteBindingConfig->remoteBindingIs(
            {{Bridging::VlanId(vlan), Zinc::IpGenAddr(ip)}, Zinc::EthAddr(mac), vxlan, 0});
    }
    /// What the kernel knows of a neighbour on VLAN 10.
    void neighborIs(const std::string& ip, const std::string& mac, bool isStatic = false) {
        state().arpStatus->entryIs({{Vrf::VrfId(0), Zinc::IntfId("Vlan10"), Zinc::IpGenAddr(ip)},
                                    Zinc::EthAddr(mac),
                                    isStatic});
    }
    void fdbIs(const std::string& mac, Zinc::IntfId intf, Bridging::EntryType type,
               unsigned fid = 10) {
        state().bridgingStatus->quarryFdbStatusIs(
            {{Bridging::Fid(fid), Zinc::EthAddr(mac)}, intf, type});
    }

    /// What moved since the last call, and by how much.
    std::map<Id, uint64_t> countersMoved() {
        std::map<Id, uint64_t> moved;
        const auto& status = *agent->mounts()->arpSuppressionCounterStatus();
        for (uint32_t number = 0; number < arpSuppressionCounters; ++number) {
            uint64_t count = status.count(Id(number));
            if (count != counters_[number]) {
                moved[Id(number)] = count - counters_[number];
                counters_[number] = count;
            }
        }
        return moved;
    }
    using Moved = std::map<Id, uint64_t>;

    const Zinc::IntfId ethernet1{"Ethernet1"};
    const Zinc::IntfId ethernet2{"Ethernet2"};
    const Zinc::EthAddr bridgeMac{"02:00:00:00:0b:0b"};
    const Zinc::EthAddr varpMac{"02:00:5e:00:01:01"};
    Testing::PacketPorts ports;
    Vela::Ptr<ArpSuppressionAgent> agent = arpSuppressionAgentFactory("ArpSuppression");

  private:
    std::array<uint64_t, arpSuppressionCounters> counters_{};
};

} // namespace ArpSuppression
