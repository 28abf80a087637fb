#include "Host/RuntimeDirectory.h"

#include "Host/StartError.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Host {
namespace {

namespace fs = std::filesystem;

class RuntimeDirectoryTest : public ::testing::Test {
  protected:
    RuntimeDirectoryTest() {
        std::string pattern = fs::temp_directory_path() / "runtimeXXXXXX";
        parent_ = mkdtemp(pattern.data());
        path_ = parent_ / "arpsup";
    }
    ~RuntimeDirectoryTest() override { fs::remove_all(parent_); }

    /// The text of the StartError, empty if there is none.
    static std::string errorAt(const fs::path& path) {
        try {
            RuntimeDirectory directory(path);
            return "";
        } catch (const StartError& error) {
            return error.what();
        }
    }

    std::string lockText() const {
        std::ifstream file(path_ / "lock");
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    /// Another process that holds the directory until it is killed.
    class Holder {
      public:
        explicit Holder(const fs::path& path) {
            std::array<int, 2> ends;
            EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
            pid_ = fork();
            if (pid_ == 0) {
                alarm(60);
                RuntimeDirectory directory(path);
                bool told = write(ends[1], "x", 1) == 1;
                close(ends[1]);
                while (told) {
                    pause();
                }
                _exit(1);
            }
            close(ends[1]);
            char byte;
            EXPECT_EQ(read(ends[0], &byte, 1), 1) << "the other process has not got it";
            close(ends[0]);
        }
        ~Holder() { end(); }

        pid_t pid() const { return pid_; }
        void end() {
            if (pid_ > 0) {
                kill(pid_, SIGKILL);
                waitpid(pid_, nullptr, 0);
                pid_ = -1;
            }
        }

      private:
        pid_t pid_;
    };

    fs::path parent_;
    fs::path path_;
};

TEST_F(RuntimeDirectoryTest, IsCreatedWithWhatIsAboveIt) {
    path_ = parent_ / "a" / "b" / "arpsup";
    mode_t before = umask(022);
    RuntimeDirectory directory(path_);
    umask(before);
    EXPECT_EQ(directory.path(), path_.string());
    EXPECT_EQ(directory.path("control"), (path_ / "control").string());
    for (const fs::path& created : {path_, parent_ / "a" / "b", parent_ / "a"}) {
        EXPECT_EQ(fs::status(created).permissions(), fs::perms(0755)) << created;
    }
    EXPECT_EQ(lockText(), std::to_string(getpid()) + "\n");
}

TEST_F(RuntimeDirectoryTest, ProgramsThatItsHolderStartsDoNotInheritTheLock) {
    RuntimeDirectory directory(path_);
    const std::string look = "ls -l /proc/self/fd | grep -qF " + path_.string();
    EXPECT_EQ(std::system(("exec 3<" + directory.path("lock") + "; " + look).c_str()), 0)
        << "can be seen";
    EXPECT_NE(std::system(look.c_str()), 0);
}

TEST_F(RuntimeDirectoryTest, WhatIsThereIsLeftAlone) {
    fs::create_directory(path_);
    fs::permissions(path_, fs::perms(0700));
    std::ofstream(path_ / "status") << "kept";
    std::ofstream(path_ / "lock") << "123456789 of an earlier life\n";
    RuntimeDirectory directory(path_);
    EXPECT_EQ(fs::status(path_).permissions(), fs::perms(0700));
    EXPECT_EQ(fs::file_size(path_ / "status"), 4u);
    EXPECT_EQ(lockText(), std::to_string(getpid()) + "\n");
}

TEST_F(RuntimeDirectoryTest, OneHostPerDirectory) {
    Holder holder(path_);
    EXPECT_EQ(errorAt(path_), (path_ / "lock").string() + " is held by process " +
                                  std::to_string(holder.pid()) +
                                  ": another arpsupd runs in this directory");
    EXPECT_EQ(lockText(), std::to_string(holder.pid()) + "\n") << "who lost has not touched it";
    EXPECT_EQ(errorAt(parent_ / "another"), "");
}

TEST_F(RuntimeDirectoryTest, KilledItsHolderLetsGo) {
    Holder holder(path_);
    EXPECT_NE(errorAt(path_), "");
    holder.end();
    EXPECT_EQ(errorAt(path_), "");
}

TEST_F(RuntimeDirectoryTest, ReleasedWithTheObjectAndOutlivesIt) {
    std::optional<RuntimeDirectory> first(path_);
    EXPECT_EQ(errorAt(path_), (path_ / "lock").string() + " is held by process " +
                                  std::to_string(getpid()) +
                                  ": another arpsupd runs in this directory");
    first.reset();
    EXPECT_TRUE(fs::exists(path_ / "lock"));
    EXPECT_EQ(errorAt(path_), "");
}

TEST_F(RuntimeDirectoryTest, AHolderThatLeftNoNumberIsUnknown) {
    RuntimeDirectory first(path_);
    for (const char* text : {"", "somebody", "-1"}) {
        std::ofstream(path_ / "lock", std::ios::trunc) << text;
        EXPECT_EQ(errorAt(path_), (path_ / "lock").string() + " is held by a process unknown"
                                                              ": another arpsupd runs in this "
                                                              "directory");
    }
}

TEST_F(RuntimeDirectoryTest, UnusableDirectories) {
    EXPECT_EQ(errorAt(""), "runtime directory: no path is given");

    fs::path file = parent_ / "file";
    std::ofstream(file) << "x";
    EXPECT_EQ(errorAt(file), "runtime directory " + file.string() + ": Not a directory");
    EXPECT_EQ(errorAt(file / "arpsup"), "runtime directory " + file.string() + ": Not a directory");
    EXPECT_EQ(fs::file_size(file), 1u);

    fs::create_directories(path_ / "lock");
    EXPECT_EQ(errorAt(path_), (path_ / "lock").string() + ": Is a directory");
    fs::remove(path_ / "lock");
    fs::create_symlink(file, path_ / "lock");
    EXPECT_EQ(errorAt(path_), (path_ / "lock").string() + ": Too many levels of symbolic links");
    EXPECT_EQ(fs::file_size(file), 1u) << "what it points to is not touched";
}

TEST_F(RuntimeDirectoryTest, ADirectoryThatMayNotBeWrittenTo) {
    fs::create_directory(path_);
    fs::permissions(path_, fs::perms(0555));
    fs::permissions(parent_, fs::perms(0555));
    pid_t pid = fork();
    if (pid == 0) {
        // Root may write everywhere.
        if (geteuid() == 0 && setuid(65534) != 0) {
            _exit(1);
        }
        EXPECT_EQ(errorAt(path_), (path_ / "lock").string() + ": Permission denied");
        EXPECT_EQ(errorAt(parent_ / "new"),
                  "runtime directory " + (parent_ / "new").string() + ": Permission denied");
        _exit(HasFailure() ? 1 : 0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
    fs::permissions(parent_, fs::perms(0755));
    fs::permissions(path_, fs::perms(0755));
}

} // namespace
} // namespace Host
