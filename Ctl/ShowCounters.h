#pragma once

#include <functional>
#include <iosfwd>
#include <optional>
#include <string>

namespace Ctl {

struct CountersRequest {
    std::string runtimeDirectory;
    bool all = false; ///< those at zero, too; JSON always has them
    bool json = false;
};

/// Prints the agent's counters from shared memory, a line each: number, name, count and what moves
/// it. Asks nobody, so it works whatever the daemon is busy with, and after its death. Returns the
/// exit status.
int showCounters(const CountersRequest& request, std::ostream& out, std::ostream& errors);

/// Waits for the next round of a watch: the seconds since the last one, or nothing if it is over.
using NextRound = std::function<std::optional<double>()>;

/// Prints them again and again, from the second round on with what they grow by per second; as
/// JSON an object per round. Follows a daemon that is started anew. Returns the exit status.
int watchCounters(const CountersRequest& request, const NextRound& nextRound, std::ostream& out,
                  std::ostream& errors);

} // namespace Ctl
