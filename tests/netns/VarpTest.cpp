// Replies to the virtual router, on the interface of a VLAN in the namespace of its VRF. Devices,
// sockets and frames are the kernel's; what the switch is told of them, and the time, the test's.

#include "ArpSuppression/ArpSuppressionAgent.h"
#include "Platform/Base/NetNs.h"
#include "Platform/Packet/Headers.h"
#include "Platform/Packet/NeighborDiscovery.h"
#include "Platform/Packet/PacketSockets.h"
#include "Platform/Trace/Swiftlog.h"
#include "Testing/Eventually.h"
#include "Testing/NamedNetNs.h"
#include "Testing/SwitchDevices.h"
#include "Testing/SwitchFixture.h"

#include <array>
#include <fstream>
#include <map>
#include <net/if.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace Netns {

namespace {

using ArpSuppression::VrfIpAddress;
using Bridging::VlanId;
using Id = ArpSuppression::ArpSuppressionCounterId;
using Moved = std::map<Id, uint64_t>;
using Frame = std::vector<uint8_t>;
using Testing::NamedNetNs;
using Zinc::EthAddr;
using Zinc::IpGenAddr;

const EthAddr virtualMac("02:00:5e:00:01:01");
const EthAddr hostMac("02:00:00:00:00:0a");

/// As hosts send it: padded to what the wire demands.
Frame arpToVirtualRouter(const std::string& senderIp, uint16_t operation = Vela::ArpHdr::reply) {
    Frame frame(60);
    Vela::WireWriter writer(frame);
    Vela::EthHdr{virtualMac, hostMac, Vela::EtherType::arp}.write(writer);
    Vela::ArpHdr arp;
    arp.operation = operation;
    arp.senderMac = hostMac;
    arp.senderIp = IpGenAddr(senderIp).v4();
    arp.targetMac = virtualMac;
    arp.write(writer);
    return frame;
}

Frame advertisementToVirtualRouter(const std::string& src) {
    Frame frame(78);
    Vela::WireWriter writer(frame);
    Vela::EthHdr{virtualMac, hostMac, Vela::EtherType::ipv6}.write(writer);
    Vela::Ip6Hdr ip6;
    ip6.payloadLength = 24;
    ip6.nextHeader = Vela::Ip6Hdr::icmp6;
    ip6.hopLimit = 255;
    ip6.src = IpGenAddr(src);
    ip6.dst = IpGenAddr("2001:db8::ff");
    ip6.write(writer);
    frame[54] = Vela::Icmp6Hdr::neighborAdvertisement;
    frame[62] = 0x20; // the target: a unicast address
    uint16_t checksum = Arp::icmp6Checksum(ip6, std::span(frame).subspan(54));
    frame[56] = static_cast<uint8_t>(checksum >> 8);
    frame[57] = static_cast<uint8_t>(checksum);
    return frame;
}

ino_t where() {
    struct stat status {};
    EXPECT_EQ(stat("/proc/thread-self/ns/net", &status), 0);
    return status.st_ino;
}

/// What has to happen before there is a thread or a file of the switch.
struct OwnNamespaces {
    OwnNamespaces() { Testing::enterOwnNamespaces(); }
};

/// The agent runs. VLAN 20 is routed in VRF "red", which has a namespace of that name, and there is
/// a virtual router.
class NetnsVarpTest : private OwnNamespaces, public Testing::SwitchFixture {
  protected:
    NetnsVarpTest() {
        Vela::Swiftlog::defaultDirectoryIs(directory() + "/log");
        state().tablesCompleteIs();
        state().fhrpVrMacStatus->varpVirtualMacIs(virtualMac);
        state().vrfIdMap->vrfIs(Vrf::VrfId(0), "default");
        state().vrfIdMap->vrfIs(Vrf::VrfId(1), "red");
        state().evpnStatus->mplsConfiguredIs(true);
        start(*agent_);
        state().evpnStatus->vlanToDot1qIs(VlanId(20), Bridging::VlanIdOrNone());
        state().ipStatus->ipIntfStatusIs(Zinc::IntfId("Vlan20"), "red");
        auto local = state().allVrfStatusLocal->vrfIs("red");
        local->networkNamespaceIs("red");
        local->stateIs(Ip::VrfState::active);
        runUntilIdle();
        countersMoved();
    }
    ~NetnsVarpTest() override {
        state().evpnStatus->mplsConfiguredIs(false);
        runUntilIdle();
        agent_->destroy();
        Vela::Swiftlog::close();
    }

