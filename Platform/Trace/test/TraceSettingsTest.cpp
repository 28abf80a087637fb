#include "Platform/Trace/TraceSettings.h"

#include <gtest/gtest.h>

namespace Vela {
namespace {

using Problems = std::vector<std::string>;

uint32_t levelsOf(std::string_view text, std::string_view handle) {
    Problems problems;
    uint32_t levels = TraceSettings::parse(text, problems).levels(handle);
    EXPECT_EQ(problems, Problems{}) << text;
    return levels;
}

TEST(TraceSettings, LevelsUpToAreOneBitEach) {
    EXPECT_EQ(traceLevelsUpTo(0), 0b1u);
    EXPECT_EQ(traceLevelsUpTo(3), 0b1111u);
    EXPECT_EQ(traceLevelsUpTo(9), 0b11'1111'1111u);
}

TEST(TraceSettings, NothingIsOnWithoutAnEntry) {
    EXPECT_EQ(levelsOf("", "Scheduler"), 0u);
    EXPECT_EQ(levelsOf("  ", "Scheduler"), 0u);
    EXPECT_EQ(levelsOf("ArpSuppression=8", "Scheduler"), 0u);
}

TEST(TraceSettings, AnEntrySwitchesAllLevelsUpToItsNumber) {
    std::string_view text = "ArpSuppression=8,Scheduler=3";
    EXPECT_EQ(levelsOf(text, "ArpSuppression"), traceLevelsUpTo(8));
    EXPECT_EQ(levelsOf(text, "Scheduler"), traceLevelsUpTo(3));
    EXPECT_EQ(levelsOf(text, "ArpSuppressionX"), 0u);
    EXPECT_EQ(levelsOf(" ArpSuppression = 0 ", "ArpSuppression"), traceLevelsUpTo(0));
}

TEST(TraceSettings, AStarStandsForAnyRest) {
    EXPECT_EQ(levelsOf("*=1", "Scheduler"), traceLevelsUpTo(1));
    EXPECT_EQ(levelsOf("Sched*=4", "Scheduler"), traceLevelsUpTo(4));
    EXPECT_EQ(levelsOf("Scheduler*=4", "Scheduler"), traceLevelsUpTo(4));
    EXPECT_EQ(levelsOf("Sched*=4", "Sch"), 0u);
}

TEST(TraceSettings, TheEntryThatNamesMostOfTheHandleDecides) {
    std::string_view text = "ArpSuppression=8,Scheduler=3,*=1";
    EXPECT_EQ(levelsOf(text, "ArpSuppression"), traceLevelsUpTo(8));
    EXPECT_EQ(levelsOf(text, "Packet"), traceLevelsUpTo(1));
    EXPECT_EQ(levelsOf("Sched*=4,S*=9,*=1", "Scheduler"), traceLevelsUpTo(4));
    EXPECT_EQ(levelsOf("Scheduler=2,Scheduler*=4", "Scheduler"), traceLevelsUpTo(2));
}

TEST(TraceSettings, OfEntriesAlikeTheLaterDecides) {
    EXPECT_EQ(levelsOf("Scheduler=2,Scheduler=4", "Scheduler"), traceLevelsUpTo(4));
    EXPECT_EQ(levelsOf("Sched*=4,Sched*=2", "Scheduler"), traceLevelsUpTo(2));
}

TEST(TraceSettings, EachMalformedPieceIsNamedAndTheOthersApply) {
    for (std::string piece : {"Scheduler", "Scheduler=", "Scheduler=10", "Scheduler=x",
                              "Scheduler=-1", "=3", "", "Sche*ler=3", "**=3", "a=b=3x"}) {
        Problems problems;
        TraceSettings settings = TraceSettings::parse("Packet=2," + piece + ",Walk=5", problems);
        EXPECT_EQ(problems, Problems{"\"" + piece +
                                     "\": expected handle=level, level 0 to 9, a '*' only at "
                                     "the handle's end"});
        EXPECT_EQ(settings.levels("Packet"), traceLevelsUpTo(2));
        EXPECT_EQ(settings.levels("Walk"), traceLevelsUpTo(5));
        EXPECT_EQ(settings.levels("Scheduler"), 0u);
    }
}

TEST(TraceSettings, AProblemIsOneLine) {
    Problems problems;
    TraceSettings::parse("a\nb", problems);
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].find('\n'), std::string::npos);
    EXPECT_TRUE(problems[0].starts_with("\"a\\nb\": "));
}

} // namespace
} // namespace Vela
