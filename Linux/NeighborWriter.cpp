#include "Linux/NeighborWriter.h"

#include "Platform/State/DumpContext.h"

#include <algorithm>
#include <cerrno>
#include <linux/neighbour.h>
#include <utility>

namespace Linux {

namespace {

using Counter = NeighborCounter;
using Outcome = NeighborOutcome;

/// An entry that is asked about more often than this changes under our hands.
constexpr unsigned mostRounds = 8;

} // namespace

NeighborWriter::NeighborWriter(Inputs inputs)
    : WalkSmBase(inputs.scheduler, 3, "NeighborWriter"), in_(std::move(inputs)),
      devices_(in_.topology, in_.ip6Status, [this] { noteDevices(); }) {
    vrfReaction_ = in_.inputConfig->vrfCollection().react(
        this, [this](const L3::VrfName& vrfName) { followVrf(vrfName); });
    auto vrf = in_.inputConfig->vrfCollection().first();
    for (; vrf; ++vrf) {
        followVrf(vrf.key());
    }
    auto note = [this](const Arp::Table::ArpKey& key) { noteTable(key); };
    arpReaction_ = in_.arpStatus->arpEntryCollection().react(this, note);
    neighborReaction_ = in_.arpStatus->neighborEntryCollection().react(this, note);
    bindingReaction_ = in_.remoteBindingConfig->remoteBindingCollection().react(
        this, [this](const ArpSuppression::RemoteBindingKey& key) { noteControlPlane(key); });
}

NeighborWriter::~NeighborWriter() = default;

NeighborOutcome NeighborWriter::outcomeOf(const Entry& entry) {
    return NeighborMarks::of(entry.carriedOut()).outcome;
}

bool NeighborWriter::isTagged(const Arp::Table::ArpEntry& entry) {
    return entry.isStatic && entry.source == tag;
}

bool NeighborWriter::isPlaceless(const Zinc::IpGenAddr& address) {
    return address.af() == Zinc::ipv6() && !address.isLinkLocal();
}

void NeighborWriter::handleDestroy() noexcept {
    vrfs_.clear();
    channels_.clear();
}

void NeighborWriter::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "Linux::NeighborWriter started=%d idle=%d pending=%zu work=%zu\n",
                  started(), idle(), pending_.size(), work_.size());
    for (size_t number = 0; number < neighborCounters; ++number) {
        auto counter = static_cast<Counter>(number);
        context.print(indent + 2, "counter[%s] %llu\n", toString(counter),
                      static_cast<unsigned long long>(counters_[counter]));
    }
    std::map<Outcome, size_t> entries;
    for (auto vrf = in_.inputConfig->vrfCollection().first(); vrf; ++vrf) {
        for (const auto* family :
             {&vrf.value()->ipv4EntryCollection(), &vrf.value()->ipv6EntryCollection()}) {
            for (auto entry = family->first(); entry; ++entry) {
                ++entries[outcomeOf(entry.value())];
            }
        }
    }
    for (const auto& [outcome, number] : entries) {
        context.print(indent + 2, "entries[%s] %zu\n", toString(outcome), number);
    }
}

void NeighborWriter::netNsIs(const std::string& netNs, std::unique_ptr<NeighborChannel> channel) {
    channels_[netNs] = std::move(channel);
    noteDevices();
}

void NeighborWriter::netNsDel(const std::string& netNs) {
    channels_.erase(netNs);
}

void NeighborWriter::start() {
    if (!started() && !readingBack_) {
        readingBack_ = true;
        stage_ = Stage::arpTable;
        scheduleWalk();
    }
}

bool NeighborWriter::idle() const {
    return started() && work_.empty() && pending_.size() == 0 && stage_ == Stage::none &&
           !wanted_.ofEntries() && !wanted_.tables;
}

uint32_t NeighborWriter::vrfNumber(const L3::VrfName& vrfName) {
    auto [found, added] = vrfNumbers_.try_emplace(vrfName, static_cast<uint32_t>(vrfNames_.size()));
    if (added) {
        vrfNames_.push_back(vrfName);
    }
    return found->second;
}

/// One that goes announces its entries after itself, and is followed until then.
void NeighborWriter::followVrf(const L3::VrfName& vrfName) {
    auto config = in_.inputConfig->vrf(vrfName);
    if (!config || std::any_of(vrfs_.begin(), vrfs_.end(),
                               [&](const Vrf& vrf) { return vrf.config == config; })) {
        return;
    }
    Vrf& vrf = vrfs_.emplace_back(Vrf{config, vrfNumber(vrfName)});
    auto note = [this, &vrf](const Arp::InputConfigKey& key) { noteChange(vrf, key); };
    vrf.ipv4 = config->ipv4EntryCollection().react(this, note);
    vrf.ipv6 = config->ipv6EntryCollection().react(this, note);
}

