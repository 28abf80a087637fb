#pragma once

#include "ArpSuppression/ArpInputConfigTrigger.h"
#include "ArpSuppression/ArpSuppression.h"
#include "ArpSuppression/LocalBinding.h"
#include "ArpSuppression/RemoteBindingStatus.h"
#include "Platform/Model/Arp/InputConfig.h"
#include "Platform/Model/Arp/TableStatus.h"
#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"
#include "Platform/Model/Routing/L2Vpn/Config.h"
#include "Platform/Scheduler/WalkSmBase.h"
#include "Platform/State/HashTable.h"

#include <compare>
#include <cstdint>
#include <optional>
#include <ostream>

namespace ArpSuppression {

bool toggleEvpnMplsProxyArpRefreshEnabled();

/// An IPv4 address in a VRF: a VrfIpAddress that never has an interface, in half the space.
class VrfIpv4Address {
  public:
    explicit VrfIpv4Address(const VrfIpAddress& address)
        : vrfInfo_(address.vrfInfo()), address_(address.ipAddress().v4()) {}

    const Vela::Ptr<VrfInfo>& vrfInfo() const { return vrfInfo_; }
    Zinc::IpGenAddr ipAddress() const { return Zinc::IpGenAddr(address_); }
    VrfIpAddress vrfIpAddress() const { return {vrfInfo_, ipAddress()}; }

    friend bool operator==(const VrfIpv4Address&, const VrfIpv4Address&) = default;
    friend std::strong_ordering operator<=>(const VrfIpv4Address& a, const VrfIpv4Address& b);
    uint64_t hash(uint64_t seed) const;

  private:
    Vela::Ptr<VrfInfo> vrfInfo_;
    uint32_t address_;
};

/// Writes the neighbour entries that the kernel is to have. An address gets the entry of its local
/// binding while the kernel knows the neighbour itself: dynamic. Otherwise it gets that of its
/// remote binding: permanent. Otherwise it has none, but for one whose remote binding has just
/// gone: its entry turns dynamic, and the kernel finds out at once whether the host is still there.
///
/// Each change of a binding or of the kernel's entry is followed by itself. A walk goes over the
/// local bindings and the remote ones, and, once both are known to be complete, over the entries:
/// what an earlier run left is confirmed in place, or removed. When the machine's life ends it
/// withdraws everything.
class ArpInputConfigSm final : public Vela::WalkSmBase {
  public:
    /// Text form: the name of the enumerator.
    enum class WalkStage : uint8_t {
        walkLocalBindingRecord = 0,
        walkRemoteBindingStatus = 1,
        walkArpInputConfig = 2,
        walkComplete = 3,
    };

    // A million addresses may be in the first of these, and nobody is told of changes.
    using IntfIdTable = Vela::HashTable<Vela::PairLayout<VrfIpv4Address, Zinc::IntfId>>;
    static_assert(sizeof(IntfIdTable::Node) <= 40); // what fits into 48 bytes of heap
    using HostTable = Vela::HashTable<Vela::PairLayout<VrfIpAddress, VlanIdMacAddress>>;

    /// All of them must be there. Entries carry the input configuration's source.
    ArpInputConfigSm(Vela::Ptr<Vela::TaskScheduler> scheduler,
                     Vela::Ptr<const Routing::L2Vpn::Config> l2VpnConfig,
                     Vela::Ptr<LocalBindingRecord> localBindingRecord,
                     Vela::Ptr<const RemoteBindingStatus> remoteBindingStatus,
                     Vela::Ptr<const ArpInputConfigTrigger> arpInputConfigTrigger,
                     Vela::Ptr<const VlanL3InfoStatus> vlanL3InfoStatus,
                     Vela::Ptr<const Arp::Table::Status> arpStatus,
                     Vela::Ptr<Arp::InputConfig> arpInputConfig,
                     Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus);

