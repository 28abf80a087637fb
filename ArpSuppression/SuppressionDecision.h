#pragma once

#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"
#include "Platform/Model/Bridging/FdbStatus.h"
#include "Platform/Value/EthAddr.h"

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

namespace ArpSuppression {

/// Where the host behind a MAC address is. Text form: the name of the enumerator.
enum class MacConnectionType : uint8_t {
    unknown = 0,              ///< not in the MAC table
    remote = 1,               ///< behind a remote tunnel end point
    localSinglehomed = 2,     ///< on a port of this switch
    localMultihomedDf = 3,    ///< on an Ethernet segment that has a forwarder for the VLAN
    localMultihomedNonDf = 4, ///< on an Ethernet segment that has none
};

/// One of "URSDN".
char macConnectionTypeChar(MacConnectionType type);
const char* stringValue(MacConnectionType type);
std::string valueToStrep(MacConnectionType type);
inline std::ostream& operator<<(std::ostream& out, MacConnectionType type) {
    return out << stringValue(type);
}

/// What is known of the address that a request asks for.
struct TargetFacts {
    Zinc::EthAddr localBindingMacAddress; ///< as the kernel has learnt it
    bool hasRemoteBinding = false;
    Zinc::EthAddr remoteBindingMacAddress;
    /// There is a binding, and who has it answers by itself. Nothing below has been looked at.
    bool ignoreVxlan = false;
    Zinc::EthAddr bindingMacAddress;    ///< the local one, else the remote one
    Bridging::QuarryFdbStatus fdbEntry; ///< of that
    MacConnectionType connectionType = MacConnectionType::unknown;
    bool targetIsMine = false;
};

/// What counts of a request besides its target.
struct Asker {
    enum class Port : uint8_t {
        unknown,
        ofTarget, ///< the one that the MAC table names for the target
        other,
    };

    bool probe = false;
    bool announcement = false;
    bool localArpReq = false; ///< the switch itself asks, or its virtual router
    Port port = Port::other;
};

/// Why something is decided. Text form: the name of the enumerator.
enum class DecisionRule : uint8_t {
    remoteVxlan,
    targetIsMine,
    announcement,
    probe,
    noRemoteBinding,
    remoteBinding,
    localSinglehomed,
    segmentWithForwarder,
    switchAsksOnSegmentWithForwarder,
    segmentWithoutForwarder,
    switchAsksOnSegmentWithoutForwarder,
    switchAsksWithoutRemoteBinding,
};

const char* stringValue(DecisionRule rule);
/// For people: "there is a remote binding".
const char* reasonOf(DecisionRule rule);

enum class DecisionAction : uint8_t {
    nothing,
    sendToRemoteTeps,
    bind,              ///< the switch has asked: it gets a neighbour entry instead of a reply
    unknownSourcePort, ///< no reply, as nobody knows where it would go
    samePort,          ///< no reply, as the target hears the request itself
    reply,
};

const char* stringValue(DecisionAction action);

/// What is to become of a request. A value: making one changes nothing.
struct Decision {
    DecisionRule rule = DecisionRule::remoteVxlan;
    DecisionAction action = DecisionAction::nothing;
    std::optional<ArpSuppressionCounterId> counter = {}; ///< the rule's own
    Zinc::EthAddr macAddress = {};                       ///< to reply or to bind with
};

/// The counter that an action has whatever comes of it.
std::optional<ArpSuppressionCounterId> counterOf(DecisionAction action);

/// All the rules, and no others: requests are handled by them, and an operator is told them.
Decision decide(const TargetFacts& facts, const Asker& asker);

} // namespace ArpSuppression
