#include "Host/NeighborReport.h"

#include "Platform/Base/JsonWriter.h"
#include "Platform/State/DumpContext.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Host {

namespace {

using View = Linux::NeighborWriter::View;

struct Row {
    Arp::InputConfigKey key;
    const Arp::InputConfigEntry* entry;
};

std::vector<L3::VrfName> vrfNamesOf(const Arp::InputConfig& asked) {
    std::vector<L3::VrfName> names;
    for (auto vrf = asked.vrfCollection().first(); vrf; ++vrf) {
        names.push_back(vrf.key());
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// By address.
std::vector<Row> rowsOf(const Arp::InputConfigVrf& vrf) {
    std::vector<Row> rows;
    for (const auto* family : {&vrf.ipv4EntryCollection(), &vrf.ipv6EntryCollection()}) {
        for (auto entry = family->first(); entry; ++entry) {
            rows.push_back({entry.key(), &entry.value()});
        }
    }
    std::sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.key < b.key; });
    return rows;
}

std::string lineOf(const L3::VrfName& vrfName, const Row& row, const std::optional<View>& view) {
    std::string interface = row.key.intfId() ? row.key.intfId().toStrep() : "-";
    std::string line = vrfName.bytes() + ' ' + row.key.ipAddress().toStrep() + ' ' + interface +
                       ' ' + toStrep(row.entry->type()) + ' ' + row.entry->macAddress().toStrep();
    if (!view) {
        return line;
    }
    line += std::string(" ") + toString(view->outcome);
    if (view->held) {
        line += "; kernel: " + view->held->macAddress.toStrep() +
                (view->held->isStatic ? " static " : " dynamic ") + toStrep(view->held->source);
    }
    if (view->controlPlane) {
        line += "; control plane: " + view->controlPlane->toStrep();
    }
    return line;
}

void addRow(Vela::JsonWriter& json, const L3::VrfName& vrfName, const Row& row,
            const std::optional<View>& view) {
    json.beginObject()
        .field("vrf", vrfName.bytes())
        .field("ip", row.key.ipAddress().toStrep())
        .field("interface", row.key.intfId().toStrep())
        .field("type", toStrep(row.entry->type()))
        .field("mac", row.entry->macAddress().toStrep())
        .field("refresh", toStrep(row.entry->quickRefresh()));
    if (view) {
        json.field("outcome", toString(view->outcome)).key("kernel");
        if (view->held) {
            json.beginObject()
                .field("mac", view->held->macAddress.toStrep())
                .field("static", view->held->isStatic)
                .field("source", toStrep(view->held->source))
                .endObject();
        } else {
            json.null();
        }
        json.key("controlPlane");
        if (view->controlPlane) {
            json.value(view->controlPlane->toStrep());
        } else {
            json.null();
        }
    }
    json.endObject();
}

std::vector<std::pair<const char*, uint64_t>> countersOf(const Linux::NeighborWriter& writer) {
    std::vector<std::pair<const char*, uint64_t>> counters;
    for (size_t number = 0; number < Linux::neighborCounters; ++number) {
        auto counter = static_cast<Linux::NeighborCounter>(number);
        counters.emplace_back(toString(counter), writer.counters()[counter]);
    }
    return counters;
}

} // namespace

void writeNeighbors(const Arp::InputConfig& asked, Linux::NeighborWriter* writer, bool json,
                    int fd) {
    Vela::DumpContext context(fd);
    Vela::JsonWriter document;
    document.beginObject().field("carriedOut", writer != nullptr).key("entries").beginRows();
    for (const L3::VrfName& vrfName : vrfNamesOf(asked)) {
        for (const Row& row : rowsOf(*asked.vrf(vrfName))) {
            std::optional<View> view = writer ? writer->view(vrfName, row.key) : std::nullopt;
            if (json) {
                addRow(document, vrfName, row, view);
                context.print(0, "%s", document.take().c_str());
            } else {
                context.print(0, "%s\n", lineOf(vrfName, row, view).c_str());
            }
            if (context.failed()) {
                return;
            }
        }
    }
    document.endArray().key("counters").beginObject();
    if (!writer && !json) {
        context.print(0, "nobody carries entries out: the kernel is not the switch\n");
    }
    for (const auto& [name, count] :
         writer ? countersOf(*writer) : std::vector<std::pair<const char*, uint64_t>>()) {
        document.field(name, count);
        if (!json) {
            context.print(0, "%-36s%12llu\n", name, static_cast<unsigned long long>(count));
        }
    }
    if (json) {
        context.print(0, "%s", document.endObject().endObject().take().c_str());
    }
}

} // namespace Host
