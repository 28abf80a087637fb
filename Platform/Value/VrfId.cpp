#include "Platform/Value/VrfId.h"

#include "Platform/Base/Hash.h"
#include "Platform/Base/ValueParser.h"

#include <limits>
#include <type_traits>

namespace Vrf {

static_assert(sizeof(VrfId) == 4 && std::is_trivially_copyable_v<VrfId>);

VrfId VrfId::fromValue(Vela::ValueParser& parser) {
    return VrfId(static_cast<uint32_t>(parser.number(std::numeric_limits<uint32_t>::max())));
}

uint64_t VrfId::hash(uint64_t seed) const {
    Vela::IncrementalHash hash(seed);
    hash.mix(value_);
    return hash.result();
}

std::string VrfId::toStrep() const {
    return std::to_string(value_);
}

} // namespace Vrf
