#pragma once

#include "Platform/Value/IpGenAddr.h"
#include "Platform/Value/VlanId.h"

#include <cstddef>
#include <iosfwd>
#include <optional>
#include <string>

namespace Ctl {

/// Which records of which ring-buffer file.
struct TraceRequest {
    std::string file = {}; ///< empty: the newest "*.sl" of the directory
    std::string directory = "/var/log/arpsup";
    std::optional<unsigned> level = {};          ///< up to this one
    std::optional<size_t> last = {};             ///< no more than the latest so many of them
    std::optional<Zinc::IpGenAddr> address = {}; ///< only those with this address
    std::optional<Bridging::VlanId> vlanId = {}; ///< none of those that name another VLAN
    bool json = false;
};

/// Prints a line or a JSON object per record, oldest first; what is wrong with the file goes to
/// `errors`, and so does its name where it was chosen here. Returns the exit status: 1 if there is
/// no such file or it cannot be read at all, or if `out` fails.
int showTrace(const TraceRequest& request, std::ostream& out, std::ostream& errors);

} // namespace Ctl
