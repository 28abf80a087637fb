// The control socket with real clients and forked children; time is simulated.

#include "Host/ControlSocket.h"

#include "Host/StartError.h"
#include "Platform/State/DumpContext.h"
#include "Testing/CoreFixture.h"
#include "Testing/SocketEnd.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <grp.h>
#include <map>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace Host {
namespace {

namespace fs = std::filesystem;
using Testing::SocketEnd;

std::string readLine(int fd) {
    std::string line;
    for (char c; read(fd, &c, 1) == 1 && c != '\n';) {
        line += c;
    }
    return line;
}

void say(int fd, const std::string& text) {
    size_t sent = 0;
    while (sent < text.size()) {
        ssize_t count = write(fd, text.data() + sent, text.size() - sent);
        if (count <= 0) {
            _exit(2);
        }
        sent += static_cast<size_t>(count);
    }
}

class ControlSocketTest : public Testing::CoreFixture {
  protected:
    ControlSocketTest() {
        std::string pattern = fs::temp_directory_path() / "controlXXXXXX";
        directory_ = mkdtemp(pattern.data());
        path_ = directory_ / "control";
        commands_["say hello"] = [](int fd) { say(fd, "hello\n"); };
        commands_["wait"] = [](int fd) {
            say(fd, "go on\n");
            say(fd, readLine(fd));
        };
    }
    ~ControlSocketTest() override {
        socket_.reset();
        fs::remove_all(directory_);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    }

    void listen(const std::string& group = "") {
        ControlCommands commands;
        commands.refusal = [this](const std::string& command) {
            return commands_.count(command) ? "" : unknownCommand(command, "say hello, wait");
        };
        commands.handler = [this](const std::string& command, int fd) { commands_[command](fd); };
        socket_ = Vela::make<ControlSocket>(scheduler(), path_, group, std::move(commands));
    }
    std::string listenError(const std::string& group = "") {
        try {
            listen(group);
            return "";
        } catch (const StartError& error) {
            return error.what();
        }
    }

    SocketEnd connected() const {
        Vela::UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path_.string().copy(address.sun_path, sizeof address.sun_path - 1);
        const void* any = &address;
        EXPECT_EQ(connect(fd.get(), static_cast<const sockaddr*>(any), sizeof address), 0) << errno;
        return SocketEnd(std::move(fd));
    }
    SocketEnd asking(const std::string& command) const {
        SocketEnd client = connected();
        client.put(command + "\n");
        return client;
    }

    /// Turns until that is so, for half a minute at most.
    template <class Condition>
    bool until(Condition condition) {
        auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            scheduler()->turn(std::chrono::milliseconds(5));
        }
        return true;
    }
    bool untilReceived(SocketEnd& client, const std::string& text) {
        return until([&] {
            client.read();
            return client.received() == text;
        });
    }
    void expectAnswer(SocketEnd& client, const std::string& answer) {
        EXPECT_TRUE(until([&] {
            client.read();
            return client.ended();
        }));
        EXPECT_EQ(client.received(), answer);
    }
    void expectAnswer(SocketEnd&& client, const std::string& answer) {
        expectAnswer(client, answer);
    }
    bool untilNoChildren() {
        return until([this] { return socket_->children() == 0; });
    }

    fs::path directory_;
    fs::path path_;
    std::map<std::string, std::function<void(int)>> commands_;
    Vela::Owned<ControlSocket> socket_;
};

TEST_F(ControlSocketTest, AnswersACommand) {
    listen();
    for (int i = 0; i < 3; ++i) {
        expectAnswer(asking("say hello"), "ok\nhello\n");
    }
    EXPECT_TRUE(untilNoChildren());
    EXPECT_EQ(socket_->connections(), 0u);
    EXPECT_FALSE(scheduler()->nextDue()) << "a timer is left";
}

TEST_F(ControlSocketTest, UnknownCommandsAreRefusedWithoutAChild) {
    listen();
    static int forks = 0;
    pthread_atfork([] { ++forks; }, nullptr, nullptr);
    expectAnswer(asking("say good bye"),
                 "error: unknown command \"say good bye\"; known: say hello, wait\n");
    expectAnswer(asking(""), "error: unknown command \"\"; known: say hello, wait\n");
    expectAnswer(asking("say hello "),
                 "error: unknown command \"say hello \"; known: say hello, wait\n");
    expectAnswer(asking(std::string(4096, 'x')), "error: unknown command \"" +
                                                     std::string(100, 'x') +
                                                     "...\"; known: say hello, wait\n");
    EXPECT_EQ(forks, 0);
    expectAnswer(asking("say hello"), "ok\nhello\n");
    EXPECT_EQ(forks, 1);
}

