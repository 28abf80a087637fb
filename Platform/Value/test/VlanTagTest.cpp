#include "Platform/Value/VlanTag.h"

#include "Platform/Value/test/ExpectForms.h"

namespace {

using Bridging::VlanTag;

TEST(VlanTagTest, UntaggedByDefault) {
    EXPECT_EQ(VlanTag().tpid(), 0x8100);
    EXPECT_EQ(VlanTag().vlanId(), 0xFFF);
    EXPECT_FALSE(VlanTag().isTagged());
    EXPECT_EQ(VlanTag(), VlanTag(0x8100, 0xFFF));
}

TEST(VlanTagTest, HoldsTwelveBitsOfVlanId) {
    EXPECT_EQ(VlanTag(0x88a8, 10).tpid(), 0x88a8);
    EXPECT_EQ(VlanTag(0x88a8, 10).vlanId(), 10);
    EXPECT_TRUE(VlanTag(0x8100, 0).isTagged());
    EXPECT_TRUE(VlanTag(0x8100, 0xFFE).isTagged());
    for (uint32_t vlanId : {0x1000u, 0xFFFFu, 0x10000u, 0x1000Au}) {
        expectRangeError([vlanId] { VlanTag tag(0x8100, vlanId); },
                         "Bridging::VlanTag::vlanId > 4095 not allowed");
    }
}

TEST(VlanTagTest, OrdersAndHashes) {
    expectOrderedAndHashed({VlanTag(0, 1), VlanTag(0x8100, 1), VlanTag(0x8100, 2), VlanTag(),
                            VlanTag(0x8101, 0), VlanTag(0x88a8, 1)});
}

TEST(VlanTagTest, Forms) {
    EXPECT_EQ(VlanTag(0x8100, 10).toStrep(), "<tpid=0x8100 vlanId=10>");
    EXPECT_EQ(VlanTag(0xa, 4095).toStrep(), "<tpid=0x000a vlanId=4095>");
    expectValueForm(VlanTag(0x8100, 10),
                    "Value('Bridging::VlanTag', ** {'tpid': 33024, 'vlanId': 10})");
    expectValueForm(VlanTag(), "Value('Bridging::VlanTag', ** {'tpid': 33024, 'vlanId': 4095})");
    expectNoValueForm<VlanTag>({"Value('Bridging::VlanTag', ** {'tpid': 65536, 'vlanId': 10})",
                                "Value('Bridging::VlanTag', ** {'tpid': 33024, 'vlanId': 4096})",
                                "Value('Bridging::VlanTag', ** {'vlanId': 10, 'tpid': 33024})"});
}

} // namespace
