#include "Platform/Value/RemoteBindingKey.h"

#include "Platform/Value/test/ExpectForms.h"

namespace {

using ArpSuppression::RemoteBindingKey;
using Bridging::VlanId;
using Zinc::IpGenAddr;

RemoteBindingKey key(uint16_t vlanId, const char* ipAddress) {
    return {VlanId(vlanId), IpGenAddr(ipAddress)};
}

TEST(RemoteBindingKeyTest, EmptyByDefault) {
    EXPECT_EQ(RemoteBindingKey().vlanId(), VlanId(1));
    EXPECT_TRUE(RemoteBindingKey().ipAddress().isUnset());
    EXPECT_FALSE(RemoteBindingKey());
    EXPECT_FALSE(key(1, ""));
    EXPECT_TRUE(key(2, ""));
    EXPECT_TRUE(key(1, "0.0.0.0"));
}

TEST(RemoteBindingKeyTest, HoldsWhatItWasMadeOf) {
    EXPECT_EQ(key(10, "10.0.0.1").vlanId(), VlanId(10));
    EXPECT_EQ(key(10, "10.0.0.1").ipAddress(), IpGenAddr("10.0.0.1"));
}

TEST(RemoteBindingKeyTest, OrdersByVlanThenAddress) {
    expectOrderedAndHashed({key(1, "10.0.0.2"), key(1, "::1"), key(2, "10.0.0.1"),
                            key(2, "10.0.0.2"), key(256, "10.0.0.1")});
}

TEST(RemoteBindingKeyTest, Forms) {
    EXPECT_EQ(key(10, "10.0.0.1").toStrep(), "<vlanId=10 ipAddress=10.0.0.1>");
    EXPECT_EQ(RemoteBindingKey().toStrep(), "<vlanId=1 ipAddress=>");
    expectValueForm(
        key(10, "10.0.0.1"),
        "Value('ArpSuppression::RemoteBindingKey', ** {'vlanId': 10, 'ipAddress': '10.0.0.1'})");
    expectValueForm(RemoteBindingKey(),
                    "Value('ArpSuppression::RemoteBindingKey', ** {'vlanId': 1, 'ipAddress': ''})");
    expectNoValueForm<RemoteBindingKey>(
        {"Value('ArpSuppression::RemoteBindingKey', ** {'vlanId': 0, 'ipAddress': '10.0.0.1'})",
         "Value('ArpSuppression::RemoteBindingKey', ** {'vlanId': 10, 'ipAddress': 10.0.0.1})",
         "Value('ArpSuppression::RemoteBindingKey', ** {'ipAddress': '10.0.0.1', 'vlanId': 10})",
         "Value('RemoteBindingKey', ** {'vlanId': 10, 'ipAddress': '10.0.0.1'})"});
}

} // namespace
