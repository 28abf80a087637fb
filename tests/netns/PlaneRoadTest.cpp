// A host's request, the forwarding plane, the agent, and back.

#include "ArpSuppression/ArpSuppressionAgent.h"
#include "Testing/LiveSwitch.h"
#include "Testing/SwitchDevices.h"
#include "tests/netns/PlaneLeaf.h"

#include <gtest/gtest.h>
#include <net/if.h>

namespace Netns {
namespace {

namespace Plane = Linux::Plane;
using Tunneled = PlaneLeaf::Tunneled;

class PlaneRoadTest : public ::testing::Test {
  protected:
    PlaneRoadTest() {
        leaf.planeIs();
        leaf.suppression().vlanIdIs(Bridging::VlanId(10), true);
        auto& state = live.state();
        state.bridgingConfig->bridgeMacAddrIs(Zinc::EthAddr(PlaneLeaf::bridgeMac));
        state.vrfIdMap->vrfIs(Vrf::VrfId(0), "default");
        state.evpnStatus->mplsConfiguredIs(true);
        state.remoteBindingConfig->remoteBindingIs(
            {{Bridging::VlanId(10), Zinc::IpGenAddr("10.0.0.2")}, remote, 0, 0});
        live.start(*agent, false);

        Testing::routedVlanIs(state, Bridging::VlanId(10), if_nametoindex("Vlan10"));
        Testing::portIs(state, "Ethernet1", "et1", leaf.port("et1").ifIndex());
        for (const char* device : {"fabric", "arpinject", "arpsnoop"}) {
            Testing::deviceIs(state, device, if_nametoindex(device));
        }
        EXPECT_TRUE(live.turnUntilIdle());
        EXPECT_TRUE(live.turnUntil([this] { return turned() && leaf.plane().trapping(); }));
        leaf.moved();
    }
    ~PlaneRoadTest() override {
        live.state().evpnStatus->mplsConfiguredIs(false);
        live.turnUntilIdle();
        agent->destroy();
    }

    bool turned() {
        leaf.turn();
        return true;
    }
    bool turnUntilMoved(const PlaneMoved& expected) {
        PlaneMoved all;
        return live.turnUntil([&] {
            leaf.turn();
            for (const auto& [counter, moved] : leaf.moved()) {
                all[counter] += moved;
            }
            return all == expected;
        });
    }

    const Zinc::EthAddr requester{"02:00:00:00:00:01"};
    const Zinc::EthAddr remote{"02:00:00:00:00:02"};
    PlaneLeaf leaf;
    Testing::LiveSwitch live;
    Vela::Ptr<ArpSuppression::ArpSuppressionAgent> agent =
        ArpSuppression::arpSuppressionAgentFactory("ArpSuppression");
};

TEST_F(PlaneRoadTest, aKnownHostIsAnsweredForAndAnUnknownOneAskedForElsewhere) {
    leaf.port("et1").inject(hostFrame({}));
    ASSERT_TRUE(turnUntilMoved({{Plane::trapped, 1}, {Plane::delivered, 1}}));
    EXPECT_EQ(leaf.arrived("et1", 1),
              std::vector<Frame>{hostFrame({.operation = 2,
                                            .frameDst = requester,
                                            .senderMac = remote,
                                            .senderIp = Zinc::IpGenAddr("10.0.0.2"),
                                            .targetMac = requester,
                                            .targetIp = Zinc::IpGenAddr("10.0.0.1")})});
    EXPECT_EQ(leaf.tunneled(0), Tunneled{});

    Frame unknown = hostFrame({.targetIp = Zinc::IpGenAddr("10.0.0.9")});
    leaf.port("et1").inject(unknown);
    ASSERT_TRUE(turnUntilMoved({{Plane::trapped, 1}, {Plane::injected, 1}}));
    EXPECT_EQ(leaf.tunneled(2), (Tunneled{{1010, unknown}, {1010, unknown}}));
    EXPECT_EQ(leaf.arrived("et1", 0), std::vector<Frame>{});
}

TEST_F(PlaneRoadTest, aStopLosesNothing) {
    // As a daemon stops: requests on their way are worked off, later ones pass.
    Frame unknown = hostFrame({.targetIp = Zinc::IpGenAddr("10.0.0.9")});
    for (int i = 0; i < 50; ++i) {
        leaf.port("et1").inject(unknown);
    }
    leaf.plane().enabledIs(false);
    leaf.port("et1").inject(unknown);
    ASSERT_TRUE(
        turnUntilMoved({{Plane::trapped, 50}, {Plane::injected, 50}, {Plane::passedSilent, 1}}));
    leaf.planeDel();
    EXPECT_TRUE(live.turnUntilIdle());
    leaf.port("et1").inject(unknown);
    EXPECT_EQ(leaf.tunneled(104).size(), 104u);
}

} // namespace
} // namespace Netns
