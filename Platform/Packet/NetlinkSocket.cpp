#include "Platform/Packet/NetlinkSocket.h"

#include "Platform/Base/NetNs.h"
#include "Platform/Base/UniqueFd.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <system_error>

namespace Vela {

namespace {

UniqueFd open(int family, const std::string& netNs, int type, bool nonBlocking) {
    try {
        NetNsGuard guard(netNs);
        int flags = SOCK_CLOEXEC | (nonBlocking ? SOCK_NONBLOCK : 0);
        return UniqueFd(socket(AF_NETLINK, type | flags, family));
    } catch (const std::system_error& error) {
        errno = error.code().value();
        return {};
    }
}

/// Somewhere else in this process 0 means none, and 1 and 2 are written to blindly.
UniqueFd aboveStandard(UniqueFd fd) {
    constexpr int first = 3;
    return fd.get() >= first ? std::move(fd) : UniqueFd(fcntl(fd.get(), F_DUPFD_CLOEXEC, first));
}

} // namespace

uint32_t netlinkSocket(int family, const std::string& netNs, int type, bool nonBlocking,
                       uint32_t groups) {
    UniqueFd fd = open(family, netNs, type, nonBlocking);
    if (fd) {
        fd = aboveStandard(std::move(fd));
    }
    if (!fd) {
        return 0;
    }
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = groups;
    const void* bytes = &address;
    if (bind(fd.get(), static_cast<const sockaddr*>(bytes), sizeof address) != 0) {
        int error = errno;
        fd.reset(); // may change errno
        errno = error;
        return 0;
    }
    return static_cast<uint32_t>(fd.release());
}

} // namespace Vela
