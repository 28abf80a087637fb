#include "ArpSuppression/LocalRequestRecordSm.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Base/Assert.h"
#include "Platform/State/DumpContext.h"

#include <utility>

namespace ArpSuppression {

LocalRequestRecordSm::LocalRequestRecordSm(Vela::Ptr<Vela::TaskScheduler> scheduler,
                                           Vela::Ptr<const MessageTrap> receivedRequestTrapV4,
                                           Vela::Ptr<const MessageTrap> receivedRequestTrapV6,
                                           Vela::Ptr<LocalRequestRecord> localRequestRecord)
    : WalkSmBase(std::move(scheduler), 3, "LocalRequestRecordSm"),
      receivedRequestTrapV4_(std::move(receivedRequestTrapV4)),
      receivedRequestTrapV6_(std::move(receivedRequestTrapV6)),
      localRequestRecord_(std::move(localRequestRecord)) {
    expectedV4_ = fetchExpected(*receivedRequestTrapV4_);
    expectedV6_ = fetchExpected(*receivedRequestTrapV6_);
    trappedV4_ = receivedRequestTrapV4_->lastTrappedMessageAttribute().react(
        this, [this] { handleTrappedRequest(*receivedRequestTrapV4_); });
    trappedV6_ = receivedRequestTrapV6_->lastTrappedMessageAttribute().react(
        this, [this] { handleTrappedRequest(*receivedRequestTrapV6_); });
}

void LocalRequestRecordSm::handleInitialized() {
    TRACE(trace, 8, this, "handleInitialized");
    WalkSmBase::handleInitialized();
}

void LocalRequestRecordSm::handleDestroy() noexcept {
    TRACE(trace, 8, this, "handleDestroy");
}

Vela::Reaction LocalRequestRecordSm::fetchExpected(const MessageTrap& trap) {
    return trap.expectedNotifier().react(this, [this](const MessageTrap::Expected& expected) {
        const auto& entries = localRequestRecord_->entryCollection();
        if (expected.step == MessageTrap::Expected::Step::first) {
            fetched_ = entries.fetchSlot(expected.key);
        } else {
            entries.fetchNode(fetched_);
        }
    });
}

void LocalRequestRecordSm::handleTrappedRequest(const MessageTrap& trap) {
    Vela::Ptr<const TrappedMessage> trappedRequest = trap.lastTrappedMessage();
    if (!trappedRequest) {
        return;
    }
    TRACE(trace, 8, this, "trappedRequest=" << trappedRequest);
    if (localRequestRecord_->entries() == 0) {
        scheduleWalkDelay(ageLimit_);
    }
    localRequestRecord_->recordLocalRequest(
        RemoteBindingKey(trappedRequest->vlanId(), trappedRequest->targetIpAddress()));
}

Vela::WalkRet LocalRequestRecordSm::walk() {
    TRACE(trace, 8, this, "walk");
    const double now = scheduler()->clock().seconds();
    uint32_t count = 0;
    while (auto entry = localRequestRecord_->oldestEntry()) {
        double remaining = entry->lastRequestTime() + ageLimit_ - now;
        if (remaining > 0) {
            scheduleWalkDelay(remaining);
            break;
        }
        TRACE(trace, 8, this, "deleting entry=" << entry);
        auto removed = localRequestRecord_->entryDel(entry->remoteBindingKey());
        Vela::assertThat(removed == entry, "entry.ptr() == entryRawPtr");
        ++count;
        if (mustYield()) {
            return {1, count};
        }
    }
    return {0, count};
}

void LocalRequestRecordSm::traceEvent(Vela::TraceEvent event) {
    TRACE(trace, 8, this, "traceEvent=" << toString(event));
}

void LocalRequestRecordSm::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "LocalRequestRecordSm\n");
}

} // namespace ArpSuppression
