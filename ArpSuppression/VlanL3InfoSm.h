#pragma once

#include "ArpSuppression/ArpSuppression.h"
#include "ArpSuppression/VrfInfoSm.h"
#include "Platform/Model/ArpSuppression/ArpSuppressionStatus.h"
#include "Platform/Model/Interface/NetNsIntfStatusManager.h"
#include "Platform/Model/Ip/Status.h"
#include "Platform/Model/Ip/VrfStatus.h"
#include "Platform/Model/Ip6/Status.h"
#include "Platform/Model/Vrf/NameToIdMap.h"
#include "Platform/Scheduler/WalkSmBase.h"
#include "Platform/StateDb/EntityManager.h"

#include <map>
#include <utility>

namespace ArpSuppression {

/// Keeps VlanL3InfoStatus true to the switch's routing: each VLAN on which suppression is active or
/// enabled has a record in the VRF of its routed interface, with that interface's addresses. Each
/// VRF with an id and a local status has a VrfInfoSm.
///
/// A VLAN that moves to another VRF gets a new record; while its IPv4 and its IPv6 status name
/// different VRFs it has none. Whoever has to replace the local status of a VRF removes the VRF and
/// makes it anew.
class VlanL3InfoSm final : public Vela::WalkSmBase {
  public:
    /// Keeps the addresses of one VLAN's record: all those of its routed interface, without masks.
    class VlanL3AddrSm final : public Vela::Entity {
      public:
        /// `owner` outlives it.
        VlanL3AddrSm(Vela::Ptr<VlanL3Info> vlanL3Info, const VlanL3InfoSm& owner)
            : vlanL3Info_(std::move(vlanL3Info)), owner_(owner) {}

        const char* typeName() const noexcept override { return "VlanL3AddrSm"; }
        void formatDerivedType(std::ostream& out) const override { out << vlanL3Info_->vlanId(); }
        void dumpState(Vela::DumpContext& context, int indent) const override;

        const Vela::Ptr<VlanL3Info>& vlanL3Info() const { return vlanL3Info_; }

        /// The interface's statuses, which may be empty.
        void ipIntfStatusIs(const Vela::Ptr<const Ip::IpIntfStatus>& ipIntfStatus);
        void ip6IntfStatusIs(const Vela::Ptr<const Ip6::IntfStatus>& ip6IntfStatus);

      protected:
        void handleInitialized() override;
        void handleDestroy() noexcept override;

      private:
        void handleIntfStatus(Zinc::AddressFamily af);
        void handleActiveAddr();
        void doCleanup();

        const Vela::Ptr<VlanL3Info> vlanL3Info_;
        const VlanL3InfoSm& owner_;
        Vela::Ptr<const Ip::IpIntfStatus> ipIntfStatus_;
        Vela::Ptr<const Ip6::IntfStatus> ip6IntfStatus_;
        Vela::Reaction primaryAddr_;
        Vela::Reaction secondaryAddr_;
        Vela::Reaction ip6Addr_;
    };

    /// `enabledVlans` is still empty. `allIntfStatusDir` may be missing.
    VlanL3InfoSm(Vela::Ptr<Vela::TaskScheduler> scheduler,
                 Vela::Ptr<const ArpSuppressionStatus> arpSuppressionStatus,
                 Vela::Ptr<const EnabledVlans> enabledVlans,
                 Vela::Ptr<const Ip::AllVrfStatusLocal> allVrfStatusLocal,
                 Vela::Ptr<const Ip::Status> ipStatus, Vela::Ptr<const Ip6::Status> ip6Status,
                 Vela::Ptr<const Vrf::VrfIdMap::NameToIdMap> vrfNameToIdMap,
                 Vela::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
                 Vela::Ptr<const Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir,
                 Vela::Ptr<Interface::DeviceIntfStatusDir> deviceIntfStatusDir,
                 Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus,
                 Vela::Ptr<Vela::EntityManager> entityManager);

