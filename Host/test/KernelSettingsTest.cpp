#include "Host/KernelSettings.h"

#include <gtest/gtest.h>

namespace Host {
namespace {

using Bridging::VlanId;

TEST(KernelSettings, SayWhatTheKernelDoesNotKnow) {
    Configuration file = parseConfiguration(R"(
[bridging]
mac = "02:00:00:00:00:01"
[fhrp]
varp_mac = "02:00:5e:00:01:01"
[[evpn.vlan]]
vlan = 10
[[evpn.vlan]]
vlan = 20
dot1q = 200
[[evpn.segment]]
interface = "Ethernet2"
[linux]
receive_buffer = 65536
[[linux.vlan]]
vlan = 30
bridge = "br30"
[[vrf]]
name = "blue"
namespace = "ns-blue"
[[vrf]]
name = "default"
[[remote_binding]]
vlan = 30
ip = "10.30.0.9"
mac = "02:00:00:00:30:09"
[[interface]]
name = "Ethernet1"
device = "et1"
[[interface]]
name = "Uplink"
device = "up"
vrf = "blue"
[[interface]]
name = "Vlan20"
vrf = "blue"
)",
                                            "f");
    Linux::LinuxConfiguration expected;
    expected.receiveBuffer = 65536;
    // Who is in no VRF's device belongs to "default", which therefore comes first.
    expected.vrfs = {{"default", Vrf::VrfId(0), "default", Ip::VrfState::active},
                     {"blue", Vrf::VrfId(1), "ns-blue", Ip::VrfState::active}};
    expected.bridges = {{VlanId(30), "br30"}};
    expected.vlanVrfs = {{VlanId(20), "blue"}};
    expected.interfaces = {{{"default", "et1"}, "Ethernet1"}, {{"ns-blue", "up"}, "Uplink"}};
    expected.remoteBindings = {{VlanId(30), Zinc::IpGenAddr("10.30.0.9")}};
    expected.segments = {"Ethernet2"};
    expected.dot1q = {{VlanId(10), {}}, {VlanId(20), VlanId(200)}};
    expected.bridgeMac = Zinc::EthAddr("02:00:00:00:00:01");
    expected.varpMac = Zinc::EthAddr("02:00:5e:00:01:01");
    EXPECT_EQ(kernelSettings(file, {{"default", Vrf::VrfId(0)}, {"blue", Vrf::VrfId(1)}}),
              expected);
}

TEST(KernelSettings, OfAnEmptySection) {
    Configuration file = parseConfiguration("[linux]", "f");
    ASSERT_TRUE(file.onLinux);
    EXPECT_EQ(file.onLinux->receiveBuffer, 8u << 20);
    Linux::LinuxConfiguration expected;
    expected.vrfs = {{"default", Vrf::VrfId(0), "default", Ip::VrfState::active}};
    EXPECT_EQ(kernelSettings(file, {{"default", Vrf::VrfId(0)}}), expected);
}

} // namespace
} // namespace Host
