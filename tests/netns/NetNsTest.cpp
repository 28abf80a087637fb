// Named network namespaces, and what enters them.

#include "Platform/Base/NetNs.h"
#include "Testing/NamedNetNs.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <semaphore>
#include <sys/stat.h>
#include <system_error>
#include <thread>

namespace Netns {

namespace {

using Testing::NamedNetNs;
using Vela::NetNsGuard;

ino_t where() {
    struct stat status {};
    EXPECT_EQ(stat("/proc/thread-self/ns/net", &status), 0);
    return status.st_ino;
}

ino_t inodeOf(const NamedNetNs& netNs) {
    struct stat status {};
    EXPECT_EQ(stat(("/run/netns/" + netNs.name()).c_str(), &status), 0);
    return status.st_ino;
}

class NetNsTest : public ::testing::Test {
  protected:
    NetNsTest() { Testing::enterOwnNamespaces(); }
};

TEST_F(NetNsTest, entersAndReturns) {
    NamedNetNs red("red");
    ino_t before = where();
    ASSERT_NE(before, inodeOf(red));
    {
        NetNsGuard guard("red");
        EXPECT_EQ(where(), inodeOf(red));
    }
    EXPECT_EQ(where(), before);
}

TEST_F(NetNsTest, returnsToTheOneAroundIt) {
    NamedNetNs red("red");
    NamedNetNs blue("blue");
    ino_t before = where();
    {
        NetNsGuard outer("red");
        {
            NetNsGuard inner("blue");
            EXPECT_EQ(where(), inodeOf(blue));
        }
        EXPECT_EQ(where(), inodeOf(red));
    }
    EXPECT_EQ(where(), before);
}

TEST_F(NetNsTest, anExceptionReturnsToo) {
    NamedNetNs red("red");
    ino_t before = where();
    try {
        NetNsGuard guard("red");
        throw 1;
    } catch (int) {
    }
    EXPECT_EQ(where(), before);
}

TEST_F(NetNsTest, movesTheCallingThreadAlone) {
    NamedNetNs red("red");
    ino_t before = where();
    std::binary_semaphore entered(0), seen(0);
    ino_t there = 0;
    std::thread other([&] {
        NetNsGuard guard("red");
        there = where();
        entered.release();
        seen.acquire();
    });
    entered.acquire();
    EXPECT_EQ(where(), before);
    seen.release();
    other.join();
    EXPECT_EQ(there, inodeOf(red));
}

TEST_F(NetNsTest, aFileThatIsNoNamespaceIsNotEntered) {
    Vela::UniqueFd(open("/run/netns/plain", O_CREAT | O_CLOEXEC, 0600));
    ino_t before = where();
    try {
        NetNsGuard guard("plain");
        ADD_FAILURE() << "entered";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), EINVAL);
    }
    EXPECT_EQ(where(), before);
}

TEST_F(NetNsTest, theNameIsWhatCountsWhenItIsMadeAnew) {
    ino_t first = 0;
    {
        NamedNetNs red("red");
        first = inodeOf(red);
        NetNsGuard guard("red");
        EXPECT_EQ(where(), first);
    }
    try {
        NetNsGuard guard("red");
        ADD_FAILURE() << "entered";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENOENT);
    }
    NamedNetNs red("red");
    NetNsGuard guard("red");
    EXPECT_EQ(where(), inodeOf(red));
}

} // namespace

} // namespace Netns
