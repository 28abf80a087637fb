#include "Host/KernelSettings.h"

#include "Linux/KernelDevices.h"

#include <algorithm>

namespace Host {

Ip::VrfState stateInTables(VrfState state) {
    switch (state) {
    case VrfState::active:
        return Ip::VrfState::active;
    case VrfState::initializing:
        return Ip::VrfState::initializing;
    case VrfState::deleting:
        return Ip::VrfState::deleting;
    }
    return Ip::VrfState::initializing;
}

namespace {

/// "default" has what belongs to no other VRF of its namespace.
std::vector<Linux::VrfSetting> vrfSettings(const Configuration& configuration,
                                           const std::map<std::string, Vrf::VrfId>& vrfIds) {
    std::vector<Linux::VrfSetting> all;
    for (const VrfConfiguration& vrf : configuration.vrfs) {
        all.push_back({vrf.name, vrfIds.at(vrf.name.bytes()), vrf.networkNamespace,
                       stateInTables(vrf.state)});
    }
    std::stable_partition(all.begin(), all.end(),
                          [](const auto& vrf) { return vrf.name == "default"; });
    return all;
}

} // namespace

Linux::LinuxConfiguration kernelSettings(const Configuration& configuration,
                                         const std::map<std::string, Vrf::VrfId>& vrfIds) {
    Linux::LinuxConfiguration settings;
    settings.vrfs = vrfSettings(configuration, vrfIds);
    if (configuration.onLinux) {
        settings.receiveBuffer = configuration.onLinux->receiveBuffer;
        for (const LinuxVlanConfiguration& vlan : configuration.onLinux->vlans) {
            settings.bridges.emplace(vlan.vlan, vlan.bridge);
        }
    }
    std::map<std::string_view, std::string> namespaceOfVrf;
    for (const VrfConfiguration& vrf : configuration.vrfs) {
        namespaceOfVrf.emplace(vrf.name, vrf.networkNamespace);
    }
    for (const InterfaceConfiguration& interface : configuration.interfaces) {
        auto vlanId = Linux::KernelDevices::vlanOfInterface(interface.name);
        if (vlanId && interface.vrf) {
            settings.vlanVrfs.emplace(*vlanId, *interface.vrf);
        } else if (!vlanId) {
            settings.interfaces.emplace(
                std::pair(namespaceOfVrf.at(interface.vrfName()), interface.device),
                interface.name);
        }
    }
    for (const EvpnSegmentConfiguration& segment : configuration.evpn.segments) {
        settings.segments.insert(segment.interface);
    }
    for (const EvpnVlanConfiguration& vlan : configuration.evpn.vlans) {
        settings.dot1q.emplace(vlan.vlan, vlan.dot1q);
    }
    for (const RemoteBindingConfiguration& binding : configuration.remoteBindings) {
        settings.remoteBindings.emplace(binding.vlan, binding.ip);
    }
    settings.bridgeMac = configuration.bridging.mac;
    settings.varpMac = configuration.fhrp.varpMac;
    return settings;
}

} // namespace Host
