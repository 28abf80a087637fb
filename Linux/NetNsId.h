#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Linux {

/// What a namespace (of the names below /run/netns) calls another one, to which `of` is open, in
/// its messages; nothing while it has no name for it, or cannot be asked.
std::optional<int32_t> netNsId(const std::string& in, int of);

} // namespace Linux
