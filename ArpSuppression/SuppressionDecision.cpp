#include "ArpSuppression/SuppressionDecision.h"

#include "Platform/Base/Assert.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace ArpSuppression {

namespace {

using Id = ArpSuppressionCounterId;
using Vela::assertThat;

constexpr std::array<const char*, 5> connectionNames = {
    "unknown", "remote", "localSinglehomed", "localMultihomedDf", "localMultihomedNonDf"};

struct RuleText {
    const char* name;
    const char* reason;
};
constexpr std::array<RuleText, 12> ruleTexts = {{
    {"remoteVxlan", "the remote binding was learnt over VXLAN"},
    {"targetIsMine", "the address is the switch's own"},
    {"announcement", "a gratuitous ARP goes on whatever is known"},
    {"probe", "a probe goes on whatever is known"},
    {"noRemoteBinding", "there is no remote binding, and the host is not known to be here"},
    {"remoteBinding", "there is a remote binding"},
    {"localSinglehomed", "the host is on a port of this switch"},
    {"segmentWithForwarder", "the host is on an Ethernet segment with a designated forwarder"},
    {"switchAsksOnSegmentWithForwarder",
     "the host is on an Ethernet segment with a designated forwarder, and has a remote binding"},
    {"segmentWithoutForwarder",
     "the host is on an Ethernet segment without a designated forwarder"},
    {"switchAsksOnSegmentWithoutForwarder",
     "the host is on an Ethernet segment without a designated forwarder, and has a remote binding"},
    {"switchAsksWithoutRemoteBinding",
     "the host is on an Ethernet segment without a designated forwarder, and has no remote "
     "binding"},
}};

constexpr std::array<const char*, 6> actionNames = {
    "nothing", "sendToRemoteTeps", "bind", "unknownSourcePort", "samePort", "reply"};

Decision answer(DecisionRule rule, Id counter, const Zinc::EthAddr& macAddress,
                const Asker& asker) {
    Decision decision{rule, DecisionAction::reply, counter, macAddress};
    if (asker.localArpReq) {
        decision.action = DecisionAction::bind;
    } else if (asker.port == Asker::Port::unknown) {
        decision.action = DecisionAction::unknownSourcePort;
    } else if (asker.port == Asker::Port::ofTarget) {
        decision.action = DecisionAction::samePort;
    }
    return decision;
}

/// Who is here answers for itself, with two exceptions: what the switch itself asks about a host on
/// a segment, and a segment without a forwarder, whose host may not be reached by a flood.
Decision decideByConnection(const TargetFacts& facts, const Asker& asker) {
    const Zinc::EthAddr& remoteMac = facts.remoteBindingMacAddress;
    switch (facts.connectionType) {
    case MacConnectionType::unknown:
    case MacConnectionType::remote:
        if (facts.hasRemoteBinding) {
            return answer(DecisionRule::remoteBinding, Id::answeredFromRemoteBinding,
                          facts.bindingMacAddress, asker);
        }
        return {DecisionRule::noRemoteBinding, DecisionAction::sendToRemoteTeps};
    case MacConnectionType::localSinglehomed:
        return {DecisionRule::localSinglehomed, DecisionAction::nothing,
                Id::localTargetNotAnswered};
    case MacConnectionType::localMultihomedDf:
        if (asker.localArpReq && !remoteMac.isZero()) {
            return answer(DecisionRule::switchAsksOnSegmentWithForwarder,
                          Id::answeredForDesignatedForwarder, remoteMac, asker);
        }
        return {DecisionRule::segmentWithForwarder, DecisionAction::nothing,
                Id::localTargetNotAnswered};
    case MacConnectionType::localMultihomedNonDf:
        if (!asker.localArpReq || facts.localBindingMacAddress.isZero()) {
            return answer(DecisionRule::segmentWithoutForwarder,
                          Id::answeredForNonDesignatedForwarder, facts.bindingMacAddress, asker);
        }
        if (remoteMac.isZero()) {
            return {DecisionRule::switchAsksWithoutRemoteBinding, DecisionAction::sendToRemoteTeps};
        }
        return answer(DecisionRule::switchAsksOnSegmentWithoutForwarder,
                      Id::answeredForNonDesignatedForwarder, remoteMac, asker);
    }
    assertThat(false, "false");
    return {};
}

} // namespace

char macConnectionTypeChar(MacConnectionType type) {
    constexpr std::string_view chars = "URSDN";
    auto value = static_cast<size_t>(type);
    assertThat(value < chars.size(), "false");
    return chars[value];
}

const char* stringValue(MacConnectionType type) {
    auto value = static_cast<size_t>(type);
    assertThat(value < connectionNames.size(), "false");
    return connectionNames[value];
}

std::string valueToStrep(MacConnectionType type) {
    return stringValue(type);
}

const char* stringValue(DecisionRule rule) {
    return ruleTexts.at(static_cast<size_t>(rule)).name;
}

const char* reasonOf(DecisionRule rule) {
    return ruleTexts.at(static_cast<size_t>(rule)).reason;
}

const char* stringValue(DecisionAction action) {
    return actionNames.at(static_cast<size_t>(action));
}

std::optional<Id> counterOf(DecisionAction action) {
    switch (action) {
    case DecisionAction::sendToRemoteTeps:
        return Id::sentToRemoteTeps;
    case DecisionAction::unknownSourcePort:
        return Id::unknownSourcePort;
    case DecisionAction::samePort:
        return Id::sourceAndTargetOnSamePort;
    default:
        return std::nullopt;
    }
}

Decision decide(const TargetFacts& facts, const Asker& asker) {
    if (facts.ignoreVxlan) {
        return {DecisionRule::remoteVxlan};
    }
    if (facts.targetIsMine) {
        return {DecisionRule::targetIsMine, DecisionAction::nothing, Id::targetIsMine};
    }
    if (asker.announcement) {
        return {DecisionRule::announcement, DecisionAction::sendToRemoteTeps};
    }
    if (asker.probe) {
        return {DecisionRule::probe, DecisionAction::sendToRemoteTeps};
    }
    return decideByConnection(facts, asker);
}

} // namespace ArpSuppression
