// VRFs in network namespaces of the kernel's, and their devices. What the kernel says of devices is
// published by the test.

#include "ArpSuppression/ArpSuppressionAgent.h"
#include "Platform/Base/NetNs.h"
#include "Testing/Eventually.h"
#include "Testing/LiveSwitch.h"
#include "Testing/NamedNetNs.h"

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <optional>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <vector>

namespace Netns {

namespace {

using Bridging::VlanId;
using KernelNetInfo::InterfaceStatus;
using Testing::NamedNetNs;

/// The devices of a namespace, as the kernel has them now.
std::vector<InterfaceStatus> kernelDevices(const std::string& netNs) {
    Vela::NetNsGuard guard(netNs);
    Vela::UniqueFd any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    std::vector<InterfaceStatus> devices;
    struct if_nameindex* names = if_nameindex();
    for (auto* device = names; device->if_index != 0; ++device) {
        ifreq request{};
        std::string_view(device->if_name).copy(request.ifr_name, IFNAMSIZ - 1);
        EXPECT_EQ(ioctl(any.get(), SIOCGIFFLAGS, &request), 0) << device->if_name;
        auto flags = static_cast<uint16_t>(request.ifr_flags);
        devices.push_back({device->if_index, device->if_name, flags, Zinc::EthAddr()});
    }
    if_freenameindex(names);
    return devices;
}

InterfaceStatus kernelDevice(const std::string& netNs, const std::string& name) {
    for (const InterfaceStatus& device : kernelDevices(netNs)) {
        if (device.deviceName() == name) {
            return device;
        }
    }
    return {};
}

ino_t inodeOf(const std::string& netNs) {
    struct stat status {};
    EXPECT_EQ(stat(("/run/netns/" + netNs).c_str(), &status), 0);
    return status.st_ino;
}

/// The namespace that a socket belongs to.
ino_t namespaceOf(uint32_t netlinkSocket) {
    Vela::UniqueFd netNs(ioctl(static_cast<int>(netlinkSocket), SIOCGSKNS));
    struct stat status {};
    EXPECT_EQ(fstat(netNs.get(), &status), 0) << "not a socket";
    return status.st_ino;
}

/// What a device's name stands for where the socket is; 0: there is none.
uint32_t ifIndexThrough(uint32_t netlinkSocket, const char* name) {
    ifreq request{};
    std::string_view(name).copy(request.ifr_name, IFNAMSIZ - 1);
    bool found = ioctl(static_cast<int>(netlinkSocket), SIOCGIFINDEX, &request) == 0;
    return found ? static_cast<uint32_t>(request.ifr_ifindex) : 0;
}

/// The agent runs; EVPN serves VLANs 20, routed in VRF "red", and 30, in "blue". Each VRF's
/// namespace is to have its name.
class NetnsVrfTest : public ::testing::Test {
  protected:
    NetnsVrfTest() {
        Testing::enterOwnNamespaces();
        const char* setting = std::getenv("VELA_ALWAYS_YIELD");
        live_.emplace(Vela::TaskScheduler::Settings{
            .alwaysYield = setting && std::string_view(setting) == "1"});
        agent_ = ArpSuppression::arpSuppressionAgentFactory("ArpSuppression");
        state().vrfIdMap->vrfIs(Vrf::VrfId(0), "default");
        state().vrfIdMap->vrfIs(Vrf::VrfId(1), "red");
        state().vrfIdMap->vrfIs(Vrf::VrfId(2), "blue");
        state().evpnStatus->mplsConfiguredIs(true);
        live_->start(*agent_, false);
        for (auto [vlan, vrf] : {std::pair(20u, "red"), {30u, "blue"}}) {
            state().evpnStatus->vlanToDot1qIs(VlanId(vlan), Bridging::VlanIdOrNone());
            state().ipStatus->ipIntfStatusIs(Zinc::IntfId("Vlan" + std::to_string(vlan)), vrf);
        }
        live_->turnUntilIdle();
    }
    ~NetnsVrfTest() override {
        state().evpnStatus->mplsConfiguredIs(false);
        live_->turnUntilIdle();
        agent_->destroy();
        agent_.reset();
        live_.reset();
        EXPECT_EQ(Vela::Entity::liveCount(), entitiesBefore_) << "the test left entities behind";
    }

