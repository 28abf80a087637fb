#include "Linux/LinkMessage.h"

#include "Linux/NetlinkAttributes.h"

#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace Linux {

std::optional<LinkMessage> decodeLink(const nlmsghdr& message) {
    if (message.nlmsg_type != RTM_NEWLINK && message.nlmsg_type != RTM_DELLINK) {
        return std::nullopt;
    }
    auto header = valueAt<ifinfomsg>(payloadOf(message));
    // Bridges speak of their ports in a family of their own.
    if (!header || header->ifi_family != AF_UNSPEC || header->ifi_index <= 0) {
        return std::nullopt;
    }
    LinkMessage link;
    link.removed = message.nlmsg_type == RTM_DELLINK;
    link.ifIndex = static_cast<uint32_t>(header->ifi_index);
    link.flags = header->ifi_flags;
    bool isPart = false;
    forEachAttribute(message, sizeof(ifinfomsg), [&](uint16_t type, auto bytes) {
        switch (type) {
        case IFLA_IFNAME:
            link.name = textOf(bytes);
            break;
        case IFLA_ADDRESS:
            if (auto mac = valueAt<Zinc::EthAddr::Bytes>(bytes); mac && bytes.size() == 6) {
                link.macAddress = Zinc::EthAddr(*mac);
            }
            break;
        case IFLA_MASTER:
            link.master = valueAt<uint32_t>(bytes).value_or(0);
            break;
        case IFLA_LINK:
            link.link = valueAt<uint32_t>(bytes).value_or(0);
            break;
        case IFLA_LINK_NETNSID:
            link.linkNetNsId = valueAt<int32_t>(bytes);
            break;
        case IFLA_LINKINFO:
            forEachAttribute(bytes, [&](uint16_t infoType, auto infoBytes) {
                if (infoType == IFLA_INFO_KIND) {
                    link.kind = textOf(infoBytes);
                }
            });
            break;
        case IFLA_WIRELESS:
            isPart = true; // an event of a radio, which says nothing else of the device
            break;
        default:
            break;
        }
    });
    if (isPart || link.name.size() >= IFNAMSIZ || (link.name.empty() && !link.removed)) {
        return std::nullopt;
    }
    return link;
}

} // namespace Linux
