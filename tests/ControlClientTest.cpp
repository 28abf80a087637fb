// arpsupctl's side of the control socket, with the daemon's side in another process.

#include "Ctl/ControlClient.h"
#include "Ctl/ShowTechSupport.h"

#include "Host/ControlSocket.h"
#include "Platform/Base/UniqueFd.h"
#include "Platform/Scheduler/ActivityLoop.h"

#include <array>
#include <boost/json.hpp>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <grp.h>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Ctl {
namespace {

namespace fs = std::filesystem;

class ControlClientTest : public ::testing::Test {
  protected:
    ControlClientTest() {
        std::string pattern = fs::temp_directory_path() / "clientXXXXXX";
        directory_ = mkdtemp(pattern.data());
        fs::create_directory(directory_ / "run");
        runtime_ = directory_ / "run";
        fs::permissions(directory_, fs::perms(0755));
    }
    ~ControlClientTest() override {
        if (daemon_ > 0) {
            kill(daemon_, SIGKILL);
            waitpid(daemon_, nullptr, 0);
        }
        fs::permissions(runtime_, fs::perms(0755));
        fs::remove_all(directory_);
    }

    static void say(int fd, std::string_view text) {
        while (!text.empty()) {
            ssize_t count = write(fd, text.data(), text.size());
            if (count <= 0) {
                _exit(2);
            }
            text.remove_prefix(static_cast<size_t>(count));
        }
    }
    static std::string greatText() {
        std::string text;
        while (text.size() < 3'000'000) {
            text += "line " + std::to_string(text.size()) + "\n";
        }
        return text + std::string("\0\xff without an end", 17);
    }

    /// Runs `serve` in another process, once it listens.
    void start(const std::function<void(int ready)>& serve) {
        std::array<int, 2> ends;
        ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        daemon_ = fork();
        if (daemon_ == 0) {
            alarm(60);
            serve(ends[1]);
            _exit(0);
        }
        close(ends[1]);
        char byte;
        ASSERT_EQ(read(ends[0], &byte, 1), 1);
        close(ends[0]);
    }
    void startDaemon() {
        start([this](int ready) {
            Host::ControlCommands commands;
            commands.refusal = [](const std::string& command) {
                return command == "hello" || command == "great"
                           ? ""
                           : Host::unknownCommand(command, "hello, great");
            };
            commands.handler = [](const std::string& command, int fd) {
                say(fd, command == "great" ? greatText() : "hello\nerror: only text\n");
            };
            Vela::SystemClock clock;
            auto scheduler =
                Vela::make<Vela::TaskScheduler>(clock, Vela::TaskScheduler::Settings{});
            auto socket = Vela::make<Host::ControlSocket>(scheduler, runtime_ + "/control", "",
                                                          std::move(commands));
            say(ready, "x");
            Vela::ActivityLoop(scheduler).run();
        });
    }
    /// A server that answers every byte with `answer` and closes, or keeps silent if that is empty.
    void startServer(const std::string& answer) {
        Vela::UniqueFd fd = listening();
        start([&](int ready) {
            say(ready, "x");
            Vela::UniqueFd client(accept(fd.get(), nullptr, nullptr));
            std::array<char, 100> bytes;
            if (read(client.get(), bytes.data(), bytes.size()) <= 0) {
                _exit(2);
            }
            say(client.get(), answer);
            while (answer.empty()) {
                pause();
            }
        });
    }
    Vela::UniqueFd listening() const {
        Vela::UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (runtime_ + "/control").copy(address.sun_path, sizeof address.sun_path - 1);
        const void* any = &address;
        EXPECT_EQ(bind(fd.get(), static_cast<const sockaddr*>(any), sizeof address), 0);
        EXPECT_EQ(listen(fd.get(), 4), 0);
        return fd;
    }

