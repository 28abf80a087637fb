#pragma once

#include "Platform/Value/EthAddr.h"

#include <cstdint>
#include <linux/netlink.h>
#include <optional>
#include <string>

namespace Linux {

/// A kernel device, as its namespace sees it.
struct LinkMessage {
    bool removed = false; ///< then only the index means anything
    uint32_t ifIndex = 0;
    uint32_t flags = 0; ///< IFF_...
    std::string name;
    Zinc::EthAddr macAddress; ///< zero unless it has one of 6 bytes
    std::string kind;         ///< "bridge", "vxlan", "veth", …; empty: a device of no kind
    uint32_t master = 0;      ///< the bridge or VRF that it belongs to
    /// The device that it stands on, or the other end of a veth; 0: none, or the kernel has not put
    /// the two ends together yet.
    uint32_t link = 0;
    /// What this namespace calls the one that `link` is in; none: this one.
    std::optional<int32_t> linkNetNsId;

    friend bool operator==(const LinkMessage&, const LinkMessage&) = default;
};

/// Reads RTM_NEWLINK and RTM_DELLINK of a device. Nothing for messages of other types or families,
/// without index or name, or with a part of what there is to say; wrong and unknown attributes are
/// passed over.
std::optional<LinkMessage> decodeLink(const nlmsghdr& message);

} // namespace Linux
