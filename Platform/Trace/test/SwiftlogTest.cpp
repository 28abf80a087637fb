#include "Platform/Trace/test/SwiftlogFixture.h"

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Vela {
namespace {

using namespace SwiftlogFormat;
using Strings = std::vector<std::string>;

constexpr uint64_t numbersPerBlock = blockCapacity / (sizeof(RecordHeader) + sizeof(Number));

class SwiftlogTest : public SwiftlogFixture {};

TEST_F(SwiftlogTest, BeforeInitializingRecordsVanish) {
    numberRecord().write({1});
    EXPECT_EQ(Swiftlog::fileName(), "");
    Swiftlog::initialize(config());
    EXPECT_EQ(texts(Swiftlog::fileName()), Strings{});
}

TEST_F(SwiftlogTest, AfterClosingRecordsVanishAndTheFileStays) {
    Swiftlog::initialize(config());
    numberRecord().write({1});
    Swiftlog::close();
    EXPECT_EQ(Swiftlog::fileName(), "");
    numberRecord().write({2});
    EXPECT_EQ(texts(path("test.sl")), Strings{"n=1"});
}

TEST_F(SwiftlogTest, AgentsSizesInLevelOrder) {
    Swiftlog::initialize({.fileName = "arp.sl", .levelKiB = {8, 32, 256, 128, 512, 512}});
    SwiftlogReader reader(path("arp.sl"));
    Strings sizes;
    for (const Ring& ring : reader.header().rings) {
        sizes.push_back(std::to_string(ring.bytes / 1024));
    }
    EXPECT_EQ(sizes, (Strings{"8", "32", "256", "128", "512", "512", "32", "32", "32", "32"}));
    EXPECT_EQ(reader.header().typeAreaBytes, 24u * 1024);
    EXPECT_EQ(reader.header().pid, static_cast<uint32_t>(getpid()));
    EXPECT_EQ(reader.header().fileBytes, std::filesystem::file_size(path("arp.sl")));
    EXPECT_EQ(reader.problems(), Strings{});
}

TEST_F(SwiftlogTest, SizesStartAtTheFirstLevelAndAreWholeBlocks) {
    Swiftlog::initialize(
        {.fileName = "test.sl", .levelKiB = {5, 0, 4, 4, 4, 4, 4}, .firstLevel = 3});
    SwiftlogReader reader(path("test.sl"));
    const Ring* rings = reader.header().rings;
    EXPECT_EQ(rings[2].bytes, 32u * 1024);
    EXPECT_EQ(rings[3].bytes, 8u * 1024);
    EXPECT_EQ(rings[4].bytes, 0u);
    EXPECT_EQ(rings[4].offset, 0u);
    EXPECT_EQ(rings[9].bytes, 4u * 1024);
}

TEST_F(SwiftlogTest, PreallocatingTakesTheWholeFileAtOnce) {
    SwiftlogConfig small = config({512});
    Swiftlog::initialize(small);
    auto allocated = [this] {
        struct stat status {};
        EXPECT_EQ(stat(path("test.sl").c_str(), &status), 0);
        return static_cast<uint64_t>(status.st_blocks) * 512;
    };
    EXPECT_GE(allocated(), 512u * 1024);
    small.preallocate = false;
    Swiftlog::initialize(small);
    EXPECT_LT(allocated(), 512u * 1024);
    EXPECT_EQ(SwiftlogReader(path("test.sl")).header().fileBytes,
              std::filesystem::file_size(path("test.sl")));
}

TEST_F(SwiftlogTest, ALevelWithoutARingKeepsNothing) {
    static const SwiftlogType<Number> record{"U", "t", 1, {{"n=", &Number::value}}};
    Swiftlog::initialize(config({4, 0}));
    record.write({1});
    numberRecord().write({2});
    EXPECT_EQ(texts(Swiftlog::fileName()), Strings{"n=2"});
}

TEST_F(SwiftlogTest, LevelsHaveTheirOwnRings) {
    static const SwiftlogType<Number> quiet{"U", "quiet", 1, {{"quiet=", &Number::value}}};
    Swiftlog::initialize(config({4, 4}));
    quiet.write({1});
    for (uint64_t n = 1; n <= 10 * numbersPerBlock; ++n) {
        numberRecord().write({n});
    }
    Strings all = texts(Swiftlog::fileName());
    EXPECT_EQ(all.front(), "quiet=1");
    EXPECT_EQ(all.back(), "n=" + std::to_string(10 * numbersPerBlock));
}

TEST_F(SwiftlogTest, WrappingKeepsTheNewestAndDropsWholeBlocks) {
    constexpr uint64_t blocks = 3;
    Swiftlog::initialize(config({blocks * 4}));
    for (uint64_t n = 1; n <= 5 * blocks * numbersPerBlock; ++n) {
        numberRecord().write({n});
        uint64_t opened = (n + numbersPerBlock - 1) / numbersPerBlock;
        uint64_t dropped = opened > blocks ? opened - blocks : 0;
        if (n % numbersPerBlock <= 1) {
            EXPECT_EQ(texts(Swiftlog::fileName()), numberTexts(dropped * numbersPerBlock + 1, n));
        }
    }
}

TEST_F(SwiftlogTest, LevelsMergeInTheOrderOfWriting) {
    static const SwiftlogType<Number> other{"U", "t", 5, {{"n=", &Number::value}}};
    Swiftlog::initialize(config({64, 0, 0, 0, 0, 64}));
    for (uint64_t n = 1; n <= 1000; ++n) {
        (n % 3 == 0 ? other : numberRecord()).write({n});
    }
    SwiftlogReader reader(Swiftlog::fileName());
    EXPECT_EQ(texts(reader), numberTexts(1, 1000));
    EXPECT_EQ(reader.records()[2].level, 5u);
    EXPECT_EQ(reader.records()[3].level, 0u);
}

TEST_F(SwiftlogTest, LongRecordsAreCutAtTheConfiguredLength) {
    struct Long {
        uint64_t first;
        SwiftlogText<100> text;
        uint64_t last;
    };
    static const SwiftlogType<Long> record{
        "U",
        "t",
        0,
        {{"first=", &Long::first}, {" text=", &Long::text}, {" last=", &Long::last}},
        " end"};
    SwiftlogConfig cutting = config();
    cutting.maxRecordBytes = 43; // rounded down to 40: header, first, 14 letters
    Swiftlog::initialize(cutting);
    record.write({7, std::string("abcdefghijklmnopqrstuvwxyz"), 8});
    numberRecord().write({1});
    EXPECT_EQ(texts(Swiftlog::fileName()),
              (Strings{"first=7 text=abcdefghijklmn... last=...", "n=1"}));
    Swiftlog::initialize(config());
    record.write({7, std::string("abc"), 8});
    EXPECT_EQ(texts(Swiftlog::fileName()), Strings{"first=7 text=abc last=8 end"});
}

TEST_F(SwiftlogTest, TheLongestRecordFillsABlock) {
    struct Longest {
        std::array<uint8_t, blockCapacity - sizeof(RecordHeader)> bytes;
    };
    static const SwiftlogType<Longest> record{"U", "t", 0, {}, "longest"};
    SwiftlogConfig widest = config();
    widest.maxRecordBytes = 1'000'000;
    Swiftlog::initialize(widest);
    for (int i = 0; i < 3; ++i) {
        record.write({});
    }
    SwiftlogReader reader(Swiftlog::fileName());
    EXPECT_EQ(texts(reader), (Strings{"longest", "longest"}));
    EXPECT_EQ(reader.records()[0].payload.size(), sizeof(Longest));
}

TEST_F(SwiftlogTest, TypesBeyondTheTypeAreaAreUnknownAndCounted) {
    std::string title(1000, 'x');
    const SwiftlogType<Number> a{"U", title.c_str(), 0, {{"a=", &Number::value}}};
    const SwiftlogType<Number> b{"U", title.c_str(), 0, {{"b=", &Number::value}}};
    const SwiftlogType<Number> c{"U", title.c_str(), 0, {{"c=", &Number::value}}};
    const SwiftlogType<Number> d{"U", title.c_str(), 0, {{"d=", &Number::value}}};
    const SwiftlogType<Number> small{"U", "t", 0, {{"small=", &Number::value}}};
    Swiftlog::initialize(config());
    for (uint64_t n = 1; n <= 2; ++n) {
        a.write({n});
        b.write({n});
        c.write({n});
        d.write({n});
        small.write({n});
    }
    SwiftlogReader reader(Swiftlog::fileName());
    EXPECT_EQ(texts(reader), (Strings{"a=1", "b=1", "c=1", "data=0100000000000000", "small=1",
                                      "a=2", "b=2", "c=2", "data=0200000000000000", "small=2"}));
    EXPECT_EQ(reader.records()[3].type, nullptr);
    EXPECT_EQ(reader.records()[3].typeId, 0u);
    EXPECT_EQ(reader.header().unknownTypeRecords, 2u);
    EXPECT_EQ(reader.problems(), Strings{});
}

TEST_F(SwiftlogTest, WithoutATypeAreaEverythingIsUnknown) {
    SwiftlogConfig bare = config();
    bare.typeAreaKiB = 0;
    Swiftlog::initialize(bare);
    numberRecord().write({1});
    SwiftlogReader reader(Swiftlog::fileName());
    EXPECT_EQ(texts(reader), Strings{"data=0100000000000000"});
    EXPECT_EQ(reader.problems(), Strings{});
}

TEST_F(SwiftlogTest, InitializingAgainReplacesTheFileAndDescribesTypesAnew) {
    Swiftlog::initialize(config());
    numberRecord().write({1});
    SwiftlogConfig other = config();
    other.fileName = "other.sl";
    Swiftlog::initialize(other);
    numberRecord().write({2});
    EXPECT_EQ(Swiftlog::fileName(), path("other.sl"));
    EXPECT_EQ(texts(path("test.sl")), Strings{"n=1"});
    EXPECT_EQ(texts(path("other.sl")), Strings{"n=2"});
}

TEST_F(SwiftlogTest, OnePredecessorIsKept) {
    for (uint64_t n = 1; n <= 3; ++n) {
        Swiftlog::initialize(config());
        numberRecord().write({n});
    }
    EXPECT_EQ(texts(path("test.sl")), Strings{"n=3"});
    EXPECT_EQ(texts(path("test.sl.1")), Strings{"n=2"});
    EXPECT_FALSE(std::filesystem::exists(path("test.sl.1.1")));
    EXPECT_FALSE(std::filesystem::exists(path("test.sl.2")));
}

TEST_F(SwiftlogTest, TheEnvironmentNamesTheDirectoryWhichIsCreated) {
    setenv("SWIFTLOGDIR", path("deep/er").c_str(), 1);
    Swiftlog::initialize(config());
    EXPECT_EQ(Swiftlog::fileName(), path("deep/er/test.sl"));
    EXPECT_TRUE(std::filesystem::exists(path("deep/er/test.sl")));
}

TEST_F(SwiftlogTest, WithoutTheEnvironmentTheDefaultDirectoryIsUsed) {
    Swiftlog::defaultDirectoryIs(path("default"));
    SwiftlogConfig named = config();
    named.fileName = "arp-%d.sl";
    std::string expected = path("default/arp-" + std::to_string(getpid()) + ".sl");

    unsetenv("SWIFTLOGDIR");
    Swiftlog::initialize(named);
    EXPECT_EQ(Swiftlog::fileName(), expected);
    EXPECT_TRUE(std::filesystem::exists(expected));

    setenv("SWIFTLOGDIR", "", 1);
    Swiftlog::initialize(named);
    EXPECT_EQ(Swiftlog::fileName(), expected);
    EXPECT_TRUE(std::filesystem::exists(expected + ".1"));
}

TEST_F(SwiftlogTest, EachPercentDBecomesTheProcessId) {
    SwiftlogConfig named = config();
    named.fileName = "%d-%d%s.sl";
    Swiftlog::initialize(named);
    std::string pid = std::to_string(getpid());
    EXPECT_EQ(Swiftlog::fileName(), path(pid + "-" + pid + "%s.sl"));
}

TEST_F(SwiftlogTest, ADirectoryThatCannotBeIsReportedOnceAndNotFatal) {
    std::ofstream(path("file")) << "in the way";
    setenv("SWIFTLOGDIR", path("file/below").c_str(), 1);
    testing::internal::CaptureStderr();
    Swiftlog::initialize(config());
    numberRecord().write({1});
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Swiftlog: cannot create " + path("file/below/test.sl") +
                  ": Not a directory; records are not kept\n");
    EXPECT_EQ(Swiftlog::fileName(), "");
}

TEST_F(SwiftlogTest, WithoutRoomForTheWholeFileThereIsNone) {
    for (bool preallocate : {true, false}) {
        SwiftlogConfig wanted = config({64});
        wanted.preallocate = preallocate;
        rlimit before{};
        getrlimit(RLIMIT_FSIZE, &before);
        rlimit tight{.rlim_cur = 32768, .rlim_max = before.rlim_max};
        auto handler = signal(SIGXFSZ, SIG_IGN);
        testing::internal::CaptureStderr();
        setrlimit(RLIMIT_FSIZE, &tight);
        Swiftlog::initialize(wanted);
        setrlimit(RLIMIT_FSIZE, &before);
        signal(SIGXFSZ, handler);
        numberRecord().write({1});
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "Swiftlog: cannot create " + path("test.sl") +
                      ": File too large; records are not kept\n");
        EXPECT_EQ(Swiftlog::fileName(), "");
        EXPECT_FALSE(std::filesystem::exists(path("test.sl")));
    }
}

