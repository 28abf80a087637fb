#include "ArpSuppression/ArpSuppressionTrace.h"

namespace ArpSuppression {

const Vela::TraceHandle trace("ArpSuppression");

} // namespace ArpSuppression
