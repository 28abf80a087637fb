#include "Platform/Packet/RawTxPam.h"

#include "Platform/Packet/PacketSockets.h"
#include "Platform/State/DumpContext.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ostream>
#include <system_error>
#include <utility>

namespace Vela {

namespace {
constexpr uint16_t allProtocols = 3;
}

void RawTxPam::formatDerivedType(std::ostream& out) const {
    out << name_;
}

void RawTxPam::dumpState(DumpContext& context, int indent) const {
    context.print(indent, "RawTxPam %s %s\n", name_.c_str(), enabled() ? "enabled" : "disabled");
    context.print(indent + 2, "ethProtocol=%u\n", ethProtocol_);
}

void RawTxPam::enabledIs(bool enabled) {
    if (enabled == this->enabled()) {
        return;
    }
    fd_.reset();
    boundTo_ = 0;
    if (enabled) {
        // Protocol 0: the kernel queues nothing on a socket that is only written to.
        fd_ = packetSockets().open(0);
        if (!fd_) {
            int error = errno;
            throw std::system_error(error, std::generic_category(), name_ + ": packet socket");
        }
    }
}

size_t RawTxPam::transmit(std::span<const boost::intrusive_ptr<Pkt>> pkts, uint32_t ifIndex) {
    if (!enabled()) {
        errno = ENOTCONN;
        return 0;
    }
    std::array<std::span<const uint8_t>, 16> frames;
    size_t sent = 0;
    while (sent < pkts.size()) {
        size_t count = std::min(pkts.size() - sent, frames.size());
        std::transform(&pkts[sent], &pkts[sent] + count, frames.begin(),
                       [](const auto& pkt) { return std::as_const(*pkt).bytes(); });
        size_t went = send({frames.data(), count}, ifIndex);
        sent += went;
        if (went < count) {
            break;
        }
    }
    return sent;
}

size_t RawTxPam::send(Frames frames, uint32_t ifIndex) {
    if (ethProtocol_ != allProtocols) {
        size_t sent = 0;
        while (sent < frames.size() &&
               packetSockets().send(fd_.get(), ethProtocol_, ifIndex, frames[sent])) {
            ++sent;
        }
        return sent;
    }
    size_t sent = sendBound(frames, ifIndex);
    if (sent == frames.size() || errno != ENXIO) {
        return sent;
    }
    // The device that the socket was bound to is gone; there may be another one with its index.
    boundTo_ = 0;
    return sent + sendBound(frames.subspan(sent), ifIndex);
}

size_t RawTxPam::sendBound(Frames frames, uint32_t ifIndex) {
    if (boundTo_ != ifIndex) {
        boundTo_ = 0;
        // Still protocol 0: it receives nothing there, either.
        if (packetSockets().bind(fd_.get(), 0, ifIndex) != 0) {
            return 0;
        }
        boundTo_ = ifIndex;
    }
    return packetSockets().sendAll(fd_.get(), ethProtocol_, frames);
}

} // namespace Vela
