#pragma once

#include "Linux/KernelDevices.h"
#include "Platform/Agent/SwitchState.h"

#include <set>
#include <string>

namespace Linux {

/// Publishes the switch's interfaces: all devices of the program's own namespace, the routed
/// interfaces of VLANs wherever they are, and what the configuration names in any namespace. Those
/// that are routed have a VRF and the addresses that the kernel has for them.
///
/// A routed interface of a VLAN has an IPv6 status from the start, which says what VRF it is in,
/// and an IPv4 status while it has an IPv4 address; another interface has both only with addresses.
class InterfacePublisher {
  public:
    /// Both must outlive this object.
    InterfacePublisher(const KernelDevices& devices, Vela::SwitchState& state)
        : devices_(devices), state_(state) {}

    /// Anything about the interface of that name changed.
    void update(const std::string& name);

    /// As published.
    const std::set<std::string>& names() const { return names_; }

  private:
    DeviceRef deviceOf(const std::string& name) const;
    void withdraw(const std::string& name);
    void publishAddresses(Zinc::IntfId intfId, const DeviceRef& device);
    void withdrawAddresses(Zinc::IntfId intfId);

    const KernelDevices& devices_;
    Vela::SwitchState& state_;
    std::set<std::string> names_;
};

} // namespace Linux
