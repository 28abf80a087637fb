#include "ArpSuppression/ArpSuppressionRootSm.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Base/Assert.h"
#include "Platform/State/DumpContext.h"

#include <utility>

namespace ArpSuppression {

using Vela::assertThat;

ArpSuppressionRootSm::ArpSuppressionRootSm(Vela::Ptr<ArpSuppressionMounts> mounts,
                                           bool isPhysicalHardware,
                                           Vela::Ptr<Vela::TaskScheduler> scheduler)
    : mounts_(std::move(mounts)), isPhysicalHardware_(isPhysicalHardware),
      scheduler_(std::move(scheduler)) {
    assertThat(mounts_->arpSuppressionStatus() != nullptr, "mounts()->arpSuppressionStatus()");
    assertThat(mounts_->evpnStatus() != nullptr, "mounts()->evpnStatus()");
    assertThat(mounts_->arpInputConfig() != nullptr, "mounts()->arpInputConfig()");
}

Vela::Ptr<ArpSuppressionRootSm>
arpSuppressionRootSmFactory(Vela::Ptr<ArpSuppressionMounts> mounts, bool isPhysicalHardware,
                            Vela::Ptr<Vela::TaskScheduler> scheduler) {
    auto rootSm = Vela::make<ArpSuppressionRootSm>(std::move(mounts), isPhysicalHardware,
                                                   std::move(scheduler));
    rootSm->handleRunnable();
    ArpSuppressionRootSm* sm = rootSm.get();
    sm->evpnStatus_ = sm->mounts()->evpnStatus()->mplsConfiguredAttribute().react(
        sm, [sm] { sm->handleRunnable(); });
    return rootSm;
}

void ArpSuppressionRootSm::handleInitialized() {
    TRACE(trace, 8, this, "handleInitialized");
}

void ArpSuppressionRootSm::handleDestroy() noexcept {
    TRACE(trace, 8, this, "handleDestroy");
    evpnStatus_.clear();
    if (root_) {
        arpSuppressionStop();
        mounts()->arpSuppressionStatus()->runnableIs(false);
    }
    localRequestRecordSm_.reset();
}

void ArpSuppressionRootSm::handleRunnable() {
    const auto& status = mounts()->arpSuppressionStatus();
    bool evpnMplsIsConfigured = mounts()->evpnStatus()->mplsConfigured();
    bool weHaveNotCleanedUp = status->runnable();
    TRACE(trace, 8, this,
          " evpnMplsIsConfigured=" << evpnMplsIsConfigured << " weHaveNotCleanedUp="
                                   << weHaveNotCleanedUp << " root=" << root());
    if (evpnMplsIsConfigured || runnableForTest_) {
        if (root_) {
            assertThat(mounts()->arpSuppressionStatus()->runnable(),
                       "mounts()->arpSuppressionStatus()->runnable()");
        } else {
            status->runnableIs(true);
            arpSuppressionStart();
        }
    } else if (root_) {
        arpSuppressionStop();
        status->runnableIs(false);
    } else if (weHaveNotCleanedUp) {
        // An earlier instance died without stopping. The machines know how to withdraw what it
        // published: that is what they do when they end.
        arpSuppressionStart();
        arpSuppressionStop();
        status->runnableIs(false);
    }
}

/// Shared state before any machine, who tracks VLANs and VRFs before who reads them, consumers of
/// messages before their producer: the first trapped frame finds everything in place.
void ArpSuppressionRootSm::arpSuppressionStart() {
    TRACE(trace, 8, this, " mounts=" << mounts());
    root_ = arpSuppressionRootFactory(scheduler_->clock());
    arpSuppressionStatusSm_ = Vela::make<ArpSuppressionStatusSm>(
        scheduler_, mounts()->evpnStatus(), root()->remoteBindingStatus(),
        root()->vlanL3InfoStatus(), mounts()->arpSuppressionStatus(), root()->enabledVlans());
    localRequestRecordSm_ = Vela::make<LocalRequestRecordSm>(
        scheduler_, root()->receivedRequestTrapV4(), root()->receivedRequestTrapV6(),
        root()->localRequestRecord());
    vlanL3InfoSm_ = vlanL3InfoSmFactory(
        scheduler_, mounts()->arpSuppressionStatus(), root()->enabledVlans(),
        mounts()->allVrfStatusLocal(), mounts()->ipStatus(), mounts()->ip6Status(),
        mounts()->vrfNameToIdMap(), mounts()->allIntfStatusDir(), mounts()->allIntfStatusLocalDir(),
        root()->deviceIntfStatusDir(), root()->vlanL3InfoStatus(), mounts()->entityManager());
    remoteBindingStatusSm_ = Vela::make<RemoteBindingStatusSm>(
        scheduler_, mounts()->remoteBindingConfig(), mounts()->remoteBindingConfigMountGroup(),
        root()->vlanL3InfoStatus(), root()->remoteBindingStatus());
    arpInputConfigSm_ = Vela::make<ArpInputConfigSm>(
        scheduler_, mounts()->l2VpnConfig(), root()->localBindingRecord(),
        root()->remoteBindingStatus(), root()->arpInputConfigTrigger(), root()->vlanL3InfoStatus(),
        mounts()->arpStatus(), mounts()->arpInputConfig(), mounts()->arpSuppressionCounterStatus());
    arpSuppressionSm_ = arpSuppressionSmFactory(
        root()->receivedRequestTrapV4(), root()->reinjectMessageQueue(),
        mounts()->arpSuppressionCounterStatus(), root()->localRequestRecord(),
        mounts()->remoteBindingConfig(), root()->vlanL3InfoStatus(), mounts()->arpStatus(),
        mounts()->bridgingConfig(), mounts()->bridgingStatus(), mounts()->evpnStatus(),
        mounts()->fhrpVrMacStatus(), mounts()->vrfNameToIdMap(), root()->arpInputConfigTrigger());
    bindingDiscoverySm_ = Vela::make<BindingDiscoverySm>(
        scheduler_, root()->receivedRequestTrapV4(), root()->receivedRequestTrapV6(),
        mounts()->bridgingConfig(), mounts()->bridgingStatus(),
        mounts()->arpSuppressionCounterStatus(), root()->vlanL3InfoStatus(),
        root()->remoteBindingStatus(), mounts()->arpStatus(), mounts()->fhrpVrMacStatus(),
        mounts()->arpInputConfig(), root()->localBindingRecord(), mounts()->evpnStatus(),
        root()->arpInputConfigTrigger());
    packetPathStart();
}

void ArpSuppressionRootSm::packetPathStart() {
    const auto& counters = mounts()->arpSuppressionCounterStatus();
    auto trapSm = [&](auto make) {
        return make(scheduler_, root()->vlanL3InfoStatus(), root()->receivedRequestTrapV4(),
                    root()->receivedRequestTrapV6(), root()->reinjectMessageQueue(),
                    mounts()->arpSuppressionStatus(), counters, root()->deviceIntfStatusDir(),
                    mounts()->intfEncapServiceIntf());
    };
    if (isPhysicalHardware_) {
        messageReinjectSm_ = Vela::make<MessageReinjectSmPhysical>(
            scheduler_, root()->vlanL3InfoStatus(), root()->reinjectMessageQueue(), counters,
            mounts()->evpnStatus(), mounts()->evpnMplsConfig(), mounts()->bridgingConfig());
        messageTrapSm_ = trapSm([](const auto&... references) {
            return Vela::make<MessageTrapSmPhysical>(references...);
        });
    } else {
        messageReinjectSm_ = Vela::make<MessageReinjectSmMimic>(
            scheduler_, root()->vlanL3InfoStatus(), root()->reinjectMessageQueue(), counters);
        messageTrapSm_ = trapSm([](const auto&... references) {
            return Vela::make<MessageTrapSmMimic>(references...);
        });
    }
}

/// No new messages first; the local request record's machine stays.
void ArpSuppressionRootSm::arpSuppressionStop() {
    TRACE(trace, 8, this, "arpSuppressionStop");
    messageTrapSm_.reset();
    messageReinjectSm_.reset();
    bindingDiscoverySm_.reset();
    arpSuppressionSm_.reset();
    vlanL3InfoSm_.reset();
    arpSuppressionStatusSm_.reset();
    remoteBindingStatusSm_.reset();
    arpInputConfigSm_.reset();
    root_.reset();
    assertThat(0 == mounts()->arpSuppressionStatus()->vlanIds(),
               "0 == mounts()->arpSuppressionStatus()->vlanIds()");
    assertThat(0 == mounts()->arpInputConfig()->vrfs(), "0 == mounts()->arpInputConfig()->vrfs()");
}

void ArpSuppressionRootSm::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "ArpSuppressionRootSm\n");
    int inner = indent + 2;
    context.print(inner, "isPhysicalHardware=%s\n", isPhysicalHardware_ ? "yes" : "no");
    context.print(inner, "runnableForTest=%s\n", runnableForTest_ ? "yes" : "no");
    context.child(inner, "mounts", mounts_.get());
    context.child(inner, "root", root_.ptr().get());
    context.child(inner, "arpSuppressionStatusSm", arpSuppressionStatusSm_.ptr().get());
    context.child(inner, "localRequestRecordSm", localRequestRecordSm_.ptr().get());
    context.child(inner, "vlanL3InfoSm", vlanL3InfoSm_.ptr().get());
    context.child(inner, "remoteBindingStatusSm", remoteBindingStatusSm_.ptr().get());
    context.child(inner, "arpInputConfigSm", arpInputConfigSm_.ptr().get());
    context.child(inner, "arpSuppressionSm", arpSuppressionSm_.ptr().get());
    context.child(inner, "bindingDiscoverySm", bindingDiscoverySm_.ptr().get());
    context.child(inner, "messageReinjectSm", messageReinjectSm_.ptr().get());
    context.child(inner, "messageTrapSm", messageTrapSm_.ptr().get());
}

void CliCallback::handleCommand(int fd, const std::string&) {
    Vela::DumpContext context(fd);
    rootSm_->dumpState(context, 0);
}

} // namespace ArpSuppression
