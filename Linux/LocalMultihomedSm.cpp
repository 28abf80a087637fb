#include "Linux/LocalMultihomedSm.h"

#include "Platform/State/DumpContext.h"

#include <utility>

namespace Linux {

namespace {

uint64_t number(const Bridging::HostKey& host) {
    uint64_t number = host.fid.value();
    for (uint8_t byte : host.macAddress.bytes()) {
        number = number << 8 | byte;
    }
    return number;
}

} // namespace

LocalMultihomedSm::LocalMultihomedSm(
    Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::Ptr<const Topology> topology,
    Vela::Ptr<const Bridging::Config> bridgingConfig,
    Vela::Ptr<const Quarry::Bridging::Status> bridgingStatus,
    Vela::Ptr<ArpSuppression::RemoteBindingConfig> remoteBindingConfig,
    Vela::Ptr<const ConfiguredBindings> configuredBindings)
    : WalkSmBase(std::move(scheduler), 3, "LocalMultihomedSm"), topology_(std::move(topology)),
      bridgingConfig_(std::move(bridgingConfig)), bridgingStatus_(std::move(bridgingStatus)),
      remoteBindingConfig_(std::move(remoteBindingConfig)),
      configuredBindings_(std::move(configuredBindings)) {
    portReaction_ = topology_->bridgePortCollection().react(this, [this](uint32_t) {
        segmentPortStale_ = true; // many ports change together: look at them once
        scheduleWalk();
    });
    fidReaction_ = bridgingConfig_->vlanToFidCollection().react(this, [this](Bridging::VlanId) {
        moved_ = {.all = true, .some = {}};
        scheduleWalk();
    });
}

void LocalMultihomedSm::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent,
                  "Linux::LocalMultihomedSm segmentPorts=%zu moved=%zu all=%d walks=%llu "
                  "changed=%llu\n",
                  segmentPort_.size(), moved_.some.size(), moved_.all,
                  static_cast<unsigned long long>(walks_),
                  static_cast<unsigned long long>(changed_));
}

const std::set<Zinc::IntfId>& LocalMultihomedSm::segmentPort() {
    if (std::exchange(segmentPortStale_, false)) {
        std::set<Zinc::IntfId> before = std::exchange(segmentPort_, {});
        for (auto port = topology_->bridgePortCollection().first(); port; ++port) {
            if (port.value().ethernetSegment && port.value().intfId && !port.value().tunnel) {
                segmentPort_.insert(port.value().intfId);
            }
        }
        if (segmentPort_ != before) {
            moved_ = {.all = true, .some = {}};
            scheduleWalk();
        }
    }
    return segmentPort_;
}

bool LocalMultihomedSm::onSegment(const Bridging::QuarryFdbStatus& entry) {
    return Bridging::isEntryTypeLocal(entry.entryType) && segmentPort().contains(entry.intf);
}

bool LocalMultihomedSm::localMultihomed(Bridging::VlanId vlanId, const Zinc::EthAddr& macAddress) {
    return segmentPorts() &&
           onSegment(bridgingStatus_->quarryFdbStatus({bridgingConfig_->fid(vlanId), macAddress}));
}

void LocalMultihomedSm::hostMoved(const Bridging::HostKey& host) {
    if (!moved_.all) {
        moved_.some.insert(number(host));
        if (moved_.some.size() > mostHosts) {
            moved_ = {.all = true, .some = {}};
        }
    }
    scheduleWalk();
}

bool LocalMultihomedSm::walkStartedNotification() {
    segmentPort();
    walking_ = std::exchange(moved_, {});
    bookmark_.reset();
    if (!walking_.all && walking_.some.empty()) {
        return false;
    }
    ++walks_;
    return true;
}

Vela::WalkRet LocalMultihomedSm::walk() {
    uint32_t count = walkCollection(
        remoteBindingConfig_->remoteBindingCollection(), bookmark_,
        [this](const auto&, const ArpSuppression::RemoteBinding& binding) { look(binding); });
    if (!bookmark_) {
        walking_ = {};
    }
    return {bookmark_ ? 1u : 0u, count};
}

void LocalMultihomedSm::look(const ArpSuppression::RemoteBinding& binding) {
    Bridging::HostKey host{bridgingConfig_->fid(binding.key.vlanId()), binding.macAddress};
    if ((!walking_.all && !walking_.some.contains(number(host))) ||
        configuredBindings_->keyHas(binding.key)) {
        return;
    }
    bool multihomed = localMultihomed(binding.key.vlanId(), binding.macAddress);
    if (binding.localMultihomed != multihomed) {
        ArpSuppression::RemoteBinding changed = binding;
        changed.localMultihomed = multihomed;
        remoteBindingConfig_->remoteBindingIs(changed);
        ++changed_;
    }
}

} // namespace Linux
