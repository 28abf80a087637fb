// Devices, addresses and namespaces of the real kernel as the switch's models.

#include "Linux/KernelSwitch.h"
#include "Platform/State/DumpContext.h"
#include "Testing/IpCommand.h"
#include "Testing/NamedNetNs.h"
#include "Testing/TraceCapture.h"
#include "tests/netns/Kernel.h"

#include <chrono>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <net/if.h>
#include <string>
#include <sys/mount.h>

namespace Netns {
namespace {

using Bridging::VlanId;
using Zinc::EthAddr;
using Zinc::IntfId;
using Zinc::IpGenAddr;

const VlanId vlan10(10);
const VlanId vlan30(30);
const std::string switchMac = "02:00:00:00:0b:0b";

class KernelSwitchTest : public LiveKernelFixture {
  protected:
    KernelSwitchTest() {
        configuration_.vrfs = {{"default", Vrf::VrfId(0), "default"},
                               {"blue", Vrf::VrfId(1), "ns-blue"}};
        configuration_.bridges[vlan30] = "br30";
    }
    ~KernelSwitchTest() override {
        if (switch_) {
            switch_->destroy();
        }
    }

    /// Until everything that there is is published.
    void start() {
        switch_ = Vela::make<Linux::KernelSwitch>(live().scheduler(), state(), configuration_);
        EXPECT_FALSE(state().arpStatus->complete());
        ASSERT_TRUE(live().turnUntil([this] { return switch_->complete(); }));
        EXPECT_TRUE(state().arpStatus->complete());
        EXPECT_TRUE(state().remoteBindingConfig->complete());
        EXPECT_TRUE(live().turnUntilIdle());
    }
    bool until(const std::function<bool()>& condition) { return live().turnUntil(condition); }

    static void bridgeIs(const std::string& name, const std::string& mac = switchMac) {
        ip("link add " + name + " address " + mac + " type bridge");
        ip("link set " + name + " up");
    }
    static void portIs(const std::string& name, const std::string& bridge) {
        ip("link add " + name + " type veth peer name far-" + name);
        ip("link set " + name + " master " + bridge);
    }
    static void tunnelIs(const std::string& name, const std::string& bridge, int vni) {
        ip("link add " + name + " type vxlan id " + std::to_string(vni) +
           " dstport 4789 local 192.0.2.1");
        ip("link set " + name + " master " + bridge);
    }
    static uint32_t indexOf(const std::string& name) { return if_nametoindex(name.c_str()); }

    const Linux::Topology& topology() { return *switch_->topology(); }
    Linux::BridgePort port(const std::string& name) { return topology().bridgePort(indexOf(name)); }
    KernelNetInfo::InterfaceStatus kernelInterface(uint32_t ifIndex,
                                                   const std::string& netNs = "default") {
        return state().kernelNetInfoIs(netNs)->interfaceCollection().value({ifIndex});
    }
    bool served(VlanId vlanId) { return state().evpnStatus->vlanToDot1qCollection().has(vlanId); }

