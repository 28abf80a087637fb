#include "Testing/VethPort.h"

#include "Testing/Eventually.h"
#include "Testing/IpCommand.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <system_error>
#include <utility>

namespace Testing {

namespace {

constexpr size_t addressBytes = 12; // of a frame, in front of its ethertype

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void deviceUpIs(const std::string& name, bool up) {
    Vela::UniqueFd any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    name.copy(request.ifr_name, IFNAMSIZ - 1);
    if (ioctl(any.get(), SIOCGIFFLAGS, &request) != 0) {
        fail("the flags of " + name);
    }
    request.ifr_flags =
        static_cast<short>(up ? request.ifr_flags | IFF_UP : request.ifr_flags & ~IFF_UP);
    if (ioctl(any.get(), SIOCSIFFLAGS, &request) != 0) {
        fail("the flags of " + name);
    }
}

/// The flag IFF_RUNNING would say so of a device, too, whose state the kernel has not looked at
/// yet.
bool hasCarrier(const std::string& name) {
    return ip({"-o", "link", "show", "dev", name}).find(" state UP ") != std::string::npos;
}

void optionIs(int fd, int option) {
    int on = 1;
    if (setsockopt(fd, SOL_PACKET, option, &on, sizeof on) != 0) {
        fail("setsockopt of the far end");
    }
}

/// The kernel takes the outer tag out of what it receives and reports it beside the frame.
void putTagBack(VethPort::Frame& frame, msghdr& message) {
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_PACKET || part->cmsg_type != PACKET_AUXDATA) {
            continue;
        }
        tpacket_auxdata data;
        std::memcpy(&data, CMSG_DATA(part), sizeof data);
        if (data.tp_status & TP_STATUS_VLAN_VALID) {
            uint16_t type =
                data.tp_status & TP_STATUS_VLAN_TPID_VALID ? data.tp_vlan_tpid : ETH_P_8021Q;
            std::array<uint8_t, 4> tag = {static_cast<uint8_t>(type >> 8),
                                          static_cast<uint8_t>(type),
                                          static_cast<uint8_t>(data.tp_vlan_tci >> 8),
                                          static_cast<uint8_t>(data.tp_vlan_tci)};
            frame.insert(frame.begin() + addressBytes, tag.begin(), tag.end());
        }
    }
}

bool isKernelsOwn(const VethPort::Frame& frame) {
    return frame.size() >= addressBytes + 2 && frame[addressBytes] == ETH_P_IPV6 >> 8 &&
           frame[addressBytes + 1] == (ETH_P_IPV6 & 0xff);
}

} // namespace

void enterOwnNetworkNamespace() {
    if (unshare(CLONE_NEWNET) != 0) {
        fail("a network namespace of its own, which takes root");
    }
    deviceUpIs("lo", true);
}

VethPort::VethPort(std::string name) : name_(std::move(name)) {
    ip({"link", "add", name_, "type", "veth", "peer", "name", farName()});
    ifIndex_ = if_nametoindex(name_.c_str());
    deviceUpIs(farName(), true); // first: a socket bound to a device that is down reports that
    // Protocol 0: nothing comes before the socket is bound.
    far_.reset(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    if (!far_) {
        fail("a packet socket");
    }
    optionIs(far_.get(), PACKET_AUXDATA);
    optionIs(far_.get(), PACKET_IGNORE_OUTGOING);
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(farName().c_str()));
    const void* bytes = &address;
    if (bind(far_.get(), static_cast<const sockaddr*>(bytes), sizeof address) != 0) {
        fail("bind to " + farName());
    }
    upIs(true);
}

VethPort::~VethPort() {
    far_.reset();
    try {
        ip({"link", "del", name_});
    } catch (const std::exception&) {
        // Then it is gone already, or goes with the namespace.
    }
}

void VethPort::upIs(bool up) {
    deviceUpIs(name_, up);
    if (up) {
        awaitWire();
    }
}

/// A device without a carrier drops what is sent, and gets its carrier a moment after its peer
/// came up.
void VethPort::awaitWire() const {
    if (!eventually([this] { return hasCarrier(name_) && hasCarrier(farName()); })) {
        throw std::runtime_error("no carrier between " + name_ + " and " + farName());
    }
    // Waits for the lock under which the kernel does what comes with the carrier.
    deviceUpIs(name_, true);
}

void VethPort::inject(std::span<const uint8_t> frame) const {
    if (send(far_.get(), frame.data(), frame.size(), 0) != static_cast<ssize_t>(frame.size())) {
        fail("send on " + farName());
    }
}

std::vector<VethPort::Frame> VethPort::sent() const {
    std::vector<Frame> frames;
    for (;;) {
        Frame frame(16'384);
        iovec part{frame.data(), frame.size()};
        alignas(cmsghdr) std::array<char, 256> control;
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        ssize_t length = recvmsg(far_.get(), &message, MSG_DONTWAIT);
        if (length < 0 && errno == EAGAIN) {
            return frames;
        }
        if (length < 0) {
            fail("receive on " + farName());
        }
        frame.resize(static_cast<size_t>(length));
        putTagBack(frame, message);
        if (!isKernelsOwn(frame)) {
            frames.push_back(std::move(frame));
        }
    }
}

} // namespace Testing
