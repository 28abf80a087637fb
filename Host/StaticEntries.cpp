#include "Host/StaticEntries.h"

#include "Host/KernelSettings.h"
#include "Platform/Base/Hash.h"

#include <map>
#include <net/if.h>
#include <set>
#include <string>
#include <unordered_set>
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

std::map<std::string, Vrf::VrfId> assignVrfIds(const Configuration& configuration,
                                               const std::map<std::string, Vrf::VrfId>& before) {
    std::map<std::string, Vrf::VrfId> ids;
    std::set<Vrf::VrfId> taken;
    auto give = [&](const VrfConfiguration& vrf, Vrf::VrfId id) {
        if (id.isValid() && !ids.contains(vrf.name.bytes()) && taken.insert(id).second) {
            ids[vrf.name.bytes()] = id;
        }
    };
    for (const VrfConfiguration& vrf : configuration.vrfs) {
        give(vrf, vrf.id);
    }
    for (const VrfConfiguration& vrf : configuration.vrfs) {
        if (vrf.name == "default") {
            give(vrf, Vrf::VrfId(0));
        }
    }
    for (const VrfConfiguration& vrf : configuration.vrfs) {
        if (auto kept = before.find(vrf.name.bytes()); kept != before.end()) {
            give(vrf, kept->second);
        }
    }
    uint32_t lowest = 1;
    for (const VrfConfiguration& vrf : configuration.vrfs) {
        while (!ids.contains(vrf.name.bytes())) {
            give(vrf, Vrf::VrfId(lowest++));
        }
    }
    return ids;
}

std::set<std::string> namespaces(const Configuration& configuration) {
    std::set<std::string> all;
    for (const VrfConfiguration& vrf : configuration.vrfs) {
        all.insert(vrf.networkNamespace);
    }
    return all;
}

/// The namespaces of interfaces: that of its VRF for a routed one, else that of "default".
class InterfaceNamespaces {
  public:
    explicit InterfaceNamespaces(const Configuration& configuration) {
        for (const VrfConfiguration& vrf : configuration.vrfs) {
            ofVrf_[vrf.name] = vrf.networkNamespace;
        }
    }
    const std::string& of(const InterfaceConfiguration& interface) const {
        return ofVrf_.at(interface.vrfName());
    }

  private:
    std::map<L3::VrfName, std::string> ofVrf_;
};

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

using SubInterfaceKey = std::pair<std::string, std::string>; // parent and name

std::map<SubInterfaceKey, Brant::IntfEncap> subInterfaces(const Configuration& configuration) {
    using Bridging::VlanTag;
    std::map<SubInterfaceKey, Brant::IntfEncap> all;
    for (const InterfaceConfiguration& interface : configuration.interfaces) {
        if (const auto& sub = interface.subInterface) {
            VlanTag outer(VlanTag::dot1q, sub->outerVlan.value());
            VlanTag inner =
                sub->innerVlan ? VlanTag(VlanTag::dot1q, sub->innerVlan.value()) : VlanTag();
            all.try_emplace({sub->parent, interface.name}, outer, inner);
        }
    }
    return all;
}

