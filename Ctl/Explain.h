#pragma once

#include "Platform/Value/IpGenAddr.h"
#include "Platform/Value/VlanId.h"

#include <iosfwd>
#include <optional>
#include <string>

namespace Ctl {

struct ExplainRequest {
    std::string runtimeDirectory;
    std::string logDirectory;
    Zinc::IpGenAddr address;
    std::optional<Bridging::VlanId> vlanId = {}; ///< only on this VLAN
    bool json = false;
};

/// Prints what would become of a request for the address now, which the daemon says, and the last
/// events that touched the address, which the ring-buffer file says: be the daemon there or not.
/// Returns the exit status: 1 if either of them fails.
int explain(const ExplainRequest& request, std::ostream& out, std::ostream& errors);

} // namespace Ctl
