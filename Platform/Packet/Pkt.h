#pragma once

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace Vela {

class PktManager;

/// One frame in a buffer with room in front, so that headers can be put before what is there.
/// Counted; made by a PktManager, to which its memory returns with the last reference.
class Pkt {
  public:
    Pkt(const Pkt&) = delete;
    Pkt& operator=(const Pkt&) = delete;

    std::span<const uint8_t> bytes() const { return {buffer_.data() + begin_, end_ - begin_}; }
    std::span<uint8_t> bytes() { return {buffer_.data() + begin_, end_ - begin_}; }
    size_t size() const { return end_ - begin_; }
    size_t headroom() const { return begin_; }

    /// Makes the frame longer by `count` bytes in front and returns them, zeroed. There must be
    /// that much headroom.
    std::span<uint8_t> prepend(size_t count);

  private:
    friend class PktManager;
    friend void intrusive_ptr_add_ref(const Pkt* pkt) noexcept;
    friend void intrusive_ptr_release(const Pkt* pkt) noexcept;

    explicit Pkt(PktManager& manager) : manager_(manager) {}

    PktManager& manager_;
    mutable uint32_t references_ = 0;
    std::vector<uint8_t> buffer_;
    size_t begin_ = 0;
    size_t end_ = 0;
};

/// Makes packets, and keeps the memory of those that nobody refers to any more for the next ones.
/// Outlives its packets. For one thread.
class PktManager {
  public:
    /// Beyond so many idle packets memory is given back.
    static constexpr size_t mostIdle = 1024;

    PktManager();
    ~PktManager();
    PktManager(const PktManager&) = delete;
    PktManager& operator=(const PktManager&) = delete;

    /// A packet with a copy of `bytes`, and `headroom` in front of it.
    boost::intrusive_ptr<Pkt> newPkt(std::span<const uint8_t> bytes, size_t headroom = 0);

    /// Packets that somebody refers to.
    size_t packets() const { return packets_; }
    size_t idle() const { return idle_.size(); }

  private:
    friend void intrusive_ptr_release(const Pkt* pkt) noexcept;
    void release(Pkt& pkt) noexcept;

    std::vector<std::unique_ptr<Pkt>> idle_;
    size_t packets_ = 0;
};

/// The packet manager of the process.
PktManager& pktManager();

inline void intrusive_ptr_add_ref(const Pkt* pkt) noexcept {
    ++pkt->references_;
}
void intrusive_ptr_release(const Pkt* pkt) noexcept;

} // namespace Vela
