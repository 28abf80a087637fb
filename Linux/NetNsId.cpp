#include "Linux/NetNsId.h"

#include "Linux/NetlinkAttributes.h"
#include "Platform/Base/UniqueFd.h"
#include "Platform/Packet/NetlinkSocket.h"

#include <array>
#include <linux/net_namespace.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace Linux {

std::optional<int32_t> netNsId(const std::string& in, int of) {
    // A socket of its own: the kernel answers within the call, and nothing else comes here.
    uint32_t opened = Vela::netlinkSocket(NETLINK_ROUTE, in, SOCK_RAW, true, 0);
    if (opened == 0) {
        return std::nullopt;
    }
    Vela::UniqueFd socket(static_cast<int>(opened));
    alignas(nlmsghdr) std::array<char, 512> bytes{};
    nlmsghdr& request = *mnl_nlmsg_put_header(bytes.data());
    request.nlmsg_type = RTM_GETNSID;
    request.nlmsg_flags = NLM_F_REQUEST;
    mnl_nlmsg_put_extra_header(&request, sizeof(rtgenmsg));
    mnl_attr_put_u32(&request, NETNSA_FD, static_cast<uint32_t>(of));
    if (send(socket.get(), bytes.data(), request.nlmsg_len, MSG_DONTWAIT) < 0) {
        return std::nullopt;
    }
    ssize_t length = recv(socket.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    const void* start = bytes.data();
    const auto& reply = *static_cast<const nlmsghdr*>(start);
    std::optional<int32_t> id;
    if (length > 0 && mnl_nlmsg_ok(&reply, static_cast<int>(length)) &&
        reply.nlmsg_type == RTM_NEWNSID) {
        forEachAttribute(reply, sizeof(rtgenmsg), [&](uint16_t type, auto value) {
            if (type == NETNSA_NSID) {
                id = valueAt<int32_t>(value);
            }
        });
    }
    return id && *id >= 0 ? id : std::nullopt;
}

} // namespace Linux
