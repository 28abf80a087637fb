#include "Platform/Trace/TraceText.h"

#include <gtest/gtest.h>
#include <limits>
#include <sstream>

namespace Vela {
namespace {

TEST(TraceText, UtcTextCountsFrom1970) {
    EXPECT_EQ(utcText(0), "1970-01-01 00:00:00.000000");
    EXPECT_EQ(utcText(1'709'210'096'123'456'789), "2024-02-29 12:34:56.123456");
    EXPECT_EQ(utcText(-1), "1969-12-31 23:59:59.999999");
}

TEST(TraceText, UtcTextStandsAnyNumber) {
    EXPECT_EQ(utcText(std::numeric_limits<int64_t>::max()), "2262-04-11 23:47:16.854775");
    EXPECT_EQ(utcText(std::numeric_limits<int64_t>::min()), "1677-09-21 00:12:43.145224");
}

TEST(TraceText, OneLineShowsControlCharacters) {
    EXPECT_EQ(oneLine("plain \xc3\xa9"), "plain \xc3\xa9");
    EXPECT_EQ(oneLine("a\nb\tc\x1b[31m\x7f"), "a\\nb\\tc\\x1b[31m\\x7f");
    EXPECT_EQ(oneLine(std::string_view("\0", 1)), "\\x00");
}

TEST(TraceText, HexIsLowercaseWithoutSeparators) {
    const uint8_t bytes[] = {0x00, 0x0f, 0xff, 0xa5};
    std::ostringstream out;
    out << hex(bytes) << '|' << hex({});
    EXPECT_EQ(out.str(), "000fffa5|");
}

} // namespace
} // namespace Vela
