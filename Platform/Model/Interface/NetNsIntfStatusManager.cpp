#include "Platform/Model/Interface/NetNsIntfStatusManager.h"

#include "Platform/State/DumpContext.h"

#include <algorithm>
#include <utility>

namespace Interface {

namespace {

const std::string defaultNetNs = "default";

} // namespace

NetNsIntfStatusManager::NetNsIntfStatusManager(
    Vela::Ptr<const AllIntfStatusDir> allIntfStatusDir,
    Vela::Ptr<const AllIntfStatusLocalDir> allIntfStatusLocalDir,
    Vela::Ptr<DeviceIntfStatusDir> deviceIntfStatusDir,
    Vela::Ptr<const KernelNetInfo::Status> kernelStatus, std::string netNs, bool everyDevice)
    : allIntfStatusDir_(std::move(allIntfStatusDir)),
      allIntfStatusLocalDir_(std::move(allIntfStatusLocalDir)),
      deviceIntfStatusDir_(std::move(deviceIntfStatusDir)), netNs_(std::move(netNs)),
      everyDevice_(everyDevice) {
    interfaceInfo_ = Vela::make<KernelNetInfo::InterfaceInfo>(std::move(kernelStatus));
}

void NetNsIntfStatusManager::handleInitialized() {
    auto handle = [this](Zinc::IntfId intfId) { handleIntf(intfId); };
    intfReaction_ = allIntfStatusDir_->intfStatusCollection().react(this, handle);
    if (allIntfStatusLocalDir_) {
        localReaction_ = allIntfStatusLocalDir_->intfStatusLocalCollection().react(this, handle);
    }
    for (auto cursor = allIntfStatusDir_->intfStatusCollection().first(); cursor; ++cursor) {
        handleIntf(cursor.key());
    }
    const auto& devices = interfaceInfo_->root()->interfaceByDeviceNameCollection();
    kernelReaction_ =
        devices.react(this, [this](const std::string& deviceName) { update(deviceName); });
    for (auto cursor = devices.first(); cursor; ++cursor) {
        update(cursor.key());
    }
}

void NetNsIntfStatusManager::handleDestroy() noexcept {
    interfaceInfo_.reset();
    for (const auto& [deviceName, ifIndex] : std::exchange(published_, {})) {
        withdraw(deviceName, ifIndex);
    }
}

void NetNsIntfStatusManager::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "Interface::NetNsIntfStatusManager %s\n", netNs_.c_str());
    context.child(indent + 2, "deviceIntfStatusDir", deviceIntfStatusDir_.get());
    context.child(indent + 2, "interfaceInfo", interfaceInfo_.ptr().get());
}

void NetNsIntfStatusManager::kernelOnlyInterfaceIs(const std::string& deviceName,
                                                   const std::string& intfName) {
    kernelOnly_[deviceName] = Zinc::IntfId(intfName);
    update(deviceName);
}

/// The interface's device in this namespace; none if it has left, or has none.
std::string NetNsIntfStatusManager::deviceNameOf(Zinc::IntfId intfId) const {
    auto status = allIntfStatusDir_->intfStatus(intfId);
    if (!status) {
        return {};
    }
    auto local = allIntfStatusLocalDir_ ? allIntfStatusLocalDir_->intfStatusLocal(intfId) : nullptr;
    bool here = (local && !local->netNs().empty() ? local->netNs() : defaultNetNs) == netNs_;
    return here ? status->deviceName() : std::string();
}

void NetNsIntfStatusManager::handleIntf(Zinc::IntfId intfId) {
    auto status = allIntfStatusDir_->intfStatus(intfId);
    std::string newName = deviceNameOf(intfId);
    std::string oldName = std::exchange(known_[intfId].deviceName, newName);
    if (status) {
        react(intfId, *status);
    } else {
        known_.erase(intfId);
    }
    if (oldName == newName) {
        return;
    }
    // What is known is right before anything is announced: a reaction may change it again.
    release(oldName, intfId);
    if (!newName.empty()) {
        intf_[newName] = intfId;
    }
    update(oldName);
    update(newName);
}

