#pragma once

#include "Platform/Value/IpGenAddr.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <libmnl/libmnl.h>
#include <optional>
#include <span>
#include <string>
#include <sys/socket.h>
#include <type_traits>

namespace Linux {

// Bounded reading of netlink messages. Numbers are in host order, as the kernel writes them.

/// A plain value at the start of some bytes, if there are enough.
template <class T>
std::optional<T> valueAt(std::span<const uint8_t> bytes) {
    static_assert(std::is_trivially_copyable_v<T>);
    if (bytes.size() < sizeof(T)) {
        return std::nullopt;
    }
    T value;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

/// The text up to its zero or to the end of the bytes.
inline std::string textOf(std::span<const uint8_t> bytes) {
    std::string text(bytes.begin(), bytes.end());
    return text.substr(0, text.find('\0'));
}

/// An address of AF_INET or AF_INET6, which must have all its bytes and no more; else unset.
inline Zinc::IpGenAddr ipAddressOf(uint8_t family, std::span<const uint8_t> bytes) {
    if (family == AF_INET && bytes.size() == sizeof(uint32_t)) {
        return Zinc::IpGenAddr(ntohl(*valueAt<uint32_t>(bytes)));
    }
    if (family == AF_INET6 && bytes.size() == sizeof(Zinc::IpGenAddr::Bytes)) {
        return Zinc::IpGenAddr(*valueAt<Zinc::IpGenAddr::Bytes>(bytes));
    }
    return Zinc::IpGenAddr();
}

/// What follows a message's header, of which `nlmsg_len` bytes can be read.
inline std::span<const uint8_t> payloadOf(const nlmsghdr& message) {
    if (message.nlmsg_len < MNL_NLMSG_HDRLEN) {
        return {};
    }
    return {static_cast<const uint8_t*>(mnl_nlmsg_get_payload(&message)),
            mnl_nlmsg_get_payload_len(&message)};
}

/// Calls `visit(type, bytes)` for each attribute that lies within `bytes` whole; what is wrong ends
/// it. The flag bits are taken off the types.
template <class Visit>
void forEachAttribute(std::span<const uint8_t> bytes, Visit&& visit) {
    while (bytes.size() >= sizeof(nlattr)) {
        auto header = *valueAt<nlattr>(bytes);
        if (header.nla_len < sizeof(nlattr) || header.nla_len > bytes.size()) {
            return;
        }
        visit(static_cast<uint16_t>(header.nla_type & NLA_TYPE_MASK),
              bytes.subspan(MNL_ATTR_HDRLEN, header.nla_len - MNL_ATTR_HDRLEN));
        bytes = bytes.subspan(std::min<size_t>(bytes.size(), MNL_ALIGN(header.nla_len)));
    }
}

/// The attributes behind a family's header of `headerBytes`.
template <class Visit>
void forEachAttribute(const nlmsghdr& message, size_t headerBytes, Visit&& visit) {
    auto payload = payloadOf(message);
    if (payload.size() >= MNL_ALIGN(headerBytes)) {
        forEachAttribute(payload.subspan(MNL_ALIGN(headerBytes)), visit);
    }
}

} // namespace Linux
