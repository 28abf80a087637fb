#include "Ctl/CounterRules.h"

#include <array>
#include <cstddef>

namespace Ctl {

namespace {

constexpr std::array<const char*, ArpSuppression::arpSuppressionCounters> rules = {
    "a neighbour entry for a remote binding is asked for",
    "a permanent neighbour entry is written again",
    "a neighbour entry for a local binding is asked for",
    "a dynamic neighbour entry is written again, also when its remote binding has gone",
    "a neighbour entry is withdrawn, as no binding supports it or the kernel has its own",
    "no neighbour entry, as the binding's VLAN has no routed interface",
    "a request is for a host that is elsewhere and has a remote binding",
    "the switch asks for a host on a segment with a designated forwarder, and it has a remote "
    "binding",
    "a request is for a host on a segment without a designated forwarder",
    "no reply, as the port that the request came in on is not known",
    "no reply, as the target is on the port that the request came in on",
    "a request goes on to the remote end points: nobody is known, a probe or a gratuitous ARP",
    "never",
    "a request is for a host on a port of this switch, which answers itself",
    "no reply, as the device for replies is not usable",
    "a reply could not be sent",
    "the queue of requests to be sent on was full, and its oldest one was dropped",
    "the switch has asked for a host, and gets a neighbour entry instead of a reply",
    "no neighbour entry for the switch, as the MAC address is zero or multicast",
    "no neighbour entry for the switch, as the IP address is unspecified or multicast",
    "no neighbour entry for the switch, as the MAC address is its own",
    "no neighbour entry for the switch, as the MAC address is that of the virtual router",
    "no neighbour entry for the switch, as the VLAN has no usable interface",
    "a request is for an address of the switch, which answers itself",
    "never",
    "no local binding, as the MAC address is zero or multicast",
    "no local binding, as the IP address is unspecified or multicast",
    "no local binding, as the MAC address is the switch's own",
    "no local binding, as the MAC address is that of the virtual router",
    "no local binding from a request, as a peer on the same segment advertises it",
    "no local bindings from a local MAC address, as a peer on the same segment advertises one",
    "no local binding for a remote address that several MAC addresses claim",
    "no local binding, as the VLAN has no usable interface",
    "a MAC address with remote bindings has come to a port of this switch",
    "a local binding is made, or replaced for another MAC address",
    "a local binding is found again as it was",
    "a local binding is removed: its host has gone, or a remote binding has come",
    "a frame to the virtual router is too short, no ARP or not for Ethernet and IPv4",
    "an ARP packet is no reply",
    "an ARP reply has data behind it; it is used all the same",
    "an ARP reply is not to the virtual router's MAC address",
    "an ARP reply is learnt from",
    "a neighbour advertisement does not pass its checks",
    "a neighbour advertisement is not to the virtual router's MAC address",
    "a neighbour advertisement is learnt from",
    "reading from the trap device failed",
    "a trapped frame is malformed, or neither ARP nor neighbour discovery",
    "a trapped frame is of a VLAN where suppression is not active",
    "a trapped ARP packet is neither a request nor a reply",
    "a trapped ARP packet has data behind it; it is used all the same",
    "an ARP request was trapped",
    "an ARP reply was trapped",
    "a copy of a neighbour solicitation has come",
    "a copy of a neighbour advertisement has come",
    "a copy of a router solicitation has come",
    "a request was handed to the forwarding plane for the remote end points",
    "a request could not be handed to the forwarding plane, and is lost",
    "a request was dropped, as EVPN has no flooding label over MPLS for the VLAN",
};

} // namespace

const char* ruleOf(ArpSuppression::ArpSuppressionCounterId id) {
    auto number = static_cast<size_t>(id);
    return number < rules.size() && rules[number] ? rules[number] : "?";
}

} // namespace Ctl
