#include "Platform/Value/EthAddr.h"

#include "Platform/Value/test/ExpectForms.h"

namespace {

using Zinc::EthAddr;

TEST(EthAddrTest, ZeroByDefault) {
    EXPECT_TRUE(EthAddr().isZero());
    EXPECT_EQ(EthAddr().bytes(), EthAddr::Bytes{});
    EXPECT_EQ(EthAddr().toStrep(), "00:00:00:00:00:00");
    EXPECT_FALSE(EthAddr("00:00:00:00:00:01").isZero());
    EXPECT_FALSE(EthAddr("01:00:00:00:00:00").isZero());
}

TEST(EthAddrTest, ReadsEitherCase) {
    EthAddr::Bytes bytes = {0x02, 0xab, 0xcd, 0xef, 0x00, 0x0a};
    EXPECT_EQ(EthAddr("02:ab:cd:ef:00:0a"), EthAddr(bytes));
    EXPECT_EQ(EthAddr("02:AB:cD:Ef:00:0A"), EthAddr(bytes));
    EXPECT_EQ(EthAddr(bytes).bytes(), bytes);
    EXPECT_EQ(EthAddr(bytes).toStrep(), "02:ab:cd:ef:00:0a");
}

TEST(EthAddrTest, AnyOtherTextIsAParseError) {
    for (const char* text :
         {"", "02:00:00:00:00:0", "02:00:00:00:00:0a:", "02:00:00:00:00:0a ", " 2:00:00:00:00:0a",
          "+2:00:00:00:00:0a", "-2:00:00:00:00:0a", "0x:00:00:00:00:0a", "02-00-00-00-00-0a",
          "02:00:00:00:00:0g", "0200.0000.000a", "02:00:00:00:00:00:0a", "2:0:0:0:0:a:0:0:0"}) {
        EXPECT_THROW(EthAddr{text}, Vela::ParseError) << text;
    }
    EXPECT_THROW(EthAddr(std::string_view("02:00:00:00:00:0\0", 17)), Vela::ParseError);
}

TEST(EthAddrTest, MulticastIsTheGroupBit) {
    EXPECT_TRUE(EthAddr("ff:ff:ff:ff:ff:ff").isMulticast());
    EXPECT_TRUE(EthAddr("33:33:00:00:00:01").isMulticast());
    EXPECT_TRUE(EthAddr("01:00:00:00:00:00").isMulticast());
    EXPECT_FALSE(EthAddr("02:01:01:01:01:01").isMulticast());
    EXPECT_FALSE(EthAddr().isMulticast());
}

TEST(EthAddrTest, OrdersByBytesAndHashes) {
    expectOrderedAndHashed({EthAddr(), EthAddr("00:00:00:00:00:01"), EthAddr("00:00:00:00:01:00"),
                            EthAddr("01:00:00:00:00:00"), EthAddr("7f:ff:00:00:00:00"),
                            EthAddr("80:00:00:00:00:00"), EthAddr("ff:ff:ff:ff:ff:ff")});
}

TEST(EthAddrTest, ValueForm) {
    expectValueForm(EthAddr("02:AB:00:00:00:0a"), "'02:ab:00:00:00:0a'");
    expectValueForm(EthAddr(), "'00:00:00:00:00:00'");
    expectNoValueForm<EthAddr>({"", "''", "02:ab:00:00:00:0a", "'02:AB:00:00:00:0a'",
                                "'02:ab:00:00:00:0a", "'02:ab:00:00:00:0a' "});
}

} // namespace
