// The writer's walks: what is read back at the start, what is tried again, what nobody asks for.

#include "Linux/NeighborWriter.h"

#include <algorithm>
#include <utility>

namespace Linux {

namespace {

using Counter = NeighborCounter;
using Outcome = NeighborOutcome;

} // namespace

template <class Item>
uint32_t NeighborWriter::walkTable(Item item) {
    bool first = stage_ == Stage::arpTable;
    uint32_t count = walkCollection(
        first ? in_.arpStatus->arpEntryCollection() : in_.arpStatus->neighborEntryCollection(),
        tableBookmark_, [&](const Arp::Table::ArpKey&, const auto& entry) {
            if (isTagged(entry)) {
                item(entry);
            }
        });
    if (!tableBookmark_) {
        stage_ = first ? Stage::neighborTable : Stage::none;
    }
    return count;
}

Vela::WalkRet NeighborWriter::readBack() {
    uint32_t items = walkTable([this](const Arp::Table::ArpEntry& entry) { readBack(entry); });
    if (stage_ == Stage::none) {
        readingBack_ = false;
        wanted_.tables = true; // two may have had one key
        started_.set(true);
    }
    return {1, items};
}

void NeighborWriter::readBack(const Arp::Table::ArpEntry& entry) {
    const L3::VrfName* vrfName = devices_.vrfName(entry.key.vrfId());
    if (!vrfName) {
        return;
    }
    const Zinc::IpGenAddr& address = entry.key.addr();
    Arp::InputConfigKey key(address, isPlaceless(address) ? Zinc::IntfId() : entry.key.intfId());
    auto vrf = in_.inputConfig->vrfIs(*vrfName);
    if (vrf->afEntry(key)) {
        return;
    }
    ownChange_ = true;
    vrf->afEntryPermanentIs(key, entry.macAddress, tag);
    ownChange_ = false;
    conclude(vrf->afEntry(key), Outcome::installed);
    count(Counter::readBack);
}

/// Whether there is something to walk for.
bool NeighborWriter::startWalk() {
    Vela::MonotonicTime now = scheduler()->clock().now();
    if (retryDue_ && now >= *retryDue_) {
        retryDue_.reset();
        retrySeconds_ = std::min(retrySeconds_ * 2, lastRetrySeconds);
        wanted_.entries = true;
        wanted_.tables = wanted_.tables || std::exchange(retryTables_, false);
    }
    if (forgiveDue_ && now >= *forgiveDue_) {
        forgiveDue_.reset();
        wanted_.forgive = true;
    }
    walking_ = std::exchange(wanted_, {});
    stage_ = walking_.ofEntries() ? Stage::ipv4Entries
             : walking_.tables    ? Stage::arpTable
                                  : Stage::none;
    vrfBookmark_.reset();
    entryBookmark_.reset();
    tableBookmark_.reset();
    return stage_ != Stage::none;
}

uint32_t NeighborWriter::walkStage() {
    if (stage_ == Stage::ipv4Entries || stage_ == Stage::ipv6Entries) {
        return walkEntries();
    }
    return walkTable([this](const Arp::Table::ArpEntry& entry) {
        const L3::VrfName* vrfName = devices_.vrfName(entry.key.vrfId());
        if (!vrfName) {
            return;
        }
        EntryKey key{vrfNumber(*vrfName), {entry.key.addr(), entry.key.intfId()}};
        if (!entryOf(key)) {
            work_.push_back({.key = key, .claim = {Claim::Kind::exact, entry.macAddress}});
        }
    });
}

uint32_t NeighborWriter::walkEntries() {
    const auto& vrfs = in_.inputConfig->vrfCollection();
    auto vrf = vrfBookmark_ ? vrfs.atOrAfter(*vrfBookmark_) : vrfs.first();
    if (vrf && vrf.key() != vrfBookmark_) {
        entryBookmark_.reset(); // it was one of a VRF that is gone
    }
    uint32_t count = 0;
    if (vrf) {
        count = walkEntriesOf(vrf.value(), vrfNumber(vrf.key()));
        if (!entryBookmark_) {
            ++vrf;
        }
    }
    vrfBookmark_ = vrf ? std::optional(vrf.key()) : std::nullopt;
    if (!vrf) {
        stage_ = stage_ == Stage::ipv4Entries ? Stage::ipv6Entries
                 : walking_.tables            ? Stage::arpTable
                                              : Stage::none;
    }
    return count;
}

uint32_t NeighborWriter::walkEntriesOf(const Vela::Ptr<Arp::InputConfigVrf>& vrf, uint32_t number) {
    const auto& entries =
        stage_ == Stage::ipv4Entries ? vrf->ipv4EntryCollection() : vrf->ipv6EntryCollection();
    return walkCollection(entries, entryBookmark_,
                          [&](const Arp::InputConfigKey& key, const Entry& entry) {
                              EntryKey entryKey{number, key};
                              if (isDue(key, entry) && !pending_.find(entryKey)) {
                                  // Of one that waited here nobody knows what it was before.
                                  bool lost = outcomeOf(entry) == Outcome::lost;
                                  take(entryKey, {lost ? Claim::Kind::none : Claim::Kind::any, {}});
                              }
                          });
}

bool NeighborWriter::isDue(const Arp::InputConfigKey& key, const Entry& entry) {
    NeighborMarks marks = NeighborMarks::of(entry.carriedOut());
    if (walking_.forgive) {
        marks.losses = 0;
        entry.carriedOutIs(marks.bits());
    }
    switch (marks.outcome) {
    case Outcome::pending:
    case Outcome::retry:
    case Outcome::lost:
    case Outcome::noDevice:
        return walking_.entries;
    case Outcome::contested:
        return walking_.forgive;
    case Outcome::installed:
    case Outcome::satisfied:
    case Outcome::stands:
        return walking_.placeless && !key.intfId() && isPlaceless(key.ipAddress());
    case Outcome::seeded:
        return false;
    }
    return false;
}

void NeighborWriter::scheduleNext() {
    if (!started() || (!retryDue_ && !forgiveDue_)) {
        return;
    }
    Vela::MonotonicTime due = std::min(retryDue_.value_or(Vela::MonotonicTime::max()),
                                       forgiveDue_.value_or(Vela::MonotonicTime::max()));
    Vela::MonotonicTime left = due - scheduler()->clock().now();
    scheduleWalkDelay(std::max(0.0, std::chrono::duration<double>(left).count()));
}

} // namespace Linux
