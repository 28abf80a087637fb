#include "Linux/PlaneDevice.h"

#include "Linux/PlaneError.h"
#include "Linux/bpf/PlaneState.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <memory>
#include <net/if.h>
#include <optional>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <system_error>
#include <utility>

namespace Linux {

namespace {

std::string errnoText(int error) {
    return std::generic_category().message(error);
}

/// One request to the kernel's links, and its answer.
class LinkRequest {
  public:
    LinkRequest(uint16_t type, uint16_t flags) : message_(mnl_nlmsg_put_header(buffer_.data())) {
        message_->nlmsg_type = type;
        message_->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
        info_ = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message_, sizeof(ifinfomsg)));
    }

    nlmsghdr* message() { return message_; }
    ifinfomsg* info() { return info_; }

    /// 0, or the error. `answer` gets the message that came in front of the acknowledgement.
    int send(mnl_cb_t answer = nullptr, void* data = nullptr) {
        std::unique_ptr<mnl_socket, int (*)(mnl_socket*)> socket(
            mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC), mnl_socket_close);
        message_->nlmsg_seq = 1;
        if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0 ||
            mnl_socket_sendto(socket.get(), message_, message_->nlmsg_len) < 0) {
            return errno;
        }
        std::array<char, 16'384> reply;
        int result = 1;
        while (result > 0) {
            ssize_t length = mnl_socket_recvfrom(socket.get(), reply.data(), reply.size());
            if (length < 0) {
                return errno;
            }
            result = mnl_cb_run(reply.data(), static_cast<size_t>(length), 1,
                                mnl_socket_get_portid(socket.get()), answer, data);
        }
        return result < 0 ? errno : 0;
    }

  private:
    alignas(nlmsghdr) std::array<char, 1024> buffer_{};
    nlmsghdr* message_;
    ifinfomsg* info_;
};

struct Link {
    uint32_t ifIndex = 0;
    uint32_t peerIfIndex = 0;
};

int readPeer(const nlattr* attribute, void* data) {
    if (mnl_attr_get_type(attribute) == IFLA_LINK &&
        mnl_attr_validate(attribute, MNL_TYPE_U32) == 0) {
        static_cast<Link*>(data)->peerIfIndex = mnl_attr_get_u32(attribute);
    }
    return MNL_CB_OK;
}

std::optional<Link> findLink(const std::string& name) {
    LinkRequest request(RTM_GETLINK, 0);
    mnl_attr_put_strz(request.message(), IFLA_IFNAME, name.c_str());
    Link link;
    auto read = [](const nlmsghdr* message, void* data) {
        auto& found = *static_cast<Link*>(data);
        found.ifIndex = static_cast<uint32_t>(
            static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message))->ifi_index);
        return mnl_attr_parse(message, sizeof(ifinfomsg), readPeer, data);
    };
    int error = request.send(read, &link);
    if (error == ENODEV) {
        return std::nullopt;
    }
    if (error) {
        throw PlaneError(name + ": " + errnoText(error));
    }
    return link;
}

int makeVeth(const std::string& name, const std::string& peerName, uint32_t mtu) {
    LinkRequest request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    nlmsghdr* message = request.message();
    mnl_attr_put_strz(message, IFLA_IFNAME, name.c_str());
    mnl_attr_put_u32(message, IFLA_MTU, mtu);
    nlattr* linkInfo = mnl_attr_nest_start(message, IFLA_LINKINFO);
    mnl_attr_put_strz(message, IFLA_INFO_KIND, "veth");
    nlattr* data = mnl_attr_nest_start(message, IFLA_INFO_DATA);
    nlattr* peer = mnl_attr_nest_start(message, VETH_INFO_PEER);
    mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg));
    mnl_attr_put_strz(message, IFLA_IFNAME, peerName.c_str());
    mnl_attr_put_u32(message, IFLA_MTU, mtu);
    mnl_attr_nest_end(message, peer);
    mnl_attr_nest_end(message, data);
    mnl_attr_nest_end(message, linkInfo);
    return request.send();
}

int removeLink(uint32_t ifIndex) {
    LinkRequest request(RTM_DELLINK, 0);
    request.info()->ifi_index = static_cast<int>(ifIndex);
    return request.send();
}

int linkUp(uint32_t ifIndex) {
    LinkRequest request(RTM_NEWLINK, 0);
    request.info()->ifi_index = static_cast<int>(ifIndex);
    request.info()->ifi_flags = IFF_UP;
    request.info()->ifi_change = IFF_UP;
    return request.send();
}

