// The frames that a leaf's hosts and the leaf itself send: requests of every kind, and what is no
// request.

#include "Platform/Packet/Headers.h"
#include "Platform/Packet/NeighborDiscovery.h"
#include "Testing/TrapFrame.h"
#include "tests/random/Leaf.h"

namespace Random {

using Zinc::EthAddr;
using Zinc::IpGenAddr;

namespace {

const std::vector<uint32_t> srcIfIndexes{11, 11, 12, 12, 1, 0, 99};

} // namespace

void Leaf::frame() {
    // A socket holds only so many.
    if (frames_ > 20) {
        settle();
    }
    auto bytes = dice_.chance(60) ? arpFrame() : ndFrame();
    switch (dice_.below(30)) {
    case 0:
        bytes.resize(1 + dice_.below(static_cast<uint32_t>(bytes.size())));
        say_("cut to " + std::to_string(bytes.size()));
        break;
    case 1: {
        const uint32_t at = dice_.below(static_cast<uint32_t>(bytes.size()));
        bytes[at] = static_cast<uint8_t>(dice_.below(256));
        say_("byte " + std::to_string(at) + " is " + std::to_string(bytes[at]));
        break;
    }
    case 2:
        bytes.resize(bytes.size() + dice_.below(30));
        say_("padded to " + std::to_string(bytes.size()));
        break;
    default:
        break;
    }
    ++frames_;
    ports_.inject(physical_ ? fabric : arpsnoop, bytes);
}

/// On the VLAN interface itself, for whoever listens there. What that makes of it is not followed.
void Leaf::replyToVirtualRouter() {
    const auto vlanId = vlan();
    Vela::ArpHdr arp;
    arp.operation = dice_.chance(90) ? Vela::ArpHdr::reply : Vela::ArpHdr::request;
    arp.senderMac = mac();
    arp.senderIp = IpGenAddr("10.0.0." + std::to_string(1 + dice_.below(3))).v4();
    arp.targetMac = dice_.chance(90) ? state_->fhrpVrMacStatus->varpVirtualMac() : mac();
    arp.targetIp = IpGenAddr("10.0.0.254").v4();
    std::vector<uint8_t> bytes(Vela::EthHdr::wireBytes + Vela::ArpHdr::wireBytes);
    Vela::WireWriter writer(bytes);
    Vela::EthHdr{arp.targetMac, arp.senderMac, Vela::EtherType::arp}.write(writer);
    arp.write(writer);
    bytes.resize(dice_.chance(90) ? 60 : 1 + dice_.below(60));
    say_("reply to the virtual router on VLAN " + vlanId.toStrep() + ": " +
         IpGenAddr(arp.senderIp).toStrep() + " " + arp.senderMac.toStrep() + ", " +
         std::to_string(bytes.size()) + " bytes");
    changes_ += 2;
    ports_.inject(1000u + vlanId.value(), bytes);
}

std::vector<uint8_t> Leaf::arpFrame() {
    const auto v4 = [this] {
        return IpGenAddr("10.0.0." + std::to_string(dice_.chance(5) ? 254 : 1 + dice_.below(3)));
    };
    Testing::TrapFrame frame;
    frame.vlanId = vlan().value();
    frame.srcIfIndex = dice_.oneOf(srcIfIndexes);
    frame.senderIp = v4();
    // Most hosts stay what they are.
    frame.senderMac = dice_.chance(60) ? EthAddr(macs_[frame.senderIp.bytes()[3] % 4]) : mac();
    frame.targetIp = v4();
    if (dice_.chance(10)) {
        frame.dot1q = static_cast<uint16_t>(frame.vlanId);
    }
    std::string kind = "request";
    switch (dice_.below(10)) {
    case 0:
        kind = "probe";
        frame.senderIp = IpGenAddr("0.0.0.0");
        break;
    case 1:
        kind = "announcement";
        frame.targetIp = frame.senderIp;
        break;
    case 2:
    case 3:
        kind = "request of the switch";
        frame.senderMac = dice_.chance(50) ? state_->bridgingConfig->bridgeMacAddr()
                                           : state_->fhrpVrMacStatus->varpVirtualMac();
        frame.senderIp = IpGenAddr("10.0.0.254");
        break;
    case 4:
        kind = "reply";
        frame.operation = 2;
        frame.targetMac = mac();
        frame.frameDst = frame.targetMac;
        break;
    case 5:
        if (dice_.chance(20)) {
            kind = "operation 3";
            frame.operation = 3;
        }
        break;
    default:
        break;
    }
    say_("ARP " + kind + " on VLAN " + std::to_string(frame.vlanId) + " port " +
         std::to_string(frame.srcIfIndex) + ": " + frame.senderIp.toStrep() + " " +
         frame.senderMac.toStrep() + " asks for " + frame.targetIp.toStrep());
    return frame.bytes();
}

std::vector<uint8_t> Leaf::ndFrame() {
    const auto v6 = [this] {
        return IpGenAddr((dice_.chance(50) ? "2001:db8::" : "fe80::") +
                         std::to_string(1 + dice_.below(2)));
    };
    using Vela::Icmp6Hdr;
    const uint8_t type = std::vector<uint8_t>{
        Icmp6Hdr::neighborSolicitation, Icmp6Hdr::neighborSolicitation,
        Icmp6Hdr::neighborAdvertisement, Icmp6Hdr::routerSolicitation}[dice_.below(4)];
    const bool solicits = type == Icmp6Hdr::neighborSolicitation;
    const auto sender = mac();
    const auto target = v6();
    Vela::Ip6Hdr ip6;
    ip6.src = v6();
    ip6.dst =
        IpGenAddr(solicits ? "ff02::1:ff00:" + std::to_string(target.bytes()[15]) : "ff02::2");
    const bool probes = dice_.chance(10);
    if (probes) {
        ip6.src = IpGenAddr("::");
    }
    std::vector<uint8_t> message(type == Icmp6Hdr::routerSolicitation ? 8 : 24);
    message[0] = type;
    if (type != Icmp6Hdr::routerSolicitation) {
        std::copy_n(target.bytes().begin(), 16, message.begin() + 8);
    }
    if (!probes && dice_.chance(80)) {
        message.push_back(type == Icmp6Hdr::neighborAdvertisement ? Arp::targetLinkLayerAddress
                                                                  : Arp::sourceLinkLayerAddress);
        message.push_back(1);
        message.insert(message.end(), sender.bytes().begin(), sender.bytes().end());
    }
    ip6.payloadLength = static_cast<uint16_t>(message.size());
    ip6.nextHeader = Vela::Ip6Hdr::icmp6;
    ip6.hopLimit = 255;
    const uint16_t checksum = Arp::icmp6Checksum(ip6, message);
    message[2] = static_cast<uint8_t>(checksum >> 8);
    message[3] = static_cast<uint8_t>(checksum);
    std::vector<uint8_t> payload(Vela::Ip6Hdr::wireBytes);
    Vela::WireWriter writer(payload);
    ip6.write(writer);
    payload.insert(payload.end(), message.begin(), message.end());
    const uint32_t vlanId = vlan().value();
    const uint32_t srcIfIndex = dice_.oneOf(srcIfIndexes);
    say_("ICMPv6 " + std::to_string(type) + " on VLAN " + std::to_string(vlanId) + " port " +
         std::to_string(srcIfIndex) + ": " + ip6.src.toStrep() + " " + sender.toStrep() +
         (message.size() % 24 == 8 && message.size() > 8 ? "" : " without option") + " asks for " +
         target.toStrep());
    return Testing::trapFrame(vlanId, srcIfIndex, Vela::EtherType::ipv6, payload,
                              EthAddr("33:33:ff:00:00:02"), sender);
}

} // namespace Random
