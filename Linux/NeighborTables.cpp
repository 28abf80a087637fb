#include "Linux/NeighborTables.h"

#include <utility>

namespace Linux {

using Kind = Neighbor::Kind;

NeighborTables::NeighborTables(Vela::Ptr<Arp::Table::Status> arp,
                               Vela::Ptr<ArpSuppression::RemoteBindingConfig> remoteBinding,
                               Vela::Ptr<const ConfiguredBindings> configured,
                               Vela::Ptr<LocalMultihomedSm> localMultihomedSm)
    : arpStatus(std::move(arp)), remoteBindingConfig(std::move(remoteBinding)),
      configuredBindings(std::move(configured)), localMultihomedSm_(std::move(localMultihomedSm)) {}

void NeighborTables::neighborIs(const RoutedDevice& device, const Zinc::IpGenAddr& address,
                                const Neighbor& neighbor) {
    Arp::Table::ArpKey arpKey(device.vrfId, device.intfId, address);
    ArpSuppression::RemoteBindingKey bindingKey(device.vlanId, address);
    if (neighbor.kind != Kind::local) {
        arpStatus->entryDel(arpKey);
    }
    bool configured = configuredBindings->keyHas(bindingKey);
    if (neighbor.kind != Kind::remote && !configured) {
        remoteBindingConfig->remoteBindingDel(bindingKey);
    }
    if (neighbor.kind == Kind::local) {
        arpStatus->entryIs({arpKey, neighbor.macAddress, neighbor.isStatic, neighbor.source});
    } else if (neighbor.kind == Kind::remote && !configured) {
        bool multihomed = localMultihomedSm_->localMultihomed(device.vlanId, neighbor.macAddress);
        remoteBindingConfig->remoteBindingIs({bindingKey, neighbor.macAddress, 0, multihomed});
    }
}

Neighbor NeighborTables::neighbor(const RoutedDevice& device,
                                  const Zinc::IpGenAddr& address) const {
    Arp::Table::ArpKey arpKey(device.vrfId, device.intfId, address);
    const auto& entries = address.af() == Zinc::ipv4() ? arpStatus->arpEntryCollection()
                                                       : arpStatus->neighborEntryCollection();
    if (auto entry = entries.find(arpKey)) {
        return {Kind::local, entry->isStatic, entry->source, entry->macAddress};
    }
    ArpSuppression::RemoteBindingKey bindingKey(device.vlanId, address);
    auto binding = remoteBindingConfig->remoteBindingCollection().find(bindingKey);
    if (binding && !configuredBindings->keyHas(bindingKey)) {
        return {Kind::remote, false, Arp::ArpSource::kernel, binding->macAddress};
    }
    return {};
}

} // namespace Linux
