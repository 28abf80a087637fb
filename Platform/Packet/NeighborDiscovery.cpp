#include "Platform/Packet/NeighborDiscovery.h"

#include <array>
#include <utility>

namespace Arp {

namespace {

using Vela::Icmp6Hdr;
using Vela::Ip6Hdr;
using Vela::WireReader;

constexpr std::array<std::pair<NdError, const char*>, 13> errorNames = {{
    {NdError::truncated, "truncated"},
    {NdError::notIp6, "notIp6"},
    {NdError::notIcmp6, "notIcmp6"},
    {NdError::badType, "badType"},
    {NdError::badHopLimit, "badHopLimit"},
    {NdError::badCode, "badCode"},
    {NdError::badChecksum, "badChecksum"},
    {NdError::badLength, "badLength"},
    {NdError::badTarget, "badTarget"},
    {NdError::badDestination, "badDestination"},
    {NdError::badOption, "badOption"},
    {NdError::badSource, "badSource"},
    {NdError::solicitedMulticast, "solicitedMulticast"},
}};

uint32_t sumOf(std::span<const uint8_t> bytes) {
    uint32_t sum = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        sum += i % 2 == 0 ? uint32_t{bytes[i]} << 8 : bytes[i];
    }
    return sum;
}

/// ff02::1:ff00:0/104; of which node does not matter.
bool isSolicitedNodeMulticast(const Zinc::IpGenAddr& address) {
    constexpr std::array<uint8_t, 13> prefix = {0xff, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0xff};
    return std::equal(prefix.begin(), prefix.end(), address.bytes().begin());
}

/// What all messages have in common. `fixedBytes` is the message's length without options. Returns
/// a reader behind the ICMPv6 header, over what IPv6 says is there.
WireReader readCommon(std::span<const uint8_t> ip6, uint8_t type, size_t fixedBytes, NdPkt& pkt,
                      NdErrors& errors) {
    pkt = {}; // nothing of an earlier message: its bytes may be gone
    WireReader reader(ip6);
    Ip6Hdr ip6Hdr = Ip6Hdr::read(reader);
    if (!reader.ok()) {
        errors.add(NdError::truncated);
        return reader; // and the addresses unset: no rule is for them
    }
    pkt.ip6Hdr = ip6Hdr;
    if (pkt.ip6Hdr.version != 6) {
        errors.add(NdError::notIp6);
    }
    if (pkt.ip6Hdr.nextHeader != Ip6Hdr::icmp6) {
        errors.add(NdError::notIcmp6);
    }
    if (pkt.ip6Hdr.hopLimit != 255) {
        errors.add(NdError::badHopLimit);
    }
    std::span<const uint8_t> message = reader.rest();
    if (pkt.ip6Hdr.payloadLength > message.size()) {
        errors.add(NdError::badLength);
    } else {
        message = message.first(pkt.ip6Hdr.payloadLength);
    }
    if (message.size() < fixedBytes) {
        errors.add(NdError::badLength);
    }
    WireReader messageReader(message);
    pkt.icmp6Hdr = Icmp6Hdr::read(messageReader);
    if (!messageReader.ok()) {
        errors.add(NdError::truncated);
        return messageReader;
    }
    if (pkt.icmp6Hdr.type != type) {
        errors.add(NdError::badType);
    }
    if (pkt.icmp6Hdr.code != 0) {
        errors.add(NdError::badCode);
    }
    // Modulo 65535: the sum is of ones' complements, where all bits set is another zero.
    if (pkt.icmp6Hdr.checksum % 0xFFFF != icmp6Checksum(pkt.ip6Hdr, message) % 0xFFFF) {
        errors.add(NdError::badChecksum);
    }
    return messageReader;
}

/// The options behind a message's fixed part.
void readOptions(const WireReader& reader, NdPkt& pkt, NdErrors& errors) {
    if (!reader.ok()) {
        errors.add(NdError::truncated);
        return;
    }
    pkt.options = reader.rest();
    Icmp6Opt source = getIcmp6Opt(pkt.options, sourceLinkLayerAddress);
    if (!source.valid) {
        errors.add(NdError::badOption);
    }
    bool solicitation = pkt.icmp6Hdr.type != Icmp6Hdr::neighborAdvertisement;
    if (solicitation && pkt.ip6Hdr.src.isUnspecified() && !source.option.empty()) {
        errors.add(NdError::badSource);
    }
}

void readTarget(WireReader& reader, NdPkt& pkt, NdErrors& errors) {
    pkt.targetAddr = Zinc::IpGenAddr(reader.bytes<16>());
    if (pkt.targetAddr.isMulticast()) {
        errors.add(NdError::badTarget);
    }
}

} // namespace

