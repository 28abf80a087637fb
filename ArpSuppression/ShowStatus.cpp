#include "ArpSuppression/ShowStatus.h"

#include "Platform/Base/JsonWriter.h"
#include "Platform/State/DumpContext.h"

#include <set>
#include <string>

namespace ArpSuppression {

namespace {

using Bridging::VlanId;

void print(Vela::DumpContext& context, const StatusConditions& conditions) {
    for (const StatusCondition& condition : conditions) {
        context.print(2, "%-33s%s%s%s\n", condition.text, condition.holds ? "yes" : "no",
                      condition.value.empty() ? ""
                      : condition.holds       ? "  "
                                              : "   ",
                      condition.value.c_str());
    }
}

void print(Vela::DumpContext& context, const VlanStatus& status) {
    context.print(0, "%s\n", status.summary().c_str());
    print(context, status.conditions);
}

void write(Vela::JsonWriter& json, const StatusConditions& conditions) {
    json.beginObject();
    for (const StatusCondition& condition : conditions) {
        json.key(condition.name).beginObject().field("holds", condition.holds);
        if (!condition.value.empty()) {
            json.field("value", condition.value);
        }
        json.endObject();
    }
    json.endObject();
}

void write(Vela::JsonWriter& json, const VlanStatus& status) {
    json.beginObject()
        .field("vlan", status.vlanId.value())
        .field("suppressing", status.suppressing());
    json.key("lacks").beginArray();
    for (const StatusCondition& condition : status.lacks) {
        json.value(condition.name);
    }
    json.endArray().key("conditions");
    write(json, status.conditions);
    json.endObject();
}

void write(Vela::JsonWriter& json, const VlanSummary& vlan) {
    json.beginObject()
        .field("vlan", vlan.vlanId.value())
        .field("evpn", vlan.evpn)
        .field("enabled", vlan.enabled)
        .field("remoteBindings", vlan.remoteBindings)
        .field("interface", vlan.interface)
        .field("vrf", vlan.vrf)
        .field("ifIndex", vlan.ifIndex)
        .field("usable", vlan.usable);
    json.key("active");
    vlan.active ? json.value(*vlan.active) : json.null();
    json.endObject();
}

ShowArguments statusArguments(const std::string& command) {
    return ShowArguments::of("show status", command, ShowArguments::Takes::vlan);
}

ShowArguments vlansArguments(const std::string& command) {
    return ShowArguments::of("show vlans", command, ShowArguments::Takes::nothing);
}

const char* orDash(const std::string& text) {
    return text.empty() ? "-" : text.c_str();
}

const char* yesNo(bool yes) {
    return yes ? "yes" : "no";
}

} // namespace

StatusView statusViewOf(const ArpSuppressionRootSm& rootSm) {
    return StatusView(*rootSm.mounts(), rootSm.root().get(), rootSm.messageTrapSm().get(),
                      rootSm.messageReinjectSm().get());
}

void writeStatus(const StatusView& view, const ShowArguments& arguments, int fd) {
    std::set<VlanId> vlans = arguments.vlanId ? std::set<VlanId>{*arguments.vlanId} : view.vlans();
    Vela::DumpContext context(fd);
    if (!arguments.json) {
        context.print(0, "Agent\n");
        print(context, view.agentConditions());
        for (VlanId vlanId : vlans) {
            context.print(0, "\n");
            print(context, view.vlanStatus(vlanId));
        }
        return;
    }
    Vela::JsonWriter json;
    json.beginObject().key("agent");
    write(json, view.agentConditions());
    json.key("vlans").beginRows();
    for (VlanId vlanId : vlans) {
        write(json, view.vlanStatus(vlanId));
        context.print(0, "%s", json.take().c_str());
    }
    json.endArray().endObject();
    context.print(0, "%s", json.take().c_str());
}

void writeVlans(const StatusView& view, const ShowArguments& arguments, int fd) {
    Vela::DumpContext context(fd);
    if (!arguments.json) {
        constexpr const char* header = "%4s %-4s %-6s %8s  %-8s %-15s %7s %-6s %s\n";
        constexpr const char* row = "%4u %-4s %-6s %8llu  %-8s %-15s %7u %-6s %s\n";
        context.print(0, header, "VLAN", "EVPN", "Wanted", "Bindings", "Routed", "VRF", "Ifindex",
                      "Usable", "Active");
        for (const VlanSummary& vlan : view.vlanSummaries()) {
            context.print(0, row, vlan.vlanId.value(), yesNo(vlan.evpn), yesNo(vlan.enabled),
                          static_cast<unsigned long long>(vlan.remoteBindings),
                          orDash(vlan.interface), orDash(vlan.vrf), vlan.ifIndex,
                          yesNo(vlan.usable), yesNo(vlan.active.value_or(false)));
        }
        return;
    }
    Vela::JsonWriter json;
    json.beginRows();
    for (const VlanSummary& vlan : view.vlanSummaries()) {
        write(json, vlan);
    }
    json.endArray();
    context.print(0, "%s", json.take().c_str());
}

std::string ShowStatusCallback::refusal(const std::string& command) const {
    return statusArguments(command).error;
}

void ShowStatusCallback::handleCommand(int fd, const std::string& command) {
    writeStatus(statusViewOf(*rootSm_), statusArguments(command), fd);
}

std::string ShowVlansCallback::refusal(const std::string& command) const {
    return vlansArguments(command).error;
}

void ShowVlansCallback::handleCommand(int fd, const std::string& command) {
    writeVlans(statusViewOf(*rootSm_), vlansArguments(command), fd);
}

} // namespace ArpSuppression
