#pragma once

#include "Platform/Value/EthAddr.h"
#include "Platform/Value/IpGenAddr.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Testing {

/// An ARP message as the forwarding plane traps it: the frame of a host with the trap header
/// between its addresses and its ethertype.
struct TrapFrame {
    uint32_t vlanId = 10;
    uint32_t srcIfIndex = 11;
    std::optional<uint16_t> dot1q = {}; ///< the VLAN id of the tag that the frame carries
    uint16_t operation = 1;
    Zinc::EthAddr frameDst{"ff:ff:ff:ff:ff:ff"};
    Zinc::EthAddr senderMac{"02:00:00:00:00:01"};
    Zinc::IpGenAddr senderIp{"10.0.0.1"};
    Zinc::EthAddr targetMac{};
    Zinc::IpGenAddr targetIp{"10.0.0.2"};
    std::vector<uint8_t> trailer = {};

    std::vector<uint8_t> bytes() const;
};

/// The trap header and addresses in front of any ethertype and payload.
std::vector<uint8_t> trapFrame(uint32_t vlanId, uint32_t srcIfIndex, uint16_t etherType,
                               const std::vector<uint8_t>& payload,
                               const Zinc::EthAddr& dst = Zinc::EthAddr("ff:ff:ff:ff:ff:ff"),
                               const Zinc::EthAddr& src = Zinc::EthAddr("02:00:00:00:00:01"));

/// Two hexadecimal digits per byte; blanks do not count.
std::vector<uint8_t> fromHex(const std::string& hex);

} // namespace Testing
