#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Host {

/// What an operator wants to know of the forwarding plane.
struct ForwardingPlaneReport {
    bool enabled = false; ///< false while the daemon stops
    /// Why no requests are trapped; empty while they are.
    std::string silentBecause = {};
    std::vector<uint32_t> tunnels = {};     ///< the devices that it watches, by kernel index
    std::vector<std::string> problems = {}; ///< with tunnels that it cannot watch
    std::vector<std::pair<std::string, uint64_t>> counters = {}; ///< in frames
};

/// A line for each thing, or a JSON object. The descriptor stays the caller's.
void writeForwardingPlane(const ForwardingPlaneReport& report, bool json, int fd);

} // namespace Host
