#include "ArpSuppression/ExplainAddress.h"

#include "ArpSuppression/ShowStatus.h"
#include "Platform/Base/JsonWriter.h"
#include "Platform/State/DumpContext.h"

#include <algorithm>
#include <array>

namespace ArpSuppression {

namespace {

using Bridging::VlanId;
using Id = ArpSuppressionCounterId;

ShowArguments argumentsOf(const std::string& command) {
    return ShowArguments::of("explain", command, ShowArguments::Takes::addressAndVlan);
}

std::string counterText(Id id) {
    return std::to_string(static_cast<uint32_t>(id)) + ' ' + toStrep(id);
}

// For people

std::string remoteText(const AddressStatus& status) {
    if (!status.remoteBinding) {
        return "none";
    }
    const RemoteBinding& binding = *status.remoteBinding;
    return binding.macAddress.toStrep() + (binding.vxlan != 0 ? " vxlan" : "") +
           (binding.localMultihomed != 0 ? " localMultihomed" : "");
}

std::string kernelText(const AddressStatus& status) {
    if (!status.kernelEntry) {
        return "none";
    }
    const Arp::Table::ArpEntry& entry = *status.kernelEntry;
    return entry.macAddress.toStrep() +
           (entry.isStatic ? " static, which is no local binding" : " dynamic");
}

std::string localText(const AddressStatus& status) {
    if (!status.localBinding) {
        return "none";
    }
    const auto& [host, kernelLearnt] = *status.localBinding;
    return host.macAddress().toStrep() + " on VLAN " + host.vlanId().toStrep() +
           (kernelLearnt ? " kernelLearnt" : "");
}

std::string fdbText(const AddressStatus& status) {
    if (!status.facts || status.facts->ignoreVxlan) {
        return "not looked at";
    }
    const Bridging::QuarryFdbStatus& entry = status.facts->fdbEntry;
    if (entry == Bridging::QuarryFdbStatus()) {
        return "none";
    }
    return entry.key.macAddress.toStrep() + " on " + entry.intf.toStrep() + ", " +
           toStrep(entry.entryType) + (isEntryTypeEvpn(entry.entryType) ? ", of EVPN" : "");
}

std::string segmentText(const AddressStatus& status) {
    if (!status.segment) {
        return "none";
    }
    const auto& [intfId, forwarder] = *status.segment;
    return intfId.toStrep() + (forwarder ? ", designated forwarder " + forwarder.toStrep()
                                         : ", no designated forwarder");
}

std::string connectionText(const AddressStatus& status) {
    return !status.facts || status.facts->ignoreVxlan ? "not looked at"
                                                      : stringValue(status.facts->connectionType);
}

std::string mineText(const AddressStatus& status) {
    return !status.facts || status.facts->ignoreVxlan ? "not looked at"
           : status.facts->targetIsMine               ? "yes"
                                                      : "no";
}

std::string wantedText(const AddressStatus& status) {
    if (!status.wantedEntry) {
        return "none";
    }
    const auto& [vrfName, intfId, entry] = *status.wantedEntry;
    return std::string(Arp::ArpType::toStrep(entry.type())) + ", " + entry.macAddress().toStrep() +
           (intfId ? " on " + intfId.toStrep() : "") + ", VRF " + vrfName + ", refresh " +
           Arp::toStrep(entry.quickRefresh());
}

bool moves(const ExpectedOutcome& outcome, Id id) {
    return std::find(outcome.counters.begin(), outcome.counters.end(), id) !=
           outcome.counters.end();
}

std::string actionText(const ExpectedOutcome& outcome) {
    const Decision& decision = outcome.decision;
    switch (decision.action) {
    case DecisionAction::sendToRemoteTeps:
        return "sent on to the remote end points";
    case DecisionAction::bind:
        return moves(outcome, Id::staticBindingTriggered)
                   ? "not answered, a neighbour entry with " + decision.macAddress.toStrep() +
                         " instead"
                   : "not answered, and no neighbour entry with " + decision.macAddress.toStrep();
    case DecisionAction::unknownSourcePort:
        return "not answered";
    case DecisionAction::samePort:
        return "not answered, as the target is there";
    case DecisionAction::reply:
        return moves(outcome, Id::replyFabricNotUsable)
                   ? "not answered, as the device for replies is not usable"
                   : "answered with " + decision.macAddress.toStrep();
    case DecisionAction::nothing:
        break;
    }
    return decision.rule == DecisionRule::remoteVxlan    ? "ignored"
           : decision.rule == DecisionRule::targetIsMine ? "left to the switch"
                                                         : "left to the local host";
}

std::string outcomeText(const ExpectedOutcome& outcome) {
    std::string text = actionText(outcome) + ": " + reasonOf(outcome.decision.rule);
    const char* before = "; counts ";
    for (Id id : outcome.counters) {
        text += before + counterText(id);
        before = ", ";
    }
    return text;
}

void print(Vela::DumpContext& context, const AddressStatus& status) {
    auto row = [&](const char* name, const std::string& text) {
        context.print(2, "%-25s%s\n", name, text.c_str());
    };
    context.print(0, "%s\n", status.vlan.summary().c_str());
    row("address of the switch", mineText(status));
    row("remote binding", remoteText(status));
    row("kernel's neighbour", kernelText(status));
    row("local binding", localText(status));
    row("MAC table entry", fdbText(status));
    row("Ethernet segment", segmentText(status));
    row("connection", connectionText(status));
    row("neighbour entry wanted", wantedText(status));
    if (status.handling == RequestHandling::passed) {
        row("any request", "passed by the forwarding plane: suppression is not at work");
    } else if (status.handling == RequestHandling::copied) {
        row("any solicitation", "passed by the forwarding plane: the agent learns the sender from "
                                "a copy and answers none; counts " +
                                    counterText(Id::trapNeighborSolicitation));
    }
    for (const ExpectedOutcome& outcome : status.outcomes) {
        row(outcome.text.c_str(), outcomeText(outcome));
    }
}

// For programs

void writeKnown(Vela::JsonWriter& json, const AddressStatus& status) {
    json.key("remoteBinding");
    if (const auto& binding = status.remoteBinding) {
        json.beginObject()
            .field("mac", binding->macAddress.toStrep())
            .field("vxlan", binding->vxlan != 0)
            .field("localMultihomed", binding->localMultihomed != 0)
            .endObject();
    } else {
        json.null();
    }
    json.key("kernelNeighbor");
    if (const auto& entry = status.kernelEntry) {
        json.beginObject()
            .field("mac", entry->macAddress.toStrep())
            .field("static", entry->isStatic)
            .endObject();
    } else {
        json.null();
    }
    json.key("localBinding");
    if (const auto& binding = status.localBinding) {
        json.beginObject()
            .field("mac", binding->vlanIdMacAddress.macAddress().toStrep())
            .field("vlan", binding->vlanIdMacAddress.vlanId().value())
            .field("kernelLearnt", binding->kernelLearnt)
            .endObject();
    } else {
        json.null();
    }
    json.key("wantedEntry");
    if (const auto& wanted = status.wantedEntry) {
        json.beginObject()
            .field("type", Arp::ArpType::toStrep(wanted->entry.type()))
            .field("mac", wanted->entry.macAddress().toStrep())
            .field("interface", wanted->intfId.toStrep())
            .field("vrf", wanted->vrfName)
            .field("refresh", Arp::toStrep(wanted->entry.quickRefresh()))
            .endObject();
    } else {
        json.null();
    }
}

void writeFacts(Vela::JsonWriter& json, const AddressStatus& status) {
    if (!status.facts || status.facts->ignoreVxlan) {
        json.key("targetIsMine").null().key("connection").null();
        json.key("fdb").null().key("segment").null();
        return;
    }
    const TargetFacts& facts = *status.facts;
    json.field("targetIsMine", facts.targetIsMine)
        .field("connection", stringValue(facts.connectionType));
    json.key("fdb");
    if (facts.fdbEntry == Bridging::QuarryFdbStatus()) {
        json.null();
    } else {
        json.beginObject()
            .field("mac", facts.fdbEntry.key.macAddress.toStrep())
            .field("interface", facts.fdbEntry.intf.toStrep())
            .field("type", toStrep(facts.fdbEntry.entryType))
            .field("evpn", isEntryTypeEvpn(facts.fdbEntry.entryType))
            .endObject();
    }
    json.key("segment");
    if (const auto& segment = status.segment) {
        json.beginObject()
            .field("interface", segment->intfId.toStrep())
            .field("designatedForwarder", segment->forwarder.toStrep())
            .endObject();
    } else {
        json.null();
    }
}

void write(Vela::JsonWriter& json, const ExpectedOutcome& outcome) {
    const Decision& decision = outcome.decision;
    bool hasMac = decision.action != DecisionAction::nothing &&
                  decision.action != DecisionAction::sendToRemoteTeps;
    json.beginObject()
        .field("request", outcome.name)
        .field("action", stringValue(decision.action))
        .field("rule", stringValue(decision.rule))
        .field("mac", hasMac ? decision.macAddress.toStrep() : "");
    json.key("counters").beginArray();
    for (Id id : outcome.counters) {
        json.beginObject()
            .field("id", static_cast<uint32_t>(id))
            .field("name", toStrep(id))
            .endObject();
    }
    json.endArray().endObject();
}

void write(Vela::JsonWriter& json, const AddressStatus& status) {
    constexpr std::array<const char*, 3> handlings = {"passed", "copied", "decided"};
    json.beginObject()
        .field("vlan", status.vlan.vlanId.value())
        .field("suppressing", status.vlan.suppressing());
    json.key("lacks").beginArray();
    for (const StatusCondition& condition : status.vlan.lacks) {
        json.value(condition.name);
    }
    json.endArray();
    writeKnown(json, status);
    writeFacts(json, status);
    json.field("requests", handlings.at(static_cast<size_t>(status.handling)));
    json.key("outcomes").beginArray();
    for (const ExpectedOutcome& outcome : status.outcomes) {
        write(json, outcome);
    }
    json.endArray().endObject();
}

} // namespace

void writeExplanation(const AddressView& view, const ShowArguments& arguments, int fd) {
    const Zinc::IpGenAddr& address = *arguments.address;
    std::set<VlanId> vlans;
    std::string remark;
    if (arguments.vlanId) {
        vlans = {*arguments.vlanId};
    } else if (vlans = view.vlansThatKnow(address); vlans.empty()) {
        vlans = view.vlansThatSuppress();
        remark = vlans.empty() ? ": known on no VLAN, and none is suppressing"
                               : ": known on no VLAN; these are suppressing";
    }
    Vela::DumpContext context(fd);
    if (!arguments.json) {
        context.print(0, "%s%s\n", address.toStrep().c_str(), remark.c_str());
        for (VlanId vlanId : vlans) {
            context.print(0, "\n");
            print(context, view.addressStatus(vlanId, address));
        }
        return;
    }
    Vela::JsonWriter json;
    json.beginObject().field("address", address.toStrep());
    json.key("vlans").beginRows();
    for (VlanId vlanId : vlans) {
        write(json, view.addressStatus(vlanId, address));
        context.print(0, "%s", json.take().c_str());
    }
    context.print(0, "%s", json.endArray().endObject().take().c_str());
}

std::string ExplainCallback::refusal(const std::string& command) const {
    ShowArguments arguments = argumentsOf(command);
    return !arguments.error.empty() ? arguments.error
           : arguments.address      ? ""
                                    : "an IP address is expected: explain ADDRESS [VLAN] [-j]";
}

void ExplainCallback::handleCommand(int fd, const std::string& command) {
    const ArpSuppressionRootSm& rootSm = *rootSm_;
    StatusView statusView = statusViewOf(rootSm);
    writeExplanation(AddressView(*rootSm.mounts(), rootSm.root().get(),
                                 rootSm.arpSuppressionSm().get(), statusView),
                     argumentsOf(command), fd);
}

} // namespace ArpSuppression
