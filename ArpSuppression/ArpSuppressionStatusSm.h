#pragma once

#include "ArpSuppression/ArpSuppression.h"
#include "ArpSuppression/RemoteBindingStatus.h"
#include "Platform/Model/ArpSuppression/ArpSuppressionStatus.h"
#include "Platform/Model/Evpn/EvpnStatus.h"
#include "Platform/Scheduler/WalkSmBase.h"

#include <cstdint>
#include <ostream>

namespace ArpSuppression {

/// Says of each VLAN whether suppression is configured (it is in EnabledVlans) and whether it is
/// active (it is in ArpSuppressionStatus, with true). A VLAN with remote bindings is active; one
/// that EVPN serves is while packets can be sent on it.
///
/// What an earlier run left in ArpSuppressionStatus stays until the remote bindings are all there:
/// only then is it known whether a VLAN has any. The end of this machine withdraws everything. It
/// starts before there are remote bindings, and before who might announce one VLAN in the middle
/// of another: it is told of both, because it is told first.
class ArpSuppressionStatusSm final : public Vela::WalkSmBase {
  public:
    /// In this order, and never back. Text form: the name of the enumerator.
    enum class InitializationStage : uint8_t {
        evpnStatusWalk = 0,
        remoteBindingStatusWait = 1,
        arpSuppressionStatusWalk = 2,
        complete = 3,
    };

    ArpSuppressionStatusSm(Vela::Ptr<Vela::TaskScheduler> scheduler,
                           Vela::Ptr<const Evpn::EvpnStatus> evpnStatus,
                           Vela::Ptr<const RemoteBindingStatus> remoteBindingStatus,
                           Vela::Ptr<const VlanL3InfoStatus> vlanL3InfoStatus,
                           Vela::Ptr<ArpSuppressionStatus> arpSuppressionStatus,
                           Vela::Ptr<EnabledVlans> enabledVlans);

    const char* typeName() const noexcept override { return "ArpSuppressionStatusSm"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    InitializationStage initializationStage() const { return initializationStage_; }
    void initializationStageIs(InitializationStage stage) { initializationStage_ = stage; }
    /// Where the walk of the stage goes on; none: at the start.
    Bridging::VlanIdOrNone bookmark() const { return bookmark_; }
    void bookmarkIs(Bridging::VlanIdOrNone bookmark) { bookmark_ = bookmark; }

    /// Makes the end of this machine leave ArpSuppressionStatus as it is.
    bool skipVlanIdCleanupForTest() const { return skipVlanIdCleanupForTest_; }
    void skipVlanIdCleanupForTestIs(bool skip) { skipVlanIdCleanupForTest_ = skip; }

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;
    bool allowWalkRestarts() const override { return true; }
    Vela::WalkRet walk() override;
    void traceEvent(Vela::TraceEvent event) override;

  private:
    void handleVlan(Bridging::VlanId vlanId);
    void handleVlanL3InfoUpdated();
    bool mayRemove() const;

    Vela::WalkRet evpnStatusWalk();
    Vela::WalkRet remoteBindingStatusWait();
    Vela::WalkRet arpSuppressionStatusWalk();

    const Vela::Ptr<const Evpn::EvpnStatus> evpnStatus_;
    const Vela::Ptr<const RemoteBindingStatus> remoteBindingStatus_;
    const Vela::Ptr<const VlanL3InfoStatus> vlanL3InfoStatus_;
    const Vela::Ptr<ArpSuppressionStatus> arpSuppressionStatus_;
    const Vela::Ptr<EnabledVlans> enabledVlans_;
    InitializationStage initializationStage_ = InitializationStage::evpnStatusWalk;
    Bridging::VlanIdOrNone bookmark_;
    bool skipVlanIdCleanupForTest_ = false;
    Vela::Reaction evpnStatusReaction_;
    Vela::Reaction remoteBindingVlanReaction_;
    Vela::Reaction initialPopulationReaction_;
    Vela::Reaction vlanL3InfoReaction_;
    Vela::Reaction vlanUpdatedReaction_;
};

const char* stringValue(ArpSuppressionStatusSm::InitializationStage stage);
inline std::ostream& operator<<(std::ostream& out,
                                ArpSuppressionStatusSm::InitializationStage stage) {
    return out << stringValue(stage);
}

} // namespace ArpSuppression
