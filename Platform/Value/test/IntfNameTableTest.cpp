#include "Platform/Value/IntfNameTable.h"

#include "Platform/Value/test/ExpectForms.h"

namespace {

using Zinc::IntfNameTable;

TEST(IntfNameTableTest, BeginsWithTheEmptyName) {
    IntfNameTable table(1);
    EXPECT_EQ(table.size(), 1u);
    EXPECT_EQ(table.name(0), "");
    EXPECT_EQ(table.idOf(""), 0u);
    EXPECT_EQ(table.size(), 1u);
}

TEST(IntfNameTableTest, IdsAreGivenInOrderAndKept) {
    IntfNameTable table(4);
    EXPECT_EQ(table.idOf("Vlan10"), 1u);
    EXPECT_EQ(table.idOf("Vlan1"), 2u);
    EXPECT_EQ(table.idOf("Vlan10"), 1u);
    EXPECT_EQ(table.idOf("vlan10"), 3u);
    EXPECT_EQ(table.size(), 4u);
    EXPECT_EQ(table.name(1), "Vlan10");
    EXPECT_EQ(table.name(2), "Vlan1");
    EXPECT_EQ(table.name(3), "vlan10");
}

TEST(IntfNameTableTest, KeepsItsOwnCopyAndNeverMovesIt) {
    IntfNameTable table(10000);
    std::string name = "Ethernet1";
    uint32_t id = table.idOf(name);
    std::string_view kept = table.name(id);
    name = "overwritten";
    for (int i = 0; i < 9000; ++i) {
        table.idOf("Vlan" + std::to_string(i));
    }
    EXPECT_EQ(kept, "Ethernet1");
    EXPECT_EQ(table.name(id).data(), kept.data());
    EXPECT_EQ(table.idOf("Ethernet1"), id);
}

TEST(IntfNameTableTest, FullTableKnowsItsNamesButTakesNoMore) {
    IntfNameTable table(3);
    table.idOf("a");
    table.idOf("b");
    expectRangeError([&] { table.idOf("c"); }, "Zinc::IntfId::names > 3 not allowed");
    expectRangeError([&] { table.idOf("c"); }, "Zinc::IntfId::names > 3 not allowed");
    EXPECT_EQ(table.size(), 3u);
    EXPECT_EQ(table.idOf("a"), 1u);
    EXPECT_EQ(table.idOf("b"), 2u);
}

TEST(IntfNameTableTest, NamesHaveUpTo63Bytes) {
    IntfNameTable table(4);
    std::string longest(63, 'e');
    EXPECT_EQ(table.name(table.idOf(longest)), longest);
    expectRangeError([&] { table.idOf(std::string(64, 'e')); },
                     "Zinc::IntfId::name > 63 bytes not allowed");
    EXPECT_EQ(table.size(), 2u);
    // Its neighbours are not touched.
    EXPECT_EQ(table.name(0), "");
    EXPECT_EQ(table.name(table.idOf("next")), "next");
    EXPECT_EQ(table.name(1), longest);
}

TEST(IntfNameTableTest, AnyByteMayStandInAName) {
    IntfNameTable table(4);
    std::string_view withZero("a\0b", 3);
    std::string_view zero("\0", 1);
    EXPECT_EQ(table.name(table.idOf(withZero)), withZero);
    EXPECT_EQ(table.idOf("a"), 2u);
    EXPECT_EQ(table.idOf(zero), 3u);
    EXPECT_EQ(table.name(3), zero);
}

TEST(IntfNameTableDeathTest, AskingForAnIdThatWasNotGivenIsFatal) {
    IntfNameTable table(10);
    EXPECT_DEATH(table.name(1), "assertion failed \"id < size\\(\\)\"");
}

} // namespace
