#include "Linux/DevicePublisher.h"

#include "Linux/test/DeviceBytes.h"
#include "Platform/State/DumpContext.h"
#include "Testing/SwitchFixture.h"
#include "Testing/TraceCapture.h"

#include <linux/if_addr.h>
#include <net/if.h>

namespace Linux {
namespace {

using Bridging::VlanId;
using Zinc::EthAddr;
using Zinc::IntfId;
using Zinc::IpGenAddr;

const VlanId vlan10(10);
const VlanId vlan20(20);

/// The test speaks as the kernel does, of the program's own namespace unless it says otherwise.
class DevicePublisherTest : public Testing::SwitchFixture {
  protected:
    DevicePublisherTest() {
        configuration_.vrfs = {{"default", Vrf::VrfId(0), "default"},
                               {"blue", Vrf::VrfId(1), "ns-blue"},
                               {"red", Vrf::VrfId(2), "default"}};
        topology_ = Vela::make<Topology>();
        publisher_ = Vela::make<DevicePublisher>(
            scheduler(), state(), topology_,
            DevicePublisher::Questions{[this](const std::string& netNs) {
                                           EXPECT_EQ(netNs, "ns-blue")
                                               << "the program's own needs no number";
                                           return ownNetNsId_;
                                       },
                                       [this](const std::string& netNs, uint32_t ifIndex) {
                                           asked_.emplace_back(netNs, ifIndex);
                                       }});
        publisher_->configurationIs(configuration_);
        publisher_->netNsIs("default");
    }
    ~DevicePublisherTest() override {
        publisher_->destroy();
        topology_->destroy();
    }

    void publish() {
        publisher_->publish();
        runUntilIdle();
        ASSERT_TRUE(publisher_->settled());
    }
    void tell(const LinkSpecimen& link, const std::string& netNs = "default") {
        publisher_->links(netNs).message(link.bytes().header());
    }
    void tell(const AddressSpecimen& address, const std::string& netNs = "default") {
        publisher_->addresses(netNs).message(address.bytes().header());
    }
    void gone(uint32_t ifIndex, const std::string& netNs = "default") {
        tell(LinkSpecimen{.ifIndex = ifIndex, .removed = true}, netNs);
    }
    /// VLAN 10 with its bridge (10), a port (1) and a tunnel (3).
    void tellVlan10() {
        tell(LinkSpecimen{.ifIndex = 10, .name = "Vlan10", .kind = "bridge"});
        tell(LinkSpecimen{.ifIndex = 1,
                          .name = "et1",
                          .kind = "veth",
                          .master = 10,
                          .link = 99,
                          .linkNetNsId = 4});
        tell(LinkSpecimen{.ifIndex = 3, .name = "vx10", .kind = "vxlan", .master = 10});
    }

    IntfId portIntf(uint32_t ifIndex) { return topology_->bridgePort(ifIndex).intfId; }
    KernelNetInfo::InterfaceStatus kernelInterface(uint32_t ifIndex,
                                                   const std::string& netNs = "default") {
        return state().kernelNetInfoIs(netNs)->interfaceCollection().value({ifIndex});
    }
    bool served(VlanId vlanId) { return state().evpnStatus->vlanToDot1qCollection().has(vlanId); }
    Vela::Ptr<Ip::IpIntfStatus> ipv4(const std::string& name) {
        return state().ipStatus->ipIntfStatus(IntfId(name));
    }
    std::string vrfOf(const std::string& name) {
        auto status = state().ip6Status->intf(IntfId(name));
        return status ? status->vrfName().bytes() : "";
    }

