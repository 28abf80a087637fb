#pragma once

#include "ArpSuppression/ArpSuppressionSm.h"
#include "Platform/Trace/Swiftlog.h"
#include "Testing/PacketPorts.h"
#include "Testing/SwitchFixture.h"
#include "Testing/TrapFrame.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace ArpSuppression {

/// The machine that decides, alone: everything around it is made and looked at by the test.
class ArpSuppressionSmFixture : public Testing::SwitchFixture {
  protected:
    using Id = ArpSuppressionCounterId;

    /// A request of the host 10.0.0.1 behind Ethernet1 for 10.0.0.2, unless said otherwise.
    struct Request {
        unsigned vlan = 10;
        Zinc::IntfId srcIntf{"Ethernet1"};
        std::string senderIp = "10.0.0.1";
        std::string senderMac = "02:00:00:00:00:01";
        std::string targetIp = "10.0.0.2";

        Vela::Ptr<const TrappedMessage> message() const {
            return trappedMessageFactory(Bridging::VlanId(vlan), MessageType::request, srcIntf,
                                         false, Zinc::IpGenAddr(senderIp), Zinc::EthAddr(senderMac),
                                         Zinc::IpGenAddr(targetIp), nullptr);
        }
    };

    /// Everything that a decision can do.
    struct Outcome {
        std::map<Id, uint64_t> counters = {};
        std::vector<Testing::Frame> sent = {};
        size_t queued = 0;
        uint32_t triggered = 0;

        friend bool operator==(const Outcome&, const Outcome&) = default;
        friend std::ostream& operator<<(std::ostream& out, const Outcome& v) {
            for (auto [id, count] : v.counters) {
                out << toStrep(id) << '+' << count << ' ';
            }
            return out << "sent " << testing::PrintToString(v.sent) << " queued " << v.queued
                       << " triggered " << v.triggered;
        }
    };

    static constexpr uint32_t fabric = 100;

    ArpSuppressionSmFixture() {
        tables->mount<ArpSuppressionCounterStatus>("arpSuppression/counter",
                                                   Quarry::MountType::writer,
                                                   {{"counter", arpSuppressionCounters, false}});
        counters = tables->entity<ArpSuppressionCounterStatus>("arpSuppression/counter");
        state().bridgingConfig->bridgeMacAddrIs(Zinc::EthAddr("02:00:00:00:0b:0b"));
        state().fhrpVrMacStatus->varpVirtualMacIs(Zinc::EthAddr("02:00:5e:00:01:01"));
        vrfNameToIdMap->vrfIdIs("default", Vrf::VrfId(0));
        vrfNameToIdMap->vrfIdIs("red", Vrf::VrfId(7));
        sm = machine(state().evpnStatus, state().fhrpVrMacStatus);
        vrfIs("default");
        vlanIs(10);
        fabricWatch()->kniIntfIfIndexIs(fabric);
    }
    ~ArpSuppressionSmFixture() override {
        sm->destroy();
        trap->destroy();
        queue->destroy();
        record->destroy();
        trigger->destroy();
        vlanL3InfoStatus->destroy();
        tables->destroy();
        Vela::Swiftlog::close();
    }

    Vela::Ptr<ArpSuppressionSm>
    machine(Vela::Ptr<const Evpn::EvpnStatus> evpnStatus,
            Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpStatus) {
        return arpSuppressionSmFactory(trap, queue, counters, record, state().remoteBindingConfig,
                                       vlanL3InfoStatus, state().arpStatus, state().bridgingConfig,
                                       state().bridgingStatus, std::move(evpnStatus),
                                       std::move(fhrpStatus), vrfNameToIdMap, trigger);
    }
    /// Makes the machine anew; either of the two may be missing.
    void machineIs(Vela::Ptr<const Evpn::EvpnStatus> evpnStatus,
                   Vela::Ptr<const Routing::Fhrp::VirtualRouterMacStatus> fhrpStatus) {
        sm->destroy();
        sm = machine(std::move(evpnStatus), std::move(fhrpStatus));
    }