    /// Makes the VLAN's interface and a port in a namespace: a bridge, where a macvlan carries the
    /// virtual router's address.
    void deviceIs(const NamedNetNs& netNs, uint32_t index) {
        Vela::NetNsGuard guard(netNs.name());
        // Or else the kernel sends frames of its own.
        std::ofstream("/proc/sys/net/ipv6/conf/default/disable_ipv6") << 1;
        netNs.ip({"link", "add", "Vlan20", "index", std::to_string(index), "type", "bridge"});
        netNs.ip({"link", "add", "et1", "type", "veth", "peer", "name", "far-et1"});
        netNs.ip({"link", "set", "far-et1", "up"});
        netNs.ip({"link", "set", "et1", "master", "Vlan20", "up"});
        netNs.ip({"link", "set", "Vlan20", "up"});
        netNs.ip({"link", "add", "gw20", "link", "Vlan20", "address", virtualMac.toStrep(), "type",
                  "macvlan", "mode", "private"});
        netNs.ip({"link", "set", "gw20", "up"});
        ASSERT_TRUE(forwards(netNs));
    }
    /// The kernel looks at the wire in its own time.
    static bool forwards(const NamedNetNs& netNs) {
        return Testing::eventually([&] {
            return netNs.ip({"-d", "-o", "link", "show", "dev", "et1"}).find("state forwarding") !=
                   std::string::npos;
        });
    }
    void deviceDel(const NamedNetNs& netNs) {
        netNs.ip({"link", "del", "Vlan20"});
        netNs.ip({"link", "del", "et1"});
    }
    void publish(uint32_t index) {
        Testing::deviceIs(state(), "Vlan20", index, "red");
        runUntilIdle();
    }

    static void inject(const NamedNetNs& netNs, const Frame& frame) {
        Vela::NetNsGuard guard(netNs.name());
        Vela::UniqueFd far = Vela::packetSockets().open(0);
        ASSERT_TRUE(far);
        ASSERT_TRUE(Vela::packetSockets().send(far.get(), Vela::EtherType::arp,
                                               if_nametoindex("far-et1"), frame));
    }
    /// What moved since the last call: waits for what is expected, and then for nothing more.
    Moved moved(const Moved& expected) {
        Moved all;
        Testing::eventually([&] {
            runUntilIdle();
            for (auto [id, count] : countersMoved()) {
                all[id] += count;
            }
            return all == expected;
        });
        return all;
    }
    /// The MAC address that an address is bound to; "-" for none.
    std::string macOf(const std::string& ip) {
        auto& root = *agent_->rootSm()->root();
        auto found = root.localBindingRecord()->binding(VrfIpAddress::fromVlanL3Info(
            root.vlanL3InfoStatus()->vlanL3Info(VlanId(20)), IpGenAddr(ip)));
        return found ? found->vlanIdMacAddress().macAddress().toStrep() : "-";
    }
    const Vela::Ptr<ArpSuppression::SafeEthDevPam>& pam() {
        return agent_->rootSm()->bindingDiscoverySm()->varpReplyV4Sm(VlanId(20))->arpReplyRxPam();
    }

    const NamedNetNs red{"red"};

    static Moved learnt() {
        return {{Id::varpArpExtraData, 1}, {Id::varpArpAccepted, 1}, {Id::bindingCreated, 1}};
    }

  private:
    Moved countersMoved() {
        Moved moved;
        const auto& status = *agent_->mounts()->arpSuppressionCounterStatus();
        for (uint32_t number = 0; number < ArpSuppression::arpSuppressionCounters; ++number) {
            uint64_t count = status.count(Id(number));
            if (count != counters_[number]) {
                moved[Id(number)] = count - counters_[number];
                counters_[number] = count;
            }
        }
        return moved;
    }

