#pragma once

#include "Linux/NeighborMessage.h"
#include "Platform/Model/Arp/InputConfigEntry.h"
#include "Platform/Value/EthAddr.h"

#include <cstdint>

namespace Linux {

/// What an entry of the kernel's neighbour table is to the switch.
struct Neighbor {
    enum class Kind : uint8_t {
        none,  ///< absent, or not resolved
        local, ///< the kernel's own, an operator's or an agent's: the ARP and neighbour tables
        remote ///< of a control plane: the remote bindings
    };

    Kind kind = Kind::none;
    bool isStatic = false;
    Arp::ArpSource source = Arp::ArpSource::kernel; ///< of a static one
    Zinc::EthAddr macAddress;

    friend bool operator==(const Neighbor&, const Neighbor&) = default;
};

/// By state and flag. The protocol alone says little: the kernel keeps that of a control plane on
/// entries that it has long withdrawn or that were learnt anew. Only the agent's own tag counts,
/// on a permanent entry, and before the flag.
Neighbor neighborOf(const NeighborMessage& message);

} // namespace Linux
