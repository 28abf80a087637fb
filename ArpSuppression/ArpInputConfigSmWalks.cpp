// The writer's walks: over the local and the remote bindings, and then over what is asked for.

#include "ArpSuppression/ArpInputConfigSm.h"
#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Base/Assert.h"

#include <utility>

namespace ArpSuppression {

Vela::WalkRet ArpInputConfigSm::walk() {
    TRACE(trace, 8, this, "walkStage=" << walkStage_);
    switch (walkStage_) {
    case WalkStage::walkLocalBindingRecord:
        return localBindingRecordWalk();
    case WalkStage::walkRemoteBindingStatus:
        return remoteBindingStatusWalk();
    case WalkStage::walkArpInputConfig:
        return arpInputConfigWalk();
    case WalkStage::walkComplete:
        return {0, 0};
    }
    Vela::failAssertion("false");
}

Vela::WalkRet ArpInputConfigSm::localBindingRecordWalk() {
    uint32_t count = walkCollection(
        localBindingRecord_->bindingCollection(), localBindingRecordBookmark_,
        [this](const VrfIpAddress& address, const auto&) { updateVrfIpAddress(address, false); });
    bool done = !localBindingRecordBookmark_;
    TRACE(trace, 8, this, "finished processed=" << count << " done=" << done);
    if (done) {
        walkStage_ = WalkStage::walkRemoteBindingStatus;
    }
    return {1, count};
}

Vela::WalkRet ArpInputConfigSm::remoteBindingStatusWalk() {
    uint32_t count = walkCollection(
        remoteBindingStatus_->ipToMacCollection(), remoteBindingStatusBookmark_,
        [this](const VrfIpAddress& address, const auto&) { updateVrfIpAddress(address, false); });
    bool done = !remoteBindingStatusBookmark_;
    TRACE(trace, 8, this, "finished processed=" << count << " done=" << done);
    if (done) {
        walkStage_ = WalkStage::walkArpInputConfig;
    }
    return {1, count};
}

/// What no binding supports is removed: not before all bindings are known.
Vela::WalkRet ArpInputConfigSm::arpInputConfigWalk() {
    if (!vlanL3InfoStatus_->initialArpSuppressionStatusSync() ||
        !remoteBindingStatus_->initialPopulationComplete()) {
        return {0, 0};
    }
    uint32_t count = 0;
    if (!shadowBookmark_) {
        count = walkVrfs();
        TRACE(trace, 8, this,
              "finished processed=" << count << " done=" << !arpInputConfigBookmark_);
    }
    if (vrfEnded_ && !arpInputConfigBookmark_ && !destroyed()) {
        count += walkShadow();
        vrfEnded_ = shadowBookmark_.has_value();
    }
    if (!arpInputConfigBookmark_ && !shadowBookmark_) {
        walkStage_ = WalkStage::walkComplete;
    }
    return {1, count};
}

uint32_t ArpInputConfigSm::walkVrfs() {
    const auto start = std::exchange(arpInputConfigBookmark_, {});
    const auto& vrfs = arpInputConfig_->vrfCollection();
    uint32_t count = 0;
    auto vrf = start ? vrfs.atOrAfter(start.vrfName()) : vrfs.first();
    while (vrf) {
        std::optional<Arp::InputConfigKey> entry;
        if (!start.ipAddress().isUnset() && vrf.key() == L3::VrfName(start.vrfName())) {
            entry = {start.ipAddress(), start.intfId()};
        }
        count += walkVrf(vrf.key(), Vela::Ptr<Arp::InputConfigVrf>(vrf.value()), entry);
        if (destroyed()) {
            break;
        }
        if (entry) {
            arpInputConfigBookmark_ = {vrf.key().bytes(), entry->ipAddress(), entry->intfId()};
            break;
        }
        ++vrf;
        if (vrf && mustYield()) {
            arpInputConfigBookmark_ = {vrf.key().bytes(), {}, {}};
            break;
        }
    }
    return count;
}

/// The IPv4 entries and then the IPv6 entries, from the bookmark; empty at the end.
uint32_t ArpInputConfigSm::walkVrf(const L3::VrfName& vrfName,
                                   const Vela::Ptr<Arp::InputConfigVrf>& vrf,
                                   std::optional<Arp::InputConfigKey>& bookmark) {
    const Vela::Ptr<VrfInfo> vrfInfo = vlanL3InfoStatus_->vrfInfo(vrfName);
    auto confirm = [&](const Arp::InputConfigKey& key, const Arp::InputConfigEntry&) {
        if (!vrfInfo) {
            deleteEntry(vrf, key);
        } else if (key.ipAddress().af() == Zinc::ipv4()) {
            const VrfIpAddress address(vrfInfo, key.ipAddress());
            ipv4VlanIntfIdShadowIs(address, key.intfId());
            updateVrfIpAddress(address, false);
        } else {
            updateVrfIpAddress({vrfInfo, key.ipAddress(), key.intfId()}, false);
        }
    };
    uint32_t count = 0;
    if (!bookmark || bookmark->ipAddress().af() == Zinc::ipv4()) {
        count = walkCollection(vrf->ipv4EntryCollection(), bookmark, confirm);
        if (bookmark) {
            TRACE(trace, 8, this, "ipv4 walk suspended");
            return count;
        }
    }
    auto firstOfIpv6 = vrf->ipv6EntryCollection().first();
    if (firstOfIpv6 && count > 0 && mustYield()) {
        bookmark = firstOfIpv6.key();
    } else {
        count += walkCollection(vrf->ipv6EntryCollection(), bookmark, confirm);
    }
    if (bookmark) {
        TRACE(trace, 8, this, "ipv6 walk suspended");
        return count;
    }
    const bool empty = vrf->ipv4Entries() == 0 && vrf->ipv6Entries() == 0;
    if (!destroyed() && empty && arpInputConfig_->vrf(vrfName) == vrf) {
        TRACE(trace, 8, this, "Cleaned up VRF vrfName=" << vrfName);
        arpInputConfig_->vrfDel(vrfName);
    }
    return count;
}

/// An address of a VRF that has ended is nobody's any more, even where the VRF has come back.
uint32_t ArpInputConfigSm::walkShadow() {
    return walkCollection(ipv4VlanIntfIdShadow_, shadowBookmark_,
                          [this](const VrfIpv4Address& address, const auto&) {
                              if (address.vrfInfo()->destroyed()) {
                                  ipv4VlanIntfIdShadow_.erase(address);
                              }
                          });
}

} // namespace ArpSuppression
