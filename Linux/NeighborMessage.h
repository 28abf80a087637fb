#pragma once

#include "Platform/Value/EthAddr.h"
#include "Platform/Value/IpGenAddr.h"

#include <cstdint>
#include <linux/netlink.h>
#include <optional>

namespace Linux {

/// RTM_NEWNEIGH or RTM_DELNEIGH: a neighbour (family AF_INET or AF_INET6) or an entry of a bridge's
/// or a device's own forwarding database (AF_BRIDGE).
struct NeighborMessage {
    bool removed = false; ///< RTM_DELNEIGH
    bool dumped = false;  ///< an answer to a dump, no event
    uint8_t family = 0;
    uint32_t ifIndex = 0;
    uint16_t state = 0;                      ///< NUD_...
    uint8_t flags = 0;                       ///< NTF_...
    uint8_t protocol = 0;                    ///< RTPROT_..., 0 where the kernel names none
    Zinc::IpGenAddr address;                 ///< unset in a forwarding database
    std::optional<Zinc::EthAddr> macAddress; ///< none as well where it is not of six bytes

    friend bool operator==(const NeighborMessage&, const NeighborMessage&) = default;
};

/// Nothing for messages of other types and families, or without what tells one entry from another:
/// the address of a neighbour, the MAC address in a forwarding database. Unknown attributes are
/// passed over, and so are known ones of another length than theirs.
std::optional<NeighborMessage> decodeNeighbor(const nlmsghdr& header);

} // namespace Linux
