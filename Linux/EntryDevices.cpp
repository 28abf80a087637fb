#include "Linux/EntryDevices.h"

#include <utility>

namespace Linux {

namespace {

Zinc::IpGenAddr networkOf(const Zinc::IpGenAddr& address, uint8_t prefixLen) {
    Zinc::IpGenAddr::Bytes bytes = address.bytes();
    for (size_t i = 0; i < bytes.size(); ++i) {
        size_t bits = prefixLen > i * 8 ? prefixLen - i * 8 : 0;
        if (bits < 8) {
            bytes[i] = static_cast<uint8_t>(bytes[i] & (0xff00u >> bits));
        }
    }
    return Zinc::IpGenAddr(bytes);
}

} // namespace

EntryDevices::EntryDevices(Vela::Ptr<const Topology> topology,
                           Vela::Ptr<const Ip6::Status> ip6Status, std::function<void()> changed)
    : topology_(std::move(topology)), ip6Status_(std::move(ip6Status)),
      changed_(std::move(changed)) {
    deviceReaction_ = topology_->routedDeviceCollection().react(
        nullptr, [this](const DeviceKey&) { noteChange(); });
    intfReaction_ = ip6Status_->intfCollection().react(nullptr, [this](Zinc::IntfId intfId) {
        follow(intfId);
        noteChange();
    });
    for (auto intf = ip6Status_->intfCollection().first(); intf; ++intf) {
        follow(intf.key());
    }
}

void EntryDevices::noteChange() {
    stale_ = true;
    changed_();
}

void EntryDevices::follow(Zinc::IntfId intfId) {
    addressReactions_.erase(intfId);
    if (auto intf = ip6Status_->intf(intfId)) {
        addressReactions_[intfId] = intf->addrCollection().react(
            nullptr, [this](const Ip::AddrWithMask&) { noteChange(); });
    }
}

void EntryDevices::vrfsAre(const std::vector<VrfSetting>& vrfs) {
    vrf_.clear();
    for (const VrfSetting& vrf : vrfs) {
        vrf_.emplace(vrf.id, vrf.name);
    }
    noteChange();
}

const L3::VrfName* EntryDevices::vrfName(Vrf::VrfId vrfId) const {
    auto found = vrf_.find(vrfId);
    return found == vrf_.end() ? nullptr : &found->second;
}

void EntryDevices::refresh() {
    if (!std::exchange(stale_, false)) {
        return;
    }
    device_.clear();
    intfOfVlan_.clear();
    networks_.clear();
    for (auto entry = topology_->routedDeviceCollection().first(); entry; ++entry) {
        const RoutedDevice& routed = entry.value();
        if (routed.intfId && !routed.macvlan) {
            device_[routed.intfId] = {entry.key().netNs, entry.key().ifIndex, routed};
            intfOfVlan_[routed.vlanId] = routed.intfId;
        }
    }
    for (auto intf = ip6Status_->intfCollection().first(); intf; ++intf) {
        const Ip6::IntfStatus& status = *intf.value();
        for (auto addr = status.addrCollection().first(); addr; ++addr) {
            const Ip::AddrWithMask& own = addr.key();
            if (device_.contains(intf.key()) && !own.address().isLinkLocal()) {
                networks_[status.vrfName()][own.prefixLen()].emplace(
                    networkOf(own.address(), own.prefixLen()), intf.key());
            }
        }
    }
}

Zinc::IntfId EntryDevices::intfId(const L3::VrfName& vrfName, const Arp::InputConfigKey& key) {
    if (key.intfId() || key.ipAddress().af() != Zinc::ipv6() || key.ipAddress().isLinkLocal()) {
        return key.intfId();
    }
    refresh();
    if (auto vrf = networks_.find(vrfName); vrf != networks_.end()) {
        for (auto length = vrf->second.rbegin(); length != vrf->second.rend(); ++length) {
            auto network = length->second.find(networkOf(key.ipAddress(), length->first));
            if (network != length->second.end()) {
                return network->second;
            }
        }
    }
    return {};
}

const EntryDevice* EntryDevices::device(const L3::VrfName& name, Zinc::IntfId intfId) {
    refresh();
    auto found = device_.find(intfId);
    if (found == device_.end()) {
        return nullptr;
    }
    const L3::VrfName* its = vrfName(found->second.routed.vrfId);
    return its && *its == name ? &found->second : nullptr;
}

const EntryDevice* EntryDevices::device(Bridging::VlanId vlanId) {
    refresh();
    auto found = intfOfVlan_.find(vlanId);
    return found == intfOfVlan_.end() ? nullptr : &device_.at(found->second);
}

} // namespace Linux
