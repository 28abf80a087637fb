#include "Linux/LinkMessage.h"

#include "Linux/test/DeviceBytes.h"

#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <net/if.h>

namespace Linux {
namespace {

// As a kernel sent them, but for statistics and settings of other families, which are left out.
struct RecordedLink {
    const char* name;
    const char* hex;
    LinkMessage message;
};

const RecordedLink recordedLinks[] = {
    {"loopback",
     "3400000010000200010000000000000000000403010000000800000000000000070003006c6f00000a00"
     "01000000000000000000",
     {false, 1, IFF_LOOPBACK, "lo", Zinc::EthAddr(), "", 0, 0, std::nullopt}},
    {"macvlan",
     "7c00000010000200010000000000000000000100040000000210000000000000090003006d7631300000"
     "00000a00010002005e00010100003c0012000c0001006d6163766c616e002c0002000800010001000000"
     "0600020000000000080006000000000008000700e803000008000800e80300000800050002000000",
     {false, 4, IFF_BROADCAST | IFF_MULTICAST, "mv10", Zinc::EthAddr("02:00:5e:00:01:01"),
      "macvlan", 0, 2, std::nullopt}},
    {"portWhoseOtherEndIsElsewhere",
     "b80100001000020001000000000000000000010005000000431001000000000008000300657431000800"
     "0a00020000000a000100020000000b0100006c0112000900010076657468000000000b00040062726964"
     "676500005001050005000100030000000600020020000000080003000200000005000400000000000500"
     "0500000000000500060000000000050007000000000005001c0000000000050008000100000005000900"
     "0100000005001b000100000005001e000100000005000a000000000005000c00000000000c000d008000"
     "020000000b0b0c000e008000020000000b0b06000f000280000006001000000000000600110002800000"
     "06001200020000000500130000000000050014000000000005001d000000000006001f00000000000500"
     "200000000000050023000000000005002400000000000500210000000000050027000000000005002800"
     "0000000005002b00000000000c00150000000000000000000c001600c7050000000000000c0017000000"
     "000000000000050019000100000008002500000200000800260000000000080029000100000008002a00"
     "0000000008002500000000000800050002000000",
     {false, 5, IFF_UP | IFF_BROADCAST | IFF_RUNNING | IFF_MULTICAST | 0x10000, "et1",
      Zinc::EthAddr("02:00:00:00:0b:01"), "veth", 2, 2, 0}},
};

/// The first bytes of a message, in a buffer that ends with them.
std::optional<LinkMessage> decodePrefix(const char* hex, size_t length) {
    MessageBytes whole{std::string_view(hex)};
    std::vector<uint8_t> bytes(length);
    std::memcpy(bytes.data(), &whole.header(), length);
    void* start = bytes.data();
    auto& header = *static_cast<nlmsghdr*>(start);
    header.nlmsg_len = static_cast<uint32_t>(length);
    return decodeLink(header);
}

TEST(LinkMessage, IsReadAsTheKernelSentIt) {
    for (const RecordedLink& r : recordedLinks) {
        auto link = decodeLink(MessageBytes{std::string_view(r.hex)}.header());
        ASSERT_TRUE(link) << r.name;
        EXPECT_EQ(*link, r.message) << r.name << " " << link->kind << " " << link->flags;
    }
}

TEST(LinkMessage, OfEveryShorterLengthHasWhatIsWhole) {
    for (const RecordedLink& r : recordedLinks) {
        size_t whole = std::string_view(r.hex).size() / 2;
        size_t named = sizeof(nlmsghdr) + 16 + 4 + r.message.name.size() + 1;
        for (size_t length = sizeof(nlmsghdr); length <= whole; ++length) {
            auto link = decodePrefix(r.hex, length);
            ASSERT_EQ(link.has_value(), length >= named) << r.name << " " << length;
            if (link) {
                EXPECT_EQ(link->name, r.message.name);
                EXPECT_TRUE(link->kind.empty() || link->kind == r.message.kind);
                EXPECT_TRUE(link->macAddress.isZero() || link->macAddress == r.message.macAddress);
                EXPECT_TRUE(link->link == 0 || link->link == r.message.link);
            }
        }
        EXPECT_EQ(decodePrefix(r.hex, whole), r.message);
    }
}

TEST(LinkMessage, WhatIsNoDeviceIsNone) {
    LinkSpecimen device{.ifIndex = 3, .name = "et1"};
    MessageBytes bytes = device.bytes();
    EXPECT_TRUE(decodeLink(bytes.header()));
    bytes.header().nlmsg_type = RTM_NEWADDR;
    EXPECT_FALSE(decodeLink(bytes.header()));
    bytes.header().nlmsg_type = RTM_NEWLINK;
    // A bridge speaks of its port.
    *static_cast<uint8_t*>(mnl_nlmsg_get_payload(&bytes.header())) = AF_BRIDGE;
    EXPECT_FALSE(decodeLink(bytes.header()));
    EXPECT_FALSE(decodeLink(LinkSpecimen{.ifIndex = 0, .name = "et1"}.bytes().header()));
    EXPECT_FALSE(decodeLink(LinkSpecimen{.ifIndex = 3, .name = ""}.bytes().header()));
    EXPECT_FALSE(
        decodeLink(LinkSpecimen{.ifIndex = 3, .name = "sixteen-letters!"}.bytes().header()));
    auto gone =
        decodeLink(LinkSpecimen{.ifIndex = 3, .name = "", .removed = true}.bytes().header());
    ASSERT_TRUE(gone);
    EXPECT_TRUE(gone->removed);
}

} // namespace
} // namespace Linux
