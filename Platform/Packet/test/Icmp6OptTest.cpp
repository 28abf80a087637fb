#include "Platform/Packet/NeighborDiscovery.h"

#include "Platform/Packet/test/Hex.h"

namespace {

using namespace Arp;
using Vela::Bytes;
using Vela::hex;
using Vela::prefix;
using Zinc::EthAddr;

TEST(Icmp6OptTest, NoneAtAll) {
    Icmp6Opt opt = getIcmp6Opt({}, sourceLinkLayerAddress);
    EXPECT_TRUE(opt.valid);
    EXPECT_TRUE(opt.option.empty());
    EXPECT_EQ(opt.ethAddr(), std::nullopt);
}

TEST(Icmp6OptTest, TheWholeOptionWhereItStands) {
    const Bytes options = hex("0101 02000000000a");
    Icmp6Opt opt = getIcmp6Opt(options, sourceLinkLayerAddress);
    EXPECT_TRUE(opt.valid);
    EXPECT_EQ(opt.option.data(), options.data());
    EXPECT_EQ(opt.option.size(), 8u);
    EXPECT_EQ(opt.ethAddr(), EthAddr("02:00:00:00:00:0a"));
    EXPECT_TRUE(getIcmp6Opt(options, targetLinkLayerAddress).option.empty());
}

TEST(Icmp6OptTest, TheFirstOfItsTypeBehindOthers) {
    const Bytes options = hex("0e02010101010101 0101010101010101 0201 02000000000b"
                              "0101 02000000000a 0101 02000000000c");
    Icmp6Opt opt = getIcmp6Opt(options, sourceLinkLayerAddress);
    EXPECT_TRUE(opt.valid);
    EXPECT_EQ(opt.option.data(), options.data() + 24); // not the ones inside the first option
    EXPECT_EQ(opt.ethAddr(), EthAddr("02:00:00:00:00:0a"));
    opt = getIcmp6Opt(options, targetLinkLayerAddress);
    EXPECT_EQ(opt.option.data(), options.data() + 16);
    EXPECT_EQ(opt.ethAddr(), EthAddr("02:00:00:00:00:0b"));
    opt = getIcmp6Opt(options, 14);
    EXPECT_EQ(opt.option.size(), 16u);
    opt = getIcmp6Opt(options, 3);
    EXPECT_TRUE(opt.valid);
    EXPECT_TRUE(opt.option.empty());
}

TEST(Icmp6OptTest, TypeZeroIsATypeLikeAnyOther) {
    const Bytes options = hex("0001 020000000001");
    EXPECT_EQ(getIcmp6Opt(options, 0).option.size(), 8u);
    EXPECT_TRUE(getIcmp6Opt(options, 1).option.empty());
}

TEST(Icmp6OptTest, ALongerOptionBeginsWithTheAddress) {
    const Bytes options = hex("0202 02000000000a 0000000000000000");
    Icmp6Opt opt = getIcmp6Opt(options, targetLinkLayerAddress);
    EXPECT_EQ(opt.option.size(), 16u);
    EXPECT_EQ(opt.ethAddr(), EthAddr("02:00:00:00:00:0a"));
}

TEST(Icmp6OptTest, TheLongestOption) {
    Bytes options(255 * 8, 0xee);
    options[0] = 1;
    options[1] = 255;
    Icmp6Opt opt = getIcmp6Opt(options, sourceLinkLayerAddress);
    EXPECT_TRUE(opt.valid);
    EXPECT_EQ(opt.option.size(), options.size());
    options.pop_back();
    opt = getIcmp6Opt(options, sourceLinkLayerAddress);
    EXPECT_FALSE(opt.valid);
    EXPECT_TRUE(opt.option.empty());
}

TEST(Icmp6OptTest, LengthZeroIsMalformed) {
    const Bytes alone = hex("0100 02000000000a");
    Icmp6Opt opt = getIcmp6Opt(alone, sourceLinkLayerAddress);
    EXPECT_FALSE(opt.valid);
    EXPECT_TRUE(opt.option.empty());

    // What stands behind it cannot be found any more, what stands before it can.
    const Bytes between = hex("0201 02000000000b 0e00 000000000000 0101 02000000000a");
    opt = getIcmp6Opt(between, sourceLinkLayerAddress);
    EXPECT_FALSE(opt.valid);
    EXPECT_TRUE(opt.option.empty());
    opt = getIcmp6Opt(between, targetLinkLayerAddress);
    EXPECT_FALSE(opt.valid);
    EXPECT_EQ(opt.ethAddr(), EthAddr("02:00:00:00:00:0b"));
}

TEST(Icmp6OptTest, EveryPrefixIsCutOffUnlessItEndsWithAnOption) {
    const Bytes options = hex("0e02aaaaaaaaaaaa aaaaaaaaaaaaaaaa 0101 02000000000a");
    for (size_t count = 0; count <= options.size(); ++count) {
        Bytes cut = prefix(options, count);
        Icmp6Opt opt = getIcmp6Opt(cut, sourceLinkLayerAddress);
        EXPECT_EQ(opt.valid, count == 0 || count == 16 || count == 24) << count;
        EXPECT_EQ(opt.option.size(), count == 24 ? 8u : 0u) << count;
        EXPECT_EQ(opt.ethAddr().has_value(), count == 24) << count;
    }
}

TEST(Icmp6OptTest, AnAddressNeedsItsSixBytes) {
    const Bytes bytes = hex("0101 02000000000a");
    for (size_t count = 0; count < bytes.size(); ++count) {
        Bytes cut = prefix(bytes, count);
        Icmp6Opt opt;
        opt.option = cut;
        EXPECT_EQ(opt.ethAddr(), std::nullopt) << count;
    }
}

} // namespace