    void vrfIs(const char* name) {
        auto vrfInfo = vlanL3InfoStatus->vrfInfoIs(name);
        vrfInfo->netNsIs(name);
        vrfInfo->netlinkSocketIs(7);
    }
    Vela::Ptr<VlanL3Info> vlanIs(unsigned vlan, const char* vrf = "default") {
        auto vlanL3Info = vlanL3InfoStatus->vlanL3InfoIs(vlanL3InfoStatus->vrfInfoIs(vrf),
                                                         Bridging::VlanId(vlan));
        vlanL3InfoStatus->addVrfInterfaceWatch(vlanL3Info);
        vlanL3Info->kniIntfIfIndexIs(1000 + vlan);
        return vlanL3Info;
    }
    Vela::Ptr<VrfInterfaceWatch> fabricWatch() const {
        return vlanL3InfoStatus->vrfInterfaceWatch("fabric");
    }
    void neighborIs(const std::string& mac, const std::string& ip = "10.0.0.2",
                    bool isStatic = false, const char* intf = "Vlan10", uint32_t vrfId = 0) {
        state().arpStatus->entryIs({{Vrf::VrfId(vrfId), Zinc::IntfId(intf), Zinc::IpGenAddr(ip)},
                                    Zinc::EthAddr(mac),
                                    isStatic});
    }
    void remoteBindingIs(const std::string& mac, uint8_t vxlan = 0, unsigned vlan = 10) {
        state().remoteBindingConfig->remoteBindingIs(
            {{Bridging::VlanId(vlan), Zinc::IpGenAddr("10.0.0.2")}, Zinc::EthAddr(mac), vxlan, 0});
    }
    void fdbIs(const std::string& mac, Bridging::EntryType type,
               Zinc::IntfId intf = Zinc::IntfId("Ethernet2"), unsigned fid = 10) {
        state().bridgingStatus->quarryFdbStatusIs(
            {{Bridging::Fid(fid), Zinc::EthAddr(mac)}, intf, type});
    }
    /// Ethernet2 is on a segment, which has a forwarder or not.
    void segmentIs(bool hasForwarder) {
        auto segment = state().evpnStatus->segmentStatusIs(Zinc::IntfId("Ethernet2"));
        if (hasForwarder) {
            segment->dfTepIs(Bridging::VlanId(10), Zinc::IntfId("Mpls1"));
        }
    }

    /// What came of it since the last call.
    Outcome outcome() {
        Outcome seen;
        for (uint32_t number = 0; number < arpSuppressionCounters; ++number) {
            uint64_t count = counters->count(Id(number));
            if (count != counted_[Id(number)]) {
                seen.counters[Id(number)] = count - std::exchange(counted_[Id(number)], count);
            }
        }
        seen.sent = ports.sent(fabric);
        queued.clear();
        while (auto message = queue->messageDeq()) {
            queued.push_back(message);
        }
        seen.queued = queued.size();
        seen.triggered = trigger->trigger() - std::exchange(triggered_, trigger->trigger());
        return seen;
    }
    Outcome outcomeOf(const Request& request) {
        auto message = request.message();
        trap->lastTrappedMessageIs(message);
        auto seen = outcome();
        for (const auto& other : queued) {
            EXPECT_EQ(other, message);
        }
        return seen;
    }
    static Outcome counted(Id id) { return {.counters = {{id, 1}}}; }
    /// Answered to 10.0.0.1, that 10.0.0.2 is at that address.
    static Outcome answered(Id why, const std::string& mac) {
        return {.counters = {{why, 1}},
                .sent = {Testing::fromHex("020000000001" + mac +
                                          "8100 000a 0806"
                                          "0001 0800 06 04 0002" +
                                          mac + "0a000002 020000000001 0a000001")}};
    }
    static Outcome flooded() { return {.counters = {{Id::sentToRemoteTeps, 1}}, .queued = 1}; }
    static Outcome bound(Id why) {
        return {.counters = {{why, 1}, {Id::staticBindingTriggered, 1}}, .triggered = 1};
    }
    Outcome bindingOutcome(const std::string& ip, const std::string& mac, bool onlyUpdate = false,
                           unsigned vlan = 10) {
        sm->maybeCreateStaticBinding(Bridging::VlanId(vlan), Zinc::IpGenAddr(ip),
                                     Zinc::EthAddr(mac), onlyUpdate);
        return outcome();
    }

    /// Of the target: as the kernel learnt it, and as EVPN says. Sender: the switch itself.
    const std::string localMac = "02:00:00:00:00:0a";
    const std::string remoteMac = "02:00:00:00:00:0b";
    const std::string localHex = "02000000000a";
    const std::string remoteHex = "02000000000b";
    const Request ofSwitch{.senderMac = "02:00:00:00:0b:0b"};
    const Request ofVirtualRouter{.senderMac = "02:00:5e:00:01:01"};

    Testing::PacketPorts ports;
    const Vela::Ptr<Quarry::MountGroup> tables = tableService()->mountGroup();
    Vela::Ptr<ArpSuppressionCounterStatus> counters;
    const Vela::Ptr<MessageTrap> trap = Vela::make<MessageTrap>();
    const Vela::Ptr<MessageQueue> queue = Vela::make<MessageQueue>();
    const Vela::Ptr<LocalRequestRecord> record = Vela::make<LocalRequestRecord>(clock());
    const Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus = Vela::make<VlanL3InfoStatus>();
    const Vela::Ptr<Vrf::VrfIdMap::NameToIdMap> vrfNameToIdMap =
        Vela::make<Vrf::VrfIdMap::NameToIdMap>();
    const Vela::Ptr<ArpInputConfigTrigger> trigger = arpInputConfigTriggerFactory();
    Vela::Ptr<ArpSuppressionSm> sm;
    /// What outcome() took out of the queue.
    std::vector<Vela::Ptr<const TrappedMessage>> queued;

  private:
    std::map<Id, uint64_t> counted_;
    uint32_t triggered_ = 0;
};

} // namespace ArpSuppression
