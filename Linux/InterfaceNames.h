#pragma once

#include "Linux/LinkMessage.h"
#include "Linux/LinuxConfiguration.h"
#include "Platform/Value/IntfId.h"

#include <string>

namespace Linux {

/// What the switch calls a device: as the configuration says, or as the kernel does.
std::string deviceInterfaceName(const LinuxConfiguration& configuration, const std::string& netNs,
                                const LinkMessage& link);

/// The interface of a name; empty, and told in the trace, when the process can take no more names.
Zinc::IntfId internedIntf(const std::string& name);

} // namespace Linux
