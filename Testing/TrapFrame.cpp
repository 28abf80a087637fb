#include "Testing/TrapFrame.h"

#include "Platform/Packet/Headers.h"

#include <stdexcept>

namespace Testing {

std::vector<uint8_t> trapFrame(uint32_t vlanId, uint32_t srcIfIndex, uint16_t etherType,
                               const std::vector<uint8_t>& payload, const Zinc::EthAddr& dst,
                               const Zinc::EthAddr& src) {
    std::vector<uint8_t> frame(30 + payload.size());
    Vela::WireWriter writer(frame);
    writer.bytes(dst.bytes());
    writer.bytes(src.bytes());
    writer.u16(Vela::EtherType::norvelArpSnoop);
    writer.u16(0);
    writer.u32(vlanId);
    writer.u32(srcIfIndex);
    writer.u32(0);
    writer.u16(etherType);
    writer.bytes(payload);
    return frame;
}

std::vector<uint8_t> TrapFrame::bytes() const {
    std::vector<uint8_t> payload((dot1q ? 4 : 0) + Vela::ArpHdr::wireBytes);
    Vela::WireWriter writer(payload);
    if (dot1q) {
        Vela::Dot1qHdr{.vlanId = *dot1q, .etherType = Vela::EtherType::arp}.write(writer);
    }
    Vela::ArpHdr arp;
    arp.operation = operation;
    arp.senderMac = senderMac;
    arp.senderIp = senderIp.v4();
    arp.targetMac = targetMac;
    arp.targetIp = targetIp.v4();
    arp.write(writer);
    payload.insert(payload.end(), trailer.begin(), trailer.end());
    return trapFrame(vlanId, srcIfIndex, dot1q ? Vela::EtherType::dot1q : Vela::EtherType::arp,
                     payload, frameDst, senderMac);
}

std::vector<uint8_t> fromHex(const std::string& hex) {
    std::vector<uint8_t> bytes;
    std::string digits;
    for (char c : hex) {
        if (c == ' ' || c == '\n') {
            continue;
        }
        digits += c;
        if (digits.size() == 2) {
            size_t used = 0;
            bytes.push_back(static_cast<uint8_t>(std::stoul(digits, &used, 16)));
            if (used != 2) {
                throw std::invalid_argument("no hexadecimal digits: " + digits);
            }
            digits.clear();
        }
    }
    if (!digits.empty()) {
        throw std::invalid_argument("an odd number of digits");
    }
    return bytes;
}

} // namespace Testing
