#include "Platform/Agent/Toggle.h"

#include "Testing/TraceCapture.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vela {
namespace {

std::string errorOf(std::string_view text) {
    try {
        parseToggle(text, "t.json", "a");
    } catch (const ToggleError& error) {
        return error.what();
    }
    return "no error";
}

TEST(ParseToggle, GivesWhatTheFileSays) {
    std::string_view text = "{\"a\": true,\r\n\t\"b\" :false , \"c d\": true}\n";
    EXPECT_EQ(parseToggle(text, "t.json", "a"), true);
    EXPECT_EQ(parseToggle(text, "t.json", "b"), false);
    EXPECT_EQ(parseToggle(text, "t.json", "c d"), true);
    EXPECT_EQ(parseToggle(text, "t.json", "c"), std::nullopt);
    EXPECT_EQ(parseToggle(text, "t.json", ""), std::nullopt);
    EXPECT_EQ(parseToggle("{}", "t.json", "a"), std::nullopt);
    EXPECT_EQ(parseToggle("\n { } \n", "t.json", "a"), std::nullopt);
}

TEST(ParseToggle, NamesMayHoldAnything) {
    EXPECT_EQ(parseToggle(R"({"": true, "\u0061\"\n": false})", "t.json", ""), true);
    EXPECT_EQ(parseToggle(R"({"": true, "\u0061\"\n": false})", "t.json", "a\"\n"), false);
    EXPECT_EQ(parseToggle("{\"\xc3\xa9\": true}", "t.json", "\xc3\xa9"), true);
}

struct Malformed {
    const char* text;
    const char* error;
};

class MalformedToggleFile : public testing::TestWithParam<Malformed> {};

TEST_P(MalformedToggleFile, IsReportedWithItsPlace) {
    EXPECT_EQ(errorOf(GetParam().text), GetParam().error);
}

constexpr Malformed malformed[] = {
    {"", "t.json:1:1: the file ends; expected an object such as {\"SomeToggle\": true}"},
    {"\n\n", "t.json:3:1: the file ends; expected an object such as {\"SomeToggle\": true}"},
    {"[]", "t.json:1:1: found '['; expected an object such as {\"SomeToggle\": true}"},
    {" true", "t.json:1:2: found 'true'; expected an object such as {\"SomeToggle\": true}"},
    {"a=1", "t.json:1:1: found 'a=1'; expected an object such as {\"SomeToggle\": true}"},
    {"{", "t.json:1:2: the file ends; expected a toggle name in double quotes or '}'"},
    {"{a: true}", "t.json:1:2: found 'a'; expected a toggle name in double quotes or '}'"},
    {"{'a': true}", "t.json:1:2: found '\\'a\\''; expected a toggle name in double quotes or '}'"},
    {"{\"a", "t.json:1:4: the file ends; expected a toggle name in double quotes or '}'"},
    {"{\"a\nb\": true}", "t.json:1:2: found '\"a'; expected a toggle name in double quotes or '}'"},
    {"{\"\xff\": true}",
     "t.json:1:2: found '\"\\xff\"'; expected a toggle name in double quotes or '}'"},
    {"{\"\\x\": true}",
     "t.json:1:2: found '\"\\\\x\"'; expected a toggle name in double quotes or '}'"},
    {"{\"a\" true}", "t.json:1:6: found 'true'; expected ':'"},
    {"{\"a\": true,\n  \"b\": yes\n}",
     "t.json:2:8: found 'yes'; expected true or false for toggle 'b'"},
    {"{\"a\":\n 1}", "t.json:2:2: found '1'; expected true or false for toggle 'a'"},
    {"{\"a\": -1.5e3}", "t.json:1:7: found '-1.5e3'; expected true or false for toggle 'a'"},
    {"{\"a\": \"true\"}", "t.json:1:7: found '\"true\"'; expected true or false for toggle 'a'"},
    {"{\"a\": \"\"}", "t.json:1:7: found '\"\"'; expected true or false for toggle 'a'"},
    {"{\"a\": null}", "t.json:1:7: found 'null'; expected true or false for toggle 'a'"},
    {"{\"a\": tru}", "t.json:1:7: found 'tru'; expected true or false for toggle 'a'"},
    {"{\"a\": True}", "t.json:1:7: found 'True'; expected true or false for toggle 'a'"},
    {"{\"a\": {\"b\": true}}", "t.json:1:7: found '{'; expected true or false for toggle 'a'"},
    {"{\"a\": [true]}", "t.json:1:7: found '['; expected true or false for toggle 'a'"},
    {"{\"a\": }", "t.json:1:7: found '}'; expected true or false for toggle 'a'"},
    {"{\"a\": tr", "t.json:1:9: the file ends; expected true or false for toggle 'a'"},
    {"{\"a\": true", "t.json:1:11: the file ends; expected ',' or '}'"},
    {"{\"a\": true \"b\": true}", "t.json:1:12: found '\"b\"'; expected ',' or '}'"},
    {"{\"a\": true,}", "t.json:1:12: found '}'; expected a toggle name in double quotes"},
    {"{\"a\": true // on\n}", "t.json:1:12: found '//'; expected ',' or '}'"},
    {"{\"a\": true}\n{}", "t.json:2:1: found '{'; expected the end of the file"},
    {"{\"a\": true,\n\n\"b\": true,\n\"a\": true}",
     "t.json:4:1: toggle 'a' stands here a second time, first in line 1; expected it once"},
};

