#include "Platform/Base/ValueParser.h"

#include "Platform/Base/Errors.h"
#include "Platform/Base/Strep.h"

#include <functional>
#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace Vela;
using namespace std::string_literals;

constexpr uint64_t maxNumber = std::numeric_limits<uint64_t>::max();

/// The text of the error that reading `text` ends with; empty if it ends well.
std::string errorOf(std::string_view text, const std::function<void(ValueParser&)>& read) {
    ValueParser parser(text);
    try {
        read(parser);
    } catch (const ParseError& e) {
        return e.what();
    }
    return "";
}

std::string quotedStringError(std::string_view text) {
    return errorOf(text, [](ValueParser& p) { p.quotedString(); });
}

std::string numberError(std::string_view text, uint64_t max) {
    return errorOf(text, [max](ValueParser& p) { p.number(max); });
}

TEST(ValueParserTest, ExpectTakesTheLiteralAlone) {
    ValueParser parser("abc");
    parser.expect("ab");
    EXPECT_EQ(parser.offset(), 2u);
    parser.expect("");
    parser.expect("c");
    parser.end();
}

TEST(ValueParserTest, AcceptTakesTheLiteralOrNothing) {
    ValueParser parser("None, 1");
    EXPECT_FALSE(parser.accept("1"));
    EXPECT_FALSE(parser.accept("None, 1 "));
    EXPECT_EQ(parser.offset(), 0u);
    EXPECT_TRUE(parser.accept("None"));
    EXPECT_EQ(parser.offset(), 4u);
    EXPECT_FALSE(parser.accept("None"));
    EXPECT_TRUE(parser.accept(", 1"));
    EXPECT_FALSE(parser.accept("1"));
    parser.end();
}

TEST(ValueParserTest, ErrorNamesExpectationOffsetAndWhatStoodThere) {
    auto read = [](ValueParser& p) {
        p.expect("ab");
        p.expect(", ");
    };
    EXPECT_EQ(errorOf("ab; c", read), "expected ', ' at offset 2, found '; c'");
    EXPECT_EQ(errorOf("ab,", read), "expected ', ' at offset 2, found ','");
    EXPECT_EQ(errorOf("ab", read), "expected ', ' at offset 2, found the end");
}

TEST(ValueParserTest, ExcerptIsBoundedAndEscaped) {
    auto read = [](ValueParser& p) { p.expect("x"); };
    EXPECT_EQ(errorOf("\n\x01'", read), R"(expected 'x' at offset 0, found '\n\x01\'')");
    EXPECT_EQ(errorOf(std::string(24, 'a'), read),
              "expected 'x' at offset 0, found 'aaaaaaaaaaaaaaaaaaaaaaaa'");
    EXPECT_EQ(errorOf(std::string(100000, 'a'), read),
              "expected 'x' at offset 0, found 'aaaaaaaaaaaaaaaaaaaaaaaa'...");
}

TEST(ValueParserTest, TypesReportTheirOwnExpectations) {
    auto read = [](ValueParser& p) {
        p.expect("a");
        p.fail("an address", 1);
    };
    EXPECT_EQ(errorOf("ab", read), "expected an address at offset 1, found 'b'");
}

TEST(ValueParserTest, EndAllowsNothingMore) {
    auto read = [](ValueParser& p) {
        p.expect("a");
        p.end();
    };
    EXPECT_EQ(errorOf("a", read), "");
    EXPECT_EQ(errorOf("a ", read), "expected the end at offset 1, found ' '");
    EXPECT_EQ(errorOf("a\0"s, read), R"(expected the end at offset 1, found '\x00')");
}

TEST(ValueParserTest, QuotedStringReadsBackEveryByte) {
    std::string bytes;
    for (int c = 0; c < 256; ++c) {
        bytes += static_cast<char>(c);
    }
    std::string form = quotedForm(bytes) + "rest";
    ValueParser parser(form);
    EXPECT_EQ(parser.quotedString(), bytes);
    parser.expect("rest");
    parser.end();
}

TEST(ValueParserTest, QuotedStringMayBeEmpty) {
    ValueParser parser("''");
    EXPECT_EQ(parser.quotedString(), "");
    parser.end();
}

TEST(ValueParserTest, QuotedStringNeedsItsQuotes) {
    EXPECT_EQ(quotedStringError(""), "expected a quoted string at offset 0, found the end");
    EXPECT_EQ(quotedStringError("\"a\""), "expected a quoted string at offset 0, found '\"a\"'");
    EXPECT_EQ(quotedStringError("'"), "expected a closing quote at offset 1, found the end");
    EXPECT_EQ(quotedStringError("'ab"), "expected a closing quote at offset 3, found the end");
    EXPECT_EQ(quotedStringError("'a\\'"), "expected a closing quote at offset 4, found the end");
}

TEST(ValueParserTest, QuotedStringTakesNoSecondSpelling) {
    const std::string expected = "expected a printable character or an escape at offset 1, found ";
    EXPECT_EQ(quotedStringError("'\n'"), expected + R"('\n\'')");
    EXPECT_EQ(quotedStringError("'\xc3'"), expected + R"('\xc3\'')");
    for (const char* text : {R"('\x41')", R"('\x0a')", R"('\x27')", R"('\x5c')", R"('\xC3')",
                             R"('\t')", R"('\"')", R"('\x0')", R"('\x0g')", R"('\x)", R"('\)"}) {
        EXPECT_EQ(quotedStringError(text), expected + quotedForm(std::string_view(text).substr(1)));
    }
}

