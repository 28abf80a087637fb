#include "Host/ControlRequest.h"

#include <gtest/gtest.h>

namespace Host {
namespace {

using State = ControlRequest::State;

void expectLine(const ControlRequest& request, const std::string& line) {
    EXPECT_EQ(request.state(), State::line);
    EXPECT_EQ(request.line(), line);
    EXPECT_EQ(request.error(), "");
}

void expectError(const ControlRequest& request, const std::string& error) {
    EXPECT_EQ(request.state(), State::error);
    EXPECT_EQ(request.error(), error);
}

TEST(ControlRequestTest, ALineInOnePiece) {
    ControlRequest request;
    EXPECT_EQ(request.state(), State::incomplete);
    EXPECT_EQ(request.feed("show tech-support\n"), State::line);
    expectLine(request, "show tech-support");
}

TEST(ControlRequestTest, ALineByteByByte) {
    ControlRequest request;
    for (char c : std::string("show ~!")) {
        EXPECT_EQ(request.feed({&c, 1}), State::incomplete);
        EXPECT_EQ(request.feed(""), State::incomplete);
    }
    EXPECT_EQ(request.feed("\n"), State::line);
    expectLine(request, "show ~!");
}

TEST(ControlRequestTest, OnlyTheFirstLineCounts) {
    ControlRequest request;
    request.feed("show counters\nshow tech-support\n\xff");
    expectLine(request, "show counters");
    EXPECT_EQ(request.feed("more\n"), State::line);
    EXPECT_EQ(request.end(), State::line);
    expectLine(request, "show counters");
}

TEST(ControlRequestTest, AnEmptyLineIsALine) {
    ControlRequest request;
    request.feed("\n");
    expectLine(request, "");
}

TEST(ControlRequestTest, WhatIsNotPrintableIsNamed) {
    struct {
        std::string bytes;
        std::string error;
    } const cases[] = {
        {std::string("sh\0w\n", 5), "byte 3 of the command is 0x00, not printable ASCII"},
        {"show\r\n", "byte 5 of the command is 0x0d, not printable ASCII"},
        {"\tshow\n", "byte 1 of the command is 0x09, not printable ASCII"},
        {"show \xc3\xbc\n", "byte 6 of the command is 0xc3, not printable ASCII"},
        {"\x7f", "byte 1 of the command is 0x7f, not printable ASCII"},
        {"\xff", "byte 1 of the command is 0xff, not printable ASCII"},
    };
    for (const auto& [bytes, error] : cases) {
        ControlRequest request;
        EXPECT_EQ(request.feed(bytes), State::error);
        expectError(request, error);
        request.feed("show counters\n");
        request.end();
        expectError(request, error);
    }
}

TEST(ControlRequestTest, TheLongestLineAndOneByteMore) {
    const std::string longest(ControlRequest::longestLine, 'x');
    ControlRequest request;
    EXPECT_EQ(request.feed(longest), State::incomplete);
    EXPECT_EQ(request.feed("\n"), State::line);
    expectLine(request, longest);

    ControlRequest longer;
    EXPECT_EQ(longer.feed(longest + "x"), State::error);
    expectError(longer, "the command is longer than 4096 bytes");
}

TEST(ControlRequestTest, EndsBeforeItsLineDoes) {
    for (std::string bytes : {"", "show counters"}) {
        ControlRequest request;
        request.feed(bytes);
        EXPECT_EQ(request.end(), State::error);
        expectError(request, "the command does not end with a line feed");
        EXPECT_EQ(request.feed("\n"), State::error);
    }
}

} // namespace
} // namespace Host
