#include "Linux/NeighborProvider.h"

#include "Platform/Base/Assert.h"
#include "Platform/Base/Hash.h"
#include "Platform/State/DumpContext.h"

#include <algorithm>
#include <linux/neighbour.h>
#include <sys/socket.h>
#include <utility>

namespace Linux {

using Kind = Neighbor::Kind;

const std::array<const char*, NeighborProvider::reasons> NeighborProvider::reasonName = {
    "malformed", "otherFamily", "proxy", "noUnicast", "unknownDevice", "stale"};

uint64_t NeighborProvider::DeviceAddress::hash(uint64_t seed) const {
    Vela::IncrementalHash hash(seed);
    hash.mix(ifIndex);
    hash.mixBytes(address.bytes());
    return hash.result();
}

/// One namespace: its messages, and how far its resync has come.
class NeighborProvider::NetNs final : public NetlinkConsumer {
  public:
    NetNs(NeighborProvider& provider, const std::string& name)
        : provider_(provider), device_{name, 0} {}

    void resyncStarted() override {
        ++resyncs_;
        interrupted_ += stage != ResyncStage::none;
        marks.start();
        stage = ResyncStage::dumping;
    }
    void message(const nlmsghdr& header) override {
        ++messages_;
        if (auto message = decodeNeighbor(header)) {
            handle(*message);
        } else {
            ignore(Ignored::malformed);
        }
    }
    void resyncFinished() override {
        if (stage == ResyncStage::dumping) {
            stage = ResyncStage::dumped;
            provider_.scheduleWalk();
        }
    }

    void claimIs(const RoutedDevice& device, uint32_t macvlan, const Zinc::IpGenAddr& address,
                 const Neighbor& neighbor);
    /// Whether the device that made the claim still has it, as far as can be told.
    bool stands(const Claim& claim, const ArpSuppression::RemoteBindingKey& key) const;
    void dumpState(Vela::DumpContext& context, int indent) const;

    const std::string& name() const { return device_.netNs; }

    ResyncStage stage = ResyncStage::none;
    Marks marks;
    Claims claims; // of addresses that a macvlan knows; that of the routed interface comes first

  private:
    void handle(const NeighborMessage& message);
    void ignore(Ignored reason) { ++ignored_[static_cast<size_t>(reason)]; }

