#pragma once

#include "Linux/test/NeighborBytes.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Linux {

/// What a test says of a device.
struct LinkSpecimen {
    uint32_t ifIndex = 0;
    std::string name = {};
    std::string kind = {};
    uint32_t master = 0;
    std::string macAddress = "02:00:00:00:00:01";
    uint32_t link = 0;
    std::optional<int32_t> linkNetNsId = {};
    uint32_t flags = 0;
    bool removed = false;
    bool dumped = false;

    MessageBytes bytes() const;
};

/// What a test says of an address: "10.0.0.1".
struct AddressSpecimen {
    uint32_t ifIndex = 0;
    std::string address = {};
    uint8_t prefixLen = 24;
    uint32_t flags = 0; ///< IFA_F_...
    bool removed = false;
    bool dumped = false;

    MessageBytes bytes() const;
};

} // namespace Linux