std::string NdErrors::toStrep() const {
    std::string text;
    for (const auto& [error, name] : errorNames) {
        if (has(error)) {
            text += text.empty() ? name : std::string(",") + name;
        }
    }
    return text;
}

uint16_t icmp6Checksum(const Ip6Hdr& ip6Hdr, std::span<const uint8_t> message) {
    uint32_t sum = sumOf(ip6Hdr.src.bytes()) + sumOf(ip6Hdr.dst.bytes()) +
                   static_cast<uint32_t>(message.size()) + Ip6Hdr::icmp6 + sumOf(message);
    if (message.size() >= Icmp6Hdr::wireBytes) {
        sum -= sumOf(message.subspan(2, 2));
    }
    while (sum >> 16) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<uint16_t>(~sum);
}

Icmp6Opt getIcmp6Opt(std::span<const uint8_t> options, uint8_t type) {
    Icmp6Opt found;
    WireReader reader(options);
    while (!reader.rest().empty()) {
        std::span<const uint8_t> head = reader.rest();
        size_t bytes = head.size() < 2 ? 0 : size_t{head[1]} * 8;
        std::span<const uint8_t> option = reader.take(bytes);
        if (bytes == 0 || !reader.ok()) {
            found.valid = false;
            return found;
        }
        if (option[0] == type && found.option.empty()) {
            found.option = option;
        }
    }
    return found;
}

std::optional<Zinc::EthAddr> Icmp6Opt::ethAddr() const {
    WireReader reader(option);
    reader.skip(2);
    Zinc::EthAddr address(reader.bytes<6>());
    return reader.ok() ? std::optional(address) : std::nullopt;
}

NdErrors validateIp6NsPkt(std::span<const uint8_t> ip6, NdPkt& pkt) {
    NdErrors errors;
    WireReader reader = readCommon(ip6, Icmp6Hdr::neighborSolicitation, 24, pkt, errors);
    reader.skip(4); // reserved
    readTarget(reader, pkt, errors);
    readOptions(reader, pkt, errors);
    // Whoever probes for an address that it has not got yet may ask only those that could have it.
    if (pkt.ip6Hdr.src.isUnspecified() && !isSolicitedNodeMulticast(pkt.ip6Hdr.dst)) {
        errors.add(NdError::badDestination);
    }
    return errors;
}

NdErrors validateIp6NaPkt(std::span<const uint8_t> ip6, NdPkt& pkt) {
    NdErrors errors;
    WireReader reader = readCommon(ip6, Icmp6Hdr::neighborAdvertisement, 24, pkt, errors);
    constexpr uint32_t solicitedFlag = 1u << 30;
    pkt.solicited = (reader.u32() & solicitedFlag) != 0;
    readTarget(reader, pkt, errors);
    readOptions(reader, pkt, errors);
    if (pkt.ip6Hdr.dst.isMulticast() && pkt.solicited) {
        errors.add(NdError::solicitedMulticast);
    }
    return errors;
}

NdErrors validateIp6RsPkt(std::span<const uint8_t> ip6, NdPkt& pkt) {
    NdErrors errors;
    WireReader reader = readCommon(ip6, Icmp6Hdr::routerSolicitation, 8, pkt, errors);
    reader.skip(4); // reserved
    readOptions(reader, pkt, errors);
    return errors;
}

} // namespace Arp