    Vela::Ptr<ArpSuppression::ArpSuppressionAgent> agent_ =
        ArpSuppression::arpSuppressionAgentFactory("ArpSuppression");
    std::array<uint64_t, ArpSuppression::arpSuppressionCounters> counters_{};
};

TEST_F(NetnsVarpTest, repliesOfPaddedLengthAreLearntInTheVrfsNamespace) {
    NamedNetNs blue("blue");
    deviceIs(red, 77);
    deviceIs(blue, 77); // the same name and index, in the wrong place
    ino_t before = where();
    publish(77);
    EXPECT_EQ(where(), before);
    ASSERT_TRUE(pam());
    EXPECT_TRUE(pam()->enabled());
    EXPECT_EQ(pam()->netNs(), "red");
    inject(blue, arpToVirtualRouter("10.0.20.2"));
    inject(red, arpToVirtualRouter("10.0.20.1"));
    EXPECT_EQ(moved(learnt()), learnt());
    EXPECT_EQ(macOf("10.0.20.1"), hostMac.toStrep());
    EXPECT_EQ(macOf("10.0.20.2"), "-");
    inject(red, arpToVirtualRouter("10.0.20.3", Vela::ArpHdr::request));
    Moved request = {{Id::varpArpNotReply, 1}};
    EXPECT_EQ(moved(request), request);
    inject(red, advertisementToVirtualRouter("2001:db8::1"));
    Moved advertisement = {{Id::varpNaAccepted, 1}, {Id::bindingCreated, 1}};
    EXPECT_EQ(moved(advertisement), advertisement);
    EXPECT_EQ(macOf("2001:db8::1"), hostMac.toStrep());
}

TEST_F(NetnsVarpTest, aDeviceThatAppearsSecondsLaterIsListenedToAtTheNextRetry) {
    publish(77); // the switch has heard of it before the namespace has it
    runFor(7);
    ASSERT_TRUE(pam());
    EXPECT_FALSE(pam()->enabled());
    deviceIs(red, 77);
    inject(red, arpToVirtualRouter("10.0.20.1"));
    runFor(2.5);
    EXPECT_FALSE(pam()->enabled());
    runFor(0.5);
    EXPECT_TRUE(pam()->enabled());
    EXPECT_EQ(pam()->ifIndex(), 77u);
    EXPECT_EQ(macOf("10.0.20.1"), "-") << "nobody listened then";
    inject(red, arpToVirtualRouter("10.0.20.1"));
    EXPECT_EQ(moved(learnt()), learnt());
    EXPECT_EQ(macOf("10.0.20.1"), hostMac.toStrep());
}

TEST_F(NetnsVarpTest, aDeviceMadeAnewWithAnotherIndexIsListenedTo) {
    deviceIs(red, 77);
    publish(77);
    ASSERT_EQ(pam()->ifIndex(), 77u);
    deviceDel(red);
    deviceIs(red, 78);
    publish(78); // both changes at once
    EXPECT_EQ(pam()->ifIndex(), 78u);
    inject(red, arpToVirtualRouter("10.0.20.1"));
    EXPECT_EQ(moved(learnt()), learnt());
    deviceDel(red);
    publish(0);
    EXPECT_FALSE(pam());
    deviceIs(red, 79);
    publish(79);
    EXPECT_EQ(pam()->ifIndex(), 79u);
    inject(red, arpToVirtualRouter("10.0.20.2"));
    EXPECT_EQ(moved(learnt()), learnt());
    EXPECT_EQ(macOf("10.0.20.2"), hostMac.toStrep());
}

TEST_F(NetnsVarpTest, aDeviceThatWasDownIsListenedToOnceItIsUp) {
    auto up = [this] {
        red.ip({"link", "set", "Vlan20", "up"});
        red.ip({"link", "set", "gw20", "up"});
        return forwards(red);
    };
    deviceIs(red, 77);
    red.ip({"link", "set", "Vlan20", "down"});
    publish(77);
    ASSERT_TRUE(pam());
    EXPECT_FALSE(pam()->enabled());
    ASSERT_TRUE(up());
    runFor(5);
    EXPECT_TRUE(pam()->enabled());
    inject(red, arpToVirtualRouter("10.0.20.1"));
    EXPECT_EQ(moved(learnt()), learnt());
    // And again, with frames in front of the news.
    inject(red, arpToVirtualRouter("10.0.20.2"));
    red.ip({"link", "set", "Vlan20", "down"});
    EXPECT_EQ(moved(learnt()), learnt());
    EXPECT_FALSE(pam()->enabled());
    ASSERT_TRUE(up());
    runFor(5);
    inject(red, arpToVirtualRouter("10.0.20.3"));
    EXPECT_EQ(moved(learnt()), learnt());
    EXPECT_EQ(macOf("10.0.20.3"), hostMac.toStrep());
}

TEST_F(NetnsVarpTest, aDeviceMadeAnewWithTheSameIndexIsListenedTo) {
    deviceIs(red, 77);
    publish(77);
    ASSERT_TRUE(pam()->enabled());
    deviceDel(red);
    deviceIs(red, 77); // of which nobody is told
    runUntilIdle();
    EXPECT_TRUE(pam()->enabled());
    inject(red, arpToVirtualRouter("10.0.20.1"));
    EXPECT_EQ(moved(learnt()), learnt());
    deviceDel(red);
    runFor(7);
    EXPECT_FALSE(pam()->enabled());
    deviceIs(red, 77);
    runFor(3);
    inject(red, arpToVirtualRouter("10.0.20.2"));
    EXPECT_EQ(moved(learnt()), learnt());
    EXPECT_EQ(macOf("10.0.20.2"), hostMac.toStrep());
}

TEST_F(NetnsVarpTest, nobodyListensWithoutAVirtualRouter) {
    deviceIs(red, 77);
    publish(77);
    state().fhrpVrMacStatus->varpVirtualMacIs(EthAddr());
    inject(red, arpToVirtualRouter("10.0.20.1"));
    runUntilIdle();
    state().fhrpVrMacStatus->varpVirtualMacIs(virtualMac);
    runUntilIdle();
    inject(red, arpToVirtualRouter("10.0.20.2"));
    EXPECT_EQ(moved(learnt()), learnt());
    EXPECT_EQ(macOf("10.0.20.1"), "-");
}

} // namespace

} // namespace Netns
