#include "ArpSuppression/ArpSuppression.h"

#include "Platform/Value/test/ExpectForms.h"

namespace ArpSuppression {
namespace {

using Zinc::IntfId;
using Zinc::IpGenAddr;

ArpInputConfigBookmark bookmark(const char* vrfName, const char* address,
                                const char* intfName = "") {
    return {vrfName, IpGenAddr(address), IntfId(intfName)};
}

TEST(ArpInputConfigBookmarkTest, EmptyByDefault) {
    ArpInputConfigBookmark empty;
    EXPECT_EQ(empty.vrfName(), "");
    EXPECT_TRUE(empty.ipAddress().isUnset());
    EXPECT_EQ(empty.intfId(), IntfId(""));
    EXPECT_FALSE(empty);
    EXPECT_EQ(empty, bookmark("", ""));
}

TEST(ArpInputConfigBookmarkTest, IsTrueWhenAnyFieldDiffersFromTheEmptyValue) {
    EXPECT_TRUE(bookmark("red", ""));
    EXPECT_TRUE(bookmark("", "0.0.0.0"));
    EXPECT_TRUE(bookmark("", "", "Vlan10"));
}

TEST(ArpInputConfigBookmarkTest, HoldsWhatItWasMadeOf) {
    ArpInputConfigBookmark v = bookmark("red", "fe80::1", "Vlan10");
    EXPECT_EQ(v.vrfName(), "red");
    EXPECT_EQ(v.ipAddress(), IpGenAddr("fe80::1"));
    EXPECT_EQ(v.intfId(), IntfId("Vlan10"));
}

TEST(ArpInputConfigBookmarkTest, OrdersByVrfNameThenAddressThenInterface) {
    IntfId("ArpInputConfigBookmarkTestA");
    IntfId("ArpInputConfigBookmarkTestB");
    expectOrderedAndHashed({
        ArpInputConfigBookmark(),
        bookmark("", "10.0.0.9", "ArpInputConfigBookmarkTestB"),
        bookmark("blue", "10.0.0.2"),
        bookmark("blue", "10.0.0.2", "ArpInputConfigBookmarkTestA"),
        bookmark("blue", "10.0.0.2", "ArpInputConfigBookmarkTestB"),
        bookmark("blue", "10.0.1.1", "ArpInputConfigBookmarkTestA"),
        bookmark("blue", "::1"),
        bookmark("blue2", "10.0.0.1"),
        bookmark("red", "10.0.0.1"),
    });
}

TEST(ArpInputConfigBookmarkTest, HashLeavesTheFamilyOut) {
    EXPECT_EQ(bookmark("red", "10.0.0.1").hash(1), bookmark("red", "a00:1::").hash(1));
    EXPECT_NE(bookmark("red", "10.0.0.1"), bookmark("red", "a00:1::"));
}

TEST(ArpInputConfigBookmarkTest, CompactForm) {
    EXPECT_EQ(bookmark("red", "fe80::1", "Vlan10").toStrep(),
              "<vrfName=red ipAddress=fe80::1 intfId=Vlan10>");
    EXPECT_EQ(ArpInputConfigBookmark().toStrep(), "<vrfName= ipAddress= intfId=>");
}

TEST(ArpInputConfigBookmarkTest, ValueForm) {
    expectValueForm(bookmark("red", "fe80::1", "Vlan10"),
                    "Value('ArpSuppression::ArpInputConfigBookmark', ** {'vrfName': 'red', "
                    "'ipAddress': 'fe80::1', 'intfId': 'Vlan10'})");
    expectValueForm(bookmark("it's\n\\", "10.0.0.1"),
                    "Value('ArpSuppression::ArpInputConfigBookmark', ** "
                    "{'vrfName': 'it\\'s\\n\\\\', 'ipAddress': '10.0.0.1', 'intfId': ''})");
    for (const ArpInputConfigBookmark& v :
         {ArpInputConfigBookmark(), bookmark("red', 'ipAddress': '", "::"),
          bookmark("r\xc3\xb6t", "10.0.0.1", "Et1")}) {
        EXPECT_EQ(ArpInputConfigBookmark(v.valueToStrep()), v);
    }
}

TEST(ArpInputConfigBookmarkTest, AnyOtherTextIsAParseError) {
    std::string good = bookmark("red", "fe80::1", "Vlan10").valueToStrep();
    for (size_t length = 0; length < good.size(); ++length) {
        EXPECT_THROW(ArpInputConfigBookmark{good.substr(0, length)}, Vela::ParseError) << length;
    }
    EXPECT_THROW(ArpInputConfigBookmark{good + "x"}, Vela::ParseError);
    expectNoValueForm<ArpInputConfigBookmark>({
        "<vrfName= ipAddress= intfId=>",
        "Value('ArpSuppression::ArpInputConfigBookmark', ** {'vrfName': red, "
        "'ipAddress': '::1', 'intfId': ''})",
        "Value('ArpSuppression::ArpInputConfigBookmark', ** {'vrfName': 'red', "
        "'ipAddress': '::01', 'intfId': ''})",
        "Value('ArpSuppression::ArpInputConfigBookmark', ** {'vrfName': 'red', "
        "'intfId': '', 'ipAddress': '::1'})",
        "Value('ArpSuppression::ArpInputConfigBookmark', ** {'vrfName': 'red', "
        "'ipAddress': '::1'})",
    });
}

} // namespace
} // namespace ArpSuppression
