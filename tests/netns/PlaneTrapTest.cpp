// What the forwarding plane brings to the agent, and what it lets pass.

#include "tests/netns/PlaneLeaf.h"

#include <array>
#include <gtest/gtest.h>
#include <net/if.h>

namespace Netns {
namespace {

using Testing::TrapFrame;
namespace Plane = Linux::Plane;
using Tunneled = PlaneLeaf::Tunneled;

class PlaneTrapTest : public ::testing::Test {
  protected:
    PlaneTrapTest() { leaf.start(); }
    ~PlaneTrapTest() override { EXPECT_EQ(leaf.moved(), PlaneMoved{}) << "moved unseen"; }

    uint32_t et1() { return leaf.port("et1").ifIndex(); }

    /// It leaves to both of the other switches and to the other port as it came, and that is all.
    void expectUntouched(const Frame& frame) {
        leaf.port("et1").inject(frame);
        EXPECT_EQ(leaf.tunneled(2), (Tunneled{{1010, frame}, {1010, frame}}));
        EXPECT_EQ(leaf.arrived("et2", 1), std::vector<Frame>{frame});
        leaf.expectNothingElse();
        EXPECT_EQ(leaf.moved(), PlaneMoved{});
    }

    PlaneLeaf leaf;
};

/// Of neighbour discovery what the plane looks at; the agent reads the rest.
std::vector<uint8_t> icmp6(uint8_t type, size_t length = 32, uint8_t nextHeader = 58) {
    std::vector<uint8_t> packet = Testing::fromHex("6000000000000000"
                                                   "fe800000000000000000000000000001"
                                                   "ff0200000000000000000001ff000002");
    packet[4] = static_cast<uint8_t>(length >> 8);
    packet[5] = static_cast<uint8_t>(length);
    packet[6] = nextHeader;
    packet[7] = 255;
    packet.push_back(type);
    packet.resize(40 + length, 0x11);
    return packet;
}

std::vector<uint8_t> discoveryTrap(uint32_t srcIfIndex, uint8_t type,
                                   const std::string& dst = "33:33:ff:00:00:02") {
    return Testing::trapFrame(10, srcIfIndex, 0x86DD, icmp6(type), Zinc::EthAddr(dst));
}

TEST_F(PlaneTrapTest, aRequestGoesToTheAgentInsteadOfTheTunnel) {
    TrapFrame request{.srcIfIndex = et1()};
    leaf.port("et1").inject(hostFrame(request));
    EXPECT_EQ(leaf.trapped(1), std::vector<Frame>{request.bytes()});
    // The hosts of this switch get it as ever.
    EXPECT_EQ(leaf.arrived("et2", 1), std::vector<Frame>{hostFrame(request)});
    leaf.expectNothingElse();
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::trapped, 1}}));
}

TEST_F(PlaneTrapTest, thePaddingOfARequestComesAlong) {
    TrapFrame request{.srcIfIndex = et1(), .trailer = std::vector<uint8_t>(18, 0xee)};
    leaf.port("et1").inject(hostFrame(request));
    EXPECT_EQ(leaf.trapped(1), std::vector<Frame>{request.bytes()});
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::trapped, 1}}));
}

TEST_F(PlaneTrapTest, probesAndAnnouncementsAreRequests) {
    TrapFrame probe{.srcIfIndex = et1(), .senderIp = Zinc::IpGenAddr("0.0.0.0")};
    TrapFrame announcement{.srcIfIndex = et1(), .targetIp = Zinc::IpGenAddr("10.0.0.1")};
    leaf.port("et1").inject(hostFrame(probe));
    leaf.port("et1").inject(hostFrame(announcement));
    EXPECT_EQ(leaf.trapped(2), (std::vector<Frame>{probe.bytes(), announcement.bytes()}));
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::trapped, 2}}));
}

TEST_F(PlaneTrapTest, requestsOfFullSizeGoToTheAgent) {
    for (size_t mtu : {1500u, 9000u}) {
        SCOPED_TRACE(mtu);
        shell("ip link set vxlan10 mtu " + std::to_string(mtu));
        leaf.turn(); // however long that took
        TrapFrame request{.srcIfIndex = et1(), .trailer = std::vector<uint8_t>(mtu - 28, 0xee)};
        leaf.port("et1").inject(hostFrame(request));
        EXPECT_EQ(leaf.trapped(1), std::vector<Frame>{request.bytes()});
        EXPECT_EQ(leaf.arrived("et2", 1), std::vector<Frame>{hostFrame(request)});
        leaf.expectNothingElse();
        EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::trapped, 1}}));
    }
}

TEST_F(PlaneTrapTest, aUnicastRequestPasses) {
    expectUntouched(hostFrame({.frameDst = Zinc::EthAddr("02:00:00:00:00:02")}));
}

TEST_F(PlaneTrapTest, aBroadcastReplyPasses) {
    expectUntouched(hostFrame({.operation = 2}));
}

TEST_F(PlaneTrapTest, aRequestOfReverseArpPasses) {
    Frame frame = hostFrame({.operation = 3});
    frame[12] = 0x80;
    frame[13] = 0x35;
    expectUntouched(frame);
}

