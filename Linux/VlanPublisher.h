#pragma once

#include "Linux/KernelDevices.h"
#include "Linux/Topology.h"
#include "Platform/Agent/SwitchState.h"

#include <cstdint>
#include <map>
#include <set>

namespace Linux {

/// Publishes what devices are to VLANs: the topology, the VLANs that EVPN serves (those whose
/// bridge has a tunnel), the switch's own MAC address and the one that gateways share. Says so in
/// the trace, at level 0, when a routed interface has another MAC address than the switch.
class VlanPublisher {
  public:
    /// All must outlive this object.
    VlanPublisher(const KernelDevices& devices, Vela::SwitchState& state, Topology& topology)
        : devices_(devices), state_(state), topology_(topology) {}

    /// A device of the program's own namespace came, changed or went.
    void updatePort(uint32_t ifIndex);
    /// Anything about a VLAN changed.
    void updateVlan(Bridging::VlanId vlanId);
    /// What the configuration alone says changed.
    void updateMacAddresses();

    /// Those of which anything is published.
    std::set<Bridging::VlanId> vlans() const;
    /// The routed interfaces whose MAC address is not the switch's.
    const std::map<Bridging::VlanId, Zinc::EthAddr>& strangeMacs() const { return strangeMacs_; }

  private:
    void updatePorts(Bridging::VlanId vlanId, const LinkMessage* bridge);
    void updateRouted(Bridging::VlanId vlanId, const DeviceRef& routed);
    void updateEvpn(Bridging::VlanId vlanId);
    void checkMac(Bridging::VlanId vlanId);

    const KernelDevices& devices_;
    Vela::SwitchState& state_;
    Topology& topology_;
    std::map<Bridging::VlanId, std::set<uint32_t>> ports_;          // as published
    std::map<Bridging::VlanId, std::set<DeviceKey>> routedDevices_; // as published
    std::set<Bridging::VlanId> evpn_;                               // as published
    std::map<Bridging::VlanId, Zinc::EthAddr> macs_;                // of routed interfaces
    std::map<Bridging::VlanId, Zinc::EthAddr> virtualMacs_;         // of macvlans on them
    std::map<Bridging::VlanId, Zinc::EthAddr> strangeMacs_;
};

} // namespace Linux
