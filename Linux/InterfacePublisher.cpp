#include "Linux/InterfacePublisher.h"

#include "Linux/InterfaceNames.h"

#include <utility>
#include <vector>

namespace Linux {

namespace {

/// Makes a set of addresses what it should be.
template <class Collection, class Is, class Del>
void setAddresses(const Collection& collection, const std::set<Ip::AddrWithMask>& wanted, Is is,
                  Del del) {
    for (auto cursor = collection.first(); cursor; ++cursor) {
        if (!wanted.contains(cursor.key())) {
            del(cursor.key());
        }
    }
    for (const Ip::AddrWithMask& address : wanted) {
        is(address);
    }
}

struct InterfaceAddresses {
    Ip::AddrWithMask primary;
    std::set<Ip::AddrWithMask> secondaries; // what is no IPv4 primary address
    std::set<Ip::AddrWithMask> ipv6;
};

/// The switch knows one primary address; the kernel has one per network.
InterfaceAddresses sorted(const std::vector<AddressMessage>& addresses) {
    InterfaceAddresses result;
    for (const AddressMessage& entry : addresses) {
        if (entry.address.address().af() == Zinc::ipv6()) {
            if (!entry.duplicate) {
                result.ipv6.insert(entry.address);
            }
        } else if (!entry.secondary && result.primary.isZero()) {
            result.primary = entry.address;
        } else {
            result.secondaries.insert(entry.address);
        }
    }
    return result;
}

} // namespace

DeviceRef InterfacePublisher::deviceOf(const std::string& name) const {
    if (const auto* device = devices_.configuredDevice(name)) {
        const NetNs* netNs = devices_.netNs(device->first);
        return {netNs, netNs ? netNs->links.findByName(device->second) : nullptr};
    }
    if (auto vlanId = KernelDevices::vlanOfInterface(name)) {
        if (DeviceRef routed = devices_.routedOf(*vlanId)) {
            return routed;
        }
    }
    const NetNs* own = devices_.netNs(ownNetNs);
    const LinkMessage* link = own ? own->links.findByName(name) : nullptr;
    bool otherwiseNamed = link && devices_.configuration().interfaces.contains({own->name, name});
    return {own, otherwiseNamed ? nullptr : link};
}

void InterfacePublisher::update(const std::string& name) {
    DeviceRef device = deviceOf(name);
    Zinc::IntfId intfId = device ? internedIntf(name) : Zinc::IntfId();
    if (!intfId) {
        withdraw(name);
        return;
    }
    names_.insert(name);
    state_.allIntfStatusLocalDir->intfStatusLocalIs(intfId)->netNsIs(device.netNs->name);
    state_.allIntfStatusDir->intfStatusIs(intfId)->deviceNameIs(device.link->name);
    publishAddresses(intfId, device);
}

void InterfacePublisher::withdraw(const std::string& name) {
    if (names_.erase(name) > 0) {
        Zinc::IntfId intfId(name);
        withdrawAddresses(intfId);
        state_.allIntfStatusDir->intfStatusDel(intfId);
        state_.allIntfStatusLocalDir->intfStatusLocalDel(intfId);
    }
}

void InterfacePublisher::publishAddresses(Zinc::IntfId intfId, const DeviceRef& device) {
    const VrfSetting* vrf = devices_.vrfOf(device);
    InterfaceAddresses addresses = sorted(device.netNs->addresses.addresses(device.link->ifIndex));
    bool hasIpv4 = !addresses.primary.isZero() || !addresses.secondaries.empty();
    auto vlanId = KernelDevices::vlanOfInterface(device.link->name);
    bool isGateway = vlanId && devices_.routedOf(*vlanId).link == device.link;
    if (!vrf || !(isGateway || hasIpv4 || !addresses.ipv6.empty())) {
        withdrawAddresses(intfId);
        return;
    }
    if (hasIpv4) {
        auto status = state_.ipStatus->ipIntfStatusIs(intfId, vrf->name);
        status->activeAddrWithMaskIs(addresses.primary);
        setAddresses(
            status->activeSecondaryWithMaskCollection(), addresses.secondaries,
            [&](const auto& address) { status->activeSecondaryWithMaskIs(address); },
            [&](const auto& address) { status->activeSecondaryWithMaskDel(address); });
    }
    auto status = state_.ip6Status->intfIs(intfId, vrf->name);
    setAddresses(
        status->addrCollection(), addresses.ipv6,
        [&](const auto& address) { status->addrIs(address); },
        [&](const auto& address) { status->addrDel(address); });
    if (!hasIpv4) {
        state_.ipStatus->ipIntfStatusDel(intfId);
    }
}

void InterfacePublisher::withdrawAddresses(Zinc::IntfId intfId) {
    state_.ipStatus->ipIntfStatusDel(intfId);
    state_.ip6Status->intfDel(intfId);
}

} // namespace Linux
