#include "Platform/State/CaughtErrors.h"

#include "Platform/State/Entity.h"
#include "Platform/Trace/Trace.h"

namespace Vela {

namespace {

uint64_t rangeErrors = 0;

const TraceHandle& stateTrace() {
    static const TraceHandle handle("State");
    return handle;
}

} // namespace

void caughtRangeError(const RangeError& error, const Entity* where) noexcept {
    ++rangeErrors;
    TRACE(stateTrace(), 0, where, "range error: " << error.what());
}

uint64_t caughtRangeErrors() noexcept {
    return rangeErrors;
}

} // namespace Vela
