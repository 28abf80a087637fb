#include "Linux/KernelDevices.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace Linux {

using Bridging::VlanId;

void KernelDevices::configurationIs(LinuxConfiguration configuration) {
    configuration_ = std::move(configuration);
    vlanOfMappedBridge_.clear();
    for (const auto& [vlanId, bridge] : configuration_.bridges) {
        vlanOfMappedBridge_.emplace(bridge, vlanId);
    }
    configuredDevice_.clear();
    for (const auto& [device, interface] : configuration_.interfaces) {
        configuredDevice_.emplace(interface, device);
    }
}

NetNs& KernelDevices::netNsIs(std::unique_ptr<NetNs> netNs) {
    return *all_.emplace_back(std::move(netNs));
}

std::unique_ptr<NetNs> KernelDevices::netNsDel(const std::string& name) {
    auto found = std::find_if(all_.begin(), all_.end(),
                              [&](const auto& netNs) { return netNs->name == name; });
    std::unique_ptr<NetNs> gone = std::move(*found);
    all_.erase(found);
    return gone;
}

NetNs* KernelDevices::netNs(const std::string& name) const {
    auto found = std::find_if(all_.begin(), all_.end(),
                              [&](const auto& netNs) { return netNs->name == name; });
    return found == all_.end() ? nullptr : found->get();
}

const VrfSetting* KernelDevices::firstVrfIn(const std::string& netNs) const {
    const auto& vrfs = configuration_.vrfs;
    auto found = std::find_if(vrfs.begin(), vrfs.end(),
                              [&](const VrfSetting& vrf) { return vrf.netNs == netNs; });
    return found == vrfs.end() ? nullptr : &*found;
}

const VrfSetting* KernelDevices::vrfOf(const DeviceRef& device) const {
    const LinkMessage* master = device.netNs->links.find(device.link->master);
    if (!master || master->kind != "vrf") {
        return firstVrfIn(device.netNs->name);
    }
    const auto& vrfs = configuration_.vrfs;
    auto found = std::find_if(vrfs.begin(), vrfs.end(), [&](const VrfSetting& vrf) {
        return vrf.netNs == device.netNs->name && vrf.name.bytes() == master->name;
    });
    return found == vrfs.end() ? nullptr : &*found;
}

bool KernelDevices::vrfExists(const VrfSetting& vrf) const {
    const NetNs* in = netNs(vrf.netNs);
    if (!in || firstVrfIn(vrf.netNs) == &vrf) {
        return in != nullptr;
    }
    const LinkMessage* device = in->links.findByName(vrf.name.bytes());
    return device && device->kind == "vrf";
}

const LinuxConfiguration::Device*
KernelDevices::configuredDevice(const std::string& interface) const {
    auto found = configuredDevice_.find(interface);
    return found == configuredDevice_.end() ? nullptr : &found->second;
}

std::string KernelDevices::bridgeName(VlanId vlanId) const {
    auto mapped = configuration_.bridges.find(vlanId);
    return mapped == configuration_.bridges.end() ? interfaceName(vlanId) : mapped->second;
}

std::optional<VlanId> KernelDevices::vlanOfBridge(const std::string& name) const {
    if (auto mapped = vlanOfMappedBridge_.find(name); mapped != vlanOfMappedBridge_.end()) {
        return mapped->second;
    }
    auto vlanId = vlanOfInterface(name);
    return vlanId && !configuration_.bridges.contains(*vlanId) ? vlanId : std::nullopt;
}

std::string KernelDevices::interfaceName(VlanId vlanId) {
    return "Vlan" + std::to_string(vlanId.value());
}

std::optional<VlanId> KernelDevices::vlanOfInterface(const std::string& name) {
    constexpr size_t prefix = 4;
    uint32_t number = 0;
    if (!name.starts_with("Vlan")) {
        return std::nullopt;
    }
    auto [end, error] = std::from_chars(name.data() + prefix, name.data() + name.size(), number);
    if (error != std::errc() || number < 1 || number > 4094) {
        return std::nullopt;
    }
    VlanId vlanId(number);
    return interfaceName(vlanId) == name ? std::optional(vlanId) : std::nullopt;
}

const LinkMessage* KernelDevices::bridgeOf(VlanId vlanId) const {
    const NetNs* own = netNs(ownNetNs);
    const LinkMessage* bridge = own ? own->links.findByName(bridgeName(vlanId)) : nullptr;
    return bridge && bridge->kind == "bridge" ? bridge : nullptr;
}

std::optional<VlanId> KernelDevices::vlanOfPort(const LinkMessage& link) const {
    const LinkMessage* bridge = netNs(ownNetNs)->links.find(link.master);
    return bridge && bridge->kind == "bridge" ? vlanOfBridge(bridge->name) : std::nullopt;
}

DeviceRef KernelDevices::routedOf(VlanId vlanId) const {
    const LinkMessage* bridge = bridgeOf(vlanId);
    if (!bridge) {
        return {};
    }
    auto vrfWanted = configuration_.vlanVrfs.find(vlanId);
    auto isInVrf = [&](const DeviceRef& device) {
        const VrfSetting* vrf = vrfOf(device);
        return vrf &&
               (vrfWanted == configuration_.vlanVrfs.end() || vrf->name == vrfWanted->second);
    };
    const std::string name = interfaceName(vlanId);
    for (const VrfSetting& vrf : configuration_.vrfs) {
        const NetNs* in = netNs(vrf.netNs);
        DeviceRef device{in, in ? in->links.findByName(name) : nullptr};
        if (device && portBehind(device, vlanId) != 0 && isInVrf(device)) {
            return device;
        }
    }
    DeviceRef itself{netNs(ownNetNs), bridge};
    return bridge->name == name && isInVrf(itself) ? itself : DeviceRef();
}

uint32_t KernelDevices::portBehind(const DeviceRef& veth, VlanId vlanId) const {
    if (veth.link->kind != "veth" || veth.link->link == 0) {
        return 0;
    }
    bool here = veth.link->linkNetNsId ? veth.link->linkNetNsId == veth.netNs->ownNetNsId
                                       : veth.netNs->name == ownNetNs;
    const LinkMessage* port = here ? netNs(ownNetNs)->links.find(veth.link->link) : nullptr;
    return port && vlanOfPort(*port) == vlanId ? port->ifIndex : 0;
}

} // namespace Linux
