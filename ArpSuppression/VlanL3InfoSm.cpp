#include "ArpSuppression/VlanL3InfoSm.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Base/Assert.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/SwiftlogType.h"

namespace ArpSuppression {

namespace {

using Bridging::VlanId;

const L3::VrfName defaultVrf = "default";
const char* const defaultNetNs = "default";

/// VRFs and records are kept as their text forms.
struct VlanRecord {
    Vela::SwiftlogText<128> oldVlanL3Info;
    Vela::SwiftlogText<100> vrfName;
    Vela::SwiftlogText<63> vlanIntfId;
};
const Vela::SwiftlogType<VlanRecord> vlanRecord{"ArpSuppression/VlanL3InfoSm",
                                                "updateVlanId",
                                                5,
                                                {{"oldVlanL3Info=", &VlanRecord::oldVlanL3Info},
                                                 {" vrfName=", &VlanRecord::vrfName},
                                                 {" vlanIntfId=", &VlanRecord::vlanIntfId}}};

struct VrfIdRecord {
    Vela::SwiftlogText<128> vrfInfo;
    uint32_t vrfId;
};
const Vela::SwiftlogType<VrfIdRecord> vrfIdRecord{
    "ArpSuppression/VlanL3InfoSm",
    "updateVrfId",
    5,
    {{"vrfInfo=", &VrfIdRecord::vrfInfo}, {" vrfId=", &VrfIdRecord::vrfId}}};

struct VrfInfoSmRecord {
    Vela::SwiftlogText<100> vrfName;
    Vela::SwiftlogText<128> vrfInfo;
    bool needVrfInfoSm;
};
const Vela::SwiftlogType<VrfInfoSmRecord> vrfInfoSmRecord{
    "ArpSuppression/VlanL3InfoSm",
    "updateVrfInfoSm",
    5,
    {{"vrfName=", &VrfInfoSmRecord::vrfName},
     {" vrfInfo=", &VrfInfoSmRecord::vrfInfo},
     {" needVrfInfoSm=", &VrfInfoSmRecord::needVrfInfoSm}}};

std::string vrfNameOf(const Vela::Ptr<VlanL3Info>& vlanL3Info) {
    return vlanL3Info && vlanL3Info->vrfInfo() ? vlanL3Info->vrfInfo()->vrfName() : std::string();
}

} // namespace

/// What stands of a VLAN's routed interface; nothing if the VLAN is of no interest.
struct VlanL3InfoSm::RoutedInterface {
    Zinc::IntfId intfId; // empty: of no interest
    Vela::Ptr<const Ip::IpIntfStatus> ipIntfStatus;
    Vela::Ptr<const Ip6::IntfStatus> ip6IntfStatus;

