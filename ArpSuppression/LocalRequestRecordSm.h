#pragma once

#include "ArpSuppression/LocalRequestRecord.h"
#include "ArpSuppression/TrappedMessage.h"
#include "Platform/Scheduler/WalkSmBase.h"

namespace ArpSuppression {

/// Records what the trapped messages ask for, and forgets it 240 seconds after the last request.
/// While there are entries one walk is pending, due when the oldest expires. Goes on by its own
/// references when traps and record have ended: there is nothing to do then.
class LocalRequestRecordSm final : public Vela::WalkSmBase {
  public:
    LocalRequestRecordSm(Vela::Ptr<Vela::TaskScheduler> scheduler,
                         Vela::Ptr<const MessageTrap> receivedRequestTrapV4,
                         Vela::Ptr<const MessageTrap> receivedRequestTrapV6,
                         Vela::Ptr<LocalRequestRecord> localRequestRecord);

    const char* typeName() const noexcept override { return "LocalRequestRecordSm"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;
    bool allowWalkRestarts() const override { return true; }
    Vela::WalkRet walk() override;
    void traceEvent(Vela::TraceEvent event) override;

  private:
    Vela::Reaction fetchExpected(const MessageTrap& trap);
    void handleTrappedRequest(const MessageTrap& trap);

    const Vela::Ptr<const MessageTrap> receivedRequestTrapV4_;
    const Vela::Ptr<const MessageTrap> receivedRequestTrapV6_;
    const Vela::Ptr<LocalRequestRecord> localRequestRecord_;
    const double ageLimit_ = 240.0; // seconds
    uint32_t fetched_ = 0;          // of the message that is expected
    Vela::Reaction expectedV4_;
    Vela::Reaction expectedV6_;
    Vela::Reaction trappedV4_;
    Vela::Reaction trappedV6_;
};

} // namespace ArpSuppression
