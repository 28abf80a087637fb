#include "Platform/Model/Bridging/FdbStatus.h"

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

std::string HostKey::toStrep() const {
    return "<fid=" + fid.toStrep() + " macAddress=" + macAddress.toStrep() + ">";
}

std::string QuarryFdbStatus::toStrep() const {
    return "<fid=" + key.fid.toStrep() + " macAddress=" + key.macAddress.toStrep() +
           " intf=" + intf.toStrep() + " entryType=" + Bridging::toStrep(entryType) + ">";
}

} // namespace Bridging
