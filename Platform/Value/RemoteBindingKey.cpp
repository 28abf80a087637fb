#include "Platform/Value/RemoteBindingKey.h"

#include "Platform/Base/Strep.h"
#include "Platform/Base/ValueParser.h"

#include <type_traits>

namespace ArpSuppression {

static_assert(sizeof(RemoteBindingKey) == 20 && alignof(RemoteBindingKey) == 2);
static_assert(std::is_trivially_copyable_v<RemoteBindingKey>);
static_assert(std::has_unique_object_representations_v<RemoteBindingKey>); // no padding

RemoteBindingKey RemoteBindingKey::fromValue(Vela::ValueParser& parser) {
    parser.openValue("ArpSuppression::RemoteBindingKey");
    parser.field("vlanId");
    auto vlanId = Bridging::VlanId::fromValue(parser);
    parser.field("ipAddress");
    auto ipAddress = Zinc::IpGenAddr::fromValue(parser);
    parser.closeValue();
    return {vlanId, ipAddress};
}

std::string RemoteBindingKey::toStrep() const {
    return "<vlanId=" + vlanId_.toStrep() + " ipAddress=" + ipAddress_.toStrep() + ">";
}

std::string RemoteBindingKey::valueToStrep() const {
    return Vela::valueForm(
        "ArpSuppression::RemoteBindingKey",
        {{"vlanId", vlanId_.valueToStrep()}, {"ipAddress", ipAddress_.valueToStrep()}});
}

} // namespace ArpSuppression