void NeighborWriter::noteChange(const Vrf& vrf, const Arp::InputConfigKey& key) {
    if (ownChange_) {
        return;
    }
    Claim claim{Claim::Kind::any, {}};
    if (const auto& before = vrf.config->replacedEntry()) {
        switch (outcomeOf(*before)) {
        case Outcome::installed:
        case Outcome::lost:
            claim = {Claim::Kind::exact, before->macAddress()};
            break;
        case Outcome::pending:
        case Outcome::retry:
        case Outcome::noDevice:
            break;
        case Outcome::seeded:
        case Outcome::satisfied:
        case Outcome::stands:
        case Outcome::contested:
            claim = {};
            break;
        }
    }
    pendingIs({vrf.number, key}, claim);
}

void NeighborWriter::noteDevices() {
    wanted_.entries = wanted_.placeless = wanted_.tables = true;
    if (started()) {
        scheduleWalk();
    }
}

void NeighborWriter::noteTable(const Arp::Table::ArpKey& key) {
    const L3::VrfName* vrfName = started() ? devices_.vrfName(key.vrfId()) : nullptr;
    if (!vrfName) {
        return;
    }
    EntryKey entryKey{vrfNumber(*vrfName), {key.addr(), key.intfId()}};
    const Entry* entry = entryOf(entryKey);
    auto held = key.addr().af() == Zinc::ipv4()
                    ? in_.arpStatus->arpEntryCollection().find(key)
                    : in_.arpStatus->neighborEntryCollection().find(key);
    if (!entry) {
        if (held && isTagged(*held)) { // from an earlier run, in a namespace that came late
            pendingIs(entryKey, {Claim::Kind::exact, held->macAddress});
        }
        return;
    }
    NeighborMarks marks = NeighborMarks::of(entry->carriedOut());
    bool gone = marks.outcome == Outcome::installed
                    ? !held || !isTagged(*held) || held->macAddress != entry->macAddress()
                    : marks.outcome == Outcome::stands && !held;
    if (gone && marks.losses >= NeighborMarks::mostLosses) {
        count(Counter::contested);
        conclude(entry, Outcome::contested);
    } else if (gone) {
        conclude(entry, Outcome::lost);
        retryLater();
    }
}

void NeighborWriter::noteControlPlane(const ArpSuppression::RemoteBindingKey& key) {
    const EntryDevice* device = devices_.device(key.vlanId());
    const L3::VrfName* vrfName = device ? devices_.vrfName(device->routed.vrfId) : nullptr;
    if (!started() || !vrfName) {
        return;
    }
    const Entry* entry = entryOf({vrfNumber(*vrfName), {key.ipAddress(), device->routed.intfId}});
    if (entry && outcomeOf(*entry) == Outcome::satisfied &&
        !controlPlaneMac(key.vlanId(), key.ipAddress())) {
        conclude(entry, Outcome::retry); // it was none of ours, so this is no loss
        retryLater();
    }
}

/// What was known of a key first, when it was last carried out, stays known.
void NeighborWriter::pendingIs(const EntryKey& key, const Claim& claim) {
    if (Claim* waiting = pending_.find(key)) {
        if (waiting->kind != Claim::Kind::exact) {
            *waiting = claim;
        }
    } else if (pending_.size() < mostPending) {
        pending_.findOrInsert(key, [&] { return claim; });
    } else {
        wanted_.entries = wanted_.tables = true;
    }
    if (started()) {
        scheduleWalk();
    }
}

const NeighborWriter::Entry* NeighborWriter::entryOf(const EntryKey& key) {
    const L3::VrfName& vrfName = vrfNames_[key.vrf];
    auto vrf = in_.inputConfig->vrf(vrfName);
    if (!vrf) {
        return nullptr;
    }
    const Entry* entry = vrf->afEntry(key.key);
    if (!entry && key.key.intfId() && isPlaceless(key.key.ipAddress())) {
        Arp::InputConfigKey placeless(key.key.ipAddress(), {});
        entry = vrf->afEntry(placeless);
        if (entry && devices_.intfId(vrfName, placeless) != key.key.intfId()) {
            return nullptr;
        }
    }
    return entry;
}

