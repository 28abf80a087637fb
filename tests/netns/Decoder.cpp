#include "tests/netns/Decoder.h"

#include "Testing/ChildProcess.h"
#include "Testing/TemporaryDirectory.h"

#include <boost/json.hpp>
#include <fstream>
#include <iomanip>
#include <stdexcept>

namespace Netns {

boost::json::array decode(const std::vector<Testing::VethPort::Frame>& frames) {
    Testing::TemporaryDirectory directory;
    std::string file = directory.path() + "/frames";
    std::ofstream lines(file);
    lines << std::hex << std::setfill('0');
    for (const auto& frame : frames) {
        for (unsigned byte : frame) {
            lines << std::setw(2) << byte;
        }
        lines << '\n';
    }
    lines.close();
    // Debian's own interpreter, which is the one that Debian's scapy is there for.
    Testing::ChildProcess child("/bin/sh",
                                {"-c", R"(exec /usr/bin/python3 "$0" <"$1")", DECODE_SCRIPT, file});
    if (child.status() != 0) {
        throw std::runtime_error("decode.py: " + child.errors());
    }
    return boost::json::parse(child.output()).as_array();
}

boost::json::object ether(const std::string& dst, const std::string& src, uint16_t type) {
    return {{"layer", "Ether"}, {"dst", dst}, {"src", src}, {"type", type}};
}

boost::json::object dot1q(uint16_t vlan, uint16_t type) {
    return {{"layer", "Dot1Q"}, {"prio", 0}, {"id", 0}, {"vlan", vlan}, {"type", type}};
}

boost::json::object trap(uint32_t vlan, uint32_t srcIfIndex, uint16_t type) {
    return {{"layer", "Trap"},          {"zero1", 0}, {"vlan", vlan},
            {"srcIfIndex", srcIfIndex}, {"zero2", 0}, {"type", type}};
}

boost::json::object mpls(uint32_t label, bool bottomOfStack) {
    return {{"layer", "MPLS"},
            {"label", label},
            {"cos", 0},
            {"s", bottomOfStack ? 1 : 0},
            {"ttl", 255}};
}

boost::json::object controlWord() {
    return {{"layer", "EoMCW"}, {"zero", 0}, {"reserved", 0}, {"seq", 0}};
}

boost::json::object arp(uint16_t operation, const std::string& senderMac,
                        const std::string& senderIp, const std::string& targetMac,
                        const std::string& targetIp) {
    return {{"layer", "ARP"},     {"hwtype", 1},     {"ptype", 0x0800},    {"hwlen", 6},
            {"plen", 4},          {"op", operation}, {"hwsrc", senderMac}, {"psrc", senderIp},
            {"hwdst", targetMac}, {"pdst", targetIp}};
}

} // namespace Netns
