// What an operator is told of a forwarding plane in the kernel.

#include "Host/ReportOfPlane.h"
#include "Platform/Base/UniqueFd.h"
#include "Testing/CoreFixture.h"

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <set>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Netns {

namespace {

class PlaneReportTest : public Testing::CoreFixture {
  protected:
    PlaneReportTest() : before_(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC)) {
        EXPECT_EQ(unshare(CLONE_NEWNET), 0);
        EXPECT_EQ(std::system("ip link set lo up; ip link add Vlan10 address 02:00:00:00:0b:0b "
                              "type bridge; ip link set "
                              "Vlan10 up; ip link add vx10 type vxlan id 10 local 127.0.0.1 "
                              "dstport 4789; ip link set vx10 master Vlan10 up"),
                  0);
        topology_->vlanBridgeIs(Bridging::VlanId(10), {if_nametoindex("Vlan10"), {}});
        topology_->bridgePortIs(
            if_nametoindex("vx10"),
            {.vlanId = Bridging::VlanId(10), .intfId = Zinc::IntfId("vx10"), .tunnel = true});
        bridgingConfig_->bridgeMacAddrIs(Zinc::EthAddr("02:00:00:00:0b:0b"));
        plane_ = Vela::make<Linux::ForwardingPlane>(Linux::ForwardingPlane::Inputs{
            scheduler(), turns_, topology_, suppression_, bridgingConfig_, virtualRouterMac_});
        runUntilIdle();
    }
    ~PlaneReportTest() override {
        plane_.reset();
        EXPECT_EQ(setns(before_.get(), CLONE_NEWNET), 0);
    }

    Vela::UniqueFd before_;
    Vela::Attribute<uint64_t> turns_;
    Vela::Ptr<Linux::Topology> topology_ = Vela::make<Linux::Topology>();
    Vela::Ptr<ArpSuppression::ArpSuppressionStatus> suppression_ =
        Vela::make<ArpSuppression::ArpSuppressionStatus>();
    Vela::Ptr<Bridging::Config> bridgingConfig_ = Vela::make<Bridging::Config>();
    Vela::Ptr<Routing::Fhrp::VirtualRouterMacStatus> virtualRouterMac_ =
        Vela::make<Routing::Fhrp::VirtualRouterMacStatus>();
    Vela::Owned<Linux::ForwardingPlane> plane_;
};

TEST_F(PlaneReportTest, StateTunnelsAndEveryCounter) {
    auto report = Host::reportOf(*plane_.ptr());
    EXPECT_TRUE(report.enabled);
    EXPECT_NE(report.silentBecause, "") << "there is no agent";
    EXPECT_EQ(report.silentBecause, plane_->silentBecause());
    EXPECT_EQ(report.tunnels, std::vector<uint32_t>{if_nametoindex("vx10")});
    EXPECT_EQ(report.problems, std::vector<std::string>{});
    ASSERT_EQ(report.counters.size(), static_cast<size_t>(Linux::Plane::counterLimit));
    std::set<std::string> names;
    for (const auto& [name, count] : report.counters) {
        names.insert(name);
    }
    EXPECT_EQ(names.size(), report.counters.size());
    EXPECT_EQ(report.counters.front(), std::pair(std::string("trapped"), uint64_t{0}));
    plane_->enabledIs(false);
    EXPECT_FALSE(Host::reportOf(*plane_.ptr()).enabled);

    topology_->bridgePortIs(
        5000, {.vlanId = Bridging::VlanId(20), .intfId = Zinc::IntfId("vx20"), .tunnel = true});
    runUntilIdle();
    report = Host::reportOf(*plane_.ptr());
    EXPECT_EQ(report.tunnels.size(), 1u);
    ASSERT_EQ(report.problems.size(), 1u);
    EXPECT_NE(report.problems[0].find("cannot be attached to device 5000"), std::string::npos)
        << report.problems[0];
}

TEST_F(PlaneReportTest, CountersAreReadInAForkedChild) {
    // A request of the switch's own, through the bridge to the tunnel, on a VLAN that is not
    // active.
    ASSERT_EQ(
        std::system("ip addr add 10.0.0.1/24 dev Vlan10; ping -c 1 -W 0.1 10.0.0.2 > /dev/null;"
                    "true"),
        0);
    auto passedInactive = [](const Host::ForwardingPlaneReport& report) {
        for (const auto& [name, count] : report.counters) {
            if (name == "passedInactive") {
                return count;
            }
        }
        return uint64_t{0};
    };
    uint64_t here = passedInactive(Host::reportOf(*plane_.ptr()));
    EXPECT_GT(here, 0u);
    pid_t pid = fork();
    if (pid == 0) {
        close_range(3, ~0u, 0); // as the control socket's children have it
        _exit(passedInactive(Host::reportOf(*plane_.ptr())) >= here ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
}

} // namespace

} // namespace Netns
