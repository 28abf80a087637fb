#include "ArpSuppression/ArpSuppression.h"

#include "Platform/State/DumpContext.h"
#include "Testing/CoreFixture.h"

#include <vector>

namespace ArpSuppression {
namespace {

using Bridging::VlanId;

using EnabledVlansTest = Testing::CoreFixture;

TEST_F(EnabledVlansTest, IsASetThatAnnouncesItsChanges) {
    auto enabledVlans = Vela::make<EnabledVlans>();
    std::vector<int> announced;
    auto reaction = enabledVlans->vlanIdCollection().react(
        nullptr, [&](VlanId vlanId) { announced.push_back(vlanId.value()); });
    EXPECT_EQ(enabledVlans->vlanIds(), 0u);

    enabledVlans->vlanIdIs(VlanId(20));
    enabledVlans->vlanIdIs(VlanId(10));
    enabledVlans->vlanIdIs(VlanId(20));
    EXPECT_EQ(enabledVlans->vlanIds(), 2u);
    EXPECT_TRUE(enabledVlans->vlanIdHas(VlanId(10)));
    EXPECT_FALSE(enabledVlans->vlanIdHas(VlanId(11)));
    EXPECT_EQ(announced, (std::vector<int>{20, 10}));

    enabledVlans->vlanIdDel(VlanId(11));
    enabledVlans->vlanIdDel(VlanId(20));
    EXPECT_FALSE(enabledVlans->vlanIdHas(VlanId(20)));
    EXPECT_EQ(announced, (std::vector<int>{20, 10, 20}));

    enabledVlans->vlanIdIs(VlanId(4094));
    enabledVlans->vlanIdDelAll();
    EXPECT_EQ(enabledVlans->vlanIds(), 0u);
    EXPECT_EQ(announced, (std::vector<int>{20, 10, 20, 4094, 10, 4094}));
}

TEST_F(EnabledVlansTest, DumpsItsVlansInOrder) {
    auto enabledVlans = Vela::make<EnabledVlans>();
    Vela::DumpContext empty;
    enabledVlans->dumpState(empty, 0);
    EXPECT_EQ(empty.text(), "EnabledVlans #0\n");

    enabledVlans->vlanIdIs(VlanId(20));
    enabledVlans->vlanIdIs(VlanId(3));
    Vela::DumpContext context;
    enabledVlans->dumpState(context, 2);
    EXPECT_EQ(context.text(), "  EnabledVlans #2\n"
                              "    3\n"
                              "    20\n");
}

} // namespace
} // namespace ArpSuppression
