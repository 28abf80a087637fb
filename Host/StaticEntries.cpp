#include "Host/StaticEntries.h"

#include <algorithm>
#include <map>
#include <net/if.h>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Host {

namespace {

using Bridging::VlanId;
using Zinc::IntfId;

/// Calls `withdraw` for each key of `before` that is not in `after`.
template <class Before, class After, class Withdraw>
void withdrawGone(const Before& before, const After& after, Withdraw withdraw) {
    for (const auto& entry : before) {
        if (!after.contains(entry.first)) {
            withdraw(entry.first);
        }
    }
}

/// The id of each VRF: the one that is configured, 0 for "default", the lowest free one otherwise.
std::map<std::string, Vrf::VrfId> vrfIds(const Configuration& configuration) {
    std::map<std::string, Vrf::VrfId> ids;
    std::set<uint32_t> taken;
    for (const VrfConfiguration& vrf : configuration.vrfs) {
        if (vrf.id.isValid()) {
            ids[vrf.name.bytes()] = vrf.id;
            taken.insert(vrf.id.value());
        }
    }
    for (const VrfConfiguration& vrf : configuration.vrfs) {
        uint32_t id = vrf.name == "default" ? 0 : 1;
        while (taken.contains(id)) {
            ++id;
        }
        if (ids.try_emplace(vrf.name.bytes(), id).second) {
            taken.insert(id);
        }
    }
    return ids;
}

std::map<std::string, std::string> netNsOfVrfs(const Configuration& configuration) {
    std::map<std::string, std::string> netNs;
    for (const VrfConfiguration& vrf : configuration.vrfs) {
        netNs[vrf.name.bytes()] = vrf.networkNamespace;
    }
    return netNs;
}

/// Ports are in the default namespace, routed interfaces in that of their VRF.
std::string netNsOf(const InterfaceConfiguration& interface, const Configuration& configuration) {
    auto netNs = netNsOfVrfs(configuration);
    auto found = netNs.find(interface.isRouted() ? interface.vrfName().bytes() : "default");
    return found == netNs.end() ? "default" : found->second;
}

Ip::VrfState stateOf(VrfState state) {
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

Bridging::EntryType entryTypeOf(FdbType type) {
    switch (type) {
    case FdbType::learned:
        return Bridging::EntryType::learnedDynamic;
    case FdbType::isStatic:
        return Bridging::EntryType::configuredStatic;
    case FdbType::evpn:
        return Bridging::EntryType::evpnDynamicRemote;
    case FdbType::evpnStatic:
        return Bridging::EntryType::evpnConfiguredRemote;
    }
    return Bridging::EntryType::none;
}

template <class Entries, class KeyOf>
auto byKey(const Entries& entries, KeyOf keyOf) {
    std::map<decltype(keyOf(entries.front())), const typename Entries::value_type*> map;
    for (const auto& entry : entries) {
        map.emplace(keyOf(entry), &entry);
    }
    return map;
}

auto interfacesByName(const Configuration& configuration) {
    return byKey(configuration.interfaces, [](const auto& interface) { return interface.name; });
}

/// Makes a set of addresses what it should be.
template <class Collection, class Is, class Del>
void setAddresses(const Collection& collection, const std::set<Ip::AddrWithMask>& wanted, Is is,
                  Del del) {
    for (auto cursor = collection.first(); cursor; ++cursor) {
        if (!wanted.contains(cursor.key())) {
            del(cursor.key());
        }
    }
    for (const Ip::AddrWithMask& addr : wanted) {
        is(addr);
    }
}

Ip::AddrWithMask addrOf(const AddressConfiguration& address) {
    return {address.address, address.prefixLength};
}

void setIpv4(Vela::SwitchState& state, const InterfaceConfiguration& interface) {
    if (interface.ipv4.empty()) {
        state.ipStatus->ipIntfStatusDel(IntfId(interface.name));
        return;
    }
    auto status = state.ipStatus->ipIntfStatusIs(IntfId(interface.name), interface.vrfName());
    status->activeAddrWithMaskIs(addrOf(interface.ipv4.front()));
    std::set<Ip::AddrWithMask> secondaries;
    for (size_t i = 1; i < interface.ipv4.size(); ++i) {
        secondaries.insert(addrOf(interface.ipv4[i]));
    }
    setAddresses(
        status->activeSecondaryWithMaskCollection(), secondaries,
        [&](const auto& addr) { status->activeSecondaryWithMaskIs(addr); },
        [&](const auto& addr) { status->activeSecondaryWithMaskDel(addr); });
}

/// An interface that is routed without any address has its VRF from here.
void setIpv6(Vela::SwitchState& state, const InterfaceConfiguration& interface) {
    if (interface.ipv6.empty() && !(interface.isRouted() && interface.ipv4.empty())) {
        state.ip6Status->intfDel(IntfId(interface.name));
        return;
    }
    auto status = state.ip6Status->intfIs(IntfId(interface.name), interface.vrfName());
    std::set<Ip::AddrWithMask> addresses;
    for (const AddressConfiguration& address : interface.ipv6) {
        addresses.insert(addrOf(address));
    }
    setAddresses(
        status->addrCollection(), addresses, [&](const auto& addr) { status->addrIs(addr); },
        [&](const auto& addr) { status->addrDel(addr); });
}

/// The kernel interfaces by namespace and index.
std::map<std::pair<std::string, uint32_t>, KernelNetInfo::InterfaceStatus>
kernelInterfaces(const Configuration& configuration) {
    std::map<std::pair<std::string, uint32_t>, KernelNetInfo::InterfaceStatus> all;
    for (const InterfaceConfiguration& interface : configuration.interfaces) {
        if (interface.ifindex) {
            uint32_t flags = interface.running ? IFF_UP | IFF_RUNNING : 0u;
            all.try_emplace({netNsOf(interface, configuration), *interface.ifindex},
                            *interface.ifindex, interface.device, flags, Zinc::EthAddr());
        }
    }
    return all;
}

template <class Record, class Entries, class RecordOf>
std::vector<Record> records(const Entries& entries, RecordOf recordOf) {
    std::vector<Record> all;
    for (const auto& entry : entries) {
        all.push_back(recordOf(entry));
    }
    return all;
}

/// Removes the records of `before` whose keys are gone, and sets those of `after`.
template <class Record, class Del, class Is>
void replaceRecords(const std::vector<Record>& before, const std::vector<Record>& after, Del del,
                    Is is) {
    constexpr uint64_t seed = 0;
    std::multimap<uint64_t, const Record*> kept;
    for (const Record& record : after) {
        kept.emplace(record.key.hash(seed), &record);
    }
    for (const Record& record : before) {
        auto [first, last] = kept.equal_range(record.key.hash(seed));
        if (std::none_of(first, last,
                         [&](const auto& entry) { return entry.second->key == record.key; })) {
            del(record.key);
        }
    }
    for (const Record& record : after) {
        is(record);
    }
}

std::vector<Bridging::QuarryFdbStatus> fdbRecords(const Configuration& configuration) {
    std::map<VlanId, uint16_t> fids;
    for (const FidConfiguration& fid : configuration.bridging.fids) {
        fids[fid.vlan] = fid.fid;
    }
    return records<Bridging::QuarryFdbStatus>(
        configuration.fdb, [&](const FdbConfiguration& fdb) -> Bridging::QuarryFdbStatus {
            uint16_t mapped = fids[fdb.vlan];
            Bridging::Fid fid(mapped ? mapped : fdb.vlan.value());
            return {{fid, fdb.mac}, IntfId(fdb.interface), entryTypeOf(fdb.type)};
        });
}

std::vector<Arp::Table::ArpEntry> neighborRecords(const Configuration& configuration) {
    auto ids = vrfIds(configuration);
    return records<Arp::Table::ArpEntry>(
        configuration.neighbors, [&](const NeighborConfiguration& n) -> Arp::Table::ArpEntry {
            auto id = ids.find(n.vrf.bytes());
            return {{id == ids.end() ? Vrf::VrfId() : id->second, IntfId(n.interface), n.ip},
                    n.mac,
                    n.isStatic,
                    Arp::ArpSource(n.source)};
        });
}

std::vector<ArpSuppression::RemoteBinding> bindingRecords(const Configuration& configuration) {
    return records<ArpSuppression::RemoteBinding>(
        configuration.remoteBindings, [](const RemoteBindingConfiguration& b) {
            return ArpSuppression::RemoteBinding{{b.vlan, b.ip}, b.mac, b.vxlan, b.localMultihomed};
        });
}

} // namespace

void StaticEntries::apply(const Configuration& configuration) {
    applyVrfs(configuration);
    applyInterfaces(configuration);
    applyBridging(configuration);
    applyEvpn(configuration);
    applyTables(configuration);
    applied_ = configuration;
}

void StaticEntries::applyVrfs(const Configuration& next) {
    auto byName = [](const VrfConfiguration& vrf) { return vrf.name.bytes(); };
    auto before = byKey(applied_.vrfs, byName);
    auto after = byKey(next.vrfs, byName);
    for (const auto& [name, vrf] : before) {
        auto kept = after.find(name);
        // An active VRF keeps its namespace: another one makes it another VRF.
        if (kept == after.end() || kept->second->networkNamespace != vrf->networkNamespace) {
            state_.allVrfStatusLocal->vrfDel(name);
        }
    }
    auto idsBefore = vrfIds(applied_);
    auto idsAfter = vrfIds(next);
    for (const auto& [name, id] : idsBefore) {
        auto kept = idsAfter.find(name);
        if (kept == idsAfter.end() || kept->second != id) {
            state_.vrfIdMap->vrfDel(id);
        }
    }
    for (const auto& [name, id] : idsAfter) {
        state_.vrfIdMap->vrfIs(id, name);
    }
    for (const auto& [name, vrf] : after) {
        state_.kernelNetInfoIs(vrf->networkNamespace);
        auto status = state_.allVrfStatusLocal->vrfIs(name);
        status->networkNamespaceIs(vrf->networkNamespace);
        status->stateIs(stateOf(vrf->state));
    }
}

void StaticEntries::applyInterfaces(const Configuration& next) {
    auto before = interfacesByName(applied_);
    auto after = interfacesByName(next);
    for (const auto& [name, interface] : before) {
        auto kept = after.find(name);
        auto subInterface = interface->subInterface;
        if (subInterface && (kept == after.end() || !kept->second->subInterface ||
                             kept->second->subInterface->parent != subInterface->parent)) {
            if (auto parent = state_.intfEncapServiceIntf->parent(IntfId(subInterface->parent))) {
                parent->subIntfDel(IntfId(name));
            }
        }
        if (kept == after.end()) {
            state_.ipStatus->ipIntfStatusDel(IntfId(name));
            state_.ip6Status->intfDel(IntfId(name));
            state_.allIntfStatusDir->intfStatusDel(IntfId(name));
            state_.allIntfStatusLocalDir->intfStatusLocalDel(IntfId(name));
        }
    }
    auto kernelAfter = kernelInterfaces(next);
    withdrawGone(kernelInterfaces(applied_), kernelAfter, [&](const auto& key) {
        state_.kernelNetInfoIs(key.first)->interfaceDel(key.second);
    });
    for (const auto& [key, status] : kernelAfter) {
        state_.kernelNetInfoIs(key.first)->interfaceIs(status);
    }
    std::set<std::string> netNsAfter;
    for (const VrfConfiguration& vrf : next.vrfs) {
        netNsAfter.insert(vrf.networkNamespace);
    }
    for (const VrfConfiguration& vrf : applied_.vrfs) {
        if (!netNsAfter.contains(vrf.networkNamespace)) {
            state_.kernelNetInfoDel(vrf.networkNamespace);
        }
    }
    for (const auto& [name, interface] : after) {
        IntfId intfId(name);
        state_.allIntfStatusLocalDir->intfStatusLocalIs(intfId)->netNsIs(netNsOf(*interface, next));
        state_.allIntfStatusDir->intfStatusIs(intfId)->deviceNameIs(interface->device);
        if (const auto& sub = interface->subInterface) {
            Bridging::VlanTag inner;
            if (sub->innerVlan) {
                inner = Bridging::VlanTag(Bridging::VlanTag::dot1q, sub->innerVlan.value());
            }
            Bridging::VlanTag outer(Bridging::VlanTag::dot1q, sub->outerVlan.value());
            state_.intfEncapServiceIntf->parentIs(IntfId(sub->parent))
                ->subIntfIs(intfId, Brant::IntfEncap(outer, inner));
        }
        setIpv4(state_, *interface);
        setIpv6(state_, *interface);
    }
}

void StaticEntries::applyBridging(const Configuration& next) {
    state_.bridgingConfig->bridgeMacAddrIs(next.bridging.mac.value_or(Zinc::EthAddr()));
    state_.fhrpVrMacStatus->varpVirtualMacIs(next.fhrp.varpMac.value_or(Zinc::EthAddr()));
    state_.l2VpnConfig->selectiveArpInstallIs(next.l2vpn.selectiveArpInstall);
    auto byVlan = [](const FidConfiguration& fid) { return fid.vlan; };
    auto after = byKey(next.bridging.fids, byVlan);
    withdrawGone(byKey(applied_.bridging.fids, byVlan), after,
                 [&](VlanId vlanId) { state_.bridgingConfig->vlanToFidDel(vlanId); });
    for (const auto& [vlanId, fid] : after) {
        state_.bridgingConfig->vlanToFidIs(vlanId, Bridging::Fid(fid->fid));
    }
}

void StaticEntries::applyEvpn(const Configuration& next) {
    Evpn::EvpnStatus& evpn = *state_.evpnStatus;
    state_.evpnMplsConfig->innerDot1qDefaultIs(next.evpn.innerDot1q);
    state_.evpnMplsConfig->controlWordEnabledIs(next.evpn.controlWord);

    auto byVlan = [](const auto& entry) { return entry.vlan; };
    auto vlans = byKey(next.evpn.vlans, byVlan);
    withdrawGone(byKey(applied_.evpn.vlans, byVlan), vlans, [&](VlanId vlanId) {
        evpn.vlanToDot1qDel(vlanId);
        evpn.imetLabelDel(vlanId);
    });
    for (const auto& [vlanId, vlan] : vlans) {
        if (vlan->imetLabel) {
            bool mpls = vlan->imetEncapsulation == ImetEncapsulation::mpls;
            auto encapsulation = mpls ? Evpn::EncapType::mpls : Evpn::EncapType::vxlan;
            evpn.imetLabelIs(vlanId, Evpn::ImetLabel(*vlan->imetLabel, encapsulation));
        } else {
            evpn.imetLabelDel(vlanId);
        }
        evpn.vlanToDot1qIs(vlanId, vlan->dot1q);
    }

    auto byInterface = [](const EvpnSegmentConfiguration& segment) { return segment.interface; };
    auto segments = byKey(next.evpn.segments, byInterface);
    withdrawGone(byKey(applied_.evpn.segments, byInterface), segments, [&](const auto& name) {
        evpn.segmentStatusDel(IntfId(name));
        evpn.localEsiLabelDel(IntfId(name));
    });
    for (const auto& [name, segment] : segments) {
        if (segment->label) {
            evpn.localEsiLabelIs(IntfId(name), Evpn::EsiLabel(*segment->label));
        } else {
            evpn.localEsiLabelDel(IntfId(name));
        }
        auto status = evpn.segmentStatusIs(IntfId(name));
        auto forwarders = byKey(segment->designatedForwarders, byVlan);
        for (auto cursor = status->dfTepCollection().first(); cursor; ++cursor) {
            if (!forwarders.contains(cursor.key())) {
                status->dfTepDel(cursor.key());
            }
        }
        for (const auto& [vlanId, forwarder] : forwarders) {
            status->dfTepIs(vlanId, IntfId(forwarder->tunnel));
        }
    }
    // Last: it starts suppression, which then finds everything else in place.
    evpn.mplsConfiguredIs(next.evpn.mpls);
}

void StaticEntries::applyTables(const Configuration& next) {
    replaceRecords(
        fdbRecords(applied_), fdbRecords(next),
        [&](const auto& key) { state_.bridgingStatus->quarryFdbStatusDel(key); },
        [&](const auto& record) { state_.bridgingStatus->quarryFdbStatusIs(record); });
    replaceRecords(
        neighborRecords(applied_), neighborRecords(next),
        [&](const auto& key) { state_.arpStatus->entryDel(key); },
        [&](const auto& record) { state_.arpStatus->entryIs(record); });
    replaceRecords(
        bindingRecords(applied_), bindingRecords(next),
        [&](const auto& key) { state_.remoteBindingConfig->remoteBindingDel(key); },
        [&](const auto& record) { state_.remoteBindingConfig->remoteBindingIs(record); });
}

} // namespace Host
