#pragma once

#include "ArpSuppression/ArpInputConfigSm.h"
#include "ArpSuppression/ArpSuppressionMounts.h"
#include "ArpSuppression/ArpSuppressionRoot.h"
#include "ArpSuppression/ArpSuppressionSm.h"
#include "ArpSuppression/ArpSuppressionStatusSm.h"
#include "ArpSuppression/BindingDiscoverySm.h"
#include "ArpSuppression/LocalRequestRecordSm.h"
#include "ArpSuppression/MessageReinjectSm.h"
#include "ArpSuppression/MessageTrapSm.h"
#include "ArpSuppression/RemoteBindingStatusSm.h"
#include "ArpSuppression/VlanL3InfoSm.h"
#include "Platform/Agent/CommandCallback.h"

namespace ArpSuppression {

/// Decides whether suppression runs, which is while EVPN over MPLS is configured, and owns
/// everything that exists only while it does. One that ends while it runs stops first. There must
/// be both statuses and the input configuration.
class ArpSuppressionRootSm final : public Vela::Entity {
  public:
    ArpSuppressionRootSm(Vela::Ptr<ArpSuppressionMounts> mounts, bool isPhysicalHardware,
                         Vela::Ptr<Vela::TaskScheduler> scheduler);

    const char* typeName() const noexcept override { return "ArpSuppressionRootSm"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const Vela::Ptr<ArpSuppressionMounts>& mounts() const { return mounts_; }
    bool isPhysicalHardware() const { return isPhysicalHardware_; }

    /// Makes suppression run without EVPN, from the next handleRunnable on.
    bool runnableForTest() const { return runnableForTest_; }
    void runnableForTestIs(bool runnable) { runnableForTest_ = runnable; }

    /// Starts or stops where what should be and what is differ.
    void handleRunnable();

    /// Empty while suppression does not run, as the machines are.
    const Vela::Ptr<ArpSuppressionRoot>& root() const { return root_.ptr(); }
    const Vela::Ptr<ArpSuppressionStatusSm>& arpSuppressionStatusSm() const {
        return arpSuppressionStatusSm_.ptr();
    }
    const Vela::Ptr<VlanL3InfoSm>& vlanL3InfoSm() const { return vlanL3InfoSm_.ptr(); }
    const Vela::Ptr<RemoteBindingStatusSm>& remoteBindingStatusSm() const {
        return remoteBindingStatusSm_.ptr();
    }
    const Vela::Ptr<ArpInputConfigSm>& arpInputConfigSm() const { return arpInputConfigSm_.ptr(); }
    const Vela::Ptr<ArpSuppressionSm>& arpSuppressionSm() const { return arpSuppressionSm_.ptr(); }
    const Vela::Ptr<BindingDiscoverySm>& bindingDiscoverySm() const {
        return bindingDiscoverySm_.ptr();
    }
    const Vela::Ptr<MessageReinjectSmBase>& messageReinjectSm() const {
        return messageReinjectSm_.ptr();
    }
    const Vela::Ptr<MessageTrapSm>& messageTrapSm() const { return messageTrapSm_.ptr(); }
    /// Stays after a stop until the next start replaces it.
    const Vela::Ptr<LocalRequestRecordSm>& localRequestRecordSm() const {
        return localRequestRecordSm_.ptr();
    }

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;

  private:
    friend Vela::Ptr<ArpSuppressionRootSm>
    arpSuppressionRootSmFactory(Vela::Ptr<ArpSuppressionMounts> mounts, bool isPhysicalHardware,
                                Vela::Ptr<Vela::TaskScheduler> scheduler);

    void arpSuppressionStart();
    void packetPathStart();
    void arpSuppressionStop();

    const Vela::Ptr<ArpSuppressionMounts> mounts_;
    const bool isPhysicalHardware_;
    const Vela::Ptr<Vela::TaskScheduler> scheduler_;
    bool runnableForTest_ = false;
    Vela::Reaction evpnStatus_;
    Vela::Owned<ArpSuppressionRoot> root_;
    Vela::Owned<ArpSuppressionStatusSm> arpSuppressionStatusSm_;
    Vela::Owned<LocalRequestRecordSm> localRequestRecordSm_;
    Vela::Owned<VlanL3InfoSm> vlanL3InfoSm_;
    Vela::Owned<RemoteBindingStatusSm> remoteBindingStatusSm_;
    Vela::Owned<ArpInputConfigSm> arpInputConfigSm_;
    Vela::Owned<ArpSuppressionSm> arpSuppressionSm_;
    Vela::Owned<BindingDiscoverySm> bindingDiscoverySm_;
    Vela::Owned<MessageReinjectSmBase> messageReinjectSm_;
    Vela::Owned<MessageTrapSm> messageTrapSm_;
};

Vela::Ptr<ArpSuppressionRootSm>
arpSuppressionRootSmFactory(Vela::Ptr<ArpSuppressionMounts> mounts, bool isPhysicalHardware,
                            Vela::Ptr<Vela::TaskScheduler> scheduler);

/// The show-tech command: dumps the whole tree below the root state machine.
class CliCallback final : public Vela::AgentCommandCallback {
  public:
    explicit CliCallback(Vela::Ptr<const ArpSuppressionRootSm> rootSm)
        : rootSm_(std::move(rootSm)) {}

    const char* typeName() const noexcept override { return "CliCallback"; }
    const char* commandName() const override { return "showTechSupport"; }
    void handleCommand(int fd, const std::string& command) override;

  private:
    Vela::Ptr<const ArpSuppressionRootSm> rootSm_;
};

} // namespace ArpSuppression
