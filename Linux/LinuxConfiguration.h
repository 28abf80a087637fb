#pragma once

#include "Platform/Model/Ip/VrfStatus.h"
#include "Platform/Value/EthAddr.h"
#include "Platform/Value/RemoteBindingKey.h"
#include "Platform/Value/VlanId.h"
#include "Platform/Value/VrfId.h"
#include "Platform/Value/VrfName.h"

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Linux {

/// What people call the namespace that the program itself is in.
constexpr const char* ownNetNs = "default";

struct VrfSetting {
    L3::VrfName name;
    Vrf::VrfId id;
    std::string netNs;
    Ip::VrfState state = Ip::VrfState::active; ///< while there is the namespace

    friend bool operator==(const VrfSetting&, const VrfSetting&) = default;
};

/// What the kernel does not know of itself. Interfaces go by their names.
struct LinuxConfiguration {
    using Device = std::pair<std::string, std::string>; // namespace and name

    size_t receiveBuffer = 8 << 20; ///< bytes, of each rtnetlink socket
    /// All VRFs that there may be. The first of those in one namespace has the devices that belong
    /// to no VRF device.
    std::vector<VrfSetting> vrfs;
    /// Bridges that are not named as their VLAN, Vlan10.
    std::map<Bridging::VlanId, std::string> bridges;
    /// The VRFs that VLANs' routed interfaces are in, where they are not to be found.
    std::map<Bridging::VlanId, L3::VrfName> vlanVrfs;
    /// Devices of interfaces that have other names, or are in another namespace than this one.
    std::map<Device, std::string> interfaces;
    /// Bindings that are written by who reads the file: whatever the kernel says, they stay so.
    std::set<ArpSuppression::RemoteBindingKey> remoteBindings;
    std::set<std::string> segments;                           ///< interfaces on an Ethernet segment
    std::map<Bridging::VlanId, Bridging::VlanIdOrNone> dot1q; ///< by which EVPN knows VLANs
    std::optional<Zinc::EthAddr> bridgeMac; ///< else that of the first VLAN's routed interface
    std::optional<Zinc::EthAddr> varpMac;   ///< where no macvlan on a routed interface has it

    friend bool operator==(const LinuxConfiguration&, const LinuxConfiguration&) = default;
};

} // namespace Linux
