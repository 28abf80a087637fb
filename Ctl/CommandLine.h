#pragma once

#include <iosfwd>

namespace Ctl {

/// All of arpsupctl but its process: parses the command line, does what it says and returns the
/// exit status (0 done, 1 failed, 2 wrong usage). What arpsupd answers goes to standard output
/// itself, after `out` has been flushed.
int runCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& errors);

} // namespace Ctl
