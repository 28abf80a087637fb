#pragma once

#include "Platform/Base/Wire.h"
#include "Platform/Value/EthAddr.h"
#include "Platform/Value/IpGenAddr.h"

#include <cstdint>

/// The headers of frames that a switch reads and writes. Each is read with `T::read(WireReader&)`,
/// which leaves the question whether all of it was there to the reader, and written with
/// `write(WireWriter&)`. Fields are in host byte order.
namespace Vela {

namespace EtherType {
constexpr uint16_t arp = 0x0806;
constexpr uint16_t dot1q = 0x8100;
constexpr uint16_t ipv6 = 0x86DD;
constexpr uint16_t mpls = 0x8847;
constexpr uint16_t norvelArpSnoop = 0x8135; ///< the trap header of the forwarding plane
} // namespace EtherType

/// 14 bytes: destination, source, ethertype.
struct EthHdr {
    static constexpr size_t wireBytes = 14;
    Zinc::EthAddr dst;
    Zinc::EthAddr src;
    uint16_t etherType = 0;

    static EthHdr read(WireReader& reader);
    void write(WireWriter& writer) const;
    friend bool operator==(const EthHdr&, const EthHdr&) = default;
};

/// IEEE 802.1Q, the 4 bytes behind ethertype 0x8100: priority and drop eligibility (4 bits), VLAN
/// id (12 bits), ethertype of what follows.
struct Dot1qHdr {
    static constexpr size_t wireBytes = 4;
    uint8_t priority = 0; ///< the upper four bits of the tag control
    uint16_t vlanId = 0;
    uint16_t etherType = 0;

    static Dot1qHdr read(WireReader& reader);
    void write(WireWriter& writer) const;
    friend bool operator==(const Dot1qHdr&, const Dot1qHdr&) = default;
};

/// RFC 826 for IPv4 over Ethernet, 28 bytes.
struct ArpHdr {
    static constexpr size_t wireBytes = 28;
    static constexpr uint16_t request = 1;
    static constexpr uint16_t reply = 2;
    uint16_t hardwareType = 1;
    uint16_t protocolType = 0x0800;
    uint8_t hardwareLength = 6;
    uint8_t protocolLength = 4;
    uint16_t operation = 0;
    Zinc::EthAddr senderMac;
    uint32_t senderIp = 0;
    Zinc::EthAddr targetMac;
    uint32_t targetIp = 0;

    /// IPv4 over Ethernet.
    bool isValid() const {
        return hardwareType == 1 && protocolType == 0x0800 && hardwareLength == 6 &&
               protocolLength == 4;
    }
    static ArpHdr read(WireReader& reader);
    void write(WireWriter& writer) const;
    friend bool operator==(const ArpHdr&, const ArpHdr&) = default;
};

/// RFC 8200, 40 bytes, without extension headers.
struct Ip6Hdr {
    static constexpr size_t wireBytes = 40;
    static constexpr uint8_t icmp6 = 58;
    uint8_t version = 6;
    uint8_t trafficClass = 0;
    uint32_t flowLabel = 0; ///< 20 bits
    uint16_t payloadLength = 0;
    uint8_t nextHeader = 0;
    uint8_t hopLimit = 0;
    Zinc::IpGenAddr src;
    Zinc::IpGenAddr dst;

    static Ip6Hdr read(WireReader& reader);
    void write(WireWriter& writer) const;
    friend bool operator==(const Ip6Hdr&, const Ip6Hdr&) = default;
};

/// RFC 4443, the 4 bytes that all messages begin with.
struct Icmp6Hdr {
    static constexpr size_t wireBytes = 4;
    static constexpr uint8_t routerSolicitation = 133;
    static constexpr uint8_t neighborSolicitation = 135;
    static constexpr uint8_t neighborAdvertisement = 136;
    uint8_t type = 0;
    uint8_t code = 0;
    uint16_t checksum = 0;

    static Icmp6Hdr read(WireReader& reader);
    void write(WireWriter& writer) const;
    friend bool operator==(const Icmp6Hdr&, const Icmp6Hdr&) = default;
};

/// RFC 3032, one entry of a label stack, 4 bytes: label (20 bits), traffic class (3), bottom of
/// stack (1), TTL (8).
struct MplsEntry {
    static constexpr size_t wireBytes = 4;
    static constexpr uint32_t implicitNull = 3;
    uint32_t label = 0;
    uint8_t trafficClass = 0;
    bool bottomOfStack = false;
    uint8_t ttl = 0;

    static MplsEntry read(WireReader& reader);
    void write(WireWriter& writer) const;
    friend bool operator==(const MplsEntry&, const MplsEntry&) = default;
};

} // namespace Vela
