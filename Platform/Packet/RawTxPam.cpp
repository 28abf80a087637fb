#include "Platform/Packet/RawTxPam.h"

#include "Platform/Packet/PacketSockets.h"
#include "Platform/State/DumpContext.h"

#include <cerrno>
#include <ostream>
#include <system_error>

namespace Vela {

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
    return packetSockets().send(fd_.get(), ethProtocol_, ifIndex, pkt.bytes());
}

} // namespace Vela
