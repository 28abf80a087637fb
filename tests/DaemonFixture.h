#pragma once

#include "Testing/ChildProcess.h"
#include "Testing/Eventually.h"
#include "Testing/TemporaryDirectory.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace Host {

using Testing::ChildProcess;
using Testing::eventually;

struct Answer {
    int status = -1;
    std::string output;
    std::string errors;
};

inline bool holds(const std::string& text, std::string_view piece) {
    return text.find(piece) != text.npos;
}
inline long lines(const std::string& text) {
    return std::count(text.begin(), text.end(), '\n');
}

/// arpsupd and arpsupctl as an operator has them: the real programs in processes of their own, in
/// directories of the test's own.
class DaemonFixture : public ::testing::Test {
  protected:
    DaemonFixture() {
        for (const char* name : {"SWIFTLOGDIR", "VELA_TRACE", "ARPSUP_RUNTIME_DIRECTORY"}) {
            unsetenv(name);
        }
        configure();
    }

    std::string path(const std::string& name) const { return directory_.path() + "/" + name; }
    std::string file() const { return path("arpsupd.toml"); }
    std::string directories() const {
        return "runtime_directory = \"" + path("run") + "\"\nlog_directory = \"" + path("log") +
               "\"\ntoggle_directory = \"" + path("toggles") + "\"\n";
    }
    /// Writes the configuration: the directories of this test, the agent and `rest`.
    void configure(const std::string& rest = "", const std::string& agent = AGENT_LIBRARY) {
        writeFile(directories() + "agent_library = \"" + agent + "\"\n" + rest);
    }
    void writeFile(const std::string& text) const { std::ofstream(file()) << text; }

    /// arpsupd with its mounts complete.
    void start() {
        startOnly();
        ASSERT_TRUE(eventually([this] { return isReady(); })) << daemon_->errors();
    }
    bool isReady() const { return holds(techSupport().output, "ArpSuppressionMounts"); }
    void startOnly() { daemon_.emplace(ARPSUPD, std::vector<std::string>{"--config", file()}); }

    void stop() {
        daemon_->signal(SIGTERM);
        ASSERT_EQ(daemon_->status(), 0) << daemon_->errors();
    }
    void killIt() {
        daemon_->signal(SIGKILL);
        ASSERT_EQ(daemon_->status(), -SIGKILL);
    }
    /// Has the configuration read again, and waits until that is done.
    void reload() {
        size_t before = daemon_->errors().size();
        daemon_->signal(SIGHUP);
        ASSERT_TRUE(eventually([&] {
            std::string said = daemon_->errors().substr(before);
            return holds(said, "again") || holds(said, "stays");
        })) << daemon_->errors();
    }

    static Answer run(const std::string& program, const std::vector<std::string>& arguments) {
        ChildProcess child(program, arguments);
        auto status = child.status();
        EXPECT_TRUE(status) << program << " does not end";
        return {status.value_or(-1000), child.output(), child.errors()};
    }
    Answer arpsupd(const std::vector<std::string>& arguments) const {
        return run(ARPSUPD, arguments);
    }
    Answer arpsupctl(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--runtime-directory", path("run")});
        return run(ARPSUPCTL, arguments);
    }
    Answer techSupport() const { return arpsupctl({"show", "tech-support"}); }
    Answer trace() const { return arpsupctl({"trace", "--log-directory", path("log")}); }
    void expectNoStart(const std::string& why) {
        Answer answer = arpsupd({"--config", file()});
        EXPECT_EQ(answer.status, 1);
        EXPECT_EQ(answer.output, "");
        EXPECT_EQ(answer.errors, "arpsupd: " + why + "\n");
    }

    Testing::TemporaryDirectory directory_;
    std::optional<ChildProcess> daemon_;
};

} // namespace Host
