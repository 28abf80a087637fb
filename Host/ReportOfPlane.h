#pragma once

#include "Host/ForwardingPlaneReport.h"
#include "Linux/ForwardingPlane.h"

namespace Host {

/// As it is now. May be asked in a forked child: the kernel's counters are mapped.
inline ForwardingPlaneReport reportOf(const Linux::ForwardingPlane& plane) {
    const std::set<uint32_t>& tunnels = plane.attachedTunnels();
    ForwardingPlaneReport report{.enabled = plane.enabled(),
                                 .silentBecause = plane.silentBecause(),
                                 .tunnels = {tunnels.begin(), tunnels.end()}};
    for (const auto& [ifIndex, problem] : plane.problems()) {
        report.problems.push_back(problem);
    }
    const Linux::PlaneCounters counters = plane.counters();
    for (int number = 0; number < Linux::Plane::counterLimit; ++number) {
        auto counter = static_cast<Linux::Plane::Counter>(number);
        report.counters.emplace_back(Linux::PlaneCounters::name(counter), counters[counter]);
    }
    return report;
}

} // namespace Host
