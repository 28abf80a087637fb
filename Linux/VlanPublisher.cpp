#include "Linux/VlanPublisher.h"

#include "Linux/InterfaceNames.h"
#include "Platform/Trace/Trace.h"

#include <algorithm>
#include <utility>

namespace Linux {

using Bridging::VlanId;

namespace {

const Vela::TraceHandle vlanTrace("LinuxVlans");

template <class Map, class Value>
void setOrErase(Map& map, VlanId vlanId, const Value& value, bool is) {
    if (is) {
        map[vlanId] = value;
    } else {
        map.erase(vlanId);
    }
}

} // namespace

void VlanPublisher::updatePort(uint32_t ifIndex) {
    const NetNs& own = *devices_.netNs(ownNetNs);
    const LinkMessage* link = own.links.find(ifIndex);
    auto vlanId = link ? devices_.vlanOfPort(*link) : std::nullopt;
    Zinc::IntfId intfId;
    if (vlanId) {
        intfId = internedIntf(deviceInterfaceName(devices_.configuration(), own.name, *link));
    }
    BridgePort before = topology_.bridgePort(ifIndex);
    if (before.intfId && before.vlanId != vlanId) {
        ports_[before.vlanId].erase(ifIndex);
    }
    if (!intfId) {
        topology_.bridgePortDel(ifIndex);
        return;
    }
    DeviceRef routed = devices_.routedOf(*vlanId);
    bool tunnel = link->kind == "vxlan";
    bool onSegment = devices_.configuration().segments.contains(std::string(intfId.name()));
    ports_[*vlanId].insert(ifIndex);
    topology_.bridgePortIs(ifIndex, {*vlanId, intfId, tunnel,
                                     routed && devices_.portBehind(routed, *vlanId) == ifIndex,
                                     onSegment && !tunnel});
}

void VlanPublisher::updateVlan(VlanId vlanId) {
    const LinkMessage* bridge = devices_.bridgeOf(vlanId);
    if (bridge) {
        topology_.vlanBridgeIs(vlanId, {bridge->ifIndex, bridge->macAddress});
    }
    updatePorts(vlanId, bridge);
    updateRouted(vlanId, devices_.routedOf(vlanId));
    updateEvpn(vlanId);
    if (!bridge) {
        topology_.vlanBridgeDel(vlanId);
    }
    updateMacAddresses();
    checkMac(vlanId);
}

void VlanPublisher::updatePorts(VlanId vlanId, const LinkMessage* bridge) {
    std::set<uint32_t> ports;
    if (auto published = ports_.find(vlanId); published != ports_.end()) {
        ports = published->second;
    }
    if (bridge) {
        for (uint32_t ifIndex : devices_.netNs(ownNetNs)->links.belongingTo(bridge->ifIndex)) {
            ports.insert(ifIndex);
        }
    }
    for (uint32_t ifIndex : ports) {
        updatePort(ifIndex);
    }
    if (auto published = ports_.find(vlanId); published != ports_.end()) {
        if (published->second.empty()) {
            ports_.erase(published);
        }
    }
}

void VlanPublisher::updateRouted(VlanId vlanId, const DeviceRef& routed) {
    std::map<DeviceKey, RoutedDevice> devices;
    const LinkMessage* gateway = nullptr; // the macvlan with the address that gateways share
    if (routed) {
        Vrf::VrfId vrfId = devices_.vrfOf(routed)->id;
        Zinc::IntfId intfId = internedIntf(routed.link->name);
        const std::string& netNs = routed.netNs->name;
        devices[{netNs, routed.link->ifIndex}] = {vlanId, intfId, vrfId, false};
        for (uint32_t ifIndex : routed.netNs->links.standingOn(routed.link->ifIndex)) {
            const LinkMessage* upper = routed.netNs->links.find(ifIndex);
            if (upper->kind == "macvlan") {
                devices[{netNs, ifIndex}] = {vlanId, intfId, vrfId, true};
                gateway = gateway ? gateway : upper;
            }
        }
        std::erase_if(devices, [](const auto& entry) { return !entry.second.intfId; });
    }
    std::set<DeviceKey> gone = std::exchange(routedDevices_[vlanId], {});
    for (const auto& [key, device] : devices) {
        gone.erase(key);
        routedDevices_[vlanId].insert(key);
        topology_.routedDeviceIs(key, device);
    }
    for (const DeviceKey& key : gone) {
        if (topology_.routedDevice(key).vlanId == vlanId) { // else another has taken it over
            topology_.routedDeviceDel(key);
        }
    }
    if (devices.empty()) {
        routedDevices_.erase(vlanId);
    }
    setOrErase(macs_, vlanId, routed ? routed.link->macAddress : Zinc::EthAddr(),
               static_cast<bool>(routed));
    setOrErase(virtualMacs_, vlanId, gateway ? gateway->macAddress : Zinc::EthAddr(),
               gateway != nullptr);
}

void VlanPublisher::updateEvpn(VlanId vlanId) {
    auto ports = ports_.find(vlanId);
    bool served = ports != ports_.end() &&
                  std::any_of(ports->second.begin(), ports->second.end(), [&](uint32_t ifIndex) {
                      return topology_.bridgePort(ifIndex).tunnel;
                  });
    if (served) {
        const auto& dot1q = devices_.configuration().dot1q;
        auto configured = dot1q.find(vlanId);
        evpn_.insert(vlanId);
        state_.evpnStatus->vlanToDot1qIs(
            vlanId, configured == dot1q.end() ? Bridging::VlanIdOrNone() : configured->second);
    } else if (evpn_.erase(vlanId) > 0) {
        state_.evpnStatus->vlanToDot1qDel(vlanId);
    }
}

void VlanPublisher::updateMacAddresses() {
    const LinuxConfiguration& configuration = devices_.configuration();
    Zinc::EthAddr before = state_.bridgingConfig->bridgeMacAddr();
    Zinc::EthAddr ownMac = macs_.empty() ? Zinc::EthAddr() : macs_.begin()->second;
    Zinc::EthAddr virtualMac = virtualMacs_.empty()
                                   ? configuration.varpMac.value_or(Zinc::EthAddr())
                                   : virtualMacs_.begin()->second;
    state_.fhrpVrMacStatus->varpVirtualMacIs(virtualMac);
    state_.bridgingConfig->bridgeMacAddrIs(configuration.bridgeMac.value_or(ownMac));
    if (state_.bridgingConfig->bridgeMacAddr() != before) {
        for (const auto& [vlanId, mac] : macs_) {
            checkMac(vlanId);
        }
    }
}

void VlanPublisher::checkMac(VlanId vlanId) {
    Zinc::EthAddr own = state_.bridgingConfig->bridgeMacAddr();
    auto mac = macs_.find(vlanId);
    if (mac == macs_.end() || mac->second == own) {
        strangeMacs_.erase(vlanId);
    } else if (auto known = strangeMacs_.find(vlanId);
               known == strangeMacs_.end() || known->second != mac->second) {
        strangeMacs_[vlanId] = mac->second;
        TRACE(vlanTrace, 0, nullptr,
              KernelDevices::interfaceName(vlanId)
                  << " has the MAC address " << mac->second << " and the switch " << own
                  << ": its own requests are not served");
    }
}

std::set<VlanId> VlanPublisher::vlans() const {
    std::set<VlanId> all;
    for (auto cursor = topology_.vlanBridgeCollection().first(); cursor; ++cursor) {
        all.insert(cursor.key());
    }
    return all;
}

} // namespace Linux
