#include "Platform/Model/Bridging/Config.h"

#include "Platform/Model/test/ExpectModel.h"
#include "Platform/State/test/StateFixture.h"
#include "Platform/Value/test/ExpectForms.h"

namespace Bridging {
namespace {

class BridgingConfigTest : public Vela::StateFixture {
  protected:
    const Vela::Ptr<Config> config_ = Vela::make<Config>();
};

TEST(FidTest, HasSixteenBitsAndAnEmptyValue) {
    EXPECT_FALSE(Fid());
    EXPECT_TRUE(Fid(1));
    EXPECT_EQ(Fid(65535).value(), 65535);
    for (uint64_t value : {65536ull, 65537ull, ~0ull}) {
        expectRangeError([&] { Fid{value}; }, "Bridging::Fid::value > 65535 not allowed");
    }
}

TEST(FidTest, Forms) {
    expectOrderedAndHashed({Fid(), Fid(1), Fid(256), Fid(65535)});
    EXPECT_EQ(Fid(10).toStrep(), "10");
    expectValueForm(Fid(), "0");
    expectValueForm(Fid(65535), "65535");
    expectNoValueForm<Fid>({"", "-1", "65536", "010", "'1'"});
}

TEST_F(BridgingConfigTest, BridgeMacAddr) {
    EXPECT_TRUE(config_->bridgeMacAddr().isZero());
    expectAttribute(*config_, &Config::bridgeMacAddrAttribute, &Config::bridgeMacAddr,
                    &Config::bridgeMacAddrIs, Zinc::EthAddr("02:00:00:00:00:01"));
}

TEST_F(BridgingConfigTest, VlanToFid) {
    expectValues(*config_, &Config::vlanToFidCollection, &Config::vlanToFidIs,
                 &Config::vlanToFidDel, &Config::vlanToFidDelAll, VlanId(10), VlanId(20), Fid(),
                 Fid(1010));
}

TEST_F(BridgingConfigTest, VlanWithoutMappingIsItsOwnFid) {
    EXPECT_EQ(config_->fid(VlanId(10)), Fid(10));
    config_->vlanToFidIs(VlanId(10), Fid(1010));
    EXPECT_EQ(config_->fid(VlanId(10)), Fid(1010));
    EXPECT_EQ(config_->fid(VlanId(4094)), Fid(4094));
    config_->vlanToFidIs(VlanId(10), Fid());
    EXPECT_EQ(config_->fid(VlanId(10)), Fid(10));
    EXPECT_TRUE(config_->vlanToFidCollection().has(VlanId(10)));
}

TEST_F(BridgingConfigTest, Dump) {
    config_->bridgeMacAddrIs(Zinc::EthAddr("02:00:00:00:00:01"));
    config_->vlanToFidIs(VlanId(20), Fid(1020));
    config_->vlanToFidIs(VlanId(10), Fid());
    EXPECT_EQ(dump(*config_, 2), "  Bridging::Config\n"
                                 "    bridgeMacAddr=02:00:00:00:00:01\n"
                                 "    vlanToFid[] #2\n"
                                 "      10 -> 0\n"
                                 "      20 -> 1020\n");
}

} // namespace
} // namespace Bridging
