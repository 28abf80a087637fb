#include "Linux/DevicePublisher.h"

#include "Linux/InterfaceNames.h"
#include "Platform/State/DumpContext.h"

#include <utility>

namespace Linux {

DevicePublisher::DevicePublisher(Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::SwitchState& state,
                                 Vela::Ptr<Topology> topology, Questions questions)
    : scheduler_(std::move(scheduler)), state_(state), topology_(std::move(topology)),
      questions_(std::move(questions)), interfaces_(devices_, state),
      vlans_(devices_, state, *topology_) {
    task_ = Vela::make<Vela::Task>(scheduler_, 3, "DevicePublisher", this,
                                   [this] { return workOff(); });
}

void DevicePublisher::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "Linux::DevicePublisher settled=%d\n", settled());
    for (const auto& netNs : devices_.all()) {
        context.print(indent + 2, "netNs[%s] devices=%zu ownNetNsId=%d\n", netNs->name.c_str(),
                      netNs->links.count(), netNs->ownNetNsId.value_or(-1));
    }
    context.print(indent + 2, "interfaces=%zu vrfs=%zu\n", interfaces_.names().size(),
                  vrfs_.size());
    for (const auto& [vlanId, mac] : vlans_.strangeMacs()) {
        context.print(indent + 2, "%s has the MAC address %s and not the switch's\n",
                      KernelDevices::interfaceName(vlanId).c_str(), mac.toStrep().c_str());
    }
}

void DevicePublisher::configurationIs(LinuxConfiguration configuration) {
    Changes changes;
    changes.interfaces.insert(interfaces_.names().begin(), interfaces_.names().end());
    changes.vlans.merge(vlans_.vlans());
    devices_.configurationIs(std::move(configuration));
    for (const auto& netNs : devices_.all()) {
        netNs->links.forEach([&](const LinkMessage& link) { note(*netNs, link, changes); });
    }
    updateVrfs();
    if (publishing_) {
        vlans_.updateMacAddresses();
    }
    applyLater(std::move(changes));
}

void DevicePublisher::netNsIs(const std::string& name) {
    auto kernelNetInfo = state_.kernelNetInfoIs(name);
    auto netNs = std::make_unique<NetNs>(
        name,
        [this, name](const LinkMessage* before, const LinkMessage* after) {
            handleLink(*devices_.netNs(name), before, after);
        },
        [this, name](uint32_t ifIndex) { handleAddresses(*devices_.netNs(name), ifIndex); });
    netNs->kernelNetInfo = std::move(kernelNetInfo);
    devices_.netNsIs(std::move(netNs));
    updateVrfs();
}

void DevicePublisher::netNsDel(const std::string& name) {
    std::unique_ptr<NetNs> gone = devices_.netNsDel(name);
    // First, so that nobody looks for devices of a VRF any more.
    updateVrfs();
    Changes changes;
    gone->links.forEach([&](const LinkMessage& link) {
        gone->kernelNetInfo->interfaceDel(link.ifIndex);
        note(*gone, link, changes);
    });
    applyLater(std::move(changes)); // there may be thousands
}

void DevicePublisher::publish() {
    if (publishing_) {
        return;
    }
    publishing_ = true;
    updateVrfs();
    vlans_.updateMacAddresses();
    task_->schedule();
}

void DevicePublisher::handleLink(NetNs& netNs, const LinkMessage* before,
                                 const LinkMessage* after) {
    if (after) {
        netNs.kernelNetInfo->interfaceIs(
            {after->ifIndex, after->name, after->flags, after->macAddress});
        // Its number exists as soon as a message has it.
        if (after->linkNetNsId && !netNs.ownNetNsId && netNs.name != ownNetNs) {
            netNs.ownNetNsId = questions_.ownNetNsId(netNs.name);
        }
        if (after->kind == "veth" && after->link == 0 && (!before || before->link != 0)) {
            questions_.link(netNs.name, after->ifIndex);
        }
    } else {
        netNs.kernelNetInfo->interfaceDel(before->ifIndex);
    }
    bool ofVrf = (before && before->kind == "vrf") || (after && after->kind == "vrf");
    if (ofVrf) {
        updateVrfs();
    }
    Changes changes;
    for (const LinkMessage* link : {before, after}) {
        if (link) {
            note(netNs, *link, changes);
        }
    }
    apply(std::move(changes), netNs.links.sweeping());
}