TEST_F(ControlSocketTest, WhatIsNoCommandIsRefused) {
    listen();
    expectAnswer(asking("say\thello"),
                 "error: byte 4 of the command is 0x09, not printable ASCII\n");
    expectAnswer(asking(std::string(4097, 'x')), "error: the command is longer than 4096 bytes\n");
    auto client = connected();
    client.put("say");
    client.putEnd();
    expectAnswer(client, "error: the command does not end with a line feed\n");
}

TEST_F(ControlSocketTest, AChildHasTheDefaultsOfAProcess) {
    commands_["say hello"] = [parent = getpid(), nice = getpriority(PRIO_PROCESS, 0)](int fd) {
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        int blocked = 0;
        for (int signal = 1; signal < 32; ++signal) {
            blocked += sigismember(&mask, signal);
        }
        std::string fds;
        for (int other = 3; other < 1024; ++other) {
            fds += fcntl(other, F_GETFD) >= 0 && other != fd ? std::to_string(other) + " " : "";
        }
        int flags = fcntl(fd, F_GETFL);
        say(fd, "other process=" + std::to_string(getpid() != parent && getppid() == parent) +
                    " blocked=" + std::to_string(blocked) + " fds=" + fds +
                    " blocks=" + std::to_string(!(flags & O_NONBLOCK)) +
                    " nicer=" + std::to_string(getpriority(PRIO_PROCESS, 0) > nice || nice > 9));
    };
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    Vela::UniqueFd others(open("/dev/null", O_RDONLY));
    listen();
    auto idle = connected();
    expectAnswer(asking("say hello"), "ok\nother process=1 blocked=0 fds= blocks=1 nicer=1");
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_TRUE(untilNoChildren());
}

TEST_F(ControlSocketTest, WhatAChildChangesNobodySees) {
    int changed = 0;
    commands_["say hello"] = [&](int fd) {
        ++changed;
        say(fd, std::to_string(changed));
    };
    listen();
    expectAnswer(asking("say hello"), "ok\n1");
    expectAnswer(asking("say hello"), "ok\n1");
    EXPECT_EQ(changed, 0);
}

TEST_F(ControlSocketTest, ASlowReaderOfAGreatAnswerStopsNobody) {
    const std::string great(10'000'000, 'g');
    commands_["great"] = [&](int fd) { say(fd, great); };
    listen();
    auto slow = asking("great");
    for (int i = 0; i < 5; ++i) {
        expectAnswer(asking("say hello"), "ok\nhello\n");
    }
    EXPECT_TRUE(until([this] { return socket_->children() == 1; }));
    expectAnswer(slow, "ok\n" + great);
    EXPECT_TRUE(untilNoChildren());
}

TEST_F(ControlSocketTest, AClientThatLeavesInTheMiddleEndsItsChild) {
    commands_["endless"] = [](int fd) {
        while (true) {
            say(fd, std::string(10000, 'e'));
        }
    };
    listen();
    auto client = asking("endless");
    EXPECT_TRUE(until([&] {
        client.read();
        return client.received().size() > 10000;
    }));
    EXPECT_EQ(socket_->children(), 1u);
    client.reset();
    EXPECT_TRUE(untilNoChildren());

    client = connected();
    client.put("say he");
    EXPECT_TRUE(until([this] { return socket_->connections() == 1; }));
    client.reset();
    EXPECT_TRUE(until([this] { return socket_->connections() == 0; }));
    EXPECT_EQ(socket_->children(), 0u);
}

TEST_F(ControlSocketTest, AChildThatFailsEndsItsAnswerOnly) {
    commands_["throws"] = [](int) { throw std::runtime_error("no such thing"); };
    commands_["dies"] = [](int fd) {
        say(fd, "half");
        raise(SIGKILL);
    };
    listen();
    expectAnswer(asking("throws"), "ok\n");
    expectAnswer(asking("dies"), "ok\nhalf");
    expectAnswer(asking("say hello"), "ok\nhello\n");
    EXPECT_TRUE(untilNoChildren());
}

TEST_F(ControlSocketTest, FourChildrenAreTheMost) {
    listen();
    std::vector<SocketEnd> clients;
    for (size_t i = 0; i < ControlSocket::mostChildren; ++i) {
        clients.push_back(asking("wait"));
        EXPECT_TRUE(untilReceived(clients.back(), "ok\ngo on\n"));
    }
    EXPECT_EQ(socket_->children(), 4u);
    expectAnswer(asking("say hello"), "error: busy\n");
    expectAnswer(asking("nonsense"),
                 "error: unknown command \"nonsense\"; known: say hello, wait\n");
    clients[2].put("done\n");
    expectAnswer(clients[2], "ok\ngo on\ndone");
    EXPECT_TRUE(until([this] { return socket_->children() == 3; }));
    expectAnswer(asking("say hello"), "ok\nhello\n");
}