    bool transient() const {
        return ipIntfStatus && ip6IntfStatus && ipIntfStatus->vrfName() != ip6IntfStatus->vrfName();
    }
    /// Where the VLAN's record belongs; empty: it should have none.
    L3::VrfName vrfName() const {
        if (!ipIntfStatus) {
            return ip6IntfStatus ? ip6IntfStatus->vrfName() : L3::VrfName();
        }
        return transient() ? L3::VrfName() : ipIntfStatus->vrfName();
    }
};

VlanL3InfoSm::VlanL3InfoSm(Vela::Ptr<Vela::TaskScheduler> scheduler,
                           Vela::Ptr<const ArpSuppressionStatus> arpSuppressionStatus,
                           Vela::Ptr<const EnabledVlans> enabledVlans,
                           Vela::Ptr<const Ip::AllVrfStatusLocal> allVrfStatusLocal,
                           Vela::Ptr<const Ip::Status> ipStatus,
                           Vela::Ptr<const Ip6::Status> ip6Status,
                           Vela::Ptr<const Vrf::VrfIdMap::NameToIdMap> vrfNameToIdMap,
                           Vela::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
                           Vela::Ptr<const Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir,
                           Vela::Ptr<Interface::DeviceIntfStatusDir> deviceIntfStatusDir,
                           Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus,
                           Vela::Ptr<Vela::EntityManager> entityManager)
    : WalkSmBase(std::move(scheduler), 3, "VlanL3InfoSm"),
      arpSuppressionStatus_(std::move(arpSuppressionStatus)),
      enabledVlans_(std::move(enabledVlans)), allVrfStatusLocal_(std::move(allVrfStatusLocal)),
      ipStatus_(std::move(ipStatus)), ip6Status_(std::move(ip6Status)),
      vrfNameToIdMap_(std::move(vrfNameToIdMap)), allIntfStatusDir_(std::move(allIntfStatusDir)),
      allIntfStatusLocalDir_(std::move(allIntfStatusLocalDir)),
      deviceIntfStatusDir_(std::move(deviceIntfStatusDir)),
      vlanL3InfoStatus_(std::move(vlanL3InfoStatus)), entityManager_(std::move(entityManager)) {}

void VlanL3InfoSm::handleInitialized() {
    TRACE(trace, 8, this, "handleInitialized");
    // Then every enabled VLAN comes as a change.
    Vela::assertThat(0 == enabledVlans_->vlanIds(), "0 == enabledVlans()->vlanIds()");
    if (allIntfStatusDir_) {
        netNsIntfStatusManagerRoot_ = Vela::make<Interface::NetNsIntfStatusManagerRoot>(
            allIntfStatusDir_, allIntfStatusLocalDir_, false);
    }
    react();
    WalkSmBase::handleInitialized();
}

void VlanL3InfoSm::react() {
    enabledVlan_ = enabledVlans_->vlanIdCollection().react(
        this, [this](VlanId vlanId) { handleEnabledfVlan(vlanId); });
    suppressionStatus_ = arpSuppressionStatus_->vlanIdCollection().react(
        this, [this](VlanId vlanId) { handleArpSuppressionStatus(vlanId); });
    auto handleIntf = [this](Zinc::IntfId intfId) { handleIpIntfStatus(intfId); };
    ipIntfStatus_ = ipStatus_->ipIntfStatusCollection().react(this, handleIntf);
    ip6IntfStatus_ = ip6Status_->intfCollection().react(this, handleIntf);
    localVrf_ = allVrfStatusLocal_->vrfCollection().react(
        this, [this](const L3::VrfName& vrfName) { handleVrfStatusLocal(vrfName); });
    vrfNameToId_ = vrfNameToIdMap_->vrfIdCollection().react(
        this, [this](const L3::VrfName& vrfName) { handleVrfNameToId(vrfName); });
    vrfInfo_ = vlanL3InfoStatus_->vrfInfoCollection().react(
        this, [this](const L3::VrfName& vrfName) { handleVrfInfo(vrfName); });
    vlanL3Info_ = vlanL3InfoStatus_->vlanL3InfoCollection().react(
        this, [this](VlanId vlanId) { handleVlanL3Info(vlanId); });
    // What others have put there before.
    for (auto vrf = vlanL3InfoStatus_->vrfInfoCollection().first(); vrf; ++vrf) {
        handleVrfInfo(vrf.key());
    }
    for (auto vlan = vlanL3InfoStatus_->vlanL3InfoCollection().first(); vlan; ++vlan) {
        handleVlanL3Info(vlan.key());
    }
}

void VlanL3InfoSm::handleDestroy() noexcept {
    TRACE(trace, 8, this, "handleDestroy");
    vlanL3InfoDelAll();
    vrfInfoSmDelAll();
    netNsIntfStatusManagerRoot_.reset();
    defaultVrfStatusLocal_.reset();
}

// What changes

void VlanL3InfoSm::handleEnabledfVlan(VlanId vlanId) {
    TRACE(trace, 8, this, "vlanId=" << vlanId);
    updateVlanId(vlanId);
}

void VlanL3InfoSm::handleArpSuppressionStatus(VlanId vlanId) {
    TRACE(trace, 8, this, "vlanId=" << vlanId);
    updateVlanId(vlanId);
}

void VlanL3InfoSm::handleIpIntfStatus(Zinc::IntfId intfId) {
    if (!intfId.isVlanIntf()) {
        return;
    }
    TRACE(trace, 8, this, "intfId=" << intfId);
    Vela::Ptr<VlanL3InfoSm> keep(this); // a reaction may let go of this machine
    VlanId vlanId(intfId.vlanNumber());
    updateVlanId(vlanId);
    if (auto addrSm = vlanL3AddrSm(vlanId)) {
        auto ipIntfStatus = ipStatus_->ipIntfStatus(intfId);
        auto ip6IntfStatus = ip6Status_->intf(intfId);
        TRACE(trace, 8, this,
              "updating vlanL3AddrSm ipIntfStatus=" << ipIntfStatus
                                                    << " ip6IntfStatus=" << ip6IntfStatus);
        addrSm->ipIntfStatusIs(ipIntfStatus);
        addrSm->ip6IntfStatusIs(ip6IntfStatus);
    }
}

void VlanL3InfoSm::handleVrfStatusLocal(const L3::VrfName& vrfName) {
    TRACE(trace, 8, this, "vrfName=" << vrfName);
    updateVrfInfoSm(vrfName);
}

void VlanL3InfoSm::handleVrfNameToId(const L3::VrfName& vrfName) {
    if (auto vrfInfo = vlanL3InfoStatus_->vrfInfo(vrfName)) {
        TRACE(trace, 8, this, "vrfInfo=" << vrfInfo);
        updateVrfId(vrfInfo);
    }
}

void VlanL3InfoSm::handleVrfInfo(const L3::VrfName& vrfName) {
    if (auto vrfInfo = vlanL3InfoStatus_->vrfInfo(vrfName)) {
        TRACE(trace, 8, this, "vrfInfo=" << vrfInfo);
        updateVrfId(vrfInfo);
    } else {
        updateVrfInfoSm(vrfName);
    }
}

void VlanL3InfoSm::handleVlanL3Info(VlanId vlanId) {
    if (auto vlanL3Info = vlanL3InfoStatus_->vlanL3Info(vlanId)) {
        vlanL3InfoIs(vlanL3Info);
    } else {
        vlanL3InfoDel(vlanId);
    }
}

// VLANs

VlanL3InfoSm::RoutedInterface VlanL3InfoSm::routedInterface(VlanId vlanId) const {
    if (!arpSuppressionStatus_->vlanIdCollection().value(vlanId) &&
        !enabledVlans_->vlanIdHas(vlanId)) {
        return {};
    }
    Zinc::IntfId intfId(VlanL3Info::constructIntfNameFromVlanId(vlanId));
    return {intfId, ipStatus_->ipIntfStatus(intfId), ip6Status_->intf(intfId)};
}

void VlanL3InfoSm::traceRoutedInterface(VlanId vlanId, const RoutedInterface& routed) const {
    if (!routed.intfId) {
        TRACE(trace, 8, this, "No arpSuppressionStatus vlanId=" << vlanId);
        return;
    }
    if (routed.transient()) {
        TRACE(trace, 8, this,
              "Transient state: ipIntfStatus and ip6IntfStatus not under the same vrf. "
              "ipIntfStatus vrf="
                  << routed.ipIntfStatus->vrfName()
                  << " ip6IntfStatus vrf=" << routed.ip6IntfStatus->vrfName());
    }
    if (!routed.ipIntfStatus) {
        TRACE(trace, 8, this, "No ipIntfStatus vlanId=" << vlanId);
        if (!routed.ip6IntfStatus) {
            TRACE(trace, 8, this, "No ip6IntfStatus vlanId=" << vlanId);
        }
    }
}

/// Both the removal of the old record and the making of the new one are announced, and whoever is
/// told may bring this machine here again for the same VLAN. Such a call leaves alone a record of
/// which one half is there, and may do first what was to be done here: so each step looks at what
/// stands now.
void VlanL3InfoSm::updateVlanId(VlanId vlanId) {
    TRACE(trace, 8, this, "vlanId=" << vlanId);
    Vela::Ptr<VlanL3InfoSm> keep(this);
    const RoutedInterface routed = routedInterface(vlanId);
    traceRoutedInterface(vlanId, routed);
    const L3::VrfName vrfName = routed.vrfName();
    const auto oldVlanL3Info = vlanL3InfoStatus_->vlanL3Info(vlanId);
    const auto oldIntfId = oldVlanL3Info ? oldVlanL3Info->vlanIntfId() : Zinc::IntfId();
    if (vrfName.bytes() == vrfNameOf(oldVlanL3Info) && routed.intfId == oldIntfId) {
        TRACE(trace, 8, this, "No change oldVlanL3Info=" << oldVlanL3Info);
        return;
    }
    if (oldVlanL3Info &&
        vlanL3InfoStatus_->vrfInterfaceWatch(oldVlanL3Info->intfName()) != oldVlanL3Info) {
        return;
    }
    TRACE(trace, 8, this,
          "oldVlanL3Info=" << oldVlanL3Info << " vrfName=" << vrfName
                           << " vlanIntfId=" << routed.intfId);
    vlanRecord.write({Vela::toStrep(oldVlanL3Info), vrfName.bytes(), routed.intfId.name()});
    if (oldVlanL3Info) {
        removeRecord(oldVlanL3Info);
    }
    if (!destroyed() && !vrfName.empty() && routedInterface(vlanId).vrfName() == vrfName) {
        addRecord(vlanId, vrfName);
    }
    if (!destroyed() && !recordStands(vlanId)) {
        updateVlanId(vlanId);
    }
}

bool VlanL3InfoSm::recordStands(VlanId vlanId) const {
    return vrfNameOf(vlanL3InfoStatus_->vlanL3Info(vlanId)) ==
           routedInterface(vlanId).vrfName().bytes();
}

void VlanL3InfoSm::removeRecord(const Vela::Ptr<VlanL3Info>& vlanL3Info) {
    vlanL3InfoStatus_->delVrfInterfaceWatch(vlanL3Info);
    if (vlanL3InfoStatus_->vlanL3Info(vlanL3Info->vlanId()) == vlanL3Info) {
        vlanL3InfoStatus_->vlanL3InfoDel(vlanL3Info->vlanId());
    }
}

void VlanL3InfoSm::addRecord(VlanId vlanId, const L3::VrfName& vrfName) {
    if (vlanL3InfoStatus_->vlanL3Info(vlanId)) {
        return; // by who was told of the removal
    }
    auto vrfInfo = vlanL3InfoStatus_->vrfInfoIs(vrfName);
    if (vlanL3InfoStatus_->vlanL3Info(vlanId)) {
        return; // by who was told of the VRF
    }
    auto vlanL3Info = vlanL3InfoStatus_->vlanL3InfoIs(vrfInfo, vlanId);
    vlanL3InfoStatus_->addVrfInterfaceWatch(vlanL3Info);
    if (!destroyed()) {
        handleVrfNameToId(vrfName);
    }
}

// VRFs

void VlanL3InfoSm::updateVrfId(const Vela::Ptr<VrfInfo>& vrfInfo) {
    Vela::Ptr<VlanL3InfoSm> keep(this);
    Vrf::VrfId vrfId = vrfNameToIdMap_->vrfId(vrfInfo->vrfName());
    if (vrfId == vrfInfo->vrfId()) {
        TRACE(trace, 8, this, "no change vrfInfo=" << vrfInfo);
        return;
    }
    TRACE(trace, 8, this, "update vrfId vrfInfo=" << vrfInfo << " vrfId=" << vrfId);
    vrfIdRecord.write({vrfInfo->toStrep(), vrfId.value()});
    vrfInfo->vrfIdIs(vrfId);
    if (!destroyed()) {
        updateVrfInfoSm(vrfInfo->vrfName());
    }
}

/// The default VRF needs none: one is made up, and kept so that it is always the same.
Vela::Ptr<const Ip::VrfStatusLocal> VlanL3InfoSm::vrfStatusLocal(const VrfInfo& vrfInfo) {
    if (vrfInfo.vrfName() != defaultVrf.bytes()) {
        return allVrfStatusLocal_->vrf(vrfInfo.vrfName());
    }
    TRACE(trace, 8, this, "using made up vrfStatusLocal for default VRF");
    if (!defaultVrfStatusLocal_) {
        defaultVrfStatusLocal_ = Vela::make<Ip::VrfStatusLocal>(defaultVrf);
        defaultVrfStatusLocal_->networkNamespaceIs(defaultNetNs);
        defaultVrfStatusLocal_->stateIs(Ip::VrfState::active);
    }
    return defaultVrfStatusLocal_.ptr();
}

void VlanL3InfoSm::updateVrfInfoSm(const L3::VrfName& vrfName) {
    Vela::Ptr<VlanL3InfoSm> keep(this);
    auto vrfInfo = vlanL3InfoStatus_->vrfInfo(vrfName);
    Vela::Ptr<const Ip::VrfStatusLocal> vrfStatusLocal =
        vrfInfo && vrfInfo->vrfId().isValid() ? this->vrfStatusLocal(*vrfInfo) : nullptr;
    auto sm = vrfInfoSm(vrfName);
    if (sm && vrfInfo && sm->vrfInfo() != vrfInfo) {
        vrfInfoSmDel(vrfName); // a VRF that comes back is another one
        sm.reset();
    }
    bool needVrfInfoSm = vrfStatusLocal != nullptr;
    bool haveVrfInfoSm = sm != nullptr;
    if (needVrfInfoSm == haveVrfInfoSm) {
        TRACE(trace, 8, this,
              "no change vrfName=" << vrfName << " vrfInfo=" << vrfInfo
                                   << " haveVrfInfoSm=" << haveVrfInfoSm);
        Vela::assertThat(!haveVrfInfoSm || sm->vrfStatusLocal() == vrfStatusLocal,
                         "!haveVrfInfoSm || sm->vrfStatusLocal() == vrfStatusLocal");
        return;
    }
    TRACE(trace, 8, this,
          "vrfName=" << vrfName << " vrfInfo=" << vrfInfo << " needVrfInfoSm=" << needVrfInfoSm);
    vrfInfoSmRecord.write({vrfName.bytes(), Vela::toStrep(vrfInfo), needVrfInfoSm});
    if (needVrfInfoSm) {
        vrfInfoSmIs(vrfInfo, vrfStatusLocal);
    } else {
        vrfInfoSmDel(vrfName);
    }
}

void VlanL3InfoSm::vrfInfoSmIs(const Vela::Ptr<VrfInfo>& vrfInfo,
                               const Vela::Ptr<const Ip::VrfStatusLocal>& vrfStatusLocal) {
    Vela::assertThat(nullptr != vrfStatusLocal, "__null != vrfStatusLocal");
    bool isDefault = vrfInfo->vrfName() == defaultVrf.bytes();
    vrfInfoSm_[vrfInfo->vrfName()] = Vela::make<VrfInfoSm>(
        scheduler(), vrfInfo, vrfStatusLocal, isDefault ? deviceIntfStatusDir_ : nullptr,
        isDefault ? netNsIntfStatusManagerRoot_.ptr() : nullptr, entityManager_, vlanL3InfoStatus_);
}

Vela::Ptr<VrfInfoSm> VlanL3InfoSm::vrfInfoSm(const L3::VrfName& vrfName) const {
    auto found = vrfInfoSm_.find(vrfName);
    return found == vrfInfoSm_.end() ? nullptr : found->second.ptr();
}

void VlanL3InfoSm::vrfInfoSmDel(const L3::VrfName& vrfName) {
    vrfInfoSm_.extract(vrfName); // out of sight first: its end is announced
}

void VlanL3InfoSm::vrfInfoSmDelAll() {
    while (!vrfInfoSm_.empty()) {
        vrfInfoSm_.extract(vrfInfoSm_.begin());
    }
}

// The walk

Vela::WalkRet VlanL3InfoSm::walk() {
    TRACE(trace, 8, this, "walk");
    uint32_t count = walkCollection(arpSuppressionStatus_->vlanIdCollection(), bookmark_,
                                    [this](VlanId vlanId, bool) { updateVlanId(vlanId); });
    bool moreWork(bookmark_);
    TRACE(trace, 8, this, "finished processed=" << count << " moreWork=" << moreWork);
    if (!moreWork && !destroyed()) {
        vlanL3InfoStatus_->initialArpSuppressionStatusSyncIs(true);
    }
    return {moreWork, count};
}

void VlanL3InfoSm::traceEvent(Vela::TraceEvent event) {
    TRACE(trace, 8, this, "traceEvent=" << toString(event));
}

void VlanL3InfoSm::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "VlanL3InfoSm\n");
    int inner = indent + 2;
    context.print(inner, "bookmark=%s\n", bookmark_.toStrep().c_str());
    context.print(inner, "vrfInfoSm[] #%zu\n", vrfInfoSm_.size());
    for (const auto& [vrfName, sm] : vrfInfoSm_) {
        context.child(inner + 2, "vrfInfoSm", sm.ptr().get());
    }
    context.print(inner, "vlanL3AddrSm[] #%zu\n", vlanL3AddrSm_.size());
    for (const auto& [vlanId, sm] : vlanL3AddrSm_) {
        context.child(inner + 2, "vlanL3AddrSm", sm.ptr().get());
    }
}