void DevicePublisher::handleAddresses(const NetNs& netNs, uint32_t ifIndex) {
    if (const LinkMessage* link = netNs.links.find(ifIndex)) {
        Changes changes;
        changes.interfaces.insert(deviceInterfaceName(configuration(), netNs.name, *link));
        apply(std::move(changes), netNs.addresses.sweeping());
    }
}

/// What a device that is, or was, may have to do with. Who belonged to one that is gone by now was
/// looked at when it went.
void DevicePublisher::note(const NetNs& netNs, const LinkMessage& link, Changes& changes) const {
    bool own = netNs.name == ownNetNs;
    changes.interfaces.insert(deviceInterfaceName(configuration(), netNs.name, link));
    auto vlanIs = [&](std::optional<Bridging::VlanId> vlanId) {
        if (vlanId) {
            changes.vlans.insert(*vlanId);
        }
    };
    vlanIs(KernelDevices::vlanOfInterface(link.name));
    if (own) {
        changes.ports.insert(link.ifIndex);
        vlanIs(devices_.vlanOfBridge(link.name));
        vlanIs(devices_.vlanOfPort(link));
    }
    if (const LinkMessage* lower = netNs.links.find(link.link); lower && !link.linkNetNsId) {
        vlanIs(KernelDevices::vlanOfInterface(lower->name));
    }
    if (link.kind == "vrf") {
        for (uint32_t ifIndex : netNs.links.belongingTo(link.ifIndex)) {
            const LinkMessage& member = *netNs.links.find(ifIndex);
            changes.interfaces.insert(deviceInterfaceName(configuration(), netNs.name, member));
            vlanIs(KernelDevices::vlanOfInterface(member.name));
        }
    }
}

void DevicePublisher::apply(Changes changes, bool oneOfMany) {
    if (publishing_ && !oneOfMany) {
        while (updateNext(changes)) {
        }
    } else {
        applyLater(std::move(changes));
    }
}

void DevicePublisher::applyLater(Changes changes) {
    backlog_.interfaces.merge(changes.interfaces);
    backlog_.ports.merge(changes.ports);
    backlog_.vlans.merge(changes.vlans);
    if (publishing_) {
        settled_.set(backlog_.empty());
        task_->schedule();
    }
}

/// Updates one thing; false if there is none left.
bool DevicePublisher::updateNext(Changes& changes) {
    if (!changes.interfaces.empty()) {
        interfaces_.update(changes.interfaces.extract(changes.interfaces.begin()).value());
    } else if (!changes.ports.empty()) {
        vlans_.updatePort(changes.ports.extract(changes.ports.begin()).value());
    } else if (!changes.vlans.empty()) {
        Bridging::VlanId vlanId = changes.vlans.extract(changes.vlans.begin()).value();
        vlans_.updateVlan(vlanId);
        interfaces_.update(KernelDevices::interfaceName(vlanId));
    } else {
        return false;
    }
    return true;
}

Vela::SliceResult DevicePublisher::workOff() {
    if (!publishing_) {
        return {false, 0};
    }
    uint32_t items = 0;
    while (updateNext(backlog_)) {
        ++items;
        if (destroyed()) {
            return {false, items};
        }
        if (scheduler_->mustYield()) {
            return {true, items};
        }
    }
    settled_.set(true);
    return {false, items};
}

void DevicePublisher::updateVrfs() {
    if (!publishing_) {
        return;
    }
    std::map<std::string, VrfSetting> existing;
    for (const VrfSetting& vrf : configuration().vrfs) {
        if (devices_.vrfExists(vrf)) {
            existing.emplace(vrf.name.bytes(), vrf);
        }
    }
    for (const auto& [name, vrf] : vrfs_) {
        auto kept = existing.find(name);
        // An active VRF keeps its namespace: another one makes it another VRF.
        if (kept == existing.end() || kept->second.netNs != vrf.netNs) {
            state_.allVrfStatusLocal->vrfDel(name);
        }
    }
    vrfs_ = std::move(existing);
    for (const auto& [name, vrf] : vrfs_) {
        auto status = state_.allVrfStatusLocal->vrfIs(name);
        status->networkNamespaceIs(vrf.netNs);
        status->stateIs(vrf.state); // last: whoever sees it active finds the namespace
    }
}

} // namespace Linux
