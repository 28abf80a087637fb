#pragma once

#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"

namespace Ctl {

/// What moves a counter, in a line; "?" for one that nobody has described. docs/counters.md has the
/// same words, and what to look at.
const char* ruleOf(ArpSuppression::ArpSuppressionCounterId id);

} // namespace Ctl
