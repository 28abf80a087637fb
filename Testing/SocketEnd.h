#pragma once

#include "Platform/Base/UniqueFd.h"

#include <array>
#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <utility>

namespace Testing {

/// The client's end of a stream socket; nothing here waits.
class SocketEnd {
  public:
    SocketEnd() = default;
    explicit SocketEnd(Vela::UniqueFd fd) : fd_(std::move(fd)) {}

    int fd() const { return fd_.get(); }

    void put(std::string_view bytes) const {
        EXPECT_EQ(send(fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT),
                  static_cast<ssize_t>(bytes.size()));
    }
    void putEnd() const { shutdown(fd(), SHUT_WR); }
    void reset() { fd_.reset(); }

    /// Takes what there is. A reset connection is one that did not end well.
    void read() {
        std::array<char, 65536> bytes;
        ssize_t count;
        while ((count = recv(fd(), bytes.data(), bytes.size(), MSG_DONTWAIT)) > 0) {
            received_.append(bytes.data(), static_cast<size_t>(count));
        }
        ended_ = count == 0;
        EXPECT_TRUE(ended_ || errno == EAGAIN) << errno;
    }

    const std::string& received() const { return received_; }
    bool ended() const { return ended_; }

  private:
    Vela::UniqueFd fd_;
    std::string received_;
    bool ended_ = false;
};

} // namespace Testing
