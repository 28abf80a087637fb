#include "Platform/Model/Bridging/FdbStatus.h"

#include "Platform/Base/Hash.h"

namespace Bridging {

const char* toStrep(EntryType type) {
    switch (type) {
    case EntryType::none:
        return "none";
    case EntryType::learnedDynamic:
        return "learnedDynamic";
    case EntryType::configuredStatic:
        return "configuredStatic";
    case EntryType::evpnDynamicRemote:
        return "evpnDynamicRemote";
    case EntryType::evpnConfiguredRemote:
        return "evpnConfiguredRemote";
    case EntryType::evpnLocalSegment:
        return "evpnLocalSegment";
    }
    return "?";
}

uint64_t HostKey::hash(uint64_t seed) const {
    Vela::IncrementalHash hash(seed);
    hash.mix(fid.value());
    hash.mixBytes(macAddress.bytes());
    return hash.result();
}

std::string HostKey::toStrep() const {
    return "<fid=" + fid.toStrep() + " macAddress=" + macAddress.toStrep() + ">";
}

std::string QuarryFdbStatus::toStrep() const {
    return "<fid=" + key.fid.toStrep() + " macAddress=" + key.macAddress.toStrep() +
           " intf=" + intf.toStrep() + " entryType=" + Bridging::toStrep(entryType) + ">";
}

} // namespace Bridging
