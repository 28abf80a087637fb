#pragma once

#include "Platform/Model/Ip/AddrWithMask.h"

#include <cstdint>
#include <linux/netlink.h>
#include <optional>

namespace Linux {

/// An address of a device.
struct AddressMessage {
    bool removed = false;
    uint32_t ifIndex = 0;
    Ip::AddrWithMask address;
    bool secondary = false; ///< IPv4: another address of the same network stands before it
    bool duplicate = false; ///< IPv6: somebody else has it, so the kernel does not use it

    friend bool operator==(const AddressMessage&, const AddressMessage&) = default;
};

/// Reads RTM_NEWADDR and RTM_DELADDR of IPv4 and IPv6. Nothing for messages of other types or
/// families, without an index or an address, or with a prefix longer than the address; wrong and
/// unknown attributes are passed over.
std::optional<AddressMessage> decodeAddress(const nlmsghdr& message);

} // namespace Linux
