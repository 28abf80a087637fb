#include "Platform/Model/Arp/ArpKey.h"

#include "Platform/Base/Strep.h"
#include "Platform/Base/ValueParser.h"

#include <type_traits>

namespace Arp::Table {

static_assert(sizeof(ArpKey) == 28 && alignof(ArpKey) == 4);
static_assert(std::is_trivially_copyable_v<ArpKey>);
static_assert(std::has_unique_object_representations_v<ArpKey>); // no padding

ArpKey ArpKey::fromValue(Vela::ValueParser& parser) {
    parser.openValue("Arp::Table::ArpKey");
    parser.field("vrfId");
    auto vrfId = Vrf::VrfId::fromValue(parser);
    parser.field("intfId");
    auto intfId = Zinc::IntfId::fromValue(parser);
    parser.field("addr");
    auto addr = Zinc::IpGenAddr::fromValue(parser);
    parser.closeValue();
    return {vrfId, intfId, addr};
}

std::string ArpKey::toStrep() const {
    return "<vrfId=" + vrfId_.toStrep() + " intfId=" + intfId_.toStrep() +
           " addr=" + addr_.toStrep() + ">";
}

std::string ArpKey::valueToStrep() const {
    return Vela::valueForm("Arp::Table::ArpKey", {{"vrfId", vrfId_.valueToStrep()},
                                                  {"intfId", intfId_.valueToStrep()},
                                                  {"addr", addr_.valueToStrep()}});
}

} // namespace Arp::Table
