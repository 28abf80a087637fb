#include "Platform/Packet/PacketSockets.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>

namespace Vela {

namespace {

sockaddr_ll linkLayerAddress(uint16_t protocol, uint32_t ifIndex) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(protocol);
    address.sll_ifindex = static_cast<int>(ifIndex);
    return address;
}

class KernelSockets final : public PacketSockets {
  public:
    UniqueFd open(uint16_t protocol) override {
        return UniqueFd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(protocol)));
    }
    int bind(int fd, uint16_t protocol, uint32_t ifIndex) override {
        sockaddr_ll address = linkLayerAddress(protocol, ifIndex);
        static_assert(sizeof(sockaddr_ll) == 20);
        return ::bind(fd, asSockaddr(address), sizeof address);
    }
    bool send(int fd, uint16_t protocol, uint32_t ifIndex,
              std::span<const uint8_t> frame) override {
        sockaddr_ll address = linkLayerAddress(protocol, ifIndex);
        ssize_t sent =
            sendto(fd, frame.data(), frame.size(), MSG_DONTWAIT,
                   ifIndex != 0 ? asSockaddr(address) : nullptr, ifIndex != 0 ? sizeof address : 0);
        return sent == static_cast<ssize_t>(frame.size());
    }
    /// With one system call for several frames.
    size_t sendAll(int fd, uint16_t, std::span<const std::span<const uint8_t>> frames) override {
        size_t sent = 0;
        while (sent < frames.size()) {
            int taken = sendSome(fd, frames.subspan(sent, std::min(frames.size() - sent, atOnce)));
            if (taken <= 0) {
                break;
            }
            sent += static_cast<size_t>(taken);
        }
        return sent;
    }

  private:
    static constexpr size_t atOnce = 16;

    static int sendSome(int fd, std::span<const std::span<const uint8_t>> frames) {
        std::array<iovec, atOnce> places;
        std::array<mmsghdr, atOnce> headers{};
        for (size_t i = 0; i < frames.size(); ++i) {
            // The kernel only reads there.
            places[i] = {const_cast<uint8_t*>(frames[i].data()), frames[i].size()};
            headers[i].msg_hdr.msg_iov = &places[i];
            headers[i].msg_hdr.msg_iovlen = 1;
        }
        return sendmmsg(fd, headers.data(), static_cast<unsigned>(frames.size()), MSG_DONTWAIT);
    }

    static const sockaddr* asSockaddr(const sockaddr_ll& address) {
        return static_cast<const sockaddr*>(static_cast<const void*>(&address));
    }
};

PacketSockets*& chosen() {
    static PacketSockets* sockets = nullptr;
    return sockets;
}

} // namespace

size_t PacketSockets::sendAll(int fd, uint16_t protocol,
                              std::span<const std::span<const uint8_t>> frames) {
    size_t sent = 0;
    while (sent < frames.size() && send(fd, protocol, 0, frames[sent])) {
        ++sent;
    }
    return sent;
}

uint32_t PacketSockets::ifIndex(const std::string& deviceName) {
    return if_nametoindex(deviceName.c_str());
}

ssize_t PacketSockets::receive(int fd, std::span<uint8_t> frame) {
    return recv(fd, frame.data(), frame.size(), MSG_DONTWAIT);
}

PacketSockets& packetSockets() {
    static KernelSockets kernel;
    return chosen() ? *chosen() : kernel;
}

void packetSocketsIs(PacketSockets* sockets) {
    chosen() = sockets;
}

} // namespace Vela
