#include "Platform/Packet/Headers.h"

namespace Vela {

namespace {

Zinc::EthAddr readEthAddr(WireReader& reader) {
    return Zinc::EthAddr(reader.bytes<6>());
}

Zinc::IpGenAddr readIp6(WireReader& reader) {
    return Zinc::IpGenAddr(reader.bytes<16>());
}

} // namespace

EthHdr EthHdr::read(WireReader& reader) {
    EthHdr header;
    header.dst = readEthAddr(reader);
    header.src = readEthAddr(reader);
    header.etherType = reader.u16();
    return header;
}

void EthHdr::write(WireWriter& writer) const {
    writer.bytes(dst.bytes());
    writer.bytes(src.bytes());
    writer.u16(etherType);
}

Dot1qHdr Dot1qHdr::read(WireReader& reader) {
    Dot1qHdr header;
    uint16_t control = reader.u16();
    header.priority = static_cast<uint8_t>(control >> 12);
    header.vlanId = control & 0xFFF;
    header.etherType = reader.u16();
    return header;
}

void Dot1qHdr::write(WireWriter& writer) const {
    writer.u16(static_cast<uint16_t>(priority << 12 | (vlanId & 0xFFF)));
    writer.u16(etherType);
}

ArpHdr ArpHdr::read(WireReader& reader) {
    ArpHdr header;
    header.hardwareType = reader.u16();
    header.protocolType = reader.u16();
    header.hardwareLength = reader.u8();
    header.protocolLength = reader.u8();
    header.operation = reader.u16();
    header.senderMac = readEthAddr(reader);
    header.senderIp = reader.u32();
    header.targetMac = readEthAddr(reader);
    header.targetIp = reader.u32();
    return header;
}

void ArpHdr::write(WireWriter& writer) const {
    writer.u16(hardwareType);
    writer.u16(protocolType);
    writer.u8(hardwareLength);
    writer.u8(protocolLength);
    writer.u16(operation);
    writer.bytes(senderMac.bytes());
    writer.u32(senderIp);
    writer.bytes(targetMac.bytes());
    writer.u32(targetIp);
}

Ip6Hdr Ip6Hdr::read(WireReader& reader) {
    Ip6Hdr header;
    uint32_t first = reader.u32();
    header.version = static_cast<uint8_t>(first >> 28);
    header.trafficClass = static_cast<uint8_t>(first >> 20);
    header.flowLabel = first & 0xFFFFF;
    header.payloadLength = reader.u16();
    header.nextHeader = reader.u8();
    header.hopLimit = reader.u8();
    header.src = readIp6(reader);
    header.dst = readIp6(reader);
    return header;
}

void Ip6Hdr::write(WireWriter& writer) const {
    writer.u32(uint32_t{version} << 28 | uint32_t{trafficClass} << 20 | (flowLabel & 0xFFFFF));
    writer.u16(payloadLength);
    writer.u8(nextHeader);
    writer.u8(hopLimit);
    writer.bytes(src.bytes());
    writer.bytes(dst.bytes());
}

Icmp6Hdr Icmp6Hdr::read(WireReader& reader) {
    Icmp6Hdr header;
    header.type = reader.u8();
    header.code = reader.u8();
    header.checksum = reader.u16();
    return header;
}

void Icmp6Hdr::write(WireWriter& writer) const {
    writer.u8(type);
    writer.u8(code);
    writer.u16(checksum);
}

MplsEntry MplsEntry::read(WireReader& reader) {
    MplsEntry entry;
    uint32_t word = reader.u32();
    entry.label = word >> 12;
    entry.trafficClass = static_cast<uint8_t>(word >> 9 & 7);
    entry.bottomOfStack = (word >> 8 & 1) != 0;
    entry.ttl = static_cast<uint8_t>(word);
    return entry;
}

void MplsEntry::write(WireWriter& writer) const {
    writer.u32(label << 12 | uint32_t{trafficClass & 7u} << 9 | uint32_t{bottomOfStack} << 8 | ttl);
}

} // namespace Vela
