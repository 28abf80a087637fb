#include "ArpSuppression/ArpSuppression.h"

#include "Platform/Base/Hash.h"
#include "Platform/Value/test/ExpectForms.h"

namespace ArpSuppression {
namespace {

using Bridging::VlanId;
using Zinc::EthAddr;

VlanIdMacAddress key(unsigned vlanId, const char* macAddress) {
    return {VlanId(vlanId), EthAddr(macAddress)};
}

TEST(VlanIdMacAddressTest, EmptyByDefault) {
    VlanIdMacAddress empty;
    EXPECT_EQ(empty.vlanId(), VlanId());
    EXPECT_TRUE(empty.macAddress().isZero());
    EXPECT_FALSE(empty);
    EXPECT_EQ(empty, VlanIdMacAddress(VlanId(), EthAddr()));
}

TEST(VlanIdMacAddressTest, IsTrueWhenAnyFieldDiffersFromTheEmptyValue) {
    EXPECT_TRUE(VlanIdMacAddress(VlanId(10), EthAddr()));
    EXPECT_TRUE(VlanIdMacAddress(VlanId(), EthAddr("02:00:00:00:00:0a")));
}

TEST(VlanIdMacAddressTest, IsSmall) {
    EXPECT_EQ(sizeof(VlanIdMacAddress), 8u);
}

TEST(VlanIdMacAddressTest, HoldsWhatItWasMadeOf) {
    EXPECT_EQ(key(10, "02:00:00:00:00:0a").vlanId(), VlanId(10));
    EXPECT_EQ(key(10, "02:00:00:00:00:0a").macAddress(), EthAddr("02:00:00:00:00:0a"));
}

TEST(VlanIdMacAddressTest, OrdersByVlanThenMac) {
    expectOrderedAndHashed({
        VlanIdMacAddress(),
        key(1, "ff:ff:ff:ff:ff:ff"),
        key(2, "02:00:00:00:00:0a"),
        key(2, "02:00:00:00:00:0b"),
        key(2, "0a:00:00:00:00:02"),
        key(10, "02:00:00:00:00:0a"),
        key(256, "02:00:00:00:00:01"),
        key(4094, "02:00:00:00:00:0a"),
    });
}

TEST(VlanIdMacAddressTest, HashMixesVlanThenMac) {
    const VlanIdMacAddress v = key(10, "02:00:00:00:00:0a");
    for (uint64_t seed : {uint64_t{0}, uint64_t{5}}) {
        Vela::IncrementalHash expected(seed);
        expected.mix(v.vlanId().hash(0)); // with seed 0 whatever the seed is
        expected.mix(v.macAddress().hash(seed));
        EXPECT_EQ(v.hash(seed), expected.result());
    }
}

TEST(VlanIdMacAddressTest, CompactForm) {
    EXPECT_EQ(key(10, "02:00:00:00:00:0a").toStrep(), "<vlanId=10 macAddress=02:00:00:00:00:0a>");
    EXPECT_EQ(VlanIdMacAddress().toStrep(), "<vlanId=1 macAddress=00:00:00:00:00:00>");
}

TEST(VlanIdMacAddressTest, ValueForm) {
    expectValueForm(key(4094, "02:00:00:00:00:0a"),
                    "Value('ArpSuppression::VlanIdMacAddress', ** {'vlanId': 4094, "
                    "'macAddress': '02:00:00:00:00:0a'})");
    for (const VlanIdMacAddress& v : {VlanIdMacAddress(), key(10, "ff:ff:ff:ff:ff:ff")}) {
        EXPECT_EQ(VlanIdMacAddress(v.valueToStrep()), v);
    }
}

TEST(VlanIdMacAddressTest, AnyOtherTextIsAParseError) {
    std::string good = key(10, "02:00:00:00:00:0a").valueToStrep();
    for (size_t length = 0; length < good.size(); ++length) {
        EXPECT_THROW(VlanIdMacAddress{good.substr(0, length)}, Vela::ParseError) << length;
    }
    EXPECT_THROW(VlanIdMacAddress{good + ")"}, Vela::ParseError);
    expectNoValueForm<VlanIdMacAddress>({
        "<vlanId=10 macAddress=02:00:00:00:00:0a>",
        "Value('ArpSuppression::VlanIdMacAddress', ** {'vlanId': 0, "
        "'macAddress': '02:00:00:00:00:0a'})",
        "Value('ArpSuppression::VlanIdMacAddress', ** {'vlanId': 4095, "
        "'macAddress': '02:00:00:00:00:0a'})",
        "Value('ArpSuppression::VlanIdMacAddress', ** {'vlanId': '10', "
        "'macAddress': '02:00:00:00:00:0a'})",
        "Value('ArpSuppression::VlanIdMacAddress', ** {'vlanId': 10, "
        "'macAddress': '02:00:00:00:00'})",
        "Value('ArpSuppression::VlanIdMacAddress', ** {'macAddress': '02:00:00:00:00:0a', "
        "'vlanId': 10})",
        "Value('ArpSuppression::VlanIdMacAddress', ** {'vlanId': 10,"
        "'macAddress': '02:00:00:00:00:0a'})",
        "Value('ArpSuppression::VrfIpAddress', ** {'vlanId': 10, "
        "'macAddress': '02:00:00:00:00:0a'})",
    });
}

} // namespace
} // namespace ArpSuppression