/// As the kernel told; what the configuration file says is no entry of the kernel.
std::optional<Zinc::EthAddr> NeighborWriter::controlPlaneMac(Bridging::VlanId vlanId,
                                                             const Zinc::IpGenAddr& address) const {
    ArpSuppression::RemoteBindingKey key(vlanId, address);
    auto binding = in_.remoteBindingConfig->remoteBindingCollection().find(key);
    return binding && !in_.configuredBindings->keyHas(key) ? std::optional(binding->macAddress)
                                                           : std::nullopt;
}

void NeighborWriter::conclude(const Entry* entry, Outcome outcome) {
    if (entry) {
        NeighborMarks marks = NeighborMarks::of(entry->carriedOut());
        marks.outcome = outcome;
        entry->carriedOutIs(marks.bits());
    }
}

void NeighborWriter::conclude(const Entry* entry, const Work::Step& step) {
    if (step.counter) {
        count(*step.counter);
    }
    if (step.outcome) {
        conclude(entry, *step.outcome);
    }
    if (step.outcome == Outcome::retry) {
        retryLater();
    }
}

void NeighborWriter::retryLater() {
    if (!retryDue_) {
        retryDue_ = scheduler()->clock().now() + Vela::nanosecondsFromSeconds(retrySeconds_);
    }
    scheduleNext();
}

std::optional<NeighborWriter::View> NeighborWriter::view(const L3::VrfName& vrfName,
                                                         const Arp::InputConfigKey& key) {
    auto vrf = in_.inputConfig->vrf(vrfName);
    const Entry* entry = vrf ? vrf->afEntry(key) : nullptr;
    if (!entry) {
        return std::nullopt;
    }
    View view{outcomeOf(*entry), {}, {}};
    if (const EntryDevice* device = devices_.device(vrfName, devices_.intfId(vrfName, key))) {
        Arp::Table::ArpKey arpKey(device->routed.vrfId, device->routed.intfId, key.ipAddress());
        view.held = key.ipAddress().af() == Zinc::ipv4()
                        ? in_.arpStatus->arpEntryCollection().find(arpKey)
                        : in_.arpStatus->neighborEntryCollection().find(arpKey);
        view.controlPlane = controlPlaneMac(device->routed.vlanId, key.ipAddress());
    }
    return view;
}

Vela::WalkRet NeighborWriter::walk() {
    if (readingBack_) {
        return readBack();
    }
    if (!started()) {
        return {0, 0};
    }
    if (!work_.empty()) {
        return {1, exchange()};
    }
    if (pending_.size() > 0) {
        return {1, drainPending()};
    }
    if (stage_ != Stage::none) {
        return {1, walkStage()};
    }
    if (startWalk()) {
        return {1, 0};
    }
    vrfs_.remove_if([](const Vrf& vrf) { return vrf.config->destroyed(); });
    if (!retryDue_) {
        retrySeconds_ = firstRetrySeconds;
    }
    scheduleNext();
    return {0, 0};
}

uint32_t NeighborWriter::drainPending() {
    uint32_t taken = 0;
    for (auto next = pending_.first(); next && taken < batch; ++next) {
        Claim claim = next.value();
        EntryKey key = next.key();
        pending_.erase(key);
        take(key, claim);
        ++taken;
        if (mustYield()) {
            break;
        }
    }
    return taken;
}

void NeighborWriter::take(const EntryKey& key, const Claim& claim) {
    Zinc::IntfId intfId = devices_.intfId(vrfNames_[key.vrf], key.key);
    if (intfId) {
        work_.push_back({.key = {key.vrf, {key.key.ipAddress(), intfId}}, .claim = claim});
    } else if (const Entry* entry = entryOf(key)) {
        if (outcomeOf(*entry) != Outcome::noDevice) {
            count(Counter::noConnectedVlan);
        }
        conclude(entry, Outcome::noDevice);
    } else if (claim.kind != Claim::Kind::none) {
        wanted_.tables = true; // where it is nobody can say, but if it is there it can be found
    }
}

/// One batch to one namespace.
uint32_t NeighborWriter::exchange() {
    NeighborChannel* channel = nullptr;
    std::vector<Work> sent;
    std::vector<NeighborRequest> requests;
    for (size_t left = work_.size(); left > 0 && requests.size() < batch; --left) {
        Work work = work_.front();
        work_.pop_front();
        NeighborRequest request;
        NeighborChannel* its = prepare(work, request);
        if (its && channel && its != channel) {
            work_.push_back(work);
        } else if (its) {
            channel = its;
            sent.push_back(work);
            requests.push_back(request);
        }
        if (mustYield()) {
            break;
        }
    }
    if (channel) {
        std::vector<NeighborAnswer> answers = channel->exchange(requests);
        for (size_t i = 0; i < sent.size(); ++i) {
            count(Counter::requests);
            handle(sent[i], requests[i].verb, answers[i]);
        }
    }
    return static_cast<uint32_t>(sent.size());
}

