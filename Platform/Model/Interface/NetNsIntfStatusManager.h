#pragma once

#include "Platform/Model/Interface/DeviceIntfStatus.h"
#include "Platform/Model/Interface/IntfStatus.h"
#include "Platform/Model/KernelNetInfo/InterfaceInfo.h"

#include <map>
#include <string>

namespace Interface {

/// Fills a directory with the kernel devices of one network namespace: by kernel index, the switch
/// interface behind each. An interface belongs to a device of its name in the namespace that the
/// local directory gives for it; while that gives none, it is in the default namespace. Of two
/// interfaces with one device the one that got it last counts, until it leaves it. The directory's
/// entries go with this object, which a reaction to the directory may end.
class NetNsIntfStatusManager final : public Vela::Entity {
  public:
    NetNsIntfStatusManager(Vela::Ptr<const AllIntfStatusDir> allIntfStatusDir,
                           Vela::Ptr<const AllIntfStatusLocalDir> allIntfStatusLocalDir,
                           Vela::Ptr<DeviceIntfStatusDir> deviceIntfStatusDir,
                           Vela::Ptr<const KernelNetInfo::Status> kernelStatus, std::string netNs,
                           bool everyDevice);

    const char* typeName() const noexcept override { return "Interface::NetNsIntfStatusManager"; }
    void formatDerivedType(std::ostream& out) const override { out << netNs_; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// A device that the interface directories do not know, and the interface it stands for.
    void kernelOnlyInterfaceIs(const std::string& deviceName, const std::string& intfName);

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;

  private:
    struct Known {
        std::string deviceName; // empty: not in this namespace
        Vela::Reaction deviceNameReaction;
        Vela::Reaction netNsReaction;
    };

    void handleIntf(Zinc::IntfId intfId);
    void react(Zinc::IntfId intfId, const IntfStatus& status);
    void release(const std::string& deviceName, Zinc::IntfId intfId);
    void update(const std::string& deviceName);
    void withdraw(const std::string& deviceName, uint32_t ifIndex);
    std::string deviceNameOf(Zinc::IntfId intfId) const;
    Zinc::IntfId intfOf(const std::string& deviceName) const;

    Vela::Ptr<const AllIntfStatusDir> allIntfStatusDir_;
    Vela::Ptr<const AllIntfStatusLocalDir> allIntfStatusLocalDir_;
    Vela::Ptr<DeviceIntfStatusDir> deviceIntfStatusDir_;
    Vela::Owned<KernelNetInfo::InterfaceInfo> interfaceInfo_;
    const std::string netNs_;
    const bool everyDevice_;
    std::map<std::string, Zinc::IntfId> kernelOnly_;
    std::map<std::string, Zinc::IntfId> intf_; // by device name, of this namespace
    std::map<Zinc::IntfId, Known> known_;
    std::map<std::string, uint32_t> published_; // index under which each device stands
    Vela::Reaction kernelReaction_;
    Vela::Reaction intfReaction_;
    Vela::Reaction localReaction_;
};

/// Makes such a filler per network namespace.
class NetNsIntfStatusManagerRoot final : public Vela::Entity {
  public:
    /// `everyDevice`: a device without an interface gets one of its own name.
    NetNsIntfStatusManagerRoot(Vela::Ptr<const AllIntfStatusDir> allIntfStatusDir,
                               Vela::Ptr<const AllIntfStatusLocalDir> allIntfStatusLocalDir,
                               bool everyDevice)
        : allIntfStatusDir_(std::move(allIntfStatusDir)),
          allIntfStatusLocalDir_(std::move(allIntfStatusLocalDir)), everyDevice_(everyDevice) {}

    const char* typeName() const noexcept override {
        return "Interface::NetNsIntfStatusManagerRoot";
    }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// In the place of one for the same namespace.
    Vela::Ptr<NetNsIntfStatusManager>
    intfStatusManagerIs(const Vela::Ptr<DeviceIntfStatusDir>& deviceIntfStatusDir,
                        const Vela::Ptr<const KernelNetInfo::Status>& kernelStatus,
                        const std::string& netNs);
    Vela::Ptr<NetNsIntfStatusManager> intfStatusManager(const std::string& netNs) const;
    void intfStatusManagerDel(const std::string& netNs) { intfStatusManager_.erase(netNs); }

  protected:
    void handleDestroy() noexcept override { intfStatusManager_.clear(); }

  private:
    Vela::Ptr<const AllIntfStatusDir> allIntfStatusDir_;
    Vela::Ptr<const AllIntfStatusLocalDir> allIntfStatusLocalDir_;
    const bool everyDevice_;
    std::map<std::string, Vela::Owned<NetNsIntfStatusManager>> intfStatusManager_;
};

} // namespace Interface
