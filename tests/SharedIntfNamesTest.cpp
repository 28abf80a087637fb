// Two processes on one file of interface names.

#include "Platform/Value/IntfNameTable.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

using Zinc::IntfNameTable;
namespace fs = std::filesystem;

/// Of all lengths, and each byte of it says which name it belongs to.
std::string nameOf(uint32_t id) {
    std::string digits = std::to_string(id) + "/";
    std::string name;
    while (name.size() < 63) {
        name += digits;
    }
    return name.substr(0, std::max<size_t>(digits.size(), id % 64));
}

class SharedIntfNamesTest : public ::testing::Test {
  protected:
    SharedIntfNamesTest() {
        std::string pattern = fs::temp_directory_path() / "intfnamesXXXXXX";
        directory_ = mkdtemp(pattern.data());
        path_ = directory_ / "interface-names";
    }
    ~SharedIntfNamesTest() override { fs::remove_all(directory_); }

    /// Runs in another process; its exit status is what `body` returns. A minute at most.
    template <class Body>
    static pid_t spawn(Body body) {
        pid_t pid = fork();
        if (pid == 0) {
            alarm(60);
            _exit(body());
        }
        return pid;
    }
    static int statusOf(pid_t pid) {
        int status = -1;
        EXPECT_EQ(waitpid(pid, &status, 0), pid);
        return status;
    }

    fs::path directory_;
    fs::path path_;
};

TEST_F(SharedIntfNamesTest, ReadersSeeWholeNamesWhileTheOwnerAdds) {
    constexpr uint32_t last = IntfNameTable::usualCapacity - 1;
    auto owner = IntfNameTable::ownerOf(path_);
    auto readAll = [this] {
        auto reader = IntfNameTable::readerOf(path_);
        for (uint32_t id = 1; id <= last; ++id) {
            std::string_view name;
            while ((name = reader->name(id)) == "?") {
                sched_yield();
            }
            if (name != nameOf(id)) {
                return 1;
            }
        }
        return reader->idOf(nameOf(last)) == last ? 0 : 2;
    };
    pid_t readers[] = {spawn(readAll), spawn(readAll)};
    for (uint32_t id = 1; id <= last; ++id) {
        ASSERT_EQ(owner->idOf(nameOf(id)), id);
    }
    for (pid_t reader : readers) {
        EXPECT_EQ(statusOf(reader), 0);
    }
}

TEST_F(SharedIntfNamesTest, NamesOutliveAnOwnerThatIsKilled) {
    pid_t owner = spawn([this] {
        auto table = IntfNameTable::ownerOf(path_);
        for (uint32_t id = 1; id <= 1000; ++id) {
            table->idOf(nameOf(id));
        }
        return raise(SIGKILL);
    });
    int status = statusOf(owner);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    auto next = IntfNameTable::ownerOf(path_);
    EXPECT_EQ(next->size(), 1001u);
    for (uint32_t id = 1; id <= 1000; ++id) {
        ASSERT_EQ(next->idOf(nameOf(id)), id);
    }
}

TEST_F(SharedIntfNamesTest, WithoutRoomForAllNamesThereIsNoFile) {
    pid_t owner = spawn([this] {
        signal(SIGXFSZ, SIG_IGN);
        rlimit most{1 << 20, 1 << 20};
        setrlimit(RLIMIT_FSIZE, &most);
        try {
            IntfNameTable::ownerOf(path_);
        } catch (const std::system_error& error) {
            return error.code() == std::errc::file_too_large ? 0 : 2;
        }
        return 1;
    });
    EXPECT_EQ(statusOf(owner), 0);
    EXPECT_TRUE(fs::is_empty(directory_));
}

} // namespace
