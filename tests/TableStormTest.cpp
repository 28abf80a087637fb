// Tables between processes: a writer that never pauses, is stopped, killed and started again, and
// a file system without room. The readers are this process and a child of it.

#include "tests/TableStorm.h"
#include "Platform/Quarry/AttachedTable.h"
#include "Testing/TemporaryDirectory.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <optional>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Attached = Quarry::AttachedTable<Storm::Record>;
using Quarry::Outcome;
using Seconds = std::chrono::duration<double>;

/// A process of the test's; killed if it is still there at the end.
class Child {
  public:
    /// `work` says what went wrong; the child succeeds if it says nothing.
    explicit Child(const std::function<std::string()>& work) : pid_(fork()) {
        if (pid_ != 0) {
            return;
        }
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        std::string fault;
        try {
            fault = work();
        } catch (const std::exception& error) {
            fault = error.what();
        }
        if (!fault.empty()) {
            std::fprintf(stderr, "%s\n", fault.c_str());
        }
        _exit(fault.empty() ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    ~Child() {
        if (pid_ > 0) {
            signal(SIGKILL);
            wait(0);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    void signal(int number) const { kill(pid_, number); }
    bool stopped() const { return WIFSTOPPED(wait(WUNTRACED)); }
    bool succeeded() {
        int status = wait(0);
        pid_ = -1;
        return WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS;
    }
    void killed() {
        signal(SIGKILL);
        wait(0);
        pid_ = -1;
    }

  private:
    int wait(int options) const {
        int status = 0;
        while (waitpid(pid_, &status, options) < 0 && errno == EINTR) {
        }
        return status;
    }

    pid_t pid_;
};

/// What the processes of a test have in common.
struct Shared {
    std::atomic<bool> over{false};
    std::atomic<bool> waiting{false};
    std::atomic<uint64_t> rounds{0};
};

class TableStormTest : public ::testing::Test {
  protected:
    TableStormTest()
        : memory_(mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                       -1, 0)),
          shared(*new (memory_) Shared) {}
    ~TableStormTest() override { munmap(memory_, sizeof(Shared)); }

    /// A child that writes until the test is over, or the child is killed.
    std::unique_ptr<Child> startStorm() {
        return std::make_unique<Child>([this] {
            Storm::Writer writer(file);
            while (!shared.over) {
                writer.blow();
            }
            writer.closedIs();
            return std::string();
        });
    }

    /// Asks until it is true; false if that takes too long.
    static bool eventually(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            sched_yield();
        }
        return true;
    }

    /// The storm's table, once there is one that is complete and not `old`.
    std::unique_ptr<Attached> attach(uint64_t old = 0) {
        std::unique_ptr<Attached> attached;
        EXPECT_TRUE(eventually([&] {
            try {
                attached = std::make_unique<Attached>(file);
            } catch (const Quarry::TableError&) {
                return false;
            }
            return attached->generation() != old && attached->complete();
        }));
        return attached;
    }

  private:
    void* memory_;

  protected:
    Shared& shared;
    Testing::TemporaryDirectory directory;
    const std::string file = directory.path() + "/storm/table";
};

TEST_F(TableStormTest, readersSeeWhatStaysAndNothingTorn) {
    auto storm = startStorm();
    auto attached = attach();
    Child reader([this] {
        Attached mine(file);
        Storm::Reader checking(mine, 1);
        while (!shared.over && checking.fault().empty()) {
            checking.round();
        }
        return checking.fault() + (mine.trouble() == Outcome::absent ? "" : " trouble");
    });
    Storm::Reader checking(*attached, 2);
    const uint64_t changes = attached->changes();
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (std::chrono::steady_clock::now() < end && checking.fault().empty()) {
        checking.round();
    }
    shared.over = true;
    EXPECT_EQ(checking.fault(), "");
    EXPECT_EQ(attached->trouble(), Outcome::absent);
    EXPECT_GT(checking.walks(), 20u);
    EXPECT_GT(attached->changes(), changes + 10'000);
    EXPECT_TRUE(reader.succeeded());
    EXPECT_TRUE(storm->succeeded());
    EXPECT_TRUE(attached->closed());
    checking.round();
    EXPECT_EQ(checking.fault(), "") << "of a closed table";
}

/// Where a stop leaves a record half written the reader waits for it, and goes on with the writer.
TEST_F(TableStormTest, aWriterMayBeStoppedAtAnyMoment) {
    auto storm = startStorm();
    auto attached = attach();
    Child reader([this] {
        Attached mine(file);
        Storm::Reader checking(mine, 3);
        while (!shared.over && checking.fault().empty()) {
            checking.round();
            ++shared.rounds;
        }
        return checking.fault() + (mine.trouble() == Outcome::absent ? "" : " trouble");
    });
    std::mt19937 random(3);
    unsigned stops = 0;
    unsigned readThrough = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (std::chrono::steady_clock::now() < end) {
        const uint64_t until = attached->changes() + random() % 1000;
        ASSERT_TRUE(eventually([&] { return attached->changes() >= until; }));
        storm->signal(SIGSTOP);
        ASSERT_TRUE(storm->stopped());
        ++stops;
        const uint64_t rounds = shared.rounds;
        const auto enough = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
        while (shared.rounds < rounds + 2 && std::chrono::steady_clock::now() < enough) {
            sched_yield();
        }
        readThrough += shared.rounds >= rounds + 2;
        storm->signal(SIGCONT);
    }
    shared.over = true;
    EXPECT_TRUE(reader.succeeded());
    EXPECT_TRUE(storm->succeeded());
    EXPECT_GT(stops, 20u);
    EXPECT_GT(readThrough, 0u) << "a writer that stands still keeps nobody from reading";
}

/// Stops itself with the record of key 7 half written, and finishes that when it may go on.
std::string stopInAWrite(const std::string& file) {
    Storm::Writer writer(file);
    Quarry::Format::Record& record = writer.mapping().record(7);
    ++record.sequence;
    Quarry::TableMapping::payload(record)[3] += 1;
    raise(SIGSTOP);
    Quarry::TableMapping::payload(record)[3] -= 1;
    ++record.sequence;
    return {};
}

TEST_F(TableStormTest, aHalfWrittenRecordIsReportedAfterASecondAndOthersCanBeRead) {
    Child writer([this] { return stopInAWrite(file); });
    ASSERT_TRUE(writer.stopped());
    Attached attached(file);
    for (uint64_t number = 0; number < Storm::staying; ++number) {
        if (number != 7) {
            EXPECT_TRUE(attached.value({number}).sound());
            EXPECT_TRUE(attached.has({number}));
        }
    }
    EXPECT_EQ(attached.trouble(), Outcome::absent);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(attached.has({7}));
    const Seconds waited = std::chrono::steady_clock::now() - begin;
    EXPECT_EQ(attached.trouble(), Outcome::writerDead);
    EXPECT_GE(waited.count(), 1.0);
    EXPECT_LT(waited.count(), 10.0);
    writer.signal(SIGCONT);
    EXPECT_TRUE(writer.succeeded());
    Storm::Reader checking(attached, 1);
    checking.round();
    EXPECT_EQ(checking.fault(), "");
}

TEST_F(TableStormTest, aReaderWaitsForAWriterThatGoesOn) {
    Child writer([this] { return stopInAWrite(file); });
    ASSERT_TRUE(writer.stopped());
    Child reader([this] {
        Attached attached(file);
        shared.waiting = true;
        auto found = attached.find({7});
        return std::string(found && found->sound() ? "" : "not found");
    });
    ASSERT_TRUE(eventually([this] { return shared.waiting.load(); }));
    writer.signal(SIGCONT);
    EXPECT_TRUE(writer.succeeded());
    EXPECT_TRUE(reader.succeeded());
}

TEST_F(TableStormTest, aWriterMayBeKilledAndStartedAgain) {
    std::mt19937 random(4);
    std::unique_ptr<Attached> attached;
    for (int life = 0; life < 4; ++life) {
        auto storm = startStorm();
        auto current = attach(attached ? attached->generation() : 0);
        ASSERT_TRUE(current);
        if (attached) {
            EXPECT_TRUE(eventually([&] { return attached->closed(); }))
                << "the readers of the old file hear that there is a new one";
        }
        attached = std::move(current);
        EXPECT_FALSE(attached->closed());
        Storm::Reader checking(*attached, random());
        const uint64_t until = attached->changes() + 5000 + random() % 5000;
        while (attached->changes() < until && checking.fault().empty()) {
            checking.round();
        }
        storm->killed();
        EXPECT_EQ(checking.fault(), "");
        EXPECT_EQ(attached->trouble(), Outcome::absent);
        // It lies as it was left: at most one record half written, and everything else right.
        unsigned lost = 0;
        for (uint64_t number = 0; number < Storm::staying; ++number) {
            auto found = attached->find({number});
            lost += !found;
            EXPECT_TRUE(!found || found->sound());
        }
        EXPECT_LE(lost, 1u);
        EXPECT_EQ(attached->trouble(), lost ? Outcome::writerDead : Outcome::absent);
    }
}

/// Takes all the room that a file system has left.
std::filesystem::path fillUp(const std::filesystem::path& folder) {
    std::filesystem::path filler = folder / "filler";
    Vela::UniqueFd fd(open(filler.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    const std::string page(4096, 'x');
    while (write(fd.get(), page.data(), page.size()) > 0) {
    }
    return filler;
}

std::string writeWithoutRoom(const std::string& folder) {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", folder.c_str(), "tmpfs", 0, "size=4m") != 0) {
        return std::string("this test mounts a tmpfs of its own, which needs to be permitted: ") +
               std::strerror(errno);
    }
    const std::string file = folder + "/table";
    Storm::Writer writer(file, 100'000);
    Attached attached(file);
    uint64_t next = Storm::coming;
    auto fill = [&] {
        while (writer.set(next) == Quarry::Written::added) {
            ++next;
        }
        return next - Storm::coming;
    };
    auto allThere = [&] {
        Storm::Reader checking(attached, 1);
        checking.round();
        for (uint64_t number = Storm::coming; number < next; ++number) {
            if (!attached.value({number}).sound() || !attached.has({number})) {
                return false;
            }
        }
        return checking.fault().empty() && attached.trouble() == Outcome::absent;
    };
    for (int i = 0; i < 500; ++i) {
        writer.set(next++);
    }
    // What is left is no room for even one more step.
    std::filesystem::path filler = fillUp(folder);
    const uint64_t before = fill();
    if (before < 500 || before > 20'000 || writer.set(next) != Quarry::Written::full) {
        return "entries without room: " + std::to_string(before);
    }
    if (!allThere() || attached.count() != Storm::staying + before || attached.has({next})) {
        return "not all entries are there while there is no room";
    }
    if (writer.set(3) != Quarry::Written::changed || !writer.del(--next) ||
        writer.set(next++) != Quarry::Written::added || !allThere()) {
        return "what needs no room was refused";
    }
    for (bool allocateAll : {false, true}) {
        try {
            Storm::Writer another(folder + "/table", 1000, allocateAll);
            return "a table was made without room";
        } catch (const Quarry::TableError& error) {
            if (!std::strstr(error.what(), "cannot be allocated")) {
                return error.what();
            }
        }
    }
    if (attached.closed() || Attached(file).generation() != attached.generation()) {
        return "a table that could not be made took the place of another";
    }
    std::filesystem::remove(filler);
    const uint64_t after = fill();
    if (after < before + 5000 || !allThere()) {
        return "writing did not go on once there was room: " + std::to_string(after);
    }
    return {};
}

TEST_F(TableStormTest, withoutRoomEntriesAreRefusedAndNothingIsLost) {
    Child writer([this] { return writeWithoutRoom(directory.path()); });
    EXPECT_TRUE(writer.succeeded()) << "see the text above";
}

} // namespace
