#pragma once

#include "Platform/Model/KernelNetInfo/Status.h"
#include "Platform/State/Attribute.h"
#include "Platform/State/Collection.h"

#include <map>
#include <optional>
#include <string>

namespace KernelNetInfo {

/// The kernel interfaces of a network namespace by name.
class Root final : public Vela::Entity {
  public:
    using InterfaceCollection = Vela::Map<std::string, InterfaceStatus>;

    const char* typeName() const noexcept override { return "KernelNetInfo::Root"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// Announces only a change.
    const InterfaceCollection& interfaceByDeviceNameCollection() const { return interface_; }
    /// The default value where there is none.
    InterfaceStatus interfaceByDeviceName(const std::string& deviceName) const {
        return interface_.value(deviceName);
    }
    void interfaceIs(const InterfaceStatus& status) { interface_.set(status.deviceName(), status); }
    void interfaceDel(const std::string& deviceName) { interface_.del(deviceName); }

  private:
    InterfaceCollection interface_;
};

/// Keeps a namespace's interfaces by name while the kernel renames, removes and recreates them. Of
/// two that have one name for a while the one that changed last counts, until it leaves it. The
/// status may be empty; then there are none.
class InterfaceInfo final : public Vela::Entity {
  public:
    explicit InterfaceInfo(Vela::Ptr<const Status> status);

    const char* typeName() const noexcept override { return "KernelNetInfo::InterfaceInfo"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const Vela::Ptr<Root>& root() const { return root_; }

  protected:
    void handleInitialized() override;

  private:
    void handleInterface(IfIndex ifIndex);
    std::optional<InterfaceStatus> interfaceOf(const std::string& deviceName) const;

    Vela::Ptr<const Status> status_;
    Vela::Ptr<Root> root_;
    std::map<uint32_t, std::string> deviceName_; // of each index, as it was last
    Vela::Reaction interfaceReaction_;
};

} // namespace KernelNetInfo
