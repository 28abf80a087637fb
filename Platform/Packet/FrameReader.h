#pragma once

#include "Platform/Packet/FrameRing.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <sys/socket.h>

namespace Vela {

/// Gives out the frames of a non-blocking socket one by one, in their order: out of a ring that it
/// shares with the kernel, or, where the socket has none and for frames too long for a slot, with a
/// system call that takes several of them. What was taken and not yet given out waits here. Large
/// (160 kB): nothing for the stack.
class FrameReader {
  public:
    static constexpr size_t frames = 16;         ///< taken at most in one call; a batch
    static constexpr size_t frameBytes = 10'000; ///< what is longer is cut

    FrameReader();
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    /// Shares a ring with the socket. Returns false, with the reason in `errno`, if it can have
    /// none: it can be read all the same.
    bool ringIs(int socket) { return ring_.open(socket); }
    /// The next frame; its bytes stay until the next call. Without one the reason is in `errno`:
    /// EAGAIN where there was none, an error of the socket, which comes after the frames that were
    /// taken before it.
    std::optional<std::span<const uint8_t>> next(int socket);
    /// Whether the frame that was given out is followed by one of the same batch: of those that
    /// were taken together, or of each sixteen out of the ring.
    bool waiting() const { return next_ < taken_ || (inBatch_ > 0 && ring_.ready()); }
    /// Forgets what was taken and not given out, as closing a socket does with what is left there,
    /// and gives the ring back. A frame that was given out stays where it is.
    void drop() noexcept;

  private:
    std::optional<std::span<const uint8_t>> nextQueued(int socket);
    bool take(int socket);

    FrameRing ring_;
    size_t inBatch_ = 0; ///< given out of the ring
    size_t next_ = 0;
    size_t taken_ = 0;
    std::array<mmsghdr, frames> headers_{};
    std::array<iovec, frames> places_{};
    std::array<std::array<uint8_t, frameBytes>, frames> buffers_;
};

} // namespace Vela
