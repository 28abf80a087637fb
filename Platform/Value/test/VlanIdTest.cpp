#include "Platform/Value/VlanId.h"

#include "Platform/Value/test/ExpectForms.h"

namespace {

using namespace Bridging;

constexpr const char* vlanIdError = "Bridging::VlanId::value < 1 or > 4094 not allowed";

TEST(VlanIdTest, HoldsOneTo4094) {
    EXPECT_EQ(VlanId().value(), 1);
    EXPECT_EQ(VlanId(1).value(), 1);
    EXPECT_EQ(VlanId(4094).value(), 4094);
}

TEST(VlanIdTest, AnythingElseIsARangeError) {
    for (uint64_t value : {uint64_t{0}, uint64_t{4095}, uint64_t{65536}, uint64_t{65537},
                           uint64_t{0x100000001}, ~uint64_t{0}}) {
        expectRangeError([value] { VlanId vlanId(value); }, vlanIdError);
    }
    int negative = -1;
    expectRangeError([negative] { VlanId vlanId(negative); }, vlanIdError);
}

TEST(VlanIdTest, OrdersAndHashes) {
    expectOrderedAndHashed({VlanId(1), VlanId(2), VlanId(256), VlanId(4094)});
}

TEST(VlanIdTest, Forms) {
    EXPECT_EQ(VlanId(10).toStrep(), "10");
    expectValueForm(VlanId(10), "10");
    expectValueForm(VlanId(4094), "4094");
    expectNoValueForm<VlanId>({"", "0", "4095", "65537", "01", "-1", " 1", "1 ", "'1'"});
}

TEST(VlanIdOrNoneTest, HoldsZeroTo4094) {
    EXPECT_EQ(VlanIdOrNone().value(), 0);
    EXPECT_EQ(VlanIdOrNone(4094).value(), 4094);
    EXPECT_FALSE(VlanIdOrNone());
    EXPECT_FALSE(VlanIdOrNone(0));
    EXPECT_TRUE(VlanIdOrNone(1));
}

TEST(VlanIdOrNoneTest, AnythingElseIsARangeError) {
    for (uint64_t value : {uint64_t{4095}, uint64_t{65536}, ~uint64_t{0}}) {
        expectRangeError([value] { VlanIdOrNone vlanId(value); },
                         "Bridging::VlanIdOrNone::value > 4094 not allowed");
    }
}

TEST(VlanIdOrNoneTest, ConvertsFromVlanIdAndBack) {
    VlanIdOrNone converted = VlanId(10);
    EXPECT_EQ(converted, VlanIdOrNone(10));
    EXPECT_EQ(converted.vlanId(), VlanId(10));
    EXPECT_EQ(converted, VlanId(10));
    expectRangeError([] { VlanIdOrNone().vlanId(); }, vlanIdError);
}

TEST(VlanIdOrNoneTest, OrdersAndHashes) {
    expectOrderedAndHashed({VlanIdOrNone(), VlanIdOrNone(1), VlanIdOrNone(4094)});
}

TEST(VlanIdOrNoneTest, Forms) {
    EXPECT_EQ(VlanIdOrNone().toStrep(), "0");
    expectValueForm(VlanIdOrNone(), "0");
    expectValueForm(VlanIdOrNone(4094), "4094");
    expectNoValueForm<VlanIdOrNone>({"", "4095", "00", "None"});
}

} // namespace