    const char* typeName() const noexcept override { return "ArpInputConfigSm"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    WalkStage walkStage() const { return walkStage_; }
    void walkStageIs(WalkStage stage) { walkStage_ = stage; }
    /// Where the walks go on; empty: at the start.
    const VrfIpAddress& localBindingRecordBookmark() const { return localBindingRecordBookmark_; }
    const VrfIpAddress& remoteBindingStatusBookmark() const { return remoteBindingStatusBookmark_; }
    const ArpInputConfigBookmark& arpInputConfigBookmark() const { return arpInputConfigBookmark_; }

    /// The interface under which an IPv4 address has its entry.
    const IntfIdTable& ipv4VlanIntfIdShadowCollection() const { return ipv4VlanIntfIdShadow_; }
    /// Remote bindings of hosts that are multihomed to this switch.
    const HostTable& localMultihomedRemoteBindingCollection() const {
        return localMultihomedRemoteBinding_;
    }

  protected:
    void handleInitialized() override;
    void handleDestroy() noexcept override;
    Vela::WalkRet walk() override;
    void traceEvent(Vela::TraceEvent event) override;

  private:
    void handleRemoteBinding();
    void handleArpInputConfigTrigger();
    void handleArpStatus(const Arp::Table::ArpKey& key);
    void handleVrfInfo(const L3::VrfName& vrfName);

    // In ArpInputConfigSmWalks.cpp.
    Vela::WalkRet localBindingRecordWalk();
    Vela::WalkRet remoteBindingStatusWalk();
    Vela::WalkRet arpInputConfigWalk();
    uint32_t walkVrfs();
    uint32_t walkVrf(const L3::VrfName& vrfName, const Vela::Ptr<Arp::InputConfigVrf>& vrf,
                     std::optional<Arp::InputConfigKey>& bookmark);
    uint32_t walkShadow();

    /// What decides about an address; `departed` is the host that its remote binding had until
    /// now.
    void updateVrfIpAddress(const VrfIpAddress& vrfIpAddress, bool suppressionEvent,
                            const VlanIdMacAddress& departed = {});
    void updateLocalMultihomedRemoteBindings(const VrfIpAddress& vrfIpAddress);
    bool updateWithLocalBinding(const VrfIpAddress& vrfIpAddress);
    bool selectiveInstall(const VrfIpAddress& vrfIpAddress);
    bool updateWithRemoteBinding(const VrfIpAddress& vrfIpAddress,
                                 const VlanIdMacAddress& vlanIdMacAddress, bool onlyUpdate);
    VlanIdMacAddress departedHost(const VrfIpAddress& vrfIpAddress) const;

    /// Returns whether it wrote.
    bool updateEntry(Arp::ArpType::ArpTypeId type, const VrfIpAddress& vrfIpAddress,
                     bool onlyUpdate, const VlanIdMacAddress& vlanIdMacAddress, bool refresh);
    void deleteEntry(const VrfIpAddress& vrfIpAddress);
    bool deleteEntry(const Vela::Ptr<Arp::InputConfigVrf>& vrf, const Arp::InputConfigKey& key);

    Vela::Ptr<VlanL3Info> vlanL3Info(Bridging::VlanId vlanId, const VrfIpAddress& vrfIpAddress);
    Arp::InputConfigKey entryKey(const VrfIpAddress& vrfIpAddress) const;
    void ipv4VlanIntfIdShadowIs(const VrfIpAddress& vrfIpAddress, Zinc::IntfId intfId);
    void ipv4VlanIntfIdShadowDel(const VrfIpAddress& vrfIpAddress);
    Zinc::IntfId ipv4VlanIntfIdShadow(const VrfIpAddress& vrfIpAddress) const;
    void count(ArpSuppressionCounterId id) { arpSuppressionCounterStatus_->increment(id); }

    const Vela::Ptr<const Routing::L2Vpn::Config> l2VpnConfig_;
    const Vela::Ptr<LocalBindingRecord> localBindingRecord_;
    const Vela::Ptr<const RemoteBindingStatus> remoteBindingStatus_;
    const Vela::Ptr<const ArpInputConfigTrigger> arpInputConfigTrigger_;
    const Vela::Ptr<const VlanL3InfoStatus> vlanL3InfoStatus_;
    const Vela::Ptr<const Arp::Table::Status> arpStatus_;
    const Vela::Ptr<Arp::InputConfig> arpInputConfig_;
    const Vela::Ptr<ArpSuppressionCounterStatus> arpSuppressionCounterStatus_;
    WalkStage walkStage_ = WalkStage::walkLocalBindingRecord;
    VrfIpAddress localBindingRecordBookmark_;
    VrfIpAddress remoteBindingStatusBookmark_;
    ArpInputConfigBookmark arpInputConfigBookmark_;
    std::optional<VrfIpv4Address> shadowBookmark_; // set only while the walk is in the shadow
    bool vrfEnded_ = false;                        // since the walk was last through the shadow
    IntfIdTable ipv4VlanIntfIdShadow_;
    HostTable localMultihomedRemoteBinding_;
    Vela::Reaction remoteBinding_;
    Vela::Reaction localBinding_;
    Vela::Reaction arpEntry_;
    Vela::Reaction neighborEntry_;
    Vela::Reaction trigger_;
    Vela::Reaction statusSync_;
    Vela::Reaction populationComplete_;
    Vela::Reaction vrfInfo_;
};

const char* stringValue(ArpInputConfigSm::WalkStage stage);
inline std::ostream& operator<<(std::ostream& out, ArpInputConfigSm::WalkStage stage) {
    return out << stringValue(stage);
}

} // namespace ArpSuppression
