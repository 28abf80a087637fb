#pragma once

#include "Platform/Quarry/Table.h"
#include "Platform/Quarry/TableCollection.h"

#include <array>
#include <cstdint>
#include <optional>

namespace ArpSuppression {

/// What the agent counts. The numbers are those of the table's entries.
enum class ArpSuppressionCounterId : uint32_t {
    // neighbour entries asked for
    inputPermanentAdded = 0,
    inputPermanentRewritten = 1,
    inputDynamicAdded = 2,
    inputDynamicRewritten = 3,
    inputDeleted = 4,
    inputNoVlanL3Info = 5,

    // decisions about trapped requests
    answeredFromRemoteBinding = 6,
    answeredForDesignatedForwarder = 7,
    answeredForNonDesignatedForwarder = 8,
    unknownSourcePort = 9,
    sourceAndTargetOnSamePort = 10,
    sentToRemoteTeps = 11,
    unused12 = 12,
    localTargetNotAnswered = 13,
    replyFabricNotUsable = 14,
    replyTransmitFailed = 15,
    reinjectQueueDroppedOldest = 16,
    staticBindingTriggered = 17,
    staticBindingBadMac = 18,
    staticBindingBadIp = 19,
    staticBindingBridgeMac = 20,
    staticBindingVarpMac = 21,
    staticBindingNoVlanL3Info = 22,
    targetIsMine = 23,
    unused24 = 24,

    // discovery of local bindings
    bindingBadMac = 25,
    bindingBadIp = 26,
    bindingBridgeMac = 27,
    bindingVarpMac = 28,
    bindingLocalMultihomedHost = 29,
    bindingLocalMultihomedMac = 30,
    bindingSeveralMacs = 31,
    bindingNoVlanL3Info = 32,
    bindingsFromLocalMac = 33,
    bindingCreated = 34,
    bindingRefreshed = 35,
    bindingDeleted = 36,

    // replies to the virtual router MAC
    varpArpMalformed = 37,
    varpArpNotReply = 38,
    varpArpExtraData = 39,
    varpArpNotToVarpMac = 40,
    varpArpAccepted = 41,
    varpNaMalformed = 42,
    varpNaNotToVarpMac = 43,
    varpNaAccepted = 44,

    // trapped frames
    trapReadFailed = 45,
    trapMalformed = 46,
    trapVlanNotSuppressed = 47,
    trapArpNeitherRequestNorReply = 48,
    trapArpExtraData = 49,
    trapArpRequest = 50,
    trapArpReply = 51,
    trapNeighborSolicitation = 52,
    trapNeighborAdvertisement = 53,
    trapRouterSolicitation = 54,

    // requests given back to the forwarding plane
    reinjectWritten = 55,
    reinjectWriteFailed = 56,
    reinjectNoImetLabel = 57,
};
constexpr uint32_t arpSuppressionCounters = 58;

/// The name of the enumerator; "?" beyond the last.
const char* toStrep(ArpSuppressionCounterId id);

struct CounterKey {
    ArpSuppressionCounterId id{};

    uint64_t hash(uint64_t seed) const;
    friend bool operator==(CounterKey, CounterKey) = default;
};

struct Counter {
    using Key = CounterKey;
    static constexpr const char* recordType = "ArpSuppression::Counter";

    CounterKey key;
    uint32_t unused = 0; // in the place of padding
    uint64_t count = 0;

    friend bool operator==(const Counter&, const Counter&) = default;
};

/// The agent's counters, all of them from the start.
class ArpSuppressionCounterStatus final : public Quarry::Table {
  public:
    static constexpr const char* tableType = "ArpSuppression::ArpSuppressionCounterStatus";

    explicit ArpSuppressionCounterStatus(const Quarry::TableSite& site);
    const char* typeName() const noexcept override { return tableType; }

    const Quarry::TableCollection<Counter>& counterCollection() const { return counter_; }
    uint64_t count(ArpSuppressionCounterId id) const { return counter_.value({id}).count; }
    void increment(ArpSuppressionCounterId id);

  private:
    Quarry::TableCollection<Counter> counter_;
    std::array<std::optional<uint32_t>, arpSuppressionCounters> places_; // none that has no room
};

} // namespace ArpSuppression
