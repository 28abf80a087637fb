#pragma once

#include "Platform/Base/UniqueFd.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Linux {

/// The packet sockets of the network namespace that it was made in.
class PacketSocketList {
  public:
    /// Throws PlaneError.
    PacketSocketList();

    /// The devices, by index, that a socket for the Ethernet protocol is bound to and takes frames
    /// from; a device that is down gives none.
    std::vector<uint32_t> boundDevices(uint16_t ethProtocol) const;

  private:
    Vela::UniqueFd fd_;
};

/// A device that the agent opens by its name, and the far end of its wire, "<name>-fp", where the
/// forwarding plane sees what the agent writes and hands over what the agent reads. Both are up,
/// belong to this object and go with it. They are in the thread's network namespace of the time.
class PlaneDevice {
  public:
    /// A pair that a killed predecessor has left is replaced. Throws PlaneError: a device of the
    /// name belongs to somebody else, or an agent still reads from it.
    PlaneDevice(std::string name, uint32_t mtu);
    ~PlaneDevice();
    PlaneDevice(const PlaneDevice&) = delete;
    PlaneDevice& operator=(const PlaneDevice&) = delete;

    const std::string& name() const { return name_; }
    uint32_t ifIndex() const { return ifIndex_; }
    uint32_t farIfIndex() const { return farIfIndex_; }

    /// Whether frames pass: the device is there as it was made, and both ends are up.
    bool running() const;
    /// Whether somebody has deleted it. One that only has another name is still there.
    bool gone() const;

  private:
    std::string farName() const { return name_ + "-fp"; }
    void removeLeftover() const;
    bool present() const;

    const std::string name_;
    Vela::UniqueFd socket_; // keeps to the namespace
    uint32_t ifIndex_ = 0;
    uint32_t farIfIndex_ = 0;
};

} // namespace Linux
