#include "Platform/Packet/NeighborDiscovery.h"

#include "Platform/Packet/test/Hex.h"

#include <algorithm>
#include <array>
#include <sstream>

namespace {

using namespace Arp;
using Vela::Bytes;
using Vela::hex;
using Vela::Icmp6Hdr;
using Vela::Ip6Hdr;
using Vela::prefix;
using Zinc::IpGenAddr;

// Where things stand in a packet.
constexpr size_t payloadLengthAt = 4;
constexpr size_t nextHeaderAt = 6;
constexpr size_t hopLimitAt = 7;
constexpr size_t srcAt = 8;
constexpr size_t dstAt = 24;
constexpr size_t messageAt = 40;
constexpr size_t codeAt = 41;
constexpr size_t checksumAt = 42;
constexpr size_t reservedAt = 44;
constexpr size_t targetAt = 48;

const char* const unspecified = "00000000000000000000000000000000";
const char* const allNodes = "ff020000000000000000000000000001";
const char* const solicitedNode = "ff0200000000000000000001ff000001"; // of the target

const char* const solicitation = "60000000 0020 3a ff 20010db8000000000000000000000002"
                                 "ff0200000000000000000001ff000001"
                                 "87 00 1c1f 00000000 20010db8000000000000000000000001"
                                 "01 01 02000000000a";
const char* const advertisement = "60000000 0020 3a ff 20010db8000000000000000000000001"
                                  "20010db8000000000000000000000002"
                                  "88 00 8a73 60000000 20010db8000000000000000000000001"
                                  "02 01 020000000001";
const char* const routerSolicitation = "60000000 0010 3a ff fe800000000000000000000000000002"
                                       "ff020000000000000000000000000002"
                                       "85 00 7a22 00000000"
                                       "01 01 02000000000a";
/// Asks whether anybody has the address that the sender is about to take.
const char* const addressProbe = "60000000 0018 3a ff 00000000000000000000000000000000"
                                 "ff0200000000000000000001ff000001"
                                 "87 00 4ced 00000000 20010db8000000000000000000000001";

Bytes with(Bytes packet, size_t offset, std::string_view text) {
    Bytes bytes = hex(text);
    EXPECT_LE(offset + bytes.size(), packet.size());
    std::copy(bytes.begin(), bytes.end(), packet.begin() + static_cast<ptrdiff_t>(offset));
    return packet;
}

Bytes joined(Bytes bytes, const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
    return bytes;
}

void numberIs(Bytes& packet, size_t offset, size_t value) {
    packet[offset] = static_cast<uint8_t>(value >> 8);
    packet[offset + 1] = static_cast<uint8_t>(value);
}

uint16_t checksumOf(const Bytes& packet) {
    Vela::WireReader reader(packet);
    Ip6Hdr ip6Hdr = Ip6Hdr::read(reader);
    return icmp6Checksum(ip6Hdr, reader.rest());
}

/// With the payload length and the checksum that it should have.
Bytes sealed(Bytes packet) {
    numberIs(packet, payloadLengthAt, packet.size() - messageAt);
    if (packet.size() >= reservedAt) {
        numberIs(packet, checksumAt, checksumOf(packet));
    }
    return packet;
}

using Validate = NdErrors (*)(std::span<const uint8_t>, NdPkt&);

std::string errorsOf(Validate validate, const Bytes& packet) {
    NdPkt pkt;
    return validate(packet, pkt).toStrep();
}

struct Sort {
    const char* name;
    Validate validate;
    const char* packet;
    size_t fixedBytes;
    uint8_t type;

    friend std::ostream& operator<<(std::ostream& out, const Sort& sort) {
        return out << sort.name;
    }
};

constexpr std::array<Sort, 3> sorts = {{
    {"Ns", validateIp6NsPkt, solicitation, 24, Icmp6Hdr::neighborSolicitation},
    {"Na", validateIp6NaPkt, advertisement, 24, Icmp6Hdr::neighborAdvertisement},
    {"Rs", validateIp6RsPkt, routerSolicitation, 8, Icmp6Hdr::routerSolicitation},
}};

/// What all three have in common.
class NdMessageTest : public testing::TestWithParam<Sort> {
  protected:
    std::string errors(const Bytes& packet) const { return errorsOf(sort.validate, packet); }
    Bytes withOptions(const std::string& options) const {
        return sealed(joined(prefix(valid, messageAt + sort.fixedBytes), hex(options)));
    }

