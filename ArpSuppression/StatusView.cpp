#include "ArpSuppression/StatusView.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

namespace ArpSuppression {

namespace {

using Bridging::VlanId;

/// The entries of VLAN interfaces. Looking one up by its name would enter a name that is new.
template <class Collection, class ByVlan>
void collectVlanInterfaces(const Collection& collection, ByVlan& byVlan) {
    for (auto cursor = collection.first(); cursor; ++cursor) {
        uint32_t number = cursor.key().vlanNumber();
        if (number >= 1 && number <= 4094) {
            byVlan[VlanId(number)] = cursor.value().get();
        }
    }
}

template <class Map>
auto find(const Map& map, VlanId vlanId) {
    auto found = map.find(vlanId);
    return found == map.end() ? nullptr : found->second;
}

template <class Collection>
void addKeys(const Collection& collection, std::set<VlanId>& vlans) {
    for (auto cursor = collection.first(); cursor; ++cursor) {
        vlans.insert(cursor.key());
    }
}

std::string withIndex(const std::string& device, uint32_t ifIndex) {
    return device + ", ifindex " + std::to_string(ifIndex);
}

/// Why packets cannot be sent on the device.
std::string unusable(const VrfInterfaceWatch* watch, const std::string& device) {
    if (watch && watch->kniIntfIfIndex() != 0) {
        return device + ": its VRF is not active";
    }
    return device + ": no such device is running";
}

bool holds(const StatusConditions& conditions, std::string_view name) {
    return std::any_of(conditions.begin(), conditions.end(), [&](const StatusCondition& condition) {
        return condition.name == name && condition.holds;
    });
}

} // namespace

std::string VlanStatus::summary() const {
    std::string text =
        "VLAN " + vlanId.toStrep() + (suppressing() ? ": " : ": not ") + "suppressing";
    const char* before = ", lacks: ";
    for (const StatusCondition& condition : lacks) {
        text += std::string(before) + condition.text;
        before = "; ";
    }
    return text;
}

StatusView::StatusView(const ArpSuppressionMounts& mounts, const ArpSuppressionRoot* root,
                       const MessageTapSocketSm* trap, const MessageTapSocketSm* reinject)
    : mounts_(mounts), root_(root), trap_(trap), reinject_(reinject) {
    if (mounts_.ipStatus()) {
        collectVlanInterfaces(mounts_.ipStatus()->ipIntfStatusCollection(), ip_);
    }
    if (mounts_.ip6Status()) {
        collectVlanInterfaces(mounts_.ip6Status()->intfCollection(), ip6_);
    }
}

StatusCondition StatusView::socketCondition(const char* name, const char* text,
                                            const MessageTapSocketSm* machine) const {
    if (!machine) {
        return {name, text, false, ""};
    }
    const VrfInterfaceWatch* watch = machine->interfaceWatch().get();
    const std::string& device = machine->interfaceName();
    if (machine->fileDescriptor()) {
        return {name, text, true, withIndex(device, watch->kniIntfIfIndex())};
    }
    bool usable = watch && watch->usable();
    return {name, text, false,
            usable ? device + ": the socket could not be opened" : unusable(watch, device)};
}

StatusCondition StatusView::fabricCondition() const {
    constexpr const char* device = "fabric";
    StatusCondition condition{"fabricDevice", "device for replies", false, ""};
    if (root_) {
        auto watch = root_->vlanL3InfoStatus()->vrfInterfaceWatch(device);
        condition.holds = watch && watch->usable();
        condition.value = condition.holds ? withIndex(device, watch->kniIntfIfIndex())
                                          : unusable(watch.get(), device);
    }
    return condition;
}

StatusConditions StatusView::agentConditions() const {
    const auto& bindings = mounts_.remoteBindingConfig();
    const auto& group = mounts_.remoteBindingConfigMountGroup();
    std::string entries =
        bindings ? std::to_string(bindings->remoteBindingCollection().count()) + " in the table"
                 : "";
    return {
        {"evpnMpls", "EVPN over MPLS", mounts_.evpnStatus()->mplsConfigured(), ""},
        {"running", "agent runs", root_ != nullptr, ""},
        {"remoteBindingsComplete", "remote bindings complete", group && group->ready(), entries},
        {"initialPopulation", "initial population complete",
         root_ && root_->remoteBindingStatus()->initialPopulationComplete(), ""},
        socketCondition("trapSocket", "trap socket", trap_),
        socketCondition("reinjectSocket", "injection socket", reinject_),
        fabricCondition(),
    };
}

const VlanL3Info* StatusView::recordOf(VlanId vlanId) const {
    const Vela::Ptr<VlanL3Info>* record =
        root_ ? root_->vlanL3InfoStatus()->vlanL3InfoCollection().find(vlanId) : nullptr;
    return record ? record->get() : nullptr;
}

std::optional<bool> StatusView::published(VlanId vlanId) const {
    const bool* active = mounts_.arpSuppressionStatus()->vlanIdCollection().find(vlanId);
    return active ? std::optional(*active) : std::nullopt;
}

StatusCondition StatusView::routedInterfaceCondition(VlanId vlanId) const {
    bool routed = find(ip_, vlanId) || find(ip6_, vlanId) || recordOf(vlanId);
    return {"routedInterface", "routed interface", routed,
            VlanL3Info::constructIntfNameFromVlanId(vlanId)};
}

StatusCondition StatusView::vrfCondition(VlanId vlanId, const VlanL3Info* record) const {
    std::string value;
    auto ip = find(ip_, vlanId);
    auto ip6 = find(ip6_, vlanId);
    if (record && record->vrfInfo()) {
        value = record->vrfInfo()->vrfName();
    } else if (ip && ip6 && ip->vrfName() != ip6->vrfName()) {
        value = "IPv4 in " + ip->vrfName().bytes() + ", IPv6 in " + ip6->vrfName().bytes();
    }
    return {"vrf", "VRF of the interface", record && record->vrfInfo(), value};
}

StatusCondition StatusView::vrfActiveCondition(const VrfInfo* vrfInfo) const {
    StatusCondition condition{"vrfActive", "VRF active", vrfInfo && !vrfInfo->netNs().empty(), ""};
    if (condition.holds) {
        condition.value = "namespace " + vrfInfo->netNs();
    } else if (vrfInfo && mounts_.allVrfStatusLocal()) {
        auto status = mounts_.allVrfStatusLocal()->vrf(vrfInfo->vrfName());
        condition.value = status ? toStrep(status->state()) : "not set up";
    }
    return condition;
}

/// Of the chain from the routed interface to its device each link needs the one before it.
StatusConditions StatusView::vlanConditions(VlanId vlanId) const {
    const VlanL3Info* record = recordOf(vlanId);
    const VrfInfo* vrfInfo = record ? record->vrfInfo().get() : nullptr;
    bool vrfIdKnown = vrfInfo && vrfInfo->vrfId().isValid();
    uint32_t ifIndex = record ? record->kniIntfIfIndex() : 0;
    std::string device = VlanL3Info::constructIntfNameFromVlanId(vlanId);
    std::optional<bool> active = published(vlanId);
    return {
        {"evpn", "EVPN serves the VLAN", mounts_.evpnStatus()->vlanToDot1qCollection().has(vlanId),
         ""},
        {"remoteBindings", "remote bindings",
         root_ && root_->remoteBindingStatus()->vlanIdHas(vlanId), ""},
        {"enabled", "suppression wanted", root_ && root_->enabledVlans()->vlanIdHas(vlanId), ""},
        routedInterfaceCondition(vlanId),
        vrfCondition(vlanId, record),
        {"vrfId", "id of the VRF", vrfIdKnown, vrfIdKnown ? vrfInfo->vrfId().toStrep() : ""},
        vrfActiveCondition(vrfInfo),
        {"netlinkSocket", "netlink socket", vrfInfo && vrfInfo->netlinkSocket() != 0, ""},
        {"device", "device running", ifIndex != 0,
         ifIndex != 0 ? withIndex(device, ifIndex) : device},
        {"usable", "usable interface", record && record->usable(), ""},
        {"published", "published as active", active.value_or(false),
         active ? (*active ? "active" : "not active") : "no entry"},
    };
}

VlanStatus StatusView::vlanStatus(VlanId vlanId) const {
    VlanStatus status{vlanId, vlanConditions(vlanId), {}};
    const StatusConditions agent = agentConditions();
    auto lacksOf = [&](const StatusConditions& conditions, auto... names) {
        size_t before = status.lacks.size();
        for (std::string_view name : std::array<std::string_view, sizeof...(names)>{names...}) {
            std::copy_if(conditions.begin(), conditions.end(), std::back_inserter(status.lacks),
                         [&](const StatusCondition& condition) {
                             return condition.name == name && !condition.holds;
                         });
        }
        return status.lacks.size() > before;
    };
    if (lacksOf(agent, "evpnMpls") || lacksOf(agent, "running")) {
        status.lacks.resize(1);
        return status;
    }
    if (!holds(status.conditions, "published")) {
        bool evpn = holds(status.conditions, "evpn");
        bool bindings = holds(status.conditions, "remoteBindings");
        if (!evpn && !bindings) {
            lacksOf(status.conditions, "evpn", "remoteBindings");
        } else if (bindings || !lacksOf(status.conditions, "routedInterface", "vrf", "vrfId",
                                        "vrfActive", "netlinkSocket", "device")) {
            lacksOf(status.conditions, "published");
        } else {
            status.lacks.resize(1); // the rest of the chain follows from it
        }
    }
    lacksOf(agent, "trapSocket", "reinjectSocket", "fabricDevice");
    return status;
}

std::set<VlanId> StatusView::vlans() const {
    std::set<VlanId> vlans;
    addKeys(mounts_.evpnStatus()->vlanToDot1qCollection(), vlans);
    addKeys(mounts_.arpSuppressionStatus()->vlanIdCollection(), vlans);
    for (const auto& [vlanId, status] : ip_) {
        vlans.insert(vlanId);
    }
    for (const auto& [vlanId, status] : ip6_) {
        vlans.insert(vlanId);
    }
    if (root_) {
        addKeys(root_->remoteBindingStatus()->vlanIdCollection(), vlans);
        addKeys(root_->enabledVlans()->vlanIdCollection(), vlans);
        addKeys(root_->vlanL3InfoStatus()->vlanL3InfoCollection(), vlans);
    }
    return vlans;
}

std::vector<VlanSummary> StatusView::vlanSummaries() const {
    std::array<uint64_t, 4095> bindings{};
    std::set<VlanId> known = vlans();
    if (mounts_.remoteBindingConfig()) {
        const auto& table = mounts_.remoteBindingConfig()->remoteBindingCollection();
        for (auto cursor = table.first(); cursor; ++cursor) {
            uint16_t number = cursor.key().vlanId().value();
            if (number < bindings.size() && bindings[number]++ == 0) {
                known.insert(cursor.key().vlanId());
            }
        }
    }
    std::vector<VlanSummary> summaries;
    for (VlanId vlanId : known) {
        const VlanL3Info* record = recordOf(vlanId);
        StatusCondition interface = routedInterfaceCondition(vlanId);
        StatusCondition vrf = vrfCondition(vlanId, record);
        summaries.push_back({.vlanId = vlanId,
                             .evpn = mounts_.evpnStatus()->vlanToDot1qCollection().has(vlanId),
                             .enabled = root_ && root_->enabledVlans()->vlanIdHas(vlanId),
                             .remoteBindings = bindings[vlanId.value()],
                             .interface = interface.holds ? interface.value : "",
                             .vrf = vrf.holds ? vrf.value : "",
                             .ifIndex = record ? record->kniIntfIfIndex() : 0,
                             .usable = record && record->usable(),
                             .active = published(vlanId)});
    }
    return summaries;
}

} // namespace ArpSuppression