    int ask(const std::string& command, std::chrono::milliseconds patience = controlPatience) {
        Vela::UniqueFd output(
            open((directory_ / "output").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
        errors_.str("");
        return askDaemon(runtime_, command, output.get(), errors_, patience);
    }
    std::string output() const {
        std::ifstream file(directory_ / "output", std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    void expectFailure(const std::string& error) {
        EXPECT_EQ(ask("hello"), 1);
        EXPECT_EQ(errors_.str(), "error: " + error + "\n");
        EXPECT_EQ(output(), "");
    }

    fs::path directory_;
    std::string runtime_;
    std::ostringstream errors_;
    pid_t daemon_ = -1;
};

TEST_F(ControlClientTest, CopiesTheAnswer) {
    startDaemon();
    EXPECT_EQ(ask("hello"), 0);
    EXPECT_EQ(output(), "hello\nerror: only text\n");
    EXPECT_EQ(errors_.str(), "");
    EXPECT_EQ(ask("great"), 0);
    EXPECT_EQ(output(), greatText());
    EXPECT_EQ(errors_.str(), "");
}

TEST_F(ControlClientTest, HandsTheAnswerOnUntilToldOtherwise) {
    startDaemon();
    std::string taken;
    EXPECT_EQ(askDaemon(
                  runtime_, "great",
                  [&](std::string_view piece) {
                      EXPECT_NE(piece, "");
                      taken += piece;
                      return true;
                  },
                  errors_),
              0);
    EXPECT_EQ(taken, greatText());
    int calls = 0;
    EXPECT_EQ(askDaemon(
                  runtime_, "great", [&](std::string_view) { return ++calls < 2; }, errors_),
              1);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(errors_.str(), "") << "who takes it says why";
}

// --- A dump as JSON

TEST_F(ControlClientTest, SectionsOfADumpAsJson) {
    const std::string dump = "arpsupd /run\n  process=1\nEntityManager\n    \"quoted\" \xff\n\n"
                             "  more\nEmpty\nLast one\n  without an end";
    startServer("ok\n" + dump);
    std::ostringstream out;
    EXPECT_EQ(showTechSupportJson(runtime_, out, errors_), 0) << errors_.str();
    EXPECT_EQ(boost::json::parse(out.str()), boost::json::parse(R"({"sections":[
        {"title":"arpsupd /run","text":"  process=1\n"},
        {"title":"EntityManager","text":"    \"quoted\" \ufffd\n\n  more\n"},
        {"title":"Empty","text":""},
        {"title":"Last one","text":"  without an end\n"}]})"))
        << out.str();
}

TEST_F(ControlClientTest, AGreatDumpAsJson) {
    // Without unindented lines there is one section: the first line gives its title.
    std::string body;
    while (body.size() < 1'000'000) {
        body += "  line " + std::to_string(body.size()) + "\n";
    }
    startServer("ok\nTitle\n" + body);
    std::ostringstream out;
    EXPECT_EQ(showTechSupportJson(runtime_, out, errors_), 0) << errors_.str();
    const auto sections = boost::json::parse(out.str()).at("sections").as_array();
    ASSERT_EQ(sections.size(), 1u);
    EXPECT_EQ(boost::json::value_to<std::string>(sections[0].at("text")), body);
}

TEST_F(ControlClientTest, ADumpAsJsonThatIsRefusedOrEmptyOrCannotBeWritten) {
    std::ostringstream out;
    EXPECT_EQ(showTechSupportJson(runtime_, out, errors_), 1);
    EXPECT_EQ(errors_.str(), "error: no arpsupd runs in " + runtime_ + " (no such socket)\n");
    EXPECT_EQ(out.str(), "");
    startServer("ok\nTitle\n  text\n");
    errors_.str("");
    std::ofstream full("/dev/full");
    EXPECT_EQ(showTechSupportJson(runtime_, full, errors_), 1);
    EXPECT_EQ(errors_.str(), "error: the answer cannot be written\n");
}

TEST_F(ControlClientTest, AnEmptyDumpAsJson) {
    startServer("ok\n");
    std::ostringstream out;
    EXPECT_EQ(showTechSupportJson(runtime_, out, errors_), 0);
    EXPECT_EQ(out.str(), "{\"sections\":[]}\n");
}

TEST_F(ControlClientTest, AnErrorIsNoOutput) {
    startDaemon();
    EXPECT_EQ(ask("helo"), 1);
    EXPECT_EQ(errors_.str(), "error: unknown command \"helo\"; known: hello, great\n");
    EXPECT_EQ(output(), "");
    EXPECT_EQ(ask("he\1lo"), 1);
    EXPECT_EQ(errors_.str(), "error: byte 3 of the command is 0x01, not printable ASCII\n");
    EXPECT_EQ(output(), "");
    for (int i = 0; i < 20; ++i) { // it is answered while it still sends
        EXPECT_EQ(ask(std::string(1'000'000, 'x')), 1);
        EXPECT_EQ(errors_.str(), "error: the command is longer than 4096 bytes\n");
        EXPECT_EQ(output(), "");
    }
}

TEST_F(ControlClientTest, AFullOutputFails) {
    startDaemon();
    Vela::UniqueFd full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(askDaemon(runtime_, "great", full.get(), errors_), 1);
    EXPECT_EQ(errors_.str(), "error: the answer cannot be written: No space left on device\n");
}

TEST_F(ControlClientTest, WithoutADaemon) {
    expectFailure("no arpsupd runs in " + runtime_ + " (no such socket)");
    { Vela::UniqueFd dead = listening(); }
    expectFailure("no arpsupd runs in " + runtime_ + " any more (nobody listens on its socket)");
    runtime_ = directory_ / "output"; // a file
    expectFailure("no arpsupd runs in " + runtime_ + " (no such socket)");
    runtime_ = directory_ / std::string(100, 'x');
    expectFailure(runtime_ + "/control: File name too long");
    runtime_ = directory_ / "run";
}

TEST_F(ControlClientTest, WithoutPermissionTheGroupIsNamed) {
    startDaemon();
    const group* own = getgrgid(getegid());
    ASSERT_NE(own, nullptr);
    const std::string refusal =
        "error: no permission to ask the arpsupd in " + runtime_ + ": that is for root";
    // Root may do everything, so another user asks.
    auto answerToSomebody = [this] {
        std::array<int, 2> ends;
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        pid_t pid = fork();
        if (pid == 0) {
            if (geteuid() == 0 &&
                (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0)) {
                _exit(2);
            }
            std::ostringstream errors;
            int status = askDaemon(runtime_, "hello", STDOUT_FILENO, errors);
            say(ends[1], errors.str());
            _exit(status);
        }
        close(ends[1]);
        std::string text;
        for (char c; read(ends[0], &c, 1) == 1;) {
            text += c;
        }
        close(ends[0]);
        int status = 0;
        EXPECT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_EQ(status, 1 << 8) << "exit status 1";
        return text;
    };
    fs::permissions(runtime_ + "/control", fs::perms(0));
    EXPECT_EQ(answerToSomebody(), refusal + " and the group \"" + own->gr_name + "\"\n");
    fs::permissions(runtime_, fs::perms(0));
    EXPECT_EQ(answerToSomebody(), refusal + "\n");
}

TEST_F(ControlClientTest, ADaemonThatClosesWithoutAnAnswer) {
    startServer("half a status line");
    expectFailure("the arpsupd in " + runtime_ + " closed the connection without an answer");
}

TEST_F(ControlClientTest, ADaemonThatHangsIsNotWaitedForForEver) {
    startServer("");
    EXPECT_EQ(ask("hello", std::chrono::milliseconds(1)), 1);
    EXPECT_EQ(errors_.str(), "error: the arpsupd in " + runtime_ + " does not answer\n");
}

} // namespace
} // namespace Ctl
