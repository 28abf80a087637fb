#include "Linux/AddressMessage.h"

#include "Linux/NetlinkAttributes.h"

#include <linux/if_addr.h>
#include <linux/rtnetlink.h>

namespace Linux {

std::optional<AddressMessage> decodeAddress(const nlmsghdr& message) {
    if (message.nlmsg_type != RTM_NEWADDR && message.nlmsg_type != RTM_DELADDR) {
        return std::nullopt;
    }
    auto header = valueAt<ifaddrmsg>(payloadOf(message));
    if (!header || header->ifa_index == 0) {
        return std::nullopt;
    }
    Zinc::IpGenAddr address;
    Zinc::IpGenAddr local; // where there is one, the other is that of the far end
    uint32_t flags = header->ifa_flags;
    forEachAttribute(message, sizeof(ifaddrmsg), [&](uint16_t type, auto bytes) {
        switch (type) {
        case IFA_ADDRESS:
            address = ipAddressOf(header->ifa_family, bytes);
            break;
        case IFA_LOCAL:
            local = ipAddressOf(header->ifa_family, bytes);
            break;
        case IFA_FLAGS: // all of them; the header has room for eight
            flags = valueAt<uint32_t>(bytes).value_or(flags);
            break;
        default:
            break;
        }
    });
    if (!local.isUnset()) {
        address = local;
    }
    unsigned longest = address.af() == Zinc::ipv4() ? 32 : 128;
    if (address.isUnset() || header->ifa_prefixlen > longest) {
        return std::nullopt;
    }
    AddressMessage result;
    result.removed = message.nlmsg_type == RTM_DELADDR;
    result.ifIndex = header->ifa_index;
    result.address = Ip::AddrWithMask(address, header->ifa_prefixlen);
    result.secondary = address.af() == Zinc::ipv4() && (flags & IFA_F_SECONDARY) != 0;
    result.duplicate = (flags & IFA_F_DADFAILED) != 0;
    return result;
}

} // namespace Linux
