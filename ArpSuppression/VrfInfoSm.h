#pragma once

#include "ArpSuppression/ArpSuppression.h"
#include "Platform/Model/Interface/NetNsIntfStatusManager.h"
#include "Platform/Model/Ip/VrfStatus.h"
#include "Platform/Model/KernelNetInfo/InterfaceInfo.h"
#include "Platform/Scheduler/WalkSmBase.h"
#include "Platform/StateDb/EntityManager.h"

#include <optional>
#include <string>

namespace ArpSuppression {

/// Makes a VRF usable while it is active and has an id: gives it its namespace and a netlink socket
/// there, which it owns, and tells the VRF's watches the kernel indexes of their devices. One that
/// ends leaves them without index.
///
/// An active VRF keeps its namespace: whoever has to change it removes the VRF and makes it anew.
class VrfInfoSm final : public Vela::WalkSmBase {
  public:
    /// `deviceIntfStatusDir` and `netNsIntfStatusManagerRoot` are given for the default VRF only,
    /// whose kernel devices then are those of the directory.
    VrfInfoSm(Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::Ptr<VrfInfo> vrfInfo,
              Vela::Ptr<const Ip::VrfStatusLocal> vrfStatusLocal,
              Vela::Ptr<Interface::DeviceIntfStatusDir> deviceIntfStatusDir,
              Vela::Ptr<Interface::NetNsIntfStatusManagerRoot> netNsIntfStatusManagerRoot,
              Vela::Ptr<Vela::EntityManager> entityManager,
              Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus);

    const char* typeName() const noexcept override { return "VrfInfoSm"; }
    void formatDerivedType(std::ostream& out) const override { out << vrfInfo_->vrfName(); }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const Vela::Ptr<VrfInfo>& vrfInfo() const { return vrfInfo_; }
    const Vela::Ptr<const Ip::VrfStatusLocal>& vrfStatusLocal() const { return vrfStatusLocal_; }

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;
    Vela::WalkRet walk() override;
    void traceEvent(Vela::TraceEvent event) override;

  private:
    void handleVrfStatusLocal();
    void handleInterfaceWatch(const std::string& name);
    void handleInterfaceByDeviceName(const std::string& name);
    void handleInterfaceByDeviceName();
    void scheduleInterfaceWatchUpdate();

    void updateVrfInfo(bool deleting);
    void activate();
    void deactivate();
    void kniRootIs(Vela::Ptr<const KernelNetInfo::Root> kniRoot);
    void kniRootDel() { kniRootIs(nullptr); }
    void updateInterfaceWatch(const Vela::Ptr<VrfInterfaceWatch>& watch);
    void updateInterfaceWatches();
    uint32_t ifIndexOf(const std::string& deviceName) const;

    const Vela::Ptr<VrfInfo> vrfInfo_;
    const Vela::Ptr<const Ip::VrfStatusLocal> vrfStatusLocal_;
    const Vela::Ptr<Interface::DeviceIntfStatusDir> deviceIntfStatusDir_;
    const Vela::Ptr<Interface::NetNsIntfStatusManagerRoot> netNsIntfStatusManagerRoot_;
    const Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus_;
    Vela::Owned<Quarry::MountGroup> tables_;
    Vela::Owned<KernelNetInfo::InterfaceInfo> interfaceInfo_;
    Vela::Ptr<const KernelNetInfo::Root> kniRoot_;
    std::optional<std::string> bookmark_;
    Vela::Reaction vrfState_;
    Vela::Reaction networkNamespace_;
    Vela::Reaction vrfId_;
    Vela::Reaction interfaceWatch_;
    Vela::Reaction interfaceByDeviceName_;
};

} // namespace ArpSuppression