TEST_F(SwiftlogTest, AFailureEndsTheFileInUse) {
    Swiftlog::initialize(config());
    numberRecord().write({1});
    std::ofstream(path("file")) << "in the way";
    setenv("SWIFTLOGDIR", path("file").c_str(), 1);
    testing::internal::CaptureStderr();
    Swiftlog::initialize(config());
    numberRecord().write({2});
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(Swiftlog::fileName(), "");
    EXPECT_EQ(texts(path("test.sl")), Strings{"n=1"});
}

TEST_F(SwiftlogTest, TheFileOfAKilledProcessIsReadable) {
    for (bool byKill : {true, false}) {
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            Swiftlog::initialize(config());
            for (uint64_t n = 1; n <= 10; ++n) {
                numberRecord().write({n});
            }
            if (byKill) {
                raise(SIGKILL);
            }
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(WIFSIGNALED(status), byKill);
        SwiftlogReader reader(path("test.sl"));
        EXPECT_EQ(texts(reader), numberTexts(1, 10));
        EXPECT_EQ(reader.problems(), Strings{});
        EXPECT_EQ(reader.header().pid, static_cast<uint32_t>(child));
    }
}

TEST_F(SwiftlogTest, AForkedChildDoesNotWriteIntoItsParentsFile) {
    Swiftlog::initialize(config());
    numberRecord().write({1});
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        numberRecord().write({2});
        _exit(Swiftlog::fileName().empty() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    numberRecord().write({3});
    EXPECT_EQ(texts(Swiftlog::fileName()), (Strings{"n=1", "n=3"}));
}

TEST_F(SwiftlogTest, TimesLieBetweenTheirSurroundings) {
    auto wallNow = [] {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
    };
    constexpr int64_t slack = 1'000'000'000; // the process may be interrupted between two clocks
    Swiftlog::initialize(config());
    std::vector<int64_t> before;
    for (uint64_t n = 0; n < 2 * numbersPerBlock; ++n) {
        before.push_back(wallNow());
        numberRecord().write({n});
    }
    before.push_back(wallNow());
    SwiftlogReader reader(Swiftlog::fileName());
    ASSERT_EQ(reader.records().size() + 1, before.size());
    for (size_t n = 0; n < reader.records().size(); ++n) {
        EXPECT_GE(reader.records()[n].wall, before[n] - slack);
        EXPECT_LE(reader.records()[n].wall, before[n + 1] + slack);
    }
}

/// Else the pace of the ticks would be guessed from two moments close together.
TEST_F(SwiftlogTest, NoRecordIsFurtherBeyondTheLatestClockPointThanThatIsFromTheStart) {
    Swiftlog::initialize(config({64}));
    for (uint64_t n = 1; n <= 500; ++n) {
        numberRecord().write({n});
        SwiftlogReader reader(Swiftlog::fileName());
        const Header& header = reader.header();
        uint64_t beyond = std::max(reader.records().back().ticks, header.latest.ticks);
        ASSERT_LE(beyond - header.latest.ticks,
                  std::max<uint64_t>(header.latest.ticks - header.start.ticks, 4096));
    }
}

using SwiftlogDeathTest = SwiftlogTest;

TEST_F(SwiftlogDeathTest, OnlyOneThreadIsSupported) {
    SwiftlogConfig threaded = config();
    threaded.threading = static_cast<SwiftlogThreading>(1);
    EXPECT_DEATH(Swiftlog::initialize(threaded), "assertion failed \"false\"");
}

TEST_F(SwiftlogDeathTest, MistakesInTheConfigurationAreAssertions) {
    SwiftlogConfig second = config();
    second.secondaryFileName = "second.sl";
    EXPECT_DEATH(Swiftlog::initialize(second), "secondaryFileName.empty\\(\\)");
    SwiftlogConfig tooMany = config();
    tooMany.firstLevel = 1;
    EXPECT_DEATH(Swiftlog::initialize(tooMany), "firstLevel \\+ levelKiB.size\\(\\)");
}

TEST_F(SwiftlogDeathTest, ATypesLevelMustExist) {
    EXPECT_DEATH((SwiftlogType<Number>{"U", "t", 10, {}}), "level < SwiftlogFormat::levels");
}

} // namespace
} // namespace Vela