/// The kernel interfaces by namespace and index.
std::map<std::pair<std::string, uint32_t>, KernelNetInfo::InterfaceStatus>
kernelInterfaces(const Configuration& configuration) {
    const InterfaceNamespaces netNs(configuration);
    std::map<std::pair<std::string, uint32_t>, KernelNetInfo::InterfaceStatus> all;
    for (const InterfaceConfiguration& interface : configuration.interfaces) {
        if (interface.ifindex) {
            uint32_t flags = interface.running ? IFF_UP | IFF_RUNNING : 0u;
            all.try_emplace({netNs.of(interface), *interface.ifindex}, *interface.ifindex,
                            interface.device, flags, Zinc::EthAddr());
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

/// Removes the records of `before` whose keys are gone, and sets those of `after`; of several with
/// one key the first.
template <class Record, class Del, class Is>
void replaceRecords(const std::vector<Record>& before, const std::vector<Record>& after, Del del,
                    Is is) {
    using Key = typename Record::Key;
    struct KeyHash {
        size_t operator()(const Key& key) const { return key.hash(Vela::processHashSeed()); }
    };
    std::unordered_set<Key, KeyHash> kept;
    for (const Record& record : after) {
        kept.insert(record.key);
    }
    for (const Record& record : before) {
        if (!kept.contains(record.key)) {
            del(record.key);
        }
    }
    for (const Record& record : after) {
        if (kept.erase(record.key) > 0) {
            is(record);
        }
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

std::vector<Arp::Table::ArpEntry> neighborRecords(const Configuration& configuration,
                                                  const std::map<std::string, Vrf::VrfId>& vrfIds) {
    return records<Arp::Table::ArpEntry>(
        configuration.neighbors, [&](const NeighborConfiguration& n) -> Arp::Table::ArpEntry {
            return {{vrfIds.at(n.vrf.bytes()), IntfId(n.interface), n.ip},
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

/// Throws what a name or a value may lead to, before anything has been changed.
void checkNames(const Configuration& configuration) {
    for (const InterfaceConfiguration& interface : configuration.interfaces) {
        IntfId{interface.name};
        if (interface.subInterface) {
            IntfId{interface.subInterface->parent};
        }
    }
    for (const EvpnSegmentConfiguration& segment : configuration.evpn.segments) {
        IntfId{segment.interface};
        for (const auto& forwarder : segment.designatedForwarders) {
            IntfId{forwarder.tunnel};
        }
    }
    for (const FdbConfiguration& fdb : configuration.fdb) {
        IntfId{fdb.interface};
    }
    for (const NeighborConfiguration& neighbor : configuration.neighbors) {
        IntfId{neighbor.interface};
    }
    kernelInterfaces(configuration);
}

} // namespace

StaticEntries::StaticEntries(Vela::SwitchState& state) : state_(state) {
    applied_.vrfs.clear();
}

void StaticEntries::apply(const Configuration& configuration) {
    // What can fail comes first.
    checkNames(configuration);
    mountNamespaces(configuration);

    VrfIds nextIds = assignVrfIds(configuration, vrfIds_);
    applyVrfIds(nextIds);
    withdrawSubInterfaces(configuration);
    if (!configuration.onLinux) {
        applyVrfs(configuration);
        applyInterfaces(configuration);
    }
    applySubInterfaces(configuration);
    applyBridging(configuration);
    applyTables(configuration, nextIds);
    applyEvpn(configuration);
    if (!configuration.onLinux) {
        unmountNamespaces(configuration);
    }
    applied_ = configuration;
    vrfIds_ = std::move(nextIds);
}

void StaticEntries::mountNamespaces(const Configuration& next) {
    const auto before = namespaces(applied_);
    std::vector<std::string> mounted;
    try {
        for (const std::string& netNs : namespaces(next)) {
            if (!before.contains(netNs)) {
                state_.kernelNetInfoIs(netNs);
                mounted.push_back(netNs);
            }
        }
    } catch (const Quarry::TableError&) {
        for (const std::string& netNs : mounted) {
            state_.kernelNetInfoDel(netNs);
        }
        throw;
    }
}

void StaticEntries::unmountNamespaces(const Configuration& next) {
    const auto after = namespaces(next);
    for (const std::string& netNs : namespaces(applied_)) {
        if (!after.contains(netNs)) {
            state_.kernelNetInfoDel(netNs);
        }
    }
}

void StaticEntries::applyVrfIds(const VrfIds& nextIds) {
    for (const auto& [name, id] : vrfIds_) {
        auto kept = nextIds.find(name);
        if (kept == nextIds.end() || kept->second != id) {
            state_.vrfIdMap->vrfDel(id);
        }
    }
    for (const auto& [name, id] : nextIds) {
        state_.vrfIdMap->vrfIs(id, name);
    }
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
    for (const auto& [name, vrf] : after) {
        auto status = state_.allVrfStatusLocal->vrfIs(name);
        status->networkNamespaceIs(vrf->networkNamespace);
        status->stateIs(
            stateInTables(vrf->state)); // last: whoever sees it active finds the namespace
    }
}

void StaticEntries::applyInterfaces(const Configuration& next) {
    withdrawInterfaces(next);
    applyKernelInterfaces(next);
    const InterfaceNamespaces netNs(next);
    for (const InterfaceConfiguration& interface : next.interfaces) {
        IntfId intfId(interface.name);
        state_.allIntfStatusLocalDir->intfStatusLocalIs(intfId)->netNsIs(netNs.of(interface));
        state_.allIntfStatusDir->intfStatusIs(intfId)->deviceNameIs(interface.device);
        setIpv4(state_, interface);
        setIpv6(state_, interface);
    }
}

void StaticEntries::withdrawInterfaces(const Configuration& next) {
    withdrawGone(interfacesByName(applied_), interfacesByName(next), [&](const std::string& name) {
        state_.ipStatus->ipIntfStatusDel(IntfId(name));
        state_.ip6Status->intfDel(IntfId(name));
        state_.allIntfStatusDir->intfStatusDel(IntfId(name));
        state_.allIntfStatusLocalDir->intfStatusLocalDel(IntfId(name));
    });
}

void StaticEntries::withdrawSubInterfaces(const Configuration& next) {
    withdrawGone(subInterfaces(applied_), subInterfaces(next), [&](const SubInterfaceKey& key) {
        if (auto parent = state_.intfEncapServiceIntf->parent(IntfId(key.first))) {
            parent->subIntfDel(IntfId(key.second));
        }
    });
}

void StaticEntries::applySubInterfaces(const Configuration& next) {
    for (const auto& [key, encap] : subInterfaces(next)) {
        state_.intfEncapServiceIntf->parentIs(IntfId(key.first))
            ->subIntfIs(IntfId(key.second), encap);
    }
    for (const auto& [key, encap] : subInterfaces(applied_)) {
        auto parent = state_.intfEncapServiceIntf->parent(IntfId(key.first));
        if (parent && parent->subIntfCollection().count() == 0) {
            state_.intfEncapServiceIntf->parentDel(IntfId(key.first));
        }
    }
}

void StaticEntries::applyKernelInterfaces(const Configuration& next) {
    auto after = kernelInterfaces(next);
    withdrawGone(kernelInterfaces(applied_), after, [&](const auto& key) {
        state_.kernelNetInfoIs(key.first)->interfaceDel(key.second);
    });
    for (const auto& [key, status] : after) {
        state_.kernelNetInfoIs(key.first)->interfaceIs(status);
    }
}

void StaticEntries::applyBridging(const Configuration& next) {
    // Not configured, they may be another's.
    bool ours = !next.onLinux;
    if (ours && next.bridging.mac != applied_.bridging.mac) {
        state_.bridgingConfig->bridgeMacAddrIs(next.bridging.mac.value_or(Zinc::EthAddr()));
    }
    if (ours && next.fhrp.varpMac != applied_.fhrp.varpMac) {
        state_.fhrpVrMacStatus->varpVirtualMacIs(next.fhrp.varpMac.value_or(Zinc::EthAddr()));
    }
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
        if (!next.onLinux) {
            evpn.vlanToDot1qDel(vlanId);
        }
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
        if (!next.onLinux) {
            evpn.vlanToDot1qIs(vlanId, vlan->dot1q);
        }
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

void StaticEntries::applyTables(const Configuration& next, const VrfIds& nextIds) {
    replaceRecords(
        fdbRecords(applied_), fdbRecords(next),
        [&](const auto& key) { state_.bridgingStatus->quarryFdbStatusDel(key); },
        [&](const auto& record) { state_.bridgingStatus->quarryFdbStatusIs(record); });
    replaceRecords(
        neighborRecords(applied_, vrfIds_), neighborRecords(next, nextIds),
        [&](const auto& key) { state_.arpStatus->entryDel(key); },
        [&](const auto& record) { state_.arpStatus->entryIs(record); });
    replaceRecords(
        bindingRecords(applied_), bindingRecords(next),
        [&](const auto& key) { state_.remoteBindingConfig->remoteBindingDel(key); },
        [&](const auto& record) { state_.remoteBindingConfig->remoteBindingIs(record); });
}

} // namespace Host
