#pragma once

#include <cstdint>
#include <string>

namespace Vela {

/// Opens a netlink socket in a network namespace, where it stays; closed on exec. `family` is the
/// netlink protocol (0: routing), `type` SOCK_RAW or SOCK_DGRAM, `groups` those that it hears from
/// the start. Returns a descriptor, which the caller closes and which is never 0 to 2, or 0 if
/// there is none; then `errno` has the reason.
uint32_t netlinkSocket(int family, const std::string& netNs, int type, bool nonBlocking,
                       uint32_t groups);

} // namespace Vela
