#pragma once

#include "Platform/Model/Arp/ArpKey.h"
#include "Platform/State/Collection.h"
#include "Platform/State/Entity.h"
#include "Platform/Value/EthAddr.h"
#include "Platform/Value/IntfId.h"
#include "Platform/Value/VlanId.h"
#include "Platform/Value/VrfId.h"

#include <compare>
#include <cstdint>
#include <string>

namespace Linux {

/// The bridge device that forwards a VLAN, in the daemon's own namespace.
struct VlanBridge {
    uint32_t ifIndex = 0; ///< 0: there is none
    Zinc::EthAddr macAddress;

    friend bool operator==(const VlanBridge&, const VlanBridge&) = default;
};

/// A device that is a port of a VLAN's bridge, in the daemon's own namespace.
struct BridgePort {
    Bridging::VlanId vlanId;
    Zinc::IntfId intfId;          ///< empty: no port of a bridge that is a VLAN's
    bool tunnel = false;          ///< leads to the remote tunnel end points (VXLAN)
    bool routed = false;          ///< the other end of the VLAN's routed interface
    bool ethernetSegment = false; ///< local, and on a segment that another switch shares

    friend bool operator==(const BridgePort&, const BridgePort&) = default;
};

/// A device whose neighbours are those of a VLAN's routed interface: that interface itself, or a
/// macvlan on it.
struct RoutedDevice {
    Bridging::VlanId vlanId;
    Zinc::IntfId intfId; ///< of the routed interface, Vlan10; empty: no such device
    Vrf::VrfId vrfId;
    bool macvlan = false; ///< on the routed interface, not that interface itself

    friend bool operator==(const RoutedDevice&, const RoutedDevice&) = default;
};

/// A device of any namespace. "default" is the daemon's own.
struct DeviceKey {
    std::string netNs;
    uint32_t ifIndex = 0;

    friend auto operator<=>(const DeviceKey&, const DeviceKey&) = default;
};

/// What the kernel's devices are to the switch: written by who follows links, read by who follows
/// the entries that the kernel keeps by device. All setters announce only a change.
class Topology final : public Vela::Entity {
  public:
    using VlanBridgeCollection = Vela::Map<Bridging::VlanId, VlanBridge>;
    using BridgePortCollection = Vela::Map<uint32_t, BridgePort>; // by index
    using RoutedDeviceCollection = Vela::Map<DeviceKey, RoutedDevice>;

    const char* typeName() const noexcept override { return "Linux::Topology"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const VlanBridgeCollection& vlanBridgeCollection() const { return vlanBridge_; }
    VlanBridge vlanBridge(Bridging::VlanId vlanId) const { return vlanBridge_.value(vlanId); }
    void vlanBridgeIs(Bridging::VlanId vlanId, const VlanBridge& bridge) {
        vlanBridge_.set(vlanId, bridge);
    }
    void vlanBridgeDel(Bridging::VlanId vlanId) { vlanBridge_.del(vlanId); }

    const BridgePortCollection& bridgePortCollection() const { return bridgePort_; }
    BridgePort bridgePort(uint32_t ifIndex) const { return bridgePort_.value(ifIndex); }
    void bridgePortIs(uint32_t ifIndex, const BridgePort& port) { bridgePort_.set(ifIndex, port); }
    void bridgePortDel(uint32_t ifIndex) { bridgePort_.del(ifIndex); }

    const RoutedDeviceCollection& routedDeviceCollection() const { return routedDevice_; }
    RoutedDevice routedDevice(const DeviceKey& device) const { return routedDevice_.value(device); }
    void routedDeviceIs(const DeviceKey& device, const RoutedDevice& routed) {
        routedDevice_.set(device, routed);
    }
    void routedDeviceDel(const DeviceKey& device) { routedDevice_.del(device); }

  private:
    VlanBridgeCollection vlanBridge_;
    BridgePortCollection bridgePort_;
    RoutedDeviceCollection routedDevice_;
};

} // namespace Linux
