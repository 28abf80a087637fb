#include "Platform/Value/IpGenAddr.h"

#include "Platform/Value/test/ExpectForms.h"

#include <algorithm>

namespace {

using namespace Zinc;

TEST(AddressFamilyTest, Forms) {
    std::ostringstream out;
    out << ipunknown() << " " << ipv4() << " " << ipv6();
    EXPECT_EQ(out.str(), "ipunknown ipv4 ipv6");
    EXPECT_STREQ(toStrep(ipv6()), "ipv6");
}

TEST(IpGenAddrTest, UnsetByDefault) {
    EXPECT_EQ(IpGenAddr().af(), ipunknown());
    EXPECT_TRUE(IpGenAddr().isUnset());
    EXPECT_EQ(IpGenAddr(""), IpGenAddr());
    EXPECT_EQ(IpGenAddr().bytes(), IpGenAddr::Bytes{});
    EXPECT_FALSE(IpGenAddr("0.0.0.0").isUnset());
    EXPECT_FALSE(IpGenAddr("::").isUnset());
}

TEST(IpGenAddrTest, Ipv4StandsInTheFirstFourBytes) {
    IpGenAddr addr(0x0a000102);
    EXPECT_EQ(addr.af(), ipv4());
    EXPECT_EQ(addr.v4(), 0x0a000102u);
    EXPECT_EQ(addr.bytes(), (IpGenAddr::Bytes{10, 0, 1, 2}));
    EXPECT_EQ(addr, IpGenAddr("10.0.1.2"));
    EXPECT_EQ(IpGenAddr(0xfffefdfc).v4(), 0xfffefdfcu);
}

TEST(IpGenAddrTest, Ipv6FromBytesAndText) {
    IpGenAddr::Bytes bytes = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xab};
    EXPECT_EQ(IpGenAddr(bytes).af(), ipv6());
    EXPECT_EQ(IpGenAddr(bytes).bytes(), bytes);
    EXPECT_EQ(IpGenAddr("2001:db8::ab"), IpGenAddr(bytes));
    EXPECT_EQ(IpGenAddr("2001:0DB8:0:0:0::AB"), IpGenAddr(bytes));
}

TEST(IpGenAddrDeathTest, OnlyIpv4HasAnIpv4Address) {
    EXPECT_DEATH(IpGenAddr("::1").v4(), "assertion failed \"af\\(\\) == Zinc::ipv4\\(\\)\"");
    EXPECT_DEATH(IpGenAddr().v4(), "assertion failed \"af\\(\\) == Zinc::ipv4\\(\\)\"");
}

TEST(IpGenAddrTest, AnyOtherTextIsAParseError) {
    for (const char* text :
         {"10.0.0", "10.0.0.256", "10.0.0.01", "10.0.0.1 ", " 10.0.0.1", "10.0.0.1/24", "a", ":",
          "fe80::1%eth0", "1:2:3:4:5:6:7", "::g", "::ffff:10.0.0.256"}) {
        EXPECT_THROW(IpGenAddr{text}, Vela::ParseError) << text;
    }
    EXPECT_THROW(IpGenAddr(std::string(1000, '1')), Vela::ParseError);
    EXPECT_THROW(IpGenAddr(std::string_view("10.0.0.1\0", 9)), Vela::ParseError);
    EXPECT_THROW(IpGenAddr(std::string_view("\0", 1)), Vela::ParseError);
}

