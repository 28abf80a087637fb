#include "Host/ForwardingPlaneReport.h"

#include "Platform/Base/JsonWriter.h"
#include "Platform/State/DumpContext.h"

namespace Host {

namespace {

std::string jsonOf(const ForwardingPlaneReport& report) {
    Vela::JsonWriter json;
    json.beginObject()
        .field("enabled", report.enabled)
        .field("trapping", report.silentBecause.empty());
    if (!report.silentBecause.empty()) {
        json.field("silentBecause", report.silentBecause);
    }
    json.key("tunnels").beginArray();
    for (uint32_t ifIndex : report.tunnels) {
        json.value(ifIndex);
    }
    json.endArray().key("problems").beginArray();
    for (const std::string& problem : report.problems) {
        json.value(problem);
    }
    json.endArray().key("counters").beginObject();
    for (const auto& [name, count] : report.counters) {
        json.field(name, count);
    }
    return json.endObject().endObject().take();
}

} // namespace

void writeForwardingPlane(const ForwardingPlaneReport& report, bool json, int fd) {
    Vela::DumpContext context(fd);
    if (json) {
        context.print(0, "%s", jsonOf(report).c_str());
        return;
    }
    std::string tunnels;
    for (uint32_t ifIndex : report.tunnels) {
        tunnels += ' ' + std::to_string(ifIndex);
    }
    std::string trapping = report.silentBecause.empty() ? "yes" : "no, " + report.silentBecause;
    context.print(0, "enabled %s\ntrapping %s\ntunnels%s\n", report.enabled ? "yes" : "no",
                  trapping.c_str(), tunnels.empty() ? " none" : tunnels.c_str());
    for (const std::string& problem : report.problems) {
        context.print(0, "problem %s\n", problem.c_str());
    }
    for (const auto& [name, count] : report.counters) {
        context.print(0, "%-36s%12llu\n", name.c_str(), static_cast<unsigned long long>(count));
    }
}

} // namespace Host
