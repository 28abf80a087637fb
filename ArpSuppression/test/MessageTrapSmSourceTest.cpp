#include "ArpSuppression/test/MessageTrapSmFixture.h"

namespace ArpSuppression {

namespace {

using Testing::TraceCapture;
using Testing::TrapFrame;
using Zinc::IntfId;

using MessageTrapSmSourceTest = MessageTrapSmFixture;

TEST_F(MessageTrapSmSourceTest, aPortThatNobodyKnowsLeavesTheSourceEmpty) {
    TrapFrame frame;
    frame.srcIfIndex = 99;
    auto message = published(frame.bytes(), {{Id::trapArpRequest, 1}});
    ASSERT_TRUE(message);
    EXPECT_FALSE(message->srcIntfId());
    EXPECT_FALSE(message->isCpuPort());
}

TEST_F(MessageTrapSmSourceTest, aDefaultEntryLeavesTheSourceEmpty) {
    devices->deviceIntfStatusIs(12, {});
    TrapFrame frame;
    frame.srcIfIndex = 12;
    TraceCapture lines("ArpSuppression=8");
    auto message = published(frame.bytes(), {{Id::trapArpRequest, 1}});
    ASSERT_TRUE(message);
    EXPECT_FALSE(message->srcIntfId());
    EXPECT_FALSE(message->isCpuPort());
    EXPECT_FALSE(lines.contains(" Looking for intfEncap="));
}

TEST_F(MessageTrapSmSourceTest, withoutADirectoryTheSourceIsEmpty) {
    make(false);
    auto message = published(TrapFrame{}.bytes(), {{Id::trapArpRequest, 1}});
    ASSERT_TRUE(message);
    EXPECT_FALSE(message->srcIntfId());
    EXPECT_FALSE(message->isCpuPort());
}

TEST_F(MessageTrapSmSourceTest, onlyTheDeviceNamedCpuIsTheCpuPort) {
    devices->deviceIntfStatusIs(12, {IntfId("Cpu"), "cpu"});
    devices->deviceIntfStatusIs(13, {IntfId("Cpu"), "cpu0"});
    TrapFrame frame;
    frame.srcIfIndex = 12;
    auto message = published(frame.bytes(), {{Id::trapArpRequest, 1}});
    ASSERT_TRUE(message);
    EXPECT_EQ(message->srcIntfId(), IntfId("Cpu"));
    EXPECT_TRUE(message->isCpuPort());
    frame.srcIfIndex = 13;
    message = published(frame.bytes(), {{Id::trapArpRequest, 1}});
    ASSERT_TRUE(message);
    EXPECT_EQ(message->srcIntfId(), IntfId("Cpu"));
    EXPECT_FALSE(message->isCpuPort());
}

TEST_F(MessageTrapSmSourceTest, theSourceOfATaggedFrameIsTheSubInterfaceOfItsTag) {
    auto parent = subInterfaces->parentIs(ethernet1);
    Bridging::VlanTag tag7(0x8100, 7);
    Bridging::VlanTag tag8(0x8100, 8);
    parent->subIntfIs(IntfId("Ethernet1.1"), Brant::IntfEncap(tag7, tag8));
    parent->subIntfIs(IntfId("Ethernet1.2"), Brant::IntfEncap(tag7));
    parent->subIntfIs(IntfId("Ethernet1.3"), Brant::IntfEncap(tag8));
    auto sourceOf = [&](std::optional<uint16_t> dot1q) {
        TrapFrame frame;
        frame.dot1q = dot1q;
        auto message = published(frame.bytes(), {{Id::trapArpRequest, 1}});
        return message ? message->srcIntfId() : IntfId();
    };
    TraceCapture lines("ArpSuppression=8");
    EXPECT_EQ(sourceOf(7), IntfId("Ethernet1.2"));
    EXPECT_TRUE(lines.contains(" Looking for intfEncap=<tpid=0x8100 vlanId=7>\n"));
    EXPECT_TRUE(lines.contains("Outer/inner vlanTags or single vlan tag match for"));
    EXPECT_TRUE(lines.contains("Ethernet1.2 returning numTags:1\n")) << lines.text();
    EXPECT_EQ(sourceOf(8), IntfId("Ethernet1.3"));
    lines.clear();
    EXPECT_EQ(sourceOf(9), ethernet1);
    EXPECT_TRUE(lines.contains(" No matching subintf vlan encap config found\n"));
    lines.clear();
    EXPECT_EQ(sourceOf({}), ethernet1);
    EXPECT_TRUE(lines.contains(" Looking for intfEncap=<tpid=0x8100 vlanId=4095>\n"));
    subInterfaces->parentDel(ethernet1);
    lines.clear();
    EXPECT_EQ(sourceOf(7), ethernet1);
    EXPECT_TRUE(lines.contains(" Can not find parentIntfId.\n"));
}

TEST_F(MessageTrapSmSourceTest, aSubInterfaceOfTheCpuPortIsNotTheCpuPort) {
    devices->deviceIntfStatusIs(11, {IntfId("Cpu"), "cpu"});
    subInterfaces->parentIs(IntfId("Cpu"))
        ->subIntfIs(IntfId("Cpu.7"), Brant::IntfEncap(Bridging::VlanTag(0x8100, 7)));
    TrapFrame frame;
    frame.dot1q = 7;
    auto message = published(frame.bytes(), {{Id::trapArpRequest, 1}});
    ASSERT_TRUE(message);
    EXPECT_EQ(message->srcIntfId(), IntfId("Cpu.7"));
    EXPECT_FALSE(message->isCpuPort());
}

TEST_F(MessageTrapSmSourceTest, aSubInterfaceIsFoundByBothItsTags) {
    auto parent = subInterfaces->parentIs(ethernet1);
    Bridging::VlanTag tag7(0x8100, 7);
    Bridging::VlanTag tag8(0x8100, 8);
    parent->subIntfIs(IntfId("Ethernet1.1"), Brant::IntfEncap(tag7));
    parent->subIntfIs(IntfId("Ethernet1.2"), Brant::IntfEncap(tag7, tag8));
    make();
    TraceCapture lines("ArpSuppression=8");
    auto found = sm->getSubInterfaceInfo(ethernet1, tag7, tag8);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->subIntfId(), IntfId("Ethernet1.2"));
    EXPECT_EQ(found->numVlanMatched(), 2);
    EXPECT_TRUE(lines.contains(" returning numTags:2\n"));
    found = sm->getSubInterfaceInfo(ethernet1, tag7);
    EXPECT_EQ(found->subIntfId(), IntfId("Ethernet1.1"));
    EXPECT_EQ(found->numVlanMatched(), 1);
    for (auto none : {sm->getSubInterfaceInfo(ethernet1, tag8, tag7),
                      sm->getSubInterfaceInfo(ethernet1, Bridging::VlanTag(0x88A8, 7)),
                      sm->getSubInterfaceInfo(ethernet1, Bridging::VlanTag()),
                      sm->getSubInterfaceInfo(IntfId("Ethernet2"), tag7)}) {
        ASSERT_TRUE(none);
        EXPECT_FALSE(none->subIntfId());
        EXPECT_EQ(none->numVlanMatched(), 0);
    }
}

TEST_F(MessageTrapSmSourceTest, withoutSubInterfacesNoneIsFound) {
    make(false);
    auto none = sm->getSubInterfaceInfo(ethernet1, Bridging::VlanTag(0x8100, 7));
    ASSERT_TRUE(none);
    EXPECT_FALSE(none->subIntfId());
}

} // namespace

} // namespace ArpSuppression