// Addresses

void VlanL3InfoSm::vlanL3InfoIs(const Vela::Ptr<VlanL3Info>& vlanL3Info) {
    auto addrSm = vlanL3AddrSm(vlanL3Info->vlanId());
    if (!addrSm || addrSm->vlanL3Info() != vlanL3Info) {
        vlanL3AddrSm_[vlanL3Info->vlanId()] = Vela::make<VlanL3AddrSm>(vlanL3Info, *this);
    }
}

Vela::Ptr<VlanL3InfoSm::VlanL3AddrSm> VlanL3InfoSm::vlanL3AddrSm(VlanId vlanId) const {
    auto found = vlanL3AddrSm_.find(vlanId);
    return found == vlanL3AddrSm_.end() ? nullptr : found->second.ptr();
}

void VlanL3InfoSm::VlanL3AddrSm::handleInitialized() {
    Zinc::IntfId intfId(VlanL3Info::constructIntfNameFromVlanId(vlanL3Info_->vlanId()));
    auto ipIntfStatus = owner_.ipStatus_->ipIntfStatus(intfId);
    auto ip6IntfStatus = owner_.ip6Status_->intf(intfId);
    TRACE(trace, 8, this,
          "initializing vlanL3AddrSm ipIntfStatus=" << ipIntfStatus
                                                    << " ip6IntfStatus=" << ip6IntfStatus);
    ipIntfStatusIs(ipIntfStatus);
    ip6IntfStatusIs(ip6IntfStatus);
}

