#include "Platform/Value/IntfId.h"

#include "Platform/Value/IntfNameTable.h"
#include "Platform/Value/test/ExpectForms.h"

#include <cstdlib>
#include <limits>
#include <memory>

namespace {

using Zinc::IntfId;

constexpr uint32_t tooGreat = std::numeric_limits<uint32_t>::max();

TEST(IntfIdTest, EmptyByDefault) {
    EXPECT_FALSE(IntfId());
    EXPECT_EQ(IntfId().name(), "");
    EXPECT_EQ(IntfId(""), IntfId());
    EXPECT_FALSE(IntfId(""));
}

TEST(IntfIdTest, EqualNamesGiveEqualIds) {
    IntfId vlan10("Vlan10");
    EXPECT_TRUE(vlan10);
    EXPECT_EQ(vlan10, IntfId(std::string("Vlan") + "10"));
    EXPECT_EQ(vlan10.name(), "Vlan10");
    EXPECT_NE(vlan10, IntfId("Vlan1"));
    EXPECT_NE(vlan10, IntfId("vlan10"));
}

TEST(IntfIdTest, TooLongANameIsARangeError) {
    EXPECT_EQ(IntfId(std::string(63, 'x')).name(), std::string(63, 'x'));
    expectRangeError([] { IntfId intfId(std::string(64, 'x')); },
                     "Zinc::IntfId::name > 63 bytes not allowed");
}

TEST(IntfIdTest, ShortName) {
    auto shortName = [](const char* name) { return IntfId(name).shortName(); };
    EXPECT_EQ(shortName("Vlan10"), "Vl10");
    EXPECT_EQ(shortName("Ethernet1/2"), "Et1/2");
    EXPECT_EQ(shortName("Port-Channel1"), "Port-Channel1");
    EXPECT_EQ(shortName("eth0"), "eth0");
    EXPECT_EQ(shortName("fabric"), "fabric");
    EXPECT_EQ(shortName("Vlan"), "Vlan");
    EXPECT_EQ(shortName("10"), "10");
    EXPECT_EQ(shortName(""), "");
}

TEST(IntfIdTest, ShortNameOfTheLongestNameEndsWithIt) {
    std::string letters(63, 'q');
    IntfId longest(letters);
    // The next record follows it at once and begins with its length, here a digit.
    IntfId next(std::string(size_t{'1'}, 'q'));
    EXPECT_EQ(longest.shortName(), letters);
    EXPECT_EQ(next.name().size(), size_t{'1'});
}

TEST(IntfIdTest, VlanInterfaceIsVlanAndAPlainNumber) {
    for (const char* name : {"Vlan10", "Vlan0", "Vlan4095", "Vlan99999999999"}) {
        EXPECT_TRUE(IntfId(name).isVlanIntf()) << name;
    }
    for (const char* name : {"", "Vlan", "Vlan01", "Vlan00", "vlan10", "Vlan10.1", "Vlan-1",
                             "Vlan 1", "xVlan1", "Ethernet1", "VlanA"}) {
        EXPECT_FALSE(IntfId(name).isVlanIntf()) << name;
        EXPECT_EQ(IntfId(name).vlanNumber(), 0u) << name;
    }
}

TEST(IntfIdTest, VlanNumberNeverWraps) {
    EXPECT_EQ(IntfId("Vlan10").vlanNumber(), 10u);
    EXPECT_EQ(IntfId("Vlan0").vlanNumber(), 0u);
    EXPECT_EQ(IntfId("Vlan65537").vlanNumber(), 65537u);
    EXPECT_EQ(IntfId("Vlan4294967295").vlanNumber(), tooGreat);
    EXPECT_EQ(IntfId("Vlan4294967296").vlanNumber(), tooGreat);
    EXPECT_EQ(IntfId("Vlan4294967306").vlanNumber(), tooGreat); // 10 in 32 bits
    EXPECT_EQ(IntfId("Vlan99999999999").vlanNumber(), tooGreat);
    EXPECT_EQ(IntfId("Vlan" + std::string(59, '9')).vlanNumber(), tooGreat);
}

TEST(IntfIdTest, OrdersByFirstUseAndHashes) {
    IntfId later("OrderTest2");
    IntfId latest("OrderTest1");
    expectOrderedAndHashed({IntfId(), later, latest});
}

TEST(IntfIdTest, Forms) {
    EXPECT_EQ(IntfId("Vlan10").toStrep(), "Vlan10");
    expectValueForm(IntfId("Vlan10"), "'Vlan10'");
    expectValueForm(IntfId("a'b\n"), R"('a\'b\n')");
    expectValueForm(IntfId(), "''");
    std::string tooLong = "'" + std::string(64, 'x') + "'";
    expectNoValueForm<IntfId>({"", "Vlan10", "'Vlan10", "'Vlan\\x310'", tooLong});
}

/// In a process of their own: the other tests have interned names.
class IntfIdTableDeathTest : public ::testing::Test {
  protected:
    IntfIdTableDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    [[noreturn]] static void leave() { std::exit(HasFailure() ? 1 : 0); }
};

TEST_F(IntfIdTableDeathTest, IdsTakeTheirNamesFromTheChosenTable) {
    auto choose = [] {
        EXPECT_EQ(IntfId("").name(), "") << "the empty name is no obstacle";
        auto table = std::make_unique<Zinc::IntfNameTable>(3);
        table->idOf("Vlan20");
        Zinc::intfNameTableIs(std::move(table));
        EXPECT_EQ(IntfId("Vlan20").name(), "Vlan20");
        EXPECT_EQ(Zinc::intfNameTable().size(), 2u);
        IntfId vlan30("Vlan30");
        EXPECT_EQ(Zinc::intfNameTable().name(2), "Vlan30");
        expectRangeError([] { IntfId one("Vlan2"); }, "Zinc::IntfId::names > 3 not allowed");
        leave();
    };
    EXPECT_EXIT(choose(), ::testing::ExitedWithCode(0), "");
}

TEST_F(IntfIdTableDeathTest, TheTableIsChosenBeforeAnyNameIsInterned) {
    auto chooseLate = [] {
        IntfId intfId("Vlan1");
        Zinc::intfNameTableIs(std::make_unique<Zinc::IntfNameTable>());
    };
    EXPECT_DEATH(chooseLate(), "assertion failed \"no interface name interned yet\"");
}

} // namespace
