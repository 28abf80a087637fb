// Reads arbitrary bytes as every header form and as every message that the neighbour discovery
// checks know. A header that was there writes back as the bytes it was read from; what a check
// lets pass is what it should be, whatever follows the packet.

#include "Platform/Base/Assert.h"
#include "Platform/Packet/Headers.h"
#include "Platform/Packet/NeighborDiscovery.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace {

using Arp::NdError;
using Arp::NdErrors;
using Arp::NdPkt;
using Vela::assertThat;
using Bytes = std::vector<uint8_t>;

template <class Header>
void checkHeader(std::span<const uint8_t> data) {
    Vela::WireReader reader(data);
    Header header = Header::read(reader);
    assertThat(reader.ok() == (data.size() >= Header::wireBytes),
               "reader.ok() == (data.size() >= Header::wireBytes)");
    if (!reader.ok()) {
        return;
    }
    assertThat(reader.rest().size() == data.size() - Header::wireBytes,
               "reader.rest().size() == data.size() - Header::wireBytes");
    std::array<uint8_t, Header::wireBytes> written;
    Vela::WireWriter writer(written);
    header.write(writer);
    assertThat(writer.ok() && writer.room() == 0, "writer.ok() && writer.room() == 0");
    assertThat(std::equal(written.begin(), written.end(), data.begin()),
               "what was read is written back");
}

/// The first option of a type, found by offsets; nothing if the options are malformed.
std::optional<size_t> offsetOfOption(std::span<const uint8_t> options, uint8_t type) {
    size_t found = options.size();
    for (size_t at = 0; at < options.size();) {
        if (at + 1 == options.size() || options[at + 1] == 0 ||
            at + options[at + 1] * 8u > options.size()) {
            return std::nullopt;
        }
        if (options[at] == type && found == options.size()) {
            found = at;
        }
        at += options[at + 1] * 8u;
    }
    return found;
}

void checkOptions(std::span<const uint8_t> options, uint8_t type) {
    Arp::Icmp6Opt opt = Arp::getIcmp6Opt(options, type);
    std::optional<size_t> offset = offsetOfOption(options, type);
    assertThat(opt.valid == offset.has_value(), "opt.valid == offset.has_value()");
    assertThat(opt.ethAddr().has_value() == !opt.option.empty(),
               "opt.ethAddr().has_value() == !opt.option.empty()");
    if (offset) {
        assertThat(opt.option.empty() == (*offset == options.size()),
                   "opt.option.empty() == (*offset == options.size())");
    }
    if (!opt.option.empty()) {
        size_t at = static_cast<size_t>(opt.option.data() - options.data());
        assertThat(opt.option[0] == type && opt.option.size() == options[at + 1] * 8u &&
                       at + opt.option.size() <= options.size(),
                   "a whole option of the type");
        assertThat(!offset || at == *offset, "the first one");
    }
}

using Validate = NdErrors (*)(std::span<const uint8_t>, NdPkt&);

struct Sort {
    Validate validate;
    uint8_t type;
    size_t fixedBytes;
};

constexpr std::array<Sort, 3> sorts = {{
    {Arp::validateIp6NsPkt, Vela::Icmp6Hdr::neighborSolicitation, 24},
    {Arp::validateIp6NaPkt, Vela::Icmp6Hdr::neighborAdvertisement, 24},
    {Arp::validateIp6RsPkt, Vela::Icmp6Hdr::routerSolicitation, 8},
}};

constexpr size_t headerBytes = Vela::Ip6Hdr::wireBytes;

void checkPassed(std::span<const uint8_t> packet, const Sort& sort, const NdPkt& pkt) {
    size_t length = packet[4] * 256u + packet[5];
    assertThat(packet[0] >> 4 == 6 && packet[6] == 58 && packet[7] == 255,
               "one hop away, ICMPv6 right behind IPv6");
    assertThat(packet[40] == sort.type && packet[41] == 0, "type and code");
    assertThat(length >= sort.fixedBytes && headerBytes + length <= packet.size(), "length");
    assertThat(pkt.options.data() == packet.data() + headerBytes + sort.fixedBytes &&
                   pkt.options.size() == length - sort.fixedBytes,
               "the options are what is left of the message");
    assertThat(offsetOfOption(pkt.options, 0).has_value(), "whole options");
    bool fromNowhere = std::all_of(&packet[8], &packet[24], [](uint8_t b) { return b == 0; });
    bool names = *offsetOfOption(pkt.options, 1) != pkt.options.size();
    assertThat(sort.type == 136 || !fromNowhere || !names, "no address for the unspecified one");
    assertThat(sort.fixedBytes == 8 || packet[48] != 0xff, "no multicast target");
    assertThat(sort.type != 136 || packet[24] != 0xff || !(packet[44] & 0x40),
               "solicited ones go to one");
}

void checkMessage(std::span<const uint8_t> packet, const Sort& sort) {
    NdPkt pkt;
    NdErrors errors = sort.validate(packet, pkt);
    if (!errors) {
        checkPassed(packet, sort, pkt);
    }
    assertThat(static_cast<bool>(errors) != errors.toStrep().empty(),
               "static_cast<bool>(errors) != errors.toStrep().empty()");
    if (packet.size() >= headerBytes &&
        packet.size() - headerBytes >= packet[4] * 256u + packet[5]) {
        Bytes padded(packet.begin(), packet.end());
        padded.insert(padded.end(), {1, 0, 0xff});
        assertThat(sort.validate(padded, pkt) == errors, "sort.validate(padded, pkt) == errors");
    }
}

/// The same packet with the length and the checksum that it should have: what a fuzzer hardly ever
/// comes upon.
Bytes sealed(std::span<const uint8_t> data) {
    Bytes packet(data.begin(), data.end());
    size_t length = std::min<size_t>(packet.size() - headerBytes, 0xffff);
    packet[4] = static_cast<uint8_t>(length >> 8);
    packet[5] = static_cast<uint8_t>(length);
    Vela::WireReader reader(packet);
    Vela::Ip6Hdr ip6Hdr = Vela::Ip6Hdr::read(reader);
    uint16_t checksum = Arp::icmp6Checksum(ip6Hdr, reader.rest().first(length));
    packet[42] = static_cast<uint8_t>(checksum >> 8);
    packet[43] = static_cast<uint8_t>(checksum);
    return packet;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    std::span<const uint8_t> data(bytes, size);
    checkHeader<Vela::EthHdr>(data);
    checkHeader<Vela::Dot1qHdr>(data);
    checkHeader<Vela::ArpHdr>(data);
    checkHeader<Vela::Ip6Hdr>(data);
    checkHeader<Vela::Icmp6Hdr>(data);
    checkHeader<Vela::MplsEntry>(data);
    for (uint8_t type : {Arp::sourceLinkLayerAddress, Arp::targetLinkLayerAddress}) {
        checkOptions(data, type);
    }
    for (const Sort& sort : sorts) {
        checkMessage(data, sort);
        if (size >= headerBytes + Vela::Icmp6Hdr::wireBytes) {
            Bytes packet = sealed(data);
            checkMessage(packet, sort);
            NdPkt pkt;
            NdErrors errors = sort.validate(packet, pkt);
            assertThat(!errors.has(NdError::badChecksum), "!errors.has(NdError::badChecksum)");
        }
    }
    return 0;
}
