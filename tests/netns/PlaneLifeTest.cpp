// When the forwarding plane is there and when it is as if there were none: starts, stops, deaths,
// devices that come and go.

#include "Linux/PlaneDevice.h"
#include "Linux/PlaneError.h"
#include "Platform/State/DumpContext.h"
#include "Testing/Eventually.h"
#include "tests/netns/PlaneLeaf.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Netns {
namespace {

namespace Plane = Linux::Plane;
using Tunneled = PlaneLeaf::Tunneled;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

class PlaneLifeTest : public ::testing::Test {
  protected:
    ~PlaneLifeTest() override {
        leaf.reset();
        EXPECT_EQ(Vela::Entity::liveCount(), entitiesBefore_) << "the test left entities behind";
    }

    static Frame request() { return hostFrame({}); }
    void ask() { leaf->port("et1").inject(request()); }
    void expectTrapped() {
        leaf->turn(); // however long it took to come here
        ask();
        EXPECT_EQ(leaf->trapped(1).size(), 1u);
        EXPECT_EQ(leaf->tunneled(0), Tunneled{});
        EXPECT_EQ(leaf->moved(), (PlaneMoved{{Plane::trapped, 1}}));
    }
    void expectPasses(const PlaneMoved& moved) {
        ask();
        EXPECT_EQ(leaf->tunneled(2), (Tunneled{{1010, request()}, {1010, request()}}));
        EXPECT_EQ(leaf->moved(), moved);
    }
    bool turnUntilTrapping(bool trapping) {
        return leaf->turnUntil([&] { return leaf->plane().trapping() == trapping; });
    }
    static std::string filters(const std::string& device) {
        return shell("tc filter show dev " + device + " egress");
    }
    /// How often the plane's program is there.
    static size_t planeFilters(const std::string& device) {
        std::string text = filters(device);
        size_t count = 0;
        for (size_t at = 0; (at = text.find("name arpsup_tunnel", at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    }

  private:
    const uint64_t entitiesBefore_ = Vela::Entity::liveCount();

  protected:
    std::unique_ptr<PlaneLeaf> leaf = std::make_unique<PlaneLeaf>();
};

TEST_F(PlaneLifeTest, requestsPassUntilTheAgentHasBothSocketsAndHasTurned) {
    leaf->suppression().vlanIdIs(Bridging::VlanId(10), true);
    ask();
    EXPECT_EQ(leaf->tunneled(2).size(), 2u);
    leaf->planeIs();
    ASSERT_TRUE(leaf->turnUntil([&] { return leaf->plane().attachedTunnels().size() == 2; }));
    EXPECT_FALSE(leaf->plane().trapping());
    expectPasses({{Plane::passedSilent, 1}});
    leaf->agentIs();
    expectPasses({{Plane::passedSilent, 1}}); // no turn since
    ASSERT_TRUE(turnUntilTrapping(true));
    expectTrapped();
    // Neither socket alone is an agent.
    leaf->trapSocketDel();
    ASSERT_TRUE(turnUntilTrapping(false));
    EXPECT_EQ(leaf->plane().silentBecause(), "nobody reads from arpsnoop");
    expectPasses({{Plane::passedSilent, 1}});
    leaf->agentIs();
    ASSERT_TRUE(turnUntilTrapping(true));
    leaf->injectSocketDel();
    ASSERT_TRUE(turnUntilTrapping(false));
    EXPECT_EQ(leaf->plane().silentBecause(), "nobody writes to arpinject");
    expectPasses({{Plane::passedSilent, 1}});
}

TEST_F(PlaneLifeTest, neighbourDiscoveryIsNotCopiedToNobody) {
    leaf->suppression().vlanIdIs(Bridging::VlanId(10), true);
    leaf->planeIs();
    ASSERT_TRUE(leaf->turnUntil([&] { return leaf->plane().attachedTunnels().size() == 2; }));
    auto packet = Testing::fromHex("6000000000083aff fe800000000000000000000000000001"
                                   "ff0200000000000000000000000000028500000000000000");
    Frame frame = withoutTrapHeader(Testing::trapFrame(10, 1, 0x86DD, packet));
    leaf->port("et1").inject(frame);
    EXPECT_EQ(leaf->tunneled(2), (Tunneled{{1010, frame}, {1010, frame}}));
    EXPECT_EQ(leaf->moved(), PlaneMoved{});
}

TEST_F(PlaneLifeTest, aLoopThatHangsCostsLessThanTwoSecondsOfRequests) {
    leaf->start();
    leaf->turn();
    auto hung = steady_clock::now();
    uint64_t asked = 0;
    size_t flooded = 0;
    auto lastLost = hung; // not the first that passed: a slow machine asks seldom
    ASSERT_TRUE(Testing::eventually([&] {
        auto now = steady_clock::now();
        ask();
        ++asked;
        leaf->trapped(0); // the socket's queue is short
        flooded = leaf->tunneled(0).size();
        if (flooded == 0) {
            lastLost = now;
        }
        return flooded > 0;
    }));
    EXPECT_LT(lastLost - hung, milliseconds(2000));
    EXPECT_GT(steady_clock::now() - hung, milliseconds(500)) << "a loop may sleep that long";
    EXPECT_EQ(flooded, 2u);
    EXPECT_EQ(leaf->moved(), (PlaneMoved{{Plane::trapped, asked - 1}, {Plane::passedSilent, 1}}));
    // The next turn says that it lives.
    leaf->turn();
    expectTrapped();
}

TEST_F(PlaneLifeTest, aLoopThatOnlyJustTurnsIsAlive) {
    leaf->start();
    auto end = steady_clock::now() + milliseconds(2500);
    while (steady_clock::now() < end) {
        usleep(500'000); // the longest sleep of a loop that has nothing to do
        leaf->turn();
        expectTrapped();
    }
}

TEST_F(PlaneLifeTest, onceDisabledEverythingPassesAtOnce) {
    leaf->start();
    expectTrapped();
    leaf->plane().enabledIs(false);
    expectPasses({{Plane::passedSilent, 1}});
    usleep(250'000);
    leaf->turn();
    expectPasses({{Plane::passedSilent, 1}});
    // What the agent still writes is forwarded.
    leaf->write("arpinject", Testing::TrapFrame{}.bytes());
    EXPECT_EQ(leaf->tunneled(2).size(), 2u);
    EXPECT_EQ(leaf->moved(), (PlaneMoved{{Plane::injected, 1}}));
    leaf->plane().enabledIs(true);
    expectPasses({{Plane::passedSilent, 1}});
    leaf->turn();
    expectTrapped();
}

TEST_F(PlaneLifeTest, aDeviceThatIsDeletedLetsRequestsPassAtOnce) {
    leaf->start();
    shell("ip link del arpsnoop");
    expectPasses({{Plane::passedNoDevice, 1}}); // the plane has not looked yet
    ASSERT_TRUE(turnUntilTrapping(false));
    expectPasses({{Plane::passedSilent, 1}});
}

TEST_F(PlaneLifeTest, aDeviceThatIsDeletedIsMadeAnew) {
    leaf->start();
    for (std::string device : {"arpsnoop", "arpinject", "fabric"}) {
        for (std::string end : {"", "-fp"}) {
            SCOPED_TRACE(device + end);
            uint32_t before = if_nametoindex(device.c_str());
            shell("ip link del " + device + end);
            ASSERT_TRUE(turnUntilTrapping(false));
            ASSERT_TRUE(leaf->turnUntil([&] { return if_nametoindex(device.c_str()) != 0; }));
            EXPECT_NE(if_nametoindex(device.c_str()), before);
            leaf->agentIs(); // it goes by the name
            ASSERT_TRUE(turnUntilTrapping(true));
            leaf->moved();
            expectTrapped();
            leaf->write("arpinject", Testing::TrapFrame{}.bytes());
            EXPECT_EQ(leaf->tunneled(2).size(), 2u);
            EXPECT_EQ(leaf->moved(), (PlaneMoved{{Plane::injected, 1}}));
            leaf->write("fabric", request());
            EXPECT_EQ(leaf->moved(), (PlaneMoved{{Plane::droppedUntagged, 1}}));
        }
    }
}

TEST_F(PlaneLifeTest, aDeviceIsMadeAnewOnceItsNameIsFree) {
    leaf->start();
    shell("ip link del fabric; ip link add fabric type bridge");
    const std::string problem = "the forwarding plane needs the names fabric and fabric-fp for "
                                "devices of its own: rename or remove what has them now";
    ASSERT_TRUE(leaf->turnUntil([&] { return leaf->plane().silentBecause() == problem; }));
    expectPasses({{Plane::passedSilent, 1}});
    shell("ip link del fabric");
    ASSERT_TRUE(turnUntilTrapping(true));
    expectTrapped();
    // While the daemon stops, nothing comes back.
    leaf->plane().enabledIs(false);
    shell("ip link del fabric");
    usleep(250'000);
    leaf->turn();
    leaf->turn();
    EXPECT_EQ(if_nametoindex("fabric"), 0u);
}

TEST_F(PlaneLifeTest, everyDeviceIsNeeded) {
    for (std::string device : {"arpsnoop", "arpinject", "fabric"}) {
        for (std::string end : {"", "-fp"}) {
            SCOPED_TRACE(device + end);
            leaf->planeDel();
            leaf->start();
            shell("ip link set " + device + end + " down");
            ASSERT_TRUE(turnUntilTrapping(false));
            EXPECT_EQ(leaf->plane().silentBecause(), device + " is not there or down");
            expectPasses({{Plane::passedSilent, 1}});
            shell("ip link set " + device + end + " up");
            ASSERT_TRUE(turnUntilTrapping(true));
        }
        shell("ip link del " + device);
        ASSERT_TRUE(turnUntilTrapping(false));
    }
}

TEST_F(PlaneLifeTest, anotherDeviceOfTheNameIsNotThePlanes) {
    leaf->start();
    shell(
        "ip link set fabric name formerly; ip link add fabric type bridge; ip link set fabric up");
    ASSERT_TRUE(turnUntilTrapping(false));
    leaf->planeDel();
    EXPECT_NE(if_nametoindex("fabric"), 0u) << "somebody else's";
}

TEST_F(PlaneLifeTest, aCleanStopLeavesNothingBehind) {
    shell(
        "tc qdisc add dev vxlan10 clsact;"
        "tc filter add dev vxlan10 egress protocol all prio 7 u32 match u32 1 0xffffffff at 0;"
        "tc filter add dev vxlan10 egress protocol all prio 60000 u32 match u32 2 0xffffffff at 0");
    std::string before = filters("vxlan10");
    leaf->start();
    std::string between = filters("vxlan10");
    EXPECT_EQ(planeFilters("vxlan10"), 1u);
    EXPECT_NE(between.find("pref 7 "), std::string::npos) << between;
    EXPECT_NE(between.find("pref 60000 "), std::string::npos) << between;
    expectTrapped();
    leaf->planeDel();
    EXPECT_EQ(filters("vxlan10"), before);
    EXPECT_EQ(filters("vxlan20"), "");
    for (std::string device : {"arpsnoop", "arpinject", "fabric"}) {
        EXPECT_EQ(if_nametoindex(device.c_str()), 0u) << device;
        EXPECT_EQ(if_nametoindex((device + "-fp").c_str()), 0u) << device;
    }
    ask();
    EXPECT_EQ(leaf->tunneled(2), (Tunneled{{1010, request()}, {1010, request()}}));
}

TEST_F(PlaneLifeTest, aTunnelThatIsRecreatedIsAttachedToAgain) {
    leaf->start();
    uint32_t before = if_nametoindex("vxlan10");
    shell("ip link del vxlan10");
    leaf->topology().bridgePortDel(before);
    leaf->turn();
    EXPECT_EQ(leaf->plane().attachedTunnels().count(before), 0u);
    shell(R"(ip link add vxlan10 type vxlan id 1010 local 192.0.2.1 remote 192.0.2.2 \
                 dstport 4789 nolearning
             bridge fdb append 00:00:00:00:00:00 dev vxlan10 dst 192.0.2.3
             ip link set vxlan10 mtu 1500 master Vlan10 up)");
    uint32_t after = if_nametoindex("vxlan10");
    ASSERT_NE(after, before);
    expectPasses({}); // nobody has said what it is
    leaf->tunnelIs(10, "vxlan10");
    ASSERT_TRUE(leaf->turnUntil([&] { return leaf->plane().attachedTunnels().count(after); }));
    expectTrapped();
    leaf->write("arpinject", Testing::TrapFrame{}.bytes());
    EXPECT_EQ(leaf->tunneled(2).size(), 2u);
}

TEST_F(PlaneLifeTest, aTunnelThatIsRecreatedUnderItsIndexIsAttachedToAgain) {
    leaf->start();
    uint32_t index = if_nametoindex("vxlan10");
    shell("ip link del vxlan10; ip link add vxlan10 index " + std::to_string(index) +
          " type vxlan id 1010 local 192.0.2.1 remote 192.0.2.2 dstport 4789 nolearning;"
          "bridge fdb append 00:00:00:00:00:00 dev vxlan10 dst 192.0.2.3;"
          "ip link set vxlan10 mtu 1500 master Vlan10 up");
    ASSERT_EQ(if_nametoindex("vxlan10"), index);
    leaf->topology().bridgePortDel(index);
    leaf->tunnelIs(10, "vxlan10"); // before the plane has had its turn
    leaf->turn();
    EXPECT_EQ(planeFilters("vxlan10"), 1u);
    expectTrapped();
}

TEST_F(PlaneLifeTest, aTunnelThatCannotBeAttachedToIsTriedAgainAndHoldsUpNoOther) {
    leaf->planeIs();
    leaf->agentIs();
    leaf->suppression().vlanIdIs(Bridging::VlanId(10), true);
    constexpr uint32_t absent = 5000;
    leaf->topology().bridgePortIs(2, {}); // none of a VLAN's bridge
    leaf->topology().bridgePortIs(
        absent,
        {.vlanId = Bridging::VlanId(10), .intfId = Zinc::IntfId("vxlan10b"), .tunnel = true});
    leaf->turn();
    EXPECT_EQ(leaf->plane().attachedTunnels().size(), 2u);
    Vela::DumpContext dump;
    leaf->plane().dumpState(dump, 0);
    EXPECT_NE(dump.text().find("problem[5000] the forwarding plane cannot be attached"),
              std::string::npos)
        << dump.text();
    shell("ip link add vxlan10b index 5000 type vxlan id 2010 local 192.0.2.1 dstport 4789");
    ASSERT_TRUE(leaf->turnUntil([&] { return leaf->plane().attachedTunnels().count(absent); }));
    // It goes, and the VLAN's other tunnel serves again.
    leaf->topology().bridgePortDel(absent);
    leaf->turn();
    EXPECT_EQ(filters("vxlan10b"), "");
    leaf->write("arpinject", Testing::TrapFrame{}.bytes());
    EXPECT_EQ(leaf->tunneled(2).size(), 2u);
}

TEST_F(PlaneLifeTest, somebodyElsesFilterInItsPlaceIsLeftAlone) {
    shell(
        "tc qdisc add dev vxlan10 clsact;"
        "tc filter add dev vxlan10 egress protocol all prio 42384 u32 match u32 1 0xffffffff at 0");
    std::string before = filters("vxlan10");
    leaf->planeIs();
    leaf->turn();
    EXPECT_EQ(filters("vxlan10"), before);
    EXPECT_EQ(leaf->plane().attachedTunnels().size(), 1u);
}

TEST_F(PlaneLifeTest, whatAKilledPredecessorLeftIsReplaced) {
    pid_t predecessor = fork();
    if (predecessor == 0) {
        leaf->start();
        _exit(leaf->plane().trapping() ? 0 : 1); // nothing is cleaned up
    }
    int status = 1;
    ASSERT_EQ(waitpid(predecessor, &status, 0), predecessor);
    ASSERT_EQ(status, 0);
    uint32_t left = if_nametoindex("arpsnoop");
    ASSERT_NE(left, 0u);
    ASSERT_EQ(planeFilters("vxlan10"), 1u);
    ASSERT_EQ(planeFilters("vxlan20"), 1u);

    // One of its tunnels is none any more.
    leaf->topology().bridgePortDel(if_nametoindex("vxlan20"));
    leaf->planeIs();
    leaf->agentIs();
    leaf->suppression().vlanIdIs(Bridging::VlanId(10), true);
    ASSERT_TRUE(turnUntilTrapping(true));
    EXPECT_NE(if_nametoindex("arpsnoop"), left);
    EXPECT_EQ(planeFilters("vxlan10"), 1u);
    EXPECT_EQ(filters("vxlan20"), "");
    expectTrapped();
}

TEST_F(PlaneLifeTest, aKilledAgentCostsLessThanTwoSecondsOfRequests) {
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    pid_t agent = fork();
    if (agent == 0) {
        leaf->start();
        EXPECT_EQ(write(pipeEnds[1], "!", 1), 1);
        for (;;) {
            leaf->turn();
            usleep(1000);
        }
    }
    char ready;
    ASSERT_EQ(read(pipeEnds[0], &ready, 1), 1);
    ask();
    usleep(50'000);
    EXPECT_EQ(leaf->tunneled(0), Tunneled{});
    auto killed = steady_clock::now();
    kill(agent, SIGKILL);
    waitpid(agent, nullptr, 0);
    auto lastLost = killed;
    ASSERT_TRUE(Testing::eventually([&] {
        auto now = steady_clock::now();
        ask();
        bool passed = !leaf->tunneled(0).empty();
        if (!passed) {
            lastLost = now;
        }
        return passed;
    }));
    EXPECT_LT(lastLost - killed, milliseconds(2000));
    // And from then on none is lost.
    for (int i = 0; i < 100; ++i) {
        ask();
        EXPECT_EQ(leaf->tunneled(2).size(), 2u);
    }
}

template <class Make>
std::string errorOf(Make make) {
    try {
        make();
    } catch (const Linux::PlaneError& error) {
        return error.what();
    }
    return "no error";
}

TEST_F(PlaneLifeTest, whatStandsInTheWayIsSaid) {
    shell("ip link add fabric type bridge");
    EXPECT_EQ(errorOf([&] { leaf->planeIs(); }),
              "the forwarding plane needs the names fabric and fabric-fp for devices of its own: "
              "rename or remove what has them now");
    EXPECT_NE(if_nametoindex("fabric"), 0u);
    EXPECT_EQ(if_nametoindex("arpsnoop"), 0u) << "what it made before must go";
    shell("ip link del fabric");

    leaf->start();
    PlaneLeaf* first = leaf.get();
    EXPECT_EQ(errorOf([&] { Linux::PlaneDevice second("arpsnoop", 1500); }),
              "another agent works on arpsnoop in this network namespace");
    EXPECT_NE(if_nametoindex("arpsnoop"), 0u);
    first->turn();
    expectTrapped();
}

TEST_F(PlaneLifeTest, withoutThePrivilegeTheTextSaysWhich) {
    ASSERT_EQ(seteuid(65534), 0);
    std::string text = errorOf([&] { leaf->planeIs(); });
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(text.rfind("the forwarding plane cannot be loaded: Operation not permitted; that "
                         "takes CAP_BPF and CAP_NET_ADMIN",
                         0),
              0u)
        << text;
}

TEST_F(PlaneLifeTest, burstsGoThroughWhole) {
    leaf->start();
    constexpr uint64_t burst = 2000;
    Frame trap = Testing::TrapFrame{}.bytes();
    for (uint64_t i = 0; i < burst; ++i) {
        leaf->write("arpinject", trap);
    }
    EXPECT_EQ(leaf->moved(), (PlaneMoved{{Plane::injected, burst}}));
    for (uint64_t i = 0; i < burst; ++i) {
        ask();
    }
    EXPECT_EQ(leaf->moved(), (PlaneMoved{{Plane::trapped, burst}}));
}

TEST_F(PlaneLifeTest, theDumpShowsStateAndCounters) {
    leaf->start();
    expectTrapped();
    Vela::DumpContext dump;
    leaf->plane().dumpState(dump, 0);
    for (const char* line : {"trapping=1\n", " vlanId=20 attached=1\n", "  trapped=1\n",
                             "  passedSilent=0\n", "  droppedNoMemory=0\n"}) {
        EXPECT_NE(dump.text().find(line), std::string::npos) << line << dump.text();
    }
}

} // namespace
} // namespace Netns
