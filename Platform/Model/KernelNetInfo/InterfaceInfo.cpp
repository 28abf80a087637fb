#include "Platform/Model/KernelNetInfo/InterfaceInfo.h"

#include "Platform/State/DumpContext.h"

#include <utility>

namespace KernelNetInfo {

void Root::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "KernelNetInfo::Root\n");
    context.print(indent + 2, "interfaceByDeviceName[] #%u\n",
                  static_cast<unsigned>(interface_.count()));
    for (auto cursor = interface_.first(); cursor; ++cursor) {
        context.print(indent + 2, "%s ifIndex=%u flags=%#x\n", cursor.key().c_str(),
                      cursor.value().key.value, cursor.value().flags);
    }
}

InterfaceInfo::InterfaceInfo(Vela::Ptr<const Status> status)
    : status_(std::move(status)), root_(Vela::make<Root>()) {}

void InterfaceInfo::handleInitialized() {
    if (!status_) {
        return;
    }
    interfaceReaction_ = status_->interfaceCollection().react(
        this, [this](IfIndex ifIndex) { handleInterface(ifIndex); });
    for (auto cursor = status_->interfaceCollection().first(); cursor; ++cursor) {
        handleInterface(cursor.key());
    }
}

void InterfaceInfo::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "KernelNetInfo::InterfaceInfo\n");
    context.child(indent + 2, "root", root_.get());
}

void InterfaceInfo::handleInterface(IfIndex ifIndex) {
    auto status = status_->interfaceCollection().find(ifIndex);
    std::string newName = status ? status->deviceName() : std::string();
    std::string oldName = std::exchange(deviceName_[ifIndex.value], newName);
    if (newName.empty()) {
        deviceName_.erase(ifIndex.value);
    }
    // Another device may have got the old name meanwhile.
    if (oldName != newName && root_->interfaceByDeviceName(oldName).key == ifIndex) {
        if (auto another = interfaceOf(oldName)) {
            root_->interfaceIs(*another);
        } else {
            root_->interfaceDel(oldName);
        }
    }
    if (status) {
        root_->interfaceIs(*status);
    }
}

/// For a while two devices can have one name here, when a step of the kernel's was missed.
std::optional<InterfaceStatus> InterfaceInfo::interfaceOf(const std::string& deviceName) const {
    for (const auto& [ifIndex, name] : deviceName_) {
        if (name == deviceName) {
            auto status = status_->interfaceCollection().find({ifIndex});
            if (status && status->deviceName() == deviceName) {
                return status;
            }
        }
    }
    return std::nullopt;
}

} // namespace KernelNetInfo
