#include "Linux/NeighborMessage.h"

#include "Linux/Neighbor.h"
#include "Linux/test/NeighborBytes.h"

#include <gtest/gtest.h>

namespace Linux {
namespace {

// As a kernel sent them.
struct RecordedNeighbor {
    const char* name;
    const char* hex;
    NeighborMessage message;
};

const Zinc::EthAddr mac1("02:00:00:00:00:01");
const Zinc::EthAddr mac2("02:00:00:00:00:02");
const Zinc::EthAddr mac3("02:00:00:00:00:03");
const Zinc::IpGenAddr ip1("10.0.0.1");
const Zinc::IpGenAddr ip2("10.0.0.2");
const Zinc::IpGenAddr ip3("10.0.0.3");

const RecordedNeighbor recordedNeighbors[] = {
    {"reachable",
     "4c0000001c000000000000008f520000020000000200000002000001080001000a0000010a0002000200000000010"
     "0"
     "0008000400000000001400030000000000000000000000000002000000",
     {false, false, AF_INET, 2, NUD_REACHABLE, 0, 0, ip1, mac1}},
    {"remote",
     "540000001c0000000000000091520000020000000200000040001001080001000a0000020a0002000200000000020"
     "0"
     "000800040000000000140003000000000000000000000000000100000005000c000b000000",
     {false, false, AF_INET, 2, NUD_NOARP, NTF_EXT_LEARNED, 11, ip2, mac2}},
    {"remote6",
     "600000001c00000000000000935200000a00000002000000400010011400010020010db8000000000000000000000"
     "0020a00020002000000000200000800040000000000140003000000000000000000000000000100000005000c000b"
     "000000",
     {false, false, AF_INET6, 2, NUD_NOARP, NTF_EXT_LEARNED, 11, Zinc::IpGenAddr("2001:db8::2"),
      mac2}},
    {"own",
     "540000001c0000000000000095520000020000000200000080000001080001000a0000030a0002000200000000030"
     "0"
     "000800040000000000140003000000000000000000000000000100000005000c006e000000",
     {false, false, AF_INET, 2, NUD_PERMANENT, 0, 110, ip3, mac3}},
    {"withdrawn",
     "480000001c0000000000000097520000020000000200000020000001080001000a000002080004000000000014000"
     "3"
     "005a0000005a0000005a0000000100000005000c000b000000",
     {false, false, AF_INET, 2, NUD_FAILED, 0, 11, ip2, std::nullopt}},
    {"deleted",
     "480000001d0000000000000000000000020000000200000020000001080001000a000002080004000000000014000"
     "3"
     "005a0000005a0000005a0000000000000005000c000b000000",
     {true, false, AF_INET, 2, NUD_FAILED, 0, 11, ip2, std::nullopt}},
    {"movedHere",
     "540000001c000000000000009a520000020000000200000002000001080001000a0000020a0002000200000000020"
     "0"
     "000800040000000000140003000000000000000000000000000200000005000c000b000000",
     {false, false, AF_INET, 2, NUD_REACHABLE, 0, 11, ip2, mac2}},
    {"fdbRemote",
     "4c0000001c00000000000000000000000700000003000000020010000a00020002000000000200000800090002000"
     "0"
     "0008000f00000000001400030000000000000000000000000000000000",
     {false, false, AF_BRIDGE, 3, NUD_REACHABLE, NTF_EXT_LEARNED, 0, {}, mac2}},
    {"fdbOfTheTunnelItself",
     "440000001c00000000000000000000000700000003000000c00002010a000200020000000002000008000100"
     "7f0000021400030000000000000000000000000000000000",
     {false, false, AF_BRIDGE, 3, NUD_PERMANENT | NUD_NOARP, NTF_SELF, 0, {}, mac2}},
};

TEST(NeighborMessageTest, readsWhatTheKernelSends) {
    for (const RecordedNeighbor& r : recordedNeighbors) {
        MessageBytes bytes{std::string_view(r.hex)};
        auto message = decodeNeighbor(bytes.header());
        ASSERT_TRUE(message) << r.name;
        EXPECT_TRUE(*message == r.message) << r.name;
    }
}

TEST(NeighborMessageTest, neverReadsBeyondTheEnd) {
    for (const RecordedNeighbor& r : recordedNeighbors) {
        std::string_view hex(r.hex);
        uint32_t whole = static_cast<uint32_t>(hex.size() / 2);
        bool before = false;
        for (uint32_t length = 0; length < whole; ++length) {
            // What lies beyond must not shine through: it is all ones.
            std::vector<uint8_t> bytes(whole, 0xff);
            MessageBytes all(hex);
            std::memcpy(bytes.data(), &all.header(), length);
            MessageBytes cut(bytes);
            cut.header().nlmsg_len = length;
            cut.header().nlmsg_type = r.message.removed ? RTM_DELNEIGH : RTM_NEWNEIGH;
            cut.header().nlmsg_flags = 0;
            auto message = decodeNeighbor(cut.header());
            if (message) {
                EXPECT_TRUE(message->address == r.message.address) << r.name << " " << length;
                EXPECT_TRUE(!message->macAddress || message->macAddress == r.message.macAddress);
                EXPECT_TRUE(message->protocol == 0 || message->protocol == r.message.protocol);
                EXPECT_EQ(message->ifIndex, r.message.ifIndex);
                EXPECT_EQ(message->state, r.message.state);
            }
            EXPECT_TRUE(message || !before) << r.name << " " << length;
            before = message.has_value();
            if (length < sizeof(nlmsghdr) + sizeof(ndmsg) + 8) { // no key fits
                EXPECT_FALSE(message) << r.name << " " << length;
            }
        }
    }
}

TEST(NeighborMessageTest, refusesOtherMessages) {
    MessageBytes link = NeighborSpecimen{.ifIndex = 2, .address = "10.0.0.1"}.bytes();
    EXPECT_TRUE(decodeNeighbor(link.header()));
    link.header().nlmsg_type = RTM_NEWLINK;
    EXPECT_FALSE(decodeNeighbor(link.header()));

    MessageBytes withoutAddress{std::string_view(recordedNeighbors[0].hex)};
    void* body = &withoutAddress.header() + 1;
    static_cast<ndmsg*>(body)->ndm_family = AF_INET6; // of which four bytes are no address
    EXPECT_FALSE(decodeNeighbor(withoutAddress.header()));
    static_cast<ndmsg*>(body)->ndm_family = AF_PACKET;
    EXPECT_FALSE(decodeNeighbor(withoutAddress.header()));
    EXPECT_FALSE(decodeNeighbor(NeighborSpecimen{.ifIndex = 2}.bytes().header()));
}

TEST(NeighborMessageTest, tellsADumpFromAnEvent) {
    NeighborSpecimen specimen{.ifIndex = 2, .address = "10.0.0.1", .dumped = true};
    EXPECT_TRUE(decodeNeighbor(specimen.bytes().header())->dumped);
}

TEST(NeighborTest, goesByStateAndFlag) {
    using Kind = Neighbor::Kind;
    auto of = [](uint16_t state, uint8_t flags, uint8_t protocol, bool removed = false,
                 std::optional<Zinc::EthAddr> mac = mac1) {
        return neighborOf({removed, false, AF_INET, 2, state, flags, protocol, ip1, mac});
    };
    Arp::ArpSource kernel = Arp::ArpSource::kernel;
    Arp::ArpSource own = Arp::ArpSource::arpSuppression;
    for (uint16_t state :
         std::initializer_list<uint16_t>{NUD_REACHABLE, NUD_STALE, NUD_DELAY, NUD_PROBE}) {
        EXPECT_EQ(of(state, 0, 0), (Neighbor{Kind::local, false, kernel, mac1})) << state;
        // The kernel keeps the protocol of the entry that stood there before.
        EXPECT_EQ(of(state, 0, 11), (Neighbor{Kind::local, false, kernel, mac1})) << state;
        EXPECT_EQ(of(state, NTF_EXT_LEARNED, 11), (Neighbor{Kind::remote, false, kernel, mac1}));
        EXPECT_EQ(of(state, 0, 110), (Neighbor{Kind::local, false, kernel, mac1})) << state;
        EXPECT_EQ(of(state, NTF_EXT_LEARNED, 110), (Neighbor{Kind::remote, false, kernel, mac1}));
    }
    for (uint16_t state : std::initializer_list<uint16_t>{NUD_PERMANENT, NUD_NOARP}) {
        EXPECT_EQ(of(state, 0, 0), (Neighbor{Kind::local, true, kernel, mac1})) << state;
        EXPECT_EQ(of(state, 0, 4), (Neighbor{Kind::local, true, Arp::ArpSource{4}, mac1}));
        EXPECT_EQ(of(state, NTF_EXT_LEARNED, 0), (Neighbor{Kind::remote, false, kernel, mac1}));
        EXPECT_EQ(of(state, NTF_EXT_LEARNED, 11, true), Neighbor());
    }
    // The agent tags permanent entries alone, and its tag counts before the flag.
    EXPECT_EQ(of(NUD_PERMANENT, 0, 110), (Neighbor{Kind::local, true, own, mac1}));
    EXPECT_EQ(of(NUD_PERMANENT, NTF_EXT_LEARNED, 110), (Neighbor{Kind::local, true, own, mac1}));
    EXPECT_EQ(of(NUD_NOARP, 0, 110), (Neighbor{Kind::local, true, kernel, mac1}));
    EXPECT_EQ(of(NUD_NOARP, NTF_EXT_LEARNED, 110), (Neighbor{Kind::remote, false, kernel, mac1}));
    for (uint16_t state : std::initializer_list<uint16_t>{NUD_NONE, NUD_INCOMPLETE, NUD_FAILED}) {
        EXPECT_EQ(of(state, 0, 0), Neighbor()) << state;
        EXPECT_EQ(of(state, NTF_EXT_LEARNED, 11), Neighbor()) << state;
        EXPECT_EQ(of(state, 0, 110), Neighbor()) << state;
    }
    EXPECT_EQ(of(NUD_REACHABLE, 0, 0, false, std::nullopt), Neighbor());
    EXPECT_EQ(of(NUD_NOARP, 0, 0, false, Zinc::EthAddr()), Neighbor());
    EXPECT_EQ(of(NUD_NOARP, 0, 0, false, Zinc::EthAddr("ff:ff:ff:ff:ff:ff")), Neighbor());
}

} // namespace
} // namespace Linux
