#pragma once

#include "Linux/NeighborMessage.h"
#include "Platform/Value/EthAddr.h"
#include "Platform/Value/IpGenAddr.h"

#include <cstdint>
#include <span>
#include <vector>

namespace Linux {

/// A question or an order about one entry of a kernel's neighbour table.
struct NeighborRequest {
    enum class Verb : uint8_t {
        add,     ///< EEXIST if there is one, whatever its state
        replace, ///< ENOENT if there is none
        remove,
        get
    };

    Verb verb = Verb::get;
    uint32_t ifIndex = 0;
    Zinc::IpGenAddr address;
    Zinc::EthAddr macAddress; ///< of add and replace, as are the next two
    uint16_t state = 0;       ///< NUD_...
    uint8_t protocol = 0;     ///< 0 leaves what the kernel has
};

struct NeighborAnswer {
    static constexpr int lost = -1; ///< no answer came: it may have been carried out or not

    int error = lost;         ///< of errno; 0: done
    NeighborMessage neighbor; ///< what a get without error found
};

/// The way to one namespace's neighbour tables.
class NeighborChannel {
  public:
    virtual ~NeighborChannel() = default;

    /// Has the kernel carry out the requests in their order; an answer for each, in the same order.
    /// Never waits.
    virtual std::vector<NeighborAnswer> exchange(std::span<const NeighborRequest> requests) = 0;
};

} // namespace Linux
