#include "Platform/Value/VlanId.h"

#include "Platform/Base/Hash.h"
#include "Platform/Base/ValueParser.h"

#include <type_traits>

namespace Bridging {

static_assert(sizeof(VlanId) == 2 && std::is_trivially_copyable_v<VlanId>);
static_assert(sizeof(VlanIdOrNone) == 2 && std::is_trivially_copyable_v<VlanIdOrNone>);

VlanId VlanId::fromValue(Vela::ValueParser& parser) {
    size_t start = parser.offset();
    uint64_t value = parser.number(4094);
    if (value < 1) {
        parser.fail("a VLAN id of at least 1", start);
    }
    return VlanId(value);
}

uint64_t VlanId::hash(uint64_t seed) const {
    Vela::IncrementalHash hash(seed);
    hash.mix(value_);
    return hash.result();
}

std::string VlanId::toStrep() const {
    return std::to_string(value_);
}

VlanIdOrNone VlanIdOrNone::fromValue(Vela::ValueParser& parser) {
    return VlanIdOrNone(parser.number(4094));
}

uint64_t VlanIdOrNone::hash(uint64_t seed) const {
    Vela::IncrementalHash hash(seed);
    hash.mix(value_);
    return hash.result();
}

std::string VlanIdOrNone::toStrep() const {
    return std::to_string(value_);
}

} // namespace Bridging
