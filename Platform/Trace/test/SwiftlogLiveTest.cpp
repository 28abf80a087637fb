#include "Platform/Base/UniqueFd.h"
#include "Platform/Trace/test/SwiftlogFixture.h"

#include <array>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Vela {
namespace {

using namespace SwiftlogFormat;
using Strings = std::vector<std::string>;

/// A record of which a block holds few, all words alike: one that is torn shows it.
struct Wide {
    std::array<uint64_t, 160> words;

    explicit Wide(uint64_t n) { words.fill(n); }
};

constexpr unsigned wideBytes = sizeof(RecordHeader) + sizeof(Wide);
constexpr uint64_t widePerBlock = blockCapacity / wideBytes;

const SwiftlogType<Wide>& wideRecord() {
    static const SwiftlogType<Wide> record{"Platform/Trace/Wide", "wide", 0, {}, "wide"};
    return record;
}

/// Reading while somebody writes.
class SwiftlogLiveTest : public SwiftlogFixture {
  protected:
    static SwiftlogConfig wideConfig(unsigned blocks) {
        SwiftlogConfig wide = config({blocks * 4});
        wide.maxRecordBytes = wideBytes;
        return wide;
    }

    size_t pread(uint64_t offset, std::span<uint8_t> into) const {
        UniqueFd fd(open(path("test.sl").c_str(), O_RDONLY));
        ssize_t got = ::pread(fd.get(), into.data(), into.size(), static_cast<off_t>(offset));
        EXPECT_EQ(got, std::ssize(into));
        return into.size();
    }

    /// The numbers of the records, all of which must be whole, described and in order.
    static std::vector<uint64_t> wholeNumbers(const SwiftlogReader& reader) {
        EXPECT_EQ(reader.problems(), Strings{});
        std::vector<uint64_t> numbers;
        for (const SwiftlogRecord& record : reader.records()) {
            EXPECT_EQ(record.text(), "wide");
            EXPECT_EQ(record.payload.size(), sizeof(Wide));
            Wide wide(0);
            std::memcpy(wide.words.data(), record.payload.data(),
                        std::min(sizeof(Wide), record.payload.size()));
            EXPECT_EQ(wide.words, Wide(wide.words[0]).words);
            EXPECT_TRUE(numbers.empty() || wide.words[0] > numbers.back());
            numbers.push_back(wide.words[0]);
        }
        return numbers;
    }

    /// As soon as a block's sequence shows, its clock point is there and stays.
    void expectSteadyClockPoint(uint64_t blockOffset) {
        std::array<uint8_t, sizeof(BlockHeader)> bytes{};
        pread(blockOffset, bytes);
        BlockHeader block{};
        std::memcpy(&block, bytes.data(), sizeof block);
        if (block.sequence == 0) {
            return;
        }
        ClockPoint first = opened_.try_emplace(block.sequence, block.opened).first->second;
        EXPECT_EQ(block.opened.ticks, first.ticks);
        EXPECT_EQ(block.opened.monotonic, first.monotonic);
        EXPECT_EQ(block.opened.wall, first.wall);
    }

    std::map<uint64_t, ClockPoint> opened_; // by sequence
};

TEST_F(SwiftlogLiveTest, RecordsAreWholeWhileTheWriterWorksBetweenAnyTwoReads) {
    for (uint64_t perRead = 1; perRead <= 3 * widePerBlock; ++perRead) {
        Swiftlog::initialize(wideConfig(4));
        uint64_t written = 0;
        auto write = [&](uint64_t count) {
            for (uint64_t i = 0; i < count; ++i) {
                wideRecord().write(Wide(++written));
            }
        };
        write(20);
        SwiftlogReader reader({std::filesystem::file_size(path("test.sl")),
                               [&](uint64_t offset, std::span<uint8_t> into) {
                                   size_t got = pread(offset, into);
                                   write(perRead);
                                   return got;
                               }});
        std::vector<uint64_t> numbers = wholeNumbers(reader);
        if (perRead == 1) {
            EXPECT_FALSE(numbers.empty());
        }
        // Two reads lie between the two looks at a sequence: by then it is another one.
        if (2 * perRead >= 4 * widePerBlock) {
            EXPECT_TRUE(numbers.empty()) << perRead;
        }
    }
}

/// The writer is a child that is stopped, and its file read, after every single instruction.
TEST_F(SwiftlogLiveTest, RecordsAreWholeBetweenAnyTwoInstructionsOfTheWriter) {
    constexpr uint64_t count = 3 * widePerBlock + 1;
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        Swiftlog::initialize(wideConfig(2));
        const SwiftlogType<Wide>& record = wideRecord();
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        for (uint64_t n = 1; n <= count; ++n) {
            record.write(Wide(n));
        }
        _exit(0);
    }
    int status = 0;
    uint64_t steps = 0;
    uint64_t newest = 0;
    size_t fewest = count;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    for (; WIFSTOPPED(status) && !HasFailure(); ++steps) {
        SwiftlogReader reader(path("test.sl"));
        std::vector<uint64_t> numbers = wholeNumbers(reader);
        if (!numbers.empty()) {
            // Nothing is missing in between, and what once was there stays the newest.
            EXPECT_EQ(numbers.size(), numbers.back() - numbers.front() + 1);
            EXPECT_TRUE(numbers.back() == newest || numbers.back() == newest + 1);
            newest = numbers.back();
        }
        if (newest >= 2 * widePerBlock) {
            fewest = std::min(fewest, numbers.size());
        }
        expectSteadyClockPoint(reader.header().rings[0].offset);
        expectSteadyClockPoint(reader.header().rings[0].offset + blockSize);
        ASSERT_EQ(ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr), 0);
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) || WSTOPSIG(status) == SIGTRAP);
    }
    if (WIFSTOPPED(status)) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
    }
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(newest, count);
    EXPECT_EQ(fewest, widePerBlock); // while the older of two full blocks is being replaced
    EXPECT_GT(steps, 10 * count);
}

} // namespace
} // namespace Vela
