#include "Platform/Value/VrfId.h"

#include "Platform/Value/VrfName.h"
#include "Platform/Value/test/ExpectForms.h"

namespace {

using Vrf::VrfId;

TEST(VrfIdTest, InvalidByDefault) {
    EXPECT_FALSE(VrfId().isValid());
    EXPECT_EQ(VrfId().value(), 0xffffffu);
    EXPECT_FALSE(VrfId(0xffffff).isValid());
    EXPECT_TRUE(VrfId(0).isValid());
    EXPECT_TRUE(VrfId(0x1000000).isValid());
}

TEST(VrfIdTest, OrdersAndHashes) {
    expectOrderedAndHashed({VrfId(0), VrfId(1), VrfId(), VrfId(0xffffffff)});
}

TEST(VrfIdTest, Forms) {
    EXPECT_EQ(VrfId(1).toStrep(), "1");
    expectValueForm(VrfId(0), "0");
    expectValueForm(VrfId(), "16777215");
    expectValueForm(VrfId(0xffffffff), "4294967295");
    expectNoValueForm<VrfId>({"", "4294967296", "-1", "01"});
}

TEST(VrfNameTest, HoldsAHundredBytes) {
    EXPECT_EQ(L3::VrfName(std::string(100, 'v')).bytes().size(), 100u);
    expectRangeError([] { L3::VrfName name(std::string(101, 'v')); },
                     "Vela::String::bytes > maxLength() not allowed");
}

} // namespace
