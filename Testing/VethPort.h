#pragma once

#include "Platform/Base/UniqueFd.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Testing {

/// Moves the calling thread into a network namespace of its own, with its loopback up, which is
/// gone with everything in it when nobody is left there. Throws std::runtime_error, which says what
/// is missing, where that may not be done.
void enterOwnNetworkNamespace();

/// A kernel device under a name that the switch expects, and the far end of its wire, where a test
/// puts frames in and sees what comes out. The device lives as long as this object.
class VethPort {
  public:
    using Frame = std::vector<uint8_t>;

    /// Both ends are up. Throws std::runtime_error.
    explicit VethPort(std::string name);
    ~VethPort();
    VethPort(const VethPort&) = delete;
    VethPort& operator=(const VethPort&) = delete;

    const std::string& name() const { return name_; }
    /// The kernel's number for the device.
    uint32_t ifIndex() const { return ifIndex_; }
    /// Whether the wire's near end is up, and with it the wire.
    void upIs(bool up);

    /// Lets a frame arrive at the device.
    void inject(std::span<const uint8_t> frame) const;
    /// Takes the frames that went out of the device since the last call, as they were on the wire,
    /// but for the untagged IPv6 of the kernel's own.
    std::vector<Frame> sent() const;

  private:
    std::string farName() const { return "far-" + name_; }
    void awaitWire() const;

    const std::string name_;
    uint32_t ifIndex_ = 0;
    Vela::UniqueFd far_;
};

} // namespace Testing
