#pragma once

#include "Platform/Packet/Headers.h"

#include <cstdint>
#include <optional>
#include <ostream>
#include <span>
#include <string>

/// Neighbor Discovery messages, checked as RFC 4861 demands (6.1.1, 7.1.1, 7.1.2).
namespace Arp {

/// What is wrong with a message: a bit each. Text form: the names of the bits, separated by commas.
enum class NdError : uint32_t {
    truncated = 1u << 0,   ///< shorter than its headers
    notIp6 = 1u << 1,      ///< another version than 6
    notIcmp6 = 1u << 2,    ///< the header behind IPv6's is another one
    badType = 1u << 3,     ///< another ICMPv6 type
    badHopLimit = 1u << 4, ///< not 255: may have come through a router
    badCode = 1u << 5,     ///< not 0
    badChecksum = 1u << 6,
    badLength = 1u << 7,      ///< IPv6's payload length is beyond the data, or short for the type
    badTarget = 1u << 8,      ///< a multicast address
    badDestination = 1u << 9, ///< not what the message's sort permits
    badOption = 1u << 10,     ///< of length zero, or cut off
    badSource = 1u << 11,     ///< unspecified, with an option that names its link-layer address
    solicitedMulticast = 1u << 12 ///< an answer to one, sent to many
};

class NdErrors {
  public:
    void add(NdError error) { bits_ |= static_cast<uint32_t>(error); }
    bool has(NdError error) const { return (bits_ & static_cast<uint32_t>(error)) != 0; }
    /// Anything wrong?
    explicit operator bool() const { return bits_ != 0; }
    std::string toStrep() const;
    friend bool operator==(NdErrors, NdErrors) = default;
    friend std::ostream& operator<<(std::ostream& out, NdErrors errors) {
        return out << errors.toStrep();
    }

  private:
    uint32_t bits_ = 0;
};

/// A message taken apart; meaningful as far as the errors leave it so.
struct NdPkt {
    Vela::Ip6Hdr ip6Hdr;
    Vela::Icmp6Hdr icmp6Hdr;
    Zinc::IpGenAddr targetAddr;       ///< of a solicitation or advertisement of neighbours
    bool solicited = false;           ///< flag of an advertisement
    std::span<const uint8_t> options; ///< within the bytes that were checked
};

/// Each takes an IPv6 packet from its first byte on; what follows the packet is ignored.
NdErrors validateIp6NsPkt(std::span<const uint8_t> ip6, NdPkt& pkt);
NdErrors validateIp6NaPkt(std::span<const uint8_t> ip6, NdPkt& pkt);
NdErrors validateIp6RsPkt(std::span<const uint8_t> ip6, NdPkt& pkt);

/// Option types.
constexpr uint8_t sourceLinkLayerAddress = 1;
constexpr uint8_t targetLinkLayerAddress = 2;

/// What getIcmp6Opt found.
struct Icmp6Opt {
    bool valid = true;                 ///< false: an option of length zero, or one cut off
    std::span<const uint8_t> option{}; ///< the whole first option of the type, or empty
    /// The link-layer address in bytes 2 to 7 of the option, if it has as many.
    std::optional<Zinc::EthAddr> ethAddr() const;
};
Icmp6Opt getIcmp6Opt(std::span<const uint8_t> options, uint8_t type);

/// The checksum that an ICMPv6 message should have; its own, at offset 2, counts as zero.
uint16_t icmp6Checksum(const Vela::Ip6Hdr& ip6Hdr, std::span<const uint8_t> message);

} // namespace Arp