    LinuxConfiguration configuration_;
    Vela::Ptr<Topology> topology_;
    Vela::Ptr<DevicePublisher> publisher_;
    std::optional<int32_t> ownNetNsId_;
    std::vector<std::pair<std::string, uint32_t>> asked_;
};

TEST_F(DevicePublisherTest, NothingIsPublishedBeforeAllIsKnown) {
    tellVlan10();
    runUntilIdle();
    EXPECT_FALSE(publisher_->settled());
    EXPECT_EQ(topology_->vlanBridgeCollection().count(), 0u);
    EXPECT_EQ(state().allIntfStatusDir->intfStatusCollection().count(), 0u);
    EXPECT_EQ(state().allVrfStatusLocal->vrfCollection().count(), 0u);
    EXPECT_FALSE(served(vlan10));
    EXPECT_EQ(kernelInterface(1).deviceName(), "et1"); // a plain copy of the kernel's
    publish();
    EXPECT_EQ(topology_->vlanBridge(vlan10).ifIndex, 10u);
    EXPECT_TRUE(served(vlan10));
    EXPECT_EQ(portIntf(1), IntfId("et1"));
    EXPECT_TRUE(topology_->bridgePort(3).tunnel);
    EXPECT_FALSE(topology_->bridgePort(1).tunnel);
    EXPECT_EQ(state().allIntfStatusDir->intfStatusCollection().count(), 3u);
}

TEST_F(DevicePublisherTest, FlagsAndMacAddresses) {
    publish();
    tell(LinkSpecimen{.ifIndex = 1, .name = "et1", .flags = IFF_UP});
    EXPECT_FALSE(kernelInterface(1).running());
    tell(LinkSpecimen{.ifIndex = 1,
                      .name = "et1",
                      .macAddress = "02:00:00:00:00:09",
                      .flags = IFF_UP | IFF_RUNNING});
    EXPECT_TRUE(kernelInterface(1).running());
    EXPECT_EQ(kernelInterface(1).macAddress, EthAddr("02:00:00:00:00:09"));
    gone(1);
    EXPECT_EQ(kernelInterface(1).key.value, 0u);
    EXPECT_FALSE(state().allIntfStatusDir->intfStatus(IntfId("et1")));
    gone(1); // twice, and of what was never there
    gone(77);
}

TEST_F(DevicePublisherTest, ARenameIsAnotherInterface) {
    tellVlan10();
    publish();
    tell(LinkSpecimen{
        .ifIndex = 1, .name = "et2", .kind = "veth", .master = 10, .link = 99, .linkNetNsId = 4});
    EXPECT_FALSE(state().allIntfStatusDir->intfStatus(IntfId("et1")));
    EXPECT_TRUE(state().allIntfStatusDir->intfStatus(IntfId("et2")));
    EXPECT_EQ(portIntf(1), IntfId("et2"));
    // The bridge of another VLAN now, with the same ports.
    tell(LinkSpecimen{.ifIndex = 10, .name = "Vlan20", .kind = "bridge"});
    EXPECT_FALSE(served(vlan10));
    EXPECT_TRUE(served(vlan20));
    EXPECT_EQ(topology_->vlanBridge(vlan10).ifIndex, 0u);
    EXPECT_EQ(topology_->vlanBridge(vlan20).ifIndex, 10u);
    EXPECT_EQ(topology_->bridgePort(1).vlanId, vlan20);
    EXPECT_EQ(topology_->routedDevice({"default", 10}).vlanId, vlan20);
    EXPECT_EQ(vrfOf("Vlan10"), "");
    EXPECT_EQ(vrfOf("Vlan20"), "default");
    tell(LinkSpecimen{.ifIndex = 10, .name = "lan", .kind = "bridge"});
    EXPECT_FALSE(served(vlan20));
    EXPECT_FALSE(portIntf(1));
    EXPECT_EQ(topology_->routedDeviceCollection().count(), 0u);
}

TEST_F(DevicePublisherTest, AnIndexThatIsUsedAgain) {
    tellVlan10();
    publish();
    gone(1);
    EXPECT_FALSE(portIntf(1));
    tell(LinkSpecimen{.ifIndex = 1, .name = "other", .kind = "vxlan", .master = 10});
    EXPECT_TRUE(topology_->bridgePort(1).tunnel);
    // Or without a word of the first one's end, which was lost.
    tell(LinkSpecimen{.ifIndex = 1, .name = "third"});
    EXPECT_FALSE(portIntf(1));
    EXPECT_FALSE(state().allIntfStatusDir->intfStatus(IntfId("other")));
    EXPECT_EQ(kernelInterface(1).deviceName(), "third");
    // A device that is made anew has another index and the old name.
    tell(LinkSpecimen{.ifIndex = 5, .name = "third"});
    gone(1);
    EXPECT_TRUE(state().allIntfStatusDir->intfStatus(IntfId("third")));
}

TEST_F(DevicePublisherTest, APortMovesBetweenBridgesInOneStep) {
    tellVlan10();
    tell(LinkSpecimen{.ifIndex = 20, .name = "Vlan20", .kind = "bridge"});
    publish();
    int announced = 0;
    auto reaction = topology_->bridgePortCollection().react(nullptr, [&](uint32_t ifIndex) {
        EXPECT_EQ(ifIndex, 3u);
        ++announced;
    });
    tell(LinkSpecimen{.ifIndex = 3, .name = "vx10", .kind = "vxlan", .master = 20});
    EXPECT_EQ(announced, 1);
    EXPECT_EQ(topology_->bridgePort(3).vlanId, vlan20);
    EXPECT_FALSE(served(vlan10));
    EXPECT_TRUE(served(vlan20));
    // The bridge goes before its port is told to be free.
    gone(20);
    EXPECT_FALSE(served(vlan20));
    EXPECT_EQ(announced, 2);
    EXPECT_FALSE(portIntf(3));
    tell(LinkSpecimen{.ifIndex = 3, .name = "vx10", .kind = "vxlan"});
    EXPECT_EQ(announced, 2);
}

TEST_F(DevicePublisherTest, ConfiguredNamesSegmentsBridgesAndNumbers) {
    configuration_.interfaces[{"default", "et1"}] = "Ethernet1";
    configuration_.segments = {"Ethernet1", "vx10"};
    configuration_.bridges[vlan10] = "lan";
    configuration_.dot1q[vlan10] = VlanId(100);
    tellVlan10();
    publish();
    EXPECT_EQ(portIntf(1), IntfId("et1"));
    publisher_->configurationIs(configuration_);
    EXPECT_FALSE(publisher_->settled());
    runUntilIdle();
    EXPECT_TRUE(publisher_->settled());
    EXPECT_FALSE(portIntf(1)); // Vlan10 is the bridge of no VLAN any more
    EXPECT_FALSE(state().allIntfStatusDir->intfStatus(IntfId("et1")));
    EXPECT_EQ(state().allIntfStatusDir->intfStatus(IntfId("Ethernet1"))->deviceName(), "et1");
    tell(LinkSpecimen{.ifIndex = 10, .name = "lan", .kind = "bridge"});
    EXPECT_EQ(
        topology_->bridgePort(1),
        (BridgePort{.vlanId = vlan10, .intfId = IntfId("Ethernet1"), .ethernetSegment = true}));
    EXPECT_FALSE(topology_->bridgePort(3).ethernetSegment);
    EXPECT_EQ(state().evpnStatus->vlanToDot1qCollection().value(vlan10), VlanId(100));
    EXPECT_EQ(topology_->routedDeviceCollection().count(), 0u); // it is not named Vlan10
}

TEST_F(DevicePublisherTest, ARoutedInterfaceInAnotherNamespaceIsTheOtherEndOfAPort) {
    configuration_.bridges[vlan10] = "br10";
    publisher_->configurationIs(configuration_);
    publish();
    tell(LinkSpecimen{.ifIndex = 10, .name = "br10", .kind = "bridge"});
    tell(LinkSpecimen{
        .ifIndex = 4, .name = "p10", .kind = "veth", .master = 10, .link = 2, .linkNetNsId = 0});
    publisher_->netNsIs("ns-blue");
    EXPECT_EQ(state().allVrfStatusLocal->vrf("blue")->state(), Ip::VrfState::active);
    ownNetNsId_ = 3;
    // Told before the kernel has put the ends together.
    asked_.clear();
    tell(LinkSpecimen{.ifIndex = 2, .name = "Vlan10", .kind = "veth"}, "ns-blue");
    EXPECT_EQ(asked_, (std::vector<std::pair<std::string, uint32_t>>{{"ns-blue", 2}}));
    EXPECT_EQ(vrfOf("Vlan10"), "");
    tell(LinkSpecimen{.ifIndex = 2, .name = "Vlan10", .kind = "veth", .link = 4, .linkNetNsId = 3},
         "ns-blue");
    EXPECT_EQ(vrfOf("Vlan10"), "blue");
    EXPECT_TRUE(topology_->bridgePort(4).routed);
    EXPECT_EQ(topology_->routedDevice({"ns-blue", 2}),
              (RoutedDevice{vlan10, IntfId("Vlan10"), Vrf::VrfId(1)}));
    EXPECT_EQ(state().allIntfStatusLocalDir->intfStatusLocal(IntfId("Vlan10"))->netNs(), "ns-blue");
    // The other end in a namespace that is not the program's.
    tell(LinkSpecimen{.ifIndex = 2, .name = "Vlan10", .kind = "veth", .link = 4, .linkNetNsId = 5},
         "ns-blue");
    EXPECT_EQ(vrfOf("Vlan10"), "");
    EXPECT_FALSE(topology_->bridgePort(4).routed);
    tell(LinkSpecimen{.ifIndex = 2, .name = "Vlan10", .kind = "veth", .link = 4, .linkNetNsId = 3},
         "ns-blue");
    tell(LinkSpecimen{.ifIndex = 7,
                      .name = "gw",
                      .kind = "macvlan",
                      .macAddress = "02:00:5e:00:01:01",
                      .link = 2},
         "ns-blue");
    EXPECT_TRUE(topology_->routedDevice({"ns-blue", 7}).macvlan);
    EXPECT_EQ(state().fhrpVrMacStatus->varpVirtualMac(), EthAddr("02:00:5e:00:01:01"));

    auto vrf = state().allVrfStatusLocal->vrf("blue");
    publisher_->netNsDel("ns-blue");
    EXPECT_TRUE(vrf->destroyed());
    EXPECT_FALSE(publisher_->settled());
    runUntilIdle();
    EXPECT_TRUE(publisher_->settled());
    EXPECT_EQ(vrfOf("Vlan10"), "");
    EXPECT_EQ(topology_->routedDeviceCollection().count(), 0u);
    EXPECT_FALSE(topology_->bridgePort(4).routed);
    EXPECT_EQ(portIntf(4), IntfId("p10"));
    EXPECT_EQ(kernelInterface(2, "ns-blue").key.value, 0u);
    publisher_->netNsIs("ns-blue");
    EXPECT_NE(state().allVrfStatusLocal->vrf("blue"), vrf);
}

TEST_F(DevicePublisherTest, AVrfDeviceIsAVrfInItsNamespace) {
    tellVlan10();
    publish();
    EXPECT_FALSE(state().allVrfStatusLocal->vrf("red"));
    tell(LinkSpecimen{.ifIndex = 50, .name = "red", .kind = "vrf"});
    auto red = state().allVrfStatusLocal->vrf("red");
    ASSERT_TRUE(red);
    EXPECT_EQ(red->networkNamespace(), "default");
    EXPECT_EQ(vrfOf("Vlan10"), "default");
    tell(LinkSpecimen{.ifIndex = 10, .name = "Vlan10", .kind = "bridge", .master = 50});
    EXPECT_EQ(vrfOf("Vlan10"), "red");
    EXPECT_EQ(topology_->routedDevice({"default", 10}).vrfId, Vrf::VrfId(2));
    // A device of a name that is no configured VRF's is none, nor is its member's interface routed.
    tell(LinkSpecimen{.ifIndex = 51, .name = "green", .kind = "vrf"});
    EXPECT_FALSE(state().allVrfStatusLocal->vrf("green"));
    tell(LinkSpecimen{.ifIndex = 10, .name = "Vlan10", .kind = "bridge", .master = 51});
    EXPECT_EQ(vrfOf("Vlan10"), "");
    EXPECT_EQ(topology_->routedDeviceCollection().count(), 0u);
    tell(LinkSpecimen{.ifIndex = 51, .name = "green2", .kind = "vrf"});
    tell(LinkSpecimen{.ifIndex = 10, .name = "Vlan10", .kind = "bridge", .master = 50});
    EXPECT_EQ(vrfOf("Vlan10"), "red");
    gone(50);
    EXPECT_TRUE(red->destroyed());
    EXPECT_EQ(vrfOf("Vlan10"), "default"); // until the kernel says what it is now
}

TEST_F(DevicePublisherTest, AVrfMovesToAnotherNamespaceAsAnotherOne) {
    publish();
    publisher_->netNsIs("ns-blue");
    publisher_->netNsIs("ns-other");
    auto before = state().allVrfStatusLocal->vrf("blue");
    configuration_.vrfs[1].netNs = "ns-other";
    publisher_->configurationIs(configuration_);
    EXPECT_TRUE(before->destroyed());
    EXPECT_EQ(state().allVrfStatusLocal->vrf("blue")->networkNamespace(), "ns-other");
    auto after = state().allVrfStatusLocal->vrf("blue");
    publisher_->configurationIs(configuration_);
    EXPECT_EQ(state().allVrfStatusLocal->vrf("blue"), after);
    runUntilIdle();
}

TEST_F(DevicePublisherTest, AddressesAreThoseOfTheKernelInItsOrder) {
    tellVlan10();
    publish();
    tell(AddressSpecimen{.ifIndex = 10, .address = "10.0.0.1"});
    tell(AddressSpecimen{.ifIndex = 10, .address = "10.0.0.2", .flags = IFA_F_SECONDARY});
    tell(AddressSpecimen{.ifIndex = 10, .address = "10.9.0.1"}); // primary of another network
    tell(AddressSpecimen{.ifIndex = 10, .address = "2001:db8::1", .prefixLen = 64});
    tell(AddressSpecimen{
        .ifIndex = 10, .address = "2001:db8::2", .prefixLen = 64, .flags = IFA_F_DADFAILED});
    auto status = ipv4("Vlan10");
    ASSERT_TRUE(status);
    EXPECT_EQ(status->activeAddrWithMask(), Ip::AddrWithMask(IpGenAddr("10.0.0.1"), 24));
    EXPECT_EQ(status->activeSecondaryWithMaskCollection().count(), 2u);
    auto ipv6 = state().ip6Status->intf(IntfId("Vlan10"));
    EXPECT_EQ(ipv6->addrCollection().count(), 1u);
    EXPECT_TRUE(ipv6->addrCollection().has({IpGenAddr("2001:db8::1"), 64}));

    // The kernel promotes the secondary one, which stands behind the other network's primary.
    tell(AddressSpecimen{.ifIndex = 10, .address = "10.0.0.1", .removed = true});
    EXPECT_EQ(status->activeAddrWithMask().address(), IpGenAddr("10.9.0.1"));
    tell(AddressSpecimen{.ifIndex = 10, .address = "10.9.0.1", .removed = true});
    EXPECT_TRUE(status->activeAddrWithMask().isZero());
    EXPECT_EQ(ipv4("Vlan10"), status);
    tell(AddressSpecimen{.ifIndex = 10, .address = "10.0.0.2"});
    EXPECT_EQ(status->activeAddrWithMask().address(), IpGenAddr("10.0.0.2"));
    EXPECT_EQ(status->activeSecondaryWithMaskCollection().count(), 0u);
    tell(AddressSpecimen{.ifIndex = 10, .address = "10.0.0.2", .removed = true});
    EXPECT_FALSE(ipv4("Vlan10"));
    EXPECT_EQ(vrfOf("Vlan10"), "default");
    // A port is routed only with an address.
    EXPECT_EQ(vrfOf("et1"), "");
    tell(AddressSpecimen{.ifIndex = 1, .address = "10.1.0.1"});
    EXPECT_EQ(vrfOf("et1"), "default");
    EXPECT_TRUE(ipv4("et1"));
}

TEST_F(DevicePublisherTest, AResyncSweepsWhatIsGoneAndKeepsWhatIsNewer) {
    tellVlan10();
    publish();
    tell(AddressSpecimen{.ifIndex = 10, .address = "10.0.0.1"});
    tell(AddressSpecimen{.ifIndex = 10, .address = "10.0.1.1"});
    auto& links = publisher_->links("default");
    auto& addresses = publisher_->addresses("default");
    links.resyncStarted();
    tell(LinkSpecimen{.ifIndex = 10, .name = "Vlan10", .kind = "bridge", .dumped = true});
    gone(1);
    tell(LinkSpecimen{
        .ifIndex = 1, .name = "et1", .kind = "veth", .master = 10, .dumped = true}); // older
    tell(LinkSpecimen{.ifIndex = 8, .name = "new"});
    // What was dumped so far is lost.
    links.resyncStarted();
    tell(LinkSpecimen{.ifIndex = 10, .name = "Vlan10", .kind = "bridge", .dumped = true});
    tell(LinkSpecimen{.ifIndex = 8, .name = "new", .dumped = true});
    tell(LinkSpecimen{.ifIndex = 9, .name = "newer"});
    EXPECT_TRUE(served(vlan10));
    links.resyncFinished();
    EXPECT_FALSE(publisher_->settled()) << "there may be thousands";
    runUntilIdle();
    EXPECT_TRUE(publisher_->settled());
    EXPECT_FALSE(served(vlan10));
    EXPECT_FALSE(state().allIntfStatusDir->intfStatus(IntfId("et1")));
    EXPECT_EQ(kernelInterface(3).key.value, 0u);
    EXPECT_TRUE(state().allIntfStatusDir->intfStatus(IntfId("new")));
    EXPECT_TRUE(state().allIntfStatusDir->intfStatus(IntfId("newer")));

    addresses.resyncStarted();
    tell(AddressSpecimen{.ifIndex = 10, .address = "10.0.3.1", .dumped = true});
    tell(AddressSpecimen{.ifIndex = 10, .address = "10.0.1.1", .removed = true});
    tell(AddressSpecimen{.ifIndex = 10, .address = "10.0.1.1", .dumped = true}); // older
    tell(AddressSpecimen{.ifIndex = 10, .address = "10.0.2.1"});
    addresses.resyncFinished();
    EXPECT_FALSE(publisher_->settled());
    runUntilIdle();
    auto status = ipv4("Vlan10");
    ASSERT_TRUE(status);
    EXPECT_EQ(status->activeAddrWithMask().address(), IpGenAddr("10.0.3.1"));
    EXPECT_EQ(status->activeSecondaryWithMaskCollection().count(), 1u);
    EXPECT_TRUE(status->activeSecondaryWithMaskCollection().has({IpGenAddr("10.0.2.1"), 24}));
    addresses.resyncStarted();
    addresses.resyncFinished();
    runUntilIdle();
    EXPECT_FALSE(ipv4("Vlan10"));
}

TEST_F(DevicePublisherTest, TheSwitchHasTheMacAddressOfItsFirstRoutedInterface) {
    Testing::TraceCapture trace("LinuxVlans=0");
    tell(LinkSpecimen{
        .ifIndex = 20, .name = "Vlan20", .kind = "bridge", .macAddress = "02:00:00:00:00:20"});
    publish();
    EXPECT_EQ(state().bridgingConfig->bridgeMacAddr(), EthAddr("02:00:00:00:00:20"));
    EXPECT_FALSE(trace.contains("MAC address"));
    tell(LinkSpecimen{
        .ifIndex = 10, .name = "Vlan10", .kind = "bridge", .macAddress = "02:00:00:00:00:10"});
    EXPECT_EQ(state().bridgingConfig->bridgeMacAddr(), EthAddr("02:00:00:00:00:10"));
    auto reported = [&] { return trace.count("has the MAC address"); };
    EXPECT_EQ(reported(), 1u) << trace.text();
    tell(LinkSpecimen{.ifIndex = 20,
                      .name = "Vlan20",
                      .kind = "bridge",
                      .macAddress = "02:00:00:00:00:20",
                      .flags = IFF_UP});
    EXPECT_EQ(reported(), 1u);
    Vela::DumpContext dump;
    publisher_->dumpState(dump, 0);
    EXPECT_NE(dump.text().find("Vlan20 has the MAC address 02:00:00:00:00:20"), std::string::npos)
        << dump.text();
    tell(LinkSpecimen{
        .ifIndex = 20, .name = "Vlan20", .kind = "bridge", .macAddress = "02:00:00:00:00:10"});
    EXPECT_EQ(reported(), 1u);
    tell(LinkSpecimen{
        .ifIndex = 20, .name = "Vlan20", .kind = "bridge", .macAddress = "02:00:00:00:00:20"});
    EXPECT_EQ(reported(), 2u);

    configuration_.bridgeMac = EthAddr("02:00:00:00:00:20");
    configuration_.varpMac = EthAddr("02:00:5e:00:01:02");
    publisher_->configurationIs(configuration_);
    runUntilIdle();
    EXPECT_EQ(state().bridgingConfig->bridgeMacAddr(), EthAddr("02:00:00:00:00:20"));
    EXPECT_EQ(state().fhrpVrMacStatus->varpVirtualMac(), EthAddr("02:00:5e:00:01:02"));
    EXPECT_EQ(reported(), 3u) << "Vlan10 is the one that differs now";
}

TEST_F(DevicePublisherTest, AVlansVrfMayBeGiven) {
    configuration_.vlanVrfs[vlan10] = "blue";
    publisher_->configurationIs(configuration_);
    tellVlan10();
    publish();
    EXPECT_TRUE(served(vlan10));
    EXPECT_EQ(vrfOf("Vlan10"), "") << "the bridge is in another VRF";
    EXPECT_EQ(topology_->routedDeviceCollection().count(), 0u);
}

} // namespace
} // namespace Linux
