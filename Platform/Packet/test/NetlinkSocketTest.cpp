#include "Platform/Packet/NetlinkSocket.h"

#include "Platform/Base/UniqueFd.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace Vela {
namespace {

UniqueFd openIn(const std::string& netNs, int family = NETLINK_ROUTE, bool nonBlocking = true,
                uint32_t groups = 0) {
    uint32_t fd = netlinkSocket(family, netNs, SOCK_DGRAM, nonBlocking, groups);
    return fd == 0 ? UniqueFd() : UniqueFd(static_cast<int>(fd));
}

int option(const UniqueFd& fd, int name) {
    int value = -1;
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(fd.get(), SOL_SOCKET, name, &value, &length), 0);
    return value;
}

uint32_t groupsOf(const UniqueFd& fd) {
    sockaddr_nl address{};
    socklen_t length = sizeof address;
    void* bytes = &address;
    EXPECT_EQ(getsockname(fd.get(), static_cast<sockaddr*>(bytes), &length), 0);
    return address.nl_groups;
}

TEST(NetlinkSocketTest, opensWhatIsAskedFor) {
    UniqueFd fd = openIn("default");
    ASSERT_GE(fd.get(), 3);
    EXPECT_EQ(option(fd, SO_DOMAIN), AF_NETLINK);
    EXPECT_EQ(option(fd, SO_PROTOCOL), NETLINK_ROUTE);
    EXPECT_EQ(option(fd, SO_TYPE), SOCK_DGRAM);
    EXPECT_EQ(fcntl(fd.get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_EQ(fcntl(fd.get(), F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    EXPECT_EQ(groupsOf(fd), 0u);
    char byte;
    EXPECT_EQ(recv(fd.get(), &byte, 1, 0), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST(NetlinkSocketTest, blocksWhereThatIsWanted) {
    UniqueFd fd = openIn("", NETLINK_ROUTE, false);
    ASSERT_TRUE(fd);
    EXPECT_EQ(fcntl(fd.get(), F_GETFL) & O_NONBLOCK, 0);
}

TEST(NetlinkSocketTest, hearsItsGroups) {
    UniqueFd fd = openIn("default", NETLINK_ROUTE, true, RTMGRP_LINK | RTMGRP_NEIGH);
    ASSERT_TRUE(fd);
    EXPECT_EQ(groupsOf(fd), uint32_t{RTMGRP_LINK | RTMGRP_NEIGH});
}

TEST(NetlinkSocketTest, isNoneWhereItCannotBeOpened) {
    errno = 0;
    EXPECT_EQ(netlinkSocket(NETLINK_ROUTE, "no such namespace", SOCK_DGRAM, true, 0), 0u);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(netlinkSocket(MAX_LINKS + 1, "default", SOCK_DGRAM, true, 0), 0u);
    EXPECT_EQ(errno, EPROTONOSUPPORT);
    errno = 0;
    EXPECT_EQ(netlinkSocket(NETLINK_ROUTE, "default", SOCK_STREAM, true, 0), 0u);
    EXPECT_EQ(errno, ESOCKTNOSUPPORT);
}

TEST(NetlinkSocketTest, isNeverAStandardDescriptor) {
    UniqueFd input(fcntl(0, F_DUPFD_CLOEXEC, 10));
    close(0);
    UniqueFd fd = openIn("default");
    EXPECT_GE(fd.get(), 3);
    EXPECT_EQ(fcntl(0, F_GETFD), -1) << "descriptor 0 is kept";
    EXPECT_EQ(fcntl(fd.get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    if (input) {
        dup2(input.get(), 0);
    }
}

} // namespace
} // namespace Vela
