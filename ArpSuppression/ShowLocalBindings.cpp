#include "ArpSuppression/ShowLocalBindings.h"

#include "Platform/Base/JsonWriter.h"
#include "Platform/State/DumpContext.h"

#include <algorithm>
#include <tuple>
#include <vector>

namespace ArpSuppression {

namespace {

ShowArguments argumentsOf(const std::string& command) {
    return ShowArguments::of("show bindings local", command, ShowArguments::Takes::addressAndVlan);
}

/// No counted references: in a forked child each would copy a page.
std::vector<const LocalBinding*> wanted(const LocalBindingRecord& record,
                                        const ShowArguments& arguments) {
    std::vector<const LocalBinding*> bindings;
    for (auto cursor = record.bindingCollection().first(); cursor; ++cursor) {
        const LocalBinding& binding = *cursor.value();
        if ((!arguments.vlanId || binding.vlanIdMacAddress().vlanId() == *arguments.vlanId) &&
            (!arguments.address || binding.vrfIpAddress().ipAddress() == *arguments.address)) {
            bindings.push_back(&binding);
        }
    }
    auto order = [](const LocalBinding* binding) {
        return std::tuple(binding->vlanIdMacAddress().vlanId(), binding->vrfIpAddress().ipAddress(),
                          binding->vlanIdMacAddress().macAddress());
    };
    std::sort(bindings.begin(), bindings.end(),
              [&](const LocalBinding* a, const LocalBinding* b) { return order(a) < order(b); });
    return bindings;
}

std::string vrfNameOf(const LocalBinding& binding) {
    const auto& vrfInfo = binding.vrfIpAddress().vrfInfo();
    return vrfInfo ? vrfInfo->vrfName() : "";
}

/// Where the MAC table has the host; empty if it does not.
Zinc::IntfId portOf(const ArpSuppressionMounts& mounts, const VlanIdMacAddress& host) {
    if (!mounts.bridgingConfig() || !mounts.bridgingStatus()) {
        return {};
    }
    return mounts.bridgingStatus()
        ->quarryFdbStatus({mounts.bridgingConfig()->fid(host.vlanId()), host.macAddress()})
        .intf;
}

} // namespace

void writeLocalBindings(const ArpSuppressionMounts& mounts, const ArpSuppressionRoot* root,
                        const ShowArguments& arguments, int fd) {
    std::vector<const LocalBinding*> bindings;
    if (root) {
        bindings = wanted(*root->localBindingRecord(), arguments);
    }
    Vela::DumpContext context(fd);
    Vela::JsonWriter json;
    json.beginRows();
    bool anyIp6 = std::any_of(bindings.begin(), bindings.end(), [](const LocalBinding* binding) {
        return binding->vrfIpAddress().ipAddress().af() == Zinc::ipv6();
    });
    int addressWidth = anyIp6 ? 39 : 15;
    for (const LocalBinding* binding : bindings) {
        const VlanIdMacAddress& host = binding->vlanIdMacAddress();
        std::string address = binding->vrfIpAddress().ipAddress().toStrep();
        std::string mac = host.macAddress().toStrep();
        std::string port = portOf(mounts, host).toStrep();
        bool learnt = binding->arpStatusHasDynamicEntry();
        if (arguments.json) {
            json.beginObject()
                .field("vlan", host.vlanId().value())
                .field("ip", address)
                .field("mac", mac)
                .field("interface", port)
                .field("vrf", vrfNameOf(*binding))
                .field("kernelLearnt", learnt)
                .endObject();
            context.print(0, "%s", json.take().c_str());
        } else {
            context.print(0, "%4u %-*s %s %-15s %s%s\n", host.vlanId().value(), addressWidth,
                          address.c_str(), mac.c_str(), port.empty() ? "-" : port.c_str(),
                          vrfNameOf(*binding).c_str(), learnt ? " kernelLearnt" : "");
        }
        if (context.failed()) {
            return;
        }
    }
    if (arguments.json) {
        context.print(0, "%s", json.endArray().take().c_str());
    }
}

std::string ShowLocalBindingsCallback::refusal(const std::string& command) const {
    return argumentsOf(command).error;
}

void ShowLocalBindingsCallback::handleCommand(int fd, const std::string& command) {
    writeLocalBindings(*rootSm_->mounts(), rootSm_->root().get(), argumentsOf(command), fd);
}

} // namespace ArpSuppression
