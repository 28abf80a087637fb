#pragma once

#include "Platform/Trace/Trace.h"

#include <string>

namespace ArpSuppression {

/// The agent's one trace handle, "ArpSuppression". Method entry, walk progress, decisions and
/// parsing are at level 8.
extern const Vela::TraceHandle trace;

/// What `errno` says, in words.
std::string errnoText();

} // namespace ArpSuppression
