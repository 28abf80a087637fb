#include "ArpSuppression/VrfUseTracker.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Base/Assert.h"
#include "Platform/State/DumpContext.h"

namespace ArpSuppression {

void VrfUseTracker::referenceVrf(const Vela::Ptr<VrfInfo>& vrfInfo) {
    bool alreadyPresent = vrfUserHas(vrfInfo);
    TRACE(trace, 8, this,
          "vrfInfo=" << vrfInfo << " alreadyPresent=" << alreadyPresent
                     << " vrfReferenceCount=" << vrfReferenceCount(vrfInfo));
    if (alreadyPresent) {
        Vela::assertThat(vrfReferenceCountHas(vrfInfo), "vrfReferenceCountHas( vrfInfo )");
        vrfReferenceCountInc(vrfInfo, 1);
    } else {
        Vela::Ptr<VrfUser> user = vrfUserIs(vrfInfo);
        vlanL3InfoStatus_->addVrfUser(user);
        vrfReferenceCountIs(user->vrfInfo(), 1);
    }
}

void VrfUseTracker::releaseVrf(const Vela::Ptr<VrfInfo>& vrfInfo) {
    uint32_t referenceCount = vrfReferenceCount(vrfInfo);
    TRACE(trace, 8, this, "vrfInfo=" << vrfInfo << " vrfReferenceCount=" << referenceCount);
    Vela::assertThat(0 != referenceCount, "0 != referenceCount");
    Vela::assertThat(vrfUserHas(vrfInfo), "vrfUserHas( vrfInfo )");
    if (referenceCount == 1) {
        Vela::Ptr<VrfInfo> released = vrfInfo; // the argument may stand in a collection's key
        vrfReferenceCountDel(released);
        if (Vela::Ptr<VrfUser> user = vrfUserDel(released)) {
            vlanL3InfoStatus_->delVrfUser(user);
        }
    } else {
        vrfReferenceCountDec(vrfInfo, 1);
    }
}

Vela::Ptr<VrfUser> VrfUseTracker::vrfUserIs(const Vela::Ptr<VrfInfo>& vrfInfo) {
    return vrfUser_.findOrAdd(vrfInfo, [&] { return Vela::make<VrfUser>(vrfInfo); });
}

Vela::Ptr<VrfUser> VrfUseTracker::vrfUserDel(const Vela::Ptr<VrfInfo>& vrfInfo) {
    Vela::Ptr<VrfUser> removed = vrfUser_.del(vrfInfo).value_or(nullptr);
    if (removed) {
        removed->destroy();
    }
    return removed;
}

void VrfUseTracker::vrfUserDelAll() {
    vrfUser_.delAll([this](const Vela::Ptr<VrfUser>& user) {
        user->destroy();
        vlanL3InfoStatus_->delVrfUser(user);
    });
}

void VrfUseTracker::handleDestroy() noexcept {
    vrfReferenceCountDelAll();
    vrfUserDelAll();
}

void VrfUseTracker::dumpVrfUseTrackerState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "vrfReferenceCount #%zu\n", vrfReferenceCount_.count());
    for (auto count = vrfReferenceCount_.first(); count; ++count) {
        context.print(indent + 2, "%s %u\n", count.key()->vrfName().c_str(), count.value());
    }
    context.print(indent, "vrfUser #%zu\n", vrfUser_.count());
    for (auto user = vrfUser_.first(); user; ++user) {
        context.print(indent + 2, "%s\n", user.key()->vrfName().c_str());
    }
}

} // namespace ArpSuppression