void VlanL3InfoSm::VlanL3AddrSm::handleDestroy() noexcept {
    primaryAddr_.clear();
    secondaryAddr_.clear();
    ip6Addr_.clear();
}

void VlanL3InfoSm::VlanL3AddrSm::ipIntfStatusIs(
    const Vela::Ptr<const Ip::IpIntfStatus>& ipIntfStatus) {
    if (ipIntfStatus_ == ipIntfStatus) {
        return;
    }
    ipIntfStatus_ = ipIntfStatus;
    primaryAddr_.clear();
    secondaryAddr_.clear();
    if (ipIntfStatus) {
        primaryAddr_ =
            ipIntfStatus->activeAddrWithMaskAttribute().react(this, [this] { handleActiveAddr(); });
        secondaryAddr_ = ipIntfStatus->activeSecondaryWithMaskCollection().react(
            this, [this](const Ip::AddrWithMask&) { handleActiveAddr(); });
        handleActiveAddr(); // what it has already
    }
    handleIntfStatus(Zinc::ipv4());
}

void VlanL3InfoSm::VlanL3AddrSm::ip6IntfStatusIs(
    const Vela::Ptr<const Ip6::IntfStatus>& ip6IntfStatus) {
    if (ip6IntfStatus_ == ip6IntfStatus) {
        return;
    }
    ip6IntfStatus_ = ip6IntfStatus;
    ip6Addr_.clear();
    if (ip6IntfStatus) {
        ip6Addr_ = ip6IntfStatus->addrCollection().react(
            this, [this](const Ip::AddrWithMask&) { handleActiveAddr(); });
    }
    handleIntfStatus(Zinc::ipv6());
}

