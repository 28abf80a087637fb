#include "Ctl/CommandLine.h"

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

namespace Ctl {
namespace {

namespace fs = std::filesystem;

class CommandLineTest : public ::testing::Test {
  protected:
    CommandLineTest() {
        unsetenv("ARPSUP_RUNTIME_DIRECTORY");
        std::string pattern = fs::temp_directory_path() / "commandlineXXXXXX";
        directory_ = mkdtemp(pattern.data());
    }
    ~CommandLineTest() override { fs::remove_all(directory_); }

    int run(std::vector<const char*> arguments) {
        out_.str("");
        errors_.str("");
        arguments.insert(arguments.begin(), "arpsupctl");
        return runCommandLine(static_cast<int>(arguments.size()), arguments.data(), out_, errors_);
    }
    bool helps(const std::string& text) const { return out_.str().find(text) != std::string::npos; }

    std::string directory_;
    std::ostringstream out_;
    std::ostringstream errors_;
};

TEST_F(CommandLineTest, HelpNamesEveryCommand) {
    EXPECT_EQ(run({"--help"}), 0);
    for (const char* text : {"show", "trace", "--runtime-directory", "/run/arpsup",
                             "ARPSUP_RUNTIME_DIRECTORY", "Exit status"}) {
        EXPECT_TRUE(helps(text)) << text;
    }
    EXPECT_EQ(errors_.str(), "");
    EXPECT_EQ(run({"show", "--help"}), 0);
    EXPECT_TRUE(helps("tech-support"));
    EXPECT_EQ(run({"trace", "--help"}), 0);
    for (const char* text : {"FILE", "--level", "--last", "--log-directory", "/var/log/arpsup"}) {
        EXPECT_TRUE(helps(text)) << text;
    }
}

TEST_F(CommandLineTest, WrongUsageIsTwo) {
    const std::vector<std::vector<const char*>> wrong = {
        {},
        {"show"},
        {"show", "everything"},
        {"strace"},
        {"trace", "--level", "10"},
        {"trace", "--level", "-1"},
        {"trace", "--last", "many"},
        {"trace", "one", "two"},
        {"--runtime-directory"},
    };
    for (const auto& arguments : wrong) {
        EXPECT_EQ(run(arguments), 2) << ::testing::PrintToString(arguments);
        EXPECT_EQ(out_.str(), "");
        EXPECT_NE(errors_.str(), "");
    }
}

TEST_F(CommandLineTest, TheRuntimeDirectoryIsTheOneGiven) {
    auto nobodyIn = [](const std::string& directory) {
        return "error: no arpsupd runs in " + directory + " (no such socket)\n";
    };
    std::string given = directory_ + "/given";
    std::string fromEnvironment = directory_ + "/environment";
    EXPECT_EQ(run({"--runtime-directory", given.c_str(), "show", "tech-support"}), 1);
    EXPECT_EQ(errors_.str(), nobodyIn(given));

    setenv("ARPSUP_RUNTIME_DIRECTORY", fromEnvironment.c_str(), 1);
    EXPECT_EQ(run({"show", "tech-support"}), 1);
    EXPECT_EQ(errors_.str(), nobodyIn(fromEnvironment));
    EXPECT_EQ(run({"--runtime-directory", given.c_str(), "show", "tech-support"}), 1);
    EXPECT_EQ(errors_.str(), nobodyIn(given));
    unsetenv("ARPSUP_RUNTIME_DIRECTORY");
}

TEST_F(CommandLineTest, TraceTakesFileOrDirectory) {
    EXPECT_EQ(run({"trace", "--log-directory", directory_.c_str()}), 1);
    EXPECT_EQ(errors_.str(), "error: no ring-buffer file (*.sl) in " + directory_ + "\n");
    std::string file = directory_ + "/none.sl";
    EXPECT_EQ(run({"trace", file.c_str(), "--level", "9", "--last", "3"}), 1);
    EXPECT_EQ(errors_.str().find(file), 0u) << errors_.str();
    EXPECT_EQ(out_.str(), "");
}

} // namespace
} // namespace Ctl