TEST(IpGenAddrTest, LongestTextIsRead) {
    std::string longest = "ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255";
    ASSERT_EQ(longest.size(), 45u);
    EXPECT_EQ(IpGenAddr(longest).toStrep(), "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
}

TEST(IpGenAddrTest, Unspecified) {
    EXPECT_TRUE(IpGenAddr("0.0.0.0").isUnspecified());
    EXPECT_TRUE(IpGenAddr("::").isUnspecified());
    EXPECT_FALSE(IpGenAddr().isUnspecified());
    EXPECT_FALSE(IpGenAddr("0.0.0.1").isUnspecified());
    EXPECT_FALSE(IpGenAddr("::1").isUnspecified());
}

TEST(IpGenAddrTest, Multicast) {
    for (const char* text : {"224.0.0.0", "224.0.0.1", "239.255.255.255", "ff00::", "ff02::1"}) {
        EXPECT_TRUE(IpGenAddr(text).isMulticast()) << text;
    }
    for (const char* text :
         {"", "223.255.255.255", "240.0.0.0", "255.255.255.255", "fe80::1", "e000::1", "::"}) {
        EXPECT_FALSE(IpGenAddr(text).isMulticast()) << text;
    }
}

TEST(IpGenAddrTest, LinkLocalIsOfIpv6Alone) {
    for (const char* text : {"fe80::", "fe80::1", "febf:ffff::1"}) {
        EXPECT_TRUE(IpGenAddr(text).isLinkLocal()) << text;
    }
    for (const char* text : {"", "fec0::1", "fe7f::1", "ff80::1", "254.128.0.1", "169.254.0.1"}) {
        EXPECT_FALSE(IpGenAddr(text).isLinkLocal()) << text;
    }
}

TEST(IpGenAddrTest, OrdersByFamilyThenBytes) {
    IpGenAddr ascending[] = {IpGenAddr(),
                             IpGenAddr("0.0.0.0"),
                             IpGenAddr("0.0.0.1"),
                             IpGenAddr("1.0.0.0"),
                             IpGenAddr("255.255.255.255"),
                             IpGenAddr("::"),
                             IpGenAddr("::1"),
                             IpGenAddr("1::")};
    EXPECT_TRUE(std::is_sorted(std::begin(ascending), std::end(ascending)));
    EXPECT_EQ(std::adjacent_find(std::begin(ascending), std::end(ascending)), std::end(ascending));
    expectOrderedAndHashed({IpGenAddr("10.0.0.1"), IpGenAddr("10.0.0.2"), IpGenAddr("::1"),
                            IpGenAddr("::2"), IpGenAddr("1::")});
}

TEST(IpGenAddrTest, FamilyIsComparedButNotHashed) {
    IpGenAddr v4("10.0.0.1");
    IpGenAddr v6(v4.bytes());
    EXPECT_NE(v4, v6);
    EXPECT_LT(v4, v6);
    EXPECT_EQ(v4.hash(1), v6.hash(1));
    EXPECT_EQ(IpGenAddr().hash(1), IpGenAddr("::").hash(1));
}

/// Buckets by the bits of `hash >> shift`; 100 to a bucket would be even.
void expectEvenSpread(unsigned shift) {
    std::array<int, 1024> buckets{};
    for (uint32_t i = 0; i < 1024 * 100; ++i) {
        ++buckets[IpGenAddr(0x0a000000 + i).hash(7) >> shift & 1023];
    }
    auto [emptiest, fullest] = std::minmax_element(buckets.begin(), buckets.end());
    EXPECT_GT(*emptiest, 50);
    EXPECT_LT(*fullest, 150);
}

TEST(IpGenAddrTest, SequentialAddressesSpreadOverLowAndHighBitsOfTheHash) {
    expectEvenSpread(0);
    expectEvenSpread(54);
}

TEST(IpGenAddrTest, Forms) {
    EXPECT_EQ(IpGenAddr("10.0.0.1").toStrep(), "10.0.0.1");
    EXPECT_EQ(IpGenAddr("2001:DB8:0::1").toStrep(), "2001:db8::1");
    EXPECT_EQ(IpGenAddr().toStrep(), "");
    expectValueForm(IpGenAddr("10.0.0.1"), "'10.0.0.1'");
    expectValueForm(IpGenAddr("2001:db8::1"), "'2001:db8::1'");
    expectValueForm(IpGenAddr("::ffff:10.0.0.1"), "'::ffff:10.0.0.1'");
    expectValueForm(IpGenAddr("0.0.0.0"), "'0.0.0.0'");
    expectValueForm(IpGenAddr("::"), "'::'");
    expectValueForm(IpGenAddr(), "''");
    expectNoValueForm<IpGenAddr>({"", "10.0.0.1", "'10.0.0.1 '", "'2001:DB8::1'", "'0::1'",
                                  "'::ffff:a00:1'", "'10.0.0.1'x", "'10.0.0.1\\x00'"});
}

} // namespace
