#include "Platform/Base/JsonWriter.h"

#include <boost/json.hpp>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace Vela {
namespace {

namespace json = boost::json;

std::string textForm(std::string_view text) {
    return JsonWriter().value(text).take();
}
std::string readBack(std::string_view text) {
    return json::value_to<std::string>(json::parse(textForm(text)));
}

TEST(JsonWriterTest, WritesWhatIsNested) {
    JsonWriter writer;
    writer.beginObject()
        .field("name", "x")
        .field("count", 3u)
        .field("offset", -4)
        .field("rate", 1.5)
        .field("on", true)
        .field("off", false);
    writer.key("nothing").null();
    writer.key("list").beginArray().value(1).beginArray().endArray().value("two").endArray();
    writer.key("inner").beginObject().endObject();
    writer.endObject();
    EXPECT_EQ(writer.take(),
              R"({"name":"x","count":3,"offset":-4,"rate":1.5,"on":true,"off":false,)"
              R"("nothing":null,"list":[1,[],"two"],"inner":{}})"
              "\n");
    EXPECT_EQ(writer.take(), "");
}

TEST(JsonWriterTest, RowsStandInALineEach) {
    JsonWriter writer;
    writer.beginRows();
    for (int i = 0; i < 2; ++i) {
        writer.beginObject().field("i", i).field("t", std::string("t")).endObject();
    }
    writer.endArray();
    EXPECT_EQ(writer.take(), "[\n{\"i\":0,\"t\":\"t\"},\n{\"i\":1,\"t\":\"t\"}\n]\n");
    EXPECT_EQ(writer.beginRows().endArray().take(), "[]\n");
    writer.beginObject().key("rows").beginRows().value(1).value(2).endArray().field("x", 1);
    EXPECT_EQ(writer.endObject().take(), "{\"rows\":[\n1,\n2\n],\"x\":1}\n");
}

TEST(JsonWriterTest, OneDocumentAfterTheOther) {
    JsonWriter writer;
    writer.beginObject().endObject().value(1).value("a").null();
    EXPECT_EQ(writer.take(), "{}\n1\n\"a\"\nnull\n");
}

TEST(JsonWriterTest, TakenInPiecesItIsTheSame) {
    JsonWriter writer;
    std::string pieces = writer.beginObject().key("a").take();
    EXPECT_EQ(pieces, "{\"a\":");
    pieces += writer.beginArray().value(1).take();
    pieces += writer.value(2).take();
    EXPECT_EQ(writer.pending(), 0u);
    writer.beginText().addText("one ");
    EXPECT_EQ(writer.pending(), 6u);
    pieces += writer.take();
    pieces += writer.addText("\"two\"").endText().endArray().endObject().take();
    EXPECT_EQ(pieces, "{\"a\":[1,2,\"one \\\"two\\\"\"]}\n");
}

TEST(JsonWriterTest, NumbersKeepTheirValue) {
    EXPECT_EQ(JsonWriter().value(std::numeric_limits<uint64_t>::max()).take(),
              "18446744073709551615\n");
    EXPECT_EQ(JsonWriter().value(std::numeric_limits<int64_t>::min()).take(),
              "-9223372036854775808\n");
    EXPECT_EQ(JsonWriter().value(uint8_t{65}).take(), "65\n");
    EXPECT_EQ(JsonWriter().value(0.1).take(), "0.1\n");
    EXPECT_EQ(JsonWriter().value(std::numeric_limits<double>::quiet_NaN()).take(), "null\n");
    EXPECT_EQ(JsonWriter().value(-std::numeric_limits<double>::infinity()).take(), "null\n");
}

TEST(JsonWriterTest, EveryAsciiCharacterIsReadBack) {
    std::string all;
    for (int c = 0; c < 128; ++c) {
        all += static_cast<char>(c);
    }
    EXPECT_EQ(readBack(all), all);
    EXPECT_EQ(textForm("a\"b\\c\n\t\x1b\x7f/"), "\"a\\\"b\\\\c\\n\\u0009\\u001b\\u007f/\"\n");
}

TEST(JsonWriterTest, Utf8StaysAndAnythingElseIsReplaced) {
    const std::string good = "\xc2\x80 \xdf\xbf \xe0\xa0\x80 \xed\x9f\xbf \xee\x80\x80 "
                             "\xf0\x90\x80\x80 \xf4\x8f\xbf\xbf";
    EXPECT_EQ(textForm(good), "\"" + good + "\"\n");
    EXPECT_EQ(readBack(good), good);
    const std::string replaced = "\xef\xbf\xbd";
    for (std::string_view bad :
         {"\x80", "\xbf", "\xc0", "\xc1", "\xc2", "\xe0", "\xf0", "\xf5", "\xff", "\xed", "\xf4"}) {
        EXPECT_EQ(readBack(std::string(bad) + "x"), replaced + "x");
        EXPECT_EQ(readBack(bad), replaced) << "at the end";
    }
    // Overlong, surrogate, beyond the last, cut off.
    EXPECT_EQ(readBack("\xe0\x80\x80"), replaced + replaced + replaced);
    EXPECT_EQ(readBack("\xed\xa0\x80"), replaced + replaced + replaced);
    EXPECT_EQ(readBack("\xf4\x90\x80\x80"), replaced + replaced + replaced + replaced);
    EXPECT_EQ(readBack("\xe2\x82"), replaced + replaced);
}

TEST(JsonWriterTest, EveryPairOfBytesGivesWhatAParserTakes) {
    for (int a = 0; a < 256; ++a) {
        for (int b = 0; b < 256; ++b) {
            boost::system::error_code error;
            const char pair[] = {static_cast<char>(a), static_cast<char>(b)};
            auto parsed = json::parse(textForm({pair, 2}), error);
            ASSERT_FALSE(error) << a << ' ' << b;
            ASSERT_TRUE(parsed.is_string());
        }
    }
}

} // namespace
} // namespace Vela
