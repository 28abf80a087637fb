#include "Testing/PacketPorts.h"

#include <array>
#include <cerrno>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace Testing {

namespace {

bool isClosed(int fd) {
    pollfd poll{fd, POLLRDHUP, 0};
    return ::poll(&poll, 1, 0) == 1 && (poll.revents & (POLLHUP | POLLRDHUP)) != 0;
}

} // namespace

PacketPorts::PacketPorts() {
    Vela::packetSocketsIs(this);
}

PacketPorts::~PacketPorts() {
    Vela::packetSocketsIs(nullptr);
}

uint32_t PacketPorts::ifIndex(const std::string& deviceName) {
    uint32_t index = devices_[deviceName];
    if (index == 0) {
        errno = ENODEV;
    }
    return index;
}

Vela::UniqueFd PacketPorts::open(uint16_t protocol) {
    if (openError != 0) {
        errno = openError;
        return {};
    }
    std::array<int, 2> ends;
    // Keeps the boundaries between frames, as a packet socket does.
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) != 0) {
        throw std::runtime_error("socketpair");
    }
    ++opened_;
    senders_.erase(ends[0]); // the number may have been another socket's
    downUntold_.erase(ends[0]);
    if (protocol == 0) {
        senders_[ends[0]] = 0;
    }
    unbound_[ends[0]] = ports_.size();
    ports_.push_back({Vela::UniqueFd(ends[1]), ends[0]});
    return Vela::UniqueFd(ends[0]);
}

int PacketPorts::bind(int fd, uint16_t protocol, uint32_t ifIndex) {
    if (bindError != 0) {
        errno = bindError;
        return -1;
    }
    if (down_.contains(ifIndex)) {
        errno = ENETDOWN;
        return -1;
    }
    if (auto sender = senders_.find(fd); protocol == 0 && sender != senders_.end()) {
        sender->second = ifIndex;
    } else {
        senders_.erase(fd); // it receives from now on
        ports_.at(unbound_.at(fd)).binding = {protocol, ifIndex};
    }
    return 0;
}

bool PacketPorts::send(int fd, uint16_t, uint32_t ifIndex, std::span<const uint8_t> frame) {
    if (sendError != 0) {
        errno = sendError;
        return false;
    }
    sent_[ifIndex != 0 ? ifIndex : senders_.at(fd)].emplace_back(frame.begin(), frame.end());
    return true;
}

void PacketPorts::downIs(uint32_t ifIndex, bool down) {
    if (!down) {
        down_.erase(ifIndex);
        return;
    }
    down_.insert(ifIndex);
    for (Port& port : ports_) {
        if (port.binding.ifIndex == ifIndex && !port.dead && !isClosed(port.far.get())) {
            port.dead = true;
            downUntold_.insert(port.near);
            ::shutdown(port.far.get(), SHUT_WR); // which makes the near end readable
        }
    }
}

ssize_t PacketPorts::receive(int fd, std::span<uint8_t> frame) {
    if (downUntold_.erase(fd) != 0) {
        errno = ENETDOWN;
        return -1;
    }
    ssize_t length = recv(fd, frame.data(), frame.size(), MSG_DONTWAIT);
    if (length == 0) { // a dead one: a packet socket has no end
        errno = EAGAIN;
        return -1;
    }
    return length;
}

void PacketPorts::inject(uint32_t ifIndex, std::span<const uint8_t> frame) {
    for (const Port& port : ports_) {
        if (port.binding.ifIndex == ifIndex && !port.dead && !isClosed(port.far.get()) &&
            ::send(port.far.get(), frame.data(), frame.size(), MSG_NOSIGNAL) !=
                static_cast<ssize_t>(frame.size())) {
            throw std::runtime_error("the port is full");
        }
    }
}

std::vector<Frame> PacketPorts::written(uint32_t ifIndex) {
    std::vector<Frame> frames;
    for (const Port& port : ports_) {
        if (port.binding.ifIndex != ifIndex) {
            continue;
        }
        Frame frame(11'000);
        ssize_t length;
        while ((length = recv(port.far.get(), frame.data(), frame.size(), MSG_DONTWAIT)) > 0) {
            frames.emplace_back(frame.begin(), frame.begin() + length);
        }
    }
    return frames;
}

void PacketPorts::forgetClosed() {
    std::erase_if(ports_, [](const Port& port) { return isClosed(port.far.get()); });
    unbound_.clear();
}

std::vector<Frame> PacketPorts::sent(uint32_t ifIndex) {
    return std::exchange(sent_[ifIndex], {});
}

std::vector<PacketPorts::Binding> PacketPorts::bindings() const {
    std::vector<Binding> open;
    for (const Port& port : ports_) {
        if (port.binding.ifIndex != 0 && !isClosed(port.far.get())) {
            open.push_back(port.binding);
        }
    }
    return open;
}

} // namespace Testing
