#include "Platform/Packet/Headers.h"

#include "Platform/Packet/test/Hex.h"

namespace {

using namespace Vela;
using Zinc::EthAddr;
using Zinc::IpGenAddr;

template <class Header>
Bytes written(const Header& header) {
    Bytes bytes(Header::wireBytes);
    WireWriter writer(bytes);
    header.write(writer);
    EXPECT_TRUE(writer.ok());
    EXPECT_EQ(writer.room(), 0u);
    return bytes;
}

template <class Header>
void expectReads(const Bytes& bytes, const Header& expected) {
    WireReader reader(bytes);
    EXPECT_TRUE(Header::read(reader) == expected);
    EXPECT_TRUE(reader.ok());
    EXPECT_TRUE(reader.rest().empty());
}

/// What follows a header is left to whoever reads on; a byte less, and it is not there.
template <class Header>
void expectBounds(const Bytes& bytes) {
    Bytes more = bytes;
    more.push_back(0xee);
    WireReader reader(more);
    Header::read(reader);
    EXPECT_TRUE(reader.ok());
    EXPECT_EQ(reader.rest().size(), 1u);
    for (size_t count = 0; count < bytes.size(); ++count) {
        Bytes cut = prefix(bytes, count);
        WireReader cutReader(cut);
        Header::read(cutReader);
        EXPECT_FALSE(cutReader.ok()) << count;
        EXPECT_TRUE(cutReader.rest().empty()) << count;
    }
}

template <class Header>
void expectNothingWrittenBehindTheRoom(const Header& header) {
    for (size_t room = 0; room < Header::wireBytes; ++room) {
        Bytes bytes(Header::wireBytes, 0xee);
        WireWriter writer(std::span<uint8_t>(bytes).first(room));
        header.write(writer);
        EXPECT_FALSE(writer.ok()) << room;
        EXPECT_EQ(Bytes(bytes.begin() + static_cast<ptrdiff_t>(room), bytes.end()),
                  Bytes(Header::wireBytes - room, 0xee));
    }
}

/// No bit is lost or stands for another one.
template <class Header>
void expectEveryBitRoundTrips() {
    for (uint8_t ground : {uint8_t{0x00}, uint8_t{0xff}}) {
        for (size_t bit = 0; bit < 8 * Header::wireBytes; ++bit) {
            Bytes bytes(Header::wireBytes, ground);
            bytes[bit / 8] = static_cast<uint8_t>(bytes[bit / 8] ^ 1u << bit % 8);
            WireReader reader(bytes);
            EXPECT_EQ(written(Header::read(reader)), bytes) << bit;
        }
    }
}

template <class Header>
void expectForm(std::string_view text, const Header& header) {
    Bytes bytes = hex(text);
    ASSERT_EQ(bytes.size(), Header::wireBytes);
    expectReads(bytes, header);
    EXPECT_EQ(written(header), bytes);
    expectBounds<Header>(bytes);
    expectNothingWrittenBehindTheRoom(header);
    expectEveryBitRoundTrips<Header>();
}

TEST(HeadersTest, Ethernet) {
    EthHdr header;
    header.dst = EthAddr("33:33:ff:00:00:01");
    header.src = EthAddr("02:00:00:00:00:0a");
    header.etherType = EtherType::ipv6;
    expectForm("3333ff000001 02000000000a 86dd", header);
}

TEST(HeadersTest, EtherTypes) {
    EXPECT_EQ(EtherType::arp, 0x0806);
    EXPECT_EQ(EtherType::dot1q, 0x8100);
    EXPECT_EQ(EtherType::ipv6, 0x86dd);
    EXPECT_EQ(EtherType::mpls, 0x8847);
    EXPECT_EQ(EtherType::norvelArpSnoop, 0x8135);
}

TEST(HeadersTest, Tag) {
    Dot1qHdr header;
    header.priority = 0xd; // priority 6, may be dropped
    header.vlanId = 0x9ab;
    header.etherType = EtherType::arp;
    expectForm("d9ab 0806", header);
    header.priority = 0;
    header.vlanId = 4095;
    expectForm("0fff 0806", header);
}

TEST(HeadersTest, ATagsFieldsKeepToThemselves) {
    Dot1qHdr header;
    header.priority = 0x1f;
    header.vlanId = 0x1001;
    EXPECT_EQ(written(header), hex("f001 0000"));
}

ArpHdr arpRequest() {
    ArpHdr header;
    header.operation = ArpHdr::request;
    header.senderMac = EthAddr("02:00:00:00:00:0a");
    header.senderIp = 0x0a00000b;
    header.targetMac = EthAddr("02:00:00:00:00:0c");
    header.targetIp = 0xc0a80001;
    return header;
}

TEST(HeadersTest, Arp) {
    expectForm("0001 0800 06 04 0001 02000000000a 0a00000b 02000000000c c0a80001", arpRequest());
    ArpHdr reply = arpRequest();
    reply.operation = ArpHdr::reply;
    expectForm("0001 0800 06 04 0002 02000000000a 0a00000b 02000000000c c0a80001", reply);
}

TEST(HeadersTest, ArpOfAnythingButIpv4OverEthernetIsInvalid) {
    EXPECT_TRUE(ArpHdr().isValid());
    EXPECT_TRUE(arpRequest().isValid());
    ArpHdr header = arpRequest();
    header.hardwareType = 6;
    EXPECT_FALSE(header.isValid());
    header = arpRequest();
    header.protocolType = 0x86dd;
    EXPECT_FALSE(header.isValid());
    header = arpRequest();
    header.hardwareLength = 8;
    EXPECT_FALSE(header.isValid());
    header = arpRequest();
    header.protocolLength = 16;
    EXPECT_FALSE(header.isValid());
}

TEST(HeadersTest, Ipv6) {
    Ip6Hdr header;
    header.trafficClass = 0xe1;
    header.flowLabel = 0x23456;
    header.payloadLength = 0x0120;
    header.nextHeader = Ip6Hdr::icmp6;
    header.hopLimit = 255;
    header.src = IpGenAddr("2001:db8::2");
    header.dst = IpGenAddr("ff02::1:ff00:1");
    expectForm("6e123456 0120 3a ff 20010db8000000000000000000000002"
               "ff0200000000000000000001ff000001",
               header);
}

TEST(HeadersTest, Ipv6SaysItsVersion) {
    EXPECT_EQ(Ip6Hdr().version, 6);
    EXPECT_EQ(written(Ip6Hdr()), hex("60000000 0000 00 00" + std::string(64, '0')));
    Ip6Hdr header;
    header.flowLabel = 0x1fffff;
    EXPECT_EQ(prefix(written(header), 4), hex("600fffff"));
}

TEST(HeadersTest, Icmp6) {
    Icmp6Hdr header;
    header.type = Icmp6Hdr::neighborSolicitation;
    header.code = 1;
    header.checksum = 0x4ced;
    expectForm("87 01 4ced", header);
    EXPECT_EQ(Icmp6Hdr::routerSolicitation, 133);
    EXPECT_EQ(Icmp6Hdr::neighborAdvertisement, 136);
}

TEST(HeadersTest, LabelStackEntry) {
    MplsEntry entry;
    entry.label = 0xabcde;
    entry.trafficClass = 5;
    entry.bottomOfStack = false;
    entry.ttl = 64;
    expectForm("abcdea40", entry);
    entry.bottomOfStack = true;
    expectForm("abcdeb40", entry);
    MplsEntry null;
    null.label = MplsEntry::implicitNull;
    expectForm("00003000", null);
}

TEST(HeadersTest, ALabelStackEntrysFieldsKeepToThemselves) {
    MplsEntry entry;
    entry.label = 0x100001;
    entry.trafficClass = 8;
    EXPECT_EQ(written(entry), hex("00001000"));
}

TEST(HeadersTest, AFrameIsReadHeaderByHeaderAndEveryPrefixOfItIsShort) {
    const Bytes frame = hex("ffffffffffff 02000000000a 8100 600a 0806"
                            "0001 0800 06 04 0001 02000000000a 0a00000b 02000000000c c0a80001");
    for (size_t count = 0; count <= frame.size(); ++count) {
        SCOPED_TRACE(count);
        Bytes cut = prefix(frame, count);
        WireReader reader(cut);
        EthHdr eth = EthHdr::read(reader);
        Dot1qHdr tag = Dot1qHdr::read(reader);
        ArpHdr arp = ArpHdr::read(reader);
        EXPECT_EQ(reader.ok(), count == frame.size());
        EXPECT_EQ(eth.etherType, count >= 14 ? EtherType::dot1q : 0);
        EXPECT_EQ(tag.vlanId, count >= 16 ? 10 : 0);
        EXPECT_EQ(tag.etherType, count >= 18 ? EtherType::arp : 0);
        EXPECT_EQ(arp.isValid(), count >= 24);
        if (count == frame.size()) {
            EXPECT_TRUE(arp == arpRequest());
        }
    }
}

} // namespace
