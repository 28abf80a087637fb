#include "Linux/Topology.h"
#include "Testing/CoreFixture.h"

#include <gtest/gtest.h>

namespace Linux {
namespace {

class TopologyTest : public Testing::CoreFixture {};

TEST_F(TopologyTest, announcesOnlyAChange) {
    auto topology = Vela::make<Topology>();
    int announced = 0;
    auto reaction = topology->bridgePortCollection().react(nullptr, [&](uint32_t) { ++announced; });
    BridgePort port{Bridging::VlanId(10), Zinc::IntfId("Ethernet1")};
    topology->bridgePortIs(3, port);
    topology->bridgePortIs(3, port);
    EXPECT_EQ(announced, 1);
    port.tunnel = true;
    topology->bridgePortIs(3, port);
    EXPECT_EQ(announced, 2);
    EXPECT_TRUE(topology->bridgePort(3).tunnel);
    EXPECT_FALSE(topology->bridgePort(4).tunnel);
}

} // namespace
} // namespace Linux
