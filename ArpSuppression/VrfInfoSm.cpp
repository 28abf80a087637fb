#include "ArpSuppression/VrfInfoSm.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Base/Assert.h"
#include "Platform/Packet/NetlinkSocket.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/SwiftlogType.h"

#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace ArpSuppression {

namespace {

const std::string defaultNetNs = "default";

struct ActivityRecord {
    Vela::SwiftlogText<100> vrfName;
    bool wasActive;
    bool nowActive;
};
const Vela::SwiftlogType<ActivityRecord> activityRecord{
    "ArpSuppression/VrfInfoSm",
    "updateVrfInfo",
    5,
    {{"vrfName=", &ActivityRecord::vrfName},
     {" wasActive=", &ActivityRecord::wasActive},
     {" nowActive=", &ActivityRecord::nowActive}}};

struct WatchRecord {
    const void* machine;
    Vela::SwiftlogText<200> watch; // its text form
    uint32_t ifIndex;
};
const Vela::SwiftlogType<WatchRecord> watchRecord{"ArpSuppression/VrfInfoSm",
                                                  "updateInterfaceWatch",
                                                  5,
                                                  {{"this=", &WatchRecord::machine},
                                                   {" watch=", &WatchRecord::watch},
                                                   {" ifIndex=", &WatchRecord::ifIndex}}};

} // namespace

VrfInfoSm::VrfInfoSm(Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::Ptr<VrfInfo> vrfInfo,
                     Vela::Ptr<const Ip::VrfStatusLocal> vrfStatusLocal,
                     Vela::Ptr<Interface::DeviceIntfStatusDir> deviceIntfStatusDir,
                     Vela::Ptr<Interface::NetNsIntfStatusManagerRoot> netNsIntfStatusManagerRoot,
                     Vela::Ptr<Vela::EntityManager> entityManager,
                     Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus)
    : WalkSmBase(std::move(scheduler), 3, "Vrf-" + vrfInfo->vrfName()),
      vrfInfo_(std::move(vrfInfo)), vrfStatusLocal_(std::move(vrfStatusLocal)),
      deviceIntfStatusDir_(std::move(deviceIntfStatusDir)),
      netNsIntfStatusManagerRoot_(std::move(netNsIntfStatusManagerRoot)),
      vlanL3InfoStatus_(std::move(vlanL3InfoStatus)) {
    tables_ = entityManager->tableService()->mountGroup();
    auto handle = [this] { handleVrfStatusLocal(); };
    vrfState_ = vrfStatusLocal_->stateAttribute().react(this, handle);
    networkNamespace_ = vrfStatusLocal_->networkNamespaceAttribute().react(this, handle);
    vrfId_ = vrfInfo_->vrfIdAttribute().react(this, [this] { updateVrfInfo(false); });
    interfaceWatch_ = vrfInfo_->interfaceWatchCollection().react(
        this, [this](const std::string& name) { handleInterfaceWatch(name); });
}

void VrfInfoSm::handleInitialized() {
    TRACE(trace, 8, this, "handleInitialized");
    WalkSmBase::handleInitialized();
    updateVrfInfo(false);
}

/// The walk that would tell the watches does not come any more.
void VrfInfoSm::handleDestroy() noexcept {
    TRACE(trace, 8, this, "handleDestroy");
    updateVrfInfo(true);
    updateInterfaceWatches();
    tables_.reset();
}

void VrfInfoSm::handleVrfStatusLocal() {
    updateVrfInfo(false);
}

void VrfInfoSm::updateVrfInfo(bool deleting) {
    Vela::Ptr<VrfInfoSm> keep(this); // a reaction may let go of this machine
    bool wasActive = !vrfInfo_->netNs().empty();
    // One whose namespace is not known would not be usable, and becomes active when it is known.
    bool nowActive = !deleting && vrfStatusLocal_->state() == Ip::VrfState::active &&
                     vrfInfo_->vrfId().isValid() &&
                     (wasActive || !vrfStatusLocal_->networkNamespace().empty());
    if (wasActive == nowActive) {
        Vela::assertThat(!wasActive || vrfInfo_->netNs() == vrfStatusLocal_->networkNamespace(),
                         "!wasActive || vrfInfo()->netNs() == "
                         "vrfStatusLocal()->networkNamespace()");
        return;
    }
    if (nowActive) {
        // Who looked at a VLAN since the last time has seen that it is not usable, and would not be
        // told of an index that is the same as before: those the walk has not taken back yet go
        // now.
        updateInterfaceWatches();
        if (destroyed() || !vrfInfo_->netNs().empty()) {
            return;
        }
    }
    TRACE(trace, 8, this, "wasActive=" << wasActive << " nowActive=" << nowActive);
    activityRecord.write({vrfInfo_->vrfName(), wasActive, nowActive});
    if (nowActive) {
        activate();
    } else {
        deactivate();
    }
    scheduleInterfaceWatchUpdate();
}

