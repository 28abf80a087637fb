#include "ArpSuppression/AddressView.h"

#include "ArpSuppression/ArpStatusHelper.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace ArpSuppression {

namespace {

using Bridging::VlanId;
using Id = ArpSuppressionCounterId;

/// An entry without an interface is known to all VLANs of its VRF, which says nothing of any.
bool isKnown(const AddressStatus& status, bool isMine) {
    const auto& local = status.localBinding;
    return isMine || status.remoteBinding || status.kernelEntry ||
           (status.wantedEntry && status.wantedEntry->intfId) ||
           (local && local->vlanIdMacAddress.vlanId() == status.vlan.vlanId);
}

} // namespace

const VlanL3Info* AddressView::vlanL3Info(VlanId vlanId) const {
    const Vela::Ptr<VlanL3Info>* found =
        root_ ? root_->vlanL3InfoStatus()->vlanL3InfoCollection().find(vlanId) : nullptr;
    return found ? found->get() : nullptr;
}

void AddressView::lookUpRouted(AddressStatus& status, const VlanL3Info& vlanL3Info,
                               const Zinc::IpGenAddr& address) const {
    const auto& vrfInfo = vlanL3Info.vrfInfo();
    if (!vrfInfo) {
        return;
    }
    Vrf::VrfId vrfId =
        mounts_.vrfNameToIdMap() ? mounts_.vrfNameToIdMap()->vrfId(vrfInfo->name()) : Vrf::VrfId();
    auto lookup =
        ArpStatusHelper::lookup(*mounts_.arpStatus(), {vrfId, vlanL3Info.vlanIntfId(), address});
    if (lookup.find()) {
        status.kernelEntry = lookup.record();
    }
    Zinc::IntfId scope = address.isLinkLocal() ? vlanL3Info.vlanIntfId() : Zinc::IntfId();
    if (auto binding = root_->localBindingRecord()->binding({vrfInfo, address, scope})) {
        status.localBinding = {binding->vlanIdMacAddress(), binding->arpStatusHasDynamicEntry()};
    }
    Zinc::IntfId intfId = address.af() == Zinc::ipv4() ? vlanL3Info.vlanIntfId() : scope;
    auto vrf = mounts_.arpInputConfig()->vrf(vrfInfo->name());
    if (auto entry = vrf ? vrf->afEntry({address, intfId}) : nullptr) {
        status.wantedEntry = {vrfInfo->vrfName(), intfId, *entry};
    }
}

void AddressView::lookUp(AddressStatus& status, const Zinc::IpGenAddr& address) const {
    VlanId vlanId = status.vlan.vlanId;
    if (mounts_.remoteBindingConfig()) {
        status.remoteBinding =
            mounts_.remoteBindingConfig()->remoteBindingCollection().find({vlanId, address});
    }
    if (auto info = vlanL3Info(vlanId)) {
        lookUpRouted(status, *info, address);
    }
}

/// It traps while the VLAN is active and the agent reads and writes; a reply is another matter.
RequestHandling AddressView::handlingOf(const VlanStatus& vlan,
                                        const Zinc::IpGenAddr& address) const {
    bool trapped =
        suppressionSm_ &&
        std::all_of(vlan.lacks.begin(), vlan.lacks.end(), [](const StatusCondition& condition) {
            return std::string_view(condition.name) == "fabricDevice";
        });
    return !trapped                       ? RequestHandling::passed
           : address.af() == Zinc::ipv4() ? RequestHandling::decided
                                          : RequestHandling::copied;
}

AddressStatus AddressView::addressStatus(VlanId vlanId, const Zinc::IpGenAddr& address) const {
    AddressStatus status{.vlan = statusView_.vlanStatus(vlanId)};
    lookUp(status, address);
    status.handling = handlingOf(status.vlan, address);
    if (!suppressionSm_) {
        return status;
    }
    status.facts = suppressionSm_->targetFacts(vlanId, address);
    Zinc::IntfId port = status.facts->fdbEntry.intf;
    if (auto segment = mounts_.evpnStatus()->segmentStatus(port)) {
        status.segment = {port, segment->dfTep(vlanId)};
    }
    if (status.handling == RequestHandling::decided) {
        status.outcomes = outcomes(status, address);
    }
    return status;
}

std::vector<ExpectedOutcome> AddressView::outcomes(const AddressStatus& status,
                                                   const Zinc::IpGenAddr& address) const {
    std::vector<ExpectedOutcome> all;
    auto add = [&](const char* name, std::string text, const Asker& asker) {
        ExpectedOutcome outcome{name, std::move(text), decide(*status.facts, asker), {}};
        const Decision& decision = outcome.decision;
        auto addCounter = [&](std::optional<Id> counter) {
            if (counter) {
                outcome.counters.push_back(*counter);
            }
        };
        addCounter(decision.counter);
        addCounter(counterOf(decision.action));
        if (decision.action == DecisionAction::reply) {
            addCounter(suppressionSm_->replyHindrance());
        } else if (decision.action == DecisionAction::bind) {
            addCounter(suppressionSm_->staticBindingCounter(status.vlan.vlanId, address,
                                                            decision.macAddress));
        }
        all.push_back(std::move(outcome));
    };
    add("host", "request of a host", {});
    // Only for a reply does it matter where it would go.
    if (all.front().decision.action == DecisionAction::reply) {
        if (Zinc::IntfId port = status.facts->fdbEntry.intf) {
            add("hostOnSamePort", "unless from " + port.toStrep(), {.port = Asker::Port::ofTarget});
        }
        add("hostOnUnknownPort", "unless from unknown port", {.port = Asker::Port::unknown});
    }
    add("switch", "request of the switch", {.localArpReq = true});
    add("probe", "probe", {.probe = true});
    add("announcement", "gratuitous ARP", {.announcement = true});
    return all;
}

std::set<VlanId> AddressView::vlansThatKnow(const Zinc::IpGenAddr& address) const {
    std::set<VlanId> vlans;
    for (unsigned number = 1; number <= 4094; ++number) {
        AddressStatus status{.vlan = {VlanId(number), {}, {}}};
        lookUp(status, address);
        auto info = vlanL3Info(VlanId(number));
        const bool* mine = info ? info->ipAddressCollection().find(address) : nullptr;
        if (isKnown(status, mine && *mine)) {
            vlans.insert(VlanId(number));
        }
    }
    return vlans;
}

std::set<VlanId> AddressView::vlansThatSuppress() const {
    std::set<VlanId> vlans;
    for (VlanId vlanId : statusView_.vlans()) {
        if (statusView_.vlanStatus(vlanId).suppressing()) {
            vlans.insert(vlanId);
        }
    }
    return vlans;
}

} // namespace ArpSuppression
