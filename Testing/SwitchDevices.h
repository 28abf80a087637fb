#pragma once

#include "Platform/Agent/SwitchState.h"

#include <cstdint>
#include <string>

namespace Testing {

/// Publishes a kernel device that is up and running, in place of any other of that name; with index
/// 0 there is none.
void deviceIs(Vela::SwitchState& state, const std::string& name, uint32_t ifIndex,
              const std::string& netNs = "default");
/// The flags of a device as the kernel has them: up, and running or not.
uint32_t deviceFlags(bool running);

/// Publishes an interface of the switch and its device, in the default namespace.
void portIs(Vela::SwitchState& state, const std::string& intfName, const std::string& deviceName,
            uint32_t ifIndex);

/// Publishes a VLAN that EVPN serves, with a routed interface in the default VRF, and its device.
void routedVlanIs(Vela::SwitchState& state, Bridging::VlanId vlanId, uint32_t ifIndex);

} // namespace Testing
