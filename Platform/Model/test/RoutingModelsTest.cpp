#include "Platform/Model/Routing/Fhrp/VirtualRouterMacStatus.h"
#include "Platform/Model/Routing/L2Vpn/Config.h"
#include "Platform/Model/Vrf/NameToIdMap.h"

#include "Platform/Model/test/ExpectModel.h"
#include "Platform/State/test/StateFixture.h"

namespace {

using Vela::make;
using Vrf::VrfId;

class RoutingModelsTest : public Vela::StateFixture {};

TEST_F(RoutingModelsTest, VirtualRouterMacStatus) {
    using Routing::Fhrp::VirtualRouterMacStatus;
    auto status = make<VirtualRouterMacStatus>();
    EXPECT_TRUE(status->varpVirtualMac().isZero());
    const Zinc::EthAddr mac("02:00:00:00:00:99");
    expectAttribute(*status, &VirtualRouterMacStatus::varpVirtualMacAttribute,
                    &VirtualRouterMacStatus::varpVirtualMac,
                    &VirtualRouterMacStatus::varpVirtualMacIs, mac);
    status->varpVirtualMacIs(mac);
    EXPECT_EQ(dump(*status), "Routing::Fhrp::VirtualRouterMacStatus\n"
                             "  varpVirtualMac=02:00:00:00:00:99\n");
}

TEST_F(RoutingModelsTest, L2VpnConfig) {
    using Routing::L2Vpn::Config;
    auto config = make<Config>();
    EXPECT_FALSE(config->selectiveArpInstall());
    expectAttribute(*config, &Config::selectiveArpInstallAttribute, &Config::selectiveArpInstall,
                    &Config::selectiveArpInstallIs, true);
    EXPECT_EQ(dump(*config), "Routing::L2Vpn::Config\n"
                             "  selectiveArpInstall=no\n");
}

TEST_F(RoutingModelsTest, NameToIdMap) {
    using Vrf::VrfIdMap::NameToIdMap;
    auto map = make<NameToIdMap>();
    expectValues(*map, &NameToIdMap::vrfIdCollection, &NameToIdMap::vrfIdIs, &NameToIdMap::vrfIdDel,
                 &NameToIdMap::vrfIdDelAll, "blue", "red", VrfId(), VrfId(1));
    map->vrfIdIs("red", VrfId(1));
    map->vrfIdIs("default", VrfId(0));
    EXPECT_EQ(map->vrfId("red"), VrfId(1));
    EXPECT_EQ(map->vrfId("default"), VrfId(0));
    EXPECT_EQ(map->vrfId("green").value(), 0xffffffu);
    EXPECT_EQ(map->vrfIdCollection().count(), 2u) << "a look-up adds nothing";
    EXPECT_EQ(dump(*map), "Vrf::VrfIdMap::NameToIdMap\n"
                          "  vrfId[] #2\n"
                          "    default -> 0\n"
                          "    red -> 1\n");
}

} // namespace