INSTANTIATE_TEST_SUITE_P(Texts, MalformedToggleFile, testing::ValuesIn(malformed));

TEST(ParseToggle, AMalformedFileHasNoToggleAtAll) {
    EXPECT_THROW(parseToggle("{\"a\": true, \"b\": 1}", "t.json", "a"), ToggleError);
    EXPECT_THROW(parseToggle("{\"b\": 1, \"a\": true}", "t.json", "a"), ToggleError);
}

TEST(ParseToggle, ErrorsStayShort) {
    EXPECT_EQ(errorOf("{\"a\": " + std::string(1000, 'x') + "}"),
              "t.json:1:7: found '" + std::string(40, 'x') +
                  "'...; expected true or false for toggle 'a'");
}

TEST(ParseToggle, LengthIsBounded) {
    std::string text = "{\"a\": true}";
    text.resize(toggleFileBytes, ' ');
    EXPECT_EQ(parseToggle(text, "t.json", "a"), true);
    EXPECT_EQ(errorOf(text + " "), "t.json: is longer than 1048576 bytes");
}

TEST(ParseToggle, EveryPrefixIsMalformed) {
    std::string text = "{\"a\": true,\n \"b\\u0041\": false}";
    for (size_t length = 0; length < text.size(); ++length) {
        EXPECT_TRUE(errorOf(text.substr(0, length)).starts_with("t.json:")) << length;
    }
    EXPECT_EQ(errorOf(text), "no error");
}

/// A toggle directory of its own per test.
class ToggleFile : public testing::Test {
  protected:
    ToggleFile() {
        std::string pattern =
            std::filesystem::temp_directory_path() / ("toggle" + std::string(6, 'X'));
        directory_ = mkdtemp(pattern.data());
        toggleDirectoryIs(directory_);
    }
    ~ToggleFile() override {
        toggleDirectoryIs("/etc/arpsup/toggles");
        std::filesystem::remove_all(directory_);
    }

    std::string path() const { return directory_ + "/A.json"; }
    void write(std::string_view text) const { std::ofstream(path()) << text; }

    /// The default both ways, and each time the one line on standard error and in the trace.
    void expectDefaultAndReport(const std::string& report) const {
        for (bool state : {true, false}) {
            Testing::TraceCapture lines("Toggle=0");
            testing::internal::CaptureStderr();
            EXPECT_EQ(getToggleState("a", "A.json", state), state);
            std::string text =
                report + "; toggle 'a' keeps its default, " + (state ? "true" : "false") + "\n";
            EXPECT_EQ(testing::internal::GetCapturedStderr(), "Toggle: " + text);
            EXPECT_TRUE(lines.text().ends_with(" - " + text)) << lines.text();
            EXPECT_EQ(lines.count("\n"), 1u);
        }
    }

    std::string directory_;
};

TEST_F(ToggleFile, DecidesForTheTogglesItNames) {
    Testing::TraceCapture lines("Toggle=9");
    testing::internal::CaptureStderr();
    write("{\"a\": false, \"b\": true}");
    EXPECT_FALSE(getToggleState("a", "A.json", true));
    EXPECT_FALSE(getToggleState("a", "A.json", false));
    EXPECT_TRUE(getToggleState("b", "A.json", false));
    EXPECT_TRUE(getToggleState("c", "A.json", true));
    EXPECT_FALSE(getToggleState("c", "A.json", false));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(lines.text(), "");
}

TEST_F(ToggleFile, IsReadByEachCall) {
    write("{\"a\": false}");
    EXPECT_FALSE(getToggleState("a", "A.json", true));
    write("{\"a\": true}");
    EXPECT_TRUE(getToggleState("a", "A.json", true));
}

TEST_F(ToggleFile, IsNotMissedWhereItIsAbsent) {
    Testing::TraceCapture lines("Toggle=9");
    testing::internal::CaptureStderr();
    EXPECT_TRUE(getToggleState("a", "A.json", true));
    EXPECT_FALSE(getToggleState("a", "A.json", false));
    toggleDirectoryIs(directory_ + "/none");
    EXPECT_TRUE(getToggleState("a", "A.json", true));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(lines.text(), "");
}

TEST_F(ToggleFile, MalformedIsLoudAndGivesTheDefault) {
    write("{\"a\": false,\n\"b\": on}");
    expectDefaultAndReport(path() + ":2:6: found 'on'; expected true or false for toggle 'b'");
}

TEST_F(ToggleFile, TooLongIsLoudAndGivesTheDefault) {
    write("{\"a\": false}" + std::string(toggleFileBytes, ' '));
    expectDefaultAndReport(path() + " is longer than 1048576 bytes");
}

TEST_F(ToggleFile, ADirectoryInItsPlaceIsLoudAndGivesTheDefault) {
    std::filesystem::create_directory(path());
    expectDefaultAndReport(path() + " is no regular file");
}

TEST_F(ToggleFile, APipeInItsPlaceIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
    expectDefaultAndReport(path() + " is no regular file");
}

TEST_F(ToggleFile, UnreadableIsLoudAndGivesTheDefault) {
    std::filesystem::create_symlink("A.json", path()); // permissions do not stop root, a loop does
    expectDefaultAndReport(path() + " cannot be read: Too many levels of symbolic links");
}

} // namespace
} // namespace Vela