    NeighborProvider& provider_;
    DeviceKey device_; // of the message at hand
    uint64_t messages_ = 0;
    uint64_t resyncs_ = 0;
    uint64_t interrupted_ = 0; // resyncs that another one began over
    std::array<uint64_t, reasons> ignored_{};
};

void NeighborProvider::NetNs::handle(const NeighborMessage& message) {
    if (message.family != AF_INET && message.family != AF_INET6) {
        return ignore(Ignored::otherFamily);
    }
    if (message.flags & NTF_PROXY) {
        return ignore(Ignored::proxy);
    }
    if (message.address.isMulticast() || message.address.isUnspecified()) {
        return ignore(Ignored::noUnicast);
    }
    device_.ifIndex = message.ifIndex;
    RoutedDevice device = provider_.topology_->routedDevice(device_);
    if (!device.intfId) {
        return ignore(Ignored::unknownDevice);
    }
    Neighbor neighbor = neighborOf(message);
    if (stage != ResyncStage::none) {
        DeviceAddress key{message.ifIndex, message.address};
        bool present = neighbor.kind != Kind::none;
        if (!message.dumped) {
            marks.happened(key, present);
        } else if (!marks.shown(key, present)) {
            return ignore(Ignored::stale);
        }
    }
    claimIs(device, device.macvlan ? message.ifIndex : 0, message.address, neighbor);
}

void NeighborProvider::NetNs::claimIs(const RoutedDevice& device, uint32_t macvlan,
                                      const Zinc::IpGenAddr& address, const Neighbor& neighbor) {
    ArpSuppression::RemoteBindingKey key(device.vlanId, address);
    std::vector<Claim>* list = claims.find(key);
    bool known = neighbor.kind != Kind::none;
    if (!list && macvlan == 0) {
        return provider_.tables_.neighborIs(device, address, neighbor);
    }
    if (!list) {
        if (!known) {
            return;
        }
        list = claims.findOrInsert(key, [] { return std::vector<Claim>(); }).first;
        Neighbor standing = provider_.tables_.neighbor(device, address);
        if (standing.kind != Kind::none) {
            list->push_back({0, standing});
        }
    }
    auto claim = std::find_if(list->begin(), list->end(),
                              [&](const Claim& c) { return c.macvlan == macvlan; });
    if (claim != list->end() && known) {
        claim->neighbor = neighbor;
    } else if (claim != list->end()) {
        list->erase(claim);
    } else if (known) {
        list->insert(macvlan == 0 ? list->begin() : list->end(), {macvlan, neighbor});
    }
    provider_.tables_.neighborIs(device, address,
                                 list->empty() ? Neighbor() : list->front().neighbor);
    if (list->empty() || list->back().macvlan == 0) {
        claims.erase(key);
    }
}

bool NeighborProvider::NetNs::stands(const Claim& claim,
                                     const ArpSuppression::RemoteBindingKey& key) const {
    uint32_t ifIndex = claim.macvlan;
    if (ifIndex == 0) {
        const Owner* owner = provider_.ownerOf(key.vlanId());
        ifIndex = owner && owner->netNs == name() ? owner->ifIndex : 0;
    }
    RoutedDevice device = provider_.topology_->routedDevice({name(), ifIndex});
    return device.intfId && device.vlanId == key.vlanId() &&
           device.macvlan == (claim.macvlan != 0) &&
           (stage != ResyncStage::sweeping || marks.has({ifIndex, key.ipAddress()}));
}

void NeighborProvider::NetNs::dumpState(Vela::DumpContext& context, int indent) const {
    auto number = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    context.print(indent,
                  "netNs[%s] stage=%d marks=%zu macvlanAddresses=%zu messages=%llu resyncs=%llu "
                  "interrupted=%llu\n",
                  name().c_str(), static_cast<int>(stage), marks.table().size(), claims.size(),
                  number(messages_), number(resyncs_), number(interrupted_));
    for (size_t reason = 0; reason < reasons; ++reason) {
        context.print(indent + 2, "ignored[%s] %llu\n", reasonName[reason],
                      number(ignored_[reason]));
    }
}

NeighborProvider::NeighborProvider(
    Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::Ptr<const Topology> topology,
    Vela::Ptr<Arp::Table::Status> arpStatus,
    Vela::Ptr<ArpSuppression::RemoteBindingConfig> remoteBindingConfig,
    Vela::Ptr<const ConfiguredBindings> configuredBindings,
    Vela::Ptr<LocalMultihomedSm> localMultihomedSm,
    std::function<void(const std::string&)> requestResync)
    : WalkSmBase(std::move(scheduler), 3, "NeighborProvider"), topology_(std::move(topology)),
      tables_(std::move(arpStatus), std::move(remoteBindingConfig), std::move(configuredBindings),
              std::move(localMultihomedSm)),
      requestResync_(std::move(requestResync)) {
    deviceReaction_ =
        topology_->routedDeviceCollection().react(this, [this](const DeviceKey& device) {
            ownerStale_ = true;
            scheduleWalk();
            if (netNs_.contains(device.netNs) && topology_->routedDevice(device).intfId) {
                requestResync_(device.netNs);
            }
        });
    configuredReaction_ = tables_.configuredBindings->keyCollection().react(
        this, [this](const ArpSuppression::RemoteBindingKey& key) {
            // The kernel may have something to say of it, too.
            const Owner* owner = ownerOf(key.vlanId());
            if (owner && netNs_.contains(owner->netNs) &&
                !tables_.configuredBindings->keyHas(key)) {
                requestResync_(owner->netNs);
            }
        });
}

NeighborProvider::~NeighborProvider() = default;

void NeighborProvider::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "Linux::NeighborProvider swept=%llu\n",
                  static_cast<unsigned long long>(swept_));
    std::map<std::string, size_t> entries;
    auto count = [&](const std::string& family, const auto& table) {
        for (auto entry = table.first(); entry; ++entry) {
            const Arp::Table::ArpEntry& value = entry.value();
            ++entries[family + (value.source == Arp::ArpSource::arpSuppression ? "agent"
                                : value.isStatic                               ? "static"
                                                                               : "dynamic")];
        }
    };
    count("ipv4 ", tables_.arpStatus->arpEntryCollection());
    count("ipv6 ", tables_.arpStatus->neighborEntryCollection());
    entries["remote"] = tables_.remoteBindingConfig->remoteBindingCollection().count();
    for (const auto& [name, number] : entries) {
        context.print(indent + 2, "entries[%s] %zu\n", name.c_str(), number);
    }
    for (const auto& [name, netNs] : netNs_) {
        netNs->dumpState(context, indent + 2);
    }
}

