#pragma once

#include "Platform/Base/UniqueFd.h"

#include <cstdint>
#include <span>
#include <string>
#include <sys/types.h>

namespace Vela {

/// Where raw packet sockets come from: the kernel, or a test's own ports. Calls that fail leave the
/// reason in `errno`.
class PacketSockets {
  public:
    virtual ~PacketSockets() = default;

    /// The kernel index of a device in the thread's network namespace, or 0.
    virtual uint32_t ifIndex(const std::string& deviceName);
    /// A raw packet socket of the thread's network namespace for an Ethernet protocol in host byte
    /// order; with 0 it receives nothing. Owns nothing when it failed.
    virtual UniqueFd open(uint16_t protocol) = 0;
    /// Restricts a socket to one interface. Returns 0, or -1.
    virtual int bind(int fd, uint16_t protocol, uint32_t ifIndex) = 0;
    /// Takes the next frame out of a socket, as much of it as there is room for; as `recv` does
    /// that does not wait.
    virtual ssize_t receive(int fd, std::span<uint8_t> frame);
    /// Sends a whole frame out of an interface, or with index 0 out of the one that the socket is
    /// bound to, filed under the protocol that the frame names itself. Returns whether the kernel
    /// took it.
    virtual bool send(int fd, uint16_t protocol, uint32_t ifIndex,
                      std::span<const uint8_t> frame) = 0;
    /// Sends whole frames, one after the other, out of the interface that the socket is bound to.
    /// Returns how many the kernel took; if not all of them, the next one is the one it refused.
    virtual size_t sendAll(int fd, uint16_t protocol,
                           std::span<const std::span<const uint8_t>> frames);
};

/// Those in use: the kernel's, unless others were chosen.
PacketSockets& packetSockets();
/// They must outlive their use; null chooses the kernel's.
void packetSocketsIs(PacketSockets* sockets);

} // namespace Vela
