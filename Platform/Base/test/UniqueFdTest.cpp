#include "Platform/Base/UniqueFd.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <type_traits>

namespace {

using Vela::UniqueFd;

int openedFd() {
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

TEST(UniqueFdTest, OwnsNoneByDefault) {
    UniqueFd none;
    EXPECT_EQ(none.get(), -1);
    EXPECT_FALSE(none);
}

TEST(UniqueFdTest, ClosesWhatItOwns) {
    int fd = openedFd();
    {
        UniqueFd owner(fd);
        EXPECT_TRUE(owner);
        EXPECT_EQ(owner.get(), fd);
        EXPECT_TRUE(isOpen(fd));
    }
    EXPECT_FALSE(isOpen(fd));
}

TEST(UniqueFdTest, DescriptorZeroIsADescriptor) {
    int standardInput = dup(0);
    UniqueFd opened(openedFd());
    dup2(opened.get(), 0);
    {
        UniqueFd owner(0);
        EXPECT_TRUE(owner);
    }
    EXPECT_FALSE(isOpen(0));
    dup2(standardInput, 0);
    close(standardInput);
}

TEST(UniqueFdTest, MovingPassesOwnershipOn) {
    EXPECT_FALSE(std::is_copy_constructible_v<UniqueFd>);
    EXPECT_FALSE(std::is_copy_assignable_v<UniqueFd>);
    int fd = openedFd();
    UniqueFd first(fd);
    UniqueFd second(std::move(first));
    EXPECT_FALSE(first); // NOLINT(bugprone-use-after-move): it owns none now
    EXPECT_EQ(second.get(), fd);

    int replaced = openedFd();
    UniqueFd third(replaced);
    third = std::move(second);
    EXPECT_FALSE(second); // NOLINT(bugprone-use-after-move): it owns none now
    EXPECT_EQ(third.get(), fd);
    EXPECT_TRUE(isOpen(fd));
    EXPECT_FALSE(isOpen(replaced));
}

TEST(UniqueFdTest, MovingToItselfKeepsTheDescriptor) {
    int fd = openedFd();
    UniqueFd owner(fd);
    UniqueFd& same = owner;
    owner = std::move(same);
    EXPECT_EQ(owner.get(), fd);
    EXPECT_TRUE(isOpen(fd));
}

TEST(UniqueFdTest, ReleasedIsNotClosed) {
    int fd = openedFd();
    {
        UniqueFd owner(fd);
        EXPECT_EQ(owner.release(), fd);
        EXPECT_FALSE(owner);
    }
    EXPECT_TRUE(isOpen(fd));
    close(fd);
}

TEST(UniqueFdTest, ResetClosesTheOldOne) {
    int fd = openedFd();
    int other = openedFd();
    UniqueFd owner(fd);
    owner.reset(other);
    EXPECT_FALSE(isOpen(fd));
    EXPECT_EQ(owner.get(), other);
    owner.reset();
    EXPECT_FALSE(isOpen(other));
    EXPECT_FALSE(owner);
}

} // namespace
