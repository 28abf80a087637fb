// A client of the control socket that sends arbitrary bytes in arbitrary pieces, and may stop or
// leave at any moment. What it is answered must be what the whole of its bytes deserves, however
// they were cut into pieces.
//
// An input is a list of pieces: a byte says how many of the next ones are sent together, except
// for two values: 0xff ends the sending, 0xfe lets a second pass. 0x00 followed by two bytes sends
// that many (little-endian) times the letter x.

#include "Host/ControlConnection.h"
#include "Platform/Base/Assert.h"
#include "Testing/SimulatedClock.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Vela::assertThat;

constexpr Vela::MonotonicTime noWait{0};

class Session {
  public:
    Session() {
        std::array<int, 2> ends{};
        assertThat(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0,
                   "socketpair");
        client_.reset(ends[1]);
        Host::ControlConnection::Callbacks callbacks{
            [this](const std::string& command, int fd) {
                assertThat(commands_++ == 0, "one command per connection");
                command_ = command;
                if (command.starts_with("r")) {
                    return std::string("refused");
                }
                assertThat(write(fd, "ok\n", 3) == 3, "answer");
                return std::string();
            },
            [this] { connection_.reset(); }};
        connection_ = Vela::make<Host::ControlConnection>(scheduler_, Vela::UniqueFd(ends[0]),
                                                          std::move(callbacks));
    }
    ~Session() {
        connection_.reset();
        scheduler_.reset();
        assertThat(Vela::Entity::liveCount() == 0, "Vela::Entity::liveCount() == 0");
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    bool open() const { return static_cast<bool>(connection_); }

    void put(std::string_view bytes) {
        // Of a great piece as much as fits: the rest is never sent.
        ssize_t count =
            send(client_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count > 0) {
            sent_.append(bytes.substr(0, static_cast<size_t>(count)));
        }
        turn();
    }
    void putEnd() {
        shutdown(client_.get(), SHUT_WR);
        turn();
    }
    void passSecond() {
        clock_.advance(std::chrono::seconds(1));
        ++seconds_;
        turn();
    }

    /// What the connection has to answer to all that was sent, if it is not by time alone.
    std::string expected(bool ended) const {
        for (size_t i = 0; i < sent_.size(); ++i) {
            char c = sent_[i];
            if (c == '\n') {
                return sent_.starts_with("r") ? "error: refused\n" : "ok\n";
            }
            if (c < ' ' || c > '~') {
                return "error: byte " + std::to_string(i + 1) + " of the command is 0x" +
                       "0123456789abcdef"[static_cast<uint8_t>(c) >> 4] +
                       "0123456789abcdef"[static_cast<uint8_t>(c) & 15] + ", not printable ASCII\n";
            }
            if (i == 4096) {
                return "error: the command is longer than 4096 bytes\n";
            }
        }
        return ended ? "error: the command does not end with a line feed\n" : "";
    }

    void check(bool ended) {
        std::string answer;
        std::array<char, 8192> bytes;
        ssize_t count;
        while ((count = recv(client_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT)) > 0) {
            answer.append(bytes.data(), static_cast<size_t>(count));
        }
        assertThat(open() == (count < 0), "closed when and only when its work is done");
        std::string deserved = expected(ended);
        if (deserved.empty() && seconds_ >= 10) {
            deserved = "error: no command came for 10 seconds\n";
        }
        assertThat(answer == deserved, "answer == deserved");
        assertThat(open() == deserved.empty(), "open() == deserved.empty()");
        assertThat(commands_ == (answer.starts_with("ok") || answer == "error: refused\n"),
                   "a command was carried out if and only if the answer says so");
        assertThat(!commands_ || sent_.starts_with(command_ + "\n"),
                   "the command is the first line");
    }

  private:
    void turn() {
        for (int turns = 0; scheduler_->turn(noWait); ++turns) {
            assertThat(turns < 1000, "turns < 1000");
        }
    }

    Testing::SimulatedClock clock_;
    Vela::Ptr<Vela::TaskScheduler> scheduler_ =
        Vela::make<Vela::TaskScheduler>(clock_, Vela::TaskScheduler::Settings{});
    Vela::UniqueFd client_;
    Vela::Owned<Host::ControlConnection> connection_;
    std::string sent_;
    std::string command_;
    int commands_ = 0;
    int seconds_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(data, data + size);
    std::string_view input = bytes;
    auto take = [&input](size_t count) {
        std::string_view taken = input.substr(0, count);
        input.remove_prefix(taken.size());
        return taken;
    };
    Session session;
    bool ended = false;
    while (!input.empty() && session.open() && !ended) {
        auto what = static_cast<uint8_t>(take(1)[0]);
        if (what == 0xff) {
            session.putEnd();
            ended = true;
        } else if (what == 0xfe) {
            session.passSecond();
        } else if (what == 0 && input.size() >= 2) {
            auto low = static_cast<uint8_t>(input[0]);
            auto high = static_cast<uint8_t>(input[1]);
            take(2);
            session.put(std::string(low + 256u * high, 'x'));
        } else if (std::string_view piece = take(what); !piece.empty()) {
            session.put(piece);
        }
    }
    session.check(ended);
    return 0;
}
