#include "Ctl/ShowBindings.h"

#include "Ctl/Standstill.h"
#include "Platform/Base/JsonWriter.h"
#include "Platform/Model/ArpSuppression/RemoteBindingConfig.h"
#include "Platform/Quarry/AttachedTable.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <ostream>
#include <system_error>
#include <vector>

namespace Ctl {

namespace {

using ArpSuppression::RemoteBinding;
using ArpSuppression::RemoteBindingKey;
using Bridging::VlanId;
using Table = Quarry::AttachedTable<RemoteBinding>;

constexpr size_t pieceBytes = 64 * 1024;

bool isWanted(const RemoteBinding& binding, const RemoteBindingsRequest& request) {
    return !request.vlanId || binding.key.vlanId() == *request.vlanId;
}

/// An address is looked up on the VLANs where it may be: quicker than to go through a million.
std::vector<RemoteBinding> read(const Table& table, const RemoteBindingsRequest& request) {
    std::vector<RemoteBinding> bindings;
    auto add = [&](const RemoteBindingKey& key) {
        if (auto binding = table.find(key)) {
            bindings.push_back(*binding);
        }
    };
    if (request.address && request.vlanId) {
        add({*request.vlanId, *request.address});
    } else if (request.address) {
        for (unsigned vlan = 1; vlan <= 4094; ++vlan) {
            add({VlanId(vlan), *request.address});
        }
    } else {
        if (!request.vlanId) {
            bindings.reserve(table.count());
        }
        for (auto cursor = table.first(); cursor; ++cursor) {
            if (isWanted(cursor.value(), request)) {
                bindings.push_back(cursor.value());
            }
        }
    }
    std::sort(bindings.begin(), bindings.end(),
              [](const RemoteBinding& a, const RemoteBinding& b) { return a.key < b.key; });
    return bindings;
}

void writeJson(const std::vector<RemoteBinding>& bindings, std::ostream& out) {
    Vela::JsonWriter json;
    json.beginRows();
    for (const RemoteBinding& binding : bindings) {
        json.beginObject()
            .field("vlan", binding.key.vlanId().value())
            .field("ip", binding.key.ipAddress().toStrep())
            .field("mac", binding.macAddress.toStrep())
            .field("vxlan", binding.vxlan != 0)
            .field("localMultihomed", binding.localMultihomed != 0)
            .endObject();
        if (json.pending() >= pieceBytes) {
            out << json.take();
            if (!out) {
                return;
            }
        }
    }
    out << json.endArray().take();
}

void writeText(const std::vector<RemoteBinding>& bindings, std::ostream& out) {
    bool anyIp6 = std::any_of(bindings.begin(), bindings.end(), [](const RemoteBinding& binding) {
        return binding.key.ipAddress().af() == Zinc::ipv6();
    });
    int addressWidth = anyIp6 ? 39 : 15;
    for (const RemoteBinding& binding : bindings) {
        char line[128];
        int length =
            std::snprintf(line, sizeof line, "%4u %-*s %s%s%s\n", binding.key.vlanId().value(),
                          addressWidth, binding.key.ipAddress().toStrep().c_str(),
                          binding.macAddress.toStrep().c_str(), binding.vxlan != 0 ? " vxlan" : "",
                          binding.localMultihomed != 0 ? " localMultihomed" : "");
        if (!out.write(line, length)) {
            return;
        }
    }
}

std::string noteOf(const Table& table, const RemoteBindingsRequest& request, bool any) {
    std::string text;
    if (!any) {
        text = "note: there is no remote binding";
        text += request.address ? " of " + request.address->toStrep() : "";
        text += request.vlanId ? " on VLAN " + request.vlanId->toStrep() : "";
        text += '\n';
    }
    std::string why = standstill(table, "remote bindings");
    if (!why.empty()) {
        text += "note: " + why + '\n';
    } else if (!table.complete()) {
        text += "note: the table is still being filled\n";
    }
    return text;
}

} // namespace

int showRemoteBindings(const RemoteBindingsRequest& request, std::ostream& out,
                       std::ostream& errors) {
    const std::string file =
        request.runtimeDirectory + "/tables/arpSuppression/remoteBindingConfig/evpn/remoteBinding";
    if (std::error_code error; !std::filesystem::exists(file, error) && !error) {
        errors << "error: there is no table of remote bindings: no arpsupd has run in "
               << request.runtimeDirectory << '\n';
        return 1;
    }
    try {
        Table table(file);
        std::vector<RemoteBinding> bindings = read(table, request);
        request.json ? writeJson(bindings, out) : writeText(bindings, out);
        if (!out.flush()) {
            errors << "error: the remote bindings cannot be written\n";
            return 1;
        }
        if (table.trouble() != Quarry::Outcome::absent) {
            errors << "error: not all remote bindings can be read: " << reasonOf(table.trouble())
                   << '\n';
            return 1;
        }
        errors << noteOf(table, request, !bindings.empty());
        return 0;
    } catch (const Quarry::TableError& error) {
        errors << "error: " << error.what() << '\n';
        return 1;
    }
}

} // namespace Ctl