/// What to ask of whom next; null: nothing more.
NeighborChannel* NeighborWriter::prepare(Work& work, NeighborRequest& request) {
    if (Claim* again = pending_.find(work.key)) { // it has changed meanwhile
        if (work.claim.kind == Claim::Kind::exact) {
            *again = work.claim;
        }
        return nullptr;
    }
    const Entry* entry = entryOf(work.key);
    const EntryDevice* device = devices_.device(vrfNames_[work.key.vrf], work.key.key.intfId());
    auto channel = device ? channels_.find(device->netNs) : channels_.end();
    if (channel == channels_.end()) {
        if (entry && outcomeOf(*entry) != Outcome::noDevice) {
            count(Counter::interfaceGone);
        }
        conclude(entry, Outcome::noDevice);
        return nullptr;
    }
    if (++work.rounds > mostRounds) {
        conclude(entry, Outcome::retry);
        retryTables_ = true;
        retryLater();
        return nullptr;
    }
    if (entry && !isPermanent(*entry) && work.seedState == 0) {
        decideSeed(work, *entry, *device);
    }
    Work::Step step = work.next(entry);
    if (!step.verb) {
        conclude(entry, step);
        return nullptr;
    }
    request.verb = *step.verb;
    request.ifIndex = device->ifIndex;
    request.address = work.key.key.ipAddress();
    if (request.verb == Verb::add || request.verb == Verb::replace) {
        work.fill(*entry, request);
    }
    return channel->second.get();
}

/// How the kernel is to take a dynamic entry: as just confirmed; to be probed at once; or, where
/// nobody should be probed, as old, which it verifies on its next use.
void NeighborWriter::decideSeed(Work& work, const Entry& entry, const EntryDevice& device) {
    if (entry.quickRefresh() == Arp::QuickRefresh::none) {
        work.seedState = NUD_REACHABLE;
        return;
    }
    work.seedState = NUD_STALE;
    Bridging::Fid fid = in_.bridgingConfig->fid(device.routed.vlanId);
    auto host = in_.bridgingStatus->quarryFdbStatus({fid, entry.macAddress()});
    if (!Bridging::isEntryTypeLocal(host.entryType)) {
        count(Counter::refreshSkipped);
        work.seedSkipped = true;
    } else if (!refreshes_.take(scheduler()->clock().now())) {
        count(Counter::refreshLimited);
    } else {
        work.seedState = NUD_PROBE;
    }
}

void NeighborWriter::handle(Work& work, Verb verb, const NeighborAnswer& answer) {
    if (answer.error == EEXIST) {
        count(Counter::exists);
    } else if (answer.error == ENOENT && verb != Verb::get) { // it went while we looked
        count(Counter::missing);
    }
    if (answer.error == 0 && verb != Verb::get) {
        handleDone(work, verb);
    } else if (work.learn(verb, answer)) {
        work_.push_front(work);
    } else {
        handleError(work, answer.error);
    }
}

void NeighborWriter::handleDone(const Work& work, Verb verb) {
    const Entry* entry = entryOf(work.key);
    if (verb == Verb::remove || !entry) {
        count(Counter::removed);
        return;
    }
    NeighborMarks marks = NeighborMarks::of(entry->carriedOut());
    if (verb == Verb::add && marks.outcome == Outcome::lost) {
        count(Counter::lost);
        ++marks.losses;
        entry->carriedOutIs(marks.bits());
        if (!forgiveDue_) {
            forgiveDue_ = scheduler()->clock().now() + Vela::nanosecondsFromSeconds(forgiveSeconds);
        }
    }
    if (verb == Verb::replace) {
        count(Counter::replaced);
    } else {
        count(isPermanent(*entry) ? Counter::added : Counter::seeded);
    }
    if (!isPermanent(*entry) && work.seedState == NUD_PROBE) {
        count(Counter::refreshSent);
    }
    conclude(entry, isPermanent(*entry) ? Outcome::installed : Outcome::seeded);
}

void NeighborWriter::handleError(const Work& work, int error) {
    switch (error) {
    case ENOBUFS:
    case ENOSPC:
    case ENOMEM:
        count(Counter::tableOverflow);
        break;
    case ENODEV:
    case ENETDOWN:
        count(Counter::interfaceGone);
        break;
    case NeighborAnswer::lost:
        count(Counter::unanswered);
        break;
    default:
        count(Counter::refused);
        break;
    }
    conclude(entryOf(work.key), Outcome::retry);
    retryTables_ = true;
    retryLater();
}

} // namespace Linux