TEST_F(PlaneTrapTest, whatTheAgentCouldNotReadPasses) {
    const Frame good = hostFrame({});
    // Hardware type, protocol type, the lengths of the addresses.
    for (size_t offset : {15u, 17u, 18u, 19u}) {
        SCOPED_TRACE(offset);
        Frame frame = good;
        frame[offset] ^= 1;
        expectUntouched(frame);
    }
    expectUntouched(Frame(good.begin(), good.end() - 1));
}

TEST_F(PlaneTrapTest, aRequestThatCarriesATagOfItsHostsPasses) {
    expectUntouched(hostFrame({.dot1q = 30}));
    // The tag of a device is beside the frame, with the ethertype of the request in its place.
    expectUntouched(hostFrame({.dot1q = 10}));
}

TEST_F(PlaneTrapTest, otherBroadcastsPass) {
    expectUntouched(withoutTrapHeader(Testing::trapFrame(
        10, et1(), 0x0800,
        Testing::fromHex("4500001c00000000401170d10a000001ffffffff 0009 0009 0008 0000"))));
}

TEST_F(PlaneTrapTest, neighbourDiscoveryIsCopiedAndPassesOn) {
    for (uint8_t type : std::array<uint8_t, 3>{133, 135, 136}) {
        SCOPED_TRACE(int(type));
        Frame trap = discoveryTrap(et1(), type);
        Frame frame = withoutTrapHeader(trap);
        leaf.port("et1").inject(frame);
        EXPECT_EQ(leaf.trapped(1), std::vector<Frame>{trap});
        EXPECT_EQ(leaf.tunneled(2), (Tunneled{{1010, frame}, {1010, frame}}));
        leaf.expectNothingElse();
        EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::copied, 1}}));
    }
}

TEST_F(PlaneTrapTest, neighbourDiscoveryForOneStationIsCopiedToo) {
    Frame trap = discoveryTrap(et1(), 136, "02:00:00:00:00:02");
    Frame frame = withoutTrapHeader(trap);
    leaf.port("et1").inject(frame);
    EXPECT_EQ(leaf.trapped(1), std::vector<Frame>{trap});
    EXPECT_EQ(leaf.tunneled(2), (Tunneled{{1010, frame}, {1010, frame}}));
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::copied, 1}}));
}

TEST_F(PlaneTrapTest, neighbourDiscoveryOfFullSizeIsCopied) {
    Frame trap = Testing::trapFrame(10, et1(), 0x86DD, icmp6(135, 1460));
    leaf.port("et1").inject(withoutTrapHeader(trap));
    EXPECT_EQ(leaf.trapped(1), std::vector<Frame>{trap});
    EXPECT_EQ(leaf.tunneled(2)[0].second, withoutTrapHeader(trap));
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::copied, 1}}));
}

TEST_F(PlaneTrapTest, otherIpv6IsNotCopied) {
    std::vector<Frame> frames;
    for (uint8_t type : std::array<uint8_t, 4>{128, 134, 137, 143}) {
        frames.push_back(withoutTrapHeader(discoveryTrap(et1(), type)));
    }
    frames.push_back(withoutTrapHeader(Testing::trapFrame(10, et1(), 0x86DD, icmp6(135, 32, 17))));
    frames.push_back(withoutTrapHeader(Testing::trapFrame(10, et1(), 0x86DD, icmp6(135, 0))));
    for (const Frame& frame : frames) {
        leaf.port("et1").inject(frame);
        EXPECT_EQ(leaf.tunneled(2), (Tunneled{{1010, frame}, {1010, frame}}));
        leaf.expectNothingElse();
    }
    EXPECT_EQ(leaf.moved(), PlaneMoved{});
}

TEST_F(PlaneTrapTest, eachVlanIsActiveOnItsOwn) {
    TrapFrame other{.vlanId = 20, .srcIfIndex = leaf.port("et3").ifIndex()};
    leaf.port("et3").inject(hostFrame(other));
    EXPECT_EQ(leaf.tunneled(2), (Tunneled{{1020, hostFrame(other)}, {1020, hostFrame(other)}}));
    leaf.expectNothingElse();
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::passedInactive, 1}}));

    leaf.suppression().vlanIdIs(Bridging::VlanId(20), true);
    leaf.suppression().vlanIdIs(Bridging::VlanId(10), false);
    leaf.port("et3").inject(hostFrame(other));
    leaf.port("et1").inject(hostFrame({}));
    EXPECT_EQ(leaf.trapped(1), std::vector<Frame>{other.bytes()});
    EXPECT_EQ(leaf.tunneled(2), (Tunneled{{1010, hostFrame({})}, {1010, hostFrame({})}}));
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::passedInactive, 1}, {Plane::trapped, 1}}));

    leaf.suppression().vlanIdDelAll();
    leaf.port("et3").inject(hostFrame(other));
    EXPECT_EQ(leaf.tunneled(2).size(), 2u);
    EXPECT_EQ(leaf.trapped(0), std::vector<Frame>{});
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::passedInactive, 1}}));
}

