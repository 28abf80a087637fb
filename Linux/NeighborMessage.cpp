#include "Linux/NeighborMessage.h"

#include "Linux/NetlinkAttributes.h"
#include "Linux/NetlinkConsumer.h"
#include "Platform/Base/Wire.h"

#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace Linux {

namespace {

void readAttribute(NeighborMessage& message, uint16_t type, std::span<const uint8_t> bytes) {
    Vela::WireReader reader(bytes);
    switch (type) {
    case NDA_DST: // in a forwarding database it is a tunnel end point
        if (message.family == AF_INET && bytes.size() == 4) {
            message.address = Zinc::IpGenAddr(reader.u32());
        } else if (message.family == AF_INET6 && bytes.size() == 16) {
            message.address = Zinc::IpGenAddr(reader.bytes<16>());
        }
        break;
    case NDA_LLADDR:
        if (bytes.size() == 6) {
            message.macAddress = Zinc::EthAddr(reader.bytes<6>());
        }
        break;
    case NDA_PROTOCOL:
        if (bytes.size() == 1) {
            message.protocol = reader.u8();
        }
        break;
    default:
        break;
    }
}

} // namespace

std::optional<NeighborMessage> decodeNeighbor(const nlmsghdr& header) {
    auto body = valueAt<ndmsg>(payloadOf(header));
    if ((header.nlmsg_type != RTM_NEWNEIGH && header.nlmsg_type != RTM_DELNEIGH) || !body) {
        return std::nullopt;
    }
    NeighborMessage message;
    message.removed = header.nlmsg_type == RTM_DELNEIGH;
    message.dumped = isDumped(header);
    message.family = body->ndm_family;
    message.ifIndex = static_cast<uint32_t>(body->ndm_ifindex);
    message.state = body->ndm_state;
    message.flags = body->ndm_flags;
    forEachAttribute(header, sizeof *body, [&](uint16_t type, std::span<const uint8_t> bytes) {
        readAttribute(message, type, bytes);
    });
    bool ip = message.family == AF_INET || message.family == AF_INET6;
    bool hasKey = ip ? !message.address.isUnset() : message.macAddress.has_value();
    if (!hasKey || (!ip && message.family != AF_BRIDGE)) {
        return std::nullopt;
    }
    return message;
}

} // namespace Linux