    const char* typeName() const noexcept override { return "VlanL3InfoSm"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// Empty where there is none.
    Vela::Ptr<VrfInfoSm> vrfInfoSm(const L3::VrfName& vrfName) const;
    Vela::Ptr<VlanL3AddrSm> vlanL3AddrSm(Bridging::VlanId vlanId) const;

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;
    Vela::WalkRet walk() override;
    void traceEvent(Vela::TraceEvent event) override;

  private:
    struct RoutedInterface;

    void react();
    void handleEnabledfVlan(Bridging::VlanId vlanId);
    void handleArpSuppressionStatus(Bridging::VlanId vlanId);
    void handleIpIntfStatus(Zinc::IntfId intfId);
    void handleVrfStatusLocal(const L3::VrfName& vrfName);
    void handleVrfNameToId(const L3::VrfName& vrfName);
    void handleVrfInfo(const L3::VrfName& vrfName);
    void handleVlanL3Info(Bridging::VlanId vlanId);

    RoutedInterface routedInterface(Bridging::VlanId vlanId) const;
    void traceRoutedInterface(Bridging::VlanId vlanId, const RoutedInterface& routed) const;
    void updateVlanId(Bridging::VlanId vlanId);
    bool recordStands(Bridging::VlanId vlanId) const;
    void removeRecord(const Vela::Ptr<VlanL3Info>& vlanL3Info);
    void addRecord(Bridging::VlanId vlanId, const L3::VrfName& vrfName);
    void updateVrfId(const Vela::Ptr<VrfInfo>& vrfInfo);
    void updateVrfInfoSm(const L3::VrfName& vrfName);
    Vela::Ptr<const Ip::VrfStatusLocal> vrfStatusLocal(const VrfInfo& vrfInfo);

    void vrfInfoSmIs(const Vela::Ptr<VrfInfo>& vrfInfo,
                     const Vela::Ptr<const Ip::VrfStatusLocal>& vrfStatusLocal);
    void vrfInfoSmDel(const L3::VrfName& vrfName);
    void vrfInfoSmDelAll();
    void vlanL3InfoIs(const Vela::Ptr<VlanL3Info>& vlanL3Info);
    void vlanL3InfoDel(Bridging::VlanId vlanId) { vlanL3AddrSm_.erase(vlanId); }
    void vlanL3InfoDelAll() { vlanL3AddrSm_.clear(); }

    const Vela::Ptr<const ArpSuppressionStatus> arpSuppressionStatus_;
    const Vela::Ptr<const EnabledVlans> enabledVlans_;
    const Vela::Ptr<const Ip::AllVrfStatusLocal> allVrfStatusLocal_;
    const Vela::Ptr<const Ip::Status> ipStatus_;
    const Vela::Ptr<const Ip6::Status> ip6Status_;
    const Vela::Ptr<const Vrf::VrfIdMap::NameToIdMap> vrfNameToIdMap_;
    const Vela::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir_;
    const Vela::Ptr<const Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir_;
    const Vela::Ptr<Interface::DeviceIntfStatusDir> deviceIntfStatusDir_;
    const Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus_;
    const Vela::Ptr<Vela::EntityManager> entityManager_;
    Bridging::VlanIdOrNone bookmark_;
    Vela::Owned<Ip::VrfStatusLocal> defaultVrfStatusLocal_; // made up: the switch has none
    Vela::Owned<Interface::NetNsIntfStatusManagerRoot> netNsIntfStatusManagerRoot_;
    std::map<L3::VrfName, Vela::Owned<VrfInfoSm>> vrfInfoSm_;
    std::map<Bridging::VlanId, Vela::Owned<VlanL3AddrSm>> vlanL3AddrSm_;
    Vela::Reaction enabledVlan_;
    Vela::Reaction suppressionStatus_;
    Vela::Reaction ipIntfStatus_;
    Vela::Reaction ip6IntfStatus_;
    Vela::Reaction localVrf_;
    Vela::Reaction vrfNameToId_;
    Vela::Reaction vrfInfo_;
    Vela::Reaction vlanL3Info_;
};

/// Takes what the constructor takes.
template <class... References>
Vela::Ptr<VlanL3InfoSm> vlanL3InfoSmFactory(References&&... references) {
    return Vela::make<VlanL3InfoSm>(std::forward<References>(references)...);
}

} // namespace ArpSuppression