TEST(ValueParserTest, NumberEndsWhereTheDigitsEnd) {
    ValueParser parser("0,4094,18446744073709551615x");
    EXPECT_EQ(parser.number(0), 0u);
    parser.expect(",");
    EXPECT_EQ(parser.number(4094), 4094u);
    parser.expect(",");
    EXPECT_EQ(parser.number(maxNumber), maxNumber);
    parser.expect("x");
    parser.end();
}

TEST(ValueParserTest, NumberAboveItsMaximumIsRefused) {
    EXPECT_EQ(numberError("4095", 4094),
              "expected a number of at most 4094 at offset 0, found '4095'");
    EXPECT_NE(numberError("1", 0), "");
    EXPECT_NE(numberError("9", 8), "");
    EXPECT_NE(numberError("65546", 65535), ""); // 10 in 16 bits
    EXPECT_NE(numberError("18446744073709551616", maxNumber), "");
    EXPECT_NE(numberError("18446744073709551620", maxNumber), "");
    EXPECT_NE(numberError("99999999999999999999999999999999", maxNumber), "");
}

TEST(ValueParserTest, NumberIsDigitsAlone) {
    EXPECT_EQ(numberError("010", 100),
              "expected a number without leading zeros at offset 0, found '010'");
    for (const char* text : {"", "-1", "+1", " 1", "x1", "0x", "00", "/", ":"}) {
        std::string error = errorOf(text, [](ValueParser& p) {
            p.number(100);
            p.end();
        });
        EXPECT_NE(error, "") << text;
    }
}

TEST(ValueParserTest, Boolean) {
    ValueParser parser("TrueFalse");
    EXPECT_TRUE(parser.boolean());
    EXPECT_FALSE(parser.boolean());
    parser.end();
    for (const char* text : {"", "true", "Tru", "1", "yes", " True"}) {
        EXPECT_NE(errorOf(text, [](ValueParser& p) { p.boolean(); }), "") << text;
    }
}

void readPair(ValueParser& parser) {
    parser.openValue("A::Pair");
    parser.field("first");
    parser.number(9);
    parser.field("second");
    parser.boolean();
    parser.closeValue();
    parser.end();
}

TEST(ValueParserTest, ValueWithFields) {
    const std::string good = "Value('A::Pair', ** {'first': 1, 'second': True})";
    EXPECT_EQ(errorOf(good, readPair), "");

    for (size_t length = 0; length < good.size(); ++length) {
        EXPECT_NE(errorOf(good.substr(0, length), readPair), "") << length;
    }
    for (size_t at = 0; at <= good.size(); ++at) {
        std::string wider = good;
        wider.insert(at, " ");
        EXPECT_NE(errorOf(wider, readPair), "") << wider;
    }
}

TEST(ValueParserTest, ValueOfAnotherShapeIsRefused) {
    EXPECT_EQ(errorOf("Value('A::Pear', ** {'first': 1, 'second': True})", readPair),
              "expected 'Value(\\'A::Pair\\', ** {' at offset 0, "
              "found 'Value(\\'A::Pear\\', ** {\\'fi'...");
    for (const char* text :
         {"Value('A::Pair', ** {'second': True, 'first': 1})", "Value('A::Pair', ** {'first': 1})",
          "Value('A::Pair', ** {})", "Value('A::Pair', ** {'first': 1, 'second': True, })",
          "Value('A::Pair', ** {'first': 1, 'second': True, 'third': 1})",
          "Value('A::Pair', ** {, 'first': 1, 'second': True})",
          "Value('A::Pair', ** {'first': 1 'second': True})",
          "Value('A::Pair', ** {\"first\": 1, \"second\": True})",
          "value('A::Pair', ** {'first': 1, 'second': True})"}) {
        EXPECT_NE(errorOf(text, readPair), "") << text;
    }
}

TEST(ValueParserTest, ValuesNest) {
    std::string inner = valueForm("In", {{"x", "1"}, {"y", "2"}});
    std::string text = valueForm("Out", {{"a", inner}, {"b", valueForm("None", {})}, {"c", "3"}});
    ValueParser parser(text);
    parser.openValue("Out");
    parser.field("a");
    parser.openValue("In");
    parser.field("x");
    EXPECT_EQ(parser.number(9), 1u);
    parser.field("y");
    EXPECT_EQ(parser.number(9), 2u);
    parser.closeValue();
    parser.field("b");
    parser.openValue("None");
    parser.closeValue();
    parser.field("c");
    EXPECT_EQ(parser.number(9), 3u);
    parser.closeValue();
    parser.end();
}

struct Digit {
    uint64_t value;
    static Digit fromValue(ValueParser& parser) { return {parser.number(9)}; }
};

TEST(ValueParserTest, ParseValueReadsAWholeText) {
    EXPECT_EQ(parseValue<Digit>("7").value, 7u);
    EXPECT_THROW(parseValue<Digit>("7 "), ParseError);
    EXPECT_THROW(parseValue<Digit>(""), ParseError);
}

} // namespace
