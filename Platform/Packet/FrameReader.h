#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <sys/socket.h>

namespace Vela {

/// Gives out the frames of a non-blocking socket one by one, in their order, and takes several of
/// them with one system call. What was taken and not yet given out waits here. Large (160 kB):
/// nothing for the stack.
class FrameReader {
  public:
    static constexpr size_t frames = 16;         ///< taken at most in one call
    static constexpr size_t frameBytes = 10'000; ///< what is longer is cut

    FrameReader();
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    /// The next frame; its bytes stay until the next call. Without one the reason is in `errno`:
    /// EAGAIN where there was none, an error of the socket, which comes after the frames that were
    /// taken before it.
    std::optional<std::span<const uint8_t>> next(int socket);
    /// Whether there are frames that were taken and not yet given out.
    bool waiting() const { return next_ < taken_; }
    /// Forgets what was taken and not given out, as closing a socket does with what is left there.
    /// A frame that was given out stays where it is.
    void drop() noexcept { next_ = taken_; }

  private:
    bool take(int socket);

    size_t next_ = 0;
    size_t taken_ = 0;
    std::array<mmsghdr, frames> headers_{};
    std::array<iovec, frames> places_{};
    std::array<std::array<uint8_t, frameBytes>, frames> buffers_;
};

} // namespace Vela