void VrfInfoSm::activate() {
    const std::string netNs = vrfStatusLocal_->networkNamespace();
    vrfInfo_->netNsIs(netNs);
    uint32_t netlinkSocket = Vela::netlinkSocket(0, netNs, SOCK_DGRAM, true, 0);
    if (netlinkSocket == 0) {
        TRACE(trace, 0, this, "no netlink socket in " << netNs << ": " << errnoText());
    }
    vrfInfo_->netlinkSocketIs(netlinkSocket);
    const std::string path = KernelNetInfo::statusPath(netNs);
    tables_->mount<KernelNetInfo::Status>(path, Quarry::MountType::reader);
    auto kernelStatus = tables_->entity<const KernelNetInfo::Status>(path);
    interfaceInfo_ = Vela::make<KernelNetInfo::InterfaceInfo>(kernelStatus);
    kniRootIs(interfaceInfo_->root());
    if (netNsIntfStatusManagerRoot_) {
        netNsIntfStatusManagerRoot_
            ->intfStatusManagerIs(deviceIntfStatusDir_, kernelStatus, defaultNetNs)
            ->kernelOnlyInterfaceIs("cpu", "Cpu");
    }
}

void VrfInfoSm::deactivate() {
    if (netNsIntfStatusManagerRoot_) {
        netNsIntfStatusManagerRoot_->intfStatusManagerDel(defaultNetNs);
    }
    if (vrfInfo_->netlinkSocket() != 0) {
        close(static_cast<int>(vrfInfo_->netlinkSocket()));
        vrfInfo_->netlinkSocketIs(0);
    }
    kniRootDel();
    interfaceInfo_.reset();
    tables_->unmount(KernelNetInfo::statusPath(vrfInfo_->netNs()));
    vrfInfo_->netNsIs("");
}

void VrfInfoSm::kniRootIs(Vela::Ptr<const KernelNetInfo::Root> kniRoot) {
    kniRoot_ = std::move(kniRoot);
    if (!kniRoot_) {
        interfaceByDeviceName_.clear();
        return;
    }
    interfaceByDeviceName_ = kniRoot_->interfaceByDeviceNameCollection().react(
        this, [this](const std::string& name) { handleInterfaceByDeviceName(name); });
    handleInterfaceByDeviceName();
}

void VrfInfoSm::handleInterfaceByDeviceName() {
    TRACE(trace, 8, this, "handleInterfaceByDeviceName");
    scheduleInterfaceWatchUpdate();
}

void VrfInfoSm::handleInterfaceByDeviceName(const std::string& name) {
    if (auto watch = vrfInfo_->interfaceWatchCollection().value(name)) {
        TRACE(trace, 8, this, "watch=" << watch);
        updateInterfaceWatch(watch);
    }
}

void VrfInfoSm::handleInterfaceWatch(const std::string& name) {
    if (auto watch = vrfInfo_->interfaceWatchCollection().value(name)) {
        TRACE(trace, 8, this, "watch=" << watch);
        updateInterfaceWatch(watch);
    }
}

void VrfInfoSm::scheduleInterfaceWatchUpdate() {
    TRACE(trace, 8, this, "scheduleInterfaceWatchUpdate");
    scheduleWalk();
}

uint32_t VrfInfoSm::ifIndexOf(const std::string& deviceName) const {
    auto kernelInterface =
        kniRoot_ ? kniRoot_->interfaceByDeviceName(deviceName) : KernelNetInfo::InterfaceStatus();
    return kernelInterface.running() ? kernelInterface.key.value : 0;
}

void VrfInfoSm::updateInterfaceWatch(const Vela::Ptr<VrfInterfaceWatch>& watch) {
    Vela::Ptr<VrfInfoSm> keep(this);
    const Vela::Ptr<VrfInterfaceWatch> updated = watch; // also of the watch
    bool vrfUsable = updated->vrfInfo() && updated->vrfInfo()->usable();
    uint32_t ifIndex = vrfUsable ? ifIndexOf(updated->kniIntfName()) : 0;
    if (ifIndex == updated->kniIntfIfIndex()) {
        return;
    }
    TRACE(trace, 8, this, "watch=" << updated << " ifIndex=" << ifIndex);
    watchRecord.write({this, updated->toStrep(), ifIndex});
    updated->kniIntfIfIndexIs(ifIndex);
    if (auto vlanL3Info = boost::dynamic_pointer_cast<VlanL3Info>(updated)) {
        vlanL3InfoStatus_->vlanUpdated(vlanL3Info);
    }
}

void VrfInfoSm::updateInterfaceWatches() {
    for (auto watch = vrfInfo_->interfaceWatchCollection().first(); watch; ++watch) {
        updateInterfaceWatch(watch.value());
    }
}

Vela::WalkRet VrfInfoSm::walk() {
    uint32_t count =
        walkCollection(vrfInfo_->interfaceWatchCollection(), bookmark_,
                       [this](const std::string&, const Vela::Ptr<VrfInterfaceWatch>& watch) {
                           updateInterfaceWatch(watch);
                       });
    return {bookmark_.has_value(), count};
}

void VrfInfoSm::traceEvent(Vela::TraceEvent event) {
    TRACE(trace, 8, this, "traceEvent=" << toString(event));
}

void VrfInfoSm::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "VrfInfoSm\n");
    context.print(indent + 2, "vrfName=%s\n", vrfInfo_->vrfName().c_str());
    context.print(indent + 2, "bookmark=%s\n", bookmark_.value_or("").c_str());
    context.child(indent + 2, "vrfStatusLocal", vrfStatusLocal_.get());
    context.child(indent + 2, "interfaceInfo", interfaceInfo_.ptr().get());
}

} // namespace ArpSuppression