NetlinkConsumer& NeighborProvider::consumerIs(const std::string& netNs) {
    auto& consumer = netNs_[netNs];
    if (!consumer) {
        consumer = std::make_unique<NetNs>(*this, netNs);
    }
    return *consumer;
}

void NeighborProvider::consumerDel(const std::string& netNs) {
    netNs_.erase(netNs);
}

bool NeighborProvider::swept(const std::string& name) const {
    const NetNs* found = netNs(name);
    return !found || found->stage == ResyncStage::none;
}

NeighborProvider::NetNs* NeighborProvider::netNs(const std::string& name) const {
    auto found = netNs_.find(name);
    return found == netNs_.end() ? nullptr : found->second.get();
}

const std::map<Bridging::VlanId, NeighborProvider::Owner>& NeighborProvider::owner() {
    if (std::exchange(ownerStale_, false)) {
        owner_.clear();
        for (auto entry = topology_->routedDeviceCollection().first(); entry; ++entry) {
            const RoutedDevice& device = entry.value();
            if (!device.intfId) {
                continue;
            }
            if (device.macvlan) {
                owner_.try_emplace(device.vlanId, Owner{entry.key().netNs, 0, device});
            } else {
                owner_[device.vlanId] = {entry.key().netNs, entry.key().ifIndex, device};
            }
        }
    }
    return owner_;
}

const NeighborProvider::Owner* NeighborProvider::ownerOf(Bridging::VlanId vlanId) {
    auto found = owner().find(vlanId);
    return found == owner_.end() ? nullptr : &found->second;
}

const NeighborProvider::Owner* NeighborProvider::ownerOf(const Arp::Table::ArpKey& key) {
    uint32_t vlan = key.intfId().vlanNumber();
    const Owner* owner = vlan >= 1 && vlan <= 4094 ? ownerOf(Bridging::VlanId(vlan)) : nullptr;
    bool same = owner && owner->device.intfId == key.intfId() && owner->device.vrfId == key.vrfId();
    return same ? owner : nullptr;
}

bool NeighborProvider::isGone(const Owner* owner, const Zinc::IpGenAddr& address) const {
    if (!owner) {
        return true;
    }
    const NetNs* its = netNs(owner->netNs);
    if (!its || its->claims.find({owner->device.vlanId, address})) {
        return false;
    }
    return owner->ifIndex == 0 ||
           (its->stage == ResyncStage::sweeping && !its->marks.has({owner->ifIndex, address}));
}

bool NeighborProvider::walkStartedNotification() {
    stage_ = Stage::claims;
    netNsBookmark_.clear();
    bindingBookmark_.reset();
    arpBookmark_.reset();
    markBookmark_.reset();
    for (const auto& [name, netNs] : netNs_) {
        if (netNs->stage == ResyncStage::dumped) {
            netNs->stage = ResyncStage::sweeping;
        }
    }
    return true;
}

