#pragma once

#include "ArpSuppression/RemoteBindingStatus.h"
#include "Platform/Model/ArpSuppression/RemoteBindingConfig.h"
#include "Platform/Quarry/TableService.h"
#include "Platform/Scheduler/WalkSmBase.h"
#include "Platform/State/HashTable.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <set>

namespace ArpSuppression {

/// Mirrors the remote binding configuration into RemoteBindingStatus, once the configuration is
/// complete, and moves what it has filed by address when a VLAN moves to another VRF. One walk goes
/// over the configuration and then over the addresses; each change of the configuration is
/// followed by itself. A binding whose VLAN has no L3 information is filed by host only, until
/// there is some. A count of bindings out of range raises a range error.
class RemoteBindingStatusSm final : public Vela::WalkSmBase {
  public:
    /// Text form: the name of the enumerator.
    enum class WalkStage : uint8_t {
        remoteBindingConfigWalk = 0,
        remoteBindingStatusWalk = 1,
    };

    /// A binding as it was processed last, under its own key. A million of these may exist, and
    /// nobody is told of their changes.
    struct KnownBindingLayout {
        using Key = RemoteBindingKey;
        using Value = RemoteBinding;
        using Element = RemoteBinding;
        static Element element(const Key&, const Value& value) { return value; }
        static const Key& key(const Element& element) { return element.key; }
        static Value& value(Element& element) { return element; }
        static bool fits(const Key& key, const Value& value) { return value.key == key; }
    };
    using KnownBindingTable = Vela::HashTable<KnownBindingLayout>;
    static_assert(sizeof(KnownBindingTable::Node) <= 40); // what fits into 48 bytes of heap
    using VlanBindingCountCollection = Vela::Map<Bridging::VlanId, int32_t>;

    /// There must be a group; the configuration may be missing in a group that never is ready.
    RemoteBindingStatusSm(Vela::Ptr<Vela::TaskScheduler> scheduler,
                          Vela::Ptr<const RemoteBindingConfig> remoteBindingConfig,
                          Vela::Ptr<const Quarry::MountGroup> remoteBindingConfigMountGroup,
                          Vela::Ptr<const VlanL3InfoStatus> vlanL3InfoStatus,
                          Vela::Ptr<RemoteBindingStatus> remoteBindingStatus);

    const char* typeName() const noexcept override { return "RemoteBindingStatusSm"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    WalkStage walkStage() const { return walkStage_; }
    void walkStageIs(WalkStage stage) { walkStage_ = stage; }
    /// Where the two walks go on; empty: at the start.
    const RemoteBindingKey& remoteBindingConfigBookmark() const {
        return remoteBindingConfigBookmark_;
    }
    const VrfIpAddress& remoteBindingStatusBookmark() const { return remoteBindingStatusBookmark_; }

    const KnownBindingTable& knownBindingCollection() const { return knownBinding_; }
    /// Zero where no binding is known.
    Zinc::EthAddr knownMacAddress(const RemoteBindingKey& key) const;

    /// How many known bindings a VLAN has; 0 when absent. Reading raises a range error for what
    /// should not have been stored.
    const VlanBindingCountCollection& vlanBindingCountCollection() const {
        return vlanBindingCount_;
    }
    int32_t vlanBindingCount(Bridging::VlanId vlanId) const;
    void vlanBindingCountIs(Bridging::VlanId vlanId, int32_t count) {
        vlanBindingCount_.set(vlanId, count);
    }
    /// These return the new value.
    int32_t vlanBindingCountInc(Bridging::VlanId vlanId, int32_t step);
    int32_t vlanBindingCountDec(Bridging::VlanId vlanId, int32_t step);
    void vlanBindingCountDel(Bridging::VlanId vlanId) { vlanBindingCount_.del(vlanId); }

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;
    bool allowWalkRestarts() const override { return true; }
    bool walkStartedNotification() override;
    void walkFinishedNotification() override { vlansLost_.clear(); }
    Vela::WalkRet walk() override;
    void traceEvent(Vela::TraceEvent event) override;

  private:
    void handleRemoteBindingReady();
    void handleRemoteBinding(const RemoteBindingKey& key);
    void handleVlanL3Info(Bridging::VlanId vlanId);

    /// Met by the walk and not handled yet; a slice leaves none.
    struct BindingsAhead {
        static constexpr size_t most = 16;
        std::array<RemoteBinding, most> bindings;
        size_t count = 0;
    };

    Vela::WalkRet remoteBindingConfigWalk();
    void handleBindings(BindingsAhead& ahead);
    Vela::WalkRet remoteBindingStatusWalk();
    void updateIpToMac(const Vela::Ptr<RemoteIpToMac>& ipToMac);

    void addMacToIp(const VlanIdMacAddress& vlanIdMacAddress, const Zinc::IpGenAddr& ipAddress);
    void delMacToIp(const VlanIdMacAddress& vlanIdMacAddress, const Zinc::IpGenAddr& ipAddress);
    struct Added {
        bool create;
        bool activeLocalChanged;
    };
    Added addIpToMac(const VrfIpAddress& vrfIpAddress, const VlanIdMacAddress& vlanIdMacAddress,
                     bool localMultihomed);
    void delIpToMac(const Vela::Ptr<RemoteIpToMac>& ipToMac,
                    const VlanIdMacAddress& vlanIdMacAddress);
    void addVlanBinding(Bridging::VlanId vlanId);
    void delVlanBinding(Bridging::VlanId vlanId, int32_t count);
    void notifyVrfIpAddressChange(const VrfIpAddress& vrfIpAddress);

    const Vela::Ptr<const RemoteBindingConfig> remoteBindingConfig_;
    const Vela::Ptr<const Quarry::MountGroup> remoteBindingConfigMountGroup_;
    const Vela::Ptr<const VlanL3InfoStatus> vlanL3InfoStatus_;
    const Vela::Ptr<RemoteBindingStatus> remoteBindingStatus_;
    WalkStage walkStage_ = WalkStage::remoteBindingConfigWalk;
    RemoteBindingKey remoteBindingConfigBookmark_;
    VrfIpAddress remoteBindingStatusBookmark_;
    KnownBindingTable knownBinding_;
    VlanBindingCountCollection vlanBindingCount_;
    bool configReady_ = false;
    bool vlansChanged_ = false;            // since the walk began: it starts over
    std::set<Bridging::VlanId> vlansLost_; // without L3 information for a while since the last walk
    Vela::Reaction readyReaction_;
    Vela::Reaction remoteBindingReaction_;
    Vela::Reaction vlanL3InfoReaction_;
};

const char* stringValue(RemoteBindingStatusSm::WalkStage stage);
inline std::ostream& operator<<(std::ostream& out, RemoteBindingStatusSm::WalkStage stage) {
    return out << stringValue(stage);
}

} // namespace ArpSuppression
