#include "Platform/Packet/FrameRing.h"

#include <algorithm>
#include <cerrno>
#include <linux/if_packet.h>
#include <sys/mman.h>
#include <sys/socket.h>

namespace Vela {

namespace {

constexpr size_t ringBytes = FrameRing::slots * FrameRing::slotBytes;

template <class T>
bool optionIs(int socket, int option, const T& value) {
    return setsockopt(socket, SOL_PACKET, option, &value, sizeof value) == 0;
}

} // namespace

bool FrameRing::open(int socket) {
    close();
    tpacket_req request{};
    request.tp_block_size = blockBytes;
    request.tp_block_nr = ringBytes / blockBytes;
    request.tp_frame_size = slotBytes;
    request.tp_frame_nr = slots;
    // Any threshold: whatever does not fit its slot is queued as well.
    if (!optionIs(socket, PACKET_VERSION, int{TPACKET_V2}) ||
        !optionIs(socket, PACKET_COPY_THRESH, int{1}) ||
        !optionIs(socket, PACKET_RX_RING, request)) {
        return false;
    }
    void* memory = mmap(nullptr, ringBytes, PROT_READ | PROT_WRITE, MAP_SHARED, socket, 0);
    if (memory == MAP_FAILED) {
        int error = errno;
        optionIs(socket, PACKET_RX_RING, tpacket_req{});
        errno = error;
        return false;
    }
    memory_ = static_cast<uint8_t*>(memory);
    slot_ = 0;
    return true;
}

void FrameRing::close() noexcept {
    if (memory_) {
        munmap(memory_, ringBytes);
        memory_ = nullptr;
    }
}

tpacket2_hdr* FrameRing::header() const {
    return reinterpret_cast<tpacket2_hdr*>(memory_ + slot_ * slotBytes);
}

bool FrameRing::ready() const {
    return memory_ && __atomic_load_n(&header()->tp_status, __ATOMIC_ACQUIRE) & TP_STATUS_USER;
}

std::optional<FrameRing::Frame> FrameRing::next() {
    while (ready()) {
        tpacket2_hdr* slot = header();
        const bool queued = slot->tp_status & TP_STATUS_COPY;
        const bool cut = slot->tp_snaplen < slot->tp_len;
        const size_t start = std::min<size_t>(slot->tp_mac, slotBytes);
        const size_t length = std::min<size_t>(slot->tp_snaplen, slotBytes - start);
        std::copy_n(memory_ + slot_ * slotBytes + start, length, frame_.begin());
        __atomic_store_n(&slot->tp_status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
        slot_ = (slot_ + 1) % slots;
        if (queued || !cut) {
            return Frame{std::span(frame_).first(length), queued};
        }
    }
    return std::nullopt;
}

} // namespace Vela
