#include "Platform/Packet/EthDevPam.h"

#include "Platform/Base/Errors.h"
#include "Platform/Base/NetNs.h"
#include "Platform/Packet/PacketSockets.h"
#include "Platform/State/DumpContext.h"

#include <array>
#include <cerrno>
#include <ostream>
#include <sys/socket.h>
#include <system_error>
#include <utility>

namespace Zinc {

EthDevPam::EthDevPam(Vela::Ptr<Vela::TaskScheduler> scheduler, std::string name)
    : scheduler_(std::move(scheduler)), name_(std::move(name)) {}

void EthDevPam::formatDerivedType(std::ostream& out) const {
    out << name_;
}

void EthDevPam::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "EthDevPam %s %s\n", name_.c_str(), enabled() ? "enabled" : "disabled");
    context.print(indent + 2, "ethProtocol=%u\n", ethProtocol_);
    context.print(indent + 2, "netNs=%s\n", netNs_.c_str());
}

void EthDevPam::sockPrioIs(uint32_t priority) {
    if (priority > 15) {
        throw Vela::RangeError("Zinc::EthDevPam::sockPrio < 0 or > 15 not allowed");
    }
    sockPrio_ = priority;
}

void EthDevPam::socketReadLimitIs(uint32_t frames) {
    if (frames < 1 || frames > 64) {
        throw Vela::RangeError("Zinc::EthDevPam::socketReadLimit < 1 or > 64 not allowed");
    }
    socketReadLimit_ = frames;
}

void EthDevPam::enabledIs(bool enabled) {
    if (enabled == this->enabled()) {
        return;
    }
    if (enabled) {
        open();
    } else {
        close();
    }
}

void EthDevPam::open() {
    auto fail = [this](const char* what) {
        int error = errno;
        throw std::system_error(error, std::generic_category(), name_ + ": " + what);
    };
    Vela::PacketSockets& sockets = Vela::packetSockets();
    uint32_t ifIndex;
    Vela::UniqueFd socket;
    {
        Vela::NetNsGuard guard(netNs_);
        ifIndex = sockets.ifIndex(name_);
        if (ifIndex == 0) {
            fail("device");
        }
        // With no protocol yet: until it is bound it takes nothing from any device.
        socket = sockets.open(0);
        if (!socket) {
            fail("packet socket");
        }
    }
    int priority = static_cast<int>(sockPrio_);
    if (priority != 0 &&
        setsockopt(socket.get(), SOL_SOCKET, SO_PRIORITY, &priority, sizeof priority) != 0) {
        fail("socket priority");
    }
    if (sockets.bind(socket.get(), ethProtocol_, ifIndex) != 0) {
        fail("bind");
    }
    // A device that is down takes the socket, which then reports it.
    int error = 0;
    socklen_t length = sizeof error;
    getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &length);
    if (error != 0) {
        errno = error;
        fail("bind");
    }
    Vela::Owned<Vela::FileDescriptor> fileDescriptor;
    fileDescriptor = Vela::make<Vela::FileDescriptor>(scheduler_, "EthDevPam", std::move(socket));
    fileDescriptor->notifyOnReadableIs(true);
    fileDescriptor_ = std::move(fileDescriptor);
    ifIndex_ = ifIndex;
    readable_ = fileDescriptor_->readableCountAttribute().react(this, [this] { handleReadable(); });
}

void EthDevPam::close() noexcept {
    closeSocket();
    frames_.clear();
}

void EthDevPam::closeSocket() noexcept {
    readable_.clear();
    fileDescriptor_.reset();
    ifIndex_ = 0;
    deviceWentDown_ = false;
}

void EthDevPam::handleReadable() {
    takeFrames();
    if (!frames_.empty()) {
        readableCount_.setAlways(static_cast<uint32_t>(frames_.size()));
    }
}

Vela::Ptr<Vela::Pkt> EthDevPam::rxPkt() {
    if (frames_.empty() && fileDescriptor_ && fileDescriptor_->readable()) {
        takeFrames();
    }
    if (frames_.empty()) {
        return nullptr;
    }
    auto pkt = std::move(frames_.front());
    frames_.pop_front();
    return pkt;
}

void EthDevPam::takeFrames() {
    std::array<uint8_t, frameBytes> buffer;
    while (frames_.size() < socketReadLimit_) {
        ssize_t length = Vela::packetSockets().receive(fileDescriptor_->descriptor(), buffer);
        if (length > 0) {
            frames_.push_back(
                Vela::pktManager().newPkt({buffer.data(), static_cast<size_t>(length)}));
        } else if (length < 0 && errno == ENETDOWN) {
            deviceWentDown_ = true; // reported once, in front of the frames that came before
        } else if (length == 0 || errno != EINTR) {
            fileDescriptor_->readableDel();
            if (deviceWentDown_) {
                closeSocket();
                handleDeviceDown();
            }
            return;
        }
    }
}

} // namespace Zinc
