#include "Linux/NeighborWork.h"

#include "Platform/Base/Hash.h"

#include <cerrno>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>

namespace Linux {

namespace {

using Arp::InputConfigEntry;
using Claim = NeighborClaim;
using Counter = NeighborCounter;
using Outcome = NeighborOutcome;

constexpr auto tag = static_cast<uint8_t>(Arp::ArpSource::arpSuppression);

bool isTagged(const NeighborMessage& held) {
    return (held.state & NUD_PERMANENT) != 0 && held.protocol == tag;
}

} // namespace

bool isPermanent(const InputConfigEntry& entry) {
    return entry.type() == Arp::ArpType::ArpTypeId::permanent;
}

uint64_t NeighborEntryKey::hash(uint64_t seed) const {
    Vela::IncrementalHash hash(seed);
    hash.mix(vrf);
    hash.mix(key.hash(seed));
    return hash.result();
}

NeighborWork::Step NeighborWork::next(const InputConfigEntry* entry) const {
    bool makes = entry && (isPermanent(*entry) || !seedSkipped);
    // What is new is most likely not there: adding it tells.
    if (!looked &&
        (look || claim.kind == Claim::Kind::exact || (claim.kind == Claim::Kind::any && !makes))) {
        return {.verb = Verb::get};
    }
    if (present && entry) {
        return nextPresent(*entry);
    }
    if (makes) {
        return {.verb = Verb::add};
    }
    if (entry) {
        return {.outcome = Outcome::seeded};
    }
    if (present && isOwn(nullptr)) {
        return {.verb = Verb::remove};
    }
    return {.counter =
                present && isTagged(held) ? std::optional(Counter::leftAlone) : std::nullopt};
}

NeighborWork::Step NeighborWork::nextPresent(const InputConfigEntry& entry) const {
    bool own = isOwn(&entry);
    bool failed = held.state == NUD_NONE || (held.state & NUD_FAILED) != 0;
    if (isPermanent(entry) && own && held.macAddress == entry.macAddress()) {
        return {.outcome = Outcome::installed};
    }
    if (own || (failed && (isPermanent(entry) || !seedSkipped))) {
        return {.verb = Verb::replace};
    }
    if (!isPermanent(entry)) {
        return {.outcome = Outcome::seeded,
                .counter = failed ? std::nullopt : std::optional(Counter::stood)};
    }
    if ((held.flags & NTF_EXT_LEARNED) != 0) {
        return {.outcome = Outcome::satisfied, .counter = Counter::satisfied};
    }
    if ((held.state & NUD_INCOMPLETE) != 0) {
        return {.outcome = Outcome::retry}; // in a moment it is known or failed
    }
    return {.outcome = Outcome::stands, .counter = Counter::stood};
}

bool NeighborWork::isOwn(const InputConfigEntry* entry) const {
    return isTagged(held) &&
           (claim.kind == Claim::Kind::any ||
            (claim.kind == Claim::Kind::exact && held.macAddress == claim.macAddress) ||
            (entry && held.macAddress == entry->macAddress()));
}

void NeighborWork::fill(const InputConfigEntry& entry, NeighborRequest& request) const {
    request.macAddress = entry.macAddress();
    request.state = isPermanent(entry) ? uint16_t{NUD_PERMANENT} : seedState;
    // Something has to be said for a seed, too: the kernel takes nothing for as before.
    request.protocol = isPermanent(entry) ? tag : uint8_t{RTPROT_KERNEL};
}

bool NeighborWork::learn(Verb verb, const NeighborAnswer& answer) {
    if (answer.error == EEXIST) {
        look = true;
        looked = false;
        return true;
    }
    if (answer.error != 0 && answer.error != ENOENT) {
        return false;
    }
    looked = true;
    present = verb == Verb::get && answer.error == 0;
    held = answer.neighbor;
    return true;
}

} // namespace Linux
