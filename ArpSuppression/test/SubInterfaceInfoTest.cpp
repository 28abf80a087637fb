#include "ArpSuppression/ArpSuppression.h"

#include "Platform/State/DumpContext.h"
#include "Testing/CoreFixture.h"

namespace ArpSuppression {
namespace {

using SubInterfaceInfoTest = Testing::CoreFixture;

TEST_F(SubInterfaceInfoTest, HoldsWhatItWasMadeOf) {
    auto info = SubInterfaceInfoIs(Zinc::IntfId("Ethernet1.10"), 2);
    EXPECT_EQ(info->subIntfId(), Zinc::IntfId("Ethernet1.10"));
    EXPECT_EQ(info->numVlanMatched(), 2);
    EXPECT_NE(SubInterfaceInfoIs(Zinc::IntfId("Ethernet1.10"), 2), info);

    Vela::DumpContext context;
    info->dumpState(context, 0);
    EXPECT_EQ(context.text(), "SubInterfaceInfo\n"
                              "  subIntfId=Ethernet1.10\n"
                              "  numVlanMatched=2\n");
}

TEST_F(SubInterfaceInfoTest, NoMatchHasTheEmptyInterface) {
    auto info = SubInterfaceInfoIs(Zinc::IntfId(), 0);
    EXPECT_FALSE(info->subIntfId());
    EXPECT_EQ(info->numVlanMatched(), 0);
}

} // namespace
} // namespace ArpSuppression
