#include "Platform/Packet/FrameReader.h"

#include <cerrno>

namespace Vela {

FrameReader::FrameReader() {
    for (size_t i = 0; i < frames; ++i) {
        places_[i] = {buffers_[i].data(), buffers_[i].size()};
        headers_[i].msg_hdr.msg_iov = &places_[i];
        headers_[i].msg_hdr.msg_iovlen = 1;
    }
}

std::optional<std::span<const uint8_t>> FrameReader::next(int socket) {
    while (auto frame = ring_.next()) {
        inBatch_ = (inBatch_ + 1) % frames;
        if (!frame->queued) {
            return frame->bytes;
        }
        if (auto whole = nextQueued(socket); whole || errno != EAGAIN) {
            return whole;
        }
    }
    return nextQueued(socket);
}

std::optional<std::span<const uint8_t>> FrameReader::nextQueued(int socket) {
    if (next_ == taken_ && !take(socket)) {
        return std::nullopt;
    }
    size_t i = next_++;
    return std::span<const uint8_t>(buffers_[i].data(), headers_[i].msg_len);
}

void FrameReader::drop() noexcept {
    ring_.close();
    inBatch_ = 0;
    next_ = taken_;
}

bool FrameReader::take(int socket) {
    int taken;
    do {
        taken = recvmmsg(socket, headers_.data(), frames, 0, nullptr);
    } while (taken < 0 && errno == EINTR);
    next_ = 0;
    taken_ = taken > 0 ? static_cast<size_t>(taken) : 0;
    return taken > 0;
}

} // namespace Vela
