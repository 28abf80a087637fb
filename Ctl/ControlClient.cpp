#include "Ctl/ControlClient.h"

#include "Platform/Base/UniqueFd.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <grp.h>
#include <ostream>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace Ctl {

namespace {

/// Why there is no answer, in words for the operator.
class NoAnswer : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

std::string groupOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return "";
    }
    const group* entry = getgrgid(status.st_gid);
    return entry ? "\"" + std::string(entry->gr_name) + "\"" : std::to_string(status.st_gid);
}

/// One conversation with the daemon.
class Conversation {
  public:
    Conversation(const std::string& directory, std::chrono::milliseconds patience)
        : directory_(directory), path_(directory + "/control"),
          socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        patienceIs(patience);
    }

    void connect();
    void put(std::string_view text);
    /// The first line of the answer, without its line feed.
    std::string statusLine();
    /// The rest of it. Returns false where `take` did.
    bool handOn(const TakeAnswer& take);

  private:
    void patienceIs(std::chrono::milliseconds patience);
    size_t receive();
    [[noreturn]] void fail(int error) const;

    const std::string directory_;
    const std::string path_;
    Vela::UniqueFd socket_;
    std::array<char, 65536> buffer_;
    std::string_view unread_; // part of buffer_
};

/// Zero: for ever.
void Conversation::patienceIs(std::chrono::milliseconds patience) {
    timeval limit{patience.count() / 1000, patience.count() % 1000 * 1000};
    setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(socket_.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

void Conversation::fail(int error) const {
    const std::string nobody = "no arpsupd runs in " + directory_;
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        throw NoAnswer(nobody + " (no such socket)");
    case ECONNREFUSED:
        throw NoAnswer(nobody + " any more (nobody listens on its socket)");
    case EACCES:
    case EPERM: {
        std::string group = groupOf(path_);
        throw NoAnswer("no permission to ask the arpsupd in " + directory_ + ": that is for root" +
                       (group.empty() ? "" : " and the group " + group));
    }
    case EAGAIN:
        throw NoAnswer("the arpsupd in " + directory_ + " does not answer");
    default:
        throw NoAnswer(path_ + ": " + std::strerror(error));
    }
}

void Conversation::connect() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path_.size() >= sizeof address.sun_path) {
        fail(ENAMETOOLONG);
    }
    path_.copy(address.sun_path, path_.size());
    const void* any = &address;
    if (!socket_ ||
        ::connect(socket_.get(), static_cast<const sockaddr*>(any), sizeof address) != 0) {
        fail(errno);
    }
}

void Conversation::put(std::string_view text) {
    while (!text.empty()) {
        ssize_t count = send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL);
        if (count < 0 && (errno == EPIPE || errno == ECONNRESET)) {
            return; // it has an answer already
        }
        if (count < 0 && errno != EINTR) {
            fail(errno);
        }
        text.remove_prefix(count > 0 ? static_cast<size_t>(count) : 0);
    }
}

/// Fills the buffer anew; 0 at the end of the answer.
size_t Conversation::receive() {
    ssize_t count;
    do {
        count = recv(socket_.get(), buffer_.data(), buffer_.size(), 0);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        fail(errno);
    }
    unread_ = {buffer_.data(), static_cast<size_t>(count)};
    return unread_.size();
}

std::string Conversation::statusLine() {
    constexpr size_t longest = 65536;
    std::string line;
    while (line.size() < longest) {
        if (unread_.empty() && receive() == 0) {
            break;
        }
        size_t end = unread_.find('\n');
        line += unread_.substr(0, end);
        if (end != unread_.npos) {
            unread_.remove_prefix(end + 1);
            return line;
        }
        unread_ = {};
    }
    throw NoAnswer("the arpsupd in " + directory_ + " closed the connection without an answer");
}

bool Conversation::handOn(const TakeAnswer& take) {
    patienceIs(std::chrono::milliseconds(0));
    do {
        if (!unread_.empty() && !take(unread_)) {
            return false;
        }
    } while (receive() > 0);
    return true;
}

bool writeAll(int output, std::string_view text, std::ostream& errors) {
    while (!text.empty()) {
        ssize_t count = write(output, text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            errors << "error: the answer cannot be written: " << std::strerror(errno) << '\n';
            return false;
        }
        text.remove_prefix(count > 0 ? static_cast<size_t>(count) : 0);
    }
    return true;
}

} // namespace

int askDaemon(const std::string& runtimeDirectory, const std::string& command, int output,
              std::ostream& errors, std::chrono::milliseconds patience) {
    auto write = [&](std::string_view piece) { return writeAll(output, piece, errors); };
    return askDaemon(runtimeDirectory, command, write, errors, patience);
}

int askDaemon(const std::string& runtimeDirectory, const std::string& command,
              const TakeAnswer& take, std::ostream& errors, std::chrono::milliseconds patience) {
    try {
        Conversation conversation(runtimeDirectory, patience);
        conversation.connect();
        conversation.put(command + "\n");
        const std::string status = conversation.statusLine();
        if (status != "ok") {
            errors << status << '\n';
            return 1;
        }
        return conversation.handOn(take) ? 0 : 1;
    } catch (const NoAnswer& reason) {
        errors << "error: " << reason.what() << '\n';
        return 1;
    }
}

} // namespace Ctl