/// The kernel's own discovery has no business on these wires. Where that cannot be said, the plane
/// drops and counts it.
void keepIpv6Away(const std::string& name) {
    std::ofstream("/proc/sys/net/ipv6/conf/" + name + "/disable_ipv6") << 1;
}

} // namespace

PacketSocketList::PacketSocketList()
    // The thread's, not the process's: they differ where a thread has moved.
    : fd_(open("/proc/thread-self/net/packet", O_RDONLY | O_CLOEXEC)) {
    if (!fd_) {
        throw PlaneError("/proc/thread-self/net/packet: " + errnoText(errno));
    }
}

std::vector<uint32_t> PacketSocketList::boundDevices(uint16_t ethProtocol) const {
    std::string text;
    std::array<char, 4096> bytes;
    ssize_t length;
    while ((length = pread(fd_.get(), bytes.data(), bytes.size(),
                           static_cast<off_t>(text.size()))) > 0) {
        text.append(bytes.data(), static_cast<size_t>(length));
    }
    std::vector<uint32_t> devices;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        unsigned protocol = 0, running = 0;
        int ifIndex = 0; // -1 once the device is gone
        if (std::sscanf(line.c_str(), "%*s %*s %*s %x %d %u", &protocol, &ifIndex, &running) == 3 &&
            protocol == ethProtocol && running && ifIndex > 0) {
            devices.push_back(static_cast<uint32_t>(ifIndex));
        }
    }
    return devices;
}

PlaneDevice::PlaneDevice(std::string name, uint32_t mtu)
    : name_(std::move(name)), socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    removeLeftover();
    if (int error = makeVeth(name_, farName(), mtu)) {
        throw PlaneError("the forwarding plane cannot make the devices " + name_ + " and " +
                         farName() + ": " + errnoText(error) +
                         (error == EPERM ? "; that takes CAP_NET_ADMIN" : ""));
    }
    ifIndex_ = if_nametoindex(name_.c_str());
    farIfIndex_ = if_nametoindex(farName().c_str());
    keepIpv6Away(name_);
    keepIpv6Away(farName());
    for (uint32_t ifIndex : {farIfIndex_, ifIndex_}) {
        if (int error = linkUp(ifIndex)) {
            removeLink(ifIndex_);
            throw PlaneError(name_ + " does not come up: " + errnoText(error));
        }
    }
}

PlaneDevice::~PlaneDevice() {
    if (present()) {
        removeLink(ifIndex_);
    }
}

void PlaneDevice::removeLeftover() const {
    std::optional<Link> near = findLink(name_);
    std::optional<Link> far = findLink(farName());
    if (!near && !far) {
        return;
    }
    if (!near || !far || near->peerIfIndex != far->ifIndex || far->peerIfIndex != near->ifIndex) {
        throw PlaneError("the forwarding plane needs the names " + name_ + " and " + farName() +
                         " for devices of its own: rename or remove what has them now");
    }
    std::vector<uint32_t> inUse = PacketSocketList().boundDevices(Plane::trapEtherType);
    if (std::find(inUse.begin(), inUse.end(), near->ifIndex) != inUse.end()) {
        throw PlaneError("another agent works on " + name_ + " in this network namespace");
    }
    if (int error = removeLink(near->ifIndex)) {
        throw PlaneError(name_ + " of an earlier run cannot be removed: " + errnoText(error));
    }
}

bool PlaneDevice::present() const {
    ifreq request{};
    request.ifr_ifindex = static_cast<int>(ifIndex_);
    return ioctl(socket_.get(), SIOCGIFNAME, &request) == 0 && request.ifr_name == name_;
}

bool PlaneDevice::gone() const {
    ifreq request{};
    request.ifr_ifindex = static_cast<int>(ifIndex_);
    return ioctl(socket_.get(), SIOCGIFNAME, &request) != 0 && errno == ENODEV;
}

bool PlaneDevice::running() const {
    ifreq request{};
    name_.copy(request.ifr_name, IFNAMSIZ - 1);
    return present() && ioctl(socket_.get(), SIOCGIFFLAGS, &request) == 0 &&
           (request.ifr_flags & IFF_UP) != 0 && (request.ifr_flags & IFF_RUNNING) != 0;
}

} // namespace Linux
