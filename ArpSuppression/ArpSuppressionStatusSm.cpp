#include "ArpSuppression/ArpSuppressionStatusSm.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Base/Assert.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/SwiftlogType.h"

#include <array>
#include <cstddef>
#include <utility>

namespace ArpSuppression {

namespace {

/// What a VLAN's state follows from, as the ring-buffer file keeps it.
struct VlanRecord {
    uint16_t vlanId;
    uint8_t inEvpnStatus;
    uint8_t inRemoteBindingStatus;
    uint8_t vlanUsable;
    uint8_t inArpSuppressionStatus;
};
const Vela::SwiftlogType<VlanRecord> vlanRecord{
    "ArpSuppression/ArpSuppressionStatusSm",
    "handleVlan",
    5,
    {{"vlanId=", &VlanRecord::vlanId},
     {" inEvpnStatus=", &VlanRecord::inEvpnStatus},
     {" inRemoteBindingStatus=", &VlanRecord::inRemoteBindingStatus},
     {" vlanUsable=", &VlanRecord::vlanUsable},
     {" inArpSuppressionStatus=", &VlanRecord::inArpSuppressionStatus}}};

} // namespace

const char* stringValue(ArpSuppressionStatusSm::InitializationStage stage) {
    constexpr std::array<const char*, 4> names = {"evpnStatusWalk", "remoteBindingStatusWait",
                                                  "arpSuppressionStatusWalk", "complete"};
    auto value = static_cast<size_t>(stage);
    return value < names.size() ? names[value] : "?";
}

ArpSuppressionStatusSm::ArpSuppressionStatusSm(
    Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::Ptr<const Evpn::EvpnStatus> evpnStatus,
    Vela::Ptr<const RemoteBindingStatus> remoteBindingStatus,
    Vela::Ptr<const VlanL3InfoStatus> vlanL3InfoStatus,
    Vela::Ptr<ArpSuppressionStatus> arpSuppressionStatus, Vela::Ptr<EnabledVlans> enabledVlans)
    : WalkSmBase(std::move(scheduler), 3, "ArpSuppressionStatusSm"),
      evpnStatus_(std::move(evpnStatus)), remoteBindingStatus_(std::move(remoteBindingStatus)),
      vlanL3InfoStatus_(std::move(vlanL3InfoStatus)),
      arpSuppressionStatus_(std::move(arpSuppressionStatus)),
      enabledVlans_(std::move(enabledVlans)) {
    auto handle = [this](Bridging::VlanId vlanId) { handleVlan(vlanId); };
    evpnStatusReaction_ = evpnStatus_->vlanToDot1qCollection().react(this, handle);
    remoteBindingVlanReaction_ = remoteBindingStatus_->vlanIdCollection().react(this, handle);
    initialPopulationReaction_ = remoteBindingStatus_->initialPopulationCompleteAttribute().react(
        this, [this] { scheduleWalk(); });
    vlanL3InfoReaction_ = vlanL3InfoStatus_->vlanL3InfoCollection().react(this, handle);
    vlanUpdatedReaction_ = vlanL3InfoStatus_->updatedVlanIdAttribute().react(
        this, [this] { handleVlanL3InfoUpdated(); });
}

void ArpSuppressionStatusSm::handleInitialized() {
    TRACE(trace, 8, this, "handleInitialized");
    Vela::assertThat(0 == remoteBindingStatus_->vlanIds(), "0 == remoteBindingStatus()->vlanIds()");
    WalkSmBase::handleInitialized();
}

void ArpSuppressionStatusSm::handleDestroy() noexcept {
    TRACE(trace, 8, this, "handleDestroy");
    if (!skipVlanIdCleanupForTest_) {
        arpSuppressionStatus_->vlanIdDelAll();
    }
}

void ArpSuppressionStatusSm::handleVlanL3InfoUpdated() {
    if (auto vlanId = vlanL3InfoStatus_->updatedVlanId()) {
        handleVlan(vlanId.vlanId());
    }
}

/// Reactions to EnabledVlans change VLAN L3 information and come back here: what such a call finds
/// this one finds, too, because it looks after it.
void ArpSuppressionStatusSm::handleVlan(Bridging::VlanId vlanId) {
    const bool inEvpnStatus = evpnStatus_->vlanToDot1qCollection().has(vlanId);
    const bool inRemoteBindingStatus = remoteBindingStatus_->vlanIdHas(vlanId);
    if (inEvpnStatus || inRemoteBindingStatus) {
        enabledVlans_->vlanIdIs(vlanId);
    } else {
        enabledVlans_->vlanIdDel(vlanId);
    }
    if (destroyed()) {
        return; // and everything has been withdrawn
    }
    const bool vlanUsable = vlanL3InfoStatus_->usableVlanL3Info(vlanId) != nullptr;
    const bool inArpSuppressionStatus = arpSuppressionStatus_->vlanIdHas(vlanId);
    TRACE(trace, 8, this,
          "vlanId" << vlanId << " inEvpnStatus=" << inEvpnStatus << " inRemoteBindingStatus="
                   << inRemoteBindingStatus << " vlanUsable=" << vlanUsable
                   << " inArpSuppressionStatus=" << inArpSuppressionStatus);
    vlanRecord.write(
        {vlanId.value(), inEvpnStatus, inRemoteBindingStatus, vlanUsable, inArpSuppressionStatus});
    // With remote bindings requests can be answered, whether or not the switch routes the VLAN.
    if ((inEvpnStatus && vlanUsable) || inRemoteBindingStatus) {
        arpSuppressionStatus_->vlanIdIs(vlanId, true);
    } else if (mayRemove()) {
        arpSuppressionStatus_->vlanIdDel(vlanId);
    }
}

bool ArpSuppressionStatusSm::mayRemove() const {
    switch (initializationStage_) {
    case InitializationStage::evpnStatusWalk:
    case InitializationStage::remoteBindingStatusWait:
        return false;
    case InitializationStage::arpSuppressionStatusWalk:
    case InitializationStage::complete:
        return true;
    }
    Vela::failAssertion("false");
}

// Walks

Vela::WalkRet ArpSuppressionStatusSm::walk() {
    TRACE(trace, 8, this, "initializationStage=" << initializationStage_);
    switch (initializationStage_) {
    case InitializationStage::evpnStatusWalk:
        return evpnStatusWalk();
    case InitializationStage::remoteBindingStatusWait:
        return remoteBindingStatusWait();
    case InitializationStage::arpSuppressionStatusWalk:
        return arpSuppressionStatusWalk();
    case InitializationStage::complete:
        break;
    }
    Vela::failAssertion("false");
}

Vela::WalkRet ArpSuppressionStatusSm::evpnStatusWalk() {
    uint32_t count = walkCollection(
        evpnStatus_->vlanToDot1qCollection(), bookmark_,
        [this](Bridging::VlanId vlanId, Bridging::VlanIdOrNone) { handleVlan(vlanId); });
    bool done = !bookmark_;
    TRACE(trace, 8, this, "finished processed=" << count << " done=" << done);
    if (done) {
        initializationStage_ = InitializationStage::remoteBindingStatusWait;
    }
    return {1, count};
}

Vela::WalkRet ArpSuppressionStatusSm::remoteBindingStatusWait() {
    if (!remoteBindingStatus_->initialPopulationComplete()) {
        return {0, 0};
    }
    initializationStage_ = InitializationStage::arpSuppressionStatusWalk;
    return arpSuppressionStatusWalk();
}

Vela::WalkRet ArpSuppressionStatusSm::arpSuppressionStatusWalk() {
    uint32_t count = walkCollection(arpSuppressionStatus_->vlanIdCollection(), bookmark_,
                                    [this](Bridging::VlanId vlanId, bool) { handleVlan(vlanId); });
    bool done = !bookmark_;
    TRACE(trace, 8, this, "finished processed=" << count << " done=" << done);
    if (done) {
        initializationStage_ = InitializationStage::complete;
    }
    return {done ? 0u : 1u, count};
}

void ArpSuppressionStatusSm::traceEvent(Vela::TraceEvent event) {
    TRACE(trace, 8, this, "traceEvent=" << toString(event));
}

void ArpSuppressionStatusSm::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "ArpSuppressionStatusSm\n");
    context.print(indent + 2, "initializationStage=%s\n", stringValue(initializationStage_));
    context.print(indent + 2, "bookmark=%u\n", bookmark_.value());
}

} // namespace ArpSuppression
