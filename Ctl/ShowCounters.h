#pragma once

#include <iosfwd>
#include <string>

namespace Ctl {

/// Prints the agent's counters from shared memory, a line each: number, name, count. Asks nobody,
/// so it works whatever the daemon is busy with, and after its death. Returns the exit status.
int showCounters(const std::string& runtimeDirectory, bool all, std::ostream& out,
                 std::ostream& errors);

} // namespace Ctl
