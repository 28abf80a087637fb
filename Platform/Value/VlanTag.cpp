#include "Platform/Value/VlanTag.h"

#include "Platform/Base/Hash.h"
#include "Platform/Base/Strep.h"
#include "Platform/Base/ValueParser.h"

#include <cstdio>
#include <type_traits>

namespace Bridging {

static_assert(sizeof(VlanTag) == 4 && std::is_trivially_copyable_v<VlanTag>);

VlanTag VlanTag::fromValue(Vela::ValueParser& parser) {
    parser.openValue("Bridging::VlanTag");
    parser.field("tpid");
    auto tpid = static_cast<uint16_t>(parser.number(0xFFFF));
    parser.field("vlanId");
    auto vlanId = static_cast<uint16_t>(parser.number(noVlanId));
    parser.closeValue();
    return {tpid, vlanId};
}

uint64_t VlanTag::hash(uint64_t seed) const {
    Vela::IncrementalHash hash(seed);
    hash.mix(uint64_t{tpid_} << 16 | vlanId_);
    return hash.result();
}

std::string VlanTag::toStrep() const {
    char text[32];
    std::snprintf(text, sizeof text, "<tpid=0x%04x vlanId=%u>", tpid_, vlanId_);
    return text;
}

std::string VlanTag::valueToStrep() const {
    return Vela::valueForm("Bridging::VlanTag",
                           {{"tpid", std::to_string(tpid_)}, {"vlanId", std::to_string(vlanId_)}});
}

} // namespace Bridging
