#pragma once

#include "Platform/Base/Errors.h"

#include <cstdint>

namespace Vela {

class Entity;

/// Traces and counts a range error that ended one reaction or one walk and nothing more.
void caughtRangeError(const RangeError& error, const Entity* where) noexcept;

/// How many there were in this process; other than 0 it deserves a look.
uint64_t caughtRangeErrors() noexcept;

} // namespace Vela