/// Anew each time: another object may have taken the place of the one that was watched.
void NetNsIntfStatusManager::react(Zinc::IntfId intfId, const IntfStatus& status) {
    Known& known = known_[intfId];
    auto handle = [this, intfId] { handleIntf(intfId); };
    known.deviceNameReaction = status.deviceNameAttribute().react(this, handle);
    auto local = allIntfStatusLocalDir_ ? allIntfStatusLocalDir_->intfStatusLocal(intfId) : nullptr;
    known.netNsReaction = local ? local->netNsAttribute().react(this, handle) : Vela::Reaction();
}

/// While interfaces swap their devices, two can have the same one.
void NetNsIntfStatusManager::release(const std::string& deviceName, Zinc::IntfId intfId) {
    auto found = intf_.find(deviceName);
    if (found == intf_.end() || found->second != intfId) {
        return;
    }
    auto another = std::find_if(known_.begin(), known_.end(), [&](const auto& entry) {
        return entry.second.deviceName == deviceName;
    });
    if (another != known_.end()) {
        found->second = another->first;
    } else {
        intf_.erase(found);
    }
}

Zinc::IntfId NetNsIntfStatusManager::intfOf(const std::string& deviceName) const {
    if (auto found = intf_.find(deviceName); found != intf_.end()) {
        return found->second;
    }
    if (auto found = kernelOnly_.find(deviceName); found != kernelOnly_.end()) {
        return found->second;
    }
    return everyDevice_ ? Zinc::IntfId(deviceName) : Zinc::IntfId();
}

void NetNsIntfStatusManager::update(const std::string& deviceName) {
    if (destroyed()) {
        return; // by a reaction
    }
    uint32_t ifIndex = interfaceInfo_->root()->interfaceByDeviceName(deviceName).key.value;
    Zinc::IntfId intfId = intfOf(deviceName);
    auto published = published_.find(deviceName);
    if (published != published_.end() && (published->second != ifIndex || !intfId)) {
        uint32_t old = published->second;
        published_.erase(published);
        withdraw(deviceName, old);
        update(deviceName); // a reaction may have changed anything
    } else if (ifIndex != 0 && intfId) {
        published_[deviceName] = ifIndex;
        deviceIntfStatusDir_->deviceIntfStatusIs(ifIndex, {intfId, deviceName});
    }
}

/// A renamed device keeps its index: it may stand there under its new name already.
void NetNsIntfStatusManager::withdraw(const std::string& deviceName, uint32_t ifIndex) {
    if (deviceIntfStatusDir_->deviceIntfStatus(ifIndex).deviceName() == deviceName) {
        deviceIntfStatusDir_->deviceIntfStatusDel(ifIndex);
    }
}

void NetNsIntfStatusManagerRoot::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "Interface::NetNsIntfStatusManagerRoot\n");
    for (const auto& [netNs, manager] : intfStatusManager_) {
        context.child(indent + 2, netNs.c_str(), manager.ptr().get());
    }
}

Vela::Ptr<NetNsIntfStatusManager> NetNsIntfStatusManagerRoot::intfStatusManagerIs(
    const Vela::Ptr<DeviceIntfStatusDir>& deviceIntfStatusDir,
    const Vela::Ptr<const KernelNetInfo::Status>& kernelStatus, const std::string& netNs) {
    intfStatusManager_.erase(netNs);
    auto manager =
        Vela::make<NetNsIntfStatusManager>(allIntfStatusDir_, allIntfStatusLocalDir_,
                                           deviceIntfStatusDir, kernelStatus, netNs, everyDevice_);
    intfStatusManager_[netNs] = manager;
    return manager;
}

Vela::Ptr<NetNsIntfStatusManager>
NetNsIntfStatusManagerRoot::intfStatusManager(const std::string& netNs) const {
    auto found = intfStatusManager_.find(netNs);
    return found == intfStatusManager_.end() ? nullptr : found->second.ptr();
}

} // namespace Interface
