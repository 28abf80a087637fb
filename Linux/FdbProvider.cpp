#include "Linux/FdbProvider.h"

#include "Platform/State/DumpContext.h"

#include <linux/neighbour.h>
#include <map>
#include <sys/socket.h>
#include <utility>

namespace Linux {

using Bridging::EntryType;

const std::array<const char*, FdbProvider::reasons> FdbProvider::reasonName = {
    "malformed", "otherFamily", "ownTable", "noUnicast", "unknownPort", "stale"};

EntryType entryType(const BridgePort& port, const NeighborMessage& message) {
    bool isStatic = (message.state & NUD_NOARP) != 0;
    bool controlPlane = (message.flags & NTF_EXT_LEARNED) != 0;
    // Permanent entries are the bridge's own addresses, as are those behind the routed interface.
    if (message.removed || (message.state & NUD_PERMANENT) != 0 || port.routed) {
        return EntryType::none;
    }
    if (port.tunnel) {
        return isStatic       ? EntryType::evpnConfiguredRemote
               : controlPlane ? EntryType::evpnDynamicRemote
                              : EntryType::none;
    }
    if (controlPlane && port.ethernetSegment) {
        return EntryType::evpnLocalSegment;
    }
    return isStatic ? EntryType::configuredStatic : EntryType::learnedDynamic;
}

FdbProvider::FdbProvider(Vela::Ptr<Vela::TaskScheduler> scheduler,
                         Vela::Ptr<const Topology> topology,
                         Vela::Ptr<const Bridging::Config> bridgingConfig,
                         Vela::Ptr<Quarry::Bridging::Status> bridgingStatus,
                         Vela::Ptr<LocalMultihomedSm> localMultihomedSm,
                         std::function<void()> requestResync)
    : WalkSmBase(std::move(scheduler), 3, "FdbProvider"), topology_(std::move(topology)),
      bridgingConfig_(std::move(bridgingConfig)), bridgingStatus_(std::move(bridgingStatus)),
      localMultihomedSm_(std::move(localMultihomedSm)), requestResync_(std::move(requestResync)) {
    portReaction_ =
        topology_->bridgePortCollection().react(this, [this](uint32_t) { requestResync_(); });
    fidReaction_ = bridgingConfig_->vlanToFidCollection().react(
        this, [this](Bridging::VlanId) { requestResync_(); });
}

void FdbProvider::dumpState(Vela::DumpContext& context, int indent) const {
    auto number = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    context.print(indent,
                  "Linux::FdbProvider stage=%d marks=%zu messages=%llu resyncs=%llu "
                  "interrupted=%llu swept=%llu\n",
                  static_cast<int>(stage_), marks_.table().size(), number(messages_),
                  number(resyncs_), number(interrupted_), number(swept_));
    std::map<EntryType, uint64_t> entries;
    for (auto entry = bridgingStatus_->quarryFdbStatusCollection().first(); entry; ++entry) {
        ++entries[entry.value().entryType];
    }
    for (const auto& [type, count] : entries) {
        context.print(indent + 2, "entries[%s] %llu\n", Bridging::toStrep(type), number(count));
    }
    for (size_t reason = 0; reason < reasons; ++reason) {
        context.print(indent + 2, "ignored[%s] %llu\n", reasonName[reason],
                      number(ignored_[reason]));
    }
}

void FdbProvider::resyncStarted() {
    ++resyncs_;
    interrupted_ += stage_ != ResyncStage::none;
    marks_.start();
    stage_ = ResyncStage::dumping;
}

void FdbProvider::resyncFinished() {
    if (stage_ == ResyncStage::dumping) {
        stage_ = ResyncStage::dumped;
        scheduleWalk();
    }
}

void FdbProvider::message(const nlmsghdr& header) {
    ++messages_;
    if (auto message = decodeNeighbor(header)) {
        handle(*message);
    } else {
        ignore(Ignored::malformed);
    }
}

void FdbProvider::handle(const NeighborMessage& message) {
    if (message.family != AF_BRIDGE) {
        return ignore(Ignored::otherFamily);
    }
    if (message.flags & NTF_SELF) { // the device's, not the bridge's
        return ignore(Ignored::ownTable);
    }
    if (message.macAddress->isZero() || message.macAddress->isMulticast()) {
        return ignore(Ignored::noUnicast);
    }
    BridgePort port = topology_->bridgePort(message.ifIndex);
    if (!port.intfId) { // the bridge itself, with its own addresses, is none either
        return ignore(Ignored::unknownPort);
    }
    Bridging::HostKey key{bridgingConfig_->fid(port.vlanId), *message.macAddress};
    EntryType type = entryType(port, message);
    if (message.removed && bridgingStatus_->quarryFdbStatus(key).intf != port.intfId) {
        // Nothing of ours, or it has moved on. An event of its end outranks the dump all the same.
        if (stage_ != ResyncStage::none && !bridgingStatus_->quarryFdbStatusCollection().has(key)) {
            marks_.happened(key, false);
        }
        return ignore(Ignored::stale);
    }
    if (stage_ != ResyncStage::none) {
        if (!message.dumped) {
            marks_.happened(key, type != EntryType::none);
        } else if (!marks_.shown(key, type != EntryType::none)) {
            return ignore(Ignored::stale);
        }
    }
    if (type == EntryType::none) {
        entryDel(key);
    } else {
        entryIs({key, port.intfId, type});
    }
}

void FdbProvider::entryIs(const Bridging::QuarryFdbStatus& entry) {
    bool matters = localMultihomedSm_->segmentPorts();
    bool before =
        matters && localMultihomedSm_->onSegment(bridgingStatus_->quarryFdbStatus(entry.key));
    bridgingStatus_->quarryFdbStatusIs(entry);
    if (matters && before != localMultihomedSm_->onSegment(entry)) {
        localMultihomedSm_->hostMoved(entry.key);
    }
}

void FdbProvider::entryDel(const Bridging::HostKey& key) {
    bool before = localMultihomedSm_->segmentPorts() &&
                  localMultihomedSm_->onSegment(bridgingStatus_->quarryFdbStatus(key));
    if (bridgingStatus_->quarryFdbStatusDel(key) && before) {
        localMultihomedSm_->hostMoved(key);
    }
}

bool FdbProvider::walkStartedNotification() {
    bookmark_.reset();
    markBookmark_.reset();
    freeing_ = false;
    if (stage_ == ResyncStage::dumped) {
        stage_ = ResyncStage::sweeping;
    }
    return true;
}

Vela::WalkRet FdbProvider::walk() {
    uint32_t count = 0;
    if (!freeing_) {
        count = walkCollection(bridgingStatus_->quarryFdbStatusCollection(), bookmark_,
                               [this](const Bridging::HostKey& key, const auto&) {
                                   if (stage_ == ResyncStage::sweeping && !marks_.has(key)) {
                                       entryDel(key);
                                       ++swept_;
                                   }
                               });
        if (!bookmark_) {
            freeing_ = true;
            if (stage_ == ResyncStage::sweeping) {
                stage_ = ResyncStage::none;
            }
        }
        return {1, count};
    }
    if (stage_ != ResyncStage::none) { // another resync has begun: it takes the marks over
        return {0, 0};
    }
    count = walkCollection(marks_.table(), markBookmark_,
                           [this](const HostMark& key, const auto&) { marks_.forget(key); });
    return {markBookmark_ ? 1u : 0u, count};
}

} // namespace Linux
