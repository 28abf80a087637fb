#pragma once

#include "Platform/Value/EthAddr.h"
#include "Platform/Value/IpGenAddr.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <span>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <vector>

namespace Linux {

/// A message as it lies in a receive buffer.
class MessageBytes {
  public:
    explicit MessageBytes(std::span<const uint8_t> bytes) : words_(bytes.size() / 8 + 3) {
        std::memcpy(words_.data(), bytes.data(), bytes.size());
    }
    /// From hexadecimal digits.
    explicit MessageBytes(std::string_view hex) : MessageBytes(bytesOf(hex)) {}

    nlmsghdr& header() {
        void* start = words_.data();
        return *static_cast<nlmsghdr*>(start);
    }

  private:
    static std::vector<uint8_t> bytesOf(std::string_view hex) {
        std::vector<uint8_t> bytes;
        for (size_t i = 0; i + 1 < hex.size(); i += 2) {
            bytes.push_back(
                static_cast<uint8_t>(std::stoul(std::string(hex.substr(i, 2)), nullptr, 16)));
        }
        return bytes;
    }

    std::vector<uint64_t> words_;
};

/// What a test says of a neighbour or an FDB entry.
struct NeighborSpecimen {
    uint32_t ifIndex = 0;
    std::string address = {}; ///< empty: an FDB entry
    std::string macAddress = {};
    uint16_t state = NUD_REACHABLE;
    uint8_t flags = 0;
    uint8_t protocol = 0;
    bool removed = false;
    bool dumped = false;

    MessageBytes bytes() const;
};

inline MessageBytes NeighborSpecimen::bytes() const {
    std::vector<uint8_t> bytes(sizeof(nlmsghdr) + sizeof(ndmsg));
    auto attribute = [&](uint16_t type, std::span<const uint8_t> payload) {
        std::array<uint16_t, 2> head{static_cast<uint16_t>(4 + payload.size()), type};
        std::array<uint8_t, 4> headBytes;
        std::memcpy(headBytes.data(), head.data(), 4);
        bytes.insert(bytes.end(), headBytes.begin(), headBytes.end());
        bytes.insert(bytes.end(), payload.begin(), payload.end());
        bytes.resize((bytes.size() + 3) / 4 * 4);
    };
    ndmsg body{};
    body.ndm_family = AF_BRIDGE;
    if (!address.empty()) {
        Zinc::IpGenAddr ip(address);
        bool v4 = ip.af() == Zinc::ipv4();
        body.ndm_family = v4 ? AF_INET : AF_INET6;
        attribute(NDA_DST, std::span(ip.bytes()).first(v4 ? 4 : 16));
    }
    if (!macAddress.empty()) {
        attribute(NDA_LLADDR, Zinc::EthAddr(macAddress).bytes());
    }
    if (protocol) {
        attribute(NDA_PROTOCOL, std::array{protocol});
    }
    body.ndm_ifindex = static_cast<int>(ifIndex);
    body.ndm_state = state;
    body.ndm_flags = flags;
    nlmsghdr header{};
    header.nlmsg_len = static_cast<uint32_t>(bytes.size());
    header.nlmsg_type = removed ? RTM_DELNEIGH : RTM_NEWNEIGH;
    header.nlmsg_flags = dumped ? NLM_F_MULTI : 0;
    std::memcpy(bytes.data(), &header, sizeof header);
    std::memcpy(bytes.data() + sizeof header, &body, sizeof body);
    return MessageBytes(bytes);
}

} // namespace Linux
