#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"

#include "Platform/Base/Hash.h"

#include <array>
#include <cstddef>

namespace ArpSuppression {

namespace {

constexpr std::array<const char*, arpSuppressionCounters> names = {
    "inputPermanentAdded",
    "inputPermanentRewritten",
    "inputDynamicAdded",
    "inputDynamicRewritten",
    "inputDeleted",
    "inputNoVlanL3Info",
    "answeredFromRemoteBinding",
    "answeredForDesignatedForwarder",
    "answeredForNonDesignatedForwarder",
    "unknownSourcePort",
    "sourceAndTargetOnSamePort",
    "sentToRemoteTeps",
    "unused12",
    "localTargetNotAnswered",
    "replyFabricNotUsable",
    "replyTransmitFailed",
    "reinjectQueueDroppedOldest",
    "staticBindingTriggered",
    "staticBindingBadMac",
    "staticBindingBadIp",
    "staticBindingBridgeMac",
    "staticBindingVarpMac",
    "staticBindingNoVlanL3Info",
    "targetIsMine",
    "unused24",
    "bindingBadMac",
    "bindingBadIp",
    "bindingBridgeMac",
    "bindingVarpMac",
    "bindingLocalMultihomedHost",
    "bindingLocalMultihomedMac",
    "bindingSeveralMacs",
    "bindingNoVlanL3Info",
    "bindingsFromLocalMac",
    "bindingCreated",
    "bindingRefreshed",
    "bindingDeleted",
    "varpArpMalformed",
    "varpArpNotReply",
    "varpArpExtraData",
    "varpArpNotToVarpMac",
    "varpArpAccepted",
    "varpNaMalformed",
    "varpNaNotToVarpMac",
    "varpNaAccepted",
    "trapReadFailed",
    "trapMalformed",
    "trapVlanNotSuppressed",
    "trapArpNeitherRequestNorReply",
    "trapArpExtraData",
    "trapArpRequest",
    "trapArpReply",
    "trapNeighborSolicitation",
    "trapNeighborAdvertisement",
    "trapRouterSolicitation",
    "reinjectWritten",
    "reinjectWriteFailed",
    "reinjectNoImetLabel",
};

} // namespace

const char* toStrep(ArpSuppressionCounterId id) {
    auto number = static_cast<size_t>(id);
    return number < names.size() ? names[number] : "?";
}

uint64_t CounterKey::hash(uint64_t seed) const {
    Vela::IncrementalHash hash(seed);
    hash.mix(static_cast<uint32_t>(id));
    return hash.result();
}

ArpSuppressionCounterStatus::ArpSuppressionCounterStatus(const Quarry::TableSite& site)
    : Table(site), counter_(*this, "counter", arpSuppressionCounters) {
    for (uint32_t number = 0; number < arpSuppressionCounters; ++number) {
        CounterKey key{ArpSuppressionCounterId(number)};
        counter_.set({key});
        places_[number] = counter_.place(key);
    }
    completeIs(true);
}

void ArpSuppressionCounterStatus::increment(ArpSuppressionCounterId id) {
    auto number = static_cast<size_t>(id);
    if (number < places_.size() && places_[number]) {
        counter_.incrementAt(*places_[number], offsetof(Counter, count));
    } else {
        counter_.set({{id}, 0, 1}); // there is no such counter: refused, and reported
    }
}

} // namespace ArpSuppression
