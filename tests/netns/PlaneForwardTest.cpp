// What the forwarding plane does with the frames that the agent writes.

#include "tests/netns/PlaneLeaf.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <net/if.h>

namespace Netns {
namespace {

using Testing::TrapFrame;
namespace Plane = Linux::Plane;
using Tunneled = PlaneLeaf::Tunneled;

const Zinc::EthAddr requester("02:00:00:00:00:01");
const Zinc::EthAddr remote("02:00:00:00:00:02");

/// The reply as it is to arrive, and as the agent writes it.
Frame reply() {
    return hostFrame({.operation = 2,
                      .frameDst = requester,
                      .senderMac = remote,
                      .senderIp = Zinc::IpGenAddr("10.0.0.2"),
                      .targetMac = requester,
                      .targetIp = Zinc::IpGenAddr("10.0.0.1")});
}

Frame tagged(Frame frame, uint16_t vlanId) {
    const std::array<uint8_t, 4> tag = {0x81, 0x00, static_cast<uint8_t>(vlanId >> 8),
                                        static_cast<uint8_t>(vlanId)};
    frame.insert(frame.begin() + 12, tag.begin(), tag.end());
    return frame;
}

class PlaneForwardTest : public ::testing::Test {
  protected:
    PlaneForwardTest() { leaf.start(); }
    ~PlaneForwardTest() override { EXPECT_EQ(leaf.moved(), PlaneMoved{}) << "moved unseen"; }

    /// A request, which the bridge learns the requester from.
    void ask() {
        leaf.port("et1").inject(hostFrame({}));
        EXPECT_EQ(leaf.trapped(1).size(), 1u);
        EXPECT_EQ(leaf.arrived("et2", 1).size(), 1u);
        EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::trapped, 1}}));
    }
    static std::string fdb() { return shell("bridge fdb show"); }

    PlaneLeaf leaf;
};

TEST_F(PlaneForwardTest, aReplyGoesToTheRequesterAndNowhereElse) {
    ask();
    std::string before = fdb();
    ASSERT_NE(before.find("02:00:00:00:00:01 dev et1"), std::string::npos) << before;
    leaf.write("fabric", tagged(reply(), 10));
    EXPECT_EQ(leaf.arrived("et1", 1), std::vector<Frame>{reply()});
    EXPECT_EQ(leaf.arrived("et2", 0), std::vector<Frame>{});
    EXPECT_EQ(leaf.tunneled(0), Tunneled{});
    EXPECT_EQ(fdb(), before) << "something was learnt";
    leaf.expectNothingElse();
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::delivered, 1}}));
}

TEST_F(PlaneForwardTest, whatTheBridgeKnowsOfTheRepliersAddressStays) {
    ask();
    shell("bridge fdb add 02:00:00:00:00:02 dev vxlan10 master extern_learn");
    std::string before = fdb();
    leaf.write("fabric", tagged(reply(), 10));
    EXPECT_EQ(leaf.arrived("et1", 1), std::vector<Frame>{reply()});
    EXPECT_EQ(fdb(), before);
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::delivered, 1}}));
}

TEST_F(PlaneForwardTest, theTagSaysWhoseBridge) {
    ask();
    // The same station, asking on the other VLAN as well.
    leaf.port("et3").inject(hostFrame({}));
    EXPECT_EQ(leaf.tunneled(2).size(), 2u);
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::passedInactive, 1}}));
    leaf.write("fabric", tagged(reply(), 20));
    EXPECT_EQ(leaf.arrived("et3", 1), std::vector<Frame>{reply()});
    EXPECT_EQ(leaf.arrived("et1", 0), std::vector<Frame>{});
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::delivered, 1}}));
}

TEST_F(PlaneForwardTest, aReplyToAnUnknownAddressDoesNotLeaveThroughTheTunnel) {
    std::string before = fdb();
    leaf.write("fabric", tagged(reply(), 10));
    // As the bridge has it, to all that might be meant here.
    EXPECT_EQ(leaf.arrived("et1", 1), std::vector<Frame>{reply()});
    EXPECT_EQ(leaf.arrived("et2", 1), std::vector<Frame>{reply()});
    EXPECT_EQ(fdb(), before);
    leaf.expectNothingElse();
    EXPECT_EQ(leaf.moved(),
              (PlaneMoved{{Plane::delivered, 1}, {Plane::droppedUnknownDestination, 1}}));
}

TEST_F(PlaneForwardTest, aReplyNeedsAVlanThatHasABridge) {
    ask();
    leaf.write("fabric", reply());
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::droppedUntagged, 1}}));
    leaf.write("fabric", tagged(reply(), 30));
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::droppedNoBridge, 1}}));
    leaf.topology().vlanBridgeDel(Bridging::VlanId(10));
    leaf.write("fabric", tagged(reply(), 10));
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::droppedNoBridge, 1}}));
    leaf.expectNothingElse();
}

