#include "Platform/Base/String.h"

#include <gtest/gtest.h>
#include <sstream>

namespace {

using Name = Vela::String<5>;

TEST(StringTest, HoldsUpToItsMaximum) {
    EXPECT_EQ(Name("12345").bytes(), "12345");
    EXPECT_EQ(Name::maxLength(), 5u);
    EXPECT_TRUE(Name().empty());
    EXPECT_TRUE(Name("").empty());
    EXPECT_FALSE(Name("1").empty());
}

TEST(StringTest, LongerIsARangeError) {
    try {
        Name name("123456");
        FAIL() << "took " << name;
    } catch (const Vela::RangeError& e) {
        EXPECT_STREQ(e.what(), "Vela::String::bytes > maxLength() not allowed");
    }
}

TEST(StringTest, FailedAssignmentChangesNothing) {
    Name name("12345");
    EXPECT_THROW(name = "123456", Vela::RangeError);
    EXPECT_EQ(name, Name("12345"));
}

TEST(StringTest, CountsBytesZeroBytesIncluded) {
    EXPECT_EQ(Name(std::string_view("a\0b", 3)).bytes().size(), 3u);
    EXPECT_THROW(Name(std::string(6, '\0')), Vela::RangeError);
}

TEST(StringTest, ComparesAsStringsDo) {
    EXPECT_EQ(Name("a"), Name(std::string("a")));
    EXPECT_NE(Name("a"), Name("b"));
    EXPECT_LT(Name("a"), Name("ab"));
    EXPECT_LT(Name("ab"), Name("b"));
    EXPECT_GT(Name("\xff"), Name("a"));
}

TEST(StringTest, WritesItsBytes) {
    std::ostringstream out;
    out << Name("a'b");
    EXPECT_EQ(out.str(), "a'b");
    EXPECT_EQ(std::string_view(Name("ab")), "ab");
}

} // namespace
