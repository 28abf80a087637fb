#include "Platform/Model/KernelNetInfo/Status.h"

#include "Platform/Base/Errors.h"
#include "Platform/Base/Hash.h"

namespace KernelNetInfo {

uint64_t IfIndex::hash(uint64_t seed) const {
    Vela::IncrementalHash hash(seed);
    hash.mix(value);
    return hash.result();
}

InterfaceStatus::InterfaceStatus(uint32_t ifIndex, std::string_view deviceName,
                                 uint32_t interfaceFlags, const Zinc::EthAddr& address)
    : key{ifIndex}, flags(interfaceFlags), macAddress(address) {
    if (deviceName.size() > longestName) {
        throw Vela::RangeError("KernelNetInfo::InterfaceStatus::name > 15 bytes not allowed");
    }
    deviceName.copy(name.data(), deviceName.size());
}

std::string statusPath(const std::string& netNs) {
    return "kni/ns/" + netNs + "/status";
}

} // namespace KernelNetInfo
