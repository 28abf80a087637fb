// An image and the death of the process that wrote it.

#include "Platform/StateDb/PersistedImage.h"

#include "Platform/Model/ArpSuppression/ArpSuppressionStatus.h"
#include "Testing/TemporaryDirectory.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using ArpSuppression::ArpSuppressionStatus;
using Bridging::VlanId;
using Vela::PersistedImage;

class PersistedImageKillTest : public ::testing::Test {
  protected:
    /// Runs `write` in another process, which is killed without warning once it has returned.
    template <class Write>
    static void killAfter(Write write) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            alarm(60);
            write();
            char done = 1;
            if (::write(ends[1], &done, 1) == 1) {
                while (true) {
                    pause();
                }
            }
            _exit(1);
        }
        close(ends[1]);
        char done = 0;
        EXPECT_EQ(read(ends[0], &done, 1), 1) << "the other process ended by itself";
        close(ends[0]);
        EXPECT_EQ(kill(child, SIGKILL), 0);
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    }

    Testing::TemporaryDirectory directory;
    const std::string path = directory.path() + "/status";
};

TEST_F(PersistedImageKillTest, whatWasWrittenOutlivesItsProcess) {
    killAfter([&] {
        static PersistedImage image(path, 4096); // lives on until the kill
        image.bytes()[0] = 1;
        image.bytes()[4095] = 2;
    });
    killAfter([&] {
        static PersistedImage image(path, 4096);
        image.bytes()[1] = static_cast<uint8_t>(image.bytes()[0] + image.bytes()[4095]);
        image.bytes()[4095] = 0;
    });
    PersistedImage image(path, 4096);
    EXPECT_TRUE(image.found());
    EXPECT_EQ(image.bytes()[0], 1);
    EXPECT_EQ(image.bytes()[1], 3);
    EXPECT_EQ(image.bytes()[4095], 0);
}

TEST_F(PersistedImageKillTest, thePublishedStatusOutlivesItsProcess) {
    killAfter([&] {
        static PersistedImage image(path, ArpSuppressionStatus::imageBytes);
        static auto status = Vela::make<ArpSuppressionStatus>(image.bytes());
        status->runnableIs(true);
        status->vlanIdIs(VlanId(10), true);
        status->vlanIdIs(VlanId(20), false);
        status->vlanIdIs(VlanId(30), true);
        status->vlanIdDel(VlanId(30));
    });
    PersistedImage image(path, ArpSuppressionStatus::imageBytes);
    auto status = Vela::make<ArpSuppressionStatus>(image.bytes());
    EXPECT_TRUE(status->runnable());
    EXPECT_EQ(status->vlanIds(), 2u);
    EXPECT_EQ(status->vlanIdCollection().value(VlanId(10)), true);
    EXPECT_TRUE(status->vlanIdHas(VlanId(20)));
    EXPECT_EQ(status->vlanIdCollection().value(VlanId(20)), false);
}

} // namespace
