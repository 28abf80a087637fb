#include "Linux/Topology.h"

#include "Platform/State/DumpContext.h"

namespace Linux {

void Topology::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "Linux::Topology\n");
    for (auto cursor = vlanBridge_.first(); cursor; ++cursor) {
        context.print(indent + 2, "vlanBridge[%u] ifIndex=%u macAddress=%s\n", cursor.key().value(),
                      cursor.value().ifIndex, cursor.value().macAddress.toStrep().c_str());
    }
    for (auto cursor = bridgePort_.first(); cursor; ++cursor) {
        const BridgePort& port = cursor.value();
        context.print(indent + 2,
                      "bridgePort[%u] vlanId=%u intfId=%s tunnel=%d routed=%d ethernetSegment=%d\n",
                      cursor.key(), port.vlanId.value(), port.intfId.toStrep().c_str(), port.tunnel,
                      port.routed, port.ethernetSegment);
    }
    for (auto cursor = routedDevice_.first(); cursor; ++cursor) {
        const RoutedDevice& device = cursor.value();
        context.print(indent + 2, "routedDevice[%s/%u] vlanId=%u intfId=%s vrfId=%u macvlan=%d\n",
                      cursor.key().netNs.c_str(), cursor.key().ifIndex, device.vlanId.value(),
                      device.intfId.toStrep().c_str(), device.vrfId.value(), device.macvlan);
    }
}

} // namespace Linux
