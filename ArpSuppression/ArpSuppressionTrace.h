#pragma once

#include "Platform/Trace/Trace.h"

namespace ArpSuppression {

/// The agent's one trace handle, "ArpSuppression". Method entry, walk progress, decisions and
/// parsing are at level 8.
extern const Vela::TraceHandle trace;

} // namespace ArpSuppression
