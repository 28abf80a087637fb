#pragma once

#include "Platform/Value/IpGenAddr.h"
#include "Platform/Value/VlanId.h"

#include <iosfwd>
#include <optional>
#include <string>

namespace Ctl {

struct RemoteBindingsRequest {
    std::string runtimeDirectory;
    std::optional<Bridging::VlanId> vlanId = {}; ///< only of this VLAN
    std::optional<Zinc::IpGenAddr> address = {}; ///< only of this address
    bool json = false;
};

/// Prints the bindings that the agent knows from remote tunnel end points, from shared memory, in
/// the order of VLANs and addresses. Asks nobody, like showCounters. Holds 28 bytes per binding;
/// lines are written as they are made. Returns the exit status.
int showRemoteBindings(const RemoteBindingsRequest& request, std::ostream& out,
                       std::ostream& errors);

} // namespace Ctl