Vela::WalkRet NeighborProvider::walk() {
    switch (stage_) {
    case Stage::claims:
        return {1, walkClaims()};
    case Stage::arpEntries: {
        uint32_t count = walkArp(tables_.arpStatus->arpEntryCollection());
        stage_ = arpBookmark_ ? stage_ : Stage::neighborEntries;
        return {1, count};
    }
    case Stage::neighborEntries: {
        uint32_t count = walkArp(tables_.arpStatus->neighborEntryCollection());
        stage_ = arpBookmark_ ? stage_ : Stage::remoteBindings;
        return {1, count};
    }
    case Stage::remoteBindings:
        return {1, walkRemoteBindings()};
    case Stage::marks: {
        uint32_t count = walkMarks();
        return {netNsBookmark_.empty() ? 0u : 1u, count};
    }
    }
    Vela::failAssertion("false");
}

template <class Bookmark, class TableOf, class Item>
uint32_t NeighborProvider::walkNetNs(Bookmark& bookmark, TableOf tableOf, Item item) {
    auto current = netNs_.lower_bound(netNsBookmark_);
    if (current == netNs_.end()) {
        netNsBookmark_.clear();
        bookmark.reset();
        return 0;
    }
    NetNs& netNs = *current->second;
    if (netNs.name() != netNsBookmark_) {
        bookmark.reset(); // it was one of a namespace that is gone
    }
    uint32_t count = walkCollection(tableOf(netNs), bookmark,
                                    [&](const auto& key, const auto&) { item(netNs, key); });
    if (bookmark) {
        netNsBookmark_ = netNs.name();
    } else {
        auto next = netNs_.upper_bound(netNs.name());
        netNsBookmark_ = next == netNs_.end() ? std::string() : next->first;
    }
    return count;
}

uint32_t NeighborProvider::walkClaims() {
    uint32_t count = walkNetNs(
        bindingBookmark_, [](NetNs& netNs) -> const Claims& { return netNs.claims; },
        [this](NetNs& netNs, const ArpSuppression::RemoteBindingKey& key) {
            const Owner* owner = ownerOf(key.vlanId());
            std::vector<Claim> list = *netNs.claims.find(key);
            if (!owner || owner->netNs != netNs.name()) {
                netNs.claims.erase(key); // what stands for it goes in the stages to come
                return;
            }
            RoutedDevice device = owner->device;
            for (const Claim& claim : list) {
                if (!netNs.stands(claim, key)) {
                    netNs.claimIs(device, claim.macvlan, key.ipAddress(), Neighbor());
                    ++swept_;
                }
            }
        });
    if (netNsBookmark_.empty()) {
        stage_ = Stage::arpEntries;
    }
    return count;
}

uint32_t NeighborProvider::walkArp(const Quarry::TableCollection<Arp::Table::ArpEntry>& entries) {
    return walkCollection(entries, arpBookmark_,
                          [this](const Arp::Table::ArpKey& key, const auto&) {
                              if (isGone(ownerOf(key), key.addr())) {
                                  tables_.arpStatus->entryDel(key);
                                  ++swept_;
                              }
                          });
}

uint32_t NeighborProvider::walkRemoteBindings() {
    uint32_t count =
        walkCollection(tables_.remoteBindingConfig->remoteBindingCollection(), bindingBookmark_,
                       [this](const ArpSuppression::RemoteBindingKey& key, const auto&) {
                           if (!tables_.configuredBindings->keyHas(key) &&
                               isGone(ownerOf(key.vlanId()), key.ipAddress())) {
                               tables_.remoteBindingConfig->remoteBindingDel(key);
                               ++swept_;
                           }
                       });
    if (!bindingBookmark_) {
        for (const auto& [name, netNs] : netNs_) {
            if (netNs->stage == ResyncStage::sweeping) {
                netNs->stage = ResyncStage::none;
            }
        }
        stage_ = Stage::marks;
    }
    return count;
}

uint32_t NeighborProvider::walkMarks() {
    return walkNetNs(
        markBookmark_, [](NetNs& netNs) -> const Marks::Table& { return netNs.marks.table(); },
        [](NetNs& netNs, const DeviceAddress& address) {
            if (netNs.stage == ResyncStage::none) {
                netNs.marks.forget(address);
            }
        });
}

} // namespace Linux
