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
    for (const char* text : {"show", "explain", "trace", "--runtime-directory", "/run/arpsup",
                             "ARPSUP_RUNTIME_DIRECTORY", "Exit status"}) {
        EXPECT_TRUE(helps(text)) << text;
    }
    EXPECT_EQ(errors_.str(), "");
    EXPECT_EQ(run({"show", "--help"}), 0);
    for (const char* text :
         {"status", "vlans", "bindings", "counters", "forwarding-plane", "tech-support"}) {
        EXPECT_TRUE(helps(text)) << text;
    }
    EXPECT_FALSE(helps("Exit status")) << "that stands above";
    const std::vector<std::vector<const char*>> leaves = {{"show", "status"},
                                                          {"show", "vlans"},
                                                          {"show", "bindings", "remote"},
                                                          {"show", "bindings", "local"},
                                                          {"explain"},
                                                          {"show", "counters"},
                                                          {"show", "forwarding-plane"},
                                                          {"show", "tech-support"},
                                                          {"trace"}};
    for (auto arguments : leaves) {
        arguments.push_back("--help");
        EXPECT_EQ(run(arguments), 0);
        EXPECT_TRUE(helps("-j,--json")) << arguments[arguments.size() - 2];
        EXPECT_EQ(errors_.str(), "");
    }
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
        {"-j"},
        {"show", "status", "0"},
        {"show", "status", "4095"},
        {"show", "status", "ten"},
        {"show", "status", "10", "20"},
        {"show", "vlans", "10"},
        {"show", "bindings"},
        {"show", "bindings", "all"},
        {"show", "bindings", "local", "10.0.0"},
        {"show", "bindings", "local", "--vlan", "0"},
        {"explain"},
        {"explain", "10.0.0"},
        {"explain", "10.0.0.1", "10.0.0.2"},
        {"explain", "10.0.0.1", "--vlan", "4095"},
        {"explain", "--vlan", "10"},
        {"trace", "--address", "ten"},
        {"trace", "--vlan", "0"},
        {"show", "bindings", "remote", "10.0.0"},
        {"show", "bindings", "remote", ""},
        {"show", "bindings", "remote", "10.0.0.1", "10.0.0.2"},
        {"show", "bindings", "remote", "--vlan", "0"},
        {"show", "bindings", "remote", "--vlan", "5000"},
        {"show", "bindings", "remote", "--vlan"},
        {"show", "counters", "--watch", "0"},
        {"show", "counters", "--watch", "-1"},
        {"show", "counters", "--watch", "often"},
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
    const std::vector<std::vector<const char*>> askers = {
        {"tech-support"},      {"tech-support", "-j"}, {"status"},          {"status", "10"},
        {"bindings", "local"}, {"vlans", "-j"},        {"forwarding-plane"}};
    for (auto arguments : askers) {
        arguments.insert(arguments.begin(), {"--runtime-directory", given.c_str(), "show"});
        EXPECT_EQ(run(arguments), 1);
        EXPECT_EQ(errors_.str(), nobodyIn(given)) << arguments[3];
        EXPECT_EQ(out_.str(), "");
    }
    EXPECT_EQ(run({"--runtime-directory", given.c_str(), "show", "bindings", "remote"}), 1);
    EXPECT_EQ(errors_.str(),
              "error: there is no table of remote bindings: no arpsupd has run in " + given + "\n");

    setenv("ARPSUP_RUNTIME_DIRECTORY", fromEnvironment.c_str(), 1);
    EXPECT_EQ(run({"show", "tech-support"}), 1);
    EXPECT_EQ(errors_.str(), nobodyIn(fromEnvironment));
    EXPECT_EQ(run({"--runtime-directory", given.c_str(), "show", "tech-support"}), 1);
    EXPECT_EQ(errors_.str(), nobodyIn(given));
    unsetenv("ARPSUP_RUNTIME_DIRECTORY");
}

TEST_F(CommandLineTest, AnExplanationNeedsNoDaemonForTheEvents) {
    std::string given = directory_ + "/given";
    auto explained = [&](std::vector<const char*> more) {
        std::vector<const char*> arguments = {
            "--runtime-directory", given.c_str(),     "explain", "10.0.0.2",
            "--log-directory",     directory_.c_str()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run(arguments);
    };
    EXPECT_EQ(explained({}), 1);
    EXPECT_EQ(out_.str(), "last events\nnone\n");
    EXPECT_EQ(errors_.str(), "error: no arpsupd runs in " + given +
                                 " (no such socket)\n"
                                 "error: no ring-buffer file (*.sl) in " +
                                 directory_ + "\n");
    EXPECT_EQ(explained({"--vlan", "10", "-j"}), 1);
    EXPECT_EQ(out_.str(), "{\"now\":null,\n\"events\":[]}\n");
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