TEST_F(PlaneForwardTest, aRequestThatComesBackGoesToAllOtherSwitchesAndIsNotTrappedAgain) {
    TrapFrame request{.srcIfIndex = leaf.port("et1").ifIndex()};
    leaf.port("et1").inject(hostFrame(request));
    Frame trap = leaf.trapped(1).at(0);
    EXPECT_EQ(leaf.arrived("et2", 1).size(), 1u);
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::trapped, 1}}));
    std::string before = fdb();
    leaf.write("arpinject", trap);
    EXPECT_EQ(leaf.tunneled(2), (Tunneled{{1010, hostFrame(request)}, {1010, hostFrame(request)}}));
    EXPECT_EQ(fdb(), before);
    leaf.expectNothingElse();
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::injected, 1}}));
}

TEST_F(PlaneForwardTest, requestsOfFullSizeComeBackToo) {
    for (size_t mtu : {1500u, 9000u}) {
        SCOPED_TRACE(mtu);
        shell("ip link set vxlan10 mtu " + std::to_string(mtu));
        TrapFrame request{.trailer = std::vector<uint8_t>(mtu - 28, 0xee)};
        for (size_t i = 0; i < request.trailer.size(); ++i) {
            request.trailer[i] = static_cast<uint8_t>(i * 7);
        }
        leaf.write("arpinject", request.bytes());
        EXPECT_EQ(leaf.tunneled(2),
                  (Tunneled{{1010, hostFrame(request)}, {1010, hostFrame(request)}}));
        leaf.expectNothingElse();
        EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::injected, 1}}));
    }
}

TEST_F(PlaneForwardTest, theHeaderSaysWhoseTunnel) {
    TrapFrame request{.vlanId = 20};
    leaf.write("arpinject", request.bytes());
    EXPECT_EQ(leaf.tunneled(2), (Tunneled{{1020, hostFrame(request)}, {1020, hostFrame(request)}}));
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::injected, 1}}));
    uint32_t ifIndex = if_nametoindex("vxlan20");
    leaf.topology().bridgePortDel(ifIndex);
    leaf.write("arpinject", request.bytes());
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::droppedNoTunnel, 1}}));
    leaf.expectNothingElse();
}

TEST_F(PlaneForwardTest, aFrameWithoutAProperHeaderIsDropped) {
    const Frame good = TrapFrame{}.bytes();
    std::vector<Frame> bad = {Frame(good.begin(), good.begin() + 29), good, good, good, good};
    bad[1][13] = 0x36;                      // another ethertype
    std::fill_n(bad[2].begin() + 16, 4, 0); // VLAN 0
    bad[3][18] = 0x0f, bad[3][19] = 0xff;   // VLAN 4095
    bad[4][16] = 0x01;                      // a VLAN that would be 10 if it were cut
    for (const Frame& frame : bad) {
        leaf.write("arpinject", frame);
        EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::droppedMalformed, 1}}));
    }
    leaf.expectNothingElse();
}

TEST_F(PlaneForwardTest, everyPrefixOfAFrameIsDroppedOrSent) {
    const Frame good = TrapFrame{}.bytes();
    for (size_t length = 14; length < good.size(); ++length) {
        SCOPED_TRACE(length);
        leaf.write("arpinject", Frame(good.begin(), good.begin() + length));
        bool hasHeaders = length >= 30;
        EXPECT_EQ(leaf.tunneled(hasHeaders ? 2 : 0).size(), hasHeaders ? 2u : 0u);
        EXPECT_EQ(leaf.moved(),
                  (PlaneMoved{{hasHeaders ? Plane::injected : Plane::droppedMalformed, 1}}));
    }
    leaf.expectNothingElse();
}

TEST_F(PlaneForwardTest, aRequestOutOfTheTunnelReachesTheHostsAndNotTheAgent) {
    // What went to the other switch, turned round.
    leaf.suppression().vlanIdDel(Bridging::VlanId(10));
    leaf.port("et1").inject(hostFrame({}));
    Frame packet = leaf.arrived("underlay", 2).at(0);
    EXPECT_EQ(leaf.arrived("et2", 1).size(), 1u);
    EXPECT_EQ(leaf.moved(), (PlaneMoved{{Plane::passedInactive, 1}}));
    std::string mac = shell("ip -o link show underlay | grep -o 'ether [^ ]*'").substr(6, 17);
    auto bytes = Zinc::EthAddr(mac).bytes();
    std::copy(bytes.begin(), bytes.end(), packet.begin());
    std::swap_ranges(packet.begin() + 26, packet.begin() + 30, packet.begin() + 30);
    packet[40] = packet[41] = 0; // no checksum of UDP's: a device would have filled it in
    leaf.suppression().vlanIdIs(Bridging::VlanId(10), true);

    leaf.port("underlay").inject(packet);
    EXPECT_EQ(leaf.arrived("et1", 1), std::vector<Frame>{hostFrame({})});
    EXPECT_EQ(leaf.arrived("et2", 1), std::vector<Frame>{hostFrame({})});
    leaf.expectNothingElse();
}

} // namespace
} // namespace Netns
