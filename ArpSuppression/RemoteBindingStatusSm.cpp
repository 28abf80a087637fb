#include "ArpSuppression/RemoteBindingStatusSm.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Base/Assert.h"
#include "Platform/Base/Errors.h"
#include "Platform/State/DumpContext.h"

#include <array>
#include <cstddef>
#include <utility>

namespace ArpSuppression {

using Vela::assertThat;

const char* stringValue(RemoteBindingStatusSm::WalkStage stage) {
    constexpr std::array<const char*, 2> names = {"remoteBindingConfigWalk",
                                                  "remoteBindingStatusWalk"};
    auto value = static_cast<size_t>(stage);
    return value < names.size() ? names[value] : "?";
}

RemoteBindingStatusSm::RemoteBindingStatusSm(
    Vela::Ptr<Vela::TaskScheduler> scheduler,
    Vela::Ptr<const RemoteBindingConfig> remoteBindingConfig,
    Vela::Ptr<const Quarry::MountGroup> remoteBindingConfigMountGroup,
    Vela::Ptr<const VlanL3InfoStatus> vlanL3InfoStatus,
    Vela::Ptr<RemoteBindingStatus> remoteBindingStatus)
    : WalkSmBase(std::move(scheduler), 3, "RemoteBindingStatusSm"),
      remoteBindingConfig_(std::move(remoteBindingConfig)),
      remoteBindingConfigMountGroup_(std::move(remoteBindingConfigMountGroup)),
      vlanL3InfoStatus_(std::move(vlanL3InfoStatus)),
      remoteBindingStatus_(std::move(remoteBindingStatus)) {}

// The first walk waits for the configuration.
void RemoteBindingStatusSm::handleInitialized() {
    TRACE(trace, 8, this, "handleInitialized");
    handleRemoteBindingReady();
    readyReaction_ = remoteBindingConfigMountGroup_->readyAttribute().react(
        this, [this] { handleRemoteBindingReady(); });
    vlanL3InfoReaction_ = vlanL3InfoStatus_->vlanL3InfoCollection().react(
        this, [this](Bridging::VlanId vlanId) { handleVlanL3Info(vlanId); });
}

void RemoteBindingStatusSm::handleDestroy() noexcept {
    TRACE(trace, 8, this, "handleDestroy");
}

void RemoteBindingStatusSm::handleRemoteBindingReady() {
    assertThat(remoteBindingConfigMountGroup_ != nullptr, "remoteBindingConfigMountGroup()");
    bool mountReady = remoteBindingConfigMountGroup_->ready();
    TRACE(trace, 8, this, "configReady:" << configReady_ << " mountReady:" << mountReady);
    if (!configReady_ && mountReady) {
        configReady_ = true;
        remoteBindingReaction_ = remoteBindingConfig_->remoteBindingCollection().react(
            this, [this](const RemoteBindingKey& key) { handleRemoteBinding(key); });
        scheduleWalk();
    }
}

/// What has been filed by address is filed under the VLAN's old VRF, or not at all.
void RemoteBindingStatusSm::handleVlanL3Info(Bridging::VlanId vlanId) {
    int32_t count = vlanBindingCount(vlanId);
    TRACE(trace, 8, this,
          "vlanId=" << vlanId << " count=" << count << " initialPopulationComplete="
                    << remoteBindingStatus_->initialPopulationComplete());
    if (count != 0) {
        vlansChanged_ = true;
        if (!vlanL3InfoStatus_->vlanL3Info(vlanId)) {
            vlansLost_.insert(vlanId);
        }
        scheduleWalk();
    }
}

// Walks

bool RemoteBindingStatusSm::walkStartedNotification() {
    vlansChanged_ = false;
    walkStage_ = WalkStage::remoteBindingConfigWalk;
    remoteBindingConfigBookmark_ = {};
    remoteBindingStatusBookmark_ = {};
    return true;
}

Vela::WalkRet RemoteBindingStatusSm::walk() {
    TRACE(trace, 8, this, "walkStage=" << walkStage_);
    switch (walkStage_) {
    case WalkStage::remoteBindingConfigWalk:
        return remoteBindingConfigWalk();
    case WalkStage::remoteBindingStatusWalk:
        return remoteBindingStatusWalk();
    }
    Vela::failAssertion("false");
}

Vela::WalkRet RemoteBindingStatusSm::remoteBindingConfigWalk() {
    TRACE(trace, 8, this, "remoteBindingConfigBookmark=" << remoteBindingConfigBookmark_);
    BindingsAhead ahead;
    uint32_t count = walkCollection(remoteBindingConfig_->remoteBindingCollection(),
                                    remoteBindingConfigBookmark_,
                                    [&](const RemoteBindingKey&, const RemoteBinding& binding) {
                                        ahead.bindings[ahead.count++] = binding;
                                        if (ahead.count == ahead.bindings.size()) {
                                            handleBindings(ahead);
                                        }
                                    });
    handleBindings(ahead);
    if (destroyed()) {
        return {0, count};
    }
    bool done = !remoteBindingConfigBookmark_;
    TRACE(trace, 8, this, "finished processed=" << count << " done=" << done);
    if (done) {
        // A binding may have brought its VLAN to L3 information, and is not filed by address yet:
        // who takes that for complete would withdraw what it supports.
        if (!vlansChanged_) {
            remoteBindingStatus_->initialPopulationCompleteIs(true);
        }
        walkStage_ = WalkStage::remoteBindingStatusWalk;
    }
    return {1, count};
}

/// The tables of a million bindings lie outside the caches. What a few bindings need of them is
/// asked for together, so that it is waited for once and not for each.
void RemoteBindingStatusSm::handleBindings(BindingsAhead& ahead) {
    struct Fetched {
        uint32_t known;
        uint32_t macToIp;
        uint32_t ipToMac;
    };
    std::array<Fetched, BindingsAhead::most> fetched;
    const size_t count = std::exchange(ahead.count, 0);
    for (size_t i = 0; i < count; ++i) {
        const auto& [key, macAddress, vxlan, localMultihomed] = ahead.bindings[i];
        auto vlanL3Info = vlanL3InfoStatus_->vlanL3Info(key.vlanId());
        fetched[i] = {
            knownBinding_.fetchSlot(key),
            remoteBindingStatus_->macToIpCollection().fetchSlot({key.vlanId(), macAddress}),
            remoteBindingStatus_->ipToMacCollection().fetchSlot(
                VrfIpAddress::fromVlanL3Info(vlanL3Info, key.ipAddress()))};
    }
    for (size_t i = 0; i < count; ++i) {
        knownBinding_.fetchNode(fetched[i].known);
        remoteBindingStatus_->macToIpCollection().fetchNode(fetched[i].macToIp);
        remoteBindingStatus_->ipToMacCollection().fetchNode(fetched[i].ipToMac);
    }
    for (size_t i = 0; i < count && !destroyed(); ++i) {
        handleRemoteBinding(ahead.bindings[i].key);
    }
}

Vela::WalkRet RemoteBindingStatusSm::remoteBindingStatusWalk() {
    TRACE(trace, 8, this, "remoteBindingStatusBookmark=" << remoteBindingStatusBookmark_);
    uint32_t count = walkCollection(
        remoteBindingStatus_->ipToMacCollection(), remoteBindingStatusBookmark_,
        [this](const VrfIpAddress&, const Vela::Ptr<RemoteIpToMac>& ipToMac) {
            updateIpToMac(Vela::Ptr<RemoteIpToMac>(ipToMac)); // which may take it out of the table
        });
    bool done = !remoteBindingStatusBookmark_;
    TRACE(trace, 8, this, "finished processed=" << count << " done=" << done);
    return {done ? 0u : 1u, count};
}

void RemoteBindingStatusSm::traceEvent(Vela::TraceEvent event) {
    TRACE(trace, 8, this, "traceEvent=" << toString(event));
}

// One binding

/// Files a binding as the configuration has it now. A change is announced where it happens, with
/// two hosts at an address that moves from one to the other; whoever is told may end this machine.
void RemoteBindingStatusSm::handleRemoteBinding(const RemoteBindingKey& key) {
    const Bridging::VlanId vlanId = key.vlanId();
    const Zinc::IpGenAddr& ipAddress = key.ipAddress();
    const RemoteBinding binding = remoteBindingConfig_->remoteBinding(key);
    const VlanIdMacAddress newHost(vlanId, binding.macAddress);
    const VlanIdMacAddress oldHost(vlanId, knownMacAddress(key));
    const bool present = !newHost.macAddress().isZero();
    const bool known = !oldHost.macAddress().isZero();
    const bool moved = newHost != oldHost;
    const int32_t count = vlanBindingCount(vlanId);
    TRACE(trace, 8, this,
          "remoteBindingKey=" << key << " newMac=" << newHost.macAddress()
                              << " oldMac=" << oldHost.macAddress() << " count=" << count);
    const auto vrfIpAddress =
        VrfIpAddress::fromVlanL3Info(vlanL3InfoStatus_->vlanL3Info(vlanId), ipAddress);
    const bool hasVrf = vrfIpAddress.vrfInfo() != nullptr;

    if (present) {
        *knownBinding_.findOrInsert(key, [&] { return binding; }).first = binding;
        if (moved) {
            addMacToIp(newHost, ipAddress);
        }
        if (hasVrf) {
            // Also a binding that has not moved: its VLAN may have come to L3 information only
            // now, and the host to a segment of ours. Where the VLAN was without for a while, who
            // looked at the address meanwhile has to look again.
            auto [create, changed] = addIpToMac(vrfIpAddress, newHost, binding.localMultihomed);
            if (moved || changed || vlansLost_.contains(vlanId)) {
                TRACE(trace, 8, this,
                      "add ipToMac vrfIpAddress=" << vrfIpAddress << " newVlanIdMacAddress="
                                                  << newHost << " create=" << create
                                                  << " activeLocalChanged=" << changed);
                notifyVrfIpAddressChange(vrfIpAddress);
            }
        }
        if (!known && !destroyed()) {
            addVlanBinding(vlanId);
        }
    }
    if (known && moved && !destroyed()) {
        delMacToIp(oldHost, ipAddress);
        auto ipToMac = hasVrf ? remoteBindingStatus_->ipToMac(vrfIpAddress) : nullptr;
        if (ipToMac) {
            TRACE(trace, 8, this,
                  "delete ipToMac=" << ipToMac << " oldVlanIdMacAddress=" << oldHost);
            delIpToMac(ipToMac, oldHost);
            notifyVrfIpAddressChange(vrfIpAddress);
        }
    }
    if (known && !present && !destroyed()) {
        knownBinding_.erase(key);
        delVlanBinding(vlanId, count);
    }
}

/// Files each host of an address anew where that is not its VLAN's any more: a VLAN may have moved
/// to another VRF, or lost its L3 information, and a binding may have gone after that.
void RemoteBindingStatusSm::updateIpToMac(const Vela::Ptr<RemoteIpToMac>& ipToMac) {
    const VrfIpAddress vrfIpAddress = ipToMac->vrfIpAddress();
    const Zinc::IpGenAddr& ipAddress = vrfIpAddress.ipAddress();
    for (size_t i = 0; i < ipToMac->vlanIdMacAddresses() && !destroyed();) {
        const VlanIdMacAddress host = ipToMac->vlanIdMacAddressCollection()[i].vlanIdMacAddress;
        const auto vlanL3Info = vlanL3InfoStatus_->vlanL3Info(host.vlanId());
        const auto newVrfIpAddress = VrfIpAddress::fromVlanL3Info(vlanL3Info, ipAddress);
        const RemoteBinding* known = knownBinding_.find({host.vlanId(), ipAddress});
        const RemoteBinding binding = known ? *known : RemoteBinding();
        TRACE(trace, 8, this,
              "ipToMac=" << ipToMac << " vlanL3Info=" << vlanL3Info << " newVrf="
                         << newVrfIpAddress.vrfInfo() << " remoteBinding=" << binding);
        const bool bound = binding.macAddress == host.macAddress();
        if (bound && newVrfIpAddress == vrfIpAddress) {
            ++i;
            continue;
        }
        TRACE(trace, 8, this, "delete ipToMac=" << ipToMac << " vlanIdMacAddress=" << host);
        delIpToMac(ipToMac, host); // the next one moves up
        const bool moves = bound && newVrfIpAddress.vrfInfo();
        if (moves) {
            auto [create, changed] = addIpToMac(newVrfIpAddress, host, binding.localMultihomed);
            TRACE(trace, 8, this,
                  "add ipToMac newVrfIpAddress=" << newVrfIpAddress << " vlanIdMacAddress=" << host
                                                 << " create=" << create
                                                 << " activeLocalChanged=" << changed);
        }
        notifyVrfIpAddressChange(vrfIpAddress);
        if (moves) {
            notifyVrfIpAddressChange(newVrfIpAddress);
        }
    }
}

void RemoteBindingStatusSm::addMacToIp(const VlanIdMacAddress& vlanIdMacAddress,
                                       const Zinc::IpGenAddr& ipAddress) {
    TRACE(trace, 8, this,
          "add macToIp newVlanIdMacAddress=" << vlanIdMacAddress << " ipAddress=" << ipAddress);
    auto macToIp = remoteBindingStatus_->macToIpIs(vlanIdMacAddress);
    assertThat(!macToIp->ipAddressHas(ipAddress), "!macToIp->ipAddressHas( ipAddress )");
    macToIp->ipAddressIs(ipAddress);
}

void RemoteBindingStatusSm::delMacToIp(const VlanIdMacAddress& vlanIdMacAddress,
                                       const Zinc::IpGenAddr& ipAddress) {
    auto macToIp = remoteBindingStatus_->macToIp(vlanIdMacAddress);
    assertThat(nullptr != macToIp, "nullptr != macToIp");
    assertThat(macToIp->ipAddressHas(ipAddress), "macToIp->ipAddressHas( ipAddress )");
    TRACE(trace, 8, this, "delete macToIp=" << macToIp << " ipAddress=" << ipAddress);
    macToIp->ipAddressDel(ipAddress);
    if (macToIp->ipAddresses() == 0) {
        remoteBindingStatus_->macToIpDel(vlanIdMacAddress);
    }
}

RemoteBindingStatusSm::Added
RemoteBindingStatusSm::addIpToMac(const VrfIpAddress& vrfIpAddress,
                                  const VlanIdMacAddress& vlanIdMacAddress, bool localMultihomed) {
    auto ipToMac = remoteBindingStatus_->ipToMacIs(vrfIpAddress);
    bool create = ipToMac->vlanIdMacAddresses() == 0; // no empty one stays
    if (create) {
        remoteBindingStatus_->referenceVrf(vrfIpAddress.vrfInfo());
    }
    return {create, ipToMac->vlanIdMacAddressIs(vlanIdMacAddress, localMultihomed)};
}

void RemoteBindingStatusSm::delIpToMac(const Vela::Ptr<RemoteIpToMac>& ipToMac,
                                       const VlanIdMacAddress& vlanIdMacAddress) {
    ipToMac->vlanIdMacAddressDel(vlanIdMacAddress);
    if (ipToMac->vlanIdMacAddresses() == 0) {
        remoteBindingStatus_->ipToMacDel(ipToMac->vrfIpAddress());
        remoteBindingStatus_->releaseVrf(ipToMac->vrfIpAddress().vrfInfo());
    }
}

void RemoteBindingStatusSm::notifyVrfIpAddressChange(const VrfIpAddress& vrfIpAddress) {
    if (remoteBindingStatus_->lastVrfIpAddressChange() == vrfIpAddress) {
        remoteBindingStatus_->lastVrfIpAddressChangeIs({});
    }
    remoteBindingStatus_->lastVrfIpAddressChangeIs(vrfIpAddress);
}

// Bindings per VLAN

Zinc::EthAddr RemoteBindingStatusSm::knownMacAddress(const RemoteBindingKey& key) const {
    const RemoteBinding* known = knownBinding_.find(key);
    return known ? known->macAddress : Zinc::EthAddr();
}

void RemoteBindingStatusSm::addVlanBinding(Bridging::VlanId vlanId) {
    if (vlanBindingCountInc(vlanId, 1) == 1) {
        TRACE(trace, 8, this, "add vlanId=" << vlanId);
        remoteBindingStatus_->vlanIdIs(vlanId);
    }
}

void RemoteBindingStatusSm::delVlanBinding(Bridging::VlanId vlanId, int32_t count) {
    if (count == 1) {
        TRACE(trace, 8, this, "del vlanId=" << vlanId);
        vlanBindingCountDel(vlanId);
        remoteBindingStatus_->vlanIdDel(vlanId);
    } else {
        vlanBindingCountDec(vlanId, 1);
    }
}

int32_t RemoteBindingStatusSm::vlanBindingCount(Bridging::VlanId vlanId) const {
    int32_t count = vlanBindingCount_.value(vlanId);
    if (count < 0 || count >= 0x7FFFFFFF) {
        throw Vela::RangeError(
            "ArpSuppressionStatusSm::vlanBindingCount < 0 or >= 0x7FFFFFFF not allowed");
    }
    return count;
}

int32_t RemoteBindingStatusSm::vlanBindingCountInc(Bridging::VlanId vlanId, int32_t step) {
    int64_t count = int64_t{vlanBindingCount(vlanId)} + step;
    vlanBindingCountIs(vlanId, static_cast<int32_t>(count));
    return vlanBindingCount(vlanId);
}

int32_t RemoteBindingStatusSm::vlanBindingCountDec(Bridging::VlanId vlanId, int32_t step) {
    int64_t count = int64_t{vlanBindingCount(vlanId)} - step;
    vlanBindingCountIs(vlanId, static_cast<int32_t>(count));
    return vlanBindingCount(vlanId);
}

void RemoteBindingStatusSm::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "RemoteBindingStatusSm\n");
    indent += 2;
    // The stage and the bookmark share a line.
    context.print(indent, "walkStage=%s", stringValue(walkStage_));
    context.print(indent, "remoteBindingConfigBookmark=%s\n",
                  remoteBindingConfigBookmark_.toStrep().c_str());
    context.print(indent, "remoteBindingStatusBookmark=%s\n",
                  remoteBindingStatusBookmark_.toStrep().c_str());
    context.print(indent, "knownBinding[] #%zu\n", knownBinding_.size());
    for (auto known = knownBinding_.first(); known; ++known) {
        context.print(indent + 2, "%s\n", known.value().toStrep().c_str());
    }
    context.print(indent, "vlanBindingCount[] #%zu\n", vlanBindingCount_.count());
    for (auto count = vlanBindingCount_.first(); count; ++count) {
        context.print(indent + 2, "%u %d\n", count.key().value(), count.value());
    }
}

} // namespace ArpSuppression
