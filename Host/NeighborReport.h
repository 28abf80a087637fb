#pragma once

#include "Linux/NeighborWriter.h"
#include "Platform/Model/Arp/InputConfig.h"

namespace Host {

/// What the agent asks of the kernels' neighbour tables, and what came of it: a line for each entry
/// by VRF and address, then the writer's counters; or a JSON object. `writer` is null where the
/// kernel is not the switch, so that nobody carries anything out. The descriptor stays the
/// caller's.
void writeNeighbors(const Arp::InputConfig& asked, Linux::NeighborWriter* writer, bool json,
                    int fd);

} // namespace Host
