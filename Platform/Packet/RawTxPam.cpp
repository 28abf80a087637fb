#include "Platform/Packet/RawTxPam.h"

#include "Platform/Packet/PacketSockets.h"
#include "Platform/State/DumpContext.h"

#include <cerrno>
#include <ostream>
#include <system_error>

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

bool RawTxPam::transmit(const Pkt& pkt, uint32_t ifIndex) {
    if (!enabled()) {
        errno = ENOTCONN;
        return false;
    }
    if (ethProtocol_ != allProtocols) {
        return packetSockets().send(fd_.get(), ethProtocol_, ifIndex, pkt.bytes());
    }
    if (sendBound(pkt, ifIndex)) {
        return true;
    }
    if (errno != ENXIO) {
        return false;
    }
    // The device that the socket was bound to is gone; there may be another one with its index.
    boundTo_ = 0;
    return sendBound(pkt, ifIndex);
}

bool RawTxPam::sendBound(const Pkt& pkt, uint32_t ifIndex) {
    if (boundTo_ != ifIndex) {
        boundTo_ = 0;
        // Still protocol 0: it receives nothing there, either.
        if (packetSockets().bind(fd_.get(), 0, ifIndex) != 0) {
            return false;
        }
        boundTo_ = ifIndex;
    }
    return packetSockets().send(fd_.get(), ethProtocol_, 0, pkt.bytes());
}

} // namespace Vela
