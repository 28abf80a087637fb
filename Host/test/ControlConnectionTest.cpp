#include "Host/ControlConnection.h"

#include "Testing/CoreFixture.h"
#include "Testing/SocketEnd.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <vector>

namespace Host {
namespace {

/// A connection whose commands are carried out at once.
class ControlConnectionTest : public Testing::CoreFixture {
  protected:
    ControlConnectionTest() {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        client_ = Testing::SocketEnd(Vela::UniqueFd(ends[1]));
        auto start = [this](const std::string& command, int fd) {
            commands_.push_back(command);
            EXPECT_FALSE(fcntl(fd, F_GETFL) & O_NONBLOCK) << "who answers may block";
            if (refusal_.empty()) {
                EXPECT_EQ(write(fd, "ok\ndone", 7), 7);
            }
            return refusal_;
        };
        auto ended = [this] {
            ++ended_;
            connection_.reset();
        };
        connection_ = Vela::make<ControlConnection>(scheduler(), Vela::UniqueFd(ends[0]),
                                                    ControlConnection::Callbacks{start, ended});
    }

    void expectOpen() {
        runUntilIdle();
        client_.read();
        EXPECT_EQ(client_.received(), "");
        EXPECT_FALSE(client_.ended());
        EXPECT_EQ(ended_, 0);
        EXPECT_TRUE(commands_.empty());
    }
    void expectAnswer(const std::string& answer, const std::vector<std::string>& commands) {
        runUntilIdle();
        client_.read();
        EXPECT_EQ(client_.received(), answer);
        EXPECT_TRUE(client_.ended());
        EXPECT_EQ(ended_, 1);
        EXPECT_EQ(commands_, commands);
        EXPECT_FALSE(scheduler()->nextDue()) << "a timer is left";
    }

    Testing::SocketEnd client_;
    Vela::Owned<ControlConnection> connection_;
    std::vector<std::string> commands_;
    std::string refusal_;
    int ended_ = 0;
};

TEST_F(ControlConnectionTest, PassesOnALine) {
    expectOpen();
    client_.put("show counters\n");
    expectAnswer("ok\ndone", {"show counters"});
}

TEST_F(ControlConnectionTest, PutsPiecesTogether) {
    for (const char* piece : {"s", "how", " ", "counters"}) {
        client_.put(piece);
        expectOpen();
    }
    client_.put("\n");
    expectAnswer("ok\ndone", {"show counters"});
}

TEST_F(ControlConnectionTest, OnlyTheFirstLineCounts) {
    client_.put("one\ntwo\nthree\n" + std::string(20000, 'x'));
    expectAnswer("ok\ndone", {"one"});
}

TEST_F(ControlConnectionTest, AnswersWithTheRefusal) {
    refusal_ = "busy";
    client_.put("show counters\n");
    expectAnswer("error: busy\n", {"show counters"});
}

TEST_F(ControlConnectionTest, NamesBytesThatDoNotBelongThere) {
    client_.put(std::string_view("show\0counters\n", 14));
    expectAnswer("error: byte 5 of the command is 0x00, not printable ASCII\n", {});
}

TEST_F(ControlConnectionTest, TheLongestLinePasses) {
    std::string longest(4096, 'x');
    client_.put(longest + "\n");
    expectAnswer("ok\ndone", {longest});
}

TEST_F(ControlConnectionTest, AnOverlongLineIsAnError) {
    client_.put(std::string(60000, 'x'));
    expectAnswer("error: the command is longer than 4096 bytes\n", {});
}

TEST_F(ControlConnectionTest, AClientThatEndsMidwayIsAnswered) {
    client_.put("show coun");
    client_.putEnd();
    expectAnswer("error: the command does not end with a line feed\n", {});
}

TEST_F(ControlConnectionTest, AClientThatLeavesMidwayIsForgotten) {
    client_.put("show coun");
    client_.reset();
    runUntilIdle();
    EXPECT_EQ(ended_, 1);
    EXPECT_TRUE(commands_.empty());
}

TEST_F(ControlConnectionTest, AClientThatEndsAfterItsLineIsServed) {
    client_.put("show counters\n");
    client_.putEnd();
    expectAnswer("ok\ndone", {"show counters"});
}

TEST_F(ControlConnectionTest, WaitsTenSecondsAndNoLonger) {
    runFor(9.9);
    expectOpen();
    runFor(0.2);
    expectAnswer("error: no command came for 10 seconds\n", {});
}

TEST_F(ControlConnectionTest, DripsDoNotBuyTime) {
    for (int i = 0; i < 9; ++i) {
        client_.put("x");
        runFor(1);
        expectOpen();
    }
    runFor(1.1);
    expectAnswer("error: no command came for 10 seconds\n", {});
}

TEST_F(ControlConnectionTest, DestroyedItClosesAndCallsNobody) {
    client_.put("show coun");
    expectOpen();
    connection_.reset();
    runFor(20);
    client_.read();
    EXPECT_TRUE(client_.ended());
    EXPECT_EQ(client_.received(), "");
    EXPECT_EQ(ended_, 0);
    EXPECT_TRUE(commands_.empty());
}

} // namespace
} // namespace Host
