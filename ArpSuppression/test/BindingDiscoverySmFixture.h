#pragma once

#include "ArpSuppression/test/RoadFixture.h"
#include "Platform/Agent/Toggle.h"
#include "Testing/TemporaryDirectory.h"
#include "Testing/TraceCapture.h"

#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ArpSuppression {

/// Discovery in the whole agent, which runs: what its neighbours publish is what it lives on.
class BindingDiscoverySmFixture : public RoadFixture {
  protected:
    /// A request of a host behind Ethernet1, unless said otherwise.
    struct Request {
        std::string senderIp = "10.0.0.1";
        std::string senderMac = macA;
        Zinc::IntfId srcIntf{"Ethernet1"};
        unsigned vlan = 10;
    };
    struct Posted {
        VrfIpAddress vrfIpAddress;
        bool suppressionEvent;
    };

    BindingDiscoverySmFixture() {
        startRoad();
        observe();
        countersMoved();
    }

    void observe() {
        trigger_ = root().arpInputConfigTrigger()->triggerAttribute().react(nullptr, [this] {
            const auto& trigger = *root().arpInputConfigTrigger();
            posted.push_back({trigger.vrfIpAddress(), trigger.suppressionEvent()});
        });
    }

    /// A machine beside the agent's own, where either of the two may be missing.
    Vela::Ptr<BindingDiscoverySm>
    machine(const Vela::Ptr<const Bridging::Config>& bridgingConfig,
            const Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus>& fhrpVrMacStatus) {
        auto& mounts = *agent->mounts();
        return Vela::make<BindingDiscoverySm>(
            scheduler(), root().receivedRequestTrapV4(), root().receivedRequestTrapV6(),
            bridgingConfig, mounts.bridgingStatus(), mounts.arpSuppressionCounterStatus(),
            root().vlanL3InfoStatus(), root().remoteBindingStatus(), mounts.arpStatus(),
            fhrpVrMacStatus, mounts.arpInputConfig(), root().localBindingRecord(),
            mounts.evpnStatus(), root().arpInputConfigTrigger());
    }

    BindingDiscoverySm& sm() { return *rootSm().bindingDiscoverySm(); }
    LocalBindingRecord& record() { return *root().localBindingRecord(); }
    RemoteBindingStatus& remote() { return *root().remoteBindingStatus(); }

    /// What discovery counted since the last call. Others count, too.
    Moved moved() {
        Moved all = countersMoved();
        Moved discovery;
        for (auto [id, count] : all) {
            if (id >= Id::bindingBadMac && id <= Id::bindingDeleted) {
                discovery[id] = count;
            }
        }
        return discovery;
    }

    Vela::Ptr<const TrappedMessage> message(const Zinc::IpGenAddr& senderIp,
                                            const Request& request) {
        return trappedMessageFactory(
            Bridging::VlanId(request.vlan),
            senderIp.af() == Zinc::ipv6() ? MessageType::v6NeighborSolicitation
                                          : MessageType::request,
            request.srcIntf, false, senderIp, Zinc::EthAddr(request.senderMac),
            Zinc::IpGenAddr("10.0.0.99"), Vela::pktManager().newPkt(Testing::TrapFrame{}.bytes()));
    }
    void requestFrom(const Zinc::IpGenAddr& senderIp, const Request& request) {
        const auto& trap = senderIp.af() == Zinc::ipv6() ? root().receivedRequestTrapV6()
                                                         : root().receivedRequestTrapV4();
        trap->lastTrappedMessageIs(message(senderIp, request));
    }
    /// The request, and what discovery counted for it.
    Moved movedBy(const Request& request) {
        moved();
        requestFrom(Zinc::IpGenAddr(request.senderIp), request);
        return moved();
    }

    /// As the control plane advertises it; the flag: on a segment that is attached here, too.
    void remoteIs(const std::string& ip, const std::string& mac, bool localMultihomed = false,
                  unsigned vlan = 10) {
        state().remoteBindingConfig->remoteBindingIs({{Bridging::VlanId(vlan), Zinc::IpGenAddr(ip)},
                                                      Zinc::EthAddr(mac),
                                                      0,
                                                      localMultihomed});
        runUntilIdle();
    }
    void remoteDel(const std::string& ip, unsigned vlan = 10) {
        state().remoteBindingConfig->remoteBindingDel(
            {Bridging::VlanId(vlan), Zinc::IpGenAddr(ip)});
        runUntilIdle();
    }
    /// The change of the MAC table, and what discovery counted for it.
    Moved movedByFdb(const std::string& mac, Zinc::IntfId intf, Bridging::EntryType type,
                     unsigned fid = 10) {
        moved();
        fdbIs(mac, intf, type, fid);
        runUntilIdle();
        return moved();
    }
    Moved movedByFdbDel(const std::string& mac, unsigned fid = 10) {
        moved();
        state().bridgingStatus->quarryFdbStatusDel({Bridging::Fid(fid), Zinc::EthAddr(mac)});
        runUntilIdle();
        return moved();
    }
    void segmentIs(Zinc::IntfId intf) { state().evpnStatus->segmentStatusIs(intf); }
    void routedVlanIs(unsigned vlan) {
        Testing::routedVlanIs(state(), Bridging::VlanId(vlan), 1000 + vlan);
        runUntilIdle();
    }

    VrfIpAddress address(const std::string& ip, unsigned vlan = 10) {
        return VrfIpAddress::fromVlanL3Info(vlanL3InfoStatus().vlanL3Info(Bridging::VlanId(vlan)),
                                            Zinc::IpGenAddr(ip));
    }
    Vela::Ptr<LocalBinding> binding(const std::string& ip, unsigned vlan = 10) {
        return record().binding(address(ip, vlan));
    }
    /// The MAC address that an address is bound to; "-" for none.
    std::string macOf(const std::string& ip, unsigned vlan = 10) {
        auto found = binding(ip, vlan);
        return found ? found->vlanIdMacAddress().macAddress().toStrep() : "-";
    }

    static Moved once(Id id) { return {{id, 1}}; }

    static constexpr const char* macA = "02:00:00:00:00:0a";
    static constexpr const char* macB = "02:00:00:00:00:0b";
    const Zinc::IntfId vxlan1{"Vxlan1"};
    std::vector<Posted> posted;

  private:
    Vela::Reaction trigger_;
};

/// Toggles are read once per process: a test each.
class BindingDiscoverySmToggleTest : public BindingDiscoverySmFixture {
  protected:
    ~BindingDiscoverySmToggleTest() override { Vela::toggleDirectoryIs("/etc/arpsup/toggles"); }

    void toggleIs(bool enabled) {
        std::ofstream(directory_.path() + "/ArpSuppression.json")
            << "{\"LocalMultihomeSelectiveArpInstall\": " << (enabled ? "true" : "false") << "}";
        Vela::toggleDirectoryIs(directory_.path());
    }

  private:
    Testing::TemporaryDirectory directory_;
};

} // namespace ArpSuppression