    const Sort& sort = GetParam();
    const Bytes valid = hex(sort.packet);
};

INSTANTIATE_TEST_SUITE_P(All, NdMessageTest, testing::ValuesIn(sorts),
                         [](const auto& sort) { return std::string(sort.param.name); });

TEST_P(NdMessageTest, IsTakenApart) {
    NdPkt pkt;
    NdErrors errors = sort.validate(valid, pkt);
    EXPECT_FALSE(errors) << errors;
    EXPECT_EQ(sealed(valid), valid); // what the other tests build on
    Vela::WireReader reader(valid);
    EXPECT_TRUE(pkt.ip6Hdr == Ip6Hdr::read(reader));
    EXPECT_TRUE(pkt.icmp6Hdr == Icmp6Hdr::read(reader));
    EXPECT_EQ(pkt.icmp6Hdr.type, sort.type);
    EXPECT_EQ(pkt.targetAddr, sort.fixedBytes == 24 ? IpGenAddr("2001:db8::1") : IpGenAddr());
    EXPECT_EQ(pkt.solicited, sort.type == Icmp6Hdr::neighborAdvertisement);
    EXPECT_EQ(pkt.options.data(), valid.data() + messageAt + sort.fixedBytes);
    EXPECT_EQ(pkt.options.size(), 8u);
}

TEST_P(NdMessageTest, NothingStaysOfAnEarlierMessage) {
    NdPkt pkt;
    for (const Sort& earlier : sorts) {
        Bytes before = hex(earlier.packet);
        earlier.validate(before, pkt);
        sort.validate(valid, pkt);
        NdPkt fresh;
        sort.validate(valid, fresh);
        EXPECT_EQ(pkt.targetAddr, fresh.targetAddr) << earlier;
        EXPECT_EQ(pkt.solicited, fresh.solicited) << earlier;

        earlier.validate(before, pkt);
        EXPECT_EQ(sort.validate({}, pkt).toStrep(), "truncated");
        EXPECT_TRUE(pkt.options.empty()) << earlier; // the bytes may be gone
        EXPECT_TRUE(pkt.targetAddr.isUnset() || pkt.targetAddr.isUnspecified()) << earlier;
        EXPECT_FALSE(pkt.solicited);
        EXPECT_EQ(pkt.icmp6Hdr.type, 0);
    }
}

TEST_P(NdMessageTest, HasNotCrossedARouter) {
    EXPECT_EQ(errors(with(valid, hopLimitAt, "fe")), "badHopLimit");
    EXPECT_EQ(errors(with(valid, hopLimitAt, "40")), "badHopLimit");
    EXPECT_EQ(errors(with(valid, hopLimitAt, "00")), "badHopLimit");
}

TEST_P(NdMessageTest, HasCodeZero) {
    EXPECT_EQ(errors(sealed(with(valid, codeAt, "01"))), "badCode");
    EXPECT_EQ(errors(sealed(with(valid, codeAt, "ff"))), "badCode");
}

TEST_P(NdMessageTest, HasTheRightChecksum) {
    Bytes packet = valid;
    numberIs(packet, checksumAt, checksumOf(valid) + 1u);
    EXPECT_EQ(errors(packet), "badChecksum");
    EXPECT_EQ(errors(with(valid, checksumAt, "0000")), "badChecksum");
    EXPECT_EQ(errors(with(valid, checksumAt, "ffff")), "badChecksum");
}

TEST_P(NdMessageTest, TheTwoZerosOfTheChecksumAreOne) {
    // With its own checksum in a field that is ignored a message adds up to zero.
    Bytes packet = with(valid, checksumAt, "0000");
    numberIs(packet, reservedAt + 2, checksumOf(packet));
    EXPECT_EQ(checksumOf(packet), 0);
    EXPECT_EQ(errors(packet), "");
    EXPECT_EQ(errors(with(packet, checksumAt, "ffff")), "");
    EXPECT_EQ(errors(with(packet, checksumAt, "0001")), "badChecksum");
    EXPECT_EQ(errors(with(packet, checksumAt, "fffe")), "badChecksum");
}

TEST_P(NdMessageTest, TheChecksumCoversAddressesAndLength) {
    EXPECT_EQ(errors(with(valid, srcAt + 14, "00 03")), "badChecksum");
    EXPECT_EQ(errors(with(valid, dstAt + 14, "12 34")), "badChecksum");
    // Sixteen zero bytes more change nothing but the length (and are no options).
    Bytes longer = joined(valid, Bytes(16));
    numberIs(longer, payloadLengthAt, longer.size() - messageAt);
    EXPECT_EQ(errors(longer), "badChecksum,badOption");
    EXPECT_EQ(errors(sealed(longer)), "badOption");
}

TEST_P(NdMessageTest, IsOfItsType) {
    for (unsigned type = 0; type < 256; ++type) {
        Bytes packet = valid;
        packet[messageAt] = static_cast<uint8_t>(type);
        EXPECT_EQ(errors(sealed(packet)), type == sort.type ? "" : "badType") << type;
    }
}

TEST_P(NdMessageTest, IsIpv6) {
    EXPECT_EQ(errors(with(valid, 0, "40")), "notIp6");
    EXPECT_EQ(errors(with(valid, 0, "00")), "notIp6");
    EXPECT_EQ(errors(with(valid, 0, "70")), "notIp6");
}

TEST_P(NdMessageTest, TrafficClassAndFlowLabelDoNotMatter) {
    EXPECT_EQ(errors(with(valid, 0, "6fffffff")), "");
}

TEST_P(NdMessageTest, FollowsTheIpv6HeaderAtOnce) {
    for (const char* next : {"00", "2b", "2c", "33", "3c", "06", "11", "01", "3b"}) {
        EXPECT_EQ(errors(with(valid, nextHeaderAt, next)), "notIcmp6") << next;
    }
    // Options for every hop, and then a message that would do.
    Bytes header = with(prefix(valid, messageAt), nextHeaderAt, "00");
    numberIs(header, payloadLengthAt, valid.size() - messageAt + 8);
    Bytes message(valid.begin() + messageAt, valid.end());
    Bytes extended = joined(joined(header, hex("3a 00 01 04 00000000")), message);
    NdPkt pkt;
    EXPECT_TRUE(sort.validate(extended, pkt).has(NdError::notIcmp6));
    EXPECT_NE(pkt.icmp6Hdr.type, sort.type);
    EXPECT_NE(pkt.targetAddr, IpGenAddr("2001:db8::1"));
}

TEST_P(NdMessageTest, PaddingBehindThePacketDoesNotMatter) {
    for (size_t count : {1u, 2u, 6u, 18u, 1000u}) {
        for (uint8_t padding : hex("00 01 ff")) {
            Bytes padded = joined(valid, Bytes(count, padding));
            NdPkt pkt;
            NdErrors errors = sort.validate(padded, pkt);
            EXPECT_FALSE(errors) << errors;
            EXPECT_EQ(pkt.options.size(), 8u);
        }
    }
    // It is no part of a message that is too short either.
    Bytes shorter = sealed(prefix(valid, messageAt + sort.fixedBytes - 1));
    EXPECT_EQ(errors(joined(shorter, Bytes(18))), "truncated,badLength");
}

TEST_P(NdMessageTest, PayloadLengthBeyondTheData) {
    Bytes packet = valid;
    numberIs(packet, payloadLengthAt, valid.size() - messageAt + 1);
    EXPECT_EQ(errors(packet), "badLength");
    EXPECT_EQ(errors(with(valid, payloadLengthAt, "ffff")), "badLength");
}

TEST_P(NdMessageTest, AJumbogramIsTooShort) {
    EXPECT_EQ(errors(with(valid, payloadLengthAt, "0000")), "truncated,badLength");
}

TEST_P(NdMessageTest, EveryPrefixIsShort) {
    for (size_t count = 0; count < valid.size(); ++count) {
        NdPkt pkt;
        Bytes cut = prefix(valid, count);
        NdErrors errors = sort.validate(cut, pkt);
        if (count < messageAt) {
            EXPECT_EQ(errors.toStrep(), "truncated") << count;
        } else {
            EXPECT_TRUE(errors.has(NdError::badLength)) << count;
            EXPECT_EQ(errors.has(NdError::truncated), count < messageAt + sort.fixedBytes) << count;
        }
        EXPECT_LE(pkt.options.size(), count) << count;
    }
}

TEST_P(NdMessageTest, EveryShorterMessageIsShortOrItsOptionCutOff) {
    for (size_t count = messageAt; count < valid.size(); ++count) {
        size_t fixedEnd = messageAt + sort.fixedBytes;
        EXPECT_EQ(errors(sealed(prefix(valid, count))), count < fixedEnd    ? "truncated,badLength"
                                                        : count == fixedEnd ? ""
                                                                            : "badOption")
            << count;
    }
}

TEST_P(NdMessageTest, EveryBitCounts) {
    for (size_t bit = 0; bit < 8 * valid.size(); ++bit) {
        Bytes packet = valid;
        packet[bit / 8] = static_cast<uint8_t>(packet[bit / 8] ^ 0x80u >> bit % 8);
        bool counts = bit < 4 || bit >= 32; // all but traffic class and flow label
        EXPECT_EQ(!errors(packet).empty(), counts) << bit;
    }
}

TEST_P(NdMessageTest, UnknownOptionsAreIgnored) {
    EXPECT_EQ(errors(withOptions("")), "");
    EXPECT_EQ(errors(withOptions("0e01aaaaaaaaaaaa")), "");
    EXPECT_EQ(errors(withOptions("fd02000000000000 0000000000000000 0001000000000000")), "");
    EXPECT_EQ(errors(withOptions("ffff" + std::string(2 * (255 * 8 - 2), '5'))), "");
}

TEST_P(NdMessageTest, NoOptionHasLengthZero) {
    EXPECT_EQ(errors(withOptions("0e01aaaaaaaaaaaa")), "");
    EXPECT_EQ(errors(withOptions("0e00aaaaaaaaaaaa")), "badOption");
    EXPECT_EQ(errors(withOptions("0101020000000001 0e00aaaaaaaaaaaa")), "badOption");
    EXPECT_EQ(errors(withOptions("0e00aaaaaaaaaaaa 0101020000000001")), "badOption");
    EXPECT_EQ(errors(withOptions("0101020000000001 0000")), "badOption");
}

TEST_P(NdMessageTest, NoOptionIsCutOff) {
    EXPECT_EQ(errors(withOptions("0e02aaaaaaaaaaaa aaaaaaaaaaaaaaaa")), "");
    EXPECT_EQ(errors(withOptions("0e02aaaaaaaaaaaa aaaaaaaaaaaaaa")), "badOption");
    EXPECT_EQ(errors(withOptions("0e02aaaaaaaaaaaa")), "badOption");
    EXPECT_EQ(errors(withOptions("0e01aaaaaaaaaaaa 0e")), "badOption");
    EXPECT_EQ(errors(withOptions("0e")), "badOption");
}

TEST_P(NdMessageTest, EverythingWrongIsSaid) {
    Bytes packet = with(with(with(valid, 0, "40"), nextHeaderAt, "11 40"), messageAt, "01 02 0000");
    EXPECT_EQ(errors(packet), "notIp6,notIcmp6,badType,badHopLimit,badCode,badChecksum");
}

// Solicitations of neighbours

TEST(NeighborSolicitationTest, ReservedBitsDoNotMatter) {
    Bytes packet = sealed(with(hex(solicitation), reservedAt, "ffffffff"));
    NdPkt pkt;
    EXPECT_FALSE(validateIp6NsPkt(packet, pkt));
    EXPECT_FALSE(pkt.solicited); // a flag of advertisements alone
}

TEST(NeighborSolicitationTest, AsksForOne) {
    for (const char* target : {"ff020000000000000000000000000001", solicitedNode, "ff00"}) {
        Bytes packet = sealed(with(hex(solicitation), targetAt, target));
        EXPECT_EQ(errorsOf(validateIp6NsPkt, packet), "badTarget") << target;
    }
    for (const char* target : {"fe80", "feff", unspecified}) {
        Bytes packet = sealed(with(hex(solicitation), targetAt, target));
        EXPECT_EQ(errorsOf(validateIp6NsPkt, packet), "") << target;
    }
}

TEST(NeighborSolicitationTest, AProbeGoesToASolicitedNodesGroup) {
    const Bytes probe = hex(addressProbe);
    EXPECT_EQ(errorsOf(validateIp6NsPkt, probe), "");
    EXPECT_EQ(sealed(probe), probe);
    // Of which node does not matter.
    EXPECT_EQ(errorsOf(validateIp6NsPkt, sealed(with(probe, dstAt + 13, "abcdef"))), "");
    for (const char* dst : {allNodes, unspecified, "20010db8000000000000000000000001",
                            "ff0200000000000000000001fe000001", "ff0200000000000000000000ff000001",
                            "ff0200000000000000000002ff000001", "ff0200010000000000000001ff000001",
                            "ff0200000000000000010001ff000001", "ff0500000000000000000001ff000001",
                            "ff1200000000000000000001ff000001"}) {
        EXPECT_EQ(errorsOf(validateIp6NsPkt, sealed(with(probe, dstAt, dst))), "badDestination")
            << dst;
        // Who has an address may ask anybody.
        EXPECT_EQ(errorsOf(validateIp6NsPkt, sealed(with(hex(solicitation), dstAt, dst))), "")
            << dst;
    }
}

TEST(NeighborSolicitationTest, AProbeNamesNoLinkLayerAddress) {
    auto withOptions = [](const char* text) {
        return errorsOf(validateIp6NsPkt, sealed(joined(hex(addressProbe), hex(text))));
    };
    EXPECT_EQ(withOptions("0101020000000001"), "badSource");
    EXPECT_EQ(withOptions("0e01aaaaaaaaaaaa 0101020000000001"), "badSource");
    EXPECT_EQ(withOptions("0101020000000001 0e00"), "badOption,badSource");
    EXPECT_EQ(withOptions("0e01aaaaaaaaaaaa"), "");
    EXPECT_EQ(withOptions("0201020000000001"), "");
    // The least of addresses is one.
    Bytes other = with(joined(hex(addressProbe), hex("0101020000000001")), srcAt + 15, "01");
    EXPECT_EQ(errorsOf(validateIp6NsPkt, sealed(other)), "");
}

// Advertisements of neighbours

TEST(NeighborAdvertisementTest, ReservedBitsDoNotMatter) {
    EXPECT_EQ(errorsOf(validateIp6NaPkt, sealed(with(hex(advertisement), reservedAt, "ffffffff"))),
              "");
}

TEST(NeighborAdvertisementTest, IsOfOne) {
    for (const char* target : {allNodes, solicitedNode, "ff00"}) {
        Bytes packet = sealed(with(hex(advertisement), targetAt, target));
        EXPECT_EQ(errorsOf(validateIp6NaPkt, packet), "badTarget") << target;
    }
    for (const char* target : {"fe80", "feff", unspecified}) {
        Bytes packet = sealed(with(hex(advertisement), targetAt, target));
        EXPECT_EQ(errorsOf(validateIp6NaPkt, packet), "") << target;
    }
}

TEST(NeighborAdvertisementTest, AnAnswerGoesToOne) {
    const Bytes toOne = hex(advertisement);
    const Bytes toMany = with(toOne, dstAt, allNodes);
    struct {
        const char* flags;
        bool solicited;
    } cases[] = {{"40000000", true},  {"c0000000", true},  {"e0000000", true},
                 {"60000000", true},  {"00000000", false}, {"80000000", false},
                 {"20000000", false}, {"bfffffff", false}};
    for (const auto& [flags, solicited] : cases) {
        SCOPED_TRACE(flags);
        Bytes answer = sealed(with(toOne, reservedAt, flags));
        NdPkt pkt;
        EXPECT_EQ(validateIp6NaPkt(answer, pkt).toStrep(), "");
        EXPECT_EQ(pkt.solicited, solicited);
        EXPECT_EQ(errorsOf(validateIp6NaPkt, sealed(with(toMany, reservedAt, flags))),
                  solicited ? "solicitedMulticast" : "");
    }
    EXPECT_EQ(errorsOf(validateIp6NaPkt, sealed(with(toOne, dstAt, "feff"))), "");
    EXPECT_EQ(errorsOf(validateIp6NaPkt, sealed(with(toOne, dstAt, "ff00"))), "solicitedMulticast");
}

TEST(NeighborAdvertisementTest, TheRulesOfProbesAreNotItsOwn) {
    Bytes packet = with(hex(advertisement), srcAt, unspecified);
    EXPECT_EQ(errorsOf(validateIp6NaPkt, sealed(packet)), "");
    EXPECT_EQ(errorsOf(validateIp6NaPkt, sealed(joined(packet, hex("0101020000000001")))), "");
}

// Solicitations of routers

TEST(RouterSolicitationTest, ReservedBitsDoNotMatter) {
    Bytes packet = sealed(with(hex(routerSolicitation), reservedAt, "ffffffff"));
    EXPECT_EQ(errorsOf(validateIp6RsPkt, packet), "");
}

TEST(RouterSolicitationTest, HasNoTarget) {
    // What stands where the others have their target is an option.
    Bytes packet = prefix(hex(routerSolicitation), messageAt + 8);
    packet = sealed(joined(packet, hex("ff02000000000000 0000000000000000")));
    NdPkt pkt;
    EXPECT_EQ(validateIp6RsPkt(packet, pkt).toStrep(), "");
    EXPECT_TRUE(pkt.targetAddr.isUnset());
    EXPECT_FALSE(pkt.solicited);
}

TEST(RouterSolicitationTest, WithoutAnAddressItNamesNoLinkLayerAddress) {
    Bytes packet = with(hex(routerSolicitation), srcAt, unspecified);
    EXPECT_EQ(errorsOf(validateIp6RsPkt, sealed(packet)), "badSource");
    EXPECT_EQ(errorsOf(validateIp6RsPkt, sealed(with(packet, srcAt + 15, "01"))), "");
    EXPECT_EQ(errorsOf(validateIp6RsPkt, sealed(with(packet, messageAt + 8, "02"))), "");
    packet = prefix(packet, messageAt + 8);
    EXPECT_EQ(errorsOf(validateIp6RsPkt, sealed(packet)), "");
    // Any destination will do.
    packet = with(packet, dstAt, "20010db8000000000000000000000001");
    EXPECT_EQ(errorsOf(validateIp6RsPkt, sealed(packet)), "");
}

// Checksums

TEST(Icmp6ChecksumTest, OfAnOddNumberOfBytes) {
    const Bytes packet = hex("60000000 0009 3a ff 20010db8000000000000000000000002"
                             "20010db8000000000000000000000001"
                             "87 00 4f9b 000000ab cd");
    EXPECT_EQ(checksumOf(packet), 0x4f9b);
    EXPECT_EQ(checksumOf(joined(packet, {0})), 0x4f9a); // a zero adds nothing but its length
    EXPECT_NE(checksumOf(prefix(packet, packet.size() - 1)), 0x4f9b);
}

TEST(Icmp6ChecksumTest, ItsOwnFieldCountsAsZero) {
    const Bytes packet = hex(solicitation);
    for (const char* field : {"0000", "ffff", "1234"}) {
        EXPECT_EQ(checksumOf(with(packet, checksumAt, field)), 0x1c1f) << field;
    }
}

TEST(Icmp6ChecksumTest, OfAMessageTooShortForOne) {
    Ip6Hdr header;
    header.src = IpGenAddr("::1");
    header.dst = IpGenAddr("::2");
    EXPECT_EQ(icmp6Checksum(header, {}), 0xffff - (1 + 2 + 58));
    EXPECT_EQ(icmp6Checksum(header, Bytes{1}), 0xffff - (1 + 2 + 58 + 1 + 0x100));
    EXPECT_EQ(icmp6Checksum(header, Bytes{1, 2, 3}), 0xffff - (1 + 2 + 58 + 3 + 0x102 + 0x300));
}

TEST(Icmp6ChecksumTest, OfTheLongestMessage) {
    Ip6Hdr header;
    header.src = IpGenAddr("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
    header.dst = header.src;
    // All of the sum but length, next header and the last byte is minus zero.
    Bytes message(65535, 0xff);
    EXPECT_EQ(icmp6Checksum(header, message), 0xffff - (58 + 0xff00));
}

// Errors

TEST(NdErrorsTest, NamesItsBits) {
    NdErrors errors;
    EXPECT_FALSE(errors);
    EXPECT_EQ(errors.toStrep(), "");
    errors.add(NdError::badOption);
    errors.add(NdError::truncated);
    errors.add(NdError::badOption);
    EXPECT_TRUE(errors);
    EXPECT_TRUE(errors.has(NdError::badOption));
    EXPECT_FALSE(errors.has(NdError::badSource));
    EXPECT_EQ(errors.toStrep(), "truncated,badOption");
    std::ostringstream out;
    out << errors;
    EXPECT_EQ(out.str(), "truncated,badOption");
    NdErrors other;
    other.add(NdError::truncated);
    EXPECT_NE(errors, other);
    other.add(NdError::badOption);
    EXPECT_EQ(errors, other);
}

TEST(NdErrorsTest, EveryBitHasAName) {
    NdErrors errors;
    for (uint32_t bit = 1; bit <= static_cast<uint32_t>(NdError::solicitedMulticast); bit <<= 1) {
        NdErrors one;
        one.add(static_cast<NdError>(bit));
        EXPECT_NE(one.toStrep(), "") << bit;
        errors.add(static_cast<NdError>(bit));
    }
    EXPECT_EQ(errors.toStrep(),
              "truncated,notIp6,notIcmp6,badType,badHopLimit,badCode,badChecksum,badLength,"
              "badTarget,badDestination,badOption,badSource,solicitedMulticast");
}

} // namespace