    Vela::SwitchState& state() { return live_->state(); }
    void vrfIs(const std::string& name) {
        auto local = state().allVrfStatusLocal->vrfIs(name);
        local->networkNamespaceIs(name);
        local->stateIs(Ip::VrfState::active);
        publish(name);
    }
    void vrfDel(const std::string& name) {
        state().allVrfStatusLocal->vrfDel(name);
        state().kernelNetInfoDel(name);
        ASSERT_TRUE(live_->turnUntilIdle());
    }
    /// Makes the published devices those of the kernel, and lets the agent see them.
    void publish(const std::string& netNs) {
        auto status = state().kernelNetInfoIs(netNs);
        auto devices = kernelDevices(netNs);
        std::vector<uint32_t> gone;
        for (auto known = status->interfaceCollection().first(); known; ++known) {
            gone.push_back(known.key().value);
        }
        for (const InterfaceStatus& device : devices) {
            status->interfaceIs(device);
            std::erase(gone, device.key.value);
        }
        for (uint32_t ifIndex : gone) {
            status->interfaceDel(ifIndex);
        }
        ASSERT_TRUE(live_->turnUntilIdle());
    }
    /// A device with a wire, which is up, and running once the kernel has noticed.
    static void deviceIs(const NamedNetNs& netNs, const std::string& name) {
        netNs.ip({"link", "add", name, "type", "veth", "peer", "name", "far-" + name});
        netNs.ip({"link", "set", "far-" + name, "up"});
        deviceUpIs(netNs, name, true);
    }
    static void deviceUpIs(const NamedNetNs& netNs, const std::string& name, bool up) {
        netNs.ip({"link", "set", name, up ? "up" : "down"});
        ASSERT_TRUE(
            Testing::eventually([&] { return kernelDevice(netNs.name(), name).running() == up; }));
    }

    ArpSuppression::VlanL3InfoStatus& l3() { return *agent_->rootSm()->root()->vlanL3InfoStatus(); }
    uint32_t ifIndexOf(unsigned vlan) { return l3().vlanL3Info(VlanId(vlan))->kniIntfIfIndex(); }
    bool usable(unsigned vlan) { return l3().usableVlanL3Info(VlanId(vlan)) != nullptr; }
    uint32_t socketOf(const char* vrf) { return l3().vrfInfo(vrf)->netlinkSocket(); }

