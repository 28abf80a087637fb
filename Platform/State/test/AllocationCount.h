#pragma once

#include <cstddef>
#include <cstdint>

namespace Vela {

/// What the process has allocated with `new` so far.
struct AllocationCount {
    uint64_t allocations = 0;
    size_t liveBytes = 0; ///< as the allocator rounds them

    static AllocationCount now() noexcept;
};

} // namespace Vela