    Linux::LinuxConfiguration configuration_;
    Vela::Ptr<Linux::KernelSwitch> switch_;
};

TEST_F(KernelSwitchTest, whatIsThereAtTheStartIsPublishedBeforeTablesAreComplete) {
    bridgeIs("Vlan10");
    portIs("et1", "Vlan10");
    tunnelIs("vx10", "Vlan10", 10);
    ip("addr add 10.0.0.1/24 dev Vlan10");
    ip("addr add 10.0.0.2/24 dev Vlan10");
    ip("addr add 2001:db8::1/64 dev Vlan10");
    start();

    EXPECT_EQ(topology().vlanBridge(vlan10),
              (Linux::VlanBridge{indexOf("Vlan10"), EthAddr(switchMac)}));
    EXPECT_EQ(port("et1"), (Linux::BridgePort{vlan10, IntfId("et1")}));
    EXPECT_EQ(port("vx10"), (Linux::BridgePort{vlan10, IntfId("vx10"), true}));
    EXPECT_EQ(topology().routedDevice({"default", indexOf("Vlan10")}),
              (Linux::RoutedDevice{vlan10, IntfId("Vlan10"), Vrf::VrfId(0)}));
    EXPECT_TRUE(served(vlan10));
    EXPECT_EQ(state().evpnStatus->vlanToDot1qCollection().count(), 1u);
    EXPECT_EQ(state().bridgingConfig->bridgeMacAddr(), EthAddr(switchMac));

    auto ipv4 = state().ipStatus->ipIntfStatus(IntfId("Vlan10"));
    ASSERT_TRUE(ipv4);
    EXPECT_EQ(ipv4->vrfName(), "default");
    EXPECT_EQ(ipv4->activeAddrWithMask(), Ip::AddrWithMask(IpGenAddr("10.0.0.1"), 24));
    EXPECT_TRUE(ipv4->activeSecondaryWithMaskCollection().has({IpGenAddr("10.0.0.2"), 24}));
    auto ipv6 = state().ip6Status->intf(IntfId("Vlan10"));
    ASSERT_TRUE(ipv6);
    EXPECT_TRUE(ipv6->addrCollection().has({IpGenAddr("2001:db8::1"), 64}));

    auto kernel = kernelInterface(indexOf("et1"));
    EXPECT_EQ(kernel.deviceName(), "et1");
    ASSERT_TRUE(state().allIntfStatusDir->intfStatus(IntfId("et1")));
    EXPECT_EQ(state().allIntfStatusLocalDir->intfStatusLocal(IntfId("et1"))->netNs(), "default");
    ASSERT_TRUE(state().allVrfStatusLocal->vrf("default"));
    EXPECT_EQ(state().allVrfStatusLocal->vrf("default")->state(), Ip::VrfState::active);
    EXPECT_FALSE(state().allVrfStatusLocal->vrf("blue"));
}

TEST_F(KernelSwitchTest, devicesAppearChangeAndVanish) {
    start();
    bridgeIs("Vlan10");
    portIs("et1", "Vlan10");
    ASSERT_TRUE(until([&] { return port("et1").intfId == IntfId("et1"); }));
    EXPECT_FALSE(served(vlan10));
    tunnelIs("vx10", "Vlan10", 10);
    ASSERT_TRUE(until([&] { return served(vlan10); }));

    ip("link set et1 up");
    ip("link set far-et1 up");
    ASSERT_TRUE(until([&] { return kernelInterface(indexOf("et1")).running(); }));
    uint32_t et1 = indexOf("et1");
    ip("link set et1 down");
    ip("link set et1 name et2");
    ASSERT_TRUE(until([&] { return topology().bridgePort(et1).intfId == IntfId("et2"); }));
    EXPECT_FALSE(kernelInterface(et1).running());
    EXPECT_EQ(kernelInterface(et1).deviceName(), "et2");
    EXPECT_FALSE(state().allIntfStatusDir->intfStatus(IntfId("et1")));

    ip("link set et2 nomaster");
    ASSERT_TRUE(until([&] { return !topology().bridgePort(et1).intfId; }));
    EXPECT_TRUE(state().allIntfStatusDir->intfStatus(IntfId("et2")));
    ip("link del vx10");
    ASSERT_TRUE(until([&] { return !served(vlan10); }));
    ip("link del et2");
    ASSERT_TRUE(until([&] { return !state().allIntfStatusDir->intfStatus(IntfId("et2")); }));
    EXPECT_EQ(kernelInterface(et1).key.value, 0u);
    ip("link del Vlan10");
    ASSERT_TRUE(until([&] { return topology().vlanBridge(vlan10).ifIndex == 0; }));
    EXPECT_FALSE(state().ip6Status->intf(IntfId("Vlan10")));
    EXPECT_TRUE(state().bridgingConfig->bridgeMacAddr().isZero());
}

TEST_F(KernelSwitchTest, addressesComeAndGoAndASecondaryOneIsPromoted) {
    bridgeIs("Vlan10");
    start();
    EXPECT_FALSE(state().ipStatus->ipIntfStatus(IntfId("Vlan10")));
    ip("addr add 10.0.0.1/24 dev Vlan10");
    ASSERT_TRUE(until([&] { return state().ipStatus->ipIntfStatus(IntfId("Vlan10")) != nullptr; }));
    ip("addr add 10.0.0.2/24 dev Vlan10");
    auto status = state().ipStatus->ipIntfStatus(IntfId("Vlan10"));
    ASSERT_TRUE(until([&] { return status->activeSecondaryWithMaskCollection().count() == 1; }));
    EXPECT_EQ(status->activeAddrWithMask().address(), IpGenAddr("10.0.0.1"));

    std::ofstream("/proc/sys/net/ipv4/conf/Vlan10/promote_secondaries") << "1";
    ip("addr del 10.0.0.1/24 dev Vlan10");
    ASSERT_TRUE(
        until([&] { return status->activeAddrWithMask().address() == IpGenAddr("10.0.0.2"); }));
    EXPECT_EQ(status->activeSecondaryWithMaskCollection().count(), 0u);
    ip("addr del 10.0.0.2/24 dev Vlan10");
    ASSERT_TRUE(until([&] { return !state().ipStatus->ipIntfStatus(IntfId("Vlan10")); }));
    // It is routed all the same, and says where.
    EXPECT_EQ(state().ip6Status->intf(IntfId("Vlan10"))->vrfName(), "default");
}

TEST_F(KernelSwitchTest, aNamespaceAppearsIsDeletedAndComesBackAsAnother) {
    start();
    bridgeIs("br30");
    tunnelIs("vx30", "br30", 30);
    ASSERT_TRUE(until([&] { return served(vlan30); }));
    EXPECT_FALSE(state().ip6Status->intf(IntfId("Vlan30")));

    auto attachRouted = [&] {
        ip("link add p30 type veth peer name Vlan30 netns ns-blue");
        ip("link set p30 master br30");
        ip("-n ns-blue link set Vlan30 address " + switchMac);
        ip("-n ns-blue link set Vlan30 up");
        ip("-n ns-blue addr add 10.30.0.1/24 dev Vlan30");
    };
    for (int round = 0; round < 2; ++round) {
        Testing::NamedNetNs blue("ns-blue");
        ASSERT_TRUE(until([&] { return state().allVrfStatusLocal->vrf("blue") != nullptr; }));
        auto vrf = state().allVrfStatusLocal->vrf("blue");
        EXPECT_EQ(vrf->networkNamespace(), "ns-blue");
        EXPECT_EQ(vrf->state(), Ip::VrfState::active);
        attachRouted();
        ASSERT_TRUE(
            until([&] { return state().ipStatus->ipIntfStatus(IntfId("Vlan30")) != nullptr; }));
        EXPECT_EQ(state().ipStatus->ipIntfStatus(IntfId("Vlan30"))->vrfName(), "blue");
        EXPECT_EQ(state().allIntfStatusLocalDir->intfStatusLocal(IntfId("Vlan30"))->netNs(),
                  "ns-blue");
        EXPECT_TRUE(port("p30").routed);
        EXPECT_EQ(topology().routedDeviceCollection().count(), 1u);
        auto device = topology().routedDeviceCollection().first();
        EXPECT_EQ(device.key().netNs, "ns-blue");
        EXPECT_EQ(device.value().vrfId, Vrf::VrfId(1));
        EXPECT_EQ(kernelInterface(device.key().ifIndex, "ns-blue").deviceName(), "Vlan30");
        EXPECT_EQ(state().bridgingConfig->bridgeMacAddr(), EthAddr(switchMac));

        Testing::ip({"netns", "del", "ns-blue"});
        ASSERT_TRUE(until([&] { return !state().allVrfStatusLocal->vrf("blue"); }));
        EXPECT_TRUE(vrf->destroyed());
        ASSERT_TRUE(until([&] { return switch_->devices().settled(); }));
        EXPECT_EQ(state().kernelNetInfoIs("ns-blue")->interfaceCollection().count(), 0u);
        EXPECT_FALSE(state().ipStatus->ipIntfStatus(IntfId("Vlan30")));
        EXPECT_EQ(topology().routedDeviceCollection().count(), 0u);
        EXPECT_FALSE(switch_->socket("ns-blue"));
        // The kernel took the veth with it.
        ASSERT_TRUE(until([&] { return !state().allIntfStatusDir->intfStatus(IntfId("p30")); }));
    }
}

TEST_F(KernelSwitchTest, aNamespaceOfTheSameNameIsAnotherOne) {
    Testing::NamedNetNs blue("ns-blue");
    start();
    auto before = state().allVrfStatusLocal->vrf("blue");
    uint64_t inode = switch_->socket("ns-blue")->netNsInode();
    ASSERT_TRUE(before);
    blue.ip({"link", "add", "old", "type", "bridge"});
    // Both before the loop turns again.
    Testing::ip({"netns", "del", "ns-blue"});
    Testing::ip({"netns", "add", "ns-blue"});
    ASSERT_TRUE(until([&] {
        auto socket = switch_->socket("ns-blue");
        return socket && socket->netNsInode() != inode && socket->synchronized();
    }));
    EXPECT_TRUE(before->destroyed());
    ASSERT_TRUE(state().allVrfStatusLocal->vrf("blue"));
    EXPECT_NE(state().allVrfStatusLocal->vrf("blue"), before);
    EXPECT_EQ(state().kernelNetInfoIs("ns-blue")->interfaceCollection().count(), 1u); // lo
}

TEST_F(KernelSwitchTest, aNamespaceThatIsMountedOverAnotherIsFound) {
    Testing::NamedNetNs blue("ns-blue");
    Testing::NamedNetNs other("ns-other");
    start();
    auto before = state().allVrfStatusLocal->vrf("blue");
    uint64_t inode = switch_->socket("ns-blue")->netNsInode();
    auto becomes = [&](bool isFirst) {
        return until([&] {
            auto socket = switch_->socket("ns-blue");
            return socket && (socket->netNsInode() == inode) == isFirst && socket->synchronized();
        });
    };
    const char* name = "/run/netns/ns-blue";
    ASSERT_EQ(mount("/run/netns/ns-other", name, "none", MS_BIND, nullptr), 0);
    EXPECT_TRUE(becomes(false));
    EXPECT_TRUE(before->destroyed());
    EXPECT_TRUE(state().allVrfStatusLocal->vrf("blue"));
    ASSERT_EQ(umount2(name, MNT_DETACH), 0);
    EXPECT_TRUE(becomes(true));
}

TEST_F(KernelSwitchTest, aNamespaceThatCannotBeEnteredIsSaidOnceAndTriedAgain) {
    Testing::TraceCapture trace("KernelSwitch=0");
    Testing::NamedNetNs other("ns-other");
    const char* name = "/run/netns/ns-blue";
    std::ofstream{name};
    ASSERT_EQ(mount("/proc/self/ns/uts", name, "none", MS_BIND, nullptr), 0); // of another kind
    start();
    auto dump = [&] {
        Vela::DumpContext context;
        switch_->dumpState(context, 0);
        return context.text();
    };
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
    ASSERT_TRUE(until([&] { return std::chrono::steady_clock::now() > end; }));
    EXPECT_EQ(trace.count("netlink in ns-blue: Invalid argument"), 1u) << trace.text();
    EXPECT_NE(dump().find("  problem[ns-blue] netlink in ns-blue: Invalid argument\n"),
              std::string::npos)
        << dump();
    EXPECT_FALSE(state().allVrfStatusLocal->vrf("blue"));
    ASSERT_EQ(mount("/run/netns/ns-other", name, "none", MS_BIND, nullptr), 0);
    EXPECT_TRUE(until([&] { return state().allVrfStatusLocal->vrf("blue") != nullptr; }));
    EXPECT_EQ(dump().find("problem["), std::string::npos) << dump();
}

TEST_F(KernelSwitchTest, aVethAndAMacvlanInTheSameNamespaceAreRoutedDevices) {
    configuration_.bridges[vlan10] = "br10";
    bridgeIs("br10");
    start();
    ip("link add p10 type veth peer name Vlan10 address " + switchMac);
    ip("link set p10 master br10");
    ip("link set Vlan10 up");
    ip("link set p10 up");
    ASSERT_TRUE(until([&] { return port("p10").routed; }));
    EXPECT_EQ(topology().routedDevice({"default", indexOf("Vlan10")}).intfId, IntfId("Vlan10"));
    EXPECT_TRUE(state().fhrpVrMacStatus->varpVirtualMac().isZero());

    ip("link add gw10 link Vlan10 address 02:00:5e:00:01:01 type macvlan mode private");
    Linux::DeviceKey gateway{"default", indexOf("gw10")};
    ASSERT_TRUE(until([&] { return topology().routedDevice(gateway).macvlan; }));
    EXPECT_EQ(topology().routedDevice(gateway).intfId, IntfId("Vlan10"));
    EXPECT_EQ(state().fhrpVrMacStatus->varpVirtualMac(), EthAddr("02:00:5e:00:01:01"));

    ip("link del gw10");
    ASSERT_TRUE(until([&] { return !topology().routedDevice(gateway).intfId; }));
    EXPECT_TRUE(state().fhrpVrMacStatus->varpVirtualMac().isZero());
    ip("link set p10 nomaster");
    ASSERT_TRUE(until([&] { return topology().routedDeviceCollection().count() == 0; }));
    EXPECT_FALSE(state().ip6Status->intf(IntfId("Vlan10")));
}

TEST_F(KernelSwitchTest, aSmallReceiveBufferEndsWithWhatTheKernelHas) {
    configuration_.receiveBuffer = 4096;
    bridgeIs("Vlan10");
    start();
    std::string batch;
    auto device = [](int i) { return "d" + std::to_string(i); };
    for (int i = 0; i < 20; ++i) {
        batch += "link add " + device(i) + " type bridge\n";
    }
    for (int i = 0; i < 2000; ++i) {
        std::string address = "10.1.0." + std::to_string(i % 250) + "/32 dev Vlan10\n";
        batch += "link set " + device(i % 20) +
                 " address 02:00:00:00:00:" + std::to_string(10 + i % 77) + "\n";
        batch += "addr add " + address + "addr del " + address;
    }
    for (int i = 0; i < 10; ++i) {
        batch += "link del " + device(i) + "\n";
    }
    batch += "addr add 10.9.9.9/32 dev Vlan10\n";
    ipBatch(batch);
    ASSERT_TRUE(until([&] {
        return switch_->socket("default")->statistics().overruns > 0 && switch_->synchronized() &&
               state().ipStatus->ipIntfStatus(IntfId("Vlan10"));
    }));
    live().turnUntilIdle();
    // A second one, with room for everything, sees the same.
    configuration_.receiveBuffer = 8 << 20;
    Testing::LiveSwitch fresh;
    auto other = Vela::make<Linux::KernelSwitch>(fresh.scheduler(), fresh.state(), configuration_);
    ASSERT_TRUE(fresh.turnUntil([&] { return other->complete(); }));
    auto interfaces = [](Vela::SwitchState& state) {
        std::map<uint32_t, KernelNetInfo::InterfaceStatus> all;
        auto table = state.kernelNetInfoIs("default");
        for (auto cursor = table->interfaceCollection().first(); cursor; ++cursor) {
            all[cursor.key().value] = cursor.value();
        }
        return all;
    };
    EXPECT_EQ(interfaces(state()), interfaces(fresh.state()));
    EXPECT_EQ(state().ipStatus->ipIntfStatus(IntfId("Vlan10"))->activeAddrWithMask(),
              Ip::AddrWithMask(IpGenAddr("10.9.9.9"), 32));
    EXPECT_EQ(state().allIntfStatusDir->intfStatusCollection().count(),
              fresh.state().allIntfStatusDir->intfStatusCollection().count());
    other->destroy();
}

} // namespace
} // namespace Netns