  private:
    const uint64_t entitiesBefore_ = Vela::Entity::liveCount();
    std::optional<Testing::LiveSwitch> live_;
    Vela::Ptr<ArpSuppression::ArpSuppressionAgent> agent_;
};

TEST_F(NetnsVrfTest, aNamespaceThatAppearsMakesItsVrfUsable) {
    ASSERT_TRUE(l3().vlanL3Info(VlanId(20)));
    EXPECT_FALSE(usable(20));
    EXPECT_EQ(socketOf("red"), 0u);
    NamedNetNs red("red");
    deviceIs(red, "Vlan20");
    vrfIs("red");
    ASSERT_GE(socketOf("red"), 3u);
    EXPECT_EQ(namespaceOf(socketOf("red")), inodeOf("red"));
    uint32_t ifIndex = kernelDevice("red", "Vlan20").key.value;
    EXPECT_EQ(ifIndexThrough(socketOf("red"), "Vlan20"), ifIndex);
    EXPECT_EQ(ifIndexThrough(socketOf("default"), "Vlan20"), 0u);
    EXPECT_EQ(ifIndexOf(20), ifIndex);
    EXPECT_TRUE(usable(20));
    EXPECT_FALSE(usable(30));
}

TEST_F(NetnsVrfTest, itsDeviceComesUpAndGoesDown) {
    NamedNetNs red("red");
    vrfIs("red");
    red.ip({"link", "add", "Vlan20", "type", "veth", "peer", "name", "far-Vlan20"});
    red.ip({"link", "set", "far-Vlan20", "up"});
    publish("red");
    EXPECT_FALSE(usable(20)); // it is there, and down
    deviceUpIs(red, "Vlan20", true);
    publish("red");
    EXPECT_TRUE(usable(20));
    EXPECT_EQ(ifIndexOf(20), kernelDevice("red", "Vlan20").key.value);
    red.ip({"link", "set", "far-Vlan20", "down"}); // takes the carrier alone
    ASSERT_TRUE(Testing::eventually([] { return !kernelDevice("red", "Vlan20").running(); }));
    publish("red");
    EXPECT_FALSE(usable(20));
    red.ip({"link", "set", "far-Vlan20", "up"});
    ASSERT_TRUE(Testing::eventually([] { return kernelDevice("red", "Vlan20").running(); }));
    publish("red");
    EXPECT_TRUE(usable(20));
    deviceUpIs(red, "Vlan20", false);
    publish("red");
    EXPECT_EQ(ifIndexOf(20), 0u);
    EXPECT_FALSE(usable(20));
}

TEST_F(NetnsVrfTest, itsDeviceIsRenamedAndRenamedBack) {
    NamedNetNs red("red");
    deviceIs(red, "Vlan20");
    vrfIs("red");
    uint32_t ifIndex = ifIndexOf(20);
    ASSERT_NE(ifIndex, 0u);
    deviceUpIs(red, "Vlan20", false);
    red.ip({"link", "set", "Vlan20", "name", "other"});
    deviceUpIs(red, "other", true);
    publish("red");
    EXPECT_EQ(kernelDevice("red", "other").key.value, ifIndex);
    EXPECT_FALSE(usable(20));
    deviceUpIs(red, "other", false);
    red.ip({"link", "set", "other", "name", "Vlan20"});
    deviceUpIs(red, "Vlan20", true);
    publish("red");
    EXPECT_EQ(ifIndexOf(20), ifIndex);
    EXPECT_TRUE(usable(20));
}

TEST_F(NetnsVrfTest, itsDeviceIsDeletedAndMadeAnewWithAnotherIndex) {
    NamedNetNs red("red");
    deviceIs(red, "Vlan20");
    vrfIs("red");
    uint32_t before = ifIndexOf(20);
    ASSERT_NE(before, 0u);
    red.ip({"link", "del", "Vlan20"});
    deviceIs(red, "Vlan20");
    uint32_t after = kernelDevice("red", "Vlan20").key.value;
    ASSERT_NE(after, before);
    publish("red"); // both changes at once
    EXPECT_EQ(ifIndexOf(20), after);
    red.ip({"link", "del", "Vlan20"});
    publish("red");
    EXPECT_EQ(ifIndexOf(20), 0u);
    deviceIs(red, "Vlan20");
    publish("red");
    EXPECT_EQ(ifIndexOf(20), kernelDevice("red", "Vlan20").key.value);
    EXPECT_TRUE(usable(20));
}

TEST_F(NetnsVrfTest, aNamespaceThatIsDeletedAndMadeAnewIsAnother) {
    std::optional<NamedNetNs> red(std::in_place, "red");
    deviceIs(*red, "Vlan20");
    vrfIs("red");
    uint32_t socket = socketOf("red");
    ino_t before = inodeOf("red");
    ASSERT_TRUE(usable(20));
    // Somebody holds the old one, so that the kernel cannot reuse its inode.
    Vela::UniqueFd old(open("/run/netns/red", O_RDONLY | O_CLOEXEC));
    red.reset();
    vrfDel("red");
    EXPECT_FALSE(usable(20));
    EXPECT_EQ(fcntl(static_cast<int>(socket), F_GETFD), -1) << "the socket stays open";
    red.emplace("red");
    deviceIs(*red, "Vlan20");
    vrfIs("red");
    EXPECT_TRUE(usable(20));
    EXPECT_NE(inodeOf("red"), before);
    EXPECT_EQ(namespaceOf(socketOf("red")), inodeOf("red"));
}

TEST_F(NetnsVrfTest, eachVrfHasDevicesOfItsOwn) {
    NamedNetNs red("red");
    NamedNetNs blue("blue");
    deviceIs(red, "Vlan20");
    deviceIs(red, "Vlan30"); // the other VRF's name, in the wrong place
    vrfIs("red");
    vrfIs("blue");
    EXPECT_TRUE(usable(20));
    EXPECT_FALSE(usable(30));
    deviceIs(blue, "Vlan30");
    publish("blue");
    EXPECT_TRUE(usable(30));
    EXPECT_EQ(ifIndexOf(30), kernelDevice("blue", "Vlan30").key.value);
    EXPECT_EQ(namespaceOf(socketOf("red")), inodeOf("red"));
    EXPECT_EQ(namespaceOf(socketOf("blue")), inodeOf("blue"));
    vrfDel("red");
    EXPECT_FALSE(usable(20));
    EXPECT_TRUE(usable(30));
}

TEST_F(NetnsVrfTest, aVrfWhoseNamespaceIsMissingIsNotUsable) {
    auto local = state().allVrfStatusLocal->vrfIs("red");
    local->networkNamespaceIs("red");
    local->stateIs(Ip::VrfState::active);
    EXPECT_EQ(socketOf("red"), 0u);
    EXPECT_FALSE(usable(20));
    // Its provider starts over when the namespace is there.
    state().allVrfStatusLocal->vrfDel("red");
    NamedNetNs red("red");
    deviceIs(red, "Vlan20");
    vrfIs("red");
    EXPECT_TRUE(usable(20));
}

} // namespace

} // namespace Netns
