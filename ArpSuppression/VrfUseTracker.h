#pragma once

#include "ArpSuppression/ArpSuppression.h"
#include "Platform/State/Collection.h"

#include <cstdint>
#include <utility>

namespace ArpSuppression {

/// Base of the binding tables: counts the bindings of each VRF, and keeps the VRF's VrfInfo with a
/// VrfUser of its own while there is one. Both collections have the same keys. With its life all
/// its users end, whatever their counts.
class VrfUseTracker : public Vela::Entity {
  public:
    using VrfReferenceCountCollection = Vela::Map<Vela::Ptr<VrfInfo>, uint32_t>;
    using VrfUserCollection = Vela::Map<Vela::Ptr<VrfInfo>, Vela::Ptr<VrfUser>>;

    const Vela::Ptr<VlanL3InfoStatus>& vlanL3InfoStatus() const { return vlanL3InfoStatus_; }

    /// One use more, and one less. The VrfInfo may stand in what the caller is about to remove.
    /// The last release may end its life.
    void referenceVrf(const Vela::Ptr<VrfInfo>& vrfInfo);
    void releaseVrf(const Vela::Ptr<VrfInfo>& vrfInfo);

    /// How often each VRF is used now: at least once.
    const VrfReferenceCountCollection& vrfReferenceCountCollection() const {
        return vrfReferenceCount_;
    }
    uint32_t vrfReferenceCount(const Vela::Ptr<VrfInfo>& vrfInfo) const {
        return vrfReferenceCount_.value(vrfInfo);
    }
    bool vrfReferenceCountHas(const Vela::Ptr<VrfInfo>& vrfInfo) const {
        return vrfReferenceCount_.has(vrfInfo);
    }

    /// The user that is registered for each VRF.
    const VrfUserCollection& vrfUserCollection() const { return vrfUser_; }
    bool vrfUserHas(const Vela::Ptr<VrfInfo>& vrfInfo) const { return vrfUser_.has(vrfInfo); }

  protected:
    explicit VrfUseTracker(Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus)
        : vlanL3InfoStatus_(std::move(vlanL3InfoStatus)) {}

    /// A derived class that overrides it calls it last.
    void handleDestroy() noexcept override;
    /// For dumpState of the derived class.
    void dumpVrfUseTrackerState(Vela::DumpContext& context, int indent) const;

    void vrfReferenceCountIs(const Vela::Ptr<VrfInfo>& vrfInfo, uint32_t count) {
        vrfReferenceCount_.set(vrfInfo, count);
    }
    void vrfReferenceCountInc(const Vela::Ptr<VrfInfo>& vrfInfo, uint32_t step) {
        vrfReferenceCountIs(vrfInfo, vrfReferenceCount(vrfInfo) + step);
    }
    void vrfReferenceCountDec(const Vela::Ptr<VrfInfo>& vrfInfo, uint32_t step) {
        vrfReferenceCountIs(vrfInfo, vrfReferenceCount(vrfInfo) - step);
    }
    void vrfReferenceCountDel(const Vela::Ptr<VrfInfo>& vrfInfo) {
        vrfReferenceCount_.del(vrfInfo);
    }
    void vrfReferenceCountDelAll() { vrfReferenceCount_.delAll(); }

    /// These neither register a user nor unregister it.
    Vela::Ptr<VrfUser> vrfUserIs(const Vela::Ptr<VrfInfo>& vrfInfo);
    Vela::Ptr<VrfUser> vrfUserDel(const Vela::Ptr<VrfInfo>& vrfInfo);
    /// Unregisters them, too.
    void vrfUserDelAll();

  private:
    const Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus_;
    VrfReferenceCountCollection vrfReferenceCount_;
    VrfUserCollection vrfUser_;
};

} // namespace ArpSuppression