TEST_F(ControlSocketTest, SixteenConnectionsAreTheMost) {
    listen();
    std::vector<SocketEnd> clients;
    for (size_t i = 0; i < ControlSocket::mostConnections; ++i) {
        clients.push_back(connected());
    }
    EXPECT_TRUE(until([this] { return socket_->connections() == 16; }));
    expectAnswer(connected(), "error: busy\n");
    clients[3].put("say hello\n");
    expectAnswer(clients[3], "ok\nhello\n");
    expectAnswer(asking("say hello"), "ok\nhello\n");

    runFor(10.1);
    EXPECT_EQ(socket_->connections(), 0u);
    expectAnswer(clients[0], "error: no command came for 10 seconds\n");
    expectAnswer(asking("say hello"), "ok\nhello\n");
}

TEST_F(ControlSocketTest, AChildIsKilledAfterAMinute) {
    listen();
    auto client = asking("wait");
    EXPECT_TRUE(untilReceived(client, "ok\ngo on\n"));
    runFor(59);
    client.read();
    EXPECT_FALSE(client.ended());
    EXPECT_EQ(socket_->children(), 1u);
    clock().advance(std::chrono::seconds(2));
    expectAnswer(client, "ok\ngo on\n");
    EXPECT_TRUE(untilNoChildren());
}

TEST_F(ControlSocketTest, DestroyedItEndsConnectionsAndChildren) {
    listen();
    auto waiting = asking("wait");
    EXPECT_TRUE(untilReceived(waiting, "ok\ngo on\n"));
    auto idle = connected();
    EXPECT_TRUE(until([this] { return socket_->connections() == 1; }));
    socket_.reset();
    idle.read();
    waiting.read();
    EXPECT_TRUE(idle.ended());
    EXPECT_TRUE(waiting.ended());
    EXPECT_FALSE(fs::exists(path_));
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(ControlSocketTest, TheSocketIsForItsOwnerAndGroup) {
    mode_t before = umask(0);
    listen();
    EXPECT_EQ(umask(before), 0u);
    EXPECT_EQ(fs::status(path_).permissions(), fs::perms(0660));

    const group* own = getgrgid(getegid());
    ASSERT_NE(own, nullptr);
    socket_.reset();
    listen(own->gr_name);
    struct stat status {};
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_gid, getegid());
    EXPECT_EQ(fs::status(path_).permissions(), fs::perms(0660));
}

TEST_F(ControlSocketTest, AnUnknownGroupIsRefused) {
    EXPECT_EQ(listenError("no-such-group"), "control socket: there is no group \"no-such-group\"");
    EXPECT_FALSE(fs::exists(path_));
}

TEST_F(ControlSocketTest, TheSocketOfADeadHostIsReplaced) {
    pid_t host = fork();
    if (host == 0) {
        listen();
        raise(SIGKILL);
    }
    ASSERT_EQ(waitpid(host, nullptr, 0), host);
    ASSERT_TRUE(fs::is_socket(path_));
    listen();
    expectAnswer(asking("say hello"), "ok\nhello\n");
}

TEST_F(ControlSocketTest, WhatIsNoSocketStays) {
    std::ofstream(path_) << "x";
    EXPECT_EQ(listenError(), "control socket " + path_.string() + ": something else stands there");
    EXPECT_EQ(fs::file_size(path_), 1u);

    path_ = directory_ / "no" / "control";
    EXPECT_EQ(listenError(), "control socket " + path_.string() + ": No such file or directory");
    path_ = directory_ / std::string(100, 'x');
    EXPECT_EQ(listenError(),
              "control socket " + path_.string() + ": the path is longer than 107 bytes");
}

TEST_F(ControlSocketTest, WithoutDescriptorsClientsWaitUntilThereAreSome) {
    listen();
    // The sanitizers need descriptors themselves for what they have not seen before.
    expectAnswer(asking("say hello"), "ok\nhello\n");
    EXPECT_TRUE(untilNoChildren());
    auto client = asking("say hello");
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit none{0, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    runUntilIdle();
    EXPECT_EQ(socket_->connections(), 0u);
    setrlimit(RLIMIT_NOFILE, &before);
    runFor(1.1);
    expectAnswer(client, "ok\nhello\n");
}

TEST_F(ControlSocketTest, DumpsItsCounts) {
    listen();
    auto client = connected();
    EXPECT_TRUE(until([this] { return socket_->connections() == 1; }));
    Vela::DumpContext dump;
    socket_->dumpState(dump, 2);
    EXPECT_EQ(dump.text(),
              "  ControlSocket " + path_.string() + "\n    connections=1 children=0\n");
}

} // namespace
} // namespace Host