TEST_F(PlaneTrapTest, neighbourDiscoveryOnAVlanThatIsNotActiveIsNotCopied) {
    leaf.suppression().vlanIdDel(Bridging::VlanId(10));
    Frame frame = withoutTrapHeader(discoveryTrap(et1(), 135));
    leaf.port("et1").inject(frame);
    EXPECT_EQ(leaf.tunneled(2), (Tunneled{{1010, frame}, {1010, frame}}));
    leaf.expectNothingElse();
    EXPECT_EQ(leaf.moved(), PlaneMoved{});
}

class PlaneOwnRequestTest : public PlaneTrapTest {
  protected:
    void expectTrapped(const TrapFrame& request, const std::string& device) {
        leaf.turn(); // however long it took to come here
        leaf.sendOut(device, hostFrame(request));
        EXPECT_EQ(leaf.trapped(1), std::vector<Frame>{request.bytes()});
        EXPECT_EQ(leaf.tunneled(0), Tunneled{});
        EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::trapped, 1}}));
    }
    void expectPasses(const TrapFrame& request, const std::string& device) {
        leaf.sendOut(device, hostFrame(request));
        EXPECT_EQ(leaf.tunneled(2),
                  (Tunneled{{1010, hostFrame(request)}, {1010, hostFrame(request)}}));
        EXPECT_EQ(leaf.trapped(0), std::vector<Frame>{});
        EXPECT_EQ(leaf.moved(), PlaneMoved{});
    }

    const Zinc::EthAddr bridgeMac{PlaneLeaf::bridgeMac};
    const Zinc::EthAddr virtualMac{"00:00:5e:00:01:01"};
    const Zinc::EthAddr strangeMac{"02:00:00:00:0b:99"};
};

TEST_F(PlaneOwnRequestTest, theSwitchIsKnownByItsAddresses) {
    expectTrapped({.srcIfIndex = 0, .senderMac = bridgeMac}, "Vlan10");
    expectPasses({.srcIfIndex = 0, .senderMac = strangeMac}, "Vlan10");
    expectPasses({.srcIfIndex = 0, .senderMac = virtualMac}, "Vlan10");
    leaf.virtualRouterMac().varpVirtualMacIs(virtualMac);
    expectTrapped({.srcIfIndex = 0, .senderMac = virtualMac}, "Vlan10");
    leaf.bridgingConfig().bridgeMacAddrIs(strangeMac);
    expectTrapped({.srcIfIndex = 0, .senderMac = strangeMac}, "Vlan10");
    expectPasses({.srcIfIndex = 0, .senderMac = bridgeMac}, "Vlan10");
    // Unknown: nothing is taken for the switch's.
    leaf.bridgingConfig().bridgeMacAddrIs(Zinc::EthAddr());
    expectPasses({.srcIfIndex = 0, .senderMac = bridgeMac}, "Vlan10");
}

TEST_F(PlaneOwnRequestTest, aRoutedInterfaceBesideItsBridgeIsTheSwitchToo) {
    leaf.portIs("routed", "Vlan10");
    uint32_t port = leaf.port("routed").ifIndex();
    leaf.topology().bridgePortIs(
        port, {.vlanId = Bridging::VlanId(10), .intfId = Zinc::IntfId("routed"), .routed = true});
    expectTrapped({.srcIfIndex = port, .senderMac = bridgeMac}, "far-routed");
    expectPasses({.srcIfIndex = port, .senderMac = strangeMac}, "far-routed");
    leaf.topology().bridgePortDel(port);
    expectTrapped({.srcIfIndex = port, .senderMac = strangeMac}, "far-routed");
}

TEST_F(PlaneTrapTest, aSecondLeafIsAWorldOfItsOwn) {
    PlaneLeaf second;
    second.start();
    second.suppression().vlanIdDel(Bridging::VlanId(10));
    leaf.turn(); // however long that took
    leaf.port("et1").inject(hostFrame({}));
    second.port("et1").inject(hostFrame({}));
    TrapFrame request{.srcIfIndex = et1()};
    EXPECT_EQ(leaf.trapped(1), std::vector<Frame>{request.bytes()});
    EXPECT_EQ(second.tunneled(2), (Tunneled{{1010, hostFrame({})}, {1010, hostFrame({})}}));
    EXPECT_EQ(leaf.tunneled(0), Tunneled{});
    EXPECT_EQ(second.trapped(0), std::vector<Frame>{});
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::trapped, 1}}));
    EXPECT_EQ(second.moved(), (PlaneMoved{{Plane::passedInactive, 1}}));

    // The end of one leaves the other at work.
    second.planeDel();
    leaf.port("et1").inject(hostFrame({}));
    EXPECT_EQ(leaf.trapped(1), std::vector<Frame>{request.bytes()});
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::trapped, 1}}));
    leaf.enter();
    EXPECT_NE(if_nametoindex("arpsnoop"), 0u);
}

} // namespace
} // namespace Netns
