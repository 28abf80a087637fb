#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace Linux {

/// What has become of an entry of the input configuration. Kept in its marks.
enum class NeighborOutcome : uint8_t {
    pending,   ///< not carried out yet
    installed, ///< the kernel has it as the agent's permanent entry
    seeded,    ///< a dynamic one has had its one time; from here on it is the kernel's
    satisfied, ///< a control plane's entry serves as well
    stands,    ///< the kernel has learnt another one, or somebody else has set it: it stands
    retry,     ///< refused, being resolved, or no control plane's any more: to be tried again
    lost,      ///< it was there and went or was changed: to be looked at again
    contested, ///< it went again and again: left alone for a while
    noDevice   ///< no device in the VRF carries its interface, or no interface its address
};

/// What `show neighbours` says of it.
const char* toString(NeighborOutcome outcome);

/// The marks of an entry: its outcome and how often it was lost.
struct NeighborMarks {
    static constexpr uint8_t mostLosses = 3;

    NeighborOutcome outcome = NeighborOutcome::pending;
    uint8_t losses = 0;

    static NeighborMarks of(uint8_t bits) {
        return {static_cast<NeighborOutcome>(bits & 0xf), static_cast<uint8_t>(bits >> 4)};
    }
    uint8_t bits() const {
        return static_cast<uint8_t>(static_cast<uint8_t>(outcome) | losses << 4);
    }
};

/// Since the start. The kernel's answers are counted as they come, so an entry may count in
/// several.
enum class NeighborCounter : uint8_t {
    requests,        ///< sent to the kernel
    added,           ///< permanent entries made
    seeded,          ///< dynamic entries made
    replaced,        ///< entries of the agent, or failed ones, changed
    removed,         ///< withdrawn
    readBack,        ///< found with the agent's tag at the start
    satisfied,       ///< a control plane's entry stood there
    stood,           ///< another's entry stood there and was left
    leftAlone,       ///< withdrawn, but no longer the agent's own: not removed
    exists,          ///< EEXIST
    missing,         ///< ENOENT
    tableOverflow,   ///< the kernel's table or its memory was full
    interfaceGone,   ///< the device is not there, not any more or not up
    refused,         ///< any other error
    unanswered,      ///< requests whose answer was lost
    noConnectedVlan, ///< IPv6 entries that no interface of the VRF has a prefix for
    refreshSent,     ///< seeds that the kernel probes at once
    refreshSkipped,  ///< not asked for: the MAC address is on no local port of the VLAN
    refreshLimited,  ///< not asked for: there were too many
    lost,            ///< entries that somebody else removed, installed once more
    contested        ///< entries given up for a while, having been lost too often
};
constexpr size_t neighborCounters = 21;

/// "requests" and so on.
const char* toString(NeighborCounter counter);

class NeighborCounters {
  public:
    uint64_t operator[](NeighborCounter counter) const {
        return values_[static_cast<size_t>(counter)];
    }
    void increment(NeighborCounter counter) { ++values_[static_cast<size_t>(counter)]; }

  private:
    std::array<uint64_t, neighborCounters> values_{};
};

} // namespace Linux
