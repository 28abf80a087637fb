#include "Platform/Base/NetNs.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <system_error>

namespace Vela {
namespace {

ino_t where() {
    struct stat status {};
    EXPECT_EQ(stat("/proc/thread-self/ns/net", &status), 0);
    return status.st_ino;
}

TEST(NetNsTest, theProcesssOwnMovesNobody) {
    ino_t before = where();
    for (const char* own : {"", "default"}) {
        NetNsGuard guard(own);
        EXPECT_EQ(where(), before) << own;
    }
    EXPECT_EQ(where(), before);
}

TEST(NetNsTest, whereThereIsNoneItSaysWhich) {
    ino_t before = where();
    try {
        NetNsGuard guard("no such namespace");
        ADD_FAILURE() << "entered";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENOENT);
        EXPECT_STREQ(error.what(),
                     "network namespace no such namespace: No such file or directory");
    }
    EXPECT_EQ(where(), before);
}

TEST(NetNsTest, aNameIsNoPath) {
    // Each would be found, and would be the process's own.
    for (const std::string& name :
         {std::string("../../proc/self/ns/net"), std::string("."), std::string(".."),
          std::string("/proc/self/ns/net"), std::string("default\0", 8)}) {
        try {
            NetNsGuard guard(name);
            ADD_FAILURE() << name;
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), EINVAL) << name;
        }
    }
}

} // namespace
} // namespace Vela
