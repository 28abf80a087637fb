#pragma once

#include <iosfwd>
#include <string>

namespace Ctl {

/// Prints what the daemon says of itself as JSON: {"sections": [{"title": …, "text": …}, …]}. A
/// section begins where a line is not indented, and that line is its title. Text is passed on as
/// it comes. Returns the exit status.
int showTechSupportJson(const std::string& runtimeDirectory, std::ostream& out,
                        std::ostream& errors);

} // namespace Ctl
