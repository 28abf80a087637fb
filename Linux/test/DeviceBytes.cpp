#include "Linux/test/DeviceBytes.h"

#include <array>
#include <libmnl/libmnl.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>

namespace Linux {

namespace {

class Message {
  public:
    Message(uint16_t type, bool dumped) : header_(*mnl_nlmsg_put_header(bytes_.data())) {
        header_.nlmsg_type = type;
        header_.nlmsg_flags = dumped ? NLM_F_MULTI : 0;
    }
    template <class T>
    T& payload() {
        return *static_cast<T*>(mnl_nlmsg_put_extra_header(&header_, sizeof(T)));
    }
    nlmsghdr* header() { return &header_; }
    MessageBytes bytes() const {
        return MessageBytes(std::span<const uint8_t>(bytes_.data(), header_.nlmsg_len));
    }

  private:
    alignas(nlmsghdr) std::array<uint8_t, 512> bytes_{};
    nlmsghdr& header_;
};

} // namespace

MessageBytes LinkSpecimen::bytes() const {
    Message message(removed ? RTM_DELLINK : RTM_NEWLINK, dumped);
    auto& device = message.payload<ifinfomsg>();
    device.ifi_index = static_cast<int>(ifIndex);
    device.ifi_flags = flags;
    mnl_attr_put_strz(message.header(), IFLA_IFNAME, name.c_str());
    Zinc::EthAddr mac(macAddress);
    mnl_attr_put(message.header(), IFLA_ADDRESS, mac.bytes().size(), mac.bytes().data());
    if (!kind.empty()) {
        nlattr* info = mnl_attr_nest_start(message.header(), IFLA_LINKINFO);
        mnl_attr_put_strz(message.header(), IFLA_INFO_KIND, kind.c_str());
        mnl_attr_nest_end(message.header(), info);
    }
    if (master != 0) {
        mnl_attr_put_u32(message.header(), IFLA_MASTER, master);
    }
    if (link != 0) {
        mnl_attr_put_u32(message.header(), IFLA_LINK, link);
    }
    if (linkNetNsId) {
        mnl_attr_put_u32(message.header(), IFLA_LINK_NETNSID, static_cast<uint32_t>(*linkNetNsId));
    }
    return message.bytes();
}

MessageBytes AddressSpecimen::bytes() const {
    Message message(removed ? RTM_DELADDR : RTM_NEWADDR, dumped);
    Zinc::IpGenAddr ip(address);
    bool v4 = ip.af() == Zinc::ipv4();
    auto& header = message.payload<ifaddrmsg>();
    header.ifa_family = v4 ? AF_INET : AF_INET6;
    header.ifa_prefixlen = prefixLen;
    header.ifa_index = ifIndex;
    mnl_attr_put(message.header(), v4 ? IFA_LOCAL : IFA_ADDRESS, v4 ? 4 : 16, ip.bytes().data());
    mnl_attr_put_u32(message.header(), IFA_FLAGS, flags);
    return message.bytes();
}

} // namespace Linux
