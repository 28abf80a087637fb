#include "Testing/SwitchDevices.h"

#include <net/if.h>
#include <vector>

namespace Testing {

uint32_t deviceFlags(bool running) {
    return running ? IFF_UP | IFF_RUNNING : IFF_UP;
}

void deviceIs(Vela::SwitchState& state, const std::string& name, uint32_t ifIndex,
              const std::string& netNs) {
    auto status = state.kernelNetInfoIs(netNs);
    std::vector<uint32_t> old;
    for (auto device = status->interfaceCollection().first(); device; ++device) {
        if (device.value().deviceName() == name && device.key().value != ifIndex) {
            old.push_back(device.key().value);
        }
    }
    for (uint32_t other : old) {
        status->interfaceDel(other);
    }
    if (ifIndex != 0) {
        status->interfaceIs({ifIndex, name, deviceFlags(true), Zinc::EthAddr()});
    }
}

void portIs(Vela::SwitchState& state, const std::string& intfName, const std::string& deviceName,
            uint32_t ifIndex) {
    state.allIntfStatusDir->intfStatusIs(Zinc::IntfId(intfName))->deviceNameIs(deviceName);
    deviceIs(state, deviceName, ifIndex);
}

void routedVlanIs(Vela::SwitchState& state, Bridging::VlanId vlanId, uint32_t ifIndex) {
    std::string name = "Vlan" + vlanId.toStrep();
    state.evpnStatus->vlanToDot1qIs(vlanId, Bridging::VlanIdOrNone());
    state.ipStatus->ipIntfStatusIs(Zinc::IntfId(name), "default");
    deviceIs(state, name, ifIndex);
}

} // namespace Testing