void VlanL3InfoSm::VlanL3AddrSm::handleIntfStatus(Zinc::AddressFamily af) {
    TRACE(trace, 8, this, " af=" << af);
    if (af == Zinc::ipv4() && ipIntfStatus_) {
        return; // its addresses came with it
    }
    handleActiveAddr();
}

void VlanL3InfoSm::VlanL3AddrSm::handleActiveAddr() {
    doCleanup();
    auto ipIntfStatus = ipIntfStatus_; // a reaction may replace them
    auto ip6IntfStatus = ip6IntfStatus_;
    auto add = [this](const Ip::AddrWithMask& addr) {
        vlanL3Info_->ipAddressIs(addr.address(), true);
    };
    if (ipIntfStatus) {
        if (!ipIntfStatus->activeAddrWithMask().isZero()) {
            add(ipIntfStatus->activeAddrWithMask());
        }
        const auto& secondary = ipIntfStatus->activeSecondaryWithMaskCollection();
        for (auto addr = secondary.first(); addr; ++addr) {
            add(addr.key());
        }
    }
    if (ip6IntfStatus) {
        for (auto addr = ip6IntfStatus->addrCollection().first(); addr; ++addr) {
            add(addr.key());
        }
    }
}

void VlanL3InfoSm::VlanL3AddrSm::doCleanup() {
    TRACE(trace, 8, this, "doCleanup");
    vlanL3Info_->ipAddressDelAll();
}

void VlanL3InfoSm::VlanL3AddrSm::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "VlanL3AddrSm\n");
    context.print(indent + 2, "vlanL3Info=%s\n", vlanL3Info_->toStrep().c_str());
}

} // namespace ArpSuppression
