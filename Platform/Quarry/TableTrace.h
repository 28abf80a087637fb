#pragma once

#include "Platform/Trace/Trace.h"

namespace Quarry {

/// "Quarry": what goes wrong is at level 0, mounts are at level 5.
extern const Vela::TraceHandle trace;

} // namespace Quarry
