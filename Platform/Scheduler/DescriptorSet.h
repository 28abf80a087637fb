#pragma once

#include "Platform/Base/Clock.h"
#include "Platform/Base/UniqueFd.h"

#include <cstdint>
#include <unordered_map>

namespace Vela {

class FileDescriptor;

/// The process's one epoll set, edge-triggered: a descriptor is announced when it becomes ready
/// and not again while it stays so.
class DescriptorSet {
  public:
    DescriptorSet();

    /// Waits up to `longest` (rounded up to milliseconds), announces what became ready and returns
    /// how many descriptors that were. A descriptor may be destroyed by an announcement.
    int wait(MonotonicTime longest);

  private:
    friend class FileDescriptor;

    /// Returns the number that the descriptor is known by from then on; no two have the same.
    uint64_t add(FileDescriptor& descriptor);
    void remove(uint64_t number) noexcept;
    /// What to announce from now on; neither takes the descriptor out of the kernel's set.
    void watch(uint64_t number, bool readable, bool writable);

    struct Entry {
        FileDescriptor* descriptor;
        bool watched;
    };

    UniqueFd epoll_;
    std::unordered_map<uint64_t, Entry> entries_;
    uint64_t lastNumber_ = 0;
};

} // namespace Vela
