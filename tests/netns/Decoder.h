#pragma once

#include "Testing/VethPort.h"

#include <boost/json/array.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace Netns {

/// What decode.py, which knows nothing of this tree, makes of frames: an array of layers each.
/// Throws std::runtime_error where it cannot run.
boost::json::array decode(const std::vector<Testing::VethPort::Frame>& frames);

// The layers that it should see.
boost::json::object ether(const std::string& dst, const std::string& src, uint16_t type);
boost::json::object dot1q(uint16_t vlan, uint16_t type);
boost::json::object trap(uint32_t vlan, uint32_t srcIfIndex, uint16_t type);
boost::json::object mpls(uint32_t label, bool bottomOfStack);
boost::json::object controlWord();
boost::json::object arp(uint16_t operation, const std::string& senderMac,
                        const std::string& senderIp, const std::string& targetMac,
                        const std::string& targetIp);

} // namespace Netns
