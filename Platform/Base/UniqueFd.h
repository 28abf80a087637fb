#pragma once

#include <unistd.h>
#include <utility>

namespace Vela {

/// Owns one file descriptor and closes it; -1 when it owns none.
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    ~UniqueFd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        int old = std::exchange(fd_, fd);
        if (old >= 0) {
            close(old);
        }
    }

  private:
    int fd_ = -1;
};

} // namespace Vela
