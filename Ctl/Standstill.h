#pragma once

#include "Platform/Quarry/AttachedTable.h"

#include <cstdint>
#include <string>

namespace Ctl {

/// Why a table that its writer has `closed`, or not, does not change any more; nothing if it may.
/// `what` it holds, for people: "counters".
std::string standstill(bool closed, uint32_t writerPid, const std::string& what);

template <class R>
std::string standstill(const Quarry::AttachedTable<R>& table, const std::string& what) {
    return standstill(table.closed(), table.writerPid(), what);
}

/// Why something in a table cannot be read.
const char* reasonOf(Quarry::Outcome outcome);

} // namespace Ctl
