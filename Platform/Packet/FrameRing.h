#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

struct tpacket2_hdr;

namespace Vela {

/// Memory that the kernel shares with a packet socket (packet_mmap, TPACKET_V2): it puts each frame
/// into the next slot as it arrives, and no system call takes it out. A frame too long for its slot
/// stands in the socket's queue whole, and its slot says so. While there are no free slots the
/// kernel drops what arrives. A long frame that the queue has no room for is dropped here: nobody
/// is given a part of one.
class FrameRing {
  public:
    static constexpr size_t slots = 8192;
    static constexpr size_t slotBytes = 512; ///< some 430 of them for the frame

    struct Frame {
        std::span<const uint8_t> bytes; ///< until the next call of `next`
        bool queued;                    ///< the whole frame is the next one in the socket's queue
    };

    FrameRing() = default;
    ~FrameRing() { close(); }
    FrameRing(const FrameRing&) = delete;
    FrameRing& operator=(const FrameRing&) = delete;

    /// Everything that the socket receives from here on; what waits in its queue is dropped.
    /// Returns false, with the reason in `errno`, and leaves the socket as it is, if it cannot have
    /// a ring.
    bool open(int socket);
    /// Gives the memory back, and with it the last hold on a socket that has been closed.
    void close() noexcept;

    bool ready() const;
    /// The next frame; its slot is free again.
    std::optional<Frame> next();

  private:
    static constexpr size_t blockBytes = 64 * 1024;

    tpacket2_hdr* header() const;

    uint8_t* memory_ = nullptr;
    size_t slot_ = 0;
    std::array<uint8_t, slotBytes> frame_;
};

} // namespace Vela
