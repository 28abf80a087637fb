#pragma once

#include "Host/Configuration.h"
#include "Linux/LinuxConfiguration.h"

#include <map>
#include <string>

namespace Host {

/// The state of a VRF as the tables say it.
Ip::VrfState stateInTables(VrfState state);

/// What the kernel's providers are to know of a configuration, with the ids of its VRFs by name.
Linux::LinuxConfiguration kernelSettings(const Configuration& configuration,
                                         const std::map<std::string, Vrf::VrfId>& vrfIds);

} // namespace Host
