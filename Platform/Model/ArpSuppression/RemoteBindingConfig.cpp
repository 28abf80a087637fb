#include "Platform/Model/ArpSuppression/RemoteBindingConfig.h"

namespace ArpSuppression {

std::string RemoteBinding::toStrep() const {
    return "<vlanId=" + key.vlanId().toStrep() + " ipAddress=" + key.ipAddress().toStrep() +
           " macAddress=" + macAddress.toStrep() + " vxlan=" + std::to_string(vxlan) +
           " localMultihomed=" + std::to_string(localMultihomed) + ">";
}

} // namespace ArpSuppression
