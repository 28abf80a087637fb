#include "Testing/TraceCapture.h"

#include <gtest/gtest.h>

namespace Testing {
namespace {

const Vela::TraceHandle handle("TraceCaptureTest");

void write(int number) {
    TRACE(handle, 3, nullptr, "number=" << number);
}

TEST(TraceCaptureTest, KeepsTheLinesOfItsOwnLife) {
    write(1);
    TraceCapture lines("TraceCaptureTest=3");
    write(2);
    write(22);
    EXPECT_FALSE(lines.contains("number=1"));
    EXPECT_TRUE(lines.contains("number=2"));
    EXPECT_EQ(lines.count("number=2"), 2u);
    EXPECT_EQ(lines.count("number=22"), 1u);
    EXPECT_EQ(lines.count("number="), 2u);
    EXPECT_EQ(lines.count("\n"), 2u);
    EXPECT_FALSE(lines.contains("number=3"));
    lines.clear();
    EXPECT_EQ(lines.text(), "");
    write(4);
    EXPECT_EQ(lines.count("number=4"), 1u);
}

TEST(TraceCaptureTest, SwitchesOnWhatItIsToldAndOffAtItsEnd) {
    EXPECT_FALSE(handle.enabled(3));
    {
        TraceCapture lines("TraceCaptureTest=2");
        EXPECT_TRUE(handle.enabled(2));
        EXPECT_FALSE(handle.enabled(3));
        write(1);
        EXPECT_EQ(lines.text(), "");
    }
    EXPECT_FALSE(handle.enabled(2));
}

TEST(TraceCaptureTest, GivesTheLinesBackToWhoHadThemBefore) {
    std::string outer;
    auto previous = Vela::traceSinkIs([&](std::string_view line) { outer += line; });
    {
        TraceCapture lines("TraceCaptureTest=3");
        write(1);
        EXPECT_TRUE(lines.contains("number=1"));
    }
    EXPECT_EQ(outer, "");
    Vela::traceLevelsIs("TraceCaptureTest=3");
    write(2);
    Vela::traceLevelsIs("");
    Vela::traceSinkIs(std::move(previous));
    EXPECT_NE(outer.find("number=2"), outer.npos);
}

} // namespace
} // namespace Testing
